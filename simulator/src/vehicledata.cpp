#include "vehicledata.h"

#include <algorithm>
#include <cmath>

#include <hostos/time.h>

#include "support.h"

namespace simulator {

namespace {

void append(Bytes& out, const Bytes& more) {
  out.insert(out.end(), more.begin(), more.end());
}

Bytes render(const Template& terms, const Signals& signals) {
  Bytes out;
  for (const Term& term : terms) {
    if (term.signal == Signal::Count) {
      append(out, term.bytes);
      continue;
    }
    const double value = signals[static_cast<std::size_t>(term.signal)] * term.factor + term.offset;
    const double top = std::ldexp(1.0, static_cast<int>(8 * term.width)) - 1;
    const auto number =
        static_cast<std::uint32_t>(std::isfinite(value) ? std::clamp(std::round(value), 0.0, top) : 0.0);
    for (unsigned i = term.width; i-- > 0;) {
      out.push_back(static_cast<std::uint8_t>(number >> (8 * i)));
    }
  }
  return out;
}

template <typename Map>
Support supportOf(const Map& map) {
  Support support;
  for (const auto& entry : map) {
    support.add(entry.first);
  }
  return support;
}

constexpr std::uint8_t FilterRegeneration = 0x02;  // the routine that burns the soot
constexpr std::size_t OldRoutineSize = 7;          // of requests and replies of service 08 before CAN

bool ofSensor(const TestItem& item, std::uint8_t sensor) {
  return item.key.front() == sensor;
}

const std::map<std::uint8_t, std::vector<TestItem>>& testsOf(const Unit& unit, std::uint8_t service) {
  return service == 0x05 ? unit.sensorTests : unit.monitorTests;
}

void appendItem(const TestItem& item, bool cleared, Bytes& out) {
  out.insert(out.end(), item.key.begin(), item.key.end());
  if (cleared && !item.constant) {
    out.insert(out.end(), item.numbers.size(), 0);
  } else {
    out.insert(out.end(), item.numbers.begin(), item.numbers.end());
  }
}

}  // namespace

std::uint32_t VehicleData::driveTime() const {
  const std::lock_guard guard(m_mutex);
  if (m_held) {
    return *m_held;
  }
  const std::uint32_t elapsed = hostos::CTime::milliseconds() - m_start;
  return elapsed - std::min(elapsed, stands);
}

void VehicleData::begin() {
  m_start = hostos::CTime::milliseconds();
}

void VehicleData::holdDrive(std::optional<std::uint32_t> milliseconds) {
  const std::lock_guard guard(m_mutex);
  if (!milliseconds && m_held) {
    m_start = hostos::CTime::milliseconds() - *m_held - stands;
  }
  m_held = milliseconds;
}

void VehicleData::setIgnition(bool on) {
  const std::lock_guard guard(m_mutex);
  m_ignition = on;
}

bool VehicleData::ignition() const {
  const std::lock_guard guard(m_mutex);
  return m_ignition;
}

double VehicleData::batteryVoltage() const {
  return battery > 0 ? battery : drive.at(driveTime())[static_cast<std::size_t>(Signal::Voltage)];
}

std::vector<UnitReply> VehicleData::request(const Bytes& request, std::optional<std::uint32_t> target) {
  const std::uint32_t now = driveTime();
  const std::lock_guard guard(m_mutex);
  const Signals signals = drive.at(now, m_regeneration);
  std::vector<UnitReply> replies;
  if (!m_ignition || request.empty()) {
    return replies;
  }
  for (Unit& unit : units) {
    if ((target && *target != unit.id) || unit.replies == 0U) {
      continue;
    }
    UnitReply one{unit.id, unit.latency, {}};
    if (!reply(unit, request, signals, now, one.messages)) {
      one.messages.clear();
      if (unit.refusal) {
        one.messages.push_back({Negative, request.front(), *unit.refusal});
      }
    }
    if (!one.messages.empty()) {
      if (unit.replies) {
        --*unit.replies;
      }
      replies.push_back(std::move(one));
    }
  }
  return replies;
}

// True if the unit knows the request, even if it says nothing to it.
bool VehicleData::reply(Unit& unit, const Bytes& request, const Signals& signals, std::uint32_t now,
                        std::vector<Bytes>& out) {
  const bool stopped = signals[static_cast<std::size_t>(Signal::Rpm)] == 0;
  for (const Answer& answer : unit.answers) {
    if (answer.onlyStopped && !stopped) {
      continue;
    }
    const bool fits =
        answer.anyRest ? request.size() >= answer.request.size() : request.size() == answer.request.size();
    if (fits && std::equal(answer.request.begin(), answer.request.end(), request.begin())) {
      for (const Template& message : answer.messages) {
        out.push_back(render(message, signals));
      }
      return true;
    }
  }
  Bytes message;
  bool known = false;
  switch (request.front()) {
    case 0x01:
      if (request.size() > 2 && isCan()) {
        return groupedData(unit, request, signals, out);
      }
      known = currentData(unit, request, signals, message);
      break;
    case 0x02:
      known = freezeData(unit, request, signals, message);
      break;
    case 0x03:
    case 0x04:
    case 0x07:
    case 0x0A:
      return request.size() == 1 && codes(unit, request, out);
    case 0x05:
    case 0x06:
      return testBlocks(unit, request, out) || testResults(unit, request, out);
    case 0x08:
      return testBlocks(unit, request, out) || runRoutine(unit, request, now, out);
    case 0x09:
      return information(unit, request, out);
    default:
      break;
  }
  if (known) {
    out.push_back(std::move(message));
  }
  return known;
}

bool VehicleData::currentData(const Unit& unit, const Bytes& request, const Signals& signals,
                              Bytes& message) const {
  // On CAN up to six identifiers go into one request (ISO 15031-5).
  if (request.size() < 2 || request.size() > (isCan() ? 7U : 2U)) {
    return false;
  }
  Support support = supportOf(unit.pids);
  if (unit.monitors) {
    support.add(0x01);
  }
  message.push_back(0x01 | Positive);
  for (std::size_t i = 1; i < request.size(); ++i) {
    const std::uint8_t pid = request[i];
    Bytes data;
    if (isBlock(pid)) {
      if (!support.any() || !support.bitmap(pid, data)) {
        continue;
      }
    } else if (pid == 0x01 && unit.monitors) {
      const std::size_t count = std::min<std::size_t>(unit.confirmed.size(), 0x7F);
      const bool light = unit.light.value_or(count != 0);
      data.push_back(static_cast<std::uint8_t>(count | (light ? 0x80U : 0U)));
      data.insert(data.end(), unit.monitors->begin(), unit.monitors->end());
      if (unit.cleared) {  // every test that there is has to run again
        data[1] = static_cast<std::uint8_t>(data[1] | (data[1] & 0x07U) << 4);
        data[3] = data[2];
      }
    } else if (const auto found = unit.pids.find(pid); found != unit.pids.end()) {
      data = render(found->second, signals);
    } else {
      continue;
    }
    message.push_back(pid);
    append(message, data);
    if (unit.groups.way == Groups::Way::Long && unit.groups.byte == pid && request.size() > 2) {
      message.push_back(0);
    }
  }
  return message.size() > 1;
}

// Several PIDs, in the unit's own way.
bool VehicleData::groupedData(const Unit& unit, const Bytes& request, const Signals& signals,
                              std::vector<Bytes>& out) const {
  using Way = Groups::Way;
  const Groups& groups = unit.groups;
  if (groups.way == Way::Silence) {
    return true;
  }
  if (groups.way == Way::Refuse) {
    out.push_back({Negative, request.front(), groups.byte});
    return true;
  }
  Bytes asked = request;
  if (groups.way == Way::First) {
    asked.resize(2);
  } else if (groups.way == Way::Reverse) {
    std::reverse(asked.begin() + 1, asked.end());
  } else if (groups.way == Way::Omit) {
    asked.erase(std::remove(asked.begin() + 1, asked.end(), groups.byte), asked.end());
  }
  Bytes message;
  if (!currentData(unit, asked, signals, message)) {
    return false;
  }
  if (groups.way == Way::Pad) {
    append(message, groups.padding);
  } else if (groups.way == Way::Cut) {
    message.pop_back();
  }
  out.push_back(std::move(message));
  return true;
}

bool VehicleData::freezeData(const Unit& unit, const Bytes& request, const Signals& signals,
                             Bytes& message) const {
  // Pairs of identifier and frame number, on CAN up to three.
  if (request.size() < 3 || request.size() % 2 == 0 || request.size() > (isCan() ? 7U : 3U)) {
    return false;
  }
  message.push_back(0x02 | Positive);
  for (std::size_t i = 1; i + 1 < request.size(); i += 2) {
    const std::uint8_t pid = request[i];
    const std::uint8_t number = request[i + 1];
    const auto frame = unit.frames.find(number);
    const bool stored = frame != unit.frames.end();
    Bytes data;
    if (pid == 0x02 && (stored || (number == 0 && unit.hasCodes))) {
      const unsigned code = stored ? frame->second.code : 0U;
      data = {static_cast<std::uint8_t>(code >> 8), static_cast<std::uint8_t>(code)};
    } else if (isBlock(pid) && stored) {
      Support support = supportOf(frame->second.pids);
      support.add(0x02);
      if (!support.bitmap(pid, data)) {
        continue;
      }
    } else if (stored && frame->second.pids.contains(pid)) {
      data = render(frame->second.pids.at(pid), signals);
    } else {
      continue;
    }
    message.push_back(pid);
    message.push_back(number);
    append(message, data);
  }
  return message.size() > 1;
}

bool VehicleData::codes(Unit& unit, const Bytes& request, std::vector<Bytes>& out) {
  const std::uint8_t service = request.front();
  if (!unit.hasCodes || (service == 0x0A && !unit.hasPermanent)) {
    return false;
  }
  if (service == 0x04) {
    if (!unit.clears) {
      out.push_back({Negative, service, ConditionsNotCorrect});
      return true;
    }
    unit.confirmed.clear();
    unit.pending.clear();
    unit.frames.clear();
    unit.cleared = true;
    out.push_back({0x04 | Positive});
    return true;
  }
  const std::vector<std::uint16_t>& list = service == 0x03   ? unit.confirmed
                                           : service == 0x07 ? unit.pending
                                                             : unit.permanent;
  Bytes pairs;
  for (const std::uint16_t code : list) {
    pairs.push_back(static_cast<std::uint8_t>(code >> 8));
    pairs.push_back(static_cast<std::uint8_t>(code));
  }
  const auto first = static_cast<std::uint8_t>(service | Positive);
  if (isCan()) {
    Bytes message{first, static_cast<std::uint8_t>(list.size())};
    append(message, pairs);
    out.push_back(std::move(message));
    return true;
  }
  // Before CAN each message holds three codes, filled up by zeros.
  pairs.resize(std::max<std::size_t>(6, (pairs.size() + 5) / 6 * 6));
  for (std::size_t i = 0; i < pairs.size(); i += 6) {
    Bytes message{first};
    message.insert(message.end(), pairs.begin() + static_cast<std::ptrdiff_t>(i),
                   pairs.begin() + static_cast<std::ptrdiff_t>(i + 6));
    out.push_back(std::move(message));
  }
  return true;
}

bool VehicleData::information(const Unit& unit, const Bytes& request, std::vector<Bytes>& out) const {
  if (request.size() != 2 || unit.infos.empty()) {
    return false;
  }
  const std::uint8_t type = request[1];
  const Bytes start{0x09 | Positive, type};
  // Before CAN each of the types 02, 04, 06 and 08 has one in front of it that counts its messages.
  const auto counted = [](std::uint8_t id) { return id == 0x02 || id == 0x04 || id == 0x06 || id == 0x08; };
  const auto messages = [](const Info& info) {
    return static_cast<std::uint8_t>((info.bytes.size() + 3) / 4);
  };

  if (isBlock(type)) {
    Support support = supportOf(unit.infos);
    Bytes message = start;
    if (!isCan()) {
      for (const auto& info : unit.infos) {
        if (counted(info.first)) {
          support.add(info.first - 1U);
        }
      }
      message.push_back(0x01);
    }
    if (!support.bitmap(type, message)) {
      return false;
    }
    out.push_back(std::move(message));
    return true;
  }

  const auto found = unit.infos.find(type);
  if (isCan()) {
    if (found == unit.infos.end()) {
      return false;
    }
    Bytes message = start;
    message.push_back(static_cast<std::uint8_t>(found->second.count));
    append(message, found->second.bytes);
    out.push_back(std::move(message));
    return true;
  }
  if (found == unit.infos.end()) {
    const auto next = unit.infos.find(static_cast<std::uint8_t>(type + 1));
    if (next == unit.infos.end() || !counted(next->first)) {
      return false;
    }
    Bytes message = start;
    message.push_back(messages(next->second));
    out.push_back(std::move(message));
    return true;
  }
  // Four bytes a message; the 17 characters of a number stand at the end of five messages.
  Bytes bytes = found->second.bytes;
  if (bytes.size() == 17) {
    bytes.insert(bytes.begin(), 3, 0);
  }
  bytes.resize((bytes.size() + 3) / 4 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 4) {
    Bytes message = start;
    message.push_back(static_cast<std::uint8_t>(i / 4 + 1));
    message.insert(message.end(), bytes.begin() + static_cast<std::ptrdiff_t>(i),
                   bytes.begin() + static_cast<std::ptrdiff_t>(i + 4));
    out.push_back(std::move(message));
  }
  return true;
}

// --- Services 05, 06 and 08: test results and routines, on CAN and before (SAE J1979) ---

// Which tests there are, worked out from the lines of the file. Before CAN the reply of services 06 and 08
// has a filler byte in front of the bitmap; service 05 asks for one sensor and repeats it there.
bool VehicleData::testBlocks(const Unit& unit, const Bytes& request, std::vector<Bytes>& out) const {
  const std::uint8_t service = request.front();
  const bool bySensor = service == 0x05;
  const std::size_t size = bySensor ? 3 : service == 0x08 && !isCan() ? OldRoutineSize : 2;
  if (request.size() != size || !isBlock(request[1]) || (bySensor && isCan())) {
    return false;
  }
  const std::uint8_t third = request.size() > 2 ? request[2] : 0;
  Support support;
  bool served = false;
  for (const Answer& answer : unit.answers) {
    if (answer.request.size() >= 2 && answer.request.front() == service && !isBlock(answer.request[1])) {
      served = true;
      if (!bySensor || (answer.request.size() >= 3 && answer.request[2] == third)) {
        support.add(answer.request[1]);
      }
    }
  }
  if (service == 0x08) {
    served = served || !unit.routines.empty();
    for (const auto& entry : unit.routines) {
      support.add(entry.first);
    }
  } else {
    for (const auto& [id, items] : testsOf(unit, service)) {
      served = true;
      if (!bySensor || std::any_of(items.begin(), items.end(),
                                   [third](const TestItem& item) { return ofSensor(item, third); })) {
        support.add(id);
      }
    }
  }
  Bytes message{static_cast<std::uint8_t>(service | Positive), request[1]};
  if (bySensor) {
    message.push_back(third);
  } else if (!isCan()) {
    message.push_back(service == 0x06 ? 0xFF : 0x00);
  }
  if (!served || !support.bitmap(request[1], message)) {
    return false;
  }
  out.push_back(std::move(message));
  return true;
}

// On CAN one message has all tests of a monitor; before CAN each component or sensor has its own.
bool VehicleData::testResults(const Unit& unit, const Bytes& request, std::vector<Bytes>& out) const {
  const std::uint8_t service = request.front();
  const bool bySensor = service == 0x05;
  if (request.size() != (bySensor ? 3U : 2U)) {
    return false;
  }
  const auto& tests = testsOf(unit, service);
  const auto found = tests.find(request[1]);
  if (found == tests.end()) {
    return false;
  }
  const auto first = static_cast<std::uint8_t>(service | Positive);
  if (isCan()) {
    Bytes message{first};
    for (const TestItem& item : found->second) {
      message.push_back(request[1]);
      appendItem(item, unit.cleared, message);
    }
    out.push_back(std::move(message));
    return true;
  }
  for (const TestItem& item : found->second) {
    if (!bySensor || ofSensor(item, request[2])) {
      out.push_back({first, request[1]});
      appendItem(item, unit.cleared, out.back());
    }
  }
  return !out.empty();
}

bool VehicleData::runRoutine(Unit& unit, const Bytes& request, std::uint32_t now, std::vector<Bytes>& out) {
  const std::size_t size = request.size();
  const auto found = size < 2 ? unit.routines.end() : unit.routines.find(request[1]);
  if (found == unit.routines.end() || (isCan() ? size > OldRoutineSize : size != OldRoutineSize)) {
    return false;
  }
  Routine& routine = found->second;
  if (routine.reply == Routine::Reply::Silence) {
    return true;
  }
  const bool busy = routine.started && now >= *routine.started && now - *routine.started < routine.length;
  if (busy || routine.reply == Routine::Reply::Refuse) {
    out.push_back({Negative, 0x08, busy ? ConditionsNotCorrect : routine.code});
    return true;
  }
  if (routine.length != 0) {
    routine.started = now;
    if (found->first == FilterRegeneration) {
      m_regeneration = Regeneration{now, routine.length};
    }
  }
  out.push_back({0x08 | Positive, found->first});
  if (!isCan()) {
    out.back().push_back(routine.code);
    out.back().resize(OldRoutineSize, 0);
  }
  return true;
}

}  // namespace simulator
