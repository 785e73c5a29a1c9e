#include "services/fixture.h"

namespace {

constexpr unsigned Engine = 0x7E8, Gearbox = 0x7E9, Diesel = 0x7EA, Mute = 0x7EB, Nobody = 0x99;

// P1100 means something else to each of several makes. The last unit offers what it does not answer.
constexpr const char* Car = R"(name = Test car
protocol = 6
engine = petrol
[unit ECM 7E8]
monitors = 07 65 04
codes = P0171 P1100 P0420 P0171
pending = P0442
freeze 0 = P0171
01 0B = 20
01 0C = 00 00
01 0D = 00
01 0F = 46
01 1C = 07
09 02 = "1VM20SAL6R1000417"
09 04 = "VSIM-ECM-1" "VSIM-CAL-2"
09 06 = 4F1A92C7 00120034
09 08 = 65535 2 0 4 0 0 0 0 0 0 0 0 0 0 0 16 0 0
09 0A = "ECM" "EngineControl"
09 0B = 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18
09 0D = "VSE20A00417K00931"
09 0F = "VSIMTYPE000020417"
[unit TCM 7E9]
monitors = 05 01 00
codes = P0171 P0700
pending = none
09 02 = "1VM20SAL6U1000417"
[unit DDE 7EA]
monitors = 0B 63 00
codes = none
pending = none
09 0B = 0 0 0 0 0 0 7 8 0 0 0 0 0 0 0 0 0 18
[unit MUTE 7EB]
monitors = 00 00 00
09 04 = "NOBODY"
09 0B = 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18
answer 09 04 = silence
answer 09 0B = silence
)";
constexpr const char* SmallCar =
    "name = Small\nprotocol = 6\nengine = petrol\n[unit ECM 7E8]\nmonitors = 00 00 00\ncodes = P0171\n"
    "answer 07 = silence\nanswer 02 02 00 = 42 02 00 00 00\n";

class InformationServicesTest : public AllServicesTest {};

TEST_F(InformationServicesTest, TellVehicleInformationOfTheSelectedUnit) {
  ASSERT_TRUE(open(Car));
  EXPECT_FALSE(ecus->refresh(2) || ecus->refresh(-1));
  EXPECT_TRUE(ecus->refresh(0) && ecus->refresh(1) && ecus->refresh(1));  // the third joins the second
  EXPECT_EQ(hear(ofEcus, 1000),
            (Texts{"counters OBD Moni=65535 Ignition=2 Catalyst=4 EVAP Mon=16", "vin 1VM20SAL6R1000417 2024",
                   "ids VSIM-ECM-1 VSIM-CAL-2", "cvn 4F1A92C7 1234", "serial VSE20A00417K00931",
                   "type VSIMTYPE000020417", "done"}));
  EXPECT_EQ(asked("09"), (Texts{"0908", "0902", "0904", "0906", "090D", "090F"}));
  EXPECT_EQ(ecus->readVin() + ecus->readEngineSerialNumber() + ecus->readEroTan(),
            "1VM20SAL6R1000417VSE20A00417K00931VSIMTYPE000020417");
  EXPECT_EQ(text(ecus->readCalibrationIds()) + text(ecus->readCvns()),
            " VSIM-ECM-1 VSIM-CAL-2 4F1A92C7 1234");
  EXPECT_EQ(ecus->ecuName() + ecus->ecuDescription(), "ECMEngine Control Module");
  EXPECT_EQ(ecus->ecuStandard() + ecus->ecuStandardDescription(), "EOBD and OBD IIEOBD and OBD II");

  select(Gearbox);
  EXPECT_FALSE(ecus->isCalibrationIdSupported() || ecus->isCvnSupported() || ecus->refresh(0) ||
               ecus->arePerformanceCountersSupported() || ecus->isEngineSerialNumberSupported() ||
               ecus->isEroTanSupported());
  EXPECT_TRUE(ecus->isVinSupported() && ecus->refresh(1));
  EXPECT_EQ(hear(ofEcus), (Texts{"void", "vin 1VM20SAL6U1000417 0", "done"}));
  select(Diesel);
  commands->clear();
  EXPECT_FALSE(ecus->refresh(1) || !ecus->readVin().empty());
  EXPECT_EQ(timesAsked("09"), 0U);
  EXPECT_TRUE(ecus->arePerformanceCountersSupported() && ecus->refresh(0));
  EXPECT_EQ(hear(ofEcus), (Texts{"void", "counters NOx Adso=7 NOx Adso=8 Fuel Mon=18", "done"}));
  // Offered and not answered: what other units say is no substitute.
  select(Mute);
  EXPECT_TRUE(ecus->refresh(0) && ecus->refresh(1));
  EXPECT_EQ(hear(ofEcus), (Texts{"void", "counters", "ids", "done"}));
  vehicle->setIgnition(false);
  select(Engine);
  EXPECT_TRUE(ecus->refresh(0) && ecus->refresh(1));
  EXPECT_EQ(hear(ofEcus, 20000), (Texts{"void", "counters failed", "vin failed  0", "ids failed",
                                        "cvn failed", "serial failed ", "type failed ", "done"}));
  EXPECT_EQ(ecus->readVin(), "");
  select(Nobody);
  EXPECT_FALSE(ecus->refresh(0) || ecus->refresh(1) || ecus->isVinSupported());
  EXPECT_EQ(ecus->ecuName() + ecus->readVin(), "");
  EXPECT_TRUE(ecus->allParameters().empty());
}

