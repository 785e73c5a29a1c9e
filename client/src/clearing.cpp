// Service 04, which all control units answer.

#include <fmt/format.h>

#include "parameters/cleartroublecodes.h"
#include "rawrequest.h"
#include "sectionreader.h"
#include "velmara/client/vehiclereader.h"

namespace velmara {

namespace {

constexpr unsigned char Acknowledged = 0x44;
constexpr unsigned char Negative = 0x7F;

std::string reasonOf(int code) {
  const std::string name = obd::NackToString(code);
  return name == "Unknown" ? fmt::format("code {:02X}", code) : name;
}

ClearOutcome outcomeOf(std::span<const unsigned char> reply) {
  constexpr std::size_t CodePosition = 2;
  if (!reply.empty() && reply.front() == Acknowledged) {
    return {ClearOutcome::Result::Acknowledged, {}};
  }
  if (reply.size() <= CodePosition || reply.front() != Negative ||
      reply[CodePosition] == obd::NackResponsePending) {  // to which nothing more came
    return {};
  }
  return {ClearOutcome::Result::Refused, reasonOf(reply[CodePosition])};
}

}  // namespace

std::map<unsigned int, ClearOutcome> clearCodes(Session& session, const ReadOptions& options) {
  const auto request = std::make_shared<RawRequest>(obd::ClearTroubleCodes());
  Answers answers(session, options, "clearing");
  answers.clearRoad();
  answers.ask({request}, [](std::size_t /*index*/, bool /*success*/) {});
  if (answers.gaveUp()) {
    throw Failure(Failure::Kind::NoData, "The vehicle does not answer any more.",
                  "Is the ignition still on, and the adapter in its socket?");
  }
  std::map<unsigned int, ClearOutcome> outcomes;
  for (const EcuPtr& ecu : session.facade().ecuManager()->ecus()) {
    ecu->resetFreezeFrameConfiguration();  // a new fault will bring new frames
    outcomes[ecu->id()] = outcomeOf(request->replyOf(ecu->id()));
  }
  return outcomes;
}

}  // namespace velmara
