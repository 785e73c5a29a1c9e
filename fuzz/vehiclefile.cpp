// The simulator's vehicle files, and the vehicle that one describes, asked a few questions.

#include <hostos/imessagebus.h>
#include <simulator/elmadapter.h>
#include <simulator/vehicle.h>

#include <stdexcept>

#include "support/virtualclock.h"
#include "target.h"

FUZZ_TARGET(vehiclefile) {
  const std::string text = input.text(input.left());
  std::shared_ptr<simulator::Vehicle> vehicle;
  try {
    vehicle = simulator::Vehicle::parse(text, "fuzz");
  } catch (const std::runtime_error& complaint) {
    fuzz::require(std::string(complaint.what()).rfind("fuzz", 0) == 0, "a complaint names the file");
    return;
  }
  VirtualClock clock;
  simulator::ElmAdapter adapter(vehicle, {});
  adapter.linkUp();
  for (const std::string request :
       {"ATZ",    "ATE0", "ATSP0", "ATH1", "0100", "0101", "010C", "010C0D05", "0167", "020200", "03",
        "050101", "0600", "0601",  "0621", "07",   "0801", "0902", "0904",     "090A", "0A",     "04"}) {
    const std::string line = request + "\r";
    if (adapter.receive(reinterpret_cast<const unsigned char*>(line.data()), line.size()) != 0) {
      return;
    }
    std::vector<unsigned char> reply;
    for (int tries = 0; tries < 1000 && (reply.empty() || reply.back() != '>'); ++tries) {
      if (adapter.read(reply, 20) != hostos::BusRead) {
        hostos::CTime::msleep(20);
      }
    }
    fuzz::require(!reply.empty() && reply.back() == '>', "every request is answered in time");
  }
}
