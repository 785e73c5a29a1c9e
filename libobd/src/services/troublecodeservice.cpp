#include "services/itroublecodeservice.h"

#include <tavrix/tracelog.h>

#include "core/identifiers.h"
#include "parameters/cleartroublecodes.h"
#include "parameters/dtcparameter.h"
#include "parameters/freezeframetroublecode.h"
#include "powertrain/monitorstatus.h"
#include "powertrain/parameterfactory.h"
#include "powertrain/pidparameters.h"
#include "services/freezeframewalk.h"
#include "services/sensormodels.h"

namespace obd {

using tavrix::debugStream;

namespace {

using Observer = ITroubleCodeServiceObserver;

// The one sensor of a distance or run time, with its value.
struct FirstSensor {
  std::shared_ptr<SensorDescriptor> descriptor;
  std::shared_ptr<SensorValue> value;
};

FirstSensor firstSensor(const std::shared_ptr<PowertrainParameter>& parameter,
                        const std::shared_ptr<IEcu>& ecu, UnitSystem system) {
  const auto sensors = ParameterDescriptor(parameter, ecu, system).sensors();
  const auto values = parameter->values(*ecu, system);
  return {sensors.empty() ? nullptr : sensors.front(), values.empty() ? nullptr : values.front()};
}

class TroubleCodeService final : public RefreshingService<ITroubleCodeService, Observer> {
 public:
  using RefreshingService::RefreshingService;

  void init();

  bool refreshMilStatus() override { return refreshIfConnected(m_milStatus); }
  bool refreshConfirmedCodes() override { return refreshIfConnected(m_confirmed); }
  bool refreshPendingCodes() override { return refreshIfConnected(m_pending); }
  bool refreshPermanentCodes() override { return refreshIfConnected(m_permanent); }
  bool clearCodes() override { return refreshIfConnected(m_clear); }
  unsigned int refreshFreezeFrames() override { return m_walk.start(); }

  Codes readConfirmedCodes() override { return readCodes<ConfirmedTroubleCodes>(); }
  Codes readPendingCodes() override { return readCodes<PendingTroubleCodes>(); }
  Codes readPermanentCodes() override { return readCodes<PermanentTroubleCodes>(); }
  std::shared_ptr<MilStatus> readMilStatus() override;
  std::shared_ptr<SensorDataModel> readDistance(bool sinceFault) override {
    return sinceFault ? readSensor<MilDistance>() : readSensor<DistanceTraveled>();
  }
  std::shared_ptr<SensorDataModel> readRuntime(bool sinceFault) override {
    return sinceFault ? readSensor<EngineRuntimeMil>() : readSensor<EngineRuntimeDtc>();
  }
  std::shared_ptr<DtcDataModel> readFreezeFrameCode() override {
    const auto subject = fetchNew<FreezeFrameTroubleCode>(static_cast<unsigned char>(0));
    return subject ? subject->getTroubleCode(*ecu()) : nullptr;
  }
  std::vector<int> readFreezeFrameIdentifiers() override;
  std::vector<std::shared_ptr<SensorDataModel>> readFreezeFrameSensors(int identifier) override;
  bool clearCodesNow() override;

 protected:
  void onConnected() override {}
  void onDisconnected() override {
    cancelAll();
    m_walk.forgetFrames();
    dropRetired();
  }
  void onEcuChanged() override {
    cancelAll();
    m_walk.forgetFrames();
    fireEvent(&Observer::onInvalidated);
  }
  void onUnitSystemChanged() override {
    if (isConnected()) {
      m_walk.forgetSensors();
      fireEvent(&Observer::onInvalidated);
    }
  }
  void onAllFinished() override { fireEvent(&Observer::onRefreshDone); }

 private:
  // A refresher that tells `event` of the codes.
  template <typename T>
  RefresherPtr makeCodes(void (Observer::*event)(bool, const Codes&)) {
    return makeRefresher<T>([this, event](unsigned int, bool success, const std::shared_ptr<T>& subject) {
      fireEvent(event, success, success && ecu() ? subject->getTroubleCodes(*ecu()) : Codes());
    });
  }

  // A refresher that tells `event` of a distance or run time.
  template <typename T>
  RefresherPtr makeSensor(void (Observer::*event)(bool, const std::shared_ptr<SensorDescriptor>&,
                                                  const std::shared_ptr<SensorValue>&)) {
    const auto done = [this, event](unsigned int, bool success, const std::shared_ptr<T>& subject) {
      const auto [descriptor, value] =
          success && ecu() ? firstSensor(subject, ecu(), unitSystem()) : FirstSensor();
      fireEvent(event, success, descriptor, value);
    };
    return makeRefresher<T>(done, ObdMode::Mode01, static_cast<unsigned char>(0));
  }

