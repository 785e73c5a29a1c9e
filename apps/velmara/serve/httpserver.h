#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "serve/http.h"

namespace velmara {

/// A server for a site. Each connection is good for one request. Nobody who is slow, silent or too many
/// holds anybody else up: the time for a request and for each piece of a response is limited, and so are
/// bodies and connections.
class HttpServer {
 public:
  HttpServer();
  /// Stops.
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  /// Takes an address: a name or a number, and a port, or 0 for any. Throws `Failure` (Unusable) with a
  /// sentence.
  void bind(const std::string& host, int port);
  /// After `bind`.
  int port() const;
  bool isLoopback() const;

  /// Serves from now on, on threads of its own. The site lasts until `stop`.
  void start(IHttpSite& site);
  /// Ends all requests and streams, and waits until nobody is with the site any more. Whatever the site waits
  /// for has been called off before.
  void stop();

  std::size_t connections() const;
  /// Connections that were too many or too slow.
  std::size_t turnedAway() const;

  static constexpr std::size_t LargestBody = 65536;

 private:
  class Engine;
  std::unique_ptr<Engine> m_engine;
};

}  // namespace velmara
