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

TEST_F(Serve, AnswersAThousandConnectionsAndGoesOn) {
  allowFiles(1200);
  const Server server = serve("--link demo: 0C");
  server.awaitPhase("connected");
  HttpProbe viewer(server.port);
  viewer.send(server.streamRequest("?watch=0C"));
  ASSERT_TRUE(viewer.await(Values));
  std::vector<HttpProbe> crowd;
  for (int i = 0; i < 1000; ++i) {
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
  EXPECT_EQ(refused + late, 1000);
  // The page that was there goes on, and there is room again.
  const std::size_t seen = viewer.received().size();
  EXPECT_FALSE(viewer.await("event: never", Seconds(0.5)));
  EXPECT_GT(viewer.received().size(), seen);
  EXPECT_TRUE(server.goesOnReading());
  HttpProbe next(server.port);
  next.send(server.streamRequest("?watch=0C"));
  EXPECT_TRUE(next.await(Values));
}

TEST_F(Serve, HasRoomForSixtyFourViewers) {
  const Server server = serve("");
  std::vector<HttpProbe> viewers;
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

TEST_F(Serve, DropsThoseWhoAreSlow) {
  const Server server = serve("--link demo: 0C");
  server.awaitPhase("connected");
  // Bodies that do not come hold a thread each, for a while; heads that do not come hold none.
  std::vector<HttpProbe> slow;
  for (int i = 0; i < 150; ++i) {
    slow.emplace_back(server.port);
    slow.back().send("GET /api/state HTTP/1.1\r\nHost: 127.0.0.1");
  }
  HttpProbe half(server.port);
  half.send("POST /api/disconnect HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port) +
            "\r\nAuthorization: Bearer " + server.token +
            "\r\nContent-Type: application/json\r\nContent-Length: 10\r\n\r\n{");
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(server.get("/api/state").status, 200);
  EXPECT_LT(Seconds(std::chrono::steady_clock::now() - begin).count(), 1);
  EXPECT_TRUE(half.awaitEnd());
  for (HttpProbe& each : slow) {
    EXPECT_TRUE(each.awaitEnd());
    EXPECT_EQ(parseAnswer(each.received()).status, 408);
  }
  EXPECT_EQ(server.state().at("phase"), "connected");  // half a request did nothing
}

}  // namespace
