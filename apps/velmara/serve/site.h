#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "serve/board.h"
#include "serve/guard.h"
#include "serve/http.h"
#include "serve/mailbox.h"

namespace velmara {

class HttpServer;
class SharedSession;

/// The page, and what it and other programs ask for. docs/serve.md tells of each path.
class Site final : public IHttpSite {
 public:
  /// Viewers at the same time; each holds a thread.
  static constexpr std::size_t MostViewers = 64;

  /// All outlive it. The counts of the server are among the metrics. `cancel` breaks off what the session
  /// does; any thread.
  Site(Guard guard, Board& board, Mailbox& mailbox, SharedSession& session, const HttpServer& server,
       std::function<void()> cancel);

  std::optional<HttpResponse> refuse(const HttpRequest& request) override;
  HttpResponse answer(const HttpRequest& request) override;
  HttpResponse complaint(int status) override;

  struct Route {
    const char* method;
    const char* path;
    HttpResponse (Site::*answer)(const HttpRequest&);
  };
  static const std::vector<Route>& routes();

 private:
  HttpResponse state(const HttpRequest&);
  HttpResponse sensors(const HttpRequest&);
  HttpResponse values(const HttpRequest&);
  HttpResponse history(const HttpRequest&);
  HttpResponse links(const HttpRequest&);
  HttpResponse document(const HttpRequest&);
  HttpResponse recording(const HttpRequest&);
  HttpResponse events(const HttpRequest&);
  HttpResponse report(const HttpRequest&);
  HttpResponse metrics(const HttpRequest&);
  HttpResponse login(const HttpRequest&);
  HttpResponse connect(const HttpRequest&);
  HttpResponse cancel(const HttpRequest&);
  HttpResponse disconnect(const HttpRequest&);
  HttpResponse selectUnit(const HttpRequest&);
  HttpResponse setUnitSystem(const HttpRequest&);
  HttpResponse read(const HttpRequest&);
  HttpResponse clear(const HttpRequest&);
  HttpResponse startRecording(const HttpRequest&);
  HttpResponse stopRecording(const HttpRequest&);
  HttpResponse findBluetooth(const HttpRequest&);

  HttpResponse page(const HttpRequest& request);
  HttpResponse call(Mailbox::Job job);
  HttpResponse error(int status, const std::string& reason, const std::string& advice,
                     const char* kind = nullptr);

  const Guard m_guard;
  Board& m_board;
  Mailbox& m_mailbox;
  SharedSession& m_session;
  const HttpServer& m_server;
  const std::function<void()> m_cancel;
  std::atomic<std::size_t> m_requests{0};
  std::atomic<std::size_t> m_refused{0};
  std::atomic<std::size_t> m_viewers{0};
};

}  // namespace velmara
