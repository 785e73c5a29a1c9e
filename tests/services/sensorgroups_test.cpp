// Live values asked for in groups: the same values as one by one, from whatever a vehicle makes of it.

#include <random>
#include <set>

#include "powertrain/parameterfactory.h"
#include "services/fixture.h"
#include "services/groupplanner.h"
#include "services/sensorgroup.h"

namespace {

using obd::GroupPlanner;
using obd::PidLength;
using obd::SensorGrouping;
using Pids = std::vector<int>;

std::string car(const std::string& unit, const std::string& more = {}) {
  return "name = Car\nprotocol = 6\nengine = petrol\n[unit ECM 7E8]\nmonitors = 07 65 04\n" + unit +
         "01 04 = 40\n01 05 = 7B\n01 06 = 83\n01 0B = 30\n01 0C = 1A F8\n01 0D = 32\n01 0E = 90\n01 0F = 46\n"
         "01 10 = 04 B0\n01 11 = 55\n01 1F = 02 10\n01 2F = 99\n01 33 = 64\n01 34 = 80 00 80 00\n01 42 = 36 "
         "B0\n"
         "01 44 = 80 00\n01 45 = 20\n01 49 = 30\n01 5E = 00 40\n" +
         more;
}

class SensorGroups : public ServiceTest {
 protected:
  ~SensorGroups() override { sensors.reset(); }

  void start(const std::string& text, bool grouping = true, unsigned unit = 0) {
    ASSERT_TRUE(open(text));
    if (unit != 0) {
      select(unit);
    }
    makeSensors(grouping);
    commands->clear();
  }
  void makeSensors(bool grouping) {
    sensors = obd::SensorServiceBuilder::createSensorService();
    sensors->attach(&heard);
    sensors->setGrouping(grouping);
  }
  /// What is heard of these in time, the events sorted, each once.
  std::set<std::string> poll(const Pids& pids, std::uint32_t time = 3000) {
    heard.take();
    sensors->refresh(pids);
    pumpFor(time);
    const Texts events = heard.take();
    return {events.begin(), events.end()};
  }
  std::map<std::string, long> counts() {
    std::map<std::string, long> counts;
    for (const std::string& event : heard.take()) {
      ++counts[event.substr(0, event.find(' ', 4))];
    }
    return counts;
  }

