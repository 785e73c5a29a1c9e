#include "services/troublecodeservice.h"

#include <utility>

#include <tavrix/tracelog.h>

#include "core/identifiers.h"
#include "dispatch/fetcher.h"
#include "powertrain/parameterfactory.h"
#include "services/facade.h"
#include "services/sensormodels.h"

namespace obd {

using tavrix::debugStream;

namespace {

// The one sensor of a distance or run time, with its value.
struct FirstSensor {
  std::shared_ptr<SensorDescriptor> descriptor;
  std::shared_ptr<SensorValue> value;
};

FirstSensor firstSensor(const std::shared_ptr<PowertrainParameter>& parameter,
                        const std::shared_ptr<IEcu>& ecu, UnitSystem system) {
  FirstSensor first;
  const auto sensors = ParameterDescriptor(parameter, ecu, system).sensors();
  const auto values = parameter->values(*ecu, system);
  if (!sensors.empty()) {
    first.descriptor = sensors.front();
  }
  if (!values.empty()) {
    first.value = values.front();
  }
  return first;
}

}  // namespace

TroubleCodeService::~TroubleCodeService() {
  cancelAll();
}

void TroubleCodeService::init() {
  constexpr ObdMode Live = ObdMode::Mode01;
  constexpr unsigned char NoFrame = 0;
  m_confirmedRefresher = makeRefresher<ConfirmedTroubleCodes>();
  m_pendingRefresher = makeRefresher<PendingTroubleCodes>();
  m_permanentRefresher = makeRefresher<PermanentTroubleCodes>();
  m_clearRefresher = makeRefresher<ClearTroubleCodes>();
  m_milRefresher = makeRefresher<MonitorStatus>();
  m_distanceSinceResetRefresher = makeRefresher<DistanceTraveled>(Live, NoFrame);
  m_runtimeSinceResetRefresher = makeRefresher<EngineRuntimeDtc>(Live, NoFrame);
  m_distanceSinceFaultRefresher = makeRefresher<MilDistance>(Live, NoFrame);
  m_runtimeSinceFaultRefresher = makeRefresher<EngineRuntimeMil>(Live, NoFrame);
  m_walk.setHost({.isConnected = [this] { return isConnected(); },
                  .makeCode = [this](auto frame) { return makeRefresher<FreezeFrameTroubleCode>(frame); },
                  .makeConfiguration =
                      [this](auto ecuId, auto frame) {
                        return makeRefresher<FreezeFrameConfigurationQuery>(ecuId, frame);
                      },
                  .makeSensor = [this](const auto& sensor) { return makeRefresherOn(sensor); },
                  .retire = [this](Refreshers& refreshers) { retire(refreshers); }});
}

// --- Refreshing ---

bool TroubleCodeService::refreshMilStatus() {
  return refreshIfConnected(m_milRefresher);
}
bool TroubleCodeService::refreshConfirmedCodes() {
  return refreshIfConnected(m_confirmedRefresher);
}
bool TroubleCodeService::refreshPendingCodes() {
  return refreshIfConnected(m_pendingRefresher);
}
bool TroubleCodeService::refreshPermanentCodes() {
  return refreshIfConnected(m_permanentRefresher);
}
bool TroubleCodeService::clearCodes() {
  return refreshIfConnected(m_clearRefresher);
}

void TroubleCodeService::refreshIfSupported(unsigned char pid, const RefresherPtr& refresher) {
  if (ecu()->isSupported(ObdMode::Mode01, pid, 0)) {
    refreshIfConnected(refresher);
  }
}

void TroubleCodeService::onAllFinished() {
  fireEvent(&ITroubleCodeServiceObserver::onRefreshDone);
}

void TroubleCodeService::fireCodes(CodesEvent event, bool success, const DtcParameter& subject) {
  fireEvent(event, success, success && ecu() ? subject.getTroubleCodes(*ecu()) : Codes());
}

void TroubleCodeService::onUpdateDone(unsigned int /*id*/, bool success,
                                      const std::shared_ptr<ConfirmedTroubleCodes>& subject) {
  fireCodes(&ITroubleCodeServiceObserver::onConfirmedCodesUpdated, success, *subject);
}

void TroubleCodeService::onUpdateDone(unsigned int /*id*/, bool success,
                                      const std::shared_ptr<PendingTroubleCodes>& subject) {
  fireCodes(&ITroubleCodeServiceObserver::onPendingCodesUpdated, success, *subject);
}

void TroubleCodeService::onUpdateDone(unsigned int /*id*/, bool success,
                                      const std::shared_ptr<PermanentTroubleCodes>& subject) {
  fireCodes(&ITroubleCodeServiceObserver::onPermanentCodesUpdated, success, *subject);
}

void TroubleCodeService::onUpdateDone(unsigned int /*id*/, bool success,
                                      const std::shared_ptr<MonitorStatus>& subject) {
  MilStatus status = MilStatus::MilOff;
  if (success && ecu()) {
    if (subject->isMalfunctionIndicatorLightOn(*ecu())) {
      debugStream << "MIL on";
      status = MilStatus::MilOn;
      refreshIfSupported(0x21, m_distanceSinceFaultRefresher);
      refreshIfSupported(0x4D, m_runtimeSinceFaultRefresher);
    } else {
      debugStream << "MIL off";
      refreshIfSupported(0x31, m_distanceSinceResetRefresher);
      refreshIfSupported(0x4E, m_runtimeSinceResetRefresher);
    }
  }
  fireEvent(&ITroubleCodeServiceObserver::onMilStatusUpdated, success, status);
}

void TroubleCodeService::onUpdateDone(unsigned int /*id*/, bool success,
                                      const std::shared_ptr<ClearTroubleCodes>& subject) {
  bool cleared = false;
  if (success && ecu()) {
    codesCleared();
    cleared = subject->isCleared(*ecu());
  }
  fireEvent(&ITroubleCodeServiceObserver::onMilResetUpdated, success, cleared);
}

void TroubleCodeService::fireSensor(SensorEvent event, bool success,
                                    const std::shared_ptr<PowertrainParameter>& subject) {
  FirstSensor first;
  if (success && ecu()) {
    first = firstSensor(subject, ecu(), unitSystem());
  }
  fireEvent(event, success, first.descriptor, first.value);
}

void TroubleCodeService::onUpdateDone(unsigned int /*id*/, bool success,
                                      const std::shared_ptr<DistanceTraveled>& subject) {
  fireSensor(&ITroubleCodeServiceObserver::onDistanceSinceResetUpdated, success, subject);
}

void TroubleCodeService::onUpdateDone(unsigned int /*id*/, bool success,
                                      const std::shared_ptr<EngineRuntimeDtc>& subject) {
  fireSensor(&ITroubleCodeServiceObserver::onRuntimeSinceResetUpdated, success, subject);
}

void TroubleCodeService::onUpdateDone(unsigned int /*id*/, bool success,
                                      const std::shared_ptr<MilDistance>& subject) {
  fireSensor(&ITroubleCodeServiceObserver::onDistanceSinceFaultUpdated, success, subject);
}

void TroubleCodeService::onUpdateDone(unsigned int /*id*/, bool success,
                                      const std::shared_ptr<EngineRuntimeMil>& subject) {
  fireSensor(&ITroubleCodeServiceObserver::onRuntimeSinceFaultUpdated, success, subject);
}

// --- Freeze frames ---

unsigned int TroubleCodeService::refreshFreezeFrames() {
  return m_walk.start();
}

void TroubleCodeService::onUpdateDone(unsigned int id, bool success,
                                      const std::shared_ptr<FreezeFrameTroubleCode>& subject) {
  const unsigned char frame = subject->frame();
  debugStream << "FreezeFrameTroubleCode::onUpdateDone " << (success ? "success" : "failure")
              << " for frame: " << frame;
  std::shared_ptr<DtcDataModel> code;
  if (success && ecu()) {
    code = subject->getTroubleCode(*ecu());
    m_walk.onCode(id, frame, code ? code->code() : std::string(), ecu());
  }
  fireEvent(&ITroubleCodeServiceObserver::onFreezeFrameCodeUpdated, static_cast<int>(id), success, code,
            static_cast<int>(frame));
}

void TroubleCodeService::onUpdateDone(unsigned int id, bool success,
                                      const std::shared_ptr<FreezeFrameConfigurationQuery>& subject) {
  debugStream << "FreezeFrameConfigurationQuery::onUpdateDone " << (success ? "success" : "failure")
              << subject->frame();
  m_walk.onConfiguration(id, subject->frame(), success, ecu());
}

// A new fault will bring new frames.
void TroubleCodeService::codesCleared() {
  ecu()->resetFreezeFrameConfiguration();
  m_walk.forgetFrames();
}

void TroubleCodeService::onUpdateDone(unsigned int id, bool success,
                                      const std::shared_ptr<PowertrainParameter>& subject) {
  std::shared_ptr<ParameterDescriptor> descriptor;
  ITroubleCodeServiceObserver::SensorValues models;
  if (success && ecu()) {
    descriptor = std::make_shared<ParameterDescriptor>(subject, ecu(), unitSystem());
    for (const auto& value : subject->values(*ecu(), unitSystem())) {
      const auto* const numeric = dynamic_cast<const NumericSensorValue*>(value.get());
      models.push_back(std::make_shared<SensorValueDataModel>(
          value->uid(),
          numeric != nullptr ? numeric->toString(numeric->numericValue()) : value->textualValue()));
    }
  }
  fireEvent(&ITroubleCodeServiceObserver::onFreezeFrameSensorUpdated, static_cast<int>(id), success,
            descriptor, models, static_cast<int>(subject->frame()));
}

// --- Reading while the caller waits ---

template <typename T>
ITroubleCodeService::Codes TroubleCodeService::readCodes() {
  if (isConnected() && ecu()) {
    const auto subject = std::make_shared<T>();
    if (fetch(subject)) {
      return subject->getTroubleCodes(*ecu());
    }
  }
  return {};
}

ITroubleCodeService::Codes TroubleCodeService::readConfirmedCodes() {
  return readCodes<ConfirmedTroubleCodes>();
}
ITroubleCodeService::Codes TroubleCodeService::readPendingCodes() {
  return readCodes<PendingTroubleCodes>();
}
ITroubleCodeService::Codes TroubleCodeService::readPermanentCodes() {
  return readCodes<PermanentTroubleCodes>();
}

std::shared_ptr<ITroubleCodeService::MilStatus> TroubleCodeService::readMilStatus() {
  if (isConnected() && ecu()) {
    const auto subject = std::make_shared<MonitorStatus>();
    if (fetch(subject)) {
      const bool on = subject->isMalfunctionIndicatorLightOn(*ecu());
      debugStream << (on ? "MIL on" : "MIL off");
      return std::make_shared<MilStatus>(on ? MilStatus::MilOn : MilStatus::MilOff);
    }
  }
  return nullptr;
}

std::shared_ptr<SensorDataModel> TroubleCodeService::readDistance(bool sinceFault) {
  if (sinceFault) {
    return readSensor(std::make_shared<MilDistance>(ObdMode::Mode01, 0));
  }
  return readSensor(std::make_shared<DistanceTraveled>(ObdMode::Mode01, 0));
}

std::shared_ptr<SensorDataModel> TroubleCodeService::readRuntime(bool sinceFault) {
  if (sinceFault) {
    return readSensor(std::make_shared<EngineRuntimeMil>(ObdMode::Mode01, 0));
  }
  return readSensor(std::make_shared<EngineRuntimeDtc>(ObdMode::Mode01, 0));
}

std::shared_ptr<SensorDataModel> TroubleCodeService::readSensor(
    const std::shared_ptr<PowertrainParameter>& parameter) {
  if (!isConnected() || !ecu() ||
      !ecu()->isSupported(ObdMode::Mode01, ParameterIdentifier(parameter->pid()).toOid(), 0) ||
      !fetch(parameter)) {
    return nullptr;
  }
  const FirstSensor first = firstSensor(parameter, ecu(), unitSystem());
  if (!first.descriptor || !first.value) {
    return nullptr;
  }
  const auto value = std::make_shared<SensorValueDataModel>(first.value->uid(), first.value->textualValue());
  return std::make_shared<SensorDataModel>(isExtendedSensor(first.descriptor->uid()), first.descriptor->uid(),
                                           first.descriptor->description(), first.descriptor->unit(), value,
                                           nullptr);
}

std::shared_ptr<DtcDataModel> TroubleCodeService::readFreezeFrameCode() {
  if (isConnected() && ecu()) {
    const auto subject = std::make_shared<FreezeFrameTroubleCode>(static_cast<unsigned char>(0));
    if (fetch(subject)) {
      return subject->getTroubleCode(*ecu());
    }
  }
  return nullptr;
}

std::vector<int> TroubleCodeService::readFreezeFrameIdentifiers() {
  if (!isConnected() || !ecu()) {
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
  if (!isConnected() || !ecu()) {
    return {};
  }
  const auto parameter =
      ParameterFactory().createFreezeFrameParameter(ParameterIdentifier(identifier).id(), 0);
  if (!parameter || !fetch(parameter)) {
    return {};
  }
  return makeSensorModels(parameter, ecu(), unitSystem());
}

bool TroubleCodeService::clearCodesNow() {
  if (isConnected() && ecu()) {
    const auto subject = std::make_shared<ClearTroubleCodes>();
    if (fetch(subject)) {
      codesCleared();
      return subject->isCleared(*ecu());
    }
  }
  return false;
}

// --- Hooks ---

void TroubleCodeService::cancelAll() {
  cancel({m_confirmedRefresher, m_pendingRefresher, m_permanentRefresher, m_clearRefresher, m_milRefresher});
  m_walk.cancel();
  cancel({m_distanceSinceResetRefresher, m_runtimeSinceResetRefresher, m_distanceSinceFaultRefresher,
          m_runtimeSinceFaultRefresher});
  silenceBatch();
}

void TroubleCodeService::onDisconnected() {
  cancelAll();
  m_walk.forgetFrames();
  dropRetired();
}

void TroubleCodeService::onEcuChanged() {
  cancelAll();
  m_walk.forgetFrames();
  fireEvent(&ITroubleCodeServiceObserver::onInvalidated);
}

void TroubleCodeService::onUnitSystemChanged() {
  if (isConnected()) {
    m_walk.forgetSensors();
    fireEvent(&ITroubleCodeServiceObserver::onInvalidated);
  }
}

std::shared_ptr<ITroubleCodeService> TroubleCodeServiceBuilder::createTroubleCodeService() {
  return makeService<TroubleCodeService>();
}

}  // namespace obd
