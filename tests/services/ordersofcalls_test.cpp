// What a program that embeds the library can rely on, whatever the order in which it calls. docs/embedding.md
// has the same as a table, with one row for each test and in the same order.

#include <simulator/elmadapter.h>

#include <set>

#include "services/fixture.h"

namespace {

using obd::IMonitorService;
using obd::UnitSystem;

constexpr unsigned Engine = 0x7E8, Gearbox = 0x7E9;
constexpr int Rpm = 0x0C, Speed = 0x0D;

constexpr const char* Car = R"(name = Test car
protocol = 6
engine = petrol
[unit ECM 7E8]
monitors = 07 65 04
01 1C = 07
01 0C = 0B E4
01 0D = 32
codes = P0171 P0420
pending = none
permanent = P0171
freeze 0 = P0171
freeze 0 05 = 5A
freeze 0 0C = 0B E4
freeze 1 = P0420
freeze 1 0D = 32
answer 06 01 = 46 01 01 0B 00 64 00 00 01 00
answer 06 21 = 46 21 80 24 00 00 00 00 00 00
answer 08 01 = 48 01
09 02 = "1VM20SAL6R1000417"
09 04 = "VSIM-ECM-1"
[unit TCM 7E9]
monitors = 05 01 00
01 0C = 1C 20
codes = P0700
pending = P0705
permanent = none
freeze 0 = P0700
freeze 0 0D = 21
answer 06 21 = 46 21 80 01 00 05 00 00 00 04
answer 08 01 = refuse 22
09 02 = "1VM20SAL6U1000417"
)";

class OrdersOfCalls : public AllServicesTest {
 protected:
  OrdersOfCalls() { makeAll(); }

  void makeAll() {
    makeServices();
    connection.reset();
    (connection = obd::ConnectionServiceBuilder::createConnectionService())->attach(&ofConnection);
  }
  void makeFacade() {
    facade = obd::ObdVelmaraBuilder::createObdVelmara(1, 2, 3, std::make_shared<MemorySettings>());
    makeAll();
  }
  void forgetAll() {
    forget();
    ofConnection.onEvent = nullptr;
    ofConnection.forget();
  }
  bool open(const std::string& car, unsigned milliseconds = 5) {
    latency = milliseconds;
    const bool opened = AllServicesTest::open(car);
    forgetAll();
    return opened;
  }

  // What is told up to the end of a batch, and whatever should not come behind it.
  static Texts settle(Recorder& heard) {
    EXPECT_TRUE(pumpUntil([&] { return heard.count("done") != 0; }, 20000));
    return hear(heard, 700);
  }
  // A refresh, and what it tells of each unit.
  struct Batch {
    const char* name;
    Recorder& heard;
    std::function<void()> refresh;
    Texts engine;
    Texts gearbox;

    // Whether it ends with this event, as the end belongs to the last result.
    bool endsWith(const std::string& event) const {
      return engine.size() > 1 && event == *(engine.end() - 2);
    }
  };

  Recorder ofConnection;
  std::shared_ptr<obd::IConnectionService> connection;
  const Batch walk = {
      "walk",
      ofCodes,
      [this] { codes->refreshFreezeFrames(); },
      {"frame 0 P0171", "sensor 0", "sensor 0", "frame 1 P0420", "sensor 1", "frame 2 failed", "done"},
      {"frame 0 P0700", "sensor 0", "frame 1", "done"}};
  const std::vector<Batch> batches = {
      {"codes",
       ofCodes,
       [this] {
         EXPECT_TRUE(codes->refreshConfirmedCodes() && codes->refreshPendingCodes() &&
                     codes->refreshPermanentCodes());
       },
       {"confirmed P0171 P0420", "pending", "permanent P0171", "done"},
       {"confirmed P0700", "pending P0705", "permanent", "done"}},
      {"monitors",
       ofMonitors,
       [this] { EXPECT_TRUE(monitors->refresh(IMonitorService::OnBoardMonitors)); },
       {"monitor 1 1P0.100[0.000..0.256]", "monitor 33 128?0[0..0]", "done"},
       {"monitor 33 128F5[0..4]", "done"}},
      {"summary",
       ofSummary,
       [this] { EXPECT_TRUE(summary->refresh()); },
       {"codes 2 0", "codes 2 0", "monitors 6 1", "frame", "done"},
       {"codes 1 0", "codes 1 1", "monitors 3 0", "frame", "done"}},
      {"information",
       ofEcus,
       [this] { EXPECT_TRUE(ecus->refresh(obd::IEcuService::VehicleInformation)); },
       {"vin 1VM20SAL6R1000417 2024", "ids VSIM-ECM-1", "done"},
       {"vin 1VM20SAL6U1000417 0", "done"}},
      {"routine",
       ofRoutines,
       [this] { EXPECT_TRUE(routines->startTest(1)); },
       {"test 1:0 Acknowledged", "done"},
       {"test 1:1 Conditions not correct", "done"}},
      {"oxygen", ofOxygen, [this] { oxygen->refresh(); }, {"status complete", "done"}, {"status", "done"}},
      walk};

