#include "vehicle/obdproxy.h"

#include <algorithm>
#include <cstddef>
#include <mutex>
#include <utility>

#include <tavrix/tracelog.h>

#include "link/idevice.h"
#include "parameters/supportedoids.h"
#include "vehicle/ecu.h"
#include "vehicle/obdproxybuilder.h"

namespace obd {

namespace {

using tavrix::debugStream;
using tavrix::LogStream;

constexpr const char* Source = "src\\obdproxy";

}  // namespace

std::shared_ptr<IObdProxy> ObdProxyBuilder::createObdProxy() {
  return std::make_shared<ObdProxy>();
}

void ObdProxy::setDevice(IDevice* device) {
  const std::lock_guard guard(m_deviceLock);
  const std::lock_guard pointerGuard(m_deviceMutex);
  m_device = device;
}

bool ObdProxy::initialize() {
  setEcus({});
  const std::vector<std::shared_ptr<Ecu>> found = detectEcus();
  if (found.empty() || !found.front()->init(0)) {
    return false;
  }
  // Only the first control unit must pass.
  for (std::size_t i = 1; i < found.size(); ++i) {
    found[i]->init(static_cast<unsigned int>(i));
  }
  return isConnected();
}

bool ObdProxy::isConnected() {
  const std::lock_guard guard(m_deviceMutex);
  return hasDevice();
}

ObdProtocol ObdProxy::obdProtocol() {
  const std::lock_guard guard(m_deviceMutex);
  return hasDevice() ? m_device->obdProtocol() : ObdProtocol::Unknown;
}

std::vector<std::shared_ptr<IEcu>> ObdProxy::ecus() {
  const std::lock_guard guard(m_ecuMutex);
  return m_ecus;
}

std::shared_ptr<IEcu> ObdProxy::currentEcu() {
  const std::lock_guard guard(m_ecuMutex);
  return m_ecus.empty() ? nullptr : m_ecus.front();
}

std::shared_ptr<IEcu> ObdProxy::ecu(unsigned int id) {
  // In the order of the replies, in which identifiers have a sign.
  const auto place = [](const std::shared_ptr<IEcu>& ecu) { return static_cast<int>(ecu->id()); };
  const std::lock_guard guard(m_ecuMutex);
  const auto found = std::ranges::lower_bound(m_ecus, static_cast<int>(id), {}, place);
  return found != m_ecus.end() && (*found)->id() == id ? *found : nullptr;
}

int ObdProxy::sendCommand(const std::string& command, std::string& reply, unsigned int timeout) {
  const std::lock_guard guard(m_deviceLock);
  return hasDevice() ? m_device->sendCommand(command, reply, timeout) : RequestUnusable;
}

int ObdProxy::sendRequest(const std::vector<unsigned char>& request, ResponseMap& responses,
                          unsigned int timeout) {
  const std::lock_guard guard(m_deviceLock);
  return hasDevice() ? m_device->sendRequest(request, responses, timeout) : RequestUnusable;
}

float ObdProxy::batteryVoltage() {
  const std::lock_guard guard(m_deviceLock);
  float volts = 0.0F;
  if (hasDevice() && (!m_device->batteryVoltage(volts) || !(volts > 0.0F))) {
    LogStream(Source, __LINE__, 2) << "Failed to get battery voltage";
  }
  return volts;
}

/// Asks every control unit for its first PIDs and takes whoever answers, whatever the answer says.
std::vector<std::shared_ptr<Ecu>> ObdProxy::detectEcus() {
  const Service01Oids query(0);
  std::vector<unsigned char> request;
  query.requestData(request);
  ResponseMap responses;
  const int result = sendRequest(request, responses, query.timeout());
  if (result != RequestAnswered) {
    LogStream(Source, __LINE__, 3) << "Failed to detect ECUs, invalid status " << result;
    return {};
  }
  if (responses.empty()) {
    LogStream(Source, __LINE__, 3) << "Failed to detect ECUs, empty response";
    return {};
  }
  const std::lock_guard guard(m_deviceMutex);
  if (!hasDevice()) {
    LogStream(Source, __LINE__, 3) << "Failed to detect ECUs, device not enabled";
    return {};
  }
  const ObdProtocol protocol = m_device->obdProtocol();
  const std::string protocolName = m_device->protocolName();
  const std::shared_ptr<IObdProxy> self = shared_from_this();
  std::vector<std::shared_ptr<Ecu>> found;
  found.reserve(responses.size());
  for (const auto& [id, bytes] : responses) {
    debugStream << "Found ECU: 0x" << std::hex << id << " with protocol " << static_cast<int>(protocol);
    found.push_back(std::make_shared<Ecu>(static_cast<unsigned int>(id), protocol, protocolName, self));
  }
  setEcus({found.begin(), found.end()});
  return found;
}

/// The caller holds the lock of the device or the mutex of its pointer.
bool ObdProxy::hasDevice() const {
  return m_device != nullptr && m_device->isEnabled();
}

void ObdProxy::setEcus(std::vector<std::shared_ptr<IEcu>> ecus) {
  const std::lock_guard guard(m_ecuMutex);
  m_ecus.swap(ecus);
}

}  // namespace obd
