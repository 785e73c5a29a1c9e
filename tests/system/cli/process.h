#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace clitest {

using Seconds = std::chrono::duration<double>;

/// How many times as long things may take under the sanitizers.
#ifdef VELMARA_SANITIZED
inline constexpr double Slowness = 6;
#else
inline constexpr double Slowness = 1;
#endif

inline constexpr Seconds Limit{40};  // for a whole run, also on a slow machine
inline constexpr Seconds Prompt{5};  // for an end after a signal

/// A child process whose output is collected. It does not outlive this object.
class Process {
 public:
  enum class Terminal { None, Output, Both };  ///< what of its standard input and output is one

  struct Result {
    int code = -1;  ///< exit code; -1 if a signal ended it or it did not end in time
    double seconds = 0;
    std::string out;
    std::string err;
  };

  explicit Process(std::vector<std::string> words, Terminal terminal = Terminal::None);
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  /// Waits until it has written a text, on standard output or standard error. Throws if that does not come.
  void await(std::string_view text);
  void sendSignal(int number) const;
  /// Types on its terminal.
  void type(std::string_view text) const;
  /// Closes the reading end of standard output.
  void closeOut();
  /// Waits for the end.
  Result finish(Seconds limit = Limit);
  /// The same, of one that gets a signal when it has written a text.
  Result stop(std::string_view text, int signal);

  const std::string& out() const { return m_out; }

 private:
  using Clock = std::chrono::steady_clock;

  bool collect(const std::function<bool()>& done, Seconds limit);

  const Clock::time_point m_start = Clock::now();
  pid_t m_pid = -1;
  int m_outFile = -1;
  int m_errFile = -1;
  std::string m_out;
  std::string m_err;
};

}  // namespace clitest