  void refreshBatches() {
    for (const Batch& batch : batches) {
      batch.refresh();
    }
    sensors->refresh({Rpm});
  }
  void expectWholeBatches() {
    for (const Batch& batch : batches) {
      batch.refresh();
      EXPECT_EQ(settle(batch.heard), batch.engine) << batch.name;
    }
  }
  // Selects the other unit at each moment of a refresh, to and fro in between. `again`: and refreshes.
  void selectAtEveryMoment(bool again);
  // Everything refreshes when the connection ends like this.
  void endAtEveryMoment(const std::function<void()>& end);
};

TEST_F(OrdersOfCalls, RefreshWhileOneIsOnItsWay) {
  ASSERT_TRUE(open(Car, 100));
  for (const Batch& batch : batches) {
    for (const std::uint32_t moment : {0U, 30U, 90U}) {
      SCOPED_TRACE(batch.name + std::to_string(moment));
      batch.refresh();
      pumpFor(moment);
      batch.refresh();
      EXPECT_EQ(settle(batch.heard), batch.engine);
    }
  }
  sensors->refresh({Rpm});
  pumpFor(30);
  sensors->refresh({Rpm, Rpm});
  const std::size_t updates = hear(ofSensors, 1000).size();
  EXPECT_TRUE(updates >= 8 && updates <= 10) << updates;
}

TEST_F(OrdersOfCalls, RefreshFromWithinAnObserver) {
  ASSERT_TRUE(open(Car));
  for (const Batch& batch : batches) {
    for (const std::string& moment : batch.engine) {
      SCOPED_TRACE(batch.name + moment);
      int rounds = 0;
      batch.heard.when(moment, [&] {
        if (++rounds < 3) {
          batch.refresh();
        }
      });
      batch.refresh();
      EXPECT_TRUE(pumpUntil([&] { return rounds >= 3; }, 20000));
      const Texts all = settle(batch.heard);
      EXPECT_EQ(all.back(), "done");
      EXPECT_EQ(std::count(all.begin(), all.end(), "done"), moment == "done" ? 3 : 1);
      for (const std::string& event : batch.engine) {
        EXPECT_NE(std::count(all.begin(), all.end(), event), 0) << event;
      }
      batch.heard.onEvent = nullptr;
    }
  }
}

void OrdersOfCalls::selectAtEveryMoment(bool again) {
  ASSERT_TRUE(open(Car, 100));
  for (const Batch& batch : batches) {
    const bool tellsVoid = &batch.heard != &ofSummary;
    for (const std::uint32_t moment :
         {0U, 20U, 30U, 40U, 50U, 60U, 70U, 80U, 90U, 100U, 110U, 210U, 320U, 430U}) {
      for (const bool toAndFro : {false, true}) {
        SCOPED_TRACE(batch.name + std::to_string(moment) + (toAndFro ? " to and fro" : ""));
        select(Engine);
        forgetAll();
        batch.refresh();
        pumpFor(moment);
        const Texts before = batch.heard.take();
        EXPECT_TRUE(before ==
                    Texts(batch.engine.begin(), batch.engine.begin() + static_cast<long>(before.size())));
        if (again) {
          batch.heard.when("void", [&batch] { batch.refresh(); });  // outlives this function
        }
        for (const unsigned unit : toAndFro ? std::vector{Gearbox, Engine, Gearbox} : std::vector{Gearbox}) {
          EXPECT_EQ(batch.heard.take(), Texts());
          select(unit);
          EXPECT_EQ(batch.heard.take(), tellsVoid ? Texts{"void"} : Texts());  // at once
          if (again && !tellsVoid) {
            batch.refresh();
          }
          pumpFor(unit == Gearbox ? 0 : 20);
        }
        if (!again) {
          EXPECT_EQ(hear(batch.heard, 500), Texts());
          batch.refresh();
        }
        EXPECT_EQ(settle(batch.heard), batch.gearbox);
      }
    }
  }
}

