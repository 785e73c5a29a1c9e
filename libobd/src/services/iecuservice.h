#pragma once

#include <memory>
#include <string>
#include <vector>

#include <tavrix/export.h>
#include <tavrix/notifier.h>

#include "core/unitreply.h"
#include "powertrain/parameterdescriptor.h"

namespace obd {

/// One in-use performance counter.
class VELMARA_EXPORT CounterDescriptor {
 public:
  CounterDescriptor(const std::string& description, unsigned int counter)
      : m_description(description), m_counter(counter) {}

  const std::string& description() const { return m_description; }
  /// In decimal.
  std::string value() const { return std::to_string(m_counter); }

 private:
  std::string m_description;
  unsigned int m_counter;
};

/// Hears of vehicle information on the thread that calls `Dispatcher::dispatch`. Without success the values
/// are empty.
class VELMARA_EXPORT IEcuServiceObserver {
 public:
  using Texts = std::vector<std::string>;
  using Counters = std::vector<std::shared_ptr<CounterDescriptor>>;

  virtual ~IEcuServiceObserver() = default;
  virtual void onVehicleIdentificationNumberUpdated(bool /*success*/, const std::string& /*vin*/,
                                                    int /*modelYear*/) {}
  virtual void onCalibrationIdentificationsUpdated(bool /*success*/, const Texts& /*ids*/) {}
  virtual void onCalibrationVerificationNumbersUpdated(bool /*success*/, const Texts& /*numbers*/) {}
  virtual void onPerformanceCountersUpdated(bool /*success*/, const Counters& /*counters*/) {}
  virtual void onEngineSerialNumberUpdate(bool /*success*/, const std::string& /*number*/) {}
  virtual void onExhaustRequlationOrTypeApprovalNumberUpdated(bool /*success*/,
                                                              const std::string& /*number*/) {}
  /// What was told so far is void.
  virtual void onInvalidated() {}
  /// All refreshes in flight are through.
  virtual void onRefreshDone() {}
};

/// What identifies the selected control unit and its vehicle (SAE J1979 service 09), and which parameters
/// there are. Without a control unit all texts are empty and nothing is supported. Only the `read` forms wait
/// for the vehicle. For the thread that calls `Dispatcher::dispatch`.
class VELMARA_EXPORT IEcuService : public virtual tavrix::INotifier<IEcuServiceObserver> {
 public:
  using Texts = IEcuServiceObserver::Texts;
  /// What `refresh` reads.
  enum Kind : int { PerformanceCounters = 0, VehicleInformation = 1 };

  virtual bool isConnected() = 0;
  /// Starts reads that end in observer calls, of what the control unit supports. False if nothing was
  /// started.
  virtual bool refresh(int kind) = 0;
  /// Everything that the library knows, whatever the vehicle offers; empty without a control unit.
  virtual std::vector<std::shared_ptr<ParameterDescriptor>> allParameters() = 0;
  /// Whether the selected control unit offers this parameter, as of the last connection or selection.
  virtual bool isParameterSupported(const std::shared_ptr<ParameterDescriptor>& parameter) = 0;
  virtual std::string ecuStandardDescription() = 0;
  virtual std::string ecuStandard() = 0;
  virtual std::string ecuName() = 0;
  virtual std::string ecuDescription() = 0;
  virtual bool isVinSupported() = 0;
  virtual bool isCalibrationIdSupported() = 0;
  virtual bool isCvnSupported() = 0;
  virtual bool arePerformanceCountersSupported() = 0;
  virtual bool isEngineSerialNumberSupported() = 0;
  virtual bool isEroTanSupported() = 0;
  /// The `read` forms wait until the vehicle has answered, queries that were queued before included, but no
  /// longer than 1.55 s; 3.05 s for VIN, serial number and type approval. Empty where nothing came, and at
  /// once where the unit reports a list of service 09 without this item.
  virtual std::string readVin() = 0;
  virtual Texts readCalibrationIds() = 0;
  virtual Texts readCvns() = 0;
  virtual std::string readEngineSerialNumber() = 0;
  virtual std::string readEroTan() = 0;
  /// What came of the selected control unit: within an observer call to the query that it tells of, and after
  /// a `read` form to the last query of that. The success that observers are told is that of all units.
  virtual UnitReply lastReply() = 0;
};

namespace EcuServiceBuilder {
/// Null if there is no facade.
VELMARA_EXPORT std::shared_ptr<IEcuService> createEcuService();
}  // namespace EcuServiceBuilder

}  // namespace obd
