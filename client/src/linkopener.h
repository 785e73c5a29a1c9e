#pragma once

#include <string>

#include "core/vehicletypes.h"
#include "services/iconnectionmanager.h"
#include "velmara/client/link.h"

namespace velmara {

/// Starts an opening. Throws `Failure` if that is not possible. Gives what the link leads to, in words.
std::string openLink(const Link& link, obd::IConnectionManager& manager, obd::VehicleProtocol protocol);

}  // namespace velmara
