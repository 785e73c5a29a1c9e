#pragma once

#include <memory>
#include <string>

#include "core/vehicletypes.h"
#include "services/iconnectionmanager.h"
#include "velmara/client/link.h"

namespace simulator {
class Replay;
}

namespace velmara {

class TraceWriter;

/// An opening that was started.
struct StartedLink {
  std::string words;                          ///< what the link leads to
  std::shared_ptr<simulator::Replay> replay;  ///< null if it leads to an adapter
};

/// Starts an opening. What goes over the link is recorded if `trace` is not null. Throws `Failure` if that is
/// not possible.
StartedLink openLink(const Link& link, obd::IConnectionManager& manager, obd::VehicleProtocol protocol,
                     const std::shared_ptr<TraceWriter>& trace);

/// The same on a bus of the caller's, which people call `words`.
StartedLink openLink(const std::shared_ptr<hostos::IMessageBus>& bus, const std::string& words,
                     obd::IConnectionManager& manager, obd::VehicleProtocol protocol,
                     const std::shared_ptr<TraceWriter>& trace);

}  // namespace velmara
