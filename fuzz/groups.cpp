// What control units answer to a request for several PIDs.

#include <memory>

#include "core/fakevehicle.h"
#include "powertrain/parameterfactory.h"
#include "services/groupplanner.h"
#include "services/sensorgroup.h"
#include "target.h"

namespace {

// A proxy that answers every request alike.
class Proxy : public fake::Proxy {
 public:
  int sendRequest(const fake::Bytes& /*request*/, obd::ResponseMap& responses,
                  unsigned /*timeout*/) override {
    responses = replies;
    return obd::RequestAnswered;
  }
  obd::ResponseMap replies;
};

}  // namespace

FUZZ_TARGET(groups) {
  const auto proxy = std::make_shared<Proxy>();
  for (const unsigned id : {0x7E8U, 0x7E9U}) {
    proxy->add(std::make_shared<fake::Ecu>(id));
  }
  obd::GroupPlanner planner;
  obd::SensorGroup group(0x7E8);
  std::vector<unsigned char> pids = input.bytes(1 + input.below(8));
  std::erase_if(pids, [](unsigned char pid) { return !obd::fitsIntoGroup(pid); });
  for (const unsigned char pid : pids) {
    planner.add(pid);
  }
  for (int round = 0; round < 200 && !input.empty() && !planner.declined(); ++round) {
    group.reset();
    for (const obd::PidLength& one : planner.next()) {
      group.ask(one, obd::ParameterFactory().createParameter(obd::ParameterIdentifier(one.pid).id()));
    }
    // Mostly what begins like a reply, and now and then anything.
    const unsigned way = input.below(8);
    fake::Bytes reply = way == 0 ? fake::Bytes() : fake::Bytes{0x41};
    for (const obd::PidLength& one : group.asked()) {
      if (way < 4) {
        reply.push_back(one.pid);
        const auto data = input.bytes(one.bytes != 0 ? one.bytes : 1 + input.below(4));
        reply.insert(reply.end(), data.begin(), data.end());
      }
    }
    const auto more = input.bytes(input.below(way < 4 ? 3 : 40));
    reply.insert(reply.end(), more.begin(), more.end());
    proxy->replies = {{0x7E8, reply}, {0x7E9, input.bytes(input.below(20))}};

    group.clear();
    group.update(proxy);
    const bool single = group.asked().size() == 1;
    std::size_t told = 1;
    for (const unsigned char pid : group.told()) {
      const auto found = std::ranges::find(group.asked(), pid, &obd::PidLength::pid);
      fuzz::require(found != group.asked().end(), "what is told was asked for");
      told += 1 + found->bytes;
    }
    fuzz::require(single || group.told().empty() || told == reply.size(),
                  "all of a reply is told, or nothing");
    if (single) {
      planner.reportSingle(group.asked().front().pid, !group.told().empty(), group.ownLength());
    } else if (!group.asked().empty()) {
      planner.reportGroup(group.asked(), group.told());
    }
  }
}
