#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "core/identifiers.h"
#include "dispatch/fetcher.h"
#include "parameters/calibrationitems.h"
#include "parameters/identificationnumber.h"
#include "parameters/performancetracking.h"
#include "powertrain/parameterfactory.h"
#include "services/facade.h"
#include "services/iecuservice.h"
#include "services/sensormodels.h"
#include "services/service.h"

namespace obd {

namespace {

constexpr int LastParameter = 127;

// Information types of service 09.
enum InformationType : unsigned char {
  Vin = 0x02,
  CalibrationId = 0x04,
  Cvn = 0x06,
  SparkCounters = 0x08,
  CompressionCounters = 0x0B,
  SerialNumber = 0x0D,
  TypeApproval = 0x0F
};

using Observer = IEcuServiceObserver;

class EcuService final : public RefreshingService<IEcuService, Observer> {
 public:
  using RefreshingService::RefreshingService;

  void init();
  bool refresh(int kind) override;
  std::vector<std::shared_ptr<ParameterDescriptor>> allParameters() override;
  bool isParameterSupported(const std::shared_ptr<ParameterDescriptor>& parameter) override {
    return isConnected() && parameter && m_supportedParameters.count(parameter->pid()) != 0;
  }

  // The unit has one text for its standard.
  std::string ecuStandardDescription() override { return ecuText(&IEcu::standardDescription); }
  std::string ecuStandard() override { return ecuText(&IEcu::standardDescription); }
  std::string ecuName() override { return ecuText(&IEcu::name); }
  std::string ecuDescription() override { return ecuText(&IEcu::description); }

  bool isVinSupported() override { return isSupported(Vin); }
  bool isCalibrationIdSupported() override { return isSupported(CalibrationId); }
  bool isCvnSupported() override { return isSupported(Cvn); }
  bool arePerformanceCountersSupported() override {
    return isSupported(SparkCounters) || isSupported(CompressionCounters);
  }
  bool isEngineSerialNumberSupported() override { return isSupported(SerialNumber); }
  bool isEroTanSupported() override { return isSupported(TypeApproval); }

  std::string readVin() override {
    return read(Vin, &VehicleIdentificationNumber::vehicleIdentificationNumber);
  }
  Texts readCalibrationIds() override { return read(CalibrationId, &CalibrationIds::calibrationIds); }
  Texts readCvns() override { return read(Cvn, &CalibrationVerificationNumbers::verificationNumbers); }
  std::string readEngineSerialNumber() override {
    return read(SerialNumber, &EngineSerialNumber::engineSerialNumber);
  }
  std::string readEroTan() override { return read(TypeApproval, &Erotan::erotan); }

 protected:
  void onConnected() override { updateSupportedParameters(); }
  void onDisconnected() override { cancelAll(); }
  void onEcuChanged() override {
    cancelAll();
    updateSupportedParameters();
    fireEvent(&Observer::onInvalidated);
  }
  void onAllFinished() override { fireEvent(&Observer::onRefreshDone); }

 private:
  bool isSupported(InformationType type) { return hasUnit() && ecu()->isSupported(ObdMode::Mode09, type, 0); }
  bool refreshIfSupported(InformationType type) {
    return isSupported(type) && refreshIfConnected(m_refreshers.at(type));
  }
  std::string ecuText(std::string (IEcu::*text)() const) {
    return hasUnit() ? (ecu().get()->*text)() : std::string();
  }

  // What the selected unit has answered.
  template <typename T, typename Value>
  Value valueOf(bool success, const T& subject, Value (T::*value)(const std::shared_ptr<IEcu>&) const) const {
    return success && ecu() ? (subject.*value)(ecu()) : Value();
  }

  // What is missing from the list of the unit is not asked for: the time-out would be the front end's. A unit
  // without a list may have it all the same.
  template <typename T, typename Value>
  Value read(InformationType type, Value (T::*value)(const std::shared_ptr<IEcu>&) const) {
    if (!hasUnit() || (hasList(*ecu(), ObdMode::Mode09) && !isSupported(type))) {
      return {};
    }
    const auto subject = fetchNew<T>();
    return subject ? (*subject.*value)(ecu()) : Value();
  }

