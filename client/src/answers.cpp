#include "answers.h"

#include <algorithm>
#include <cctype>

#include <fmt/format.h>

#include "core/identifiers.h"
#include "link/iadapter.h"
#include "parameters/supportedoids.h"
#include "services/iconnectionservice.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

using std::chrono::milliseconds;

constexpr std::size_t QuestionsAtOnce = 32;  // half of what the queue holds
// An answer may lead to a question without a word of it, so one quiet round is not enough.
constexpr unsigned EnoughQuietRounds = 2;

std::string refusalText(int nack) {
  constexpr int WithoutCode = 121;
  std::string text = obd::NackToString(nack);
  if (text == "Unknown") {
    return nack == WithoutCode ? "without a code" : fmt::format("code {:02X}", nack);
  }
  text.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(text.front())));
  return text;
}

std::shared_ptr<obd::ObdParameter> firstListOf(obd::ObdMode mode, obd::ObdProtocol protocol) {
  constexpr unsigned char First = 0;
  if (mode == obd::ObdMode::Mode06) {
    return std::make_shared<obd::Service06Oids>(First);
  }
  if (mode == obd::ObdMode::Mode08) {
    return std::make_shared<obd::Service08Oids>(First, protocol);
  }
  return std::make_shared<obd::Service09Oids>(First);
}

// Asks the adapter itself, which answers this also where no vehicle does (ELM327 data sheet).
class AdapterQuestion : public obd::IQuery {
 public:
  UpdateStatus update(const std::shared_ptr<obd::IObdProxy>& proxy) override {
    constexpr unsigned Timeout = 1000;  // ms
    clear();
    proxy->sendCommand("ATI", m_reply, Timeout);
    return m_reply.empty() ? NoData : Updated;
  }
  void clear() override { m_reply.clear(); }
  const std::string& reply() const { return m_reply; }

 private:
  std::string m_reply;
};

// The adapter's name for itself; empty without an answer.
std::string askAdapter(Session& session) {
  const auto name = std::make_shared<AdapterQuestion>();
  const auto question = std::make_shared<Question>(name);
  bool sent = false;
  session.pumpUntil([&] {
    sent = sent || obd::Dispatcher::getInstance().update(question);
    return sent && question->isAnswered();
  });
  return question->hasSucceeded() ? printable(name->reply()) : std::string();
}

double seconds(milliseconds time) {
  return std::chrono::duration<double>(time).count();
}

}  // namespace

// Asked twice, as one answer may be lost.
void expectAdapter(Session& session) {
  obd::IAdapter* const adapter = session.connection().adapter();
  const std::string name = adapter != nullptr ? printable(adapter->interfaceName()) : std::string();
  const auto tellsName = [&name](const std::string& reply) {
    return !reply.empty() && reply.find(name) != std::string::npos;
  };
  const std::string first = askAdapter(session);
  if (tellsName(first)) {
    return;
  }
  const std::string second = askAdapter(session);
  if (first.empty() && second.empty()) {
    throw Failure(Failure::Kind::LinkLost,
                  fmt::format("The adapter on {} does not answer any more.", session.link().text()),
                  adviceForAdapter(session.link()));
  }
  if (!first.empty() && tellsName(second)) {
    throw Failure(Failure::Kind::LinkLost,
                  fmt::format("The adapter on {} gives each answer one request late.", session.link().text()),
                  "Unplug it for a moment, and connect again.");
  }
}

Answers::Answers(Session& session, const ReadOptions& options, const char* section)
    : m_session(session), m_options(options), m_section(section) {}

void Answers::heard(bool success) {
  alive();
  ++m_heard;
  m_succeeded += success ? 1U : 0U;
  m_endsInVain = !success;
  tellProgress();
}

void Answers::heard(const Outcome& outcome) {
  if (outcome.state == Outcome::State::Refused) {
    ++m_refused;
    m_refusal = outcome.reason;
  }
  m_unusable += outcome.state == Outcome::State::Unusable ? 1U : 0U;
  heard(outcome.state == Outcome::State::Read);
  m_endsInVain = outcome.state == Outcome::State::NoAnswer || outcome.state == Outcome::State::Unusable;
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
  if (m_endsInVain || gaveUp()) {
    expectAdapter(m_session);
  }
  const std::size_t wanted = std::max(m_heard, m_expected);
  section.reason = m_givenUp;
  if (m_succeeded == 0) {
    section.state = m_refused != 0 ? State::Refused : m_unusable != 0 ? State::Unusable : State::NoAnswer;
    if (section.reason.empty()) {
      section.reason = m_refused != 0    ? fmt::format("The control unit refused: {}.", m_refusal)
                       : m_unusable != 0 ? "The answer of the control unit cannot be used."
                                         : "The control unit does not answer.";
    }
  } else if (m_succeeded < wanted) {
    section.state = State::Partial;
    if (section.reason.empty()) {
      section.reason = reasonOf(wanted - m_succeeded, wanted);
    }
  } else {
    section.state = gaveUp() ? State::Partial : State::Complete;
  }
}

std::string Answers::reasonOf(std::size_t missing, std::size_t wanted) const {
  if (m_refused == missing) {
    return fmt::format("{} of {} questions were refused: {}.", missing, wanted, m_refusal);
  }
  const std::string refused = m_refused == 0 ? "" : fmt::format(" ({} refused: {})", m_refused, m_refusal);
  return m_unusable == 0
             ? fmt::format("{} of {} answers did not come{}.", missing, wanted, refused)
             : fmt::format("{} of {} answers did not come or cannot be used{}.", missing, wanted, refused);
}

void Answers::tellProgress() const {
  if (m_options.progress) {
    m_options.progress(m_section, m_heard, m_expected);
  }
}

// A response that was announced (pending) and did not come is none.
Outcome outcomeOf(const obd::UnitReply& reply, bool hasContent) {
  using State = Outcome::State;
  switch (reply.kind) {
    case obd::UnitReply::Accepted:
      return {hasContent ? State::Read : State::Unusable, {}};
    case obd::UnitReply::Refused:
      return reply.nack == obd::NackResponsePending ? Outcome{State::NoAnswer, {}}
                                                    : Outcome{State::Refused, refusalText(reply.nack)};
    case obd::UnitReply::Unusable:
      return {State::Unusable, {}};
    case obd::UnitReply::Nothing:
      break;
  }
  return {State::NoAnswer, {}};
}

void setNotListed(Session& session, const obd::IEcu& ecu, obd::ObdMode mode, Answers& answers,
                  Section& section, const std::string& what) {
  if (obd::hasList(ecu, mode)) {
    setNotOffered(session, section, what);
    return;
  }
  const std::shared_ptr<obd::ObdParameter> list = firstListOf(mode, ecu.protocol());
  Outcome outcome;
  answers.ask({list}, [&](std::size_t, bool) { outcome = outcomeOf(list->reply(ecu)); });
  if (outcome.state == Outcome::State::Read) {
    setNotOffered(session, section, what);
    return;
  }
  answers.heard(outcome);
  answers.conclude(section);
  // A unit without the service does not answer either (SAE J1979).
  if (outcome.state == Outcome::State::NoAnswer && !answers.gaveUp()) {
    section.state = Section::State::NotListed;
    section.reason = "No answer: the control unit offers no " + what + ", or keeps silent.";
  }
}

void setNotOffered(const Session& session, Section& section, const std::string& what) {
  session.expectNoLoss();
  section.state = Section::State::NotOffered;
  section.reason = "The control unit offers no " + what + ".";
}

}  // namespace velmara
