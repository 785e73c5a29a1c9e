#include "core/identifiers.h"

#include <algorithm>

namespace obd {

namespace {

// The freeze frame's code goes where it belongs, before the next identifier.
void insertFreezeFrameCode(std::vector<unsigned char>& ids) {
  const auto next = std::ranges::find_if(ids, [](unsigned char id) { return id > FreezeFrameCodePid; });
  if (next != ids.end() && std::ranges::find(ids, FreezeFrameCodePid) == ids.end()) {
    ids.insert(next, FreezeFrameCodePid);
  }
}

}  // namespace

bool hasList(const IEcu& ecu, ObdMode mode) {
  // The first list, which everybody is asked for, stands there from the beginning.
  return std::ranges::any_of(ecu.supportedIds(mode, 0), [](unsigned char id) { return id != 0; });
}

std::vector<unsigned char> supportedIdentifiers(const IEcu& ecu, ObdMode mode, unsigned char frame) {
  std::vector<unsigned char> ids = ecu.supportedIds(mode, frame);
  std::erase_if(ids, isIdentifierList);
  return ids;
}

std::vector<unsigned char> sensorIdentifiers(const IEcu& ecu, SensorPurpose purpose, unsigned char frame) {
  const bool frozen = purpose == SensorPurpose::FreezeFrame || purpose == SensorPurpose::FreezeFrameChoice;
  std::vector<unsigned char> ids =
      frozen ? ecu.supportedIds(ObdMode::Mode02, frame) : ecu.supportedIds(ObdMode::Mode01, 0);
  if (purpose == SensorPurpose::Overview && ecu.isSupported(ObdMode::Mode02, FreezeFrameCodePid, 0)) {
    insertFreezeFrameCode(ids);
  }
  std::erase_if(ids, [purpose](unsigned char id) {
    return isIdentifierList(id) || (id == FreezeFrameCodePid && purpose != SensorPurpose::Overview) ||
           (id == MonitorStatusPid &&
            (purpose == SensorPurpose::LiveValues || purpose == SensorPurpose::FreezeFrameChoice));
  });
  return ids;
}

}  // namespace obd