TEST_F(OrdersOfCalls, SelectAnotherUnitInMidRefresh) {
  selectAtEveryMoment(false);
  forgetAll();
  sensors->refresh({Rpm});
  pumpFor(150);
  EXPECT_FALSE(ofSensors.take().empty());
  select(Engine);
  EXPECT_EQ(hear(ofSensors, 1000), Texts{"void"});
}

TEST_F(OrdersOfCalls, SelectAnotherUnitAndRefreshInOnInvalidated) {
  selectAtEveryMoment(true);
  // Polling, too: one loop, and no value of the other unit.
  for (std::uint32_t moment = 20; moment <= 110; moment += 10) {
    select(Engine);
    forgetAll();
    sensors->refresh({Rpm});
    pumpFor(moment);
    ofSensors.when("void", [this] {
      ofSensors.take();
      sensors->refresh({Rpm});
    });
    select(Gearbox);
    const Texts heard = hear(ofSensors, 1000);
    EXPECT_TRUE(heard.size() >= 7 && heard.size() <= 10) << heard.size();
    EXPECT_EQ(heard, Texts(heard.size(), "pid 12 1800"));
  }
}

TEST_F(OrdersOfCalls, ChangeTheUnitSystemInMidRefresh) {
  ASSERT_TRUE(open(Car, 50));
  for (std::uint32_t moment = 0; moment <= 500; moment += 25) {
    SCOPED_TRACE(moment);
    facade->settings()->setUnitSystem(UnitSystem::Metric);
    pumpFor(500);
    forgetAll();
    batches[0].refresh();
    walk.refresh();
    sensors->refresh({Speed});
    pumpFor(moment);
    const Texts before = ofCodes.take();
    ofCodes.when("void", [this] {
      ofCodes.frameSensors.clear();
      walk.refresh();
    });
    facade->settings()->setUnitSystem(UnitSystem::Imperial);
    EXPECT_EQ(ofSensors.take().back(), "void");
    Texts told = settle(ofCodes);
    EXPECT_EQ(told.front(), "void");
    EXPECT_TRUE(told.back() == "done" && std::count(told.begin(), told.end(), "done") == 1);
    for (const auto& [frame, pid, value] :
         {std::tuple(0, 0x05, "122/"), {0, Rpm, "761/"}, {1, Speed, "31/"}}) {
      // The walk that was under way may have come behind this frame by then.
      const std::string once = value;
      EXPECT_TRUE(ofCodes.frameSensors[frame][pid] == once || ofCodes.frameSensors[frame][pid] == once + once)
          << ofCodes.frameSensors[frame][pid];
    }
    told.insert(told.begin(), before.begin(), before.end());
    for (const char* list : {"confirmed P0171 P0420", "pending", "permanent P0171"}) {
      EXPECT_EQ(std::count(told.begin(), told.end(), list), 1);  // does not depend on units
    }
    // The lists of sensors hold, and polling goes on.
    EXPECT_EQ(timesAsked("020000"), moment == 0 ? 1U : 0U);
    const Texts speeds = ofSensors.take();
    EXPECT_GT(speeds.size(), 3U);
    EXPECT_EQ(speeds, Texts(speeds.size(), "pid 13 31"));
    sensors->reset();
  }
}

