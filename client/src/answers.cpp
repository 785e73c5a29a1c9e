#include "answers.h"

#include <algorithm>

#include <fmt/format.h>

namespace velmara {

namespace {

using std::chrono::milliseconds;

constexpr std::size_t QuestionsAtOnce = 32;  // half of what the queue holds
// An answer may lead to a question without a word of it, so one quiet round is not enough.
constexpr unsigned EnoughQuietRounds = 2;

double seconds(milliseconds time) {
  return std::chrono::duration<double>(time).count();
}

}  // namespace

Answers::Answers(Session& session, const ReadOptions& options, const char* section)
    : m_session(session), m_options(options), m_section(section) {}

void Answers::heard(bool success) {
  alive();
  ++m_heard;
  m_succeeded += success ? 1U : 0U;
  tellProgress();
}

void Answers::alive() {
  m_latest.restart();
  ++m_signs;
}

void Answers::clearRoad() {
  bool sent = false;
  waitUntil([&] {
    sent = sent || Marker::send(m_marker);
    return sent && !m_marker->isAway();
  });
}

void Answers::wait() {
  m_quietRounds = 0;
  waitUntil([this] { return m_finished || roadIsQuiet(); });
}

void Answers::ask(const std::vector<std::shared_ptr<obd::IQuery>>& queries,
                  const std::function<void(std::size_t index, bool success)>& onAnswer) {
  std::vector<std::shared_ptr<Question>> questions;
  for (const std::shared_ptr<obd::IQuery>& query : queries) {
    questions.push_back(std::make_shared<Question>(query));
  }
  std::size_t asked = 0;
  std::size_t answered = 0;
  waitUntil([&] {
    while (answered < asked && questions[answered]->isAnswered()) {
      onAnswer(answered, questions[answered]->hasSucceeded());
      ++answered;
    }
    while (asked < questions.size() && asked - answered < QuestionsAtOnce &&
           obd::Dispatcher::getInstance().update(questions[asked])) {
      ++asked;
    }
    return answered == questions.size();
  });
}

void Answers::waitUntil(const std::function<bool()>& done) {
  m_begin.restart();
  m_latest.restart();
  tellProgress();
  m_session.pumpUntil([&] { return done() || tooLong(); });
  m_session.expectNoLoss();
}

bool Answers::roadIsQuiet() {
  if (m_marker->isAway()) {
    return false;
  }
  if (m_markerSent) {
    m_quietRounds = m_signs == m_signsBefore ? m_quietRounds + 1 : 0;
  }
  m_signsBefore = m_signs;
  m_markerSent = m_quietRounds < EnoughQuietRounds && Marker::send(m_marker);
  return m_quietRounds >= EnoughQuietRounds;
}

bool Answers::tooLong() {
  if (m_latest.elapsed() > m_options.silence) {
    m_givenUp = fmt::format("Given up after {:g} s without any answer.", seconds(m_options.silence));
  } else if (m_begin.elapsed() > m_options.sectionLimit) {
    m_givenUp = fmt::format("Given up after {:g} s.", seconds(m_options.sectionLimit));
  }
  return gaveUp();
}

void Answers::conclude(Section& section) const {
  using State = Section::State;
  const std::size_t wanted = std::max(m_heard, m_expected);
  section.reason = m_givenUp;
  if (m_succeeded == 0) {
    section.state = State::NoAnswer;
    if (section.reason.empty()) {
      section.reason = "The control unit does not answer.";
    }
  } else if (m_succeeded < wanted) {
    section.state = State::Partial;
    if (section.reason.empty()) {
      section.reason = fmt::format("{} of {} answers did not come.", wanted - m_succeeded, wanted);
    }
  } else {
    section.state = gaveUp() ? State::Partial : State::Complete;
  }
}

void Answers::tellProgress() const {
  if (m_options.progress) {
    m_options.progress(m_section, m_heard, m_expected);
  }
}

void setNotOffered(const Session& session, Section& section, const std::string& what) {
  session.expectNoLoss();
  section.state = Section::State::NotOffered;
  section.reason = "The control unit offers no " + what + ".";
}

}  // namespace velmara
