#include "services/fixture.h"
#include "services/iecuservice.h"
#include "services/isummaryservice.h"
#include "services/itroubleshootingservice.h"

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

class Recorder : public obd::IEcuServiceObserver,
                 public obd::ISummaryServiceObserver,
                 public obd::ITroubleshootingServiceObserver,
                 public EventLines {
 public:
  Texts lines;
  long countLines(const std::string& line) const { return std::count(lines.begin(), lines.end(), line); }

 private:
  void add(const char* what, bool ok = true, const Texts& values = {}) {
    EventLines::add(what, ok, joined(values));
  }
  void addCounts(const char* what, bool ok, unsigned a, unsigned b) {
    add(what, ok, {std::to_string(a), std::to_string(b)});
  }
  void onVehicleIdentificationNumberUpdated(bool ok, const std::string& vin, int year) override {
    add("vin", ok, {vin, std::to_string(year)});
  }
  void onCalibrationIdentificationsUpdated(bool ok, const Texts& ids) override { add("ids", ok, ids); }
  void onCalibrationVerificationNumbersUpdated(bool ok, const Texts& all) override { add("cvn", ok, all); }
  void onPerformanceCountersUpdated(bool ok, const Counters& counters) override {
    Texts texts;
    for (const auto& counter : counters) {
      texts.push_back(counter->description().substr(0, 8) + "=" + counter->value());
    }
    add("counters", ok, texts);
  }
  void onEngineSerialNumberUpdate(bool ok, const std::string& text) override { add("serial", ok, {text}); }
  void onExhaustRequlationOrTypeApprovalNumberUpdated(bool ok, const std::string& text) override {
    add("type", ok, {text});
  }
  void onInvalidated() override { add("void"); }
  void onRefreshDone() override { add("done"); }
  void onCodeCountsUpdated(bool ok, unsigned a, unsigned b) override { addCounts("codes", ok, a, b); }
  void onMonitorCountsUpdated(bool ok, unsigned a, unsigned b) override { addCounts("monitors", ok, a, b); }
  void onFreezeFrameUpdated(bool ok, bool present) override { add(present ? "frame" : "no frame", ok); }
  void invalidated() override { add("void"); }
  void refreshDone() override { add("done"); }
  void onResponseArrived(bool ok, const std::string& text) override { add("response", ok, {text}); }
  void onLogEntryAdded(const std::shared_ptr<obd::DataEntryDescriptor>& entry) override {
    EXPECT_EQ(entry->timestamp().size(), 23U);
    if (entry->data() != "0101" && entry->data().find("4101") == std::string::npos) {  // no keep-alive
      lines.push_back(entry->direction() + entry->data());
      happen();
    }
  }
};

class InformationServicesTest : public ServiceTest {
 protected:
  InformationServicesTest() { makeServices(); }
  ~InformationServicesTest() override { dropServices(); }
  void makeServices() {
    (ecus = obd::EcuServiceBuilder::createEcuService())->attach(&ofEcus);
    (summary = obd::SummaryServiceBuilder::createSummaryService())->attach(&ofSummary);
    (console = obd::TroubleshootingServiceBuilder::createTroubleshootingService())->attach(&ofConsole);
  }
  void dropServices() {
    ecus.reset();
    summary.reset();
    console.reset();
  }

  void open(const char* car = Car) {
    ASSERT_TRUE(ServiceTest::open(car));
    EXPECT_EQ(ofEcus.take(), Texts{"void"});
    EXPECT_EQ(ofSummary.take(), Texts());
    forget();
  }
  void forget() {
    commands->clear();
    for (Recorder* heard : {&ofEcus, &ofSummary, &ofConsole}) {
      heard->onEvent = nullptr;
      heard->take();
      heard->lines.clear();
    }
  }
  void expectNothing() {
    EXPECT_FALSE(ecus->refresh(0) || ecus->refresh(1) || summary->refresh() || ecus->isVinSupported());
    console->sendRequest("ATI", 100);
    EXPECT_TRUE(ecus->allParameters().empty() && ecus->readCvns().empty());
    EXPECT_EQ(ecus->ecuName() + ecus->ecuDescription() + ecus->ecuStandard() + ecus->readVin(), "");
    EXPECT_EQ(joined(hear(ofEcus)) + joined(hear(ofSummary)) + joined(hear(ofConsole)), "");
  }

