#include "powertrain/fueltrim.h"

#include <algorithm>
#include <atomic>

#include <tavrix/tracelog.h>

namespace obd {

namespace {

// Shared by all control units, and by whatever thread decodes or reads a trim.
std::atomic<bool> trimByteB{false};

// What is there of the entries for the two banks.
template <typename T>
std::vector<T> entriesInUse(std::vector<T> entries) {
  entries.resize(std::min<std::size_t>(entries.size(), trimByteB ? 2 : 1));
  return entries;
}

}  // namespace

void FuelTrim::setByteBInUse(bool inUse) {
  tavrix::debugStream << "FuelTrim: byte B in use";
  trimByteB = inUse;
}

bool FuelTrim::byteBInUse() {
  return trimByteB;
}

std::string FuelTrim::description(const IEcu& ecu) {
  const std::string text = PidParameter::description(ecu);
  return byteBInUse() ? text : text + " - " + PidParameter::sensorInfo(ecu).front()->description();
}

std::vector<std::shared_ptr<const SensorInfo>> FuelTrim::sensorInfo(const IEcu& ecu) {
  return entriesInUse(PidParameter::sensorInfo(ecu));
}

std::vector<std::shared_ptr<SensorValue>> FuelTrim::values(const IEcu& ecu, UnitSystem system) {
  return entriesInUse(PidParameter::values(ecu, system));
}

bool FuelTrim::fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  if (byteBInUse()) {
    return PidParameter::fromPayload(ecu, data);
  }
  return PidParameter::fromPayload(ecu, {data.front(), 0});  // a second trim below 0 is none
}

}  // namespace obd