  void tellMilStatus(bool success, const MonitorStatus& subject);
  void tellCleared(bool success, const ClearTroubleCodes& subject);
  void tellFrameCode(unsigned int id, bool success, const FreezeFrameTroubleCode& subject);
  void tellFrameSensor(unsigned int id, bool success, const std::shared_ptr<PowertrainParameter>& subject);
  void refreshIfSupported(unsigned char pid, const RefresherPtr& refresher) {
    if (ecu()->isSupported(ObdMode::Mode01, pid, 0)) {
      refreshIfConnected(refresher);
    }
  }

  template <typename T>
  Codes readCodes() {
    const auto subject = fetchNew<T>();
    return subject ? subject->getTroubleCodes(*ecu()) : Codes();
  }
  template <typename T>
  std::shared_ptr<SensorDataModel> readSensor();

  // A new fault will bring new frames.
  void codesCleared() {
    ecu()->resetFreezeFrameConfiguration();
    m_walk.forgetFrames();
  }
  void cancelAll() {
    cancel({m_confirmed, m_pending, m_permanent, m_clear, m_milStatus});
    m_walk.cancel();
    cancel({m_distanceSinceReset, m_runtimeSinceReset, m_distanceSinceFault, m_runtimeSinceFault});
    silenceBatch();
  }

