// Traces: read, written again, replayed, and everything that is made of them.

#include <hostos/imessagebus.h>
#include <simulator/elmadapter.h>
#include <simulator/replay.h>
#include <simulator/vehicle.h>

#include <stdexcept>

#include "support/virtualclock.h"
#include "target.h"
#include "traces.h"
#include "velmara/client/failure.h"

namespace {

void replay(const simulator::Trace& trace) {
  VirtualClock clock;
  simulator::ElmAdapter adapter(std::make_shared<simulator::Replay>(trace, simulator::Replay::Pace::AtOnce));
  adapter.linkUp();
  std::size_t sent = 0;
  for (const simulator::TraceExchange& exchange : simulator::exchangesOf(trace)) {
    const std::string line = exchange.request + "\r";
    std::vector<unsigned char> reply;
    if (++sent > 50 ||
        adapter.receive(reinterpret_cast<const unsigned char*>(line.data()), line.size()) != 0) {
      return;
    }
    for (int reads = 0; reads < 100 && adapter.read(reply, 0) == hostos::BusRead; ++reads) {
    }
  }
}

// Everything stays in its place but for the characters of secrets.
void requireSameShape(const simulator::Trace& before, const std::string& text) {
  using Kind = simulator::TraceEvent::Kind;
  const simulator::Trace after = simulator::Trace::parse(text, "anonymous");
  fuzz::require(after.events.size() == before.events.size(), "anonymous traces have as many lines");
  for (std::size_t i = 0; i < before.events.size(); ++i) {
    const Kind kind = before.events[i].kind;
    fuzz::require(kind == after.events[i].kind, "of the same kinds");
    if (kind == Kind::Sent || kind == Kind::Received) {
      fuzz::require(after.events[i].text.size() == before.events[i].text.size(), "with as many bytes");
    }
  }
}

}  // namespace

FUZZ_TARGET(trace) {
  const std::string text = input.text(input.left());
  simulator::Trace trace;
  try {
    trace = simulator::Trace::parse(text, "fuzz");
  } catch (const std::runtime_error& complaint) {
    fuzz::require(std::string(complaint.what()).rfind("fuzz:", 0) == 0, "a complaint names file and line");
    return;
  }
  const std::string written = trace.text();
  fuzz::require(simulator::Trace::parse(written, "again").text() == written, "a trace reads back");
  replay(trace);
  velmara::summaryOf(trace);
  try {
    requireSameShape(trace, velmara::anonymized(trace));
  } catch (const velmara::Failure&) {
    // more secrets than it can hide
  }
  try {
    simulator::Vehicle::parse(velmara::vehicleOf(trace, "fuzz", "fuzz"), "made");
  } catch (const velmara::Failure&) {
    // a trace of no vehicle
  }
}
