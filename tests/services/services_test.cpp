#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <numeric>

#include "dispatch/fetcher.h"
#include "powertrain/monitorstatus.h"
#include "powertrain/parameteridentifier.h"
#include "services/fixture.h"
#include "services/libobd.h"

namespace {

using obd::EcuManagerEvent;
using obd::UnitSystem;
using obd::VehicleProtocol;

constexpr int Rpm = 0x0C;

struct EcuListener : tavrix::IEventListener<EcuManagerEvent> {
  void onEvent(const EcuManagerEvent& event) override {
    heard += static_cast<char>('0' + static_cast<int>(event));
  }
  std::string heard;
};

class ServicesTest : public ServiceTest {
 protected:
  ServicesTest() { service->attach(&observer); }

  bool open(const std::string& car = "petrol-can11") {
    observer.forget();
    return ServiceTest::open(car) && observer.course == "1234C";
  }

  Recorder observer;
  std::shared_ptr<obd::IConnectionService> service = obd::ConnectionServiceBuilder::createConnectionService();
};

TEST_F(AllServicesTest, GiveNothingWithoutAConnection) {
  for (const auto system : {UnitSystem::Imperial, UnitSystem::Metric}) {
    facade->settings()->setUnitSystem(system);
    forget();
    expectNothing();
    ASSERT_TRUE(open("petrol-can11"));
    EXPECT_TRUE(codes->isConnected());
    refreshAll();
    manager().close();
    forget();
    expectNothing();
  }
}

// The process of this test begins anew, so that the facade is there before the dispatcher.
TEST(ServiceBuildersDeathTest, AFacadeMayLastToTheEndOfTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto connectAndExit = [] {
    [[maybe_unused]] static const VirtualClock* const lastingClock = new VirtualClock;
    static std::shared_ptr<obd::IObdVelmara> lasting;
    lasting = obd::ObdVelmaraBuilder::createObdVelmara(1, 2, 3, std::make_shared<MemorySettings>());
    auto& manager = *lasting->connectionManager();
    manager.openBus(simulator::makeBus(simulator::Vehicle::load("petrol-can11")), VehicleProtocol::Automatic);
    if (!pumpUntil([&] { return manager.proxy()->isConnected(); }, 20000)) {
      std::exit(1);
    }
    obd::fetchWithin(std::make_shared<obd::MonitorStatus>(), 5000);  // so that there is a worker
    std::exit(0);
  };
  EXPECT_EXIT(connectAndExit(), testing::ExitedWithCode(0), "");
}

TEST_F(ServicesTest, ConnectionServiceFollowsTheConnection) {
  EXPECT_EQ(facade->firstNumber() * 100 + facade->secondNumber() * 10 + facade->thirdNumber(), 123U);
  EXPECT_EQ(obd::ConnectionServiceBuilder::createConnectionService(), service);
  EXPECT_EQ(service->adapter(), nullptr);
  EXPECT_EQ(service->obdStandard(), "");
  EXPECT_EQ(service->connectionOptions(), facade->settings()->connectionOptions());
  ASSERT_TRUE(open());
  EXPECT_TRUE(service->isConnected());
  EXPECT_FALSE(service->obdStandard().empty());
  ASSERT_NE(service->adapter(), nullptr);
  EXPECT_FALSE(service->adapter()->interfaceName().empty());

  manager().close();
  EXPECT_FALSE(service->isConnected());
  EXPECT_EQ(observer.course, "1234C");  // only with the next pass
  pumpFor(20);
  EXPECT_EQ(observer.course, "1234CD");
  // A port that is not there.
  observer.forget();
  ASSERT_TRUE(manager().openTcp({"256.0.0.1", 1}, VehicleProtocol::Automatic));
  EXPECT_TRUE(pumpUntil([this] { return observer.course == "10D"; }));
  EXPECT_FALSE(observer.message.empty());
  EXPECT_EQ(service->connectionMessage(), "");
}

TEST_F(ServicesTest, EcuManagerFollowsConnectionAndChoice) {
  EcuListener listener;
  obd::IEcuManager& ecus = *facade->ecuManager();
  ecus.attach(&listener);
  std::vector<unsigned int> ids;
  ecus.ecuIds(ids);
  EXPECT_TRUE(ids.empty() && ecus.sensors(0x7E8).empty());
  ASSERT_TRUE(open("eight-units"));
  EXPECT_EQ(listener.heard, "01");
  ecus.ecuIds(ids);
  EXPECT_EQ(ids, (std::vector<unsigned int>{0x7E8, 0x7E9, 0x7EA, 0x7EB, 0x7EC, 0x7ED, 0x7EE, 0x7EF}));
  EXPECT_EQ(ecus.currentEcu()->id(), 0x7E8U);
  EXPECT_EQ(ecus.ecuName(0x7E8), ecus.currentEcu()->name());
  EXPECT_EQ(ecus.ecuName(0x123) + ecus.ecuDescription(0x123), "");
  for (const unsigned int id : ids) {
    // The calculated ones are always there, and behind all others; boost pressure needs a sensor.
    std::string last;
    for (const auto& sensor : ecus.sensors(id)) {
      EXPECT_NE(sensor->pid() & 0x1F, 0);
      last += " " + std::to_string(sensor->pid());
    }
    const bool boost = ecus.ecus()[id - 0x7E8]->isSupported(obd::ObdMode::Mode01, 0x0B, 0);
    EXPECT_TRUE(last.ends_with(boost ? " 244 245 246 247" : " 244 245 246")) << last;
    EXPECT_GT(last.size(), 16U);
  }
  select(0x7EF);
  EXPECT_EQ(ecus.currentEcu()->id(), 0x7EFU);
  select(0x99);
  EXPECT_EQ(listener.heard, "0111");
  EXPECT_EQ(ecus.currentEcu(), nullptr);
  EXPECT_EQ(service->obdStandard(), "");
  manager().close();
  EXPECT_TRUE(ecus.ecus().empty());
  pumpFor(20);
  EXPECT_EQ(listener.heard, "011101");
  ecus.detach(&listener);
}

class SensorServiceTest : public AllServicesTest {
 protected:
  bool open() { return ServiceTest::open(); }

