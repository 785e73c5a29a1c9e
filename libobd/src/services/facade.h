#pragma once

#include <memory>

#include "services/iobdvelmara.h"

namespace obd {

/// The long-lived core of the library, which the facade makes and the services share, so that it does not
/// matter who is released first. Once the facade is gone, the connection is closed and stays so.
struct FacadeParts {
  std::shared_ptr<IVelmaraSettings> settings;
  std::shared_ptr<IConfiguration> configuration;
  std::shared_ptr<IConnectionNotifier> connectionNotifier;
  std::shared_ptr<IConnectionManager> connectionManager;
  std::shared_ptr<IEcuManager> ecuManager;
};

/// The parts of the process's facade; null while there is none. Builders of services ask here and give null
/// in turn. Any thread.
std::shared_ptr<FacadeParts> currentFacade();

/// What a builder gives: a new service on that facade; null without one. A service with an `init` gets the
/// call as soon as a shared pointer owns it, since refreshers need that.
template <typename Service>
std::shared_ptr<Service> makeService() {
  const std::shared_ptr<FacadeParts> facade = currentFacade();
  if (!facade) {
    return nullptr;
  }
  auto service = std::make_shared<Service>(facade);
  if constexpr (requires { service->init(); }) {
    service->init();
  }
  return service;
}

}  // namespace obd
