#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace clitest {

/// A child process whose output is collected. It does not outlive this object.
class Process {
 public:
  using Seconds = std::chrono::duration<double>;

  struct Options {
    std::map<std::string, std::string> environment = {};
    bool terminal = false;  ///< its standard output is a terminal
    bool typing = false;    ///< and its standard input is the same one
  };

  struct Result {
    int code = -1;   ///< exit code; -1 if a signal ended it or it did not end in time
    int signal = 0;  ///< what ended it
    bool inTime = false;
    double seconds = 0;
    std::string out;
    std::string err;
  };

  Process(const std::string& program, const std::vector<std::string>& arguments, const Options& options);
  Process(const std::string& program, const std::vector<std::string>& arguments)
      : Process(program, arguments, Options()) {}
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  /// Waits until standard output, or standard error, holds a text; false if that does not come in time.
  bool waitForOut(std::string_view text, Seconds limit);
  bool waitForErr(std::string_view text, Seconds limit);
  /// Waits for a whole line on standard output and gives the first one.
  std::string firstLine(Seconds limit);

  void sendSignal(int number) const;
  /// Types on its terminal.
  void type(std::string_view text) const;
  /// Leaves standard output alone for a time: what the child writes fills the pipe.
  void leaveUnread(Seconds time) const;
  /// Closes the reading end of standard output.
  void closeOut();

  /// Waits for the end.
  Result finish(Seconds limit);

  const std::string& out() const { return m_out; }

 private:
  using Clock = std::chrono::steady_clock;

  bool collect(const std::function<bool()>& done, Seconds limit);

  pid_t m_pid = -1;
  int m_outFile = -1;
  int m_errFile = -1;
  std::string m_out;
  std::string m_err;
  Clock::time_point m_start;
};

/// A listening socket that is no adapter. `port` answers at once; behind it somebody says nothing, or noise,
/// or hangs up.
class FakePeer {
 public:
  enum class Manner { Silent, Noise, HangUp };

  explicit FakePeer(Manner manner);
  FakePeer(const FakePeer&) = delete;
  FakePeer& operator=(const FakePeer&) = delete;
  ~FakePeer();

  std::string link() const;

 private:
  struct Impl;
  Impl* m_impl;
};

/// A port of this computer on which nobody listens.
int closedPort();

}  // namespace clitest
