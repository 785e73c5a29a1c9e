// Vehicle information and in-use counters.

#include <utility>

#include "sectionreader.h"
#include "services/iecuservice.h"

namespace velmara {

namespace {

class InfoReader : private SectionReader<obd::IEcuService, obd::IEcuServiceObserver> {
 public:
  InfoReader(Session& session, const ControlUnit& unit, const ReadOptions& options, const char* section)
      : SectionReader(session, unit, options, section, obd::EcuServiceBuilder::createEcuService) {}

  InfoSection readInfo() {
    InfoSection info = read(obd::IEcuService::VehicleInformation, "vehicle information", m_info);
    for (Outcome* const outcome :
         {&info.vinOutcome, &info.calibrationsOutcome, &info.verificationNumbersOutcome,
          &info.serialNumberOutcome, &info.approvalNumberOutcome}) {
      if (outcome->state == Outcome::State::NotRead) {  // not in the unit's list, if there is one
        *outcome = info.hasContent() ? Outcome{Outcome::State::NotOffered, {}} : outcomeOf(info);
      }
    }
    return info;
  }
  CountersSection readCounters() {
    return read(obd::IEcuService::PerformanceCounters, "in-use counters", m_counters);
  }

 private:
  template <typename SectionType>
  SectionType read(int kind, const char* what, SectionType& gathered) {
    if (!service().refresh(kind)) {
      setNotListed(session(), ecu(), obd::ObdMode::Mode09, answers(), gathered, what);
    } else {
      answers().wait();
      answers().conclude(gathered);
    }
    return std::move(gathered);
  }

  template <typename Value>
  void take(const Value& value, std::optional<Value>& place, Outcome& outcome) {
    outcome = outcomeOf(service().lastReply(), !value.empty());
    if (outcome.state == Outcome::State::Read) {
      place = value;
    }
    answers().heard(outcome);
  }

  void onVehicleIdentificationNumberUpdated(bool /*success*/, const std::string& vin,
                                            int modelYear) override {
    take(vin, m_info.vin, m_info.vinOutcome);
    if (m_info.vin && modelYear > 0) {
      m_info.modelYear = modelYear;
    }
  }
  void onCalibrationIdentificationsUpdated(bool /*success*/, const Texts& ids) override {
    take(ids, m_info.calibrations, m_info.calibrationsOutcome);
  }
  void onCalibrationVerificationNumbersUpdated(bool /*success*/, const Texts& numbers) override {
    take(numbers, m_info.verificationNumbers, m_info.verificationNumbersOutcome);
  }
  void onEngineSerialNumberUpdate(bool /*success*/, const std::string& number) override {
    take(number, m_info.serialNumber, m_info.serialNumberOutcome);
  }
  void onExhaustRequlationOrTypeApprovalNumberUpdated(bool /*success*/, const std::string& number) override {
    take(number, m_info.approvalNumber, m_info.approvalNumberOutcome);
  }
  void onPerformanceCountersUpdated(bool /*success*/, const Counters& counters) override {
    for (const std::shared_ptr<obd::CounterDescriptor>& counter : counters) {
      m_counters.counters.push_back({counter->description(), counter->value()});
    }
    answers().heard(outcomeOf(service().lastReply(), !counters.empty()));
  }
  void onRefreshDone() override { answers().finish(); }

  InfoSection m_info;
  CountersSection m_counters;
};

}  // namespace

InfoSection readInfo(Session& session, const ControlUnit& unit, const ReadOptions& options) {
  return InfoReader(session, unit, options, "vehicle information").readInfo();
}

CountersSection readCounters(Session& session, const ControlUnit& unit, const ReadOptions& options) {
  return InfoReader(session, unit, options, "in-use counters").readCounters();
}

}  // namespace velmara