  // A refresher that tells `event` what the unit has answered.
  template <typename T, typename Value>
  RefresherPtr makeReader(Value (T::*value)(const std::shared_ptr<IEcu>&) const,
                          void (Observer::*event)(bool, const Value&)) {
    return makeRefresher<T>([=, this](unsigned int, bool success, const std::shared_ptr<T>& subject) {
      fireEvent(event, success, valueOf(success, *subject, value));
    });
  }

  template <typename T>
  RefresherPtr makeCounterReader() {
    return makeRefresher<T>([this](unsigned int, bool success, const std::shared_ptr<T>& subject) {
      Observer::Counters counters;
      if (success && ecu()) {
        for (const auto counter : subject->supportedCounters(*ecu())) {
          counters.push_back(std::make_shared<CounterDescriptor>(subject->counterDescription(counter),
                                                                 subject->counterValue(*ecu(), counter)));
        }
      }
      fireEvent(&Observer::onPerformanceCountersUpdated, success, counters);
    });
  }

  void updateSupportedParameters();
  void cancelAll() {
    for (const auto& [type, refresher] : m_refreshers) {
      refresher->cancel();
    }
    silenceBatch();
  }

  std::map<InformationType, RefresherPtr> m_refreshers;
  std::set<ParameterIdentifier::Id> m_supportedParameters;
};

void EcuService::init() {
  using Number = VehicleIdentificationNumber;
  const auto tellVin = [this](unsigned int, bool success, const auto& subject) {
    fireEvent(&Observer::onVehicleIdentificationNumberUpdated, success,
              valueOf(success, *subject, &Number::vehicleIdentificationNumber),
              valueOf(success, *subject, &Number::vehicleModelYear));
  };
  m_refreshers = {
      {Vin, makeRefresher<Number>(tellVin)},
      {CalibrationId,
       makeReader(&CalibrationIds::calibrationIds, &Observer::onCalibrationIdentificationsUpdated)},
      {Cvn, makeReader(&CalibrationVerificationNumbers::verificationNumbers,
                       &Observer::onCalibrationVerificationNumbersUpdated)},
      {SparkCounters, makeCounterReader<PerformanceTrackingSpark>()},
      {CompressionCounters, makeCounterReader<PerformanceTrackingCompression>()},
      {SerialNumber,
       makeReader(&EngineSerialNumber::engineSerialNumber, &Observer::onEngineSerialNumberUpdate)},
      {TypeApproval, makeReader(&Erotan::erotan, &Observer::onExhaustRequlationOrTypeApprovalNumberUpdated)}};
}

bool EcuService::refresh(int kind) {
  switch (kind) {
    case PerformanceCounters:
      return refreshIfSupported(isSupported(SparkCounters) ? SparkCounters : CompressionCounters);
    case VehicleInformation: {
      bool any = false;
      for (const InformationType type : {Vin, CalibrationId, Cvn, SerialNumber, TypeApproval}) {
        any = refreshIfSupported(type) || any;
      }
      return any;
    }
    default:
      return false;
  }
}

std::vector<std::shared_ptr<ParameterDescriptor>> EcuService::allParameters() {
  std::vector<std::shared_ptr<ParameterDescriptor>> result;
  if (!hasUnit()) {
    return result;
  }
  const auto add = [&](const std::shared_ptr<PowertrainParameter>& parameter) {
    if (parameter) {
      result.push_back(std::make_shared<ParameterDescriptor>(parameter, ecu(), unitSystem()));
    }
  };
  ParameterFactory factory;
  for (int id = 1; id <= LastParameter; ++id) {
    const ParameterIdentifier::Id pid = ParameterIdentifier(id).id();
    add(pid == ParameterIdentifier::FreezeFrameTroubleCode ? factory.createFreezeFrameParameter(pid, 0)
                                                           : factory.createParameter(pid));
  }
  for (const std::shared_ptr<PowertrainParameter>& parameter :
       makeCalculatedParameters(ecu(), *facade().settings)) {
    add(parameter);
  }
  return result;
}

void EcuService::updateSupportedParameters() {
  m_supportedParameters.clear();
  if (ecu()) {
    for (const std::shared_ptr<ParameterDescriptor>& parameter : facade().ecuManager->sensors(ecu()->id())) {
      m_supportedParameters.insert(parameter->pid());
    }
  }
}

}  // namespace

std::shared_ptr<IEcuService> EcuServiceBuilder::createEcuService() {
  return makeService<EcuService>();
}

}  // namespace obd
