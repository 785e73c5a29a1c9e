// A whole life on a link whose other end is the input: for each line that is written to it the input says
// whether the simulated adapter answers, or bytes of the input's choice come, in whatever pieces, or the link
// breaks. Where the input has ended the adapter answers.

#include <simulator/bus.h>

#include <atomic>
#include <deque>
#include <mutex>

#include "dtc/dtcreader.h"
#include "services/iconnectionservice.h"
#include "services/imonitorservice.h"
#include "services/iobdvelmara.h"
#include "services/isensorservice.h"
#include "services/isummaryservice.h"
#include "services/itroublecodeservice.h"
#include "services/support.h"
#include "support/virtualclock.h"
#include "target.h"

namespace {

// Of virtual time, in ms. The longest an opening may take: every protocol twice by hand, ten seconds for
// each.
constexpr std::uint32_t OpeningLimit = 250000;
constexpr std::uint32_t RefreshLimit = 300000;

class HostileBus : public hostos::IMessageBus {
 public:
  HostileBus(std::shared_ptr<hostos::IMessageBus> inner, fuzz::Input input)
      : m_inner(std::move(inner)), m_input(std::move(input)) {}

  int open() override { return m_inner->open(); }
  void close() override { m_inner->close(); }
  std::string& lastError(std::string& text) override { return m_inner->lastError(text); }
  std::string description() const override { return "hostile"; }

  int write(const std::vector<unsigned char>& bytes) override {
    {
      const std::lock_guard guard(m_mutex);
      const unsigned char choice = m_input.byte();
      switch (choice >> 5U) {
        case 4:  // a reply of its own, whole
          m_pieces.push_back(m_input.bytes(choice & 0x1FU));
          m_pieces.push_back({'\r', '>'});
          return 0;
        case 5:  // any bytes, in pieces
          for (std::size_t left = m_input.byte(); left > 0;) {
            const std::size_t piece = std::min<std::size_t>(left, 1U + (choice & 0x1FU));
            m_pieces.push_back(m_input.bytes(piece));
            left -= piece;
          }
          return 0;
        case 6:  // something in front of the adapter's answer
          m_pieces.push_back(m_input.bytes(choice & 0x1FU));
          break;
        case 7:  // the end
          if ((choice & 1U) != 0) {
            return 1;
          }
          m_broken = true;
          return 0;
        default:
          break;
      }
    }
    return m_inner->write(bytes);
  }

  int read(std::vector<unsigned char>& buffer) override {
    {
      const std::lock_guard guard(m_mutex);
      if (m_broken) {
        return hostos::BusPeerClosed;
      }
      if (!m_pieces.empty()) {
        buffer = std::move(m_pieces.front());
        m_pieces.pop_front();
        return hostos::BusRead;
      }
    }
    return m_inner->read(buffer);
  }

 private:
  std::shared_ptr<hostos::IMessageBus> m_inner;
  std::mutex m_mutex;
  fuzz::Input m_input;
  std::deque<std::vector<unsigned char>> m_pieces;
  bool m_broken = false;
};

struct Watch : obd::IConnectionServiceObserver, obd::ITroubleCodeServiceObserver {
  void onConnected() override { connected = true; }
  void onDisconnected() override { over = true; }
  void onConnectionPhaseChanged(obd::IConnectionListener::OpenConnectionPhase phase) override {
    over = over || phase == obd::IConnectionListener::PhaseFailed;
  }
  void onRefreshDone() override { done = true; }
  bool connected = false;
  bool over = false;
  bool done = false;
};

const char* const Cars[] = {
    "name = CAN car\nprotocol = 6\n[unit ECM 7E8]\nmonitors = 07 65 00\ncodes = P0171 P0301 P0420 P0455\n"
    "pending = P0442\n01 0C = 1A F8\nfreeze 0 = P0171\nfreeze 0 0C = 1C 20\n09 0A = \"ECM\" "
    "\"EngineControl\"\n",
    "name = Old car\nprotocol = 3\n[unit ECM 10]\nmonitors = 07 65 00\ncodes = P0133 P0300 P0420 P0455\n"
    "01 0C = 1A F8\nfreeze 0 = P0133\n"};

}  // namespace

FUZZ_TARGET(opening) {
  obd::DtcReader::init();
  const unsigned char setup = input.byte();
  VirtualClock clock;
  const auto facade = obd::ObdVelmaraBuilder::createObdVelmara(1, 2, 3, std::make_shared<MemorySettings>());
  const auto connection = obd::ConnectionServiceBuilder::createConnectionService();
  const auto codes = obd::TroubleCodeServiceBuilder::createTroubleCodeService();
  const auto sensors = obd::SensorServiceBuilder::createSensorService();
  Watch watch;
  connection->attach(&watch);
  codes->attach(&watch);
  obd::IConnectionManager& manager = *facade->connectionManager();

  const auto vehicle = simulator::Vehicle::parse(Cars[setup % 2], "fuzz");
  simulator::AdapterOptions options;
  options.personality =
      simulator::personalities()[(setup >> 1U) % simulator::personalities().size()].personality;
  const auto bus = std::make_shared<HostileBus>(simulator::makeBus(vehicle, options), std::move(input));
  const auto protocol = (setup & 0x80U) != 0 ? obd::VehicleProtocol::Automatic
                                             : static_cast<obd::VehicleProtocol>(vehicle->protocol());
  fuzz::require(manager.openBus(bus, protocol), "an opening begins");
  fuzz::require(pumpUntil([&] { return watch.connected || watch.over; }, OpeningLimit), "an opening ends");
  if (watch.connected) {
    sensors->refreshOnce({});
    codes->refreshConfirmedCodes();
    codes->refreshFreezeFrames();
    fuzz::require(pumpUntil([&] { return watch.done || watch.over; }, RefreshLimit), "refreshes end");
  }
  manager.close();
  fuzz::require(!manager.isConnected(), "closed is closed");
  pumpFor(20);
  connection->detach(&watch);
  codes->detach(&watch);
  obd::DtcReader::clean();
}
