#include "services/freezeframewalk.h"

#include <utility>

#include <tavrix/tracelog.h>

#include "core/identifiers.h"
#include "powertrain/parameterfactory.h"

namespace obd {

using tavrix::debugStream;
using tavrix::LogStream;

namespace {
constexpr const char* Source = "src\\troublecodeservice";
constexpr unsigned char LastFrame = 255;
}  // namespace

unsigned int FreezeFrameWalk::refreshCode(unsigned char frame, unsigned int id) {
  RefresherPtr& refresher = m_frames[frame].codeRefresher;
  if (!refresher) {
    refresher = m_host.makeCode(frame);
  }
  return m_host.isConnected() ? refresher->refresh(id) : IRefresher::AutomaticId;
}

void FreezeFrameWalk::onCode(unsigned int id, unsigned char frame, const std::string& code,
                             const std::shared_ptr<IEcu>& ecu) {
  Frame& entry = m_frames[frame];
  if (!entry.code.empty() && code != entry.code) {
    // Somebody else has cleared the codes. A new fault brings new frames.
    ecu->resetFreezeFrameConfiguration();
    forgetFrames();
  }
  entry.code = code;
  if (code.empty()) {
    return;
  }
  if (!entry.configuration) {
    entry.configuration = m_host.makeConfiguration(ecu->id(), frame);
  }
  if (m_host.isConnected()) {
    entry.configuration->refresh(id);
  }
}

void FreezeFrameWalk::onConfiguration(unsigned int id, unsigned char frame, bool success,
                                      const std::shared_ptr<IEcu>& ecu) {
  if (!success) {
    LogStream(Source, __LINE__, 2) << "Configuration query failed -> stop.";
    return;
  }
  Frame& entry = m_frames[frame];
  if (ecu) {
    makeSensors(entry, frame, *ecu);
  }
  if (!entry.sensors) {
    LogStream(Source, __LINE__, 2) << "NO sensors for the frame found";
  } else if (m_host.isConnected()) {
    for (const RefresherPtr& sensor : Refreshers(*entry.sensors)) {
      sensor->refresh(id);
    }
  }
  if (frame != LastFrame) {
    refreshCode(static_cast<unsigned char>(frame + 1), id);
  }
}

void FreezeFrameWalk::makeSensors(Frame& entry, unsigned char frame, const IEcu& ecu) {
  std::vector<unsigned char> identifiers;
  if (ecu.isSupported(ObdMode::Mode02, FreezeFrameCodePid, 0)) {
    identifiers = sensorIdentifiers(ecu, SensorPurpose::FreezeFrame, frame);
  } else {
    debugStream << "No freeze frame available for frame #" << frame;
  }
  if (entry.sensors && identifiers == entry.identifiers) {
    return;
  }
  debugStream << "Build sensors for frame #" << frame;
  if (entry.sensors) {
    m_host.retire(*entry.sensors);
  }
  entry.sensors.emplace();
  ParameterFactory factory;
  for (const unsigned char identifier : identifiers) {
    if (const auto sensor = factory.createFreezeFrameParameter(ParameterIdentifier(identifier).id(), frame)) {
      entry.sensors->push_back(m_host.makeSensor(sensor));
    } else {
      LogStream(Source, __LINE__, 3) << "Failed to create mode 0x02 sensor "
                                     << static_cast<unsigned int>(identifier);
    }
  }
  entry.identifiers = std::move(identifiers);
}

void FreezeFrameWalk::forgetFrames() {
  forgetSensors();
  Refreshers configurations;
  for (auto& [number, frame] : m_frames) {
    if (frame.configuration) {
      configurations.push_back(std::exchange(frame.configuration, nullptr));
    }
    frame.code.clear();
  }
  m_host.retire(configurations);
}

void FreezeFrameWalk::forgetSensors() {
  for (auto& [number, frame] : m_frames) {
    if (frame.sensors) {
      m_host.retire(*frame.sensors);
      frame.sensors.reset();
    }
  }
}

void FreezeFrameWalk::cancel() {
  for (auto& [number, frame] : m_frames) {
    for (const RefresherPtr& refresher : {frame.codeRefresher, frame.configuration}) {
      if (refresher) {
        refresher->cancel();
      }
    }
    for (const RefresherPtr& sensor : frame.sensors.value_or(Refreshers())) {
      sensor->cancel();
    }
  }
}

}  // namespace obd
