#pragma once

#include <string>

#include <tavrix/export.h>

#include "powertrain/measurementunit.h"

namespace obd {

/// How the raw 16 bits of an on-board test result turn into a number and a text (SAE J1979, unit and scaling
/// identifiers).
class VELMARA_EXPORT IUnitScaling {
 public:
  virtual ~IUnitScaling() = default;

  /// The number, in the metric unit of the identifier.
  virtual float scale(unsigned short raw) const = 0;
  /// A scaled number as text, in `unit`.
  virtual std::string toString(float value) const = 0;
  virtual MeasurementUnit unit() const = 0;
};

/// Raw number times a factor. Identifiers with the top bit set have signed raw numbers.
class VELMARA_EXPORT LinearScaling : public IUnitScaling {
 public:
  using Convert = float (*)(float);

  /// `convert` turns the metric number into `unit` when it is written; null where that is the metric one.
  LinearScaling(unsigned char id, float factor, int precision, MeasurementUnit unit, Convert convert);

  float scale(unsigned short raw) const override;
  /// Rounded in double precision, halves upward.
  std::string toString(float value) const override;
  MeasurementUnit unit() const override { return m_unit; }

 private:
  unsigned char m_id;
  float m_factor;
  int m_precision;
  unsigned int m_pow10;
  MeasurementUnit m_unit;
  Convert m_convert;
};

/// Raw number times a factor, plus an offset.
class VELMARA_EXPORT LinearOffsetScaling : public LinearScaling {
 public:
  LinearOffsetScaling(unsigned char id, float factor, float offset, int precision, MeasurementUnit unit,
                      Convert convert);

  float scale(unsigned short raw) const override;

 private:
  float m_offset;
};

/// The raw number, without a unit.
class VELMARA_EXPORT RawScaling : public IUnitScaling {
 public:
  float scale(unsigned short raw) const override { return static_cast<float>(raw); }
  MeasurementUnit unit() const override { return MeasurementUnit::NoUnit; }
};

/// "false" for 0, else "true".
class VELMARA_EXPORT BoolScaling : public RawScaling {
 public:
  std::string toString(float value) const override { return value == 0.0F ? "false" : "true"; }
};

/// For identifiers without a meaning.
class VELMARA_EXPORT DummyScaling : public RawScaling {
 public:
  std::string toString(float value) const override;
};

}  // namespace obd