  RefresherPtr m_confirmed;
  RefresherPtr m_pending;
  RefresherPtr m_permanent;
  RefresherPtr m_clear;
  RefresherPtr m_milStatus;
  FreezeFrameWalk m_walk;
  RefresherPtr m_distanceSinceReset;
  RefresherPtr m_runtimeSinceReset;
  RefresherPtr m_distanceSinceFault;
  RefresherPtr m_runtimeSinceFault;
};

void TroubleCodeService::init() {
  m_confirmed = makeCodes<ConfirmedTroubleCodes>(&Observer::onConfirmedCodesUpdated);
  m_pending = makeCodes<PendingTroubleCodes>(&Observer::onPendingCodesUpdated);
  m_permanent = makeCodes<PermanentTroubleCodes>(&Observer::onPermanentCodesUpdated);
  m_clear = makeRefresher<ClearTroubleCodes>(
      [this](unsigned int, bool success, const auto& subject) { tellCleared(success, *subject); });
  m_milStatus = makeRefresher<MonitorStatus>(
      [this](unsigned int, bool success, const auto& subject) { tellMilStatus(success, *subject); });
  m_distanceSinceReset = makeSensor<DistanceTraveled>(&Observer::onDistanceSinceResetUpdated);
  m_runtimeSinceReset = makeSensor<EngineRuntimeDtc>(&Observer::onRuntimeSinceResetUpdated);
  m_distanceSinceFault = makeSensor<MilDistance>(&Observer::onDistanceSinceFaultUpdated);
  m_runtimeSinceFault = makeSensor<EngineRuntimeMil>(&Observer::onRuntimeSinceFaultUpdated);

  const auto frameCode = [this](unsigned int id, bool success, const auto& subject) {
    tellFrameCode(id, success, *subject);
  };
  const auto configuration = [this](unsigned int id, bool success, const auto& subject) {
    debugStream << "FreezeFrameConfigurationQuery::onUpdateDone " << (success ? "success" : "failure")
                << subject->frame();
    m_walk.onConfiguration(id, subject->frame(), success, ecu());
  };
  const auto frameSensor = [this](unsigned int id, bool success, const auto& subject) {
    tellFrameSensor(id, success, subject);
  };
  m_walk.setHost(
      {.isConnected = [this] { return isConnected(); },
       .makeCode = [=, this](auto frame) { return makeRefresher<FreezeFrameTroubleCode>(frameCode, frame); },
       .makeConfiguration =
           [=, this](auto ecuId, auto frame) {
             return makeRefresher<FreezeFrameConfigurationQuery>(configuration, ecuId, frame);
           },
       .makeSensor = [=, this](const auto& sensor) { return makeRefresherOn(sensor, frameSensor); },
       .retire = [this](Refreshers& refreshers) { retire(refreshers); }});
}

// --- Refreshing ---

void TroubleCodeService::tellMilStatus(bool success, const MonitorStatus& subject) {
  MilStatus status = MilStatus::MilOff;
  if (success && ecu()) {
    if (subject.isMalfunctionIndicatorLightOn(*ecu())) {
      debugStream << "MIL on";
      status = MilStatus::MilOn;
      refreshIfSupported(0x21, m_distanceSinceFault);
      refreshIfSupported(0x4D, m_runtimeSinceFault);
    } else {
      debugStream << "MIL off";
      refreshIfSupported(0x31, m_distanceSinceReset);
      refreshIfSupported(0x4E, m_runtimeSinceReset);
    }
  }
  fireEvent(&Observer::onMilStatusUpdated, success, status);
}

void TroubleCodeService::tellCleared(bool success, const ClearTroubleCodes& subject) {
  bool cleared = false;
  if (success && ecu()) {
    codesCleared();
    cleared = subject.isCleared(*ecu());
  }
  fireEvent(&Observer::onMilResetUpdated, success, cleared);
}

void TroubleCodeService::tellFrameCode(unsigned int id, bool success, const FreezeFrameTroubleCode& subject) {
  const unsigned char frame = subject.frame();
  debugStream << "FreezeFrameTroubleCode::onUpdateDone " << (success ? "success" : "failure")
              << " for frame: " << frame;
  std::shared_ptr<DtcDataModel> code;
  if (success && ecu()) {
    code = subject.getTroubleCode(*ecu());
    m_walk.onCode(id, frame, code ? code->code() : std::string(), ecu());
  }
  fireEvent(&Observer::onFreezeFrameCodeUpdated, static_cast<int>(id), success, code, frame);
}

void TroubleCodeService::tellFrameSensor(unsigned int id, bool success,
                                         const std::shared_ptr<PowertrainParameter>& subject) {
  std::shared_ptr<ParameterDescriptor> descriptor;
  Observer::SensorValues models;
  if (success && ecu()) {
    descriptor = std::make_shared<ParameterDescriptor>(subject, ecu(), unitSystem());
    for (const auto& value : subject->values(*ecu(), unitSystem())) {
      const auto* const numeric = dynamic_cast<const NumericSensorValue*>(value.get());
      models.push_back(std::make_shared<SensorValueDataModel>(
          value->uid(),
          numeric != nullptr ? numeric->toString(numeric->numericValue()) : value->textualValue()));
    }
  }
  fireEvent(&Observer::onFreezeFrameSensorUpdated, static_cast<int>(id), success, descriptor, models,
            subject->frame());
}

// --- Reading while the caller waits ---

std::shared_ptr<ITroubleCodeService::MilStatus> TroubleCodeService::readMilStatus() {
  const auto subject = fetchNew<MonitorStatus>();
  if (!subject) {
    return nullptr;
  }
  const bool on = subject->isMalfunctionIndicatorLightOn(*ecu());
  debugStream << (on ? "MIL on" : "MIL off");
  return std::make_shared<MilStatus>(on ? MilStatus::MilOn : MilStatus::MilOff);
}

template <typename T>
std::shared_ptr<SensorDataModel> TroubleCodeService::readSensor() {
  if (!hasUnit() || !ecu()->isSupported(ObdMode::Mode01, ParameterIdentifier(T::Pid).toOid(), 0)) {
    return nullptr;
  }
  const auto parameter = fetchNew<T>(ObdMode::Mode01, static_cast<unsigned char>(0));
  const auto [sensor, read] = parameter ? firstSensor(parameter, ecu(), unitSystem()) : FirstSensor();
  if (!sensor || !read) {
    return nullptr;
  }
  const auto value = std::make_shared<SensorValueDataModel>(read->uid(), read->textualValue());
  return std::make_shared<SensorDataModel>(isExtendedSensor(sensor->uid()), sensor->uid(),
                                           sensor->description(), sensor->unit(), value, nullptr);
}

std::vector<int> TroubleCodeService::readFreezeFrameIdentifiers() {
  if (!hasUnit()) {
    return {};
  }
  if (ecu()->detectFreezeFrameConfiguration(0)) {
    debugStream << "FF configuration updated";
  }
  if (!ecu()->isSupported(ObdMode::Mode02, FreezeFrameCodePid, 0)) {
    debugStream << "No freeze frame available for frame #" << 0;
    return {};
  }
  const std::vector<unsigned char> identifiers =
      sensorIdentifiers(*ecu(), SensorPurpose::FreezeFrameChoice, 0);
  return {identifiers.begin(), identifiers.end()};
}

std::vector<std::shared_ptr<SensorDataModel>> TroubleCodeService::readFreezeFrameSensors(int identifier) {
  const auto parameter =
      ParameterFactory().createFreezeFrameParameter(ParameterIdentifier(identifier).id(), 0);
  if (!parameter || !hasUnit() || !fetch(parameter)) {
    return {};
  }
  return makeSensorModels(parameter, ecu(), unitSystem());
}

bool TroubleCodeService::clearCodesNow() {
  const auto subject = fetchNew<ClearTroubleCodes>();
  if (!subject) {
    return false;
  }
  codesCleared();
  return subject->isCleared(*ecu());
}

}  // namespace

std::shared_ptr<ITroubleCodeService> TroubleCodeServiceBuilder::createTroubleCodeService() {
  return makeService<TroubleCodeService>();
}

}  // namespace obd
