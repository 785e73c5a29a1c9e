#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <simulator/trace.h>

namespace simulator {

/// The answers of a trace, for an adapter to give (`ElmAdapter`): by request, in the order in which they
/// came, the last one again and again. Thread safe.
class Replay {
 public:
  enum class Pace {
    AsRecorded,  ///< each piece of an answer as long after the request as it came
    AtOnce
  };

  struct Piece {
    unsigned delay = 0;  ///< in milliseconds since the request
    std::string text;
  };
  struct Answer {
    std::vector<Piece> pieces;
    std::optional<unsigned> lost;  ///< the link ended so many milliseconds after the request
  };

  /// A request that the trace does not hold.
  struct Missing {
    std::string request;
    unsigned count = 0;  ///< how often it was sent
  };

  explicit Replay(const Trace& trace, Pace pace = Pace::AsRecorded);

  /// "FILE" or "FILE@fast", which answers at once. Throws std::runtime_error with a sentence that names file
  /// and line.
  static std::shared_ptr<Replay> load(const std::string& text);

  /// Whether the trace has an answer to this request.
  bool has(const std::string& request) const { return m_answers.contains(request); }

  /// The next answer to a request as `TraceExchange` has it; nothing if there is none, which is counted.
  std::optional<Answer> next(const std::string& request);

  /// What was asked in vain, in the order in which it came first.
  std::vector<Missing> missing() const;

  /// What people called the recorded link; empty if that is not told.
  const std::string& link() const { return m_link; }

 private:
  struct Answers {
    std::vector<Answer> all;
    std::size_t next = 0;
  };

  std::string m_link;
  std::map<std::string, Answers> m_answers;
  mutable std::mutex m_mutex;  // guards the places in the answers, and what follows
  std::vector<Missing> m_missing;
};

}  // namespace simulator
