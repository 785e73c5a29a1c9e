#include <simulator/replay.h>

#include <algorithm>
#include <set>
#include <utility>

namespace simulator {

namespace {

constexpr std::string_view Fast = "@fast";
constexpr std::uint64_t Millisecond = 1000;      // in microseconds
constexpr std::uint64_t LongestDelay = 3600000;  // ms
constexpr std::size_t MostMissing = 1000;        // requests that are told apart

unsigned delayOf(const TraceEvent& event, const TraceExchange& exchange, Replay::Pace pace) {
  return pace == Replay::Pace::AtOnce
             ? 0U
             : static_cast<unsigned>(std::min((event.time - exchange.time) / Millisecond, LongestDelay));
}

}  // namespace

Replay::Replay(const Trace& trace, Pace pace) : m_link(trace.link()) {
  const std::vector<TraceExchange> exchanges = exchangesOf(trace);
  std::set<std::string_view> atLastRate;
  for (const TraceExchange& exchange : exchanges) {
    if (!exchange.oldRate) {
      atLastRate.insert(exchange.request);
    }
  }
  for (const TraceExchange& exchange : exchanges) {
    if (exchange.oldRate && atLastRate.contains(exchange.request)) {
      continue;  // heard at a wrong rate, as like as not
    }
    Answer& answer = m_answers[exchange.request].all.emplace_back();
    for (const std::size_t index : exchange.received) {
      const TraceEvent& event = trace.events[index];
      answer.pieces.push_back({delayOf(event, exchange, pace), event.text});
    }
    if (exchange.lost != 0) {
      answer.lost = delayOf(trace.events[exchange.lost], exchange, pace);
    }
  }
}

std::shared_ptr<Replay> Replay::load(const std::string& text) {
  const bool fast = text.ends_with(Fast);
  const Trace trace = Trace::load(fast ? text.substr(0, text.size() - Fast.size()) : text);
  return std::make_shared<Replay>(trace, fast ? Pace::AtOnce : Pace::AsRecorded);
}

std::optional<Replay::Answer> Replay::next(const std::string& request) {
  const std::lock_guard guard(m_mutex);
  const auto found = m_answers.find(request);
  if (found != m_answers.end()) {
    Answers& answers = found->second;
    return answers.all[std::min(answers.next++, answers.all.size() - 1)];
  }
  const auto known = std::find_if(m_missing.begin(), m_missing.end(),
                                  [&](const Missing& row) { return row.request == request; });
  if (known != m_missing.end()) {
    ++known->count;
  } else if (m_missing.size() < MostMissing) {
    m_missing.push_back({request, 1});
  }
  return std::nullopt;
}

std::vector<Replay::Missing> Replay::missing() const {
  const std::lock_guard guard(m_mutex);
  return m_missing;
}

}  // namespace simulator
