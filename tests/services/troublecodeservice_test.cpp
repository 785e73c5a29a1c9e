#include "powertrain/parameteridentifier.h"
#include "services/fixture.h"

namespace {

constexpr const char* CodesOfFrames[] = {"P0171", "P0301", "P1FFF", "P0303", "P0420"};
constexpr const char* StopLine = "src\\troublecodeservice 2 Configuration query failed -> stop.";

// A car whose engine unit holds so many freeze frames, each with other sensors; `more` goes into the unit. A
// second unit has codes of its own, and clears them in any case.
std::string carWithFrames(int frames, const std::string& more = {}) {
  std::string text =
      "name = Test car\nprotocol = 6\nengine = petrol\n\n[unit ECM 7E8]\nmonitors = 07 65 00\n"
      "codes = P0171 P0301 P0302 P0303 P0304 P0420 P0300 P1FFF\npending = none\n"
      "01 05 = 7B\n01 0C = 1C 20\n01 21 = 00 2A\n01 31 = 01 00\n";
  const char* const sensors[] = {"05 = 5A", "0C = 0B E4", "0D = 32", "11 = 33", "04 = 80"};
  for (int i = 0; i < frames; ++i) {
    const std::string frame = "freeze " + std::to_string(i) + " ";
    text += frame + "= " + CodesOfFrames[i] + "\n" + frame + sensors[i] + "\n" + frame + "0F = 46\n";
  }
  return text + more + "\n[unit TCM 7E9]\ncodes = P0700\npending = none\n01 0D = 32\n";
}

class TroubleCodeServiceTest : public AllServicesTest {
 protected:
  // Waits for the end of all refreshes, and gives what was heard.
  Texts settle() {
    EXPECT_TRUE(pumpUntil([this] { return ofCodes.count("done") != 0; }, 60000));
    return hear(ofCodes, 1000);  // whatever should not come
  }
  Texts walk() {
    codes->refreshFreezeFrames();
    return settle();
  }
};

TEST_F(TroubleCodeServiceTest, TellsWhatCameOfTheSelectedUnit) {
  for (const bool refuses : {true, false}) {
    SCOPED_TRACE(refuses);
    ASSERT_TRUE(open(refuses ? "odd/refusals" : "odd/silences"));
    const auto reply = [this] {
      return std::to_string(codes->lastReply().kind) + "/" + std::to_string(codes->lastReply().nack);
    };
    Texts replies;
    ofCodes.onEvent = [&] { replies.push_back(reply()); };
    EXPECT_TRUE(codes->refreshMilStatus() && codes->refreshConfirmedCodes() && codes->refreshPendingCodes() &&
                codes->refreshPermanentCodes());
    codes->refreshFreezeFrames();
    settle();
    ASSERT_GE(replies.size(), 5U);
    replies.resize(5);
    const std::string none = refuses ? "2/34" : "0/0";
    EXPECT_EQ(replies, (Texts{"1/0", none, none, none, none}));
    EXPECT_TRUE(codes->readConfirmedCodes().empty());
    EXPECT_EQ(reply(), none);
    select(0x7E9);
    EXPECT_FALSE(codes->readConfirmedCodes().empty());
    EXPECT_EQ(reply(), "1/0");
    close();
    forget();
  }
}

TEST_F(TroubleCodeServiceTest, TellsCodesLampAndWhatGoesWithIt) {
  ASSERT_TRUE(open("petrol-can11"));
  EXPECT_TRUE(codes->refreshMilStatus() && codes->refreshConfirmedCodes() && codes->refreshPendingCodes() &&
              codes->refreshPermanentCodes());
  EXPECT_EQ(settle(), (Texts{"mil on", "confirmed P0171 P0420 P0301", "pending P0442",
                             "permanent P0171 P0420", "km since fault 42", "min since fault 55", "done"}));
  // On its own, too, a query ends in its own "done".
  codes->refreshPendingCodes();
  codes->refreshPendingCodes();  // on its way already
  EXPECT_EQ(settle(), (Texts{"pending P0442", "done"}));
  // With the lamp off the other pair comes.
  codes->clearCodes();
  EXPECT_EQ(settle(), (Texts{"reset cleared", "done"}));
  codes->refreshMilStatus();
  Texts events = settle();
  ASSERT_EQ(events.size(), 4U);
  EXPECT_EQ(events[0], "mil off");
  EXPECT_TRUE(events[1].starts_with("km since reset "));
  EXPECT_EQ(events[2], "min since reset 420");
  codes->refreshConfirmedCodes();
  codes->refreshPermanentCodes();
  EXPECT_EQ(settle(), (Texts{"confirmed", "permanent P0171 P0420", "done"}));
  // A silent vehicle.
  vehicle->setIgnition(false);
  codes->refreshMilStatus();
  codes->refreshConfirmedCodes();
  codes->clearCodes();
  codes->refreshFreezeFrames();
  EXPECT_EQ(settle(),
            (Texts{"mil failed off", "confirmed failed", "reset failed kept", "frame 0 failed", "done"}));
  // Distance and time are asked for where the unit has them.
  close();
  ASSERT_TRUE(open("eight-units"));
  codes->refreshMilStatus();
  EXPECT_EQ(settle(), (Texts{"mil on", "done"}));
  EXPECT_FALSE(codes->readDistance(true) || codes->readDistance(false) || codes->readRuntime(true));
  close();
  ASSERT_TRUE(open(carWithFrames(0, "01 4D = 00 37\n")));
  codes->refreshMilStatus();
  EXPECT_EQ(settle(), (Texts{"mil on", "km since fault 42", "min since fault 55", "done"}));
}

TEST_F(TroubleCodeServiceTest, TellsWhetherTheSelectedUnitHasCleared) {
  ASSERT_TRUE(open("petrol-can29"));
  select(0x18DAF118);  // refuses, while the other one confirms
  ofCodes.take();
  codes->clearCodes();
  EXPECT_EQ(settle(), (Texts{"reset kept", "done"}));
  EXPECT_FALSE(codes->clearCodesNow());
  EXPECT_EQ(codes->readConfirmedCodes().size(), 2U);
  select(0x18DAF110);
  EXPECT_TRUE(codes->clearCodesNow() && codes->readConfirmedCodes().empty());
  EXPECT_EQ(text(codes->readPermanentCodes()), " P0133");
  // Nobody confirms.
  close();
  ASSERT_TRUE(open("name = x\nprotocol = 6\n[unit ECM 7E8]\ncodes = P0133\nclear = no\n01 0C = 00 00\n"));
  codes->clearCodes();
  EXPECT_EQ(settle(), (Texts{"reset failed kept", "done"}));
}

TEST_F(TroubleCodeServiceTest, WalksAnyNumberOfFreezeFrames) {
  unsigned id = 0;
  for (const int frames : {0, 1, 5}) {
    SCOPED_TRACE(frames);
    ASSERT_TRUE(open(carWithFrames(frames)));
    ofCodes.frameSensors.clear();
    ofCodes.ids.clear();
    EXPECT_EQ(codes->refreshFreezeFrames(), id);
    EXPECT_EQ(codes->refreshFreezeFrames(), id);  // joins the first
    Texts expected;
    for (int i = 0; i < frames; ++i) {
      const std::string number = std::to_string(i);
      const std::string sensor = "sensor " + number;
      expected.insert(expected.end(), {"frame " + number + " " + CodesOfFrames[i], sensor, sensor});
    }
    expected.insert(expected.end(),
                    {"frame " + std::to_string(frames) + (frames == 0 ? "" : " failed"), "done"});
    EXPECT_EQ(settle(), expected);
    for (int frame = 0; frame < frames; ++frame) {
      EXPECT_EQ(ofCodes.frameSensors[frame].size() + ofCodes.frameSensors[frame].count(0x0F), 3U) << frame;
      EXPECT_EQ(timesAsked("02000" + std::to_string(frame)), 1U) << frame;
    }
    EXPECT_EQ(timesAsked("020200"), 1U);
    EXPECT_EQ(ofCodes.ids, std::vector<int>(ofCodes.ids.size(), static_cast<int>(id)));
    if (frames == 5) {
      EXPECT_EQ(ofCodes.frameSensors[0][0x05] + ofCodes.frameSensors[1][0x0C] + ofCodes.frameSensors[2][0x0D],
                "50/761/50/");
    }
    // The lists of sensors are known from now on, until the next connection.
    commands->clear();
    EXPECT_EQ(codes->refreshFreezeFrames(), ++id);
    EXPECT_EQ(settle(), expected);
    EXPECT_EQ(timesAsked("020200"), 1U);
    EXPECT_EQ(timesAsked("020000"), 0U);
    ++id;
    close();
  }
}

TEST_F(TroubleCodeServiceTest, AFrameMayHaveNoSensorsOrNoListOfThem) {
  ASSERT_TRUE(open(carWithFrames(5, "answer 02 00 02 = silence\n")));
  for (const std::size_t walk : {1U, 2U}) {  // the failure is not remembered
    EXPECT_EQ(text(this->walk()),
              " frame 0 P0171 sensor 0 sensor 0 frame 1 P0301 sensor 1 sensor 1"
              " frame 2 P1FFF done");
    EXPECT_EQ(log.count(StopLine), static_cast<long>(walk));
    EXPECT_EQ(timesAsked("020002"), walk);
  }
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
  EXPECT_EQ(text(walk()),
            " frame 0 P0171 sensor 0 sensor 0 failed frame 1 P0301 frame 2 P1FFF sensor 2 sensor 2"
            " frame 3 failed done");
  EXPECT_EQ(log.count("src\\troublecodeservice 3 Failed to create mode 0x02 sensor 159"), 1);
  EXPECT_EQ(log.count("src\\troublecodeservice 3 Failed to create mode 0x02 sensor 2"), 0);
  EXPECT_EQ(log.count("src\\troublecodeservice 2 NO sensors for the frame found"), 0);
}

TEST_F(TroubleCodeServiceTest, WithoutAUnitQueriesSucceedWithNothingToTell) {
  ASSERT_TRUE(open(carWithFrames(2)));
  select(0x99);
  ofCodes.take();
  codes->refreshConfirmedCodes();
  codes->refreshMilStatus();
  codes->refreshFreezeFrames();
  EXPECT_EQ(settle(), (Texts{"confirmed", "mil off", "frame 0", "done"}));
  EXPECT_TRUE(codes->readConfirmedCodes().empty() && codes->readFreezeFrameIdentifiers().empty());
  EXPECT_FALSE(codes->readDistance(true) || codes->clearCodesNow());
}

TEST_F(TroubleCodeServiceTest, ReadsAtOnce) {
  ASSERT_TRUE(open("petrol-can11"));
  EXPECT_EQ(
      text(codes->readConfirmedCodes()) + text(codes->readPendingCodes()) + text(codes->readPermanentCodes()),
      " P0171 P0420 P0301 P0442 P0171 P0420");
  EXPECT_EQ(*codes->readMilStatus(), obd::ITroubleCodeServiceObserver::MilOn);
  const auto distance = codes->readDistance(true);
  ASSERT_NE(distance, nullptr);
  EXPECT_EQ(distance->value->value, "42");
  EXPECT_TRUE(distance->extended);
  EXPECT_EQ(distance->unit, MeasurementUnit::Kilometer);
  EXPECT_EQ(codes->readRuntime(true)->value->value, "55");
  EXPECT_EQ((std::vector{distance->uid, codes->readRuntime(false)->uid, codes->readDistance(false)->uid}),
            (std::vector{obd::Pid2Uid(0x21), obd::Pid2Uid(0x4E), obd::Pid2Uid(0x31)}));

  ASSERT_NE(codes->readFreezeFrameCode(), nullptr);
  EXPECT_EQ(codes->readFreezeFrameCode()->code(), "P0171");
  EXPECT_EQ(codes->readFreezeFrameIdentifiers(),
            (std::vector<int>{0x03, 0x04, 0x05, 0x06, 0x07, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0x11, 0x42}));
  const auto rpm = codes->readFreezeFrameSensors(0x0C);
  ASSERT_EQ(rpm.size(), 1U);
  EXPECT_EQ(rpm[0]->value->value + (rpm[0]->extended ? " extended" : ""), "1800");
  for (const int none : {0x20, 0x33, 240, -1, 100000}) {
    EXPECT_TRUE(codes->readFreezeFrameSensors(none).empty()) << none;
  }

  EXPECT_TRUE(codes->clearCodesNow());
  EXPECT_EQ(*codes->readMilStatus(), obd::ITroubleCodeServiceObserver::MilOff);
  EXPECT_TRUE(!codes->readFreezeFrameCode() && codes->readFreezeFrameIdentifiers().empty());
  vehicle->setIgnition(false);
  EXPECT_FALSE(codes->readMilStatus() || codes->readDistance(false) || codes->clearCodesNow() ||
               !codes->readConfirmedCodes().empty());
  EXPECT_EQ(hear(ofCodes), Texts());
}

}  // namespace
