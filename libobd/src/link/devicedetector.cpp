#include "link/devicedetector.h"

#include <utility>

#include <tavrix/tracelog.h>

namespace obd {

using tavrix::debugStream;
using tavrix::LogStream;

namespace {

constexpr const char* Source = "src\\devicedetector";

constexpr int SearchRates[] = {9600, 19200, 38400, 57600, 115200};
constexpr int IncreaseRates[] = {115200, 57600, 38400, 19200, 9600};
constexpr unsigned int BaudrateTimeout = 200;  // ms

bool succeeded(bool result, const char* failure) {
  if (!result) {
    LogStream(Source, __LINE__, 3) << failure;
  }
  return result;
}

bool resetAdapter(ElmScantool& device) {
  return succeeded(device.resetAdapter(), "Failed to reset interface");
}

bool identify(ElmScantool& device) {
  return succeeded(device.identify(), "Failed to identify interface");
}

}  // namespace

std::unique_ptr<ElmScantool> DeviceDetector::detect(IConnection* connection) {
  auto device = std::make_unique<ElmScantool>(connection);
  if (!m_descriptor) {
    device->restoreDefaults();
    device->resetAdapter();
    return device;
  }
  if (auto serialBus = std::dynamic_pointer_cast<hostos::ISerialBus>(m_bus)) {
    m_serialBus = std::move(serialBus);
    detectSerial(*device);
  }
  return device;
}

void DeviceDetector::detectSerial(ElmScantool& device) {
  if (m_descriptor->autoBaudrate()) {
    if (!findInitialBaudrate(device) || (!resetAdapter(device) && !findInitialBaudrate(device)) ||
        !identify(device)) {
      return;
    }
    device.setBaudrateTimeout(BaudrateTimeout);
    increaseBaudrate(device);
    return;
  }
  const int initial = m_descriptor->initialBaudrate();
  if (initial == 0 || initial == m_descriptor->baudrate()) {
    resetAdapter(device);
    return;
  }
  m_serialBus->setBaudrate(initial);
  if (resetAdapter(device) && identify(device)) {
    device.setBaudrateTimeout(BaudrateTimeout);
    changeBaudrate(device, m_descriptor->baudrate());
  }
}

bool DeviceDetector::findInitialBaudrate(ElmScantool& device) {
  for (const int rate : SearchRates) {
    debugStream << "Trying next " << rate << " bps";
    if (setBusBaudrate(rate) && device.probeInterface()) {
      debugStream << "Found working baudrate: " << rate << " bps";
      return true;
    }
  }
  LogStream(Source, __LINE__, 3) << "Failed to find initial baud rate";
  return false;
}

void DeviceDetector::increaseBaudrate(ElmScantool& device) {
  for (const int rate : IncreaseRates) {
    if (rate <= m_serialBus->baudrate()) {
      continue;
    }
    debugStream << "Trying to increase baud rate to " << rate << " bps";
    if (changeBaudrate(device, rate)) {
      debugStream << "Baud rate changed to " << rate;
      return;
    }
  }
}

bool DeviceDetector::changeBaudrate(ElmScantool& device, int rate) {
  if (!device.requestBaudrate(rate)) {
    LogStream(Source, __LINE__, 3) << "Failed to change baud rate. Using the old one.";
    return false;
  }
  const int old = m_serialBus->baudrate();
  if (!setBusBaudrate(rate)) {
    return false;
  }
  if (device.confirmBaudrate()) {
    return true;
  }
  LogStream(Source, __LINE__, 3) << "Failed to handle baud rate change. Reverting back to " << old;
  setBusBaudrate(old);
  return false;
}

bool DeviceDetector::setBusBaudrate(int rate) {
  return succeeded(m_serialBus->setBaudrate(rate), "Failed to set baud rate to bus");
}

}  // namespace obd