void OrdersOfCalls::endAtEveryMoment(const std::function<void()>& end) {
  for (const std::uint32_t moment : {0U, 20U, 50U, 80U}) {
    SCOPED_TRACE(moment);
    makeAll();
    ASSERT_TRUE(open(Car, 30));
    refreshBatches();
    pumpFor(moment);
    forgetAll();
    end();
    EXPECT_EQ(hearAll(1000), "");
    const Texts ends = ofConnection.take();
    EXPECT_TRUE(!ends.empty() && ends == Texts(ends.size(), "disconnected"));

    // What was dropped stays counted in the same services, but for the summary. New ones count anew.
    for (const bool made : {false, true}) {
      if (made) {
        makeAll();
      } else {
        ASSERT_TRUE(open(Car));
      }
      for (const Batch& batch : batches) {
        SCOPED_TRACE(batch.name);
        Texts expected = batch.engine;
        if (!made && &batch.heard != &ofSummary) {
          expected.pop_back();
        }
        batch.refresh();
        EXPECT_EQ(hear(batch.heard, 1000), expected);
      }
      EXPECT_EQ(hear(ofSensors, 100), Texts());  // polling does not come back by itself
    }
    close();
  }
}

TEST_F(OrdersOfCalls, CloseInMidRefresh) {
  endAtEveryMoment([this] { close(); });
}

TEST_F(OrdersOfCalls, LoseTheLinkInMidRefresh) {
  endAtEveryMoment([this] { lose(); });
}

TEST_F(OrdersOfCalls, OpenFromWithinOnDisconnected) {
  for (const bool lost : {false, true}) {
    SCOPED_TRACE(lost);
    makeAll();
    ASSERT_TRUE(open(Car, 30));
    refreshBatches();
    pumpFor(50);
    forgetAll();
    simulator::AdapterOptions options;
    options.latency = 5;
    const auto next = simulator::makeBus(vehicle, options);
    ofConnection.onEvent = [&] {
      if (ofConnection.events.back() == "disconnected") {
        EXPECT_TRUE(manager().openBus(next, obd::VehicleProtocol::Automatic));
      } else {
        EXPECT_EQ(ofCodes.take(), Texts{"void"});
        makeServices();
        batches[0].refresh();
      }
    };
    if (lost) {
      bus->close();
    } else {
      manager().close();
    }
    EXPECT_EQ(settle(ofCodes), batches[0].engine);
    EXPECT_EQ(ofConnection.take(), (Texts{"disconnected", "connected"}));
    ofConnection.onEvent = nullptr;
    close();
  }
}

TEST_F(OrdersOfCalls, CloseFromWithinAnObserver) {
  for (const Batch& batch : batches) {
    for (const std::string& moment : batch.engine) {
      SCOPED_TRACE(batch.name + moment);
      makeAll();
      ASSERT_TRUE(open(Car));
      batch.heard.when(moment, [&] {
        batch.heard.take();
        manager().close();
      });
      batch.refresh();
      sensors->refresh({Rpm});
      EXPECT_TRUE(pumpUntil([&] { return !manager().isConnected(); }, 10000));
      ofSensors.take();
      EXPECT_EQ(hear(batch.heard, 1000), batch.endsWith(moment) ? Texts{"done"} : Texts());
      EXPECT_EQ(ofSensors.take(), Texts());
      EXPECT_EQ(ofConnection.take(), Texts{"disconnected"});
    }
  }
  // In reply to the connection itself. Each call is told, so a program closes once.
  int closes = 0;
  ofConnection.onEvent = [&] {
    if (++closes < 3) {
      manager().close();
    }
  };
  latency = 5;
  ASSERT_TRUE(manager().openBus(bus, obd::VehicleProtocol::Automatic));
  EXPECT_EQ(hear(ofConnection, 20000), (Texts{"connected", "disconnected", "disconnected"}));
}

TEST_F(OrdersOfCalls, RefreshWithAFullQueue) {
  constexpr std::size_t Entries = 63;
  ASSERT_TRUE(open(Car, 100));
  EXPECT_FALSE(codes->readConfirmedCodes().empty());
  pumpFor(500);  // a worker may begin with a keep-alive, which takes a place, too
  forgetAll();
  console->sendRequest("0902", 1000);
  EXPECT_TRUE(pumpUntil([this] { return timesAsked("0902") == 1; }));  // the worker has it
  for (std::size_t i = 0; i <= Entries; ++i) {
    console->sendRequest("0902", 1000);
  }
  refreshBatches();  // says that there is a connection, and no more
  const std::uint32_t start = hostos::CTime::milliseconds();
  EXPECT_TRUE(codes->readConfirmedCodes().empty() && sensors->readSensors(Rpm).empty());
  EXPECT_EQ(hostos::CTime::milliseconds(), start);

  EXPECT_TRUE(pumpUntil([&] { return ofConsole.events.size() == 1 + Entries; }, 30000));
  pumpFor(1000);
  EXPECT_EQ(ofConsole.take().size(), 1 + Entries);
  EXPECT_EQ(hearAll(0), "");
  expectWholeBatches();
  sensors->setGrouping(true);
  sensors->refresh({Rpm, Speed});
  const std::set<std::string> together = {"pid 12 761", "pid 13 50"};
  const Texts values = hear(ofSensors, 1000);
  EXPECT_EQ(std::set<std::string>(values.begin(), values.end()), together);
}

