#pragma once

#include <functional>
#include <memory>

#include "core/iecu.h"
#include "core/obdparameter.h"

namespace fuzz {

/// A parameter or record, and all that a front end can ask of it for a control unit.
struct Subject {
  std::shared_ptr<obd::ObdParameter> query;
  std::function<void(const std::shared_ptr<obd::IEcu>&)> look;
};

/// One of all that there are.
Subject chooseSubject(unsigned char kind, unsigned char id, obd::ObdProtocol protocol);

}  // namespace fuzz
