#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "powertrain/powertrainparameter.h"
#include "powertrain/unitvalues.h"

namespace obd {

/// What the three families of oxygen sensor PIDs share: eight PIDs each, whose locations depend on whether
/// the control unit tells of two banks or of four.
class VELMARA_EXPORT OxygenSensorParameter : public PowertrainParameter {
 public:
  ParameterIdentifier::Id pid() const override { return m_pid; }
  std::string description(const IEcu& ecu) override;

 protected:
  /// `number` 0 to 7 is the place in the family, `kind` the end of the description.
  OxygenSensorParameter(ParameterIdentifier::Id pid, int number, const char* kind, ObdMode mode,
                        unsigned char frame);

 private:
  ParameterIdentifier::Id m_pid;
  int m_number;
  const char* m_kind;
};

/// PIDs 0x14 to 0x1B: conventional sensors, their voltage and, if used for it, a fuel trim.
class VELMARA_EXPORT OxygenSensor : public OxygenSensorParameter {
 public:
  OxygenSensor(int pid, ObdMode mode, unsigned char frame);

  std::vector<std::shared_ptr<const SensorInfo>> sensorInfo(const IEcu& ecu) override;
  /// The trim is left out for a sensor that is not used for it.
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 protected:
  bool fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  struct Reading {
    float voltage = 0;
    bool usedForTrim = false;
    float trim = 0;
  };

  std::vector<std::shared_ptr<const SensorInfo>> m_infos;
  UnitValues<Reading> m_readings;
};

/// What the two wide-range families share: an equivalence ratio, and a second reading. Ranges follow the
/// limits of the control unit.
class VELMARA_EXPORT WideRangeOxygenSensor : public OxygenSensorParameter {
 public:
  /// Lambda of a control unit; 0 if it has sent none.
  float equivalenceRatio(const IEcu& ecu) const { return m_readings.get(ecu.id()).ratio; }

  std::vector<std::shared_ptr<const SensorInfo>> sensorInfo(const IEcu& ecu) override;
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 protected:
  WideRangeOxygenSensor(ParameterIdentifier::Id pid, int number, int secondPrecision, ObdMode mode,
                        unsigned char frame);
  bool fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

  /// The second reading from its 16 bits.
  virtual float decodeSecond(unsigned int raw, const IEcu& ecu) const = 0;
  virtual std::shared_ptr<const SensorInfo> secondInfo(const IEcu& ecu) const = 0;

 private:
  struct Reading {
    float ratio = 0;
    float second = 0;
  };

  int m_secondPrecision;
  UnitValues<Reading> m_readings;
};

/// PIDs 0x24 to 0x2B: equivalence ratio and voltage.
class VELMARA_EXPORT OxygenSensorErv : public WideRangeOxygenSensor {
 public:
  OxygenSensorErv(int pid, ObdMode mode, unsigned char frame);

 protected:
  float decodeSecond(unsigned int raw, const IEcu& ecu) const override;
  std::shared_ptr<const SensorInfo> secondInfo(const IEcu& ecu) const override;
};

/// PIDs 0x34 to 0x3B: equivalence ratio and current.
class VELMARA_EXPORT OxygenSensorErc : public WideRangeOxygenSensor {
 public:
  OxygenSensorErc(int pid, ObdMode mode, unsigned char frame);

