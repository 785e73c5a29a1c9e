// Counts for an overview.

#include "faultreader.h"
#include "sectionreader.h"
#include "services/isummaryservice.h"

namespace velmara {

namespace {

class SummaryReader : private SectionReader<obd::ISummaryService, obd::ISummaryServiceObserver> {
 public:
  SummaryReader(Session& session, const ControlUnit& unit, const ReadOptions& options)
      : SectionReader(session, unit, options, "summary", obd::SummaryServiceBuilder::createSummaryService) {}

  SummarySection read() {
    answers().expect(Questions);
    m_section.count = readCodeCount(ecu(), answers());
    service().refresh();
    answers().wait();
    answers().conclude(m_section);
    return m_section;
  }

 private:
  static constexpr std::size_t Questions = 4;

  // The success that is told is that of all units.
  bool take(Outcome& outcome) {
    outcome = outcomeOf(service().lastReply());
    answers().heard(outcome);
    return outcome.state == Outcome::State::Read;
  }

  // The first time it is about confirmed codes, the second time about pending ones.
  void onCodeCountsUpdated(bool /*success*/, unsigned int confirmed, unsigned int pending) override {
    if (take(m_codesTold ? m_section.pendingOutcome : m_section.confirmedOutcome)) {
      (m_codesTold ? m_section.pending : m_section.confirmed) = m_codesTold ? pending : confirmed;
    }
    m_codesTold = true;
  }
  void onMonitorCountsUpdated(bool /*success*/, unsigned int complete, unsigned int incomplete) override {
    if (take(m_section.monitorsOutcome)) {
      m_section.complete = complete;
      m_section.incomplete = incomplete;
    }
  }
  void onFreezeFrameUpdated(bool /*success*/, bool present) override {
    if (take(m_section.frameOutcome)) {
      m_section.frame = present;
    }
  }
  void refreshDone() override { answers().finish(); }

  SummarySection m_section;
  bool m_codesTold = false;
};

}  // namespace

SummarySection readSummary(Session& session, const ControlUnit& unit, const ReadOptions& options) {
  return SummaryReader(session, unit, options).read();
}

}  // namespace velmara