TEST_F(InformationServicesTest, TellWhichParametersThereAre) {
  ASSERT_TRUE(open(Car));
  const auto offers = [](const auto& all, int pid) {
    return std::any_of(all.begin(), all.end(), [pid](auto& one) { return one->pid() == pid; });
  };
  for (const unsigned unit : {Engine, Gearbox}) {
    select(unit);
    const auto offered = facade->ecuManager()->sensors(unit);
    int last = 0;
    for (const auto& parameter : ecus->allParameters()) {
      const int pid = parameter->pid();
      EXPECT_TRUE(pid > last && pid != 0x02 && (pid & 0x1F) != 0) << pid;
      EXPECT_EQ(ecus->isParameterSupported(parameter), offers(offered, pid)) << pid;
      last = pid;
    }
    EXPECT_EQ(last, unit == Engine ? 247 : 246);  // boost pressure needs a sensor
    // To be polled there are all that the unit has, but what is told in other ways.
    std::vector<int> polled;
    for (const auto& parameter : sensors->parameters()) {
      polled.push_back(parameter->pid());
      EXPECT_TRUE(offers(offered, polled.back()) && polled.back() != 0x01) << polled.back();
    }
    EXPECT_TRUE(std::is_sorted(polled.begin(), polled.end()) && polled.back() == last);
    EXPECT_EQ(obd::SensorServiceBuilder::createSensorService()->parameters().size(), polled.size());
    EXPECT_FALSE(ecus->isParameterSupported(nullptr));
  }
  // An engine said to burn diesel fuel lacks what consumption is worked out from.
  select(Engine);
  facade->settings()->setIgnitionType(obd::IgnitionType::CompressionIgnition);
  for (const bool override : {false, true}) {
    facade->settings()->setFuelTypeOverride(override);
    EXPECT_EQ(offers(ecus->allParameters(), 240), !override);
  }
  makeServices();
  EXPECT_GT(ecus->allParameters().size(), 90U) << "a service that comes later knows what there is";
}

TEST_F(InformationServicesTest, CountForAnOverview) {
  ASSERT_TRUE(open(Car));
  EXPECT_TRUE(summary->refresh() && summary->refresh());
  EXPECT_EQ(hear(ofSummary), (Texts{"codes 3 0", "codes 3 1", "monitors 6 1", "frame", "done"}));
  select(Diesel);
  summary->refresh();
  EXPECT_EQ(hear(ofSummary), (Texts{"codes 0 0", "codes 0 0", "monitors 6 0", "frame none", "done"}));
  select(Nobody);
  summary->refresh();
  EXPECT_EQ(hear(ofSummary), (Texts{"codes 0 0", "codes 0 0", "monitors 0 0", "frame none", "done"}));
  close();
  ASSERT_TRUE(open(SmallCar));
  summary->refresh();
  EXPECT_EQ(hear(ofSummary), (Texts{"codes 1 0", "codes failed 1 0", "monitors 0 0", "frame none", "done"}));
}

TEST_F(InformationServicesTest, TalkToTheAdapterAndShowTheTraffic) {
  ASSERT_TRUE(open(SmallCar));
  console->sendRequest("03", 1000);
  EXPECT_EQ(hear(ofConsole, 500), Texts{"response 7E80443010171000000"});
  EXPECT_EQ(ofConsole.traffic, (Texts{">>03", "<<7E80443010171000000"}));
  for (const auto& [request, timeout] : {std::pair{"0199", 1000}, {"0102", 0}, {"0103", -1}}) {
    console->sendRequest(request, timeout);
    EXPECT_EQ(hear(ofConsole, 1000), Texts{"response failed "});
    EXPECT_EQ(log.count(std::string("src\\troubleshootingservice 2 Failed to query request: ") + request), 1);
  }
  for (const auto& [request, shown] :
       {std::pair(std::string("\r\n>\0", 4), ">>"), {std::string("A > T <\t?"), ">>A  T <\t?"}}) {
    forget();
    console->sendRequest(request, 1000);
    pumpFor(1000);
    EXPECT_EQ(std::count(ofConsole.traffic.begin(), ofConsole.traffic.end(), shown), 1);
  }
  // Answers are not filtered here, whatever the dialogue leaves in them.
  struct Adapter : FakeProxy {
    int sendCommand(const std::string& command, std::string& reply, unsigned timeout) override {
      reply = command + std::to_string(timeout) + "\r>";
      return obd::RequestAnswered;
    }
  };
  forget();
  obd::Dispatcher::getInstance().setProxy(std::make_shared<Adapter>());
  console->sendRequest("ATZ", 7);
  console->sendRequest("ATZ", -7);
  EXPECT_EQ(hear(ofConsole), (Texts{"response ATZ7\r>", "response ATZ0\r>"}));
  obd::Dispatcher::getInstance().setProxy(manager().proxy());
}

}  // namespace