  // Of which parameters there are updates in a while.
  std::vector<int> pidsWithin(std::uint32_t time) {
    std::vector<int> pids;
    for (const std::string& event : hear(heard, time)) {
      if (event.starts_with("pid ")) {
        EXPECT_EQ(event.find("failed"), std::string::npos) << event;
        pids.push_back(std::stoi(event.substr(4)));
      }
    }
    return pids;
  }
  std::size_t updatesWithin(std::uint32_t time = 1000) {
    heard.take();
    return pidsWithin(time).size();
  }
  unsigned long long invalidations() { return heard.told["void"]; }

  Recorder& heard = ofSensors;
};

TEST_F(SensorServiceTest, PollsWithStatisticsUntilToldToStop) {
  ASSERT_TRUE(open());
  std::vector<float> seen;
  heard.onEvent = [&] {
    if (!heard.events.back().starts_with("pid ")) {
      return;
    }
    ASSERT_EQ(heard.values.size(), 1U);
    const obd::SensorValueDataModel& value = *heard.values[0];
    EXPECT_EQ(value.uid, obd::Pid2Uid(Rpm));
    seen.push_back(std::stof(value.value));
    const auto [lowest, highest] = std::minmax_element(seen.begin(), seen.end());
    EXPECT_EQ(std::pair(std::stof(value.minimum), std::stof(value.maximum)), std::pair(*lowest, *highest));
    const float sum = std::accumulate(seen.begin(), seen.end(), 0.0F);
    EXPECT_NEAR(std::stof(value.average), sum / static_cast<float>(seen.size()), 1.0F);
  };
  sensors->refresh({Rpm, 0x0999, Rpm});
  const std::size_t updates = updatesWithin(3000);  // one loop, and not faster than the vehicle may be asked
  EXPECT_TRUE(updates > 20 && updates <= 3000U / 30 + 1) << updates;
  EXPECT_NE(heard.values.at(0)->minimum, heard.values.at(0)->maximum);
  // The statistics go on through another `refresh`.
  sensors->refreshOnce({});
  updatesWithin();
  EXPECT_EQ(updatesWithin(), 0U);
  sensors->refreshOnce({Rpm});
  EXPECT_EQ(updatesWithin(), 1U);
  sensors->reset();
  seen.clear();
  sensors->refreshOnce({Rpm});
  EXPECT_EQ(updatesWithin(), 1U);
  EXPECT_EQ(invalidations(), 1U);  // when the connection brought a control unit
}

TEST_F(SensorServiceTest, InterleavesParametersAndOutlastsASilentVehicle) {
  ASSERT_TRUE(open());
  sensors->refresh({0x05, Rpm, 244});
  std::vector<int> pids = pidsWithin(2000);
  ASSERT_GE(pids.size(), 9U);
  for (std::size_t i = 3; i + 3 < pids.size(); ++i) {
    EXPECT_EQ(pids[i], pids[i % 3]);
  }
  vehicle->setIgnition(false);
  updatesWithin(500);
  pids = pidsWithin(5000);
  EXPECT_EQ(std::count(pids.begin(), pids.end(), Rpm), 0);  // the adapter still tells its voltage
  EXPECT_GT(std::count(pids.begin(), pids.end(), 244), 0);
  vehicle->setIgnition(true);
  pids = pidsWithin(2000);
  EXPECT_GT(std::count(pids.begin(), pids.end(), Rpm), 0);
  EXPECT_EQ(invalidations(), 1U);
}

TEST_F(SensorServiceTest, ChangesInvalidate) {
  facade->settings()->setVehicleWeight(1200);  // told without a connection, too
  facade->settings()->setLanguage(3);
  EXPECT_EQ(invalidations(), 1U);
  ASSERT_TRUE(open());
  EXPECT_EQ(invalidations(), 2U);  // a control unit was selected

  // Another unit system restarts the statistics and lets the polling go on.
  sensors->refresh({0x05});
  updatesWithin();
  const std::string metric = heard.values.at(0)->value;
  facade->settings()->setUnitSystem(UnitSystem::Metric);
  facade->settings()->setUnitSystem(UnitSystem::Imperial);
  EXPECT_EQ(invalidations(), 3U);
  EXPECT_GT(updatesWithin(), 5U);
  EXPECT_GT(std::stof(heard.values.at(0)->minimum), std::stof(metric));  // Fahrenheit
  facade->settings()->setEngineDisplacement(1.6F);
  EXPECT_EQ(invalidations(), 4U);
  EXPECT_EQ(updatesWithin(), 0U);
  EXPECT_FALSE(sensors->parameters().empty());
  select(0);
  EXPECT_EQ(invalidations(), 5U);
  EXPECT_TRUE(sensors->parameters().empty());
  EXPECT_TRUE(sensors->readSensors(Rpm).empty());
}

TEST_F(SensorServiceTest, ReadsAtOnceWhatTheFactoryCanMake) {
  ASSERT_TRUE(open());
  const auto rpm = sensors->readSensors(Rpm);
  ASSERT_EQ(rpm.size(), 1U);
  EXPECT_EQ(rpm[0]->uid, obd::Pid2Uid(Rpm));
  EXPECT_GT(std::stof(rpm[0]->value->value), 100.0F);
  EXPECT_EQ(rpm[0]->value->average, "");
  EXPECT_EQ(rpm[0]->numeric, nullptr);
  for (const auto& [pid, several] : {std::pair(Rpm, false), {0x14, true}}) {
    const auto read = sensors->readSensors(pid);
    EXPECT_TRUE(!read.empty() && (read.size() > 1) == several) << read.size();
    for (const auto& sensor : read) {
      EXPECT_EQ(sensor->extended, several);
      EXPECT_EQ(sensor->description.find(": ") != std::string::npos, several);
    }
  }
  EXPECT_EQ(sensors->readSensors(244).size(), 1U);
  for (const int none : {0x20, 240, 0x80, -1, 100000}) {
    EXPECT_TRUE(sensors->readSensors(none).empty()) << none;
  }
}

TEST(Library, LogsItsBeginAndItsEndAndHoldsTheTroubleCodesBetween) {
  const std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("velmara" + std::to_string(::getpid()) + ".log");
  const auto textOfP0300 = [] { return obd::DtcReader().getTroubleCodes("P0300")[0]->description(); };
  EXPECT_EQ(textOfP0300(), "ISO/SAE Reserved");
  EXPECT_TRUE(obd::LIBOBDOpen(path / "no folder"));
  EXPECT_EQ(textOfP0300(), "Random/Multiple Cylinder Misfire Detected");
  obd::LIBOBDClose();

  for (int run = 0; run < 2; ++run) {  // each run begins the file anew
    EXPECT_TRUE(obd::LIBOBDOpen(path));
    EXPECT_EQ(obd::DtcReader().getTroubleCodes("P0300").size(), 1U);
    obd::LIBOBDClose();
    EXPECT_EQ(textOfP0300(), "ISO/SAE Reserved");
    tavrix::LogStream("src\\nowhere", __LINE__, 3) << "too late";
  }
  std::string messages;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    messages += line.substr(line.find(" INFO"));
  }
  EXPECT_EQ(messages, " INFO - Lib OBD init INFO - Lib OBD cleanup done");
  std::filesystem::remove(path);
}

}  // namespace
