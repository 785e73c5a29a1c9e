#pragma once

#include <memory>
#include <string>

#include <tavrix/export.h>

namespace hostos {
class IMessageBus;
}

namespace velmara {

class TraceWriter;

/// A bus that hands everything on to another one and records it. It is a `hostos::ISerialBus` where the other
/// one is. `link` is what people call that.
VELMARA_EXPORT std::shared_ptr<hostos::IMessageBus> makeTracingBus(std::shared_ptr<hostos::IMessageBus> bus,
                                                                   std::shared_ptr<TraceWriter> trace,
                                                                   std::string link);

}  // namespace velmara
