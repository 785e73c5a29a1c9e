#include <simulator/faultplan.h>

#include <array>
#include <charconv>
#include <stdexcept>
#include <utility>

namespace simulator {

namespace {

struct KindName {
  std::string_view name;
  Fault::Kind kind;
};

constexpr std::array<KindName, 14> KindNames = {{{"latency", Fault::Kind::Latency},
                                                 {"jitter", Fault::Kind::Jitter},
                                                 {"split", Fault::Kind::Split},
                                                 {"merge", Fault::Kind::Merge},
                                                 {"noise", Fault::Kind::Noise},
                                                 {"lostprompt", Fault::Kind::LostPrompt},
                                                 {"late", Fault::Kind::LateReply},
                                                 {"behind", Fault::Kind::Behind},
                                                 {"half", Fault::Kind::HalfReply},
                                                 {"silence", Fault::Kind::Silence},
                                                 {"error", Fault::Kind::ErrorWord},
                                                 {"close", Fault::Kind::PeerClose},
                                                 {"readerror", Fault::Kind::ReadError},
                                                 {"writeerror", Fault::Kind::WriteError}}};

unsigned number(std::string_view text, std::string_view whole) {
  unsigned value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size() || value > 1000000000) {
    throw std::runtime_error("\"" + std::string(text) + "\" in the fault \"" + std::string(whole) +
                             "\" is no number.");
  }
  return value;
}

Fault parseOne(std::string_view whole) {
  Fault fault;
  std::string_view text = whole;
  if (const std::size_t at = text.find('@'); at != std::string_view::npos) {
    std::string_view range = text.substr(at + 1);
    text = text.substr(0, at);
    const std::size_t dash = range.find('-');
    fault.first = number(range.substr(0, dash), whole);
    if (dash == std::string_view::npos) {
      fault.last = fault.first;
    } else if (dash + 1 < range.size()) {
      fault.last = number(range.substr(dash + 1), whole);
    }
  }
  std::string_view value;
  if (const std::size_t colon = text.find(':'); colon != std::string_view::npos) {
    value = text.substr(colon + 1);
    text = text.substr(0, colon);
  }
  for (const KindName& row : KindNames) {
    if (row.name == text) {
      fault.kind = row.kind;
      if (row.kind == Fault::Kind::ErrorWord) {
        fault.text = value.empty() ? "ERROR" : value;
      } else if (!value.empty()) {
        fault.amount = number(value, whole);
      }
      return fault;
    }
  }
  std::string names;
  for (const KindName& row : KindNames) {
    names.append(names.empty() ? "" : ", ").append(row.name);
  }
  throw std::runtime_error("\"" + std::string(text) + "\" is no fault; there are " + names + ".");
}

}  // namespace

FaultPlan& FaultPlan::add(Fault::Kind kind, unsigned exchange, unsigned amount, std::string text) {
  faults.push_back({kind, exchange, exchange, amount, std::move(text)});
  return *this;
}

FaultPlan& FaultPlan::addAlways(Fault::Kind kind, unsigned amount, std::string text) {
  Fault fault;
  fault.kind = kind;
  fault.amount = amount;
  fault.text = std::move(text);
  faults.push_back(std::move(fault));
  return *this;
}

FaultPlan FaultPlan::parse(std::string_view text) {
  FaultPlan plan;
  while (!text.empty()) {
    const std::size_t comma = text.find(',');
    plan.faults.push_back(parseOne(text.substr(0, comma)));
    text.remove_prefix(comma == std::string_view::npos ? text.size() : comma + 1);
  }
  return plan;
}

}  // namespace simulator
