// Vehicle information and in-use counters.

#include <utility>

#include "core/identifiers.h"
#include "parameters/identificationnumber.h"
#include "rawrequest.h"
#include "sectionreader.h"
#include "services/iecuservice.h"
#include "velmara/client/texts.h"
#include "vinframes.h"

namespace velmara {

namespace {

// In the library's cycle of 30 years, which begins in 1996; 0 if the number tells none.
int modelYearOf(const std::string& vin) {
  using Vin = obd::VehicleIdentificationNumber;
  constexpr std::size_t VinLength = 17;
  constexpr std::size_t YearPosition = 9;
  constexpr int FirstYear = 1996;
  if (vin.size() != VinLength) {
    return 0;
  }
  const int earlier = Vin::getEarlierVin(vin[YearPosition]);
  return earlier >= FirstYear ? earlier : Vin::getLaterVin(vin[YearPosition]);
}

class InfoReader : private SectionReader<obd::IEcuService, obd::IEcuServiceObserver> {
 public:
  InfoReader(Session& session, const ControlUnit& unit, const ReadOptions& options, const char* section)
      : SectionReader(session, unit, options, section, obd::EcuServiceBuilder::createEcuService) {}

  InfoSection readInfo() {
    InfoSection info = read(obd::IEcuService::VehicleInformation, "vehicle information", m_info);
    for (Outcome* const outcome :
         {&info.vinOutcome, &info.calibrationsOutcome, &info.verificationNumbersOutcome,
          &info.serialNumberOutcome, &info.approvalNumberOutcome}) {
      if (outcome->state == Outcome::State::NotRead && !obd::hasList(ecu(), obd::ObdMode::Mode09)) {
        *outcome = outcomeOf(info);
      } else if (outcome->state == Outcome::State::NotRead && !answers().gaveUp()) {
        *outcome = {Outcome::State::NotOffered, {}};
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
      if (m_vinUnread && !answers().gaveUp()) {
        readRawVin();
      }
      answers().conclude(gathered);
    }
    return std::move(gathered);
  }

  template <typename Value>
  void take(const Value& value, std::optional<Value>& place, Outcome& outcome) {
    outcome = outcomeOf(service().lastReply(), !value.empty());
    if (outcome.state == Outcome::State::Read) {
      place = printable(value);
    }
    answers().heard(outcome);
  }

  void onVehicleIdentificationNumberUpdated(bool /*success*/, const std::string& vin,
                                            int modelYear) override {
    if (vin.empty() && !isCan(ecu().protocol())) {
      m_vinUnread = true;  // which does not count yet
      m_info.vinOutcome = outcomeOf(service().lastReply(), false);
      answers().alive();
      return;
    }
    take(vin, m_info.vin, m_info.vinOutcome);
    describeVin(modelYear);
  }

  // The library's record takes frames without check bytes only.
  void readRawVin() {
    const auto request = std::make_shared<RawRequest>(obd::VehicleIdentificationNumber());
    answers().ask({request}, [this, &request](std::size_t /*index*/, bool /*success*/) {
      m_info.vin = VinFrames::vinOf(request->replyOf(ecu().id()));
      if (m_info.vin) {
        m_info.vinOutcome = {Outcome::State::Read, {}};
        describeVin(modelYearOf(*m_info.vin));
      }
      answers().heard(m_info.vinOutcome);
    });
  }

  void describeVin(int modelYear) {
    if (m_info.vin) {
      m_info.vinCheckDigitFits = VinFrames::checkDigitFits(*m_info.vin);
      m_info.modelYear = modelYear > 0 ? std::optional(modelYear) : std::nullopt;
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

  bool m_vinUnread = false;  // by the library
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
