#include "faultreader.h"

#include <algorithm>

#include "coderecords.h"
#include "core/identifiers.h"
#include "powertrain/monitorstatus.h"
#include "readings.h"
#include "vehicletexts.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

constexpr unsigned char MonitorStatusPid = 0x01;

}  // namespace

// The services tell the lamp only.
std::optional<int> readCodeCount(const obd::IEcu& ecu, Answers& answers) {
  std::optional<int> count;
  if (ecu.isSupported(obd::ObdMode::Mode01, MonitorStatusPid, 0)) {
    const auto status = std::make_shared<obd::MonitorStatus>();
    answers.ask({status}, [&](std::size_t, bool) {
      if (status->reply(ecu).kind == obd::UnitReply::Accepted) {
        count = status->getNumberOfErrors(ecu);
      }
    });
  }
  return count;
}

FaultReader::FaultReader(Session& session, const ControlUnit& unit, const ReadOptions& options,
                         const char* section)
    : SectionReader(session, unit, options, section,
                    obd::TroubleCodeServiceBuilder::createTroubleCodeService),
      m_make(options.make) {}

FaultsSection FaultReader::readFaults() {
  m_faults.count = readCodeCount(ecu(), answers());
  service().refreshMilStatus();
  service().refreshConfirmedCodes();
  service().refreshPendingCodes();
  service().refreshPermanentCodes();
  answers().wait();
  answers().conclude(m_faults);
  return std::move(m_faults);
}

FreezeSection FaultReader::readFreeze() {
  service().refreshFreezeFrames();
  answers().wait();
  FreezeSection section;
  for (auto& [number, frame] : m_frames) {
    section.frames.push_back(std::move(frame));
  }
  answers().conclude(section);
  return section;
}

void FaultReader::takeCodes(const Codes& codes, const Outcome& outcome, FaultsSection::Codes& place) const {
  if (outcome.state == Outcome::State::Read) {
    place = explainCodes(rowsOf(codes), m_make);
  }
}

CodeEntry FaultReader::explained(const std::string& code) const {
  return explainCodes(rowsOfCode(code), m_make).front();
}

// The success is that of all units; what came of this one is told by `lastReply`.
void FaultReader::onMilStatusUpdated(bool /*success*/, MilStatus status) {
  m_faults.lampOutcome = outcomeOf(service().lastReply());
  if (m_faults.lampOutcome.state == Outcome::State::Read) {
    m_faults.lamp = status == MilOn;
    answers().heard(true);
    return;
  }
  if (obd::hasList(ecu(), obd::ObdMode::Mode01) &&
      !ecu().isSupported(obd::ObdMode::Mode01, MonitorStatusPid, 0)) {
    m_faults.lampOutcome = {Outcome::State::NotOffered, {}};
  }
  answers().alive();
}

void FaultReader::onConfirmedCodesUpdated(bool /*success*/, const Codes& codes) {
  m_faults.confirmedOutcome = outcomeOf(service().lastReply());
  takeCodes(codes, m_faults.confirmedOutcome, m_faults.confirmed);
  answers().heard(m_faults.confirmedOutcome);
}

void FaultReader::onPendingCodesUpdated(bool /*success*/, const Codes& codes) {
  m_faults.pendingOutcome = outcomeOf(service().lastReply());
  takeCodes(codes, m_faults.pendingOutcome, m_faults.pending);
  answers().heard(m_faults.pendingOutcome);
}

// Before CAN there are none, and no answer is no wonder; nor has every unit on CAN the service.
void FaultReader::onPermanentCodesUpdated(bool /*success*/, const Codes& codes) {
  const obd::UnitReply reply = service().lastReply();
  m_faults.permanentOutcome = outcomeOf(reply);
  takeCodes(codes, m_faults.permanentOutcome, m_faults.permanent);
  const bool isUnknown = reply.kind == obd::UnitReply::Refused && reply.nack == obd::NackServiceNotSupported;
  if (!m_faults.permanent && (isUnknown || !isCan(ecu().protocol()))) {
    m_faults.permanentOutcome = {Outcome::State::NotOffered, {}};
    answers().alive();
  } else {
    answers().heard(m_faults.permanentOutcome);
  }
}

// The frame behind the last one may be told by silence.
void FaultReader::onFreezeFrameCodeUpdated(int /*id*/, bool /*success*/,
                                           const std::shared_ptr<obd::DtcDataModel>& code, int frame) {
  const Outcome outcome = outcomeOf(service().lastReply());
  if (outcome.state == Outcome::State::Read || m_frames.empty()) {
    answers().heard(outcome);
  }
  if (!code || code->code().empty()) {
    return;
  }
  if (!m_frames.try_emplace(frame, FreezeSection::Frame{frame, explained(code->code()), {}, 0}).second) {
    answers().finish();  // all 256 frames are there, and now they come again
  }
}

void FaultReader::onFreezeFrameSensorUpdated(int /*id*/, bool /*success*/,
                                             const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                                             const SensorValues& values, int frame) {
  const Outcome outcome = outcomeOf(service().lastReply(), parameter && !values.empty());
  const bool read = outcome.state == Outcome::State::Read;
  answers().heard(outcome);
  FreezeSection::Frame& stored = m_frames[frame];
  if (!read) {
    ++stored.failures;
    return;
  }
  appendReadings(*parameter, values, stored.readings);
}

void FaultReader::takeAmount(const SensorPtr& sensor, const ValuePtr& value,
                             std::optional<FaultsSection::Amount>& place) {
  if (sensor && value && outcomeOf(service().lastReply()).state == Outcome::State::Read) {
    place = FaultsSection::Amount{finiteText(value->textualValue()), std::string(unitText(sensor->unit()))};
  }
}

void FaultReader::onDistanceSinceResetUpdated(bool /*success*/, const SensorPtr& sensor,
                                              const ValuePtr& value) {
  takeAmount(sensor, value, m_faults.distance);
}

void FaultReader::onRuntimeSinceResetUpdated(bool /*success*/, const SensorPtr& sensor,
                                             const ValuePtr& value) {
  takeAmount(sensor, value, m_faults.runTime);
}

void FaultReader::onDistanceSinceFaultUpdated(bool /*success*/, const SensorPtr& sensor,
                                              const ValuePtr& value) {
  takeAmount(sensor, value, m_faults.distance);
}

void FaultReader::onRuntimeSinceFaultUpdated(bool /*success*/, const SensorPtr& sensor,
                                             const ValuePtr& value) {
  takeAmount(sensor, value, m_faults.runTime);
}

FaultsSection readFaults(Session& session, const ControlUnit& unit, const ReadOptions& options) {
  return FaultReader(session, unit, options, "trouble codes").readFaults();
}

FreezeSection readFreeze(Session& session, const ControlUnit& unit, const ReadOptions& options) {
  return FaultReader(session, unit, options, "freeze frames").readFreeze();
}

}  // namespace velmara
