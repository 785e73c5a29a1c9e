#include "faultreader.h"

#include <algorithm>

#include <fmt/format.h>

#include "failure.h"
#include "texts.h"

namespace velmara {

namespace {

constexpr std::chrono::seconds PatienceTime{20};  // without any answer, until the vehicle counts as gone
constexpr unsigned char MonitorStatusPid = 0x01;

std::optional<StoredFaults::Amount> toAmount(bool success,
                                             const std::shared_ptr<obd::SensorDescriptor>& sensor,
                                             const std::shared_ptr<obd::SensorValue>& value) {
  if (!success || !sensor || !value) {
    return std::nullopt;
  }
  return StoredFaults::Amount{value->textualValue(), std::string(unitText(sensor->unit()))};
}

std::optional<CodeRecords> toRecords(bool success, const CodeRecords& codes) {
  return success ? std::optional(codes) : std::nullopt;
}

}  // namespace

FaultReader::FaultReader(Session& session, const std::shared_ptr<obd::IEcu>& ecu)
    : m_session(session), m_ecu(ecu) {
  session.facade().ecuManager()->selectEcu(ecu->id());
  m_service = obd::TroubleCodeServiceBuilder::createTroubleCodeService();
  m_service->attach(this);
}

FaultReader::~FaultReader() {
  m_service->detach(this);
}

StoredFaults FaultReader::readFaults() {
  m_faults = {};
  m_done = false;
  m_service->refreshMilStatus();
  m_service->refreshConfirmedCodes();
  m_service->refreshPendingCodes();
  m_service->refreshPermanentCodes();
  wait();
  return m_faults;
}

StoredFrames FaultReader::readFrames() {
  m_frames = {};
  m_done = false;
  m_service->refreshFreezeFrames();
  wait();
  return m_frames;
}

bool FaultReader::clear() {
  m_cleared = false;
  m_done = false;
  m_service->clearCodes();
  wait();
  return m_cleared;
}

void FaultReader::wait() {
  m_latest = Clock::now();
  m_session.pumpUntil([this] {
    if (!m_done && Clock::now() - m_latest > PatienceTime) {
      throw Failure(
          ExitCode::NoData,
          fmt::format("The vehicle does not answer any more: nothing came for {} s.", PatienceTime.count()),
          "Is the ignition still on, and the adapter in its socket?");
    }
    return m_done;
  });
}

// The answers of other units make a query succeed, too.
void FaultReader::onMilStatusUpdated(bool success, MilStatus status) {
  m_latest = Clock::now();
  if (success && m_ecu->isSupported(obd::ObdMode::Mode01, MonitorStatusPid, 0)) {
    m_faults.lamp = status == MilOn;
  }
}

void FaultReader::onConfirmedCodesUpdated(bool success, const Codes& codes) {
  m_latest = Clock::now();
  m_faults.confirmed = toRecords(success, codes);
}

void FaultReader::onPendingCodesUpdated(bool success, const Codes& codes) {
  m_latest = Clock::now();
  m_faults.pending = toRecords(success, codes);
}

void FaultReader::onPermanentCodesUpdated(bool success, const Codes& codes) {
  m_latest = Clock::now();
  m_faults.permanent = toRecords(success, codes);
}

void FaultReader::onMilResetUpdated(bool success, bool cleared) {
  m_cleared = success && cleared;
}

void FaultReader::onFreezeFrameCodeUpdated(int /*id*/, bool success,
                                           const std::shared_ptr<obd::DtcDataModel>& code, int frame) {
  m_latest = Clock::now();
  m_frames.answered = m_frames.answered || success;
  if (!code || code->code().empty()) {
    return;
  }
  if (!m_frames.frames.try_emplace(frame, StoredFrame{code->code(), {}, 0}).second) {
    m_done = true;  // all 256 frames are there, and now they come again
  }
}

void FaultReader::onFreezeFrameSensorUpdated(int /*id*/, bool success,
                                             const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                                             const SensorValues& values, int frame) {
  m_latest = Clock::now();
  StoredFrame& stored = m_frames.frames[frame];
  if (!success || !parameter || values.empty()) {
    ++stored.failures;
    return;
  }
  const auto sensors = parameter->sensors();
  const std::string description = parameter->description();
  for (const std::shared_ptr<obd::SensorValueDataModel>& value : values) {
    const auto found = std::find_if(sensors.begin(), sensors.end(), [&value](const SensorPtr& sensor) {
      return sensor->uid() == value->uid;
    });
    if (found == sensors.end()) {
      continue;
    }
    obd::SensorDescriptor& sensor = **found;
    stored.sensors.push_back({parameterLabel(static_cast<int>(parameter->pid())),
                              sensors.size() == 1 ? description : description + ": " + sensor.description(),
                              value->value, std::string(unitText(sensor.unit())), sensor.isNumeric()});
  }
}

void FaultReader::onDistanceSinceResetUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) {
  m_faults.distance = toAmount(success, sensor, value);
}

void FaultReader::onRuntimeSinceResetUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) {
  m_faults.runTime = toAmount(success, sensor, value);
}

void FaultReader::onDistanceSinceFaultUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) {
  m_faults.distance = toAmount(success, sensor, value);
}

void FaultReader::onRuntimeSinceFaultUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) {
  m_faults.runTime = toAmount(success, sensor, value);
}

std::vector<std::shared_ptr<obd::IEcu>> chosenUnits(Session& session, const std::string& name) {
  if (name.empty()) {
    return session.facade().ecuManager()->ecus();
  }
  session.selectEcu(name);
  return {session.facade().ecuManager()->currentEcu()};
}

std::string unitTitle(const obd::IEcu& ecu) {
  return fmt::format("Control unit {}: {}", ecuLabel(ecu.id()), printable(ecu.name()));
}

std::string unitLabel(const obd::IEcu& ecu) {
  return fmt::format("{} ({})", ecuLabel(ecu.id()), printable(ecu.name()));
}

Json unitJson(const obd::IEcu& ecu) {
  return {{"id", ecuLabel(ecu.id())}, {"name", printable(ecu.name())}};
}

}  // namespace velmara
