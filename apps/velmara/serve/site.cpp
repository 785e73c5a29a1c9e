#include "serve/site.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <memory>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "devicesjson.h"
#include "serve/httpserver.h"
#include "serve/metrics.h"
#include "serve/pages.h"
#include "serve/sharedsession.h"
#include "velmara/client/link.h"
#include "velmara/client/parameters.h"

namespace velmara {

namespace {

using Headers = std::vector<std::pair<std::string, std::string>>;
using std::chrono::milliseconds;

constexpr milliseconds StreamTurn{1000};
constexpr int TurnsToHeartbeat = 10;
constexpr std::size_t LongestPath = 128;

constexpr const char* JsonType = "application/json";
constexpr const char* PagePolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self' data:; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
// The report carries its style sheet, and no script.
constexpr const char* ReportPolicy =
    "default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'; frame-ancestors "
    "'none'";

HttpResponse withSafety(HttpResponse response, const char* policy = PagePolicy) {
  response.headers.emplace_back("Content-Security-Policy", policy);
  response.headers.emplace_back("X-Content-Type-Options", "nosniff");
  response.headers.emplace_back("Referrer-Policy", "no-referrer");
  response.headers.emplace_back("Cross-Origin-Resource-Policy", "same-origin");
  if (std::none_of(response.headers.begin(), response.headers.end(),
                   [](const auto& header) { return header.first == "Cache-Control"; })) {
    response.headers.emplace_back("Cache-Control", "no-store");
  }
  return response;
}

HttpResponse jsonResponse(const Json& document) {
  return withSafety({200, JsonType, jsonText(document), {}});
}

// FNV-1a, to tell one build's files from another's.
std::string tagOf(std::string_view text) {
  std::uint64_t hash = 14695981039346656037U;
  for (const char c : text) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
  }
  return fmt::format("\"{:016x}\"", hash);
}

struct Status {
  int code;
  const char* name;
};
Status statusOf(Failure::Kind kind) {
  switch (kind) {
    case Failure::Kind::Unusable:
    case Failure::Kind::FileExists:
    case Failure::Kind::NotAFile:
      return {400, "unusable"};
    case Failure::Kind::LinkFailed:
      return {502, "linkFailed"};
    case Failure::Kind::NoAdapter:
      return {502, "noAdapter"};
    case Failure::Kind::NoVehicle:
      return {502, "noVehicle"};
    case Failure::Kind::LinkLost:
      return {502, "linkLost"};
    case Failure::Kind::NoData:
      return {409, "noData"};
    case Failure::Kind::Cancelled:
      break;
  }
  return {409, "cancelled"};
}

Json bodyOf(const HttpRequest& request) {
  Json body = Json::parse(request.body, nullptr, false);
  if (!body.is_object()) {
    throw Failure(Failure::Kind::Unusable, "The body of the request is no JSON object.");
  }
  return body;
}

// A text of the body; empty if it is not there or null.
std::string textOf(const Json& body, const char* key) {
  const auto found = body.find(key);
  if (found == body.end() || found->is_null()) {
    return {};
  }
  if (!found->is_string()) {
    throw Failure(Failure::Kind::Unusable, fmt::format("\"{}\" is to be a text.", key));
  }
  return found->get<std::string>();
}

// Pages open built-in vehicles and devices, but no other files of this computer.
void expectHarmless(const Link& link) {
  const std::vector<DemoVehicle> demos = demoVehicles();
  const bool isBuiltIn = std::any_of(demos.begin(), demos.end(),
                                     [&link](const DemoVehicle& demo) { return demo.link == link.text(); });
  const bool isDevice = link.target.starts_with("/dev/") && link.target.find("..") == std::string::npos;
  if ((link.kind == Link::Kind::Demo && !isBuiltIn) || (link.kind == Link::Kind::Serial && !isDevice) ||
      link.kind == Link::Kind::Replay) {
    throw Failure(Failure::Kind::Unusable, "The page opens no files of this computer.",
                  "Name it on the command line: velmara serve --link.");
  }
}

}  // namespace

