#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/ecumap.h"
#include "powertrain/powertrainparameter.h"

namespace obd {

struct PidRow;
struct Sensor;  // NOLINT(bugprone-forward-declaration-namespace): pidrow.h, which is not installed

/// A parameter told by its row in pids.h: how replies are decoded, and texts, units and ranges of its
/// sensors. A reply is decoded when it arrives, with the limits that its control unit has then.
class VELMARA_EXPORT PidParameter : public PowertrainParameter {
 public:
  /// Throws `std::out_of_range` for an identifier without a row.
  PidParameter(ParameterIdentifier::Id pid, ObdMode mode, unsigned char frame);

  /// The metric number of the first sensor; 0 if the control unit has sent none.
  float value(const IEcu& ecu) const { return static_cast<float>(number(ecu.id())); }
  /// Whether the control unit has sent any.
  bool hasValue(const IEcu& ecu) const { return find(ecu.id()).has_value(); }

  ParameterIdentifier::Id pid() const override;
  std::string description(const IEcu& ecu) override;
  /// All sensors of the PID, whichever of them a control unit has.
  std::vector<std::shared_ptr<const SensorInfo>> sensorInfo(const IEcu& ecu) override;
  /// No entry for a sensor that the control unit does not have, so that `SensorValue::uid` tells whose value
  /// it is. Most PIDs with one sensor have a value of 0 before the first reply, those with several have none.
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 protected:
  bool fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

  /// The number of the first sensor as it was decoded, or the code of its text.
  double number(unsigned int ecuId) const { return find(ecuId).value_or(0.0); }
  /// Likewise; nothing if the control unit has sent none.
  std::optional<double> find(unsigned int ecuId) const;
  void forgetAll() { m_numbers.clear(); }
  /// A value of one sensor.
  std::shared_ptr<SensorValue> makeValue(std::size_t index, double number, UnitSystem system) const;

 private:
  struct Numbers {
    unsigned int present = 0;  // bit n for sensor n
    std::array<double, 6> values{};
  };

  std::shared_ptr<const SensorInfo> makeInfo(std::size_t index, const IEcu* ecu) const;

  const PidRow& m_row;
  std::vector<std::shared_ptr<const SensorInfo>> m_infos;  // empty where ranges depend on the control unit
  EcuMap<Numbers> m_numbers;
};

}  // namespace obd