TEST_F(OrdersOfCalls, OnInvalidatedAtAConnect) {
  for (const Batch& batch : batches) {
    SCOPED_TRACE(batch.name);
    forgetAll();
    batch.heard.when("void", [&] { batch.refresh(); });  // of no use yet
    ofSensors.when("void", [this] { sensors->refresh({Speed}); });
    ofConnection.when("connected", [&] {
      EXPECT_EQ(batch.heard.take(), &batch.heard != &ofSummary ? Texts{"void"} : Texts());
      EXPECT_EQ(ofSensors.take(), Texts{"void"});
      batch.refresh();
      sensors->refresh({Rpm});
    });
    ASSERT_TRUE(ServiceTest::open(Car));
    EXPECT_EQ(settle(batch.heard), batch.engine);
    const Texts heard = ofSensors.take();
    EXPECT_GT(heard.size(), 10U);
    EXPECT_EQ(heard, Texts(heard.size(), "pid 12 761"));
    close();
  }
}

TEST_F(OrdersOfCalls, MakeAServiceWhileConnected) {
  ASSERT_TRUE(open(Car));
  makeAll();
  EXPECT_EQ(hearAll(1000), "");
  const auto offers = [this] { return ecus->isParameterSupported(sensors->parameters().front()); };
  EXPECT_FALSE(offers());  // the one thing that a service learns only with the next unit
  expectWholeBatches();
  select(Engine);
  EXPECT_TRUE(offers());
  // From within `onConnected`, too.
  close();
  forgetAll();
  ofConnection.when("connected", [this] {
    makeServices();
    ofCodes.take();
    batches[0].refresh();
  });
  ASSERT_TRUE(ServiceTest::open(Car));
  EXPECT_EQ(settle(ofCodes), batches[0].engine);
}

TEST_F(OrdersOfCalls, ReleaseFacadeAndServicesInAnyOrder) {
  const std::function<void()> releases[] = {
      [this] { codes.reset(); },      [this] { monitors.reset(); }, [this] { summary.reset(); },
      [this] { ecus.reset(); },       [this] { routines.reset(); }, [this] { sensors.reset(); },
      [this] { connection.reset(); }, [this] { console.reset(); },  [this] { oxygen.reset(); }};
  for (std::size_t place = 0; place <= std::size(releases); place += 3) {
    for (const bool closedBefore : {false, true}) {
      SCOPED_TRACE(place);
      ASSERT_TRUE(open(Car, 30));
      refreshBatches();
      pumpFor(40);
      for (std::size_t i = 0; i <= std::size(releases); ++i) {
        if (i == place) {
          if (closedBefore) {
            manager().close();
          }
          facade.reset();
          forgetAll();
        }
        if (i < std::size(releases)) {
          releases[i]();
          pumpFor(2);
        }
      }
      EXPECT_EQ(hearAll(500), "");
      makeFacade();
    }
  }
}

TEST_F(OrdersOfCalls, CallAServiceWhoseFacadeIsGone) {
  const auto isTold = [this] { return facade->connectionNotifier()->isConnected(); };
  const std::function<void()> ends[] = {[] {}, [this] { manager().close(); },
                                        [&] {  // hooks of a connection wait for the front end
                                          manager().close();
                                          manager().openBus(bus, obd::VehicleProtocol::Automatic);
                                          while (!isTold()) {
                                            hostos::CTime::msleep(10);
                                          }
                                        }};
  for (const auto& end : ends) {
    ASSERT_TRUE(open(Car));
    refreshAll();
    sensors->refresh({Rpm});
    pumpFor(20);
    end();
    facade.reset();
    forgetAll();
    expectNothing();
    EXPECT_FALSE(connection->isConnected() || connection->adapter());
    EXPECT_EQ(connection->obdStandard(), "");
    EXPECT_EQ(hear(ofSensors, 0), Texts());
    EXPECT_EQ(obd::TroubleCodeServiceBuilder::createTroubleCodeService(), nullptr);
    makeFacade();
  }
}