Site::Site(Guard guard, Board& board, Mailbox& mailbox, SharedSession& session, const HttpServer& server,
           std::function<void()> cancel)
    : m_guard(std::move(guard)),
      m_board(board),
      m_mailbox(mailbox),
      m_session(session),
      m_server(server),
      m_cancel(std::move(cancel)) {}

const std::vector<Site::Route>& Site::routes() {
  static const std::vector<Route> routes = {{"GET", "/api/state", &Site::state},
                                            {"GET", "/api/sensors", &Site::sensors},
                                            {"GET", "/api/values", &Site::values},
                                            {"GET", "/api/history", &Site::history},
                                            {"GET", "/api/events", &Site::events},
                                            {"GET", "/api/links", &Site::links},
                                            {"GET", "/api/document", &Site::document},
                                            {"GET", "/api/recording.csv", &Site::recording},
                                            {"GET", "/report", &Site::report},
                                            {"GET", "/metrics", &Site::metrics},
                                            {"POST", "/api/login", &Site::login},
                                            {"POST", "/api/connect", &Site::connect},
                                            {"POST", "/api/cancel", &Site::cancel},
                                            {"POST", "/api/disconnect", &Site::disconnect},
                                            {"POST", "/api/control-unit", &Site::selectUnit},
                                            {"POST", "/api/unit-system", &Site::setUnitSystem},
                                            {"POST", "/api/read", &Site::read},
                                            {"POST", "/api/clear", &Site::clear},
                                            {"POST", "/api/recording/start", &Site::startRecording},
                                            {"POST", "/api/recording/stop", &Site::stopRecording},
                                            {"POST", "/api/bluetooth", &Site::findBluetooth}};
  return routes;
}

HttpResponse Site::error(int status, const std::string& reason, const std::string& advice, const char* kind) {
  ++m_refused;
  Json document = {{"error", reason}, {"advice", advice}};
  document["kind"] = kind != nullptr ? Json(kind) : Json();
  HttpResponse response = withSafety({status, JsonType, jsonText(document), {}});
  if (status == 503) {
    response.headers.emplace_back("Retry-After", "5");
  }
  return response;
}

HttpResponse Site::complaint(int status) {
  switch (status) {
    case 408:
      return error(status, "The request did not come in time.", "");
    case 413:
      return error(status, "The body of the request is too large.",
                   fmt::format("It may have {} bytes.", HttpServer::LargestBody));
    case 431:
      return error(status, "The headers of the request are too large.", "");
    case 503:
      return error(status, "There are too many connections.", "Close some pages, or try again.");
    case 500:
      return error(status, "This should not happen; please report it.", "");
    default:
      return error(status, "The request makes no sense.", "");
  }
}

std::optional<HttpResponse> Site::refuse(const HttpRequest& request) {
  ++m_requests;
  const auto hasPath = [&request](const Route& route) { return request.path == route.path; };
  const bool isPage = findPageFile(request.path) != nullptr;
  const bool isKnown = isPage || std::any_of(routes().begin(), routes().end(), hasPath);
  if (const std::optional<Guard::Refusal> refusal = m_guard.check(request, isPage)) {
    HttpResponse response = error(refusal->status, refusal->reason, refusal->advice);
    if (refusal->status == 401) {
      response.headers.emplace_back("WWW-Authenticate", "Bearer");
    }
    return response;
  }
  if (!isKnown || request.path.size() > LongestPath) {
    return error(404, "There is nothing here.", "GET /api/openapi.json tells what there is.");
  }
  const bool isAllowed = isPage ? request.method == "GET"
                                : std::any_of(routes().begin(), routes().end(), [&](const Route& route) {
                                    return hasPath(route) && request.method == route.method;
                                  });
  if (!isAllowed) {
    return error(405, "That is not to be asked in this way.", "GET /api/openapi.json tells how.");
  }
  if (const std::string length = request.header("content-length"); !length.empty()) {
    std::size_t size = 0;
    const char* const end = length.data() + length.size();
    const auto [rest, problem] = std::from_chars(length.data(), end, size);
    if (rest != end || problem == std::errc::invalid_argument) {
      return complaint(400);
    }
    if (problem != std::errc() || size > HttpServer::LargestBody) {
      return complaint(413);  // before any of it is read
    }
  }
  return std::nullopt;
}

