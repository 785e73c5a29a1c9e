#pragma once

#include <memory>

#include <tavrix/export.h>

#include "link/isettings.h"
#include "services/iconfiguration.h"
#include "services/iconnectionmanager.h"
#include "services/iconnectionnotifier.h"
#include "services/iecumanager.h"
#include "services/ivelmarasettings.h"

namespace obd {

/// The facade that a front end creates first. It owns the long-lived core of the library; the pointers that
/// it gives stay its own and live as long as it does. One exists in a process at a time.
class VELMARA_EXPORT IObdVelmara {
 public:
  virtual ~IObdVelmara() = default;
  /// The three numbers given to the builder; the library attaches no meaning to them.
  virtual unsigned int firstNumber() = 0;
  virtual unsigned int secondNumber() = 0;
  virtual unsigned int thirdNumber() = 0;
  virtual IConnectionManager* connectionManager() = 0;
  virtual IEcuManager* ecuManager() = 0;
  virtual IVelmaraSettings* settings() = 0;
  virtual IConfiguration* configuration() = 0;
  virtual IConnectionNotifier* connectionNotifier() = 0;
};

namespace ObdVelmaraBuilder {
/// Builds the facade on the front end's settings store. Call it after `LIBOBDOpen`, and before the builders
/// of services. Releasing the result closes an open connection, and waits as `IConnectionManager::close`
/// does.
VELMARA_EXPORT std::shared_ptr<IObdVelmara> createObdVelmara(unsigned int first, unsigned int second,
                                                             unsigned int third,
                                                             const std::shared_ptr<ISettings>& settings);
}  // namespace ObdVelmaraBuilder

}  // namespace obd
