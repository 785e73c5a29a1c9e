#pragma once

#include <string>

#include <tavrix/export.h>

#include "core/vehicletypes.h"

namespace obd {

/// What a front end may know of the adapter. The texts are the adapter's own words; all but `batteryVoltage`
/// may be called from any thread at any time. After the end of the link the texts are empty.
class VELMARA_EXPORT IAdapter {
 public:
  virtual ~IAdapter() = default;

  /// Reply to "ATI", such as "ELM327 v1.5".
  virtual std::string interfaceName() = 0;
  /// Reply to "AT@1".
  virtual std::string deviceDescription() = 0;
  /// Reply to "AT@2".
  virtual std::string deviceIdentifier() = 0;
  /// Asks the adapter for the voltage of the vehicle's supply, in volts with one decimal. False without a
  /// readable answer. One exchange at a time: use `IObdProxy::batteryVoltage` while queries run.
  virtual bool batteryVoltage(float& volts) = 0;
  /// The link family in use; `Unknown` until the vehicle has answered.
  virtual ObdProtocol obdProtocol() = 0;
  /// The protocol in the adapter's words.
  virtual std::string protocolName() = 0;
};

}  // namespace obd
