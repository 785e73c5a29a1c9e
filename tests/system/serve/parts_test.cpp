// Parts of the server that need no server.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "serve/board.h"
#include "serve/mailbox.h"
#include "serve/metrics.h"
#include "serve/pages.h"
#include "serve/site.h"
#include "velmara/client/failure.h"

using namespace velmara;
using namespace std::literals;

namespace {

TEST(EventFeed, TellsEverythingOnceOrThatSomethingIsMissing) {
  EventFeed feed;
  EventFeed::Place place = feed.now();
  feed.publish("values", "1");
  feed.publish("values", "2");
  const std::string id = feed.textOf(place + 1);
  const EventFeed::Batch both = feed.next(place, 0ms);
  EXPECT_EQ(both.text, eventText(id, "values", "1") + eventText(feed.textOf(place), "values", "2"));
  EXPECT_EQ(feed.next(place, 0ms).text, "");

  EventFeed::Place again = 0;
  ASSERT_TRUE(feed.find(id, again));
  EXPECT_EQ(feed.next(again, 0ms).text, eventText(feed.textOf(place), "values", "2"));
  for (std::size_t i = 0; i < EventFeed::Capacity + 1; ++i) {
    feed.publish("values", "3");
  }
  EXPECT_TRUE(feed.next(place, 0ms).missed);
  EXPECT_EQ(place, feed.now());
  EXPECT_FALSE(feed.find(id, again));
  // Of another run, of the future, or of nobody.
  for (const std::string& odd : {EventFeed().textOf(0), feed.textOf(feed.now() + 1), std::string("x"),
                                 feed.textOf(0).substr(0, 9), feed.textOf(feed.now()) + "0x"}) {
    EXPECT_FALSE(feed.find(odd, again)) << odd;
  }
}

TEST(Mailbox, AnswersFromTheDrivingThreadOnly) {
  std::atomic<int> rings{0};
  Mailbox mailbox([&rings] { ++rings; });
  Mailbox::Answer good;
  Mailbox::Answer bad;
  std::thread other([&] {
    good = mailbox.call([id = std::this_thread::get_id()] { return Json(id != std::this_thread::get_id()); });
    bad = mailbox.call([]() -> Json { throw Failure(Failure::Kind::NoData, "no", "try"); });
  });
  for (int done = 0; done < 2; done += mailbox.runNext() ? 1 : 0) {
    std::this_thread::yield();
  }
  other.join();
  EXPECT_EQ(good.state, Mailbox::Answer::State::Done);
  EXPECT_EQ(good.result, true);
  EXPECT_EQ(bad.state, Mailbox::Answer::State::Failed);
  EXPECT_STREQ(bad.failure->what(), "no");
  EXPECT_EQ(rings, 2);
}

TEST(Mailbox, CallsOffWhatHasNotBegunInTime) {
  Mailbox mailbox([] {});
  EXPECT_EQ(mailbox.call([] { return Json(); }, {1ms, 1ms}).state, Mailbox::Answer::State::Busy);
  EXPECT_FALSE(mailbox.runNext());  // nobody clears codes for somebody who has left

  std::thread waiting(
      [&] { EXPECT_EQ(mailbox.call([] { return Json(); }).state, Mailbox::Answer::State::Closed); });
  while (mailbox.isEmpty()) {
    std::this_thread::yield();
  }
  mailbox.close();
  waiting.join();
  EXPECT_EQ(mailbox.call([] { return Json(); }).state, Mailbox::Answer::State::Closed);
}

TEST(WatchList, ReadsEachOnceAndKeepsWishesForAMoment) {
  WatchList list;
  WatchList::Wish first = list.add({0x0C, 0x0D});
  const WatchList::Wish second = list.add({0x05, 0x0C});
  const WatchList::Clock::time_point now = WatchList::Clock::now();
  EXPECT_EQ(list.wanted(now), (std::vector<int>{0x05, 0x0C, 0x0D}));
  first.reset();
  EXPECT_EQ(list.wanted(now + WatchList::Grace), (std::vector<int>{0x05, 0x0C, 0x0D}));
  EXPECT_EQ(list.wanted(now + WatchList::Grace + 1ms), (std::vector<int>{0x05, 0x0C}));
}

Sensor sensorOf(int uid, const std::string& label, const std::string& name) {
  Sensor sensor;
  sensor.uid = uid;
  sensor.label = label;
  sensor.name = name;
  sensor.unit = "V";
  sensor.numeric = true;
  return sensor;
}

TEST(LiveTable, KeepsStatisticsWhenPollingBeginsAnew) {
  LiveTable table;
  const std::vector<Sensor> sensors = {sensorOf(1, "14", "a"), sensorOf(2, "14", "b"),
                                       sensorOf(3, "0C", "c")};
  table.offer("7E8", sensors);
  table.add({1, "2.0", true, "2.0", "2.0", "2.0"}, 1);
  table.offer("7E8", sensors);
  const Json reading = table.add({1, "4.0", true, "4.0", "4.0", "4.0"}, 2);
  EXPECT_EQ(reading.at("key"), "14.0");
  EXPECT_EQ(reading.at("minimum"), 2.0);
  EXPECT_EQ(reading.at("average"), 3.0);
  EXPECT_EQ(table.history().at("14.0").size(), 2U);
  EXPECT_TRUE(table.add({9, "1", true, "", "", ""}, 3).is_null());
  EXPECT_EQ(table.add({3, "", true, "", "", ""}, 3).at("value"), nullptr);  // no finite number
  EXPECT_EQ(table.sensors().at(1).at("key"), "14.1");

  table.offer("7E9", sensors);  // another control unit
  EXPECT_TRUE(table.values().empty());
}

TEST(Metrics, EscapeWhatTheAdapterSays) {
  Board board;
  board.setState({{"phase", "connected"},
                  {"silence", ""},
                  {"link", "demo:\n"},
                  {"started", 1.0},
                  {"adapter", {{"name", "a\"b\\c\n\xFF"}}},
                  {"protocol", "p"}});
  board.live.offer("7E8", {sensorOf(1, "42", "x")});
  board.live.add({1, "14.10", true, "", "", ""}, 2);
  board.setDocument("codes", {{"units",
                               {{{"id", "7E8"},
                                 {"mil", true},
                                 {"confirmed", Json::array({1, 2})},
                                 {"pending", nullptr},
                                 {"permanent", Json::array()}}}}});
  const std::string text = metricsText(board, {});
  for (const char* line :
       {"velmara_link_info{link=\"demo:.\",adapter=\"a\\\"b\\\\c..\",protocol=\"p\"} 1\n",
        "velmara_value{key=\"42\",name=\"x\",unit=\"V\",ecu=\"7E8\"} 14.10\n",
        "velmara_value_time_seconds{key=\"42\"} 3.000\n", "velmara_indicator_lamp{ecu=\"7E8\"} 1\n",
        "velmara_trouble_codes{ecu=\"7E8\",kind=\"confirmed\"} 2\n"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line << text;
  }
  EXPECT_EQ(text.find("kind=\"pending\""), std::string::npos);  // not told is not none
}

TEST(Site, HasTheRoutesThatItsDescriptionTellsOf) {
  Json paths = Json::parse(findPageFile("/api/openapi.json")->text).at("paths");
  EXPECT_EQ(paths.at("/api/openapi.json").erase("get"), 1U);
  for (const Site::Route& route : Site::routes()) {
    EXPECT_EQ(paths.at(route.path).erase(route.method == "GET"s ? "get" : "post"), 1U) << route.path;
  }
  for (const auto& [path, methods] : paths.items()) {
    EXPECT_TRUE(methods.empty()) << path << ": nothing does " << methods;
  }
}

}  // namespace