HttpResponse Site::answer(const HttpRequest& request) {
  for (const Route& route : routes()) {
    if (request.path == route.path && request.method == route.method) {
      try {
        return (this->*route.answer)(request);
      } catch (const Failure& failure) {
        const Status status = statusOf(failure.kind());
        return error(status.code, failure.what(), failure.advice(), status.name);
      }
    }
  }
  return page(request);
}

// The page itself bears the token where everybody who can see it may use it.
HttpResponse Site::page(const HttpRequest& request) {
  const PageFile& file = *findPageFile(request.path);
  HttpResponse response{200, file.type, std::string(file.text), {{"Cache-Control", "no-cache"}}};
  if (request.path == "/") {
    constexpr std::string_view Place = "@TOKEN@";
    if (const std::size_t place = response.body.find(Place); place != std::string::npos) {
      response.body.replace(place, Place.size(), m_guard.isLoopback() ? m_guard.token() : "");
    }
    response.headers = {{"Cache-Control", "no-store"}};
  } else {
    const std::string tag = tagOf(file.text);
    response.headers.emplace_back("ETag", tag);
    if (request.header("if-none-match") == tag) {
      response.status = 304;
      response.body.clear();
    }
  }
  return withSafety(std::move(response));
}

// ---- What is there already

HttpResponse Site::state(const HttpRequest&) {
  return jsonResponse(m_board.state());
}

HttpResponse Site::sensors(const HttpRequest&) {
  return jsonResponse(m_board.live.sensors());
}

HttpResponse Site::values(const HttpRequest&) {
  return jsonResponse(m_board.live.values());
}

HttpResponse Site::history(const HttpRequest&) {
  return jsonResponse(m_board.live.history());
}

HttpResponse Site::links(const HttpRequest&) {
  Json demos = Json::array();
  for (const DemoVehicle& demo : demoVehicles()) {
    demos.push_back({{"link", demo.link}, {"name", demo.description}});
  }
  Json protocolList = Json::array();
  for (const Protocol& protocol : protocols()) {
    protocolList.push_back({{"name", protocol.name}, {"description", protocol.description}});
  }
  return jsonResponse({{"demo", demos}, {"serial", toJson(findSerialPorts())}, {"protocols", protocolList}});
}

HttpResponse Site::document(const HttpRequest& request) {
  return jsonResponse(m_board.document(request.parameter("name")));
}

HttpResponse Site::recording(const HttpRequest&) {
  std::string rows = m_board.recording();
  if (rows.empty()) {
    return error(404, "There is no recording.", "POST /api/recording/start begins one.");
  }
  return withSafety({200,
                     "text/csv; charset=utf-8",
                     std::move(rows),
                     {{"Content-Disposition", "attachment; filename=\"velmara-recording.csv\""}}});
}

HttpResponse Site::report(const HttpRequest&) {
  std::string html = m_board.reportPage();
  if (html.empty()) {
    return error(404, "No report has been read.", "POST /api/read with {\"name\": \"report\"} reads one.");
  }
  return withSafety({200, "text/html; charset=utf-8", std::move(html), {}}, ReportPolicy);
}

HttpResponse Site::metrics(const HttpRequest&) {
  const ServerCounts counts{m_requests, m_refused, m_viewers, m_server.connections(), m_server.turnedAway()};
  return withSafety({200, "text/plain; version=0.0.4; charset=utf-8", metricsText(m_board, counts), {}});
}