 protected:
  float decodeSecond(unsigned int raw, const IEcu& ecu) const override;
  std::shared_ptr<const SensorInfo> secondInfo(const IEcu& ecu) const override;
};

/// The class of one PID of a family.
template <typename Family, int Number>
class VELMARA_EXPORT OxygenSensorOf : public Family {
 public:
  static constexpr int Pid = Number;
  OxygenSensorOf(ObdMode mode, unsigned char frame) : Family(Number, mode, frame) {}
};

using OxygenSensor1Bank1 = OxygenSensorOf<OxygenSensor, 0x14>;
using OxygenSensor2Bank1 = OxygenSensorOf<OxygenSensor, 0x15>;
using OxygenSensor3Bank1 = OxygenSensorOf<OxygenSensor, 0x16>;
using OxygenSensor4Bank1 = OxygenSensorOf<OxygenSensor, 0x17>;
using OxygenSensor1Bank2 = OxygenSensorOf<OxygenSensor, 0x18>;
using OxygenSensor2Bank2 = OxygenSensorOf<OxygenSensor, 0x19>;
using OxygenSensor3Bank2 = OxygenSensorOf<OxygenSensor, 0x1A>;
using OxygenSensor4Bank2 = OxygenSensorOf<OxygenSensor, 0x1B>;
using OxygenSensorErvSensor1 = OxygenSensorOf<OxygenSensorErv, 0x24>;
using OxygenSensorErvSensor2 = OxygenSensorOf<OxygenSensorErv, 0x25>;
using OxygenSensorErvSensor3 = OxygenSensorOf<OxygenSensorErv, 0x26>;
using OxygenSensorErvSensor4 = OxygenSensorOf<OxygenSensorErv, 0x27>;
using OxygenSensorErvSensor5 = OxygenSensorOf<OxygenSensorErv, 0x28>;
using OxygenSensorErvSensor6 = OxygenSensorOf<OxygenSensorErv, 0x29>;
using OxygenSensorErvSensor7 = OxygenSensorOf<OxygenSensorErv, 0x2A>;
using OxygenSensorErvSensor8 = OxygenSensorOf<OxygenSensorErv, 0x2B>;
using OxygenSensor1Erc = OxygenSensorOf<OxygenSensorErc, 0x34>;
using OxygenSensor2Erc = OxygenSensorOf<OxygenSensorErc, 0x35>;
using OxygenSensor3Erc = OxygenSensorOf<OxygenSensorErc, 0x36>;
using OxygenSensor4Erc = OxygenSensorOf<OxygenSensorErc, 0x37>;
using OxygenSensor5Erc = OxygenSensorOf<OxygenSensorErc, 0x38>;
using OxygenSensor6Erc = OxygenSensorOf<OxygenSensorErc, 0x39>;
using OxygenSensor7Erc = OxygenSensorOf<OxygenSensorErc, 0x3A>;
using OxygenSensor8Erc = OxygenSensorOf<OxygenSensorErc, 0x3B>;

/// Which oxygen sensors a control unit has.
class VELMARA_EXPORT OxygenSensorsPresent : public PowertrainParameter {
 public:
  /// The sensors of a control unit in ascending order; nothing if it has not told.
  std::optional<std::vector<OxygenSensorLocation>> locations(const IEcu& ecu) const;

  ParameterIdentifier::Id pid() const override { return m_info->pid(); }
  std::string description(const IEcu& ecu) override;
  std::vector<std::shared_ptr<const SensorInfo>> sensorInfo(const IEcu& ecu) override;
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 protected:
  /// `byBit` points to the locations of the eight bits, from the lowest.
  OxygenSensorsPresent(int pid, const OxygenSensorLocation* byBit, ObdMode mode, unsigned char frame);
  bool fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  const OxygenSensorLocation* m_byBit;
  std::shared_ptr<const SensorInfo> m_info;
  UnitValues<unsigned char> m_masks;
};

/// PID 0x13: two banks of four sensors.
class VELMARA_EXPORT OxygenSensorsPresent13 : public OxygenSensorsPresent {
 public:
  static constexpr int Pid = 0x13;
  OxygenSensorsPresent13(ObdMode mode, unsigned char frame);
};

/// PID 0x1D: four banks of two sensors.
class VELMARA_EXPORT OxygenSensorsPresent1d : public OxygenSensorsPresent {
 public:
  static constexpr int Pid = 0x1D;
  OxygenSensorsPresent1d(ObdMode mode, unsigned char frame);
};

}  // namespace obd
