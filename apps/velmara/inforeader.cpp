// Vehicle information, in-use counters, counts for an overview, and the routines on offer.

#include "sectionreader.h"
#include "services/iecuservice.h"
#include "services/iservice08.h"
#include "services/isummaryservice.h"

namespace velmara {

namespace {

class InfoReader : private SectionReader<obd::IEcuService, obd::IEcuServiceObserver> {
 public:
  InfoReader(Session& session, const EcuPtr& ecu, const ReadOptions& options, const char* section)
      : SectionReader(session, ecu, options, section, obd::EcuServiceBuilder::createEcuService) {}

  void readInfo(InfoSection& section) {
    if (read(section, obd::IEcuService::VehicleInformation, "vehicle information", m_info)) {
      answers().conclude(section);
    }
  }
  void readCounters(CountersSection& section) {
    if (read(section, obd::IEcuService::PerformanceCounters, "in-use counters", m_counters)) {
      answers().conclude(section);
    }
  }

 private:
  template <typename SectionType>
  bool read(SectionType& section, int kind, const char* what, SectionType& gathered) {
    if (!service().refresh(kind)) {
      setNotOffered(section, what);
      return false;
    }
    answers().wait();
    section = std::move(gathered);
    return true;
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

class SummaryReader : private SectionReader<obd::ISummaryService, obd::ISummaryServiceObserver> {
 public:
  SummaryReader(Session& session, const EcuPtr& ecu, const ReadOptions& options)
      : SectionReader(session, ecu, options, "summary", obd::SummaryServiceBuilder::createSummaryService) {}

  void read(SummarySection& section) {
    answers().expect(Questions);
    service().refresh();
    answers().wait();
    section = m_section;
    answers().conclude(section);
  }

 private:
  static constexpr std::size_t Questions = 4;

  // The first time it is about confirmed codes, the second time about pending ones.
  void onCodeCountsUpdated(bool success, unsigned int confirmed, unsigned int pending) override {
    if (success) {
      (m_codesTold ? m_section.pending : m_section.confirmed) = m_codesTold ? pending : confirmed;
    }
    m_codesTold = true;
    answers().heard(success);
  }
  void onMonitorCountsUpdated(bool success, unsigned int complete, unsigned int incomplete) override {
    if (success) {
      m_section.complete = complete;
      m_section.incomplete = incomplete;
    }
    answers().heard(success);
  }
  void onFreezeFrameUpdated(bool success, bool present) override {
    if (success) {
      m_section.frame = present;
    }
    answers().heard(success);
  }
  void refreshDone() override { answers().finish(); }

  SummarySection m_section;
  bool m_codesTold = false;
};

}  // namespace

void readInfo(Session& session, const EcuPtr& ecu, const ReadOptions& options, InfoSection& section) {
  InfoReader(session, ecu, options, "vehicle information").readInfo(section);
}

void readCounters(Session& session, const EcuPtr& ecu, const ReadOptions& options, CountersSection& section) {
  InfoReader(session, ecu, options, "in-use counters").readCounters(section);
}

void readSummary(Session& session, const EcuPtr& ecu, const ReadOptions& options, SummarySection& section) {
  SummaryReader(session, ecu, options).read(section);
}

// What is on offer was found when the connection opened: there is nothing to wait for.
void readRoutines(Session& session, const EcuPtr& ecu, const ReadOptions& /*options*/,
                  RoutinesSection& section) {
  session.facade().ecuManager()->selectEcu(ecu->id());
  for (const auto& model : obd::Service08Builder::createService08()->availableTests()) {
    section.routines.push_back({model->tid(), model->description(), model->instructions()});
  }
  if (section.routines.empty()) {
    setNotOffered(section, "test routines");
  } else {
    section.state = Section::State::Complete;
  }
}

}  // namespace velmara
