#pragma once

#include <optional>
#include <span>

#include "core/bigendian.h"
#include "powertrain/measurementunit.h"
#include "powertrain/parameteridentifier.h"

namespace obd {

class IEcu;

/// The data bytes of a reply, behind its signature.
using DataBytes = const unsigned char*;

/// How a value is handed out. The cast to an integer is what truncates imperial figures.
enum class Kind {
  Float,
  Signed,
  Unsigned,
  Counter,  ///< whole, and as text
  Code      ///< a text by number
};

/// How most numbers are made of their bytes: raw * multiplier + offset in whole numbers, then that times
/// factor, over divisor, plus shift in single precision, each step rounded.
struct Linear {
  enum Raw { Byte, Word, SignedWord } raw = Byte;
  int multiplier = 1;
  int offset = 0;
  float factor = 1.0F;
  float divisor = 1.0F;
  float shift = 0.0F;
};

/// How a number is made: one of the two. Numbers have single precision; the wider type is for counters of 32
/// bits.
struct Decoder {
  constexpr Decoder(const Linear& how) : linear(how) {}              // NOLINT(google-explicit-constructor)
  constexpr Decoder(double (*how)(DataBytes at)) : function(how) {}  // NOLINT(google-explicit-constructor)

  Linear linear;
  double (*function)(DataBytes at) = nullptr;
};

struct Side {
  MeasurementUnit unit = MeasurementUnit::NoUnit;
  float min = 0.0F;
  float max = 0.0F;
  int precision = 0;
};

/// What the bytes of a sensor mean.
struct Reading {
  Kind kind = Kind::Float;
  Decoder decoder = Linear();
  Side metric{};
  Side imperial{};
  float (*toImperial)(float) = nullptr;  ///< null: the same figure
  std::span<const char* const> texts{};  ///< of codes
  /// The same byte on a wider scale. The bits for it follow those of all sensors, and win.
  std::optional<Linear> wide{};
  /// Where the control unit scales the sensor: its decoder, and the maximum of its range.
  double (*decodeScaled)(DataBytes at, const IEcu& ecu) = nullptr;
  float (*limit)(const IEcu& ecu) = nullptr;
};

struct Sensor {
  constexpr Sensor(const Reading& what) : reading(what) {}  // NOLINT(google-explicit-constructor)
  constexpr Sensor(const char* name, unsigned int first, const Reading& what)
      : text(name), position(first), reading(what) {}

  const char* text = nullptr;  ///< null: that of the PID
  unsigned int position = 0;   ///< of the first byte, whichever sensors are there
  Reading reading;
};

/// What decides whether sensors have a value.
struct Rule {
  /// Bit n for sensor n, of a reply.
  unsigned int (*present)(DataBytes data);
  /// Likewise before the first reply. Their value is 0.
  unsigned int atFirst = 0;
  enum Verdict { Take, KeepOld, Refuse };
  /// Whether to take a reply; null takes all. One that keeps the old values is accepted.
  Verdict (*judge)(DataBytes data) = nullptr;
};

struct PidRow {
  ParameterIdentifier::Id pid;
  const char* text;
  unsigned int bytes;
  Rule rule;
  std::span<const Sensor> sensors;
};

/// The most sensors that a row has.
inline constexpr std::size_t MaxSensors = 6;

/// Null for an identifier without a row.
const PidRow* lookUpPidRow(ParameterIdentifier::Id pid);
/// Throws `std::out_of_range` for an identifier without a row.
const PidRow& findPidRow(ParameterIdentifier::Id pid);

}  // namespace obd