  std::shared_ptr<obd::IEcuService> ecus;
  std::shared_ptr<obd::ISummaryService> summary;
  std::shared_ptr<obd::ITroubleshootingService> console;
  Recorder ofEcus, ofSummary, ofConsole;
};

TEST_F(InformationServicesTest, TellVehicleInformationOfTheSelectedUnit) {
  expectNothing();
  open();
  EXPECT_FALSE(ecus->refresh(2) || ecus->refresh(-1));
  EXPECT_TRUE(ecus->refresh(0) && ecus->refresh(1) && ecus->refresh(1));  // the third joins the second
  EXPECT_EQ(hear(ofEcus, 1000),
            (Texts{"counters OBD Moni=65535 Ignition=2 Catalyst=4 EVAP Mon=16", "vin 1VM20SAL6R1000417 2024",
                   "ids VSIM-ECM-1 VSIM-CAL-2", "cvn 4F1A92C7 1234", "serial VSE20A00417K00931",
                   "type VSIMTYPE000020417", "done"}));
  EXPECT_EQ(asked("09"), (Texts{"0908", "0902", "0904", "0906", "090D", "090F"}));
  EXPECT_EQ(ecus->readVin() + ecus->readEngineSerialNumber() + ecus->readEroTan(),
            "1VM20SAL6R1000417VSE20A00417K00931VSIMTYPE000020417");
  EXPECT_EQ(joined(ecus->readCalibrationIds()) + joined(ecus->readCvns()),
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
  vehicle->setIgnition(true);

  // What another unit calls off, or the end of the link drops, is never told, nor is its end.
  ecus->refresh(1);
  select(Gearbox);
  EXPECT_EQ(hear(ofEcus), Texts{"void"});
  ecus->refresh(1);
  EXPECT_EQ(hear(ofEcus), Texts{"vin 1VM20SAL6U1000417 0"});
  ecus->refresh(1);
  pumpFor(4);
  lose();
  expectNothing();
  open();
  ecus->refresh(0);
  EXPECT_EQ(hear(ofEcus).size(), 1U);
  select(Nobody);
  EXPECT_FALSE(ecus->refresh(0) || ecus->refresh(1) || ecus->isVinSupported());
  EXPECT_EQ(ecus->ecuName() + ecus->readVin(), "");
  EXPECT_TRUE(ecus->allParameters().empty());
}

TEST_F(InformationServicesTest, TellWhichParametersThereAre) {
  open();
  for (const unsigned unit : {Engine, Gearbox}) {
    select(unit);
    const auto offered = facade->ecuManager()->sensors(unit);
    int last = 0;
    for (const auto& parameter : ecus->allParameters()) {
      const int pid = parameter->pid();
      EXPECT_TRUE(pid > last && pid != 0x02 && (pid & 0x1F) != 0) << pid;
      EXPECT_EQ(ecus->isParameterSupported(parameter),
                std::any_of(offered.begin(), offered.end(), [pid](auto& one) { return one->pid() == pid; }))
          << pid;
      last = pid;
    }
    EXPECT_EQ(last, unit == Engine ? 247 : 246);  // boost pressure needs a sensor
    EXPECT_FALSE(ecus->isParameterSupported(nullptr));
  }
  // An engine said to burn diesel fuel lacks what consumption is worked out from.
  select(Engine);
  for (const bool override : {false, true}) {
    facade->settings()->setIgnitionType(obd::IgnitionType::CompressionIgnition);
    facade->settings()->setFuelTypeOverride(override);
    const auto all = ecus->allParameters();
    EXPECT_EQ(std::any_of(all.begin(), all.end(), [](auto& one) { return one->pid() == 240; }), !override);
  }
  // A service that comes later knows what there is, but not yet what the unit has.
  select(Gearbox);
  makeServices();
  const auto all = ecus->allParameters();
  ASSERT_GT(all.size(), 90U);
  EXPECT_EQ(all.front()->pid(), 0x01);
  EXPECT_FALSE(ecus->isParameterSupported(all.back()));
  select(Gearbox);
  EXPECT_TRUE(ecus->isParameterSupported(all.back()));
}

TEST_F(InformationServicesTest, CountForAnOverview) {
  open();
  const Texts gearbox = {"codes 2 0", "codes 2 0", "monitors 3 0", "no frame", "done"};
  EXPECT_TRUE(summary->refresh() && summary->refresh());
  EXPECT_EQ(hear(ofSummary), (Texts{"codes 3 0", "codes 3 1", "monitors 6 1", "frame", "done"}));
  select(Diesel);
  summary->refresh();
  EXPECT_EQ(hear(ofSummary), (Texts{"codes 0 0", "codes 0 0", "monitors 6 0", "no frame", "done"}));
  select(Nobody);
  summary->refresh();
  EXPECT_EQ(hear(ofSummary), (Texts{"codes 0 0", "codes 0 0", "monitors 0 0", "no frame", "done"}));

  // Runs that another unit calls off do not count, wherever they are.
  for (const char* moment : {"", "codes 3 0", "codes 3 1", "monitors 6 1", "frame", "done"}) {
    SCOPED_TRACE(moment);
    select(Engine);
    const auto change = [&] {
      ofSummary.onEvent = nullptr;
      select(Gearbox);
      summary->refresh();
    };
    ofSummary.onEvent = [&] {
      if (ofSummary.events.back() == moment) {
        ofSummary.events.clear();
        change();
      }
    };
    summary->refresh();
    if (*moment == '\0') {
      change();
    }
    EXPECT_EQ(hear(ofSummary), gearbox);
  }

  // The end of the link drops the rest, and the next connection starts from the beginning.
  select(Engine);
  summary->refresh();
  ASSERT_TRUE(pumpUntil([&] { return !ofSummary.take().empty(); }));
  lose();
  ofEcus.take();
  expectNothing();
  open(SmallCar);
  summary->refresh();
  EXPECT_EQ(hear(ofSummary), (Texts{"codes 1 0", "codes failed 1 0", "monitors 0 0", "no frame", "done"}));
}

TEST_F(InformationServicesTest, TalkToTheAdapterAndShowTheTraffic) {
  open(SmallCar);
  console->sendRequest("03", 1000);
  EXPECT_EQ(hear(ofConsole, 500), Texts{"response 7E80443010171000000"});
  EXPECT_EQ(ofConsole.lines, (Texts{">>03", "<<7E80443010171000000"}));
  for (const auto& [request, timeout] : {std::pair{"0199", 1000}, {"0102", 0}, {"0103", -1}}) {
    console->sendRequest(request, timeout);
    EXPECT_EQ(hear(ofConsole, 1000), Texts{"response failed "});
    EXPECT_EQ(log.count(std::string("src\\troubleshootingservice 2 Failed to query request: ") + request), 1);
  }
  for (const std::string& request : {std::string("\r\n>\0", 4), std::string("A > T <\t?")}) {
    forget();
    console->sendRequest(request, 1000);
    pumpFor(1000);
    EXPECT_EQ(ofConsole.countLines(request[0] == 'A' ? ">>A  T <\t?" : ">>"), 1);
  }

  // Nobody pumps meanwhile: of each direction the newest line stays, and comes for each that was there.
  close();
  forget();
  open();
  ecus->readVin();
  ecus->readEngineSerialNumber();
  pumpFor(20);
  ASSERT_EQ(ofConsole.lines.size(), 4U);
  EXPECT_EQ(ofConsole.countLines(">>090D"), 2);
  EXPECT_EQ(ofConsole.lines[1], ofConsole.lines[3]);

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

  for (int i = 0; i < 3; ++i) {
    console->sendRequest("0101", 1000);
  }
  ASSERT_TRUE(pumpUntil([&] { return !ofConsole.take().empty(); }));
  lose();
  expectNothing();
}

TEST_F(InformationServicesTest, MayGoAtEveryMoment) {
  open();
  const auto traffic = obd::TroubleshootingServiceBuilder::createTroubleshootingService();
  for (unsigned i = 0; i < 60; ++i) {
    traffic->sendRequest("0101", 1000);
    makeServices();
    if (i % 3 == 0) {
      ofEcus.onEvent = ofSummary.onEvent = ofConsole.onEvent = [&] { dropServices(); };
    }
    ecus->refresh(1);
    summary->refresh();
    console->sendRequest("0902", 1000);
    pumpFor(i);
    dropServices();
    forget();
  }
  close();
  makeServices();
  expectNothing();
}

}  // namespace