// Goes on where the viewer was, or begins with all that there is.
HttpResponse Site::events(const HttpRequest& request) {
  const std::string watch = request.parameter("watch");
  struct Viewer {
    Viewer(Board& itsBoard, std::atomic<std::size_t>& itsCount) : board(itsBoard), count(itsCount) {}
    ~Viewer() { --count; }
    Viewer(const Viewer&) = delete;
    Viewer& operator=(const Viewer&) = delete;

    Board& board;
    std::atomic<std::size_t>& count;
    WatchList::Wish wish;
    EventFeed::Place place = 0;
    bool needsAll = true;
    int idleTurns = 0;
  };
  if (++m_viewers > MostViewers) {
    --m_viewers;
    return error(503, "There are too many pages that look on.", "Close some of them.");
  }
  const auto viewer = std::make_shared<Viewer>(m_board, m_viewers);
  viewer->wish = m_board.watched.add(watch.empty() ? std::vector<int>() : parseParameters({watch}));
  const std::string last = request.header("last-event-id");
  viewer->needsAll = !m_board.feed.find(last.empty() ? request.parameter("after") : last, viewer->place);

  HttpResponse response = withSafety({200, "text/event-stream", {}, {}});
  response.stream = [viewer]() -> std::optional<std::string> {
    Board& board = viewer->board;
    if (board.feed.isClosed()) {
      return std::nullopt;
    }
    if (viewer->needsAll) {
      viewer->needsAll = false;
      viewer->place = board.feed.now();
      const std::string id = board.feed.textOf(viewer->place);
      return "retry: 1000\n\n" + eventText(id, "state", jsonText(board.state())) +
             eventText(id, "sensors", "{}") + eventText(id, "values", jsonText(board.live.values()));
    }
    EventFeed::Batch batch = board.feed.next(viewer->place, StreamTurn);
    viewer->needsAll = batch.missed;
    viewer->idleTurns = batch.text.empty() ? viewer->idleTurns + 1 : 0;
    if (viewer->idleTurns == TurnsToHeartbeat) {  // so that the end of a viewer is noticed
      viewer->idleTurns = 0;
      return ": still here\n\n";
    }
    return batch.text;
  };
  return response;
}

// ---- What the session is to do

HttpResponse Site::call(Mailbox::Job job) {
  Mailbox::Answer answer = m_mailbox.call(std::move(job));
  switch (answer.state) {
    case Mailbox::Answer::State::Done:
      return jsonResponse(answer.result);
    case Mailbox::Answer::State::Failed:
      throw Failure(*answer.failure);
    case Mailbox::Answer::State::Busy:
      return error(503, "The vehicle is busy with something else.", "Try again, or cancel it.");
    case Mailbox::Answer::State::Closed:
      break;
  }
  return error(503, "The server is about to end.", "");
}

HttpResponse Site::login(const HttpRequest&) {
  HttpResponse response = jsonResponse(Json::object());
  response.headers.emplace_back("Set-Cookie", m_guard.cookie());
  return response;
}

HttpResponse Site::connect(const HttpRequest& request) {
  const Json body = bodyOf(request);
  const std::string link = textOf(body, "link");
  const std::string protocol = textOf(body, "protocol");
  if (!link.empty()) {
    expectHarmless(parseLink(link));
  }
  return call([this, link, protocol] { return m_session.connect(link, protocol); });
}

HttpResponse Site::cancel(const HttpRequest&) {
  m_cancel();
  return jsonResponse(Json::object());
}

HttpResponse Site::disconnect(const HttpRequest&) {
  return call([this] { return m_session.disconnect(); });
}

HttpResponse Site::selectUnit(const HttpRequest& request) {
  const std::string name = textOf(bodyOf(request), "ecu");
  return call([this, name] { return m_session.selectUnit(name); });
}

HttpResponse Site::setUnitSystem(const HttpRequest& request) {
  const std::string name = textOf(bodyOf(request), "unitSystem");
  return call([this, name] { return m_session.setUnitSystem(name); });
}

HttpResponse Site::read(const HttpRequest& request) {
  const Json body = bodyOf(request);
  const SharedSession::Question question{textOf(body, "name"), textOf(body, "ecu"), textOf(body, "make"),
                                         body.value("anew", Json(true)) != Json(false)};
  return call([this, question] { return m_session.read(question); });
}

HttpResponse Site::clear(const HttpRequest& request) {
  if (bodyOf(request).value("confirm", Json()) != Json(true)) {
    throw Failure(Failure::Kind::Unusable, "Nothing was cleared: that needs \"confirm\": true.");
  }
  return call([this] { return m_session.clear(); });
}

HttpResponse Site::startRecording(const HttpRequest&) {
  return call([this] { return m_session.startRecording(); });
}

HttpResponse Site::stopRecording(const HttpRequest&) {
  return call([this] { return m_session.stopRecording(); });
}

HttpResponse Site::findBluetooth(const HttpRequest&) {
  return call([this] { return m_session.findBluetooth(); });
}

}  // namespace velmara