TEST_F(OrdersOfCalls, ReadForms) {
  ASSERT_TRUE(open(Car, 100));
  const auto now = [] { return hostos::CTime::milliseconds(); };
  std::uint32_t start = now();
  EXPECT_EQ(text(codes->readConfirmedCodes()), " P0171 P0420");
  EXPECT_TRUE(now() - start >= 100 && now() - start < 150) << now() - start;
  // Behind what is queued already, as far as its time allows. What comes too late is nobody's.
  for (const auto& [ahead, gives] : {std::pair(5, " P0171 P0420"), {20, ""}}) {
    for (int i = 0; i < ahead; ++i) {
      console->sendRequest("0902", 1000);
    }
    commands->clear();
    start = now();
    EXPECT_EQ(text(codes->readConfirmedCodes()), gives);
    EXPECT_TRUE(ahead == 20 ? now() - start == 1550 : now() - start >= 500 && now() - start < 1000)
        << now() - start;
    EXPECT_EQ(hear(ofConsole, 3000).size(), static_cast<std::size_t>(ahead));
    EXPECT_EQ(timesAsked("03"), ahead == 20 ? 0U : 1U);
  }
  // From within an observer, nobody else is called meanwhile.
  std::string read;
  ofCodes.onEvent = [&] {
    ofCodes.onEvent = nullptr;
    const std::size_t before = ofCodes.events.size();
    read = text(codes->readPermanentCodes());
    EXPECT_EQ(ofCodes.events.size(), before);
  };
  batches[0].refresh();
  EXPECT_EQ(settle(ofCodes), batches[0].engine);
  EXPECT_EQ(read, " P0171");
  // A link that goes ends the wait.
  console->sendRequest("0902", 1000);
  bus->close();
  start = now();
  EXPECT_TRUE(codes->readConfirmedCodes().empty() && monitors->readOnboardMonitors().empty());
  EXPECT_LT(now() - start, 200U);
}

TEST_F(OrdersOfCalls, ChangeObserversFromWithinAnObserver) {
  ASSERT_TRUE(open(Car));
  Recorder leaving, next, added;
  codes->attach(&leaving);
  codes->attach(&next);
  leaving.onEvent = [&] {
    codes->detach(&leaving);
    codes->attach(&added);
  };
  batches[0].refresh();
  EXPECT_EQ(settle(ofCodes), batches[0].engine);
  const Texts& all = batches[0].engine;
  EXPECT_EQ(leaving.take(), Texts{all[0]});
  EXPECT_EQ(next.take(), Texts(all.begin() + 1, all.end()));  // the one behind it misses this event
  EXPECT_EQ(added.take(), all);
  // Whoever is taken out by another before its turn is not called any more.
  ofCodes.onEvent = [&] { codes->detach(&next); };
  batches[0].refresh();
  EXPECT_EQ(settle(ofCodes), all);
  EXPECT_EQ(text(next.take()) + text(leaving.take()), "");
  EXPECT_EQ(added.take(), all);
}

TEST_F(OrdersOfCalls, DropServicesFromWithinAnObserver) {
  ASSERT_TRUE(open(Car));
  for (Recorder* const heard : recorders) {
    heard->when("void", [this] { makeServices(); });
  }
  select(Engine);
  facade->settings()->setUnitSystem(UnitSystem::Imperial);
  facade->settings()->setUnitSystem(UnitSystem::Metric);
  facade->settings()->setVehicleWeight(1000);
  EXPECT_EQ(hearAll(0), " void void void void") << "of the first service that hears of each change";
  forget();
  for (const Batch& batch : batches) {
    for (const std::string& moment : batch.engine) {
      SCOPED_TRACE(batch.name + moment);
      batch.heard.when(moment, [&] {
        batch.heard.onEvent = nullptr;
        makeServices();  // in place of the old ones
        batch.heard.take();
        batch.refresh();
      });
      batch.refresh();
      EXPECT_TRUE(pumpUntil([&] { return !batch.heard.onEvent; }, 10000));
      if (batch.endsWith(moment)) {
        EXPECT_EQ(batch.heard.take(), Texts{"done"});  // of the old one
      }
      EXPECT_EQ(settle(batch.heard), batch.engine);
    }
  }
  ofConnection.when("disconnected", [this] { makeAll(); });
  manager().close();
  EXPECT_EQ(hear(ofConnection), Texts{"disconnected"});
}

