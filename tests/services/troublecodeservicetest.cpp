#include <map>

#include "powertrain/parameteridentifier.h"
#include "services/fixture.h"
#include "services/itroublecodeservice.h"

namespace {

using obd::UnitSystem;
using Codes = obd::ITroubleCodeServiceObserver::Codes;
using Sensor = std::shared_ptr<obd::SensorDescriptor>;
using Value = std::shared_ptr<obd::SensorValue>;

constexpr unsigned NoRequest = 0xFFFFFFFF;
constexpr const char* StopLine = "src\\troublecodeservice 2 Configuration query failed -> stop.";

std::string codeTexts(const Codes& codes) {
  std::string text;
  for (const auto& code : codes) {
    text += " " + code->code();
  }
  return text;
}

class Recorder : public obd::ITroubleCodeServiceObserver, public EventLines {
 public:
  std::vector<int> ids;                                    // of freeze frame events
  std::map<int, std::map<int, std::string>> frameSensors;  // by frame and PID: values with their units

 private:
  void addSensor(const char* name, bool ok, const Sensor& sensor, const Value& value) {
    EXPECT_EQ(sensor == nullptr, value == nullptr);
    add(name, ok, sensor && value ? " " + value->textualValue() : "");
    if (sensor && value) {
      EXPECT_EQ(sensor->uid(), value->uid());
    }
  }

  void onMilStatusUpdated(bool ok, MilStatus status) override {
    add("mil", ok, status == MilOn ? " on" : " off");
  }
  void onConfirmedCodesUpdated(bool ok, const Codes& all) override { add("confirmed", ok, codeTexts(all)); }
  void onPendingCodesUpdated(bool ok, const Codes& all) override { add("pending", ok, codeTexts(all)); }
  void onPermanentCodesUpdated(bool ok, const Codes& all) override { add("permanent", ok, codeTexts(all)); }
  void onMilResetUpdated(bool ok, bool cleared) override { add("reset", ok, cleared ? " cleared" : " kept"); }
  void onFreezeFrameCodeUpdated(int id, bool ok, const std::shared_ptr<obd::DtcDataModel>& code,
                                int frame) override {
    ids.push_back(id);
    add("frame " + std::to_string(frame), ok, code ? " " + code->code() : "");
  }
  void onFreezeFrameSensorUpdated(int id, bool ok, const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                                  const SensorValues& values, int frame) override {
    ids.push_back(id);
    if (ok) {
      std::string& text = frameSensors[frame][parameter->pid()];
      for (const auto& value : values) {
        text += (text.empty() ? "" : " ") + value->value;
        EXPECT_EQ(value->minimum, "");
      }
      for (const auto& sensor : parameter->sensors()) {
        text += "/" + std::to_string(static_cast<int>(sensor->unit()));
      }
    } else {
      EXPECT_TRUE(parameter == nullptr && values.empty());
    }
    add("sensor " + std::to_string(frame), ok);
  }
  void onDistanceSinceResetUpdated(bool ok, const Sensor& sensor, const Value& value) override {
    addSensor("km since reset", ok, sensor, value);
  }
  void onRuntimeSinceResetUpdated(bool ok, const Sensor& sensor, const Value& value) override {
    addSensor("min since reset", ok, sensor, value);
  }
  void onDistanceSinceFaultUpdated(bool ok, const Sensor& sensor, const Value& value) override {
    addSensor("km since fault", ok, sensor, value);
  }
  void onRuntimeSinceFaultUpdated(bool ok, const Sensor& sensor, const Value& value) override {
    addSensor("min since fault", ok, sensor, value);
  }
  void onInvalidated() override { add("invalidated"); }
  void onRefreshDone() override { add("done"); }
};

// A car whose engine unit holds so many freeze frames, each with other sensors; `more` goes into the unit. A
// second unit has codes of its own, and clears them in any case.
std::string carWithFrames(int frames, const std::string& more = {}) {
  std::string text =
      "name = Test car\nprotocol = 6\nengine = petrol\n\n[unit ECM 7E8]\nmonitors = 07 65 00\n"
      "codes = P0171 P0301 P0302 P0303 P0304 P0420 P0300 P1FFF\npending = none\n"
      "01 05 = 7B\n01 0C = 1C 20\n01 21 = 00 2A\n01 31 = 01 00\n";
  const char* const codes[] = {"P0171", "P0301", "P1FFF", "P0303", "P0420"};
  const char* const sensors[] = {"05 = 5A", "0C = 0B E4", "0D = 32", "11 = 33", "04 = 80"};
  for (int i = 0; i < frames; ++i) {
    const std::string frame = "freeze " + std::to_string(i) + " ";
    text += frame + "= " + codes[i] + "\n" + frame + sensors[i] + "\n" + frame + "0F = 46\n";
  }
  return text + more + "\n[unit TCM 7E9]\ncodes = P0700\npending = none\n01 0D = 32\n";
}

class TroubleCodeServiceTest : public ServiceTest {
 protected:
  TroubleCodeServiceTest() { makeService(); }
  ~TroubleCodeServiceTest() override { service.reset(); }

