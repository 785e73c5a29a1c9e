// Readers of a whole vehicle, and what comes between them and their answers.

#include <array>
#include <atomic>

#include <fmt/format.h>

#include "clientfixture.h"
#include "dispatch/dispatcher.h"
#include "velmara/client/vehiclereader.h"

namespace velmara {
namespace {

using Kind = Failure::Kind;
using State = Section::State;

// No unit of this vehicle is selected by mistake, and each answers for itself.
TEST_F(ClientTest, ReadsEachUnitByItself) {
  connect("eight-units");
  const std::vector<ControlUnit> units = session.units();
  std::vector<IdentitySection> identities;
  std::size_t missing = 1;
  ReadOptions options;
  options.progress = [&missing](const char*, std::size_t answers, std::size_t expected) {
    EXPECT_LE(answers, expected);
    missing = expected - answers;
  };
  for (const ControlUnit& one : {units[2], units[0], units[2]}) {
    identities.push_back(readIdentity(session, one));
    EXPECT_TRUE(readFaults(session, one).hasContent());
    EXPECT_TRUE(readSummary(session, one, options).hasContent());
    EXPECT_EQ(missing, 0U);
    EXPECT_EQ(session.selectedUnit()->id, one.id);
  }
  EXPECT_EQ(identities[0].id, identities[2].id);
  EXPECT_NE(identities[0].name, identities[1].name);
  EXPECT_EQ(failureOf([&] { readFaults(session, {0x123, "123", "", ""}); }), Kind::NoData);
}

// Whatever an adapter leaves behind each frame before CAN.
TEST_F(ClientTest, ReadsTheVinOnEveryProtocolBeforeCan) {
  for (const auto& [name, vin, year] : {std::tuple("j1850-pwm", "1VM40PUP931001850", 2003),
                                        {"j1850-vpw", "1VM38SAL051018502", 2005},
                                        {"iso9141", "1VM22SAL2Y1009141", 2000},
                                        {"kwp-slow", "1VM18SAL421001804", 2002},
                                        {"kwp-fast", "1VM14HATX41002005", 2004}}) {
    SCOPED_TRACE(name);
    connect(name);
    const InfoSection info = readInfo(session, unit());
    EXPECT_EQ(info.vin, vin);
    EXPECT_EQ(info.vinCheckDigitFits, true);
    EXPECT_EQ(info.modelYear, year);
    EXPECT_EQ(info.state, State::Complete) << info.reason;
    session.disconnect();
  }
}

// Whenever the link goes: the reading ends soon, by the word that it is lost.
TEST_F(ClientTest, EveryReadingEndsWithTheLink) {
  constexpr std::uint32_t Soon = 15000;
  load("iso9141");
  using Read = void (*)(Session&, const ControlUnit&);
  const std::array<Read, 6> reads = {[](Session& s, const ControlUnit& u) { readFaults(s, u); },
                                     [](Session& s, const ControlUnit& u) { readFreeze(s, u); },
                                     [](Session& s, const ControlUnit& u) { readOxygen(s, u); },
                                     [](Session& s, const ControlUnit& u) { readValues(s, u); },
                                     [](Session& s, const ControlUnit& u) { readInfo(s, u); },
                                     [](Session& s, const ControlUnit& /*u*/) { clearCodes(s); }};
  for (std::size_t i = 0; i < reads.size(); ++i) {
    for (const unsigned later : {0U, 2U}) {
      if (later != 0 && i == reads.size() - 1) {
        continue;  // clearing is one exchange
      }
      SCOPED_TRACE(fmt::format("reader {}, exchange {}", i, later));
      std::atomic<unsigned> exchanges{0};
      std::atomic<unsigned> last{~0U};
      const auto bus = std::make_shared<std::shared_ptr<hostos::IMessageBus>>();
      simulator::AdapterOptions adapter;
      adapter.faults.onExchange = [&, bus](unsigned number, const std::string&) {
        exchanges = number;
        if (number >= last) {
          (*bus)->close();
        }
      };
      *bus = simulator::makeBus(vehicle, adapter);
      session.connect(*bus, "test");
      last = exchanges + 1 + later;
      const std::uint32_t start = clock.milliseconds();
      EXPECT_EQ(failureOf([&] { reads[i](session, unit()); }), Kind::LinkLost);
      EXPECT_LT(clock.milliseconds() - start, Soon);
      EXPECT_EQ(failureOf([&] { session.findUnit("none"); }), Kind::LinkLost) << "no unit is known then";
      session.disconnect();
      bus->reset();
    }
  }
}

// An adapter that says nothing any more, or what it was asked before, is not one whose vehicle has no
// answers: reading ends soon, and says so.
TEST_F(ClientTest, EndsWithAnAdapterThatHasFallenSilentOrBehind) {
  constexpr std::uint32_t Soon = 40000;
  load("petrol-can11");
  unsigned opening = 0;
  simulator::AdapterOptions counting;
  counting.faults.onExchange = [&opening](unsigned number, const std::string&) { opening = number; };
  session.connect(simulator::makeBus(vehicle, counting), "test");
  session.disconnect();
  for (const char* const fault : {"silence", "behind"}) {
    for (const unsigned later : {1U, 2U, 12U, 40U}) {
      SCOPED_TRACE(fmt::format("{} {}", fault, later));
      simulator::AdapterOptions adapter;
      adapter.faults = simulator::FaultPlan::parse(fmt::format("{}@{}-", fault, opening + later));
      session.connect(simulator::makeBus(vehicle, adapter), "test");
      const std::uint32_t start = clock.milliseconds();
      UnitReport report;
      EXPECT_EQ(failureOf([&] { readUnit(session, unit(), {}, false, report); }), Kind::LinkLost);
      EXPECT_LT(clock.milliseconds() - start, Soon);
      EXPECT_EQ(report.info.state == State::NotRead, later < 6);
      EXPECT_EQ(report.routines.state, State::NotRead);
      EXPECT_EQ(readLink(session).voltage.has_value(), false);
      session.disconnect();
    }
  }
}

// Work of somebody else that takes its time.
class SlowTask : public obd::IDispatchable {
 public:
  void update(const std::shared_ptr<obd::IObdProxy>& /*proxy*/) override { hostos::CTime::msleep(20); }
  void notify() override {}
};

// What a full queue would refuse is asked once there is room.
TEST_F(ClientTest, AFullQueueLosesNoQuestion) {
  connect("petrol-can11");
  const auto task = std::make_shared<SlowTask>();
  const auto fill = [&task] {
    while (obd::Dispatcher::getInstance().update(task)) {
    }
  };
  fill();
  const FaultsSection faults = readFaults(session, unit());
  EXPECT_TRUE(faults.state == State::Complete && faults.confirmed && faults.permanent) << faults.reason;
  fill();
  EXPECT_EQ(readTests(session, unit()).state, State::Complete);
  fill();
  EXPECT_EQ(readValues(session, unit()).state, State::Complete);
}

}  // namespace
}  // namespace velmara