TEST_F(OrdersOfCalls, AFrontEndThatDoesNotPump) {
  ASSERT_TRUE(open(Car));
  Texts expected;
  for (int i = 0; i < 20; ++i) {
    EXPECT_FALSE(ecus->readVin().empty());
    EXPECT_FALSE(codes->readConfirmedCodes().empty());
    expected.insert(expected.end(), {">>0902", "<<7E8", ">>03", "<<7E8"});
  }
  manager().close();
  ASSERT_TRUE(manager().openBus(bus, obd::VehicleProtocol::Automatic));
  while (!facade->connectionNotifier()->isConnected()) {
    hostos::CTime::msleep(10);
  }
  obd::Dispatcher::getInstance().dispatch();
  ASSERT_GT(ofConsole.traffic.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_TRUE(ofConsole.traffic[i].starts_with(expected[i])) << i << ": " << ofConsole.traffic[i];
  }
  EXPECT_EQ(ofConnection.take(), (Texts{"disconnected", "connected"}));
  pumpFor(500);
  forgetAll();
  // 63 results wait. One more is lost, and its service takes it for being on its way ever after.
  for (int i = 0; i < 63; ++i) {
    console->sendRequest("0902", 1000);
  }
  const auto waitUnpumped = [this](const std::string& begin, std::size_t times) {
    while (timesAsked(begin) < times) {
      hostos::CTime::msleep(5);
    }
    hostos::CTime::msleep(300);
  };
  waitUnpumped("0902", 63);
  codes->refreshConfirmedCodes();
  waitUnpumped("03", 1);
  EXPECT_EQ(log.count("src\\updatequeue 3 Update queue full"), 1);
  EXPECT_EQ(hear(ofConsole, 1000).size(), 63U);
  EXPECT_TRUE(codes->refreshConfirmedCodes());
  EXPECT_EQ(hear(ofCodes, 1000), Texts());
  makeServices();
  batches[0].refresh();
  EXPECT_EQ(settle(ofCodes), batches[0].engine);
}

// The unit keeps its frames, and the other one clears.
constexpr const char* KeepingCar = R"(name = Test car
protocol = 6
engine = petrol
[unit ECM 7E8]
01 0D = 32
codes = P0171 P0420
clear = no
freeze 0 = P0171
freeze 0 05 = 5A
freeze 1 = P0420
freeze 1 0D = 32
freeze 1 0F = 46
[unit TCM 7E9]
01 0D = 32
codes = P0700
)";
// Second 0 and second 1 of the drive have another code, and the second one more sensor.
constexpr const char* ChangingCar = R"(name = Test car
protocol = 6
engine = petrol
[unit ECM 7E8]
01 0D = 32
codes = P0171
answer 02 02 00 = 42 02 00 01 {runtime + 113 : 1}
answer 02 00 00 = 42 00 00 {runtime * 16 + 72 : 1} 00 00 00
answer 02 05 00 = 42 05 00 5A
answer 02 04 00 = 42 04 00 80
)";

