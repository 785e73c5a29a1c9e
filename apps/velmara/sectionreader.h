#pragma once

// What the readers of the report's sections have in common.

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

#include "session.h"
#include "vehiclereport.h"

namespace velmara {

/// Waits for the answers of one section, and says at the end how complete it is.
class Answers {
 public:
  /// `section` is what people call it.
  Answers(Session& session, const ReadOptions& options, const char* section);

  /// So many answers are to come.
  void expect(std::size_t answers) { m_expected = answers; }
  /// The answer to a question has come, or the word that there is none.
  void heard(bool success);
  /// Something has come that does not count.
  void alive() { m_latest = Clock::now(); }
  /// No more will come.
  void finish() { m_finished = true; }
  bool finished() const { return m_finished; }
  /// How long nothing has come.
  std::chrono::milliseconds silence() const;

  /// Runs the event loop until `finish`, or until `done` says so. Gives up as the options say, which the
  /// section's reason will tell.
  void wait(const std::function<bool()>& done = nullptr);
  /// Sets state and reason.
  void conclude(Section& section) const;

 private:
  using Clock = std::chrono::steady_clock;

  bool tooLong();
  void tellProgress() const;

  Session& m_session;
  const ReadOptions& m_options;
  const char* m_section;
  std::size_t m_expected = 0;
  std::size_t m_heard = 0;
  std::size_t m_succeeded = 0;
  bool m_finished = false;
  std::string m_givenUp;
  Clock::time_point m_start;
  Clock::time_point m_latest;
};

/// Marks a section that the control unit does not have: "The control unit offers no " and these words.
void setNotOffered(Section& section, const std::string& what);

/// Selects a control unit and listens to a service of its own. For the main thread; goes before the session.
template <typename Service, typename Observer>
class SectionReader : protected Observer {
 public:
  using CreateService = std::shared_ptr<Service> (*)();

  SectionReader(Session& session, const EcuPtr& ecu, const ReadOptions& options, const char* section,
                CreateService create)
      : m_ecu(ecu), m_answers(session, options, section) {
    session.facade().ecuManager()->selectEcu(ecu->id());
    m_service = create();
    m_service->attach(this);
  }
  ~SectionReader() override { m_service->detach(this); }
  SectionReader(const SectionReader&) = delete;
  SectionReader& operator=(const SectionReader&) = delete;

 protected:
  const obd::IEcu& ecu() const { return *m_ecu; }
  Service& service() { return *m_service; }
  Answers& answers() { return m_answers; }
  const Answers& answers() const { return m_answers; }

 private:
  EcuPtr m_ecu;
  Answers m_answers;
  std::shared_ptr<Service> m_service;
};

}  // namespace velmara
