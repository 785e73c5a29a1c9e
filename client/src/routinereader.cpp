// Test routines: which there are, and how one fares.

#include "sectionreader.h"
#include "services/iservice08.h"

namespace velmara {

namespace {

using Model = obd::TestRoutineDataModel;

class RoutineRunner : private SectionReader<obd::IService08, obd::IService08Observer> {
 public:
  RoutineRunner(Session& session, const ControlUnit& unit, const ReadOptions& options)
      : SectionReader(session, unit, options, "test routine", obd::Service08Builder::createService08) {}

  RoutineOutcome run(int id) {
    if (service().startTest(id)) {
      answers().wait();
    }
    return m_outcome;
  }

 private:
  static RoutineOutcome::Result resultOf(const Model& test) {
    switch (test.result()) {
      case Model::Accepted:
        return RoutineOutcome::Result::Accepted;
      case Model::Refused:
        return RoutineOutcome::Result::Refused;
      case Model::TooShort:
        return RoutineOutcome::Result::TooShort;
      default:
        return RoutineOutcome::Result::NoAnswer;
    }
  }

  void onTestUpdated(bool /*success*/, const std::shared_ptr<Model>& test) override {
    if (test) {
      m_outcome.result = resultOf(*test);
      // A status byte refuses without a reason.
      const std::string acknowledged = Model(test->tid(), Model::Accepted).nackReason();
      if (test->result() == Model::Refused && test->nackReason() != acknowledged) {
        m_outcome.reason = test->nackReason();
      }
    }
    answers().heard(true);
  }
  void onRefreshDone() override { answers().finish(); }

  RoutineOutcome m_outcome;
};

}  // namespace

// What is on offer was found when the connection opened.
RoutinesSection readRoutines(Session& session, const ControlUnit& unit, const ReadOptions& options) {
  const EcuPtr ecu = selectEcu(session, unit);
  RoutinesSection section;
  for (const auto& model : obd::Service08Builder::createService08()->availableTests()) {
    section.routines.push_back({model->tid(), model->description(), model->instructions()});
  }
  if (section.routines.empty()) {
    Answers answers(session, options, "test routines");
    setNotListed(session, *ecu, obd::ObdMode::Mode08, answers, section, "test routines");
  } else {
    section.state = Section::State::Complete;
  }
  return section;
}

RoutineOutcome runRoutine(Session& session, const ControlUnit& unit, int id, const ReadOptions& options) {
  return RoutineRunner(session, unit, options).run(id);
}

}  // namespace velmara
