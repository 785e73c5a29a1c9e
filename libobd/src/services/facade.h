#pragma once

#include <memory>

#include "services/iobdvelmara.h"

namespace obd {

/// The facade of the process; null while there is none. Builders of services ask here and give null in turn.
IObdVelmara* currentFacade();

/// What a builder gives: a new service on that facade; null without one. A service with an `init` gets the
/// call as soon as a shared pointer owns it, since refreshers need that.
template <typename Service>
std::shared_ptr<Service> makeService() {
  IObdVelmara* const facade = currentFacade();
  if (facade == nullptr) {
    return nullptr;
  }
  auto service = std::make_shared<Service>(*facade);
  if constexpr (requires { service->init(); }) {
    service->init();
  }
  return service;
}

}  // namespace obd