  void makeService() {
    (service = obd::TroubleCodeServiceBuilder::createTroubleCodeService())->attach(&heard);
  }

  bool open(const std::string& car) {
    const bool opened = ServiceTest::open(car);
    heard.take();
    return opened;
  }

  // Waits for the end of all refreshes, and gives what was heard.
  Texts settle() {
    EXPECT_TRUE(pumpUntil([this] { return heard.count("done") != 0; }, 60000));
    return hear(heard, 1000);  // whatever should not come
  }
  Texts walk() {
    service->refreshFreezeFrames();
    return settle();
  }

  std::shared_ptr<obd::ITroubleCodeService> service;
  Recorder heard;
};

TEST_F(TroubleCodeServiceTest, GivesNothingWithoutAConnection) {
  const auto expectNothing = [this] {
    EXPECT_FALSE(service->isConnected() || service->refreshMilStatus() || service->refreshConfirmedCodes() ||
                 service->refreshPendingCodes() || service->refreshPermanentCodes() ||
                 service->clearCodes() || service->readMilStatus() || service->readDistance(true) ||
                 service->readRuntime(false) || service->readFreezeFrameCode() || service->clearCodesNow());
    EXPECT_EQ(service->refreshFreezeFrames(), NoRequest);
    EXPECT_TRUE(service->readConfirmedCodes().empty() && service->readPendingCodes().empty() &&
                service->readPermanentCodes().empty() && service->readFreezeFrameIdentifiers().empty() &&
                service->readFreezeFrameSensors(0x0C).empty());
    EXPECT_EQ(hear(heard), Texts());
  };
  facade->settings()->setUnitSystem(UnitSystem::Imperial);
  expectNothing();
  ASSERT_TRUE(open("petrol-can11"));
  EXPECT_TRUE(service->isConnected());
  manager().close();
  expectNothing();
}

TEST_F(TroubleCodeServiceTest, TellsCodesLampAndWhatGoesWithIt) {
  ASSERT_TRUE(open("petrol-can11"));
  EXPECT_TRUE(service->refreshMilStatus());
  EXPECT_TRUE(service->refreshConfirmedCodes());
  EXPECT_TRUE(service->refreshPendingCodes());
  EXPECT_TRUE(service->refreshPermanentCodes());
  EXPECT_EQ(settle(), (Texts{"mil on", "confirmed P0171 P0420 P0301", "pending P0442",
                             "permanent P0171 P0420", "km since fault 42", "min since fault 55", "done"}));

  // Each on its own ends in its own "done".
  service->refreshConfirmedCodes();
  EXPECT_EQ(settle(), (Texts{"confirmed P0171 P0420 P0301", "done"}));
  service->refreshPendingCodes();
  service->refreshPendingCodes();  // on its way already
  EXPECT_EQ(settle(), (Texts{"pending P0442", "done"}));

  // With the lamp off the other pair comes.
  service->clearCodes();
  EXPECT_EQ(settle(), (Texts{"reset cleared", "done"}));
  service->refreshMilStatus();
  Texts events = settle();
  ASSERT_EQ(events.size(), 4U);
  EXPECT_EQ(events[0], "mil off");
  EXPECT_EQ(events[1].substr(0, 15), "km since reset ");
  EXPECT_EQ(events[2], "min since reset 420");
  service->refreshConfirmedCodes();
  service->refreshPermanentCodes();
  EXPECT_EQ(settle(), (Texts{"confirmed", "permanent P0171 P0420", "done"}));

  // A silent vehicle.
  vehicle->setIgnition(false);
  service->refreshMilStatus();
  service->refreshConfirmedCodes();
  service->clearCodes();
  service->refreshFreezeFrames();
  EXPECT_EQ(settle(),
            (Texts{"mil failed off", "confirmed failed", "reset failed kept", "frame 0 failed", "done"}));

  // Distance and time are asked for where the unit has them.
  close();
  ASSERT_TRUE(open("eight-units"));
  service->refreshMilStatus();
  EXPECT_EQ(settle(), (Texts{"mil on", "done"}));
  EXPECT_FALSE(service->readDistance(true) || service->readDistance(false) || service->readRuntime(true));
  close();
  ASSERT_TRUE(open(carWithFrames(0)));
  service->refreshMilStatus();
  EXPECT_EQ(settle(), (Texts{"mil on", "km since fault 42", "done"}));
}

TEST_F(TroubleCodeServiceTest, ReadsLongListsOfAllLinks) {
  ASSERT_TRUE(open(carWithFrames(0)));
  service->refreshConfirmedCodes();
  EXPECT_EQ(settle(), (Texts{"confirmed P0171 P0301 P0302 P0303 P0304 P0420 P0300 P1FFF", "done"}));
  const Codes codes = service->readConfirmedCodes();
  ASSERT_EQ(codes.size(), 8U);
  EXPECT_EQ(codes[6]->description(), "Random/Multiple Cylinder Misfire Detected");
  EXPECT_EQ(codes[7]->description(), "Unknown Trouble Code");
  for (const auto& [name, texts] :
       std::map<std::string, std::string>{{"kwp-fast", "confirmed P0133 P0300 P0420 P0171 P0301 P0302 P0303"},
                                          {"iso9141", "confirmed P0133 P0300"},
                                          {"petrol-can29", "confirmed P0133 P0442 P0455 P0128"}}) {
    SCOPED_TRACE(name);
    close();
    ASSERT_TRUE(open(name));
    service->refreshConfirmedCodes();
    EXPECT_EQ(settle(), (Texts{texts, "done"}));
  }
}

TEST_F(TroubleCodeServiceTest, TellsWhetherTheSelectedUnitHasCleared) {
  ASSERT_TRUE(open("petrol-can29"));
  select(0x18DAF118);  // refuses, while the other one confirms
  heard.events.clear();
  service->clearCodes();
  EXPECT_EQ(settle(), (Texts{"reset kept", "done"}));
  EXPECT_FALSE(service->clearCodesNow());
  EXPECT_EQ(service->readConfirmedCodes().size(), 2U);
  select(0x18DAF110);
  EXPECT_TRUE(service->clearCodesNow());
  EXPECT_TRUE(service->readConfirmedCodes().empty() && service->readPendingCodes().empty());
  EXPECT_EQ(codeTexts(service->readPermanentCodes()), " P0133");

  // Nobody confirms.
  close();
  ASSERT_TRUE(open(
      "name = x\nprotocol = 6\nengine = petrol\n[unit ECM 7E8]\ncodes = P0133\nclear = no\n01 0C = 00 00\n"));
  service->clearCodes();
  EXPECT_EQ(settle(), (Texts{"reset failed kept", "done"}));
  EXPECT_EQ(codeTexts(service->readConfirmedCodes()), " P0133");
}

TEST_F(TroubleCodeServiceTest, WalksAnyNumberOfFreezeFrames) {
  unsigned id = 0;
  for (const int frames : {0, 1, 2, 5}) {
    SCOPED_TRACE(frames);
    ASSERT_TRUE(open(carWithFrames(frames)));
    heard.frameSensors.clear();
    heard.ids.clear();
    commands->clear();
    EXPECT_EQ(service->refreshFreezeFrames(), id);
    EXPECT_EQ(service->refreshFreezeFrames(), id);  // joins the first
    const Texts events = settle();

    // A frame's code comes before its sensors, and frames come in order.
    Texts codes = {"frame 0 P0171", "frame 1 P0301", "frame 2 P1FFF", "frame 3 P0303", "frame 4 P0420"};
    codes.resize(static_cast<std::size_t>(frames));
    codes.push_back("frame " + std::to_string(frames) + (frames == 0 ? "" : " failed"));
    codes.push_back("done");
    std::size_t reached = 0;
    std::map<std::string, int> sensors;
    for (const std::string& event : events) {
      if (event.starts_with("sensor")) {
        ++sensors[event];
        EXPECT_LT(static_cast<std::size_t>(event[7] - '0'), reached);
      } else {
        ASSERT_LT(reached, codes.size());
        EXPECT_EQ(event, codes[reached++]);
      }
    }
    EXPECT_EQ(events.back(), "done");
    EXPECT_EQ(sensors.size(), static_cast<std::size_t>(frames));
    for (int frame = 0; frame < frames; ++frame) {
      EXPECT_EQ(sensors["sensor " + std::to_string(frame)], 2) << frame;
      EXPECT_EQ(heard.frameSensors[frame].size(), 2U) << frame;
      EXPECT_EQ(heard.frameSensors[frame].count(0x0F), 1U) << frame;
      EXPECT_EQ(timesAsked("02000" + std::to_string(frame)), 1U) << frame;
    }
    EXPECT_EQ(timesAsked("020200"), 1U);
    EXPECT_EQ(heard.ids, std::vector<int>(heard.ids.size(), static_cast<int>(id)));
    if (frames == 5) {
      EXPECT_EQ(heard.frameSensors[0][0x05].substr(0, 3), "50/");
      EXPECT_EQ(heard.frameSensors[1][0x0C].substr(0, 4), "761/");
      EXPECT_EQ(heard.frameSensors[2][0x0D].substr(0, 3), "50/");
    }

    // The lists of sensors are known from now on, until the next connection.
    commands->clear();
    EXPECT_EQ(service->refreshFreezeFrames(), ++id);
    EXPECT_EQ(settle(), events);
    EXPECT_EQ(timesAsked("020200"), 1U);
    EXPECT_EQ(timesAsked("020000"), 0U);
    ++id;
    close();
  }
}

TEST_F(TroubleCodeServiceTest, AFrameMayHaveNoSensorsOrNoListOfThem) {
  ASSERT_TRUE(open(carWithFrames(5, "answer 02 00 02 = silence\n")));
  const auto sortedWalk = [this] {
    Texts events = walk();
    EXPECT_EQ(events.back(), "done");
    std::sort(events.begin(), events.end());
    return events;
  };
  const Texts events = {"done",     "frame 0 P0171", "frame 1 P0301", "frame 2 P1FFF",
                        "sensor 0", "sensor 0",      "sensor 1",      "sensor 1"};
  EXPECT_EQ(sortedWalk(), events);
  EXPECT_EQ(log.count(StopLine), 1);
  // The failure is not remembered.
  EXPECT_EQ(sortedWalk(), events);
  EXPECT_EQ(log.count(StopLine), 2);
  EXPECT_EQ(timesAsked("020002"), 2U);
  close();

  ASSERT_TRUE(open(carWithFrames(3,
                                 "answer 02 0F 00 = silence\n"
                                 "answer 02 00 01 = 42 00 01 00 00 00 01\n"
                                 "answer 02 20 01 = 42 20 01 00 00 00 00\n"
                                 // 0x0D, 0x0F, and with 0x9F one that nobody knows
                                 "answer 02 00 02 = 42 00 02 40 0A 00 01\n"
                                 "answer 02 20 02 = 42 20 02 00 00 00 01\n"
                                 "answer 02 40 02 = 42 40 02 00 00 00 01\n"
                                 "answer 02 60 02 = 42 60 02 00 00 00 01\n"
                                 "answer 02 80 02 = 42 80 02 00 00 00 02\n")));
  EXPECT_EQ(sortedWalk(), (Texts{"done", "frame 0 P0171", "frame 1 P0301", "frame 2 P1FFF", "frame 3 failed",
                                 "sensor 0", "sensor 0 failed", "sensor 2", "sensor 2"}));
  EXPECT_EQ(log.count("src\\troublecodeservice 3 Failed to create mode 0x02 sensor 159"), 1);
  EXPECT_EQ(log.count("src\\troublecodeservice 3 Failed to create mode 0x02 sensor 2"), 0);
  EXPECT_EQ(log.count("src\\troublecodeservice 2 NO sensors for the frame found"), 0);
}

TEST_F(TroubleCodeServiceTest, ReadsTheListsAnewAfterClearing) {
  // The engine unit keeps its frames, but the other one clears.
  ASSERT_TRUE(open(carWithFrames(2, "clear = no\n")));
  const Texts first = walk();
  commands->clear();
  service->clearCodes();
  EXPECT_EQ(settle(), (Texts{"reset kept", "done"}));
  EXPECT_EQ(walk(), first);
  EXPECT_TRUE(timesAsked("020000") == 1 && timesAsked("020001") == 1);
  service->clearCodesNow();
  EXPECT_EQ(walk(), first);
  EXPECT_EQ(timesAsked("020000"), 2U);

  // Frames that are gone.
  close();
  ASSERT_TRUE(open(carWithFrames(2)));
  service->clearCodes();
  service->refreshFreezeFrames();
  EXPECT_EQ(settle(), (Texts{"reset cleared", "frame 0", "done"}));
}

TEST_F(TroubleCodeServiceTest, ALostLinkEndsTheWalkInSilence) {
  for (const char* moment : {"frame 0 P0171", "sensor 0", "frame 1 P0301", "sensor 3"}) {
    SCOPED_TRACE(moment);
    makeService();
    ASSERT_TRUE(open(carWithFrames(5)));
    service->refreshFreezeFrames();
    ASSERT_TRUE(pumpUntil([&] { return heard.count(moment) != 0; }, 60000));
    heard.take();
    lose();
    EXPECT_EQ(hear(heard), Texts());

    // The next connection starts from the beginning. What was dropped stays counted, so there is no "done".
    ASSERT_TRUE(open(carWithFrames(5)));
    commands->clear();
    service->refreshFreezeFrames();
    EXPECT_TRUE(pumpUntil([this] { return heard.count("frame 5 failed") != 0; }, 60000));
    pumpFor(1000);
    EXPECT_EQ(timesAsked("020000"), 1U);
    EXPECT_TRUE(heard.count("sensor 0") == 2 && heard.count("sensor 4") == 2 && heard.count("done") == 0);
    close();
  }
}

TEST_F(TroubleCodeServiceTest, AnotherUnitOrUnitSystemVoidsWhatDependsOnIt) {
  ASSERT_TRUE(open(carWithFrames(2) + "freeze 0 = P0700\nfreeze 0 0D = 32\n"));
  const Texts events = walk();
  const std::string metric = heard.frameSensors[0][0x05];
  heard.frameSensors.clear();
  facade->settings()->setUnitSystem(UnitSystem::Imperial);
  EXPECT_EQ(heard.take(), (Texts{"invalidated"}));
  commands->clear();
  EXPECT_EQ(walk(), events);
  EXPECT_EQ(heard.frameSensors[0][0x05].substr(0, 4), "122/");
  EXPECT_NE(heard.frameSensors[0][0x05], metric);
  EXPECT_EQ(timesAsked("020000"), 0U);  // the unit's own list holds

  service->refreshFreezeFrames();
  service->refreshConfirmedCodes();
  service->refreshMilStatus();
  select(0x7E9);
  EXPECT_EQ(hear(heard), (Texts{"invalidated"}));
  service->refreshConfirmedCodes();
  service->refreshFreezeFrames();  // no "done" after runs that were called off
  EXPECT_EQ(hear(heard), (Texts{"confirmed P0700", "frame 0 P0700", "sensor 0", "frame 1"}));

  // No unit at all: queries succeed, and there is nothing to tell.
  makeService();
  select(0x99);
  heard.take();
  service->refreshConfirmedCodes();
  service->refreshMilStatus();
  service->refreshFreezeFrames();
  EXPECT_EQ(settle(), (Texts{"confirmed", "mil off", "frame 0", "done"}));
  EXPECT_TRUE(service->readConfirmedCodes().empty() && service->readFreezeFrameIdentifiers().empty());
  EXPECT_FALSE(service->readDistance(true) || service->clearCodesNow());
}

TEST_F(TroubleCodeServiceTest, ReadsAtOnce) {
  ASSERT_TRUE(open("petrol-can11"));
  EXPECT_EQ(codeTexts(service->readConfirmedCodes()), " P0171 P0420 P0301");
  EXPECT_EQ(codeTexts(service->readPendingCodes()), " P0442");
  EXPECT_EQ(codeTexts(service->readPermanentCodes()), " P0171 P0420");
  ASSERT_NE(service->readMilStatus(), nullptr);
  EXPECT_EQ(*service->readMilStatus(), obd::ITroubleCodeServiceObserver::MilOn);
  const auto distance = service->readDistance(true);
  ASSERT_NE(distance, nullptr);
  EXPECT_EQ(distance->value->value, "42");
  EXPECT_EQ(distance->uid, obd::Pid2Uid(0x21));
  EXPECT_TRUE(distance->extended);
  EXPECT_EQ(distance->unit, MeasurementUnit::Kilometer);
  EXPECT_EQ(service->readRuntime(true)->value->value, "55");
  EXPECT_EQ(service->readRuntime(false)->uid, obd::Pid2Uid(0x4E));
  EXPECT_EQ(service->readDistance(false)->uid, obd::Pid2Uid(0x31));

  ASSERT_NE(service->readFreezeFrameCode(), nullptr);
  EXPECT_EQ(service->readFreezeFrameCode()->code(), "P0171");
  EXPECT_EQ(service->readFreezeFrameIdentifiers(),
            (std::vector<int>{0x03, 0x04, 0x05, 0x06, 0x07, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0x11, 0x42}));
  const auto rpm = service->readFreezeFrameSensors(0x0C);
  ASSERT_EQ(rpm.size(), 1U);
  EXPECT_FALSE(rpm[0]->extended);
  EXPECT_EQ(rpm[0]->value->value, "1800");
  for (const int none : {0x20, 0x33, 240, -1, 100000}) {
    EXPECT_TRUE(service->readFreezeFrameSensors(none).empty()) << none;
  }

  EXPECT_TRUE(service->clearCodesNow());
  EXPECT_EQ(*service->readMilStatus(), obd::ITroubleCodeServiceObserver::MilOff);
  EXPECT_EQ(service->readFreezeFrameCode(), nullptr);
  EXPECT_TRUE(service->readFreezeFrameIdentifiers().empty());
  vehicle->setIgnition(false);
  EXPECT_TRUE(service->readConfirmedCodes().empty());
  EXPECT_FALSE(service->readMilStatus() || service->readDistance(false) || service->clearCodesNow());
  EXPECT_EQ(hear(heard), Texts());
}

TEST_F(TroubleCodeServiceTest, AnObserverMayDropTheServiceOrStartAnewFromWithin) {
  ASSERT_TRUE(open(carWithFrames(5)));
  int walks = 0;
  heard.onEvent = [&] {
    if (heard.events.back() == "done" && ++walks < 3) {
      service->refreshFreezeFrames();
    }
  };
  service->refreshFreezeFrames();
  EXPECT_TRUE(pumpUntil([&] { return walks == 3; }, 60000));
  EXPECT_EQ(heard.count("frame 4 P0420"), 3);
  for (const char* moment : {"frame 0 P0171", "sensor 1", "done"}) {
    SCOPED_TRACE(moment);
    heard.take();
    heard.onEvent = [&] {
      if (service && heard.events.back() == moment) {
        service.reset();
      }
    };
    if (!service) {
      makeService();
    }
    service->refreshFreezeFrames();
    EXPECT_TRUE(pumpUntil([&] { return !service; }, 60000));
    const std::size_t events = heard.events.size();
    pumpFor(3000);
    EXPECT_EQ(heard.events.size(), events);
    heard.onEvent = nullptr;
  }
}

}  // namespace
