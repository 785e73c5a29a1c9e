#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "clifixture.h"

namespace clitest {

/// A connection to a server on this computer, byte by byte.
class HttpProbe {
 public:
  /// Throws if there is no connection to be had. `room`: bytes that may come without being read; the system's
  /// choice if 0.
  explicit HttpProbe(int port, int room = 0);
  ~HttpProbe();
  HttpProbe(const HttpProbe&) = delete;
  HttpProbe& operator=(const HttpProbe&) = delete;

  void send(const std::string& text) const;
  /// Reads until a text has come. False if the connection ended, or nothing came for so long.
  bool await(const std::string& text, Seconds limit = Prompt);
  /// Reads until the other side closes.
  bool awaitEnd(Seconds limit = Limit);
  const std::string& received() const { return m_received; }

 private:
  bool readSome(std::chrono::steady_clock::time_point until);

  const int m_socket;
  bool m_ended = false;
  std::string m_received;
};

struct HttpAnswer {
  int status = 0;
  std::string head;
  std::string body;

  nlohmann::json json() const { return nlohmann::json::parse(body, nullptr, false); }
};
HttpAnswer parseAnswer(const std::string& text);

/// Runs of `velmara serve`. To reach a car takes seconds: the tests that leave it as it was share a server,
/// which connects while others are at work.
class Serve : public Cli {
 protected:
  static void SetUpTestSuite() { sharedServer(); }
  static void TearDownTestSuite() { sharedServer().reset(); }
  /// A server with these options, on a port of its own choice.
  struct Server {
    explicit Server(std::unique_ptr<Process> itsProcess);

    HttpAnswer ask(const std::string& request) const;
    HttpAnswer get(const std::string& path, const std::string& headers = {}) const;
    HttpAnswer post(const std::string& path, const std::string& body = "{}") const;
    nlohmann::json state() const { return get("/api/state").json(); }
    /// Waits until the session is in a phase. Throws if it does not come.
    nlohmann::json awaitPhase(const std::string& phase) const;
    /// The value of a metric without labels; -1 if there is none.
    double metric(const std::string& name) const;
    /// Text of a GET that goes on.
    std::string streamRequest(const std::string& query, const std::string& headers = {}) const;
    /// Whether so many more values are read.
    bool goesOnReading(std::size_t more = 1) const;
    /// Whether that comes true soon.
    static bool await(const std::function<bool()>& done);

    std::unique_ptr<Process> process;
    int port = 0;
    std::string token;
  };
  static Server serve(const std::string& options, const std::string& address = "127.0.0.1:0") {
    return Server(start("serve --listen " + address + " " + options));
  }
  /// Connected to the demo car, and reading its speeds of engine and vehicle in groups.
  static const Server& shared();

 private:
  static std::unique_ptr<Server>& sharedServer();
};

}  // namespace clitest
