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

  InfoSection readInfo() { return read(obd::IEcuService::VehicleInformation, "vehicle information", m_info); }
  CountersSection readCounters() {
    return read(obd::IEcuService::PerformanceCounters, "in-use counters", m_counters);
  }

 private:
  template <typename SectionType>
  SectionType read(int kind, const char* what, SectionType& gathered) {
    if (!service().refresh(kind)) {
      setNotOffered(session(), gathered, what);
    } else {
      answers().wait();
      answers().conclude(gathered);
    }
    return std::move(gathered);
  }

  // An empty value: another unit has answered.
  template <typename Value>
  void take(bool success, const Value& value, std::optional<Value>& place) {
    const bool answered = success && !value.empty();
    if (answered) {
      place = value;
    }
    answers().heard(answered);
  }

  void onVehicleIdentificationNumberUpdated(bool success, const std::string& vin, int modelYear) override {
    take(success, vin, m_info.vin);
    if (m_info.vin && modelYear > 0) {
      m_info.modelYear = modelYear;
    }
  }
  void onCalibrationIdentificationsUpdated(bool success, const Texts& ids) override {
    take(success, ids, m_info.calibrations);
  }
  void onCalibrationVerificationNumbersUpdated(bool success, const Texts& numbers) override {
    take(success, numbers, m_info.verificationNumbers);
  }
  void onEngineSerialNumberUpdate(bool success, const std::string& number) override {
    take(success, number, m_info.serialNumber);
  }
  void onExhaustRequlationOrTypeApprovalNumberUpdated(bool success, const std::string& number) override {
    take(success, number, m_info.approvalNumber);
  }
  void onPerformanceCountersUpdated(bool success, const Counters& counters) override {
    for (const std::shared_ptr<obd::CounterDescriptor>& counter : counters) {
      m_counters.counters.push_back({counter->description(), counter->value()});
    }
    answers().heard(success && !counters.empty());
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
