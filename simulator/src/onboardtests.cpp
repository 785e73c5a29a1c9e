// Services 05, 06 and 08: test results and routines, in the forms that SAE J1979 gives them on CAN and
// before.

#include <algorithm>

#include "support.h"
#include "vehicledata.h"

namespace simulator {

namespace {

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
