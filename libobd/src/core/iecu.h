#pragma once

#include <memory>
#include <string>
#include <vector>

#include <tavrix/export.h>

#include "core/vehicletypes.h"

namespace obd {

/// One control unit of the vehicle, as far as queries and front ends need to know it. What it supports is
/// read once while the connection opens; later only the freeze frame configuration changes.
class VELMARA_EXPORT IEcu {
 public:
  virtual ~IEcu() = default;

  /// The CAN identifier of its replies on ISO 15765-4, its source address on all other protocols.
  virtual unsigned int id() const = 0;

  /// Asks the vehicle which identifiers freeze frame `frame` holds, unless that is known. True if it is known
  /// now.
  virtual bool detectFreezeFrameConfiguration(unsigned char frame) = 0;
  /// Forgets what is known of all freeze frames.
  virtual void resetFreezeFrameConfiguration() = 0;

  /// The supported identifiers of a service in the order in which they were reported, the block numbers
  /// (0x00, 0x20, ...) among them. `frame` counts for service 02 only.
  virtual std::vector<unsigned char> supportedIds(ObdMode mode, unsigned char frame) const = 0;
  /// Whether service 05 offers test `tid` for the oxygen sensor.
  virtual bool isSupported(OxygenSensorLocation location, unsigned char tid) const = 0;
  /// Whether a service offers an identifier.
  virtual bool isSupported(ObdMode mode, unsigned char id, unsigned char frame) const = 0;
  /// The tests of service 05 for an oxygen sensor.
  virtual std::vector<unsigned char> supportedTids(OxygenSensorLocation location) const = 0;

  virtual ObdProtocol protocol() const = 0;
  /// The protocol in the adapter's words.
  virtual std::string protocolDescription() const = 0;
  /// PID 0x1C.
  virtual ObdStandard standard() const = 0;
  virtual std::string standardDescription() const = 0;
  /// The acronym that the unit reports, or "ECU#1" and so on.
  virtual std::string name() const = 0;
  virtual std::string description() const = 0;

  virtual OxygenSensorBank oxygenSensorBanks() const = 0;
  virtual std::vector<OxygenSensorLocation> oxygenSensorLocations() const = 0;

  /// Scaling limits of PIDs 0x4F and 0x50: lambda, volt, milliampere, kilopascal and gram per second.
  virtual unsigned int equivalenceRatioMax() const = 0;
  virtual unsigned int oxygenSensorVoltageMax() const = 0;
  virtual unsigned int oxygenSensorCurrentMax() const = 0;
  virtual unsigned int intakeManifoldAbsolutePressureMax() const = 0;
  virtual float airFlowRateMax() const = 0;

  virtual IgnitionType ignitionType() const = 0;
  /// Whether the unit has told its ignition type (PID 0x01). Without it that is spark ignition.
  virtual bool hasToldIgnitionType() const { return true; }
};

}  // namespace obd
