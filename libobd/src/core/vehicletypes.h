#pragma once

#include <cstdint>

namespace obd {

/// The link protocol by the number that an ELM327 uses after "ATSP" and in its reply to "ATDPN" (ELM327 data
/// sheet).
enum class VehicleProtocol : std::int32_t {
  Automatic = 0,
  SaeJ1850Pwm = 1,
  SaeJ1850Vpw = 2,
  Iso9141 = 3,
  Iso14230Slow = 4,
  Iso14230Fast = 5,
  Iso15765Can11Bit500 = 6,
  Iso15765Can29Bit500 = 7,
  Iso15765Can11Bit250 = 8,
  Iso15765Can29Bit250 = 9
};

/// The link family, which decides how replies are framed.
enum class ObdProtocol : std::int32_t {
  Iso9141 = 0,
  Iso14230 = 1,
  SaeJ1850 = 2,
  Iso15765Can11Bit = 3,
  Iso15765Can29Bit = 4,
  Unknown = 5
};

/// The family of a protocol; `Unknown` for `Automatic` and for numbers outside the list.
constexpr ObdProtocol toObdProtocol(VehicleProtocol protocol) {
  switch (protocol) {
    case VehicleProtocol::SaeJ1850Pwm:
    case VehicleProtocol::SaeJ1850Vpw:
      return ObdProtocol::SaeJ1850;
    case VehicleProtocol::Iso9141:
      return ObdProtocol::Iso9141;
    case VehicleProtocol::Iso14230Slow:
    case VehicleProtocol::Iso14230Fast:
      return ObdProtocol::Iso14230;
    case VehicleProtocol::Iso15765Can11Bit500:
    case VehicleProtocol::Iso15765Can11Bit250:
      return ObdProtocol::Iso15765Can11Bit;
    case VehicleProtocol::Iso15765Can29Bit500:
    case VehicleProtocol::Iso15765Can29Bit250:
      return ObdProtocol::Iso15765Can29Bit;
    default:
      return ObdProtocol::Unknown;
  }
}

/// Whether replies come in the layout of ISO 15765-4 (CAN) rather than in frames of the older protocols.
constexpr bool isCan(ObdProtocol protocol) {
  return protocol == ObdProtocol::Iso15765Can11Bit || protocol == ObdProtocol::Iso15765Can29Bit;
}

/// The services that have lists of supported identifiers, by their number on the wire (SAE J1979).
enum class ObdMode : std::uint8_t { Mode01 = 1, Mode02 = 2, Mode05 = 5, Mode06 = 6, Mode08 = 8, Mode09 = 9 };

/// The data byte of PID 0x1C as the control unit sent it; 0 where unknown. The texts are `SaeStandard`'s.
enum class ObdStandard : std::int32_t { Unknown = 0 };

enum class IgnitionType : std::int32_t { SparkIgnition = 0, CompressionIgnition = 1 };

/// By which PID a control unit tells its oxygen sensors: none, 0x13 (two banks) or 0x1D (four banks).
enum class OxygenSensorBank : std::int32_t { NoBanks = 0, TwoBanks = 1, FourBanks = 2 };

enum class OxygenSensorLocation : std::int32_t {
  Bank1Sensor1 = 0,
  Bank1Sensor2 = 1,
  Bank1Sensor3 = 2,
  Bank1Sensor4 = 3,
  Bank2Sensor1 = 4,
  Bank2Sensor2 = 5,
  Bank2Sensor3 = 6,
  Bank2Sensor4 = 7,
  Bank3Sensor1 = 8,
  Bank3Sensor2 = 9,
  Bank4Sensor1 = 10,
  Bank4Sensor2 = 11
};

/// The sensor byte of a location, as PIDs 0x13 and 0x1D and service 05 use it; 0 for a number outside the
/// list.
constexpr std::uint8_t sensorByte(OxygenSensorLocation location) {
  constexpr std::uint8_t Bytes[] = {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0x10, 0x20, 0x40, 0x80};
  const auto index = static_cast<std::int32_t>(location);
  return index >= 0 && index < 12 ? Bytes[index] : std::uint8_t{0};
}

/// Metric or imperial figures.
enum class UnitSystem : std::int32_t { Metric = 0, Imperial = 1 };

}  // namespace obd
