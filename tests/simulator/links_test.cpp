
#include <stdexcept>

#include <hostos/busfactory.h>
#include <simulator/bus.h>
#include <simulator/server.h>
#include <support/virtualclock.h>

#include "dialogue.h"

using simulator::AdapterOptions;
using simulator::FaultPlan;
using simulator::Vehicle;

namespace {

// --- Baud rates ---

class SerialLine : public testing::Test {
 protected:
  SerialLine() { m_elm.ask("ATE0"); }

  VirtualClock m_clock;
  std::shared_ptr<simulator::ElmAdapter> m_adapter =
      std::make_shared<simulator::ElmAdapter>(Vehicle::load("petrol-can11"), AdapterOptions());
  std::shared_ptr<hostos::ISerialBus> m_port = simulator::makeSerialBus(m_adapter, 38400);
  Dialogue m_elm{m_port};
};

// Openings find and raise the rate; here is what an adapter does that they do not wait for.
TEST_F(SerialLine, FallsBackWithoutAConfirmation) {
  EXPECT_EQ(m_elm.ask("ATBRT28"), "OK\r\r>");
  m_elm.type("ATBRD23\r");
  EXPECT_EQ(m_elm.listen('\r', 500), "OK\r");
  EXPECT_EQ(m_adapter->baudrate(), 115200);
  // The port stays where it was: the name comes as garbage, the prompt at the old rate again.
  const std::string heard = m_elm.listen('>', 1000);
  EXPECT_EQ(heard.find("ELM"), std::string::npos);
  EXPECT_EQ(heard.substr(heard.size() - 2), "\r>");
  EXPECT_EQ(m_adapter->baudrate(), 38400);
  EXPECT_EQ(m_elm.ask("ATI"), "ELM327 v1.5\r\r>");
}

TEST_F(SerialLine, KeepsANewRateUntilAReset) {
  m_elm.ask("ATBRT28");
  m_elm.type("ATBRD23\r");
  EXPECT_EQ(m_elm.listen('\r', 500), "OK\r");
  m_port->setBaudrate(115200);
  const std::uint32_t start = m_clock.milliseconds();
  EXPECT_EQ(m_elm.listen('\r', 500), "ELM327 v1.5\r");
  EXPECT_EQ(m_clock.milliseconds() - start, 200U);
  EXPECT_EQ(m_elm.ask(""), "OK\r\r>");
  EXPECT_EQ(m_elm.ask("ATWS"), "\r\rELM327 v1.5\r\r>");
  m_elm.ask("ATZ");
  EXPECT_EQ(m_adapter->baudrate(), 38400);
  EXPECT_FALSE(m_port->setBaudrate(12345));
}

// --- Faults ---

class Faults : public testing::Test {
 protected:
  Dialogue with(FaultPlan plan) {
    AdapterOptions options;
    options.faults = std::move(plan);
    const auto car = Vehicle::load("petrol-can11");
    car->holdDrive(0);
    Dialogue elm(simulator::makeBus(car, options));
    elm.ask("ATE0");  // exchange 0
    elm.ask("ATSP6");
    elm.ask("ATS0");  // exchange 2
    return elm;
  }

  VirtualClock m_clock;
};

constexpr const char* Coolant = "410547\r\r>";

// Each in one exchange, and not in the next.
TEST_F(Faults, DelayCutAndSpoilReplies) {
  Dialogue elm = with(FaultPlan::parse(
      "latency:300@3,jitter:50@4-5,split:2@5,merge@6,noise:3@8,lostprompt@9,half@10,silence@11,"
      "error:BUS ERROR@12,late:5000@14"));
  const std::uint32_t start = m_clock.milliseconds();
  EXPECT_EQ(elm.ask("0105"), Coolant);
  EXPECT_EQ(m_clock.milliseconds() - start, 300U);
  EXPECT_EQ(elm.ask("0105"), Coolant);
  EXPECT_LE(m_clock.milliseconds() - start, 350U);
  EXPECT_EQ(elm.ask("0105"), Coolant);
  EXPECT_EQ(elm.reads, 5);
  EXPECT_EQ(elm.ask("0105"), "");
  EXPECT_EQ(elm.ask("ATI"), std::string(Coolant) + "ELM327 v1.5\r\r>");
  EXPECT_EQ(elm.reads, 1);
  const std::string noisy = elm.ask("0105");
  EXPECT_EQ(noisy.size(), std::string(Coolant).size() + 3);
  EXPECT_EQ(noisy.back(), '>');
  for (const char* reply : {"410547\r\r", "4105", "", "BUS ERROR\r\r>", Coolant}) {
    EXPECT_EQ(elm.ask("0105"), reply);
  }
  EXPECT_EQ(elm.ask("0105"), "");
  EXPECT_EQ(elm.ask("ATI"), "ELM327 v1.5\r\r>");  // a command does not stop what is late
  EXPECT_EQ(elm.listen(), Coolant);
}

TEST(FaultScript, TellsWhatIsWrong) {
  for (const char* text :
       {"nothing", "latency:x", "close@", "close@1-x", "latency:-1", "split:99999999999"}) {
    EXPECT_THROW(FaultPlan::parse(text), std::runtime_error) << text;
  }
  const FaultPlan plan = FaultPlan::parse("split:3@4-,error@2-7");
  ASSERT_EQ(plan.faults.size(), 2U);
  EXPECT_EQ(plan.faults[0].first, 4U);
  EXPECT_GT(plan.faults[0].last, 1000000U);
  EXPECT_EQ(plan.faults[1].text, "ERROR");
  EXPECT_EQ(plan.faults[1].last, 7U);
}

// --- A server, in real time and over the real platform layer ---

TEST(Tcp, ServesOneClientAfterTheOther) {
  simulator::TcpServer server(Vehicle::load("petrol-can11"), {});
  EXPECT_EQ(server.link(), "tcp:127.0.0.1:" + std::to_string(server.port()));
  EXPECT_THROW(simulator::TcpServer(Vehicle::load("petrol-can11"), {}, server.port()), std::runtime_error);
  EXPECT_THROW(simulator::TcpServer(Vehicle::load("petrol-can11"), {}, 0, "nowhere"), std::runtime_error);
  for (int client = 0; client < 2; ++client) {
    const auto bus = hostos::BusFactory::createTcpBus("127.0.0.1", server.port());
    Dialogue elm(bus);
    elm.prepare();
    elm.converse("ATSP6>OK;0133>7E80341336400000000");
    bus->close();
  }
  Dialogue last(hostos::BusFactory::createTcpBus("127.0.0.1", server.port()));
  EXPECT_NE(last.ask("ATI"), "");
  server.stop();
  EXPECT_EQ(last.listen(), "");
  EXPECT_EQ(last.result, hostos::BusPeerClosed);
  server.stop();
}

}  // namespace
