#pragma once

#include <memory>
#include <vector>

#include "dtc/dtcdatamodel.h"
#include "velmara/client/codetexts.h"

namespace velmara {

using CodeRecords = std::vector<std::shared_ptr<obd::DtcDataModel>>;

/// The library's records as plain data.
std::vector<CodeRow> rowsOf(const CodeRecords& records);

}  // namespace velmara
