#include "sectionreader.h"

#include <algorithm>

#include <fmt/format.h>

namespace velmara {

namespace {

using std::chrono::milliseconds;

double seconds(milliseconds time) {
  return std::chrono::duration<double>(time).count();
}

}  // namespace

Answers::Answers(Session& session, const ReadOptions& options, const char* section)
    : m_session(session), m_options(options), m_section(section), m_start(Clock::now()), m_latest(m_start) {}

void Answers::heard(bool success) {
  m_latest = Clock::now();
  ++m_heard;
  m_succeeded += success ? 1U : 0U;
  tellProgress();
}

milliseconds Answers::silence() const {
  return std::chrono::duration_cast<milliseconds>(Clock::now() - m_latest);
}

void Answers::wait(const std::function<bool()>& done) {
  m_start = m_latest = Clock::now();
  tellProgress();
  m_session.pumpUntil([&] { return m_finished || (done && done()) || tooLong(); });
  m_session.expectNoLoss();
}

bool Answers::tooLong() {
  if (silence() > m_options.silence) {
    m_givenUp = fmt::format("Given up after {:g} s without any answer.", seconds(m_options.silence));
  } else if (Clock::now() - m_start > m_options.sectionLimit) {
    m_givenUp = fmt::format("Given up after {:g} s.", seconds(m_options.sectionLimit));
  }
  return !m_givenUp.empty();
}

void Answers::conclude(Section& section) const {
  using State = Section::State;
  section.reason = m_givenUp;
  if (m_succeeded == 0) {
    section.state = State::NoAnswer;
    if (section.reason.empty()) {
      section.reason = "The control unit does not answer.";
    }
  } else if (m_succeeded < std::max(m_heard, m_expected)) {
    section.state = State::Partial;
    if (section.reason.empty()) {
      section.reason =
          fmt::format("{} of {} answers did not come.", std::max(m_heard, m_expected) - m_succeeded,
                      std::max(m_heard, m_expected));
    }
  } else {
    section.state = m_givenUp.empty() ? State::Complete : State::Partial;
  }
}

void Answers::tellProgress() const {
  if (m_options.progress) {
    m_options.progress(m_section, m_heard, m_expected);
  }
}

void setNotOffered(Section& section, const std::string& what) {
  section.state = Section::State::NotOffered;
  section.reason = "The control unit offers no " + what + ".";
}

}  // namespace velmara