  std::shared_ptr<obd::ISensorService> sensors;
  Recorder heard;
};

TEST_F(SensorGroups, AreAskedForOnlyWhereWished) {
  start(car(""), false);
  EXPECT_EQ(sensors->grouping(), SensorGrouping::Off);
  const std::set<std::string> alone = poll({0x0C, 0x0D, 0x05});
  EXPECT_EQ(std::ranges::max(asked("01"), {}, &std::string::size).size(), 4U) << "one PID each";

  sensors->reset();
  sensors->setGrouping(true);
  commands->clear();
  EXPECT_EQ(poll({0x0C, 0x0D, 0x05}, 3000), alone);
  EXPECT_EQ(sensors->grouping(), SensorGrouping::On);
  // All three, 33 times a second.
  const Texts requests = asked("01");
  EXPECT_NEAR(static_cast<double>(requests.size()), 100, 3);
  EXPECT_EQ(std::ranges::count(requests, "010C0D05"), static_cast<long>(requests.size()));

  sensors->setGrouping(false);
  pumpFor(100);
  commands->clear();
  EXPECT_EQ(poll({}), alone) << "goes on one by one";
  EXPECT_EQ(timesAsked("010C0D05"), 0U);
}

TEST_F(SensorGroups, AreNothingForOnePidOrBeforeCan) {
  start(car(""));
  EXPECT_EQ(poll({0x0C}).size(), 1U);
  EXPECT_NEAR(static_cast<double>(timesAsked("010C")), 100, 3) << "no idle time";
  EXPECT_EQ(timesAsked("01"), timesAsked("010C"));
  close();
  start("kwp-fast");
  EXPECT_EQ(sensors->grouping(), SensorGrouping::Unavailable);
  EXPECT_FALSE(poll({0x0C, 0x0D}).empty());
  EXPECT_EQ(std::ranges::max(asked("01"), {}, &std::string::size).size(), 4U);
}

// Every way of a unit to answer gives the values of single requests, and no other.
TEST_F(SensorGroups, GiveTheValuesOfSingleRequests) {
  const std::pair<const char*, SensorGrouping> cases[] = {{"", SensorGrouping::On},
                                                          {"groups = reverse\n", SensorGrouping::On},
                                                          {"groups = first\n", SensorGrouping::Declined},
                                                          {"groups = refuse 12\n", SensorGrouping::Declined},
                                                          {"groups = silence\n", SensorGrouping::Declined},
                                                          {"groups = cut\n", SensorGrouping::Declined},
                                                          {"groups = pad 55 55\n", SensorGrouping::Declined},
                                                          {"groups = pad 00\n", SensorGrouping::Declined},
                                                          {"groups = omit 0D\n", SensorGrouping::On},
                                                          {"groups = long 0D\n", SensorGrouping::On}};
  const Pids pids = {0x0C, 0x0D, 0x04, 0x11, 0x45, 0x05, 0x06};
  std::set<std::string> alone;
  for (const auto& [way, grouping] : cases) {
    SCOPED_TRACE(way);
    start(car(way));
    if (alone.empty()) {
      sensors->setGrouping(false);
      alone = poll(pids);
      EXPECT_EQ(alone.size(), pids.size());
      sensors->reset();
      sensors->setGrouping(true);
    }
    // Each is read once, by itself where a group does not tell it.
    heard.take();
    sensors->refreshOnce(pids);
    pumpFor(8000);
    const std::map<std::string, long> once = counts();
    EXPECT_EQ(once.size(), pids.size());
    EXPECT_TRUE(std::ranges::all_of(once, [](const auto& entry) { return entry.second == 1; }));

    EXPECT_EQ(poll(pids, 10000), alone);
    EXPECT_EQ(sensors->grouping(), grouping);
    commands->clear();
    pumpFor(1000);
    Texts groups = asked("01");
    std::erase_if(groups, [](const std::string& request) { return request.size() <= 4; });
    EXPECT_EQ(!groups.empty(), grouping == SensorGrouping::On);
    for (const char* const pid : {"0C", "04", "11", "45"}) {
      const auto has = [pid](const std::string& request) { return request.find(pid) != request.npos; };
      EXPECT_TRUE(groups.empty() || std::ranges::count_if(groups, has) > 15) << pid;
    }
    sensors.reset();
    close();
  }
}

TEST_F(SensorGroups, ComeFasterForWhatChangesFast) {
  start(car(""));
  const Pids fast = {0x04, 0x0B, 0x0C, 0x0D, 0x0E};
  Pids all = {0x05, 0x0F, 0x1F, 0x2F, 0x33};
  all.insert(all.end(), fast.begin(), fast.end());
  poll(all);
  pumpFor(3000);
  const std::map<std::string, long> count = counts();
  EXPECT_EQ(count.size(), all.size());
  for (const auto& [pid, times] : count) {
    const bool isFast = std::ranges::find(fast, std::stoi(pid.substr(4))) != fast.end();
    EXPECT_NEAR(static_cast<double>(times), isFast ? 100 : 20, 3) << pid;
  }
}

TEST_F(SensorGroups, ServeCalculatedValues) {
  start(car(""));
  const Pids pids = {0x0C, obd::ParameterIdentifier::FuelConsumption, obd::ParameterIdentifier::BoostPressure,
                     obd::ParameterIdentifier::BatteryVoltage};
  poll(pids);
  const std::set<std::string> grouped = poll(pids, 5000);
  EXPECT_TRUE(
      std::ranges::any_of(grouped, [](const auto& event) { return event.starts_with("pid 240 7."); }));
  heard.take();
  commands->clear();
  pumpFor(5000);
  const std::map<std::string, long> count = counts();
  EXPECT_EQ(count.size(), pids.size());
  for (const auto& [pid, times] : count) {
    EXPECT_NEAR(static_cast<double>(times), pid == "pid 244" ? 1 : 160, 4) << pid;
  }
  const Texts requests = asked("01");
  EXPECT_EQ(std::ranges::count_if(requests, [](const auto& text) { return text.size() == 4; }), 1)
      << "nothing is asked for twice; the air outside is by itself, every five seconds";

  sensors->reset();
  sensors->setGrouping(false);
  poll(pids);
  // The voltage drifts, and is there far more often.
  std::set<std::string> alone = poll(pids, 5000);
  alone.insert(grouped.begin(), grouped.end());
  EXPECT_EQ(std::erase_if(alone, [](const auto& event) { return !event.starts_with("pid 244"); }), 3U);
}

// Whoever calls what in the middle: every loop ends, and another begins where wanted.
TEST_F(SensorGroups, EndInEveryOrderOfCalls) {
  const Pids pids = {0x0C, 0x0D, 0x05, obd::ParameterIdentifier::BoostPressure};
  start(car("", "[unit TCM 7E9]\n01 0C = 1A F8\n01 0D = 32\n"));
  const std::tuple<const char*, std::uint32_t, std::function<void()>> ends[] = {
      {"stopped", 1000, [this] { sensors->refreshOnce({}); }},
      {"reset", 0, [this] { sensors->reset(); }},
      {"settings", 1000, [this] { facade->settings()->setVehicleWeight(1300); }},
      {"another unit", 1000, [this] { select(0x7E9); }}};
  for (const std::uint32_t delay : {0U, 7U, 31U, 400U}) {
    for (const auto& [name, patience, end] : ends) {
      EXPECT_EQ(poll(pids, 500).size(), pids.size());
      pumpFor(delay);
      end();
      pumpFor(patience);
      EXPECT_EQ(poll({}, 1000).size(), 0U) << name << delay;
    }
    EXPECT_EQ(poll(pids, 500).size(), 2U);
    select(0x7E8);
  }
  // From within an observer, wherever in a round that is.
  for (const int last : {50, 51, 52}) {
    for (const bool grouping : {false, true}) {
      makeSensors(grouping);
      poll(pids, 500);
      int calls = 0;
      heard.onEvent = [&] {
        if (++calls == 5) {
          sensors->refresh({0x04, 0x0C});
        } else if (calls == last) {
          sensors.reset();
        }
      };
      pumpFor(3000);
      EXPECT_EQ(calls, last) << "nothing after the service is gone";
      EXPECT_GT(heard.count("pid 4 25.1"), 0);
      heard.onEvent = nullptr;
    }
  }
  // What waits behind another service's request is not asked any more.
  makeSensors(true);
  const auto other = obd::SensorServiceBuilder::createSensorService();
  other->refresh({0x0F});
  for (std::uint32_t moment = 0; moment < 40; moment += 5) {
    poll({0x0C, 0x0D}, 500 + moment);
    sensors->reset();
    commands->clear();
    pumpFor(200);
    EXPECT_EQ(timesAsked("01"), timesAsked("010F")) << moment;
  }
}

TEST_F(SensorGroups, GoOnBesideValuesThatFail) {
  start(
      "name = Bare\nprotocol = 6\n[unit ECM 7E8]\nmonitors = 07 65 04\n01 0B = 30\n01 0C = 1A F8\n"
      "01 0D = 32\n01 10 = 04 B0\n01 11 = 55\nanswer 01 11 = silence\ngroups = omit 11\n");
  std::vector<int> all = {0x0C, 0x0D, 0x11};
  for (const auto& parameter : sensors->parameters()) {
    if (parameter->pid() >= 0xF0) {
      all.push_back(static_cast<int>(parameter->pid()));
    }
  }
  poll(all);
  heard.take();
  pumpFor(3000);
  const auto told = counts();
  EXPECT_GT(told.at("pid 12"), 30);
  EXPECT_FALSE(told.contains("pid 17"));
}

// A unit that answers groups in a way of its own, as the planner sees it.
struct Unit {
  std::set<unsigned char> spoilers{};  // make it refuse a group
  std::set<unsigned char> missing{};   // are left out of groups
  std::set<unsigned char> odd{};       // have another length
  std::set<unsigned char> dead{};      // do not answer at all
  unsigned noise = 0;                  // every so many requests fail
};

struct Outcome {
  std::map<unsigned char, int> reads;
  std::size_t places = 0;  // in the last 100 requests
  bool declined = false;
};

Outcome plan(const std::vector<unsigned char>& pids, const Unit& unit, unsigned requests = 600) {
  GroupPlanner planner;
  for (const unsigned char pid : pids) {
    planner.add(pid);
  }
  Outcome outcome;
  for (unsigned i = 1; i <= requests && !planner.declined(); ++i) {
    const auto next = planner.next();
    const std::vector<PidLength> asked(next.begin(), next.end());
    EXPECT_TRUE(!asked.empty() && asked.size() <= obd::MaxGroupSize);
    const bool lost = unit.noise != 0 && i % unit.noise == 0;
    std::vector<unsigned char> read;
    for (const PidLength& one : asked) {
      const bool left = asked.size() > 1 && unit.missing.contains(one.pid);
      if (!lost && !left && !unit.dead.contains(one.pid)) {
        read.push_back(one.pid);
      }
      EXPECT_FALSE(asked.size() > 1 && one.proven && unit.odd.contains(one.pid)) << "known to be odd";
      if (asked.size() > 1 && (unit.spoilers.contains(one.pid) || unit.odd.contains(one.pid))) {
        read.clear();
        break;
      }
    }
    for (const unsigned char pid : read) {
      ++outcome.reads[pid];
    }
    outcome.places += i > requests - 100 ? asked.size() : 0;
    if (asked.size() == 1) {
      planner.reportSingle(asked[0].pid, !read.empty(), unit.odd.contains(asked[0].pid) ? 0 : 2);
    } else {
      // Not proven, all have to be there.
      if (read.size() != asked.size() && !std::ranges::all_of(asked, &PidLength::proven)) {
        read.clear();
      }
      planner.reportGroup(asked, read);
    }
  }
  outcome.declined = planner.declined();
  return outcome;
}

TEST(GroupPlanner, FindsWhoSpoilsGroups) {
  const std::vector<unsigned char> six = {0x0C, 0x0D, 0x05, 0x10, 0x11, 0x04};
  for (const unsigned char spoiler : six) {
    const Outcome outcome = plan(six, {.spoilers = {spoiler}});
    EXPECT_FALSE(outcome.declined) << int{spoiler};
    EXPECT_EQ(outcome.reads.size(), six.size());
    EXPECT_GT(outcome.places, 75 * (six.size() - 1)) << "the others are still asked for together";
  }
  EXPECT_TRUE(plan({0x0C, 0x0D}, {.spoilers = {0x0C}}).declined);
  EXPECT_TRUE(plan(six, {.spoilers = {six.begin(), six.end()}}).declined);
  EXPECT_TRUE(plan(six, {.odd = {six.begin(), six.end()}}).declined);
}

// However many of them have to be asked for alone, those that group well come in every other request.
TEST(GroupPlanner, GoesOnWithGroupsBesideOthers) {
  const std::vector<unsigned char> all = {0x04, 0x0C, 0x0D, 0x11, 0x0B, 0x0E,
                                          0x10, 0x43, 0x05, 0x0F, 0x2F, 0x42};
  for (std::size_t alone = 1; alone <= 8; ++alone) {
    const std::set<unsigned char> some(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(alone));
    for (const Unit& unit : {Unit{.missing = some}, Unit{.odd = some}, Unit{.dead = some}}) {
      const Outcome outcome = plan(all, unit);
      EXPECT_TRUE(!outcome.declined || alone > 3) << alone;
      for (const unsigned char pid : outcome.declined ? std::vector<unsigned char>() : all) {
        const bool isAlone = some.contains(pid);
        const auto found = outcome.reads.find(pid);
        const int reads = found == outcome.reads.end() ? 0 : found->second;
        EXPECT_GE(reads, unit.dead.contains(pid) ? 0 : isAlone ? 25 : 60) << alone << ": " << int{pid};
      }
    }
  }
}

TEST(GroupPlanner, NeverStarvesAnybody) {
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    std::set<unsigned char> pids;
    while (pids.size() < 2 + random() % 30) {
      pids.insert(static_cast<unsigned char>(3 + random() % 0x60));
    }
    const std::vector<unsigned char> all(pids.begin(), pids.end());
    Unit unit;
    for (const unsigned char pid : all) {
      std::set<unsigned char>* const kinds[] = {&unit.spoilers, &unit.missing, &unit.odd, &unit.dead};
      if (const auto kind = random() % 12; kind < std::size(kinds)) {
        kinds[kind]->insert(pid);
      }
    }
    unit.noise = random() % 2 == 0 ? 0 : 10 + static_cast<unsigned>(random() % 20);
    const Outcome outcome = plan(all, unit, 1500);
    if (!outcome.declined) {
      for (const unsigned char pid : all) {
        EXPECT_TRUE(unit.dead.contains(pid) || outcome.reads.contains(pid)) << round << ": " << int{pid};
      }
    }
  }
}

