#include "velmara/client/trace.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <map>
#include <set>

#include <fmt/format.h>

#include "traceframes.h"
#include "traces.h"
#include "velmara/client/failure.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

using simulator::TraceEvent;
using simulator::TraceExchange;

constexpr double Second = 1e6;  // in microseconds

// In the order of the search: "ERROR" is part of most others. After the ELM327 data sheet.
constexpr std::string_view ErrorWords[] = {
    "NO DATA",  "UNABLE TO CONNECT", "BUFFER FULL", "BUS BUSY", "BUS ERROR", "CAN ERROR", "DATA ERROR",
    "FB ERROR", "LV RESET",          "RX ERROR",    "STOPPED",  "ERROR",     "?"};

std::string errorOf(std::string_view answer) {
  const auto* const found =
      std::find_if(std::begin(ErrorWords), std::end(ErrorWords),
                   [&](std::string_view word) { return answer.find(word) != std::string_view::npos; });
  return found == std::end(ErrorWords) ? std::string() : std::string(*found);
}

// The words of an answer in one line, without the echo.
std::string wordsOf(std::string_view answer, std::string_view request) {
  std::string words;
  for (std::size_t begin = 0; begin < answer.size();) {
    const std::size_t end = std::min(answer.find_first_of("\r\n>", begin), answer.size());
    const std::string_view line = answer.substr(begin, end - begin);
    if (!line.empty() && line != request) {
      words.append(words.empty() ? "" : " | ").append(line);
    }
    begin = end + 1;
  }
  return printable(words);
}

// Times of the answers to one request.
struct Times {
  std::size_t row = 0;
  std::vector<double> seconds;
};

class Summarizer {
 public:
  explicit Summarizer(const simulator::Trace& trace) : m_trace(trace) {}

  TraceSummary run() {
    m_summary.cut = m_trace.cut;
    for (const TraceEvent& event : m_trace.events) {
      m_summary.seconds = static_cast<double>(event.time) / Second;
      if (event.kind == TraceEvent::Kind::Opened) {
        m_summary.links.push_back(printable(event.text));
      } else if (event.kind == TraceEvent::Kind::Lost) {
        addError("link lost: " + printable(event.text));
      } else if (event.kind == TraceEvent::Kind::Failed) {
        addError("link not opened: " + printable(event.text));
      }
    }
    for (const TraceExchange& exchange : simulator::exchangesOf(m_trace)) {
      add(exchange);
    }
    for (auto& [request, times] : m_times) {
      std::vector<double>& all = times.seconds;
      if (!all.empty()) {
        std::sort(all.begin(), all.end());
        m_summary.requests[times.row].median = all[all.size() / 2];
        m_summary.requests[times.row].worst = all.back();
      }
    }
    m_summary.units.assign(m_units.begin(), m_units.end());
    return std::move(m_summary);
  }

 private:
  void add(const TraceExchange& exchange) {
    const auto [place, isNew] = m_times.try_emplace(exchange.request, Times{m_summary.requests.size(), {}});
    if (isNew) {
      m_summary.requests.emplace_back().text = printable(exchange.request);
    }
    TracedRequest& request = m_summary.requests[place->second.row];
    ++request.count;
    const std::string answer = simulator::answerOf(m_trace, exchange);
    if (answer.ends_with('>')) {
      const std::uint64_t end = m_trace.events[exchange.received.back()].time;
      place->second.seconds.push_back(static_cast<double>(end - exchange.time) / Second);
    } else {
      ++request.unanswered;
    }
    if (const std::string error = errorOf(answer); !error.empty()) {
      addError(error);
    }
    describe(exchange.request, answer);
    for (const TracedMessage& message : readAnswer(answer, exchange.request).messages) {
      if (!message.unit.empty()) {
        m_units.insert(message.unit);
      }
    }
  }

  // The latest word counts: what came before may have come at a wrong baud rate.
  void describe(const std::string& request, const std::string& answer) {
    struct Row {
      std::string_view request;
      std::string TraceSummary::*field;
    };
    static constexpr Row Rows[] = {{"ATI", &TraceSummary::adapter},
                                   {"ATZ", &TraceSummary::adapter},
                                   {"AT@1", &TraceSummary::description},
                                   {"ATDP", &TraceSummary::protocol}};
    for (const Row& row : Rows) {
      const std::string words = wordsOf(answer, row.request);
      if (row.request == request && !words.empty() && words != "?") {
        m_summary.*row.field = words;
      }
    }
  }

  void addError(const std::string& what) {
    const auto [place, isNew] = m_errors.try_emplace(what, m_summary.errors.size());
    if (isNew) {
      m_summary.errors.push_back({what, 0});
    }
    ++m_summary.errors[place->second].count;
  }

  const simulator::Trace& m_trace;
  TraceSummary m_summary;
  std::map<std::string, Times> m_times;
  std::map<std::string, std::size_t> m_errors;  // where they stand
  std::set<std::string> m_units;
};

// What was answered to each request, in its order, and the requests in theirs.
struct Dialogue {
  explicit Dialogue(const simulator::Trace& trace) {
    for (const TraceExchange& exchange : simulator::exchangesOf(trace)) {
      std::vector<std::string>& all = answers[exchange.request];
      if (all.empty()) {
        requests.push_back(exchange.request);
      }
      all.push_back(wordsOf(simulator::answerOf(trace, exchange), exchange.request));
    }
  }

  const std::vector<std::string>& of(const std::string& request) const {
    static const std::vector<std::string> none;
    const auto found = answers.find(request);
    return found == answers.end() ? none : found->second;
  }

  std::vector<std::string> requests;
  std::map<std::string, std::vector<std::string>> answers;
};

}  // namespace

TraceSummary summaryOf(const simulator::Trace& trace) {
  return Summarizer(trace).run();
}

simulator::Trace loadTrace(const std::string& file) {
  try {
    return simulator::Trace::load(file);
  } catch (const std::exception& error) {
    throw Failure(Failure::Kind::Unusable, fmt::format("The trace cannot be read. {}", error.what()));
  }
}

TraceSummary summarizeTrace(const std::string& file) {
  return summaryOf(loadTrace(file));
}

std::string anonymizedTrace(const std::string& file) {
  return anonymized(loadTrace(file));
}

std::string vehicleOfTrace(const std::string& file, const std::string& name) {
  return vehicleOf(loadTrace(file), file, name);
}

std::vector<TraceDifference> compareTraces(const std::string& file, const std::string& other) {
  const Dialogue one(loadTrace(file));
  const Dialogue two(loadTrace(other));
  std::vector<std::string> requests = one.requests;
  std::copy_if(two.requests.begin(), two.requests.end(), std::back_inserter(requests),
               [&](const std::string& request) { return one.of(request).empty(); });
  std::vector<TraceDifference> differences;
  for (const std::string& request : requests) {
    const std::vector<std::string>& a = one.of(request);
    const std::vector<std::string>& b = two.of(request);
    TraceDifference difference{
        printable(request), static_cast<unsigned>(a.size()), static_cast<unsigned>(b.size()), 0, {}, {}};
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
      if (a[i] != b[i] && difference.differing++ == 0) {
        difference.answer = a[i];
        difference.otherAnswer = b[i];
      }
    }
    if (difference.differing != 0 || a.empty() || b.empty()) {
      differences.push_back(std::move(difference));
    }
  }
  return differences;
}

}  // namespace velmara
