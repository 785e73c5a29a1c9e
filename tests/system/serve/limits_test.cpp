// Those who are too many, too slow or silent hold nobody up.

#include <sys/resource.h>

#include "httpprobe.h"

using namespace clitest;

namespace {

constexpr const char* Values = "event: values\ndata: [{\"key\":\"0C\"";

// So that this process may have more connections than the server.
void allowFiles(rlim_t count) {
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_cur < count) {
    limit.rlim_cur = count;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  }
}

// All of them at once, as each takes as long as the server's patience.
TEST_F(Serve, GoesOnInACrowdOfThousandAndDropsThoseWhoAreSlow) {
  allowFiles(1300);
  const Server& server = shared();
  HttpProbe viewer(server.port);
  viewer.send(server.streamRequest("?watch=0C"));
  ASSERT_TRUE(viewer.await(Values));

  // One who never reads what comes, and there is more than the system keeps for it.
  HttpProbe deaf(server.port, 4096);
  deaf.send(server.streamRequest("?watch=0C"));
  ASSERT_TRUE(Server::await([&] { return server.metric("velmara_viewers") == 2; }));
  const std::size_t enough = viewer.received().size() + 400'000;
  while (viewer.received().size() < enough) {
    server.post("/api/recording/start");
    server.post("/api/recording/stop");
    viewer.await("event: never", Seconds(0.001));
  }

  // Those who leave in the middle of a request take no room any more.
  for (int i = 0; i < 300; ++i) {
    HttpProbe(server.port).send("GET /api/state HTTP/1.1");
  }
  EXPECT_TRUE(Server::await([&] { return server.metric("velmara_http_connections") <= 3; }));
  const double turnedAway = server.metric("velmara_http_turned_away_total");

  // Bodies that do not come hold a thread each, for a while; heads that do not come hold none.
  HttpProbe half(server.port);
  half.send("POST /api/disconnect HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port) +
            "\r\nAuthorization: Bearer " + server.token +
            "\r\nContent-Type: application/json\r\nContent-Length: 10\r\n\r\n{");
  std::deque<HttpProbe> crowd;
  for (int i = 0; i < 150; ++i) {
    crowd.emplace_back(server.port);
    crowd.back().send("GET /api/state HTTP/1.1\r\nHost: 127.0.0.1");
  }
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(server.get("/api/state").status, 200);
  EXPECT_LT(Seconds(std::chrono::steady_clock::now() - begin).count(), 1);
  while (crowd.size() < 1000) {
    crowd.emplace_back(server.port);
  }
  int refused = 0;
  int late = 0;
  for (HttpProbe& each : crowd) {
    ASSERT_TRUE(each.awaitEnd());
    const HttpAnswer answer = parseAnswer(each.received());
    refused += answer.status == 503 && has(answer.head, "Retry-After: ") ? 1 : 0;
    late += answer.status == 408 ? 1 : 0;
  }
  EXPECT_GT(refused, 250);
  EXPECT_GE(late, 150);
  EXPECT_EQ(refused + late, 1000);
  EXPECT_EQ(server.metric("velmara_http_turned_away_total") - turnedAway, 1000);
  EXPECT_TRUE(half.awaitEnd());
  EXPECT_TRUE(Server::await([&] { return server.metric("velmara_viewers") == 1; }));

  // The page that was there goes on, and there is room again; half a request did nothing.
  const std::size_t seen = viewer.received().size();
  EXPECT_FALSE(viewer.await("event: never", Seconds(0.3)));
  EXPECT_GT(viewer.received().size(), seen);
  EXPECT_EQ(server.state().at("phase"), "connected");
  EXPECT_TRUE(server.goesOnReading());
  HttpProbe next(server.port);
  next.send(server.streamRequest("?watch=0C"));
  EXPECT_TRUE(next.await(Values));
}

TEST_F(Serve, HasRoomForSixtyFourViewers) {
  const Server server = serve("");
  std::deque<HttpProbe> viewers;
  for (int i = 0; i < 64; ++i) {
    viewers.emplace_back(server.port);
    viewers.back().send(server.streamRequest(""));
    ASSERT_TRUE(viewers.back().await("event: state")) << i;
  }
  const HttpAnswer more = server.get("/api/events");
  EXPECT_EQ(more.status, 503);
  EXPECT_TRUE(has(more.body, "too many pages"));
  EXPECT_EQ(server.get("/api/state").status, 200);
}

}  // namespace