TEST_F(OrdersOfCalls, ClearCodesInMidWalk) {
  std::shared_ptr<obd::ITroubleCodeService> second;
  const std::pair<const char*, std::function<void()>> ways[] = {
      {"clearCodes", [&] { codes->clearCodes(); }},
      {"clearCodesNow", [&] { codes->clearCodesNow(); }},
      {"another service", [&] { second->clearCodesNow(); }},
      {"another service, in passing", [&] { second->clearCodes(); }}};
  for (const auto& [name, clear] : ways) {
    ASSERT_TRUE(open(KeepingCar, 30));
    second = obd::TroubleCodeServiceBuilder::createTroubleCodeService();
    walk.refresh();
    const Texts whole = settle(ofCodes);
    EXPECT_EQ(whole.size(), 7U);
    for (std::uint32_t moment = 0; moment <= 300; moment += 15) {
      SCOPED_TRACE(name + std::to_string(moment));
      commands->clear();
      walk.refresh();
      pumpFor(moment);
      clear();
      EXPECT_TRUE(pumpUntil([&] { return timesAsked("04") == 1 && ofCodes.count("done") != 0; }, 20000));
      Texts told = hear(ofCodes, 500);
      EXPECT_EQ(told.back(), "done");
      std::erase_if(told, [](auto& event) { return event == "done" || event == "reset kept"; });
      EXPECT_LE(told.size(), whole.size() - 1);
      // Whatever the walk under way has come to, the next one is whole, and no list is older than the
      // clearing.
      walk.refresh();
      EXPECT_EQ(settle(ofCodes), whole);
      const Texts all = commands->all();
      const auto cleared = std::find(all.begin(), all.end(), "04");
      for (const char* list : {"020000", "020001"}) {
        EXPECT_EQ(std::count(cleared, all.end(), list), 1) << list;
      }
    }
    second.reset();
    close();
  }
  // Another tester on the car.
  ASSERT_TRUE(open(Car));
  walk.refresh();
  EXPECT_EQ(settle(ofCodes), walk.engine);
  simulator::ElmAdapter tester(vehicle, {});
  tester.linkUp();
  const std::string request = "04\r";
  std::vector<unsigned char> reply;
  tester.receive(reinterpret_cast<const unsigned char*>(request.data()), request.size());
  tester.read(reply, 1000);
  walk.refresh();
  EXPECT_EQ(settle(ofCodes), (Texts{"frame 0", "done"}));
  close();
  for (std::uint32_t moment = 0; moment <= 300; moment += 15) {
    SCOPED_TRACE(moment);
    ASSERT_TRUE(open(ChangingCar, 30));
    vehicle->holdDrive(0);
    walk.refresh();
    pumpFor(moment);
    vehicle->holdDrive(1000);
    settle(ofCodes);
    ofCodes.frameSensors.clear();
    walk.refresh();
    EXPECT_EQ(settle(ofCodes), (Texts{"frame 0 P0172", "sensor 0", "sensor 0", "frame 1 failed", "done"}));
    EXPECT_EQ(ofCodes.frameSensors[0].count(0x04), 1U);
    close();
  }
}

TEST_F(OrdersOfCalls, WalkWithACodeInEveryFrame) {
  std::string car = "name = x\nprotocol = 6\nengine = petrol\n[unit ECM 7E8]\n01 0D = 32\n";
  for (int frame = 0; frame <= 255; ++frame) {
    car += "freeze " + std::to_string(frame) + " = P0171\n";
  }
  ASSERT_TRUE(open(car));
  for (const std::size_t round : {1U, 2U}) {
    walk.refresh();
    EXPECT_TRUE(pumpUntil([this] { return ofCodes.count("done") != 0; }, 60000));
    const Texts told = hear(ofCodes, 1000);
    EXPECT_EQ(told.size(), 257U);
    EXPECT_EQ(told.front() + told[255] + told.back(), "frame 0 P0171frame 255 P0171done");
    EXPECT_EQ(timesAsked("020200"), round);
    EXPECT_EQ(timesAsked("0202FF"), round);
  }
}

TEST_F(OrdersOfCalls, ReadFormsAskByTheListOfService09) {
  const std::string unit =
      "name = x\nprotocol = 6\nengine = petrol\n[unit ECM 7E8]\n01 0D = 32\n09 02 = \"1VM20SAL6R1000417\"\n";
  for (const bool hasList : {true, false}) {
    ASSERT_TRUE(open(unit + (hasList ? "" : "answer 09 00 = silence\n")));
    EXPECT_EQ(ecus->readVin(), "1VM20SAL6R1000417");
    EXPECT_TRUE(ecus->readCvns().empty() && ecus->readCalibrationIds().empty());
    EXPECT_EQ(asked("09"), hasList ? (Texts{"0902"}) : (Texts{"0902", "0906", "0904"}));
    EXPECT_EQ(ecus->isVinSupported(), hasList);
    EXPECT_EQ(ecus->refresh(obd::IEcuService::VehicleInformation), hasList);
    close();
  }
}

}  // namespace