TEST(GroupPlanner, GivesEachBlockItsTurn) {
  const std::set<GroupPlanner::Pids> blocks = {
      {0x0C, 0x0D, 0x10, 0x11}, {0x04, 0x0B, 0x0E, 0x43}, {0x05, 0x0F, 0x2F, 0x42}};
  GroupPlanner planner;
  planner.keepTogether(blocks);
  std::map<GroupPlanner::Pids, int> turns;
  for (int i = 0; i < 90; ++i) {
    const auto next = planner.next();
    const std::vector<PidLength> asked(next.begin(), next.end());
    std::vector<unsigned char> pids;
    std::ranges::transform(asked, std::back_inserter(pids), &PidLength::pid);
    planner.reportGroup(asked, pids);
    std::ranges::sort(pids);
    for (const GroupPlanner::Pids& block : blocks) {
      turns[block] += std::ranges::includes(pids, block) ? 1 : 0;
    }
  }
  for (const GroupPlanner::Pids& block : blocks) {
    EXPECT_GE(turns[block], 25);
  }
}

// For every pair of PIDs, and for groups at random, a group gives what single requests give.
TEST(SensorGroup, DecodesAsSingleRequestsDo) {
  std::mt19937 random(11);
  const auto ecu = std::make_shared<fake::Ecu>(0x7E8);
  fake::Proxy proxy;
  proxy.add(ecu);
  std::map<unsigned char, std::string> data;  // with the PID in front
  for (unsigned pid = 3; pid < 0x80; ++pid) {
    const auto id = static_cast<unsigned char>(pid);
    const bool isMade = obd::ParameterFactory().createParameter(obd::ParameterIdentifier(id).id()) != nullptr;
    for (std::size_t bytes = 1; isMade && bytes < 14; ++bytes) {
      fake::Bytes reply = {0x41, id};
      std::generate_n(std::back_inserter(reply), bytes, [&] { return static_cast<unsigned char>(random()); });
      if (obd::ownLength(id, reply) != 0) {
        data[id] = fake::hex({reply.begin() + 1, reply.end()});
      }
    }
  }
  ASSERT_GT(data.size(), 100U);

  const auto texts = [&](const std::shared_ptr<obd::PowertrainParameter>& parameter) {
    std::string text;
    for (const auto& value : parameter->values(*ecu, obd::UnitSystem::Imperial)) {
      text += std::to_string(value->uid()) + "=" + value->textualValue() + " ";
    }
    return text;
  };
  const auto compare = [&](const std::vector<unsigned char>& pids) {
    std::string request = "01";
    std::string reply = "41";
    obd::SensorGroup group(ecu->id());
    std::string alone;
    for (const unsigned char pid : pids) {
      const std::string& own = data.at(pid);
      const auto id = obd::ParameterIdentifier(pid).id();
      request += " " + fake::hex({pid});
      reply += " " + own;
      group.ask({pid, (own.size() + 1) / 3 - 1, true}, obd::ParameterFactory().createParameter(id));
      const auto single = obd::ParameterFactory().createParameter(id);
      single->setResponseData(ecu, fake::bytes("41 " + own));
      alone += texts(single);
    }
    proxy.reply(request, 0x7E8, reply);
    EXPECT_EQ(group.update(std::shared_ptr<obd::IObdProxy>(&proxy, [](auto*) {})), obd::IQuery::Updated);
    EXPECT_EQ(group.told(), pids);
    std::string together;
    for (const unsigned char pid : pids) {
      together += texts(group.parameter(pid));
    }
    EXPECT_EQ(together, alone) << request << " -> " << reply;
  };
  std::vector<unsigned char> all;
  for (const auto& [pid, bytes] : data) {
    all.push_back(pid);
    for (const auto& [other, otherBytes] : data) {
      if (other != pid) {
        compare({pid, other});
      }
    }
  }
  for (int i = 0; i < 2000; ++i) {
    std::shuffle(all.begin(), all.end(), random);
    compare({all.begin(), all.begin() + 3 + static_cast<std::ptrdiff_t>(random() % 4)});
  }
}

}  // namespace
