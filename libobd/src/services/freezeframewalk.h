#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/iecu.h"
#include "powertrain/powertrainparameter.h"
#include "services/service.h"

namespace obd {

/// Lets a control unit find out what a freeze frame holds.
class FreezeFrameConfigurationQuery final : public IQuery {
 public:
  FreezeFrameConfigurationQuery(unsigned int ecuId, unsigned char frame) : m_ecuId(ecuId), m_frame(frame) {}

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override {
    const std::shared_ptr<IEcu> ecu = proxy->ecu(m_ecuId);
    return ecu && ecu->detectFreezeFrameConfiguration(m_frame) ? Updated : NoData;
  }
  void clear() override {}

  unsigned char frame() const { return m_frame; }

 private:
  unsigned int m_ecuId;
  unsigned char m_frame;
};

/// The walk over the freeze frames of a control unit: the code of frame n, then the list of its sensors, then
/// these and the code of frame n + 1. It ends at the first frame without a code, or behind frame 255.
///
/// The list of a frame is asked for once, and again after the codes were cleared: by this program, which
/// calls `forgetFrames`, or by another, which shows when the code of a frame changes or is gone.
class FreezeFrameWalk {
 public:
  /// What the walk needs of its service.
  struct Host {
    std::function<bool()> isConnected;
    std::function<RefresherPtr(unsigned char frame)> makeCode;
    std::function<RefresherPtr(unsigned int ecuId, unsigned char frame)> makeConfiguration;
    std::function<RefresherPtr(const std::shared_ptr<PowertrainParameter>& sensor)> makeSensor;
    std::function<void(Refreshers& refreshers)> retire;
  };

  void setHost(Host host) { m_host = std::move(host); }

  /// Begins at frame 0. Gives the id that all events of the walk carry, or `IRefresher::AutomaticId` without
  /// a connection.
  unsigned int start() { return refreshCode(0, IRefresher::AutomaticId); }

  /// A code has come; it is empty where the unit holds no such frame.
  void onCode(unsigned int id, unsigned char frame, const std::string& code,
              const std::shared_ptr<IEcu>& ecu);
  /// The list of a frame's sensors has been read, or could not be.
  void onConfiguration(unsigned int id, unsigned char frame, bool success, const std::shared_ptr<IEcu>& ecu);

  /// The lists are void, and so are the sensors.
  void forgetFrames();
  /// The sensors are void.
  void forgetSensors();
  /// Calls off all that is on its way.
  void cancel();

 private:
  struct Frame {
    RefresherPtr codeRefresher;  // serves all control units
    RefresherPtr configuration;
    std::optional<Refreshers> sensors;       // null until they have been made
    std::vector<unsigned char> identifiers;  // that they were made from
    std::string code;
  };

  unsigned int refreshCode(unsigned char frame, unsigned int id);
  void makeSensors(Frame& entry, unsigned char frame, const IEcu& ecu);

  Host m_host;
  std::map<unsigned char, Frame> m_frames;
};

}  // namespace obd
