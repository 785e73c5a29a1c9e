#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <simulator/elmadapter.h>

namespace simulator {

/// Serves an adapter over TCP, to one client at a time; the next one is let in when the first has left. Runs
/// on a thread of its own from construction to `stop` or destruction.
class TcpServer {
 public:
  /// Listens on `port` of `address`; port 0 picks a free one. Throws std::runtime_error with a sentence.
  TcpServer(std::shared_ptr<Vehicle> vehicle, AdapterOptions options, std::uint16_t port = 0,
            const std::string& address = "127.0.0.1");
  /// The same for an adapter that the caller made.
  explicit TcpServer(std::shared_ptr<ElmAdapter> adapter, std::uint16_t port = 0,
                     const std::string& address = "127.0.0.1");
  TcpServer(const TcpServer&) = delete;
  TcpServer& operator=(const TcpServer&) = delete;
  ~TcpServer();

  /// The port it listens on.
  std::uint16_t port() const;
  /// The link to give to the front end: "tcp:127.0.0.1:35001".
  std::string link() const;
  /// Ends the service and the client's connection. From any thread; harmless when repeated.
  void stop();

 private:
  class Impl;
  std::unique_ptr<Impl> m_impl;
};

/// Serves an adapter on a pseudo-terminal. The rate that the client sets on it matters: where it differs
/// from the adapter's own, both sides read garbage.
class PtyServer {
 public:
  /// Throws std::runtime_error with a sentence.
  PtyServer(std::shared_ptr<Vehicle> vehicle, AdapterOptions options);
  /// The same for an adapter that the caller made.
  explicit PtyServer(std::shared_ptr<ElmAdapter> adapter);
  PtyServer(const PtyServer&) = delete;
  PtyServer& operator=(const PtyServer&) = delete;
  ~PtyServer();

  /// The device to open: "/dev/pts/5".
  std::string path() const;
  /// The link to give to the front end: "serial:/dev/pts/5".
  std::string link() const;
  /// Ends the service. From any thread; harmless when repeated.
  void stop();

 private:
  class Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace simulator
