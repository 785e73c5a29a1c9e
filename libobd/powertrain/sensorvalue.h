#pragma once

#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include <tavrix/export.h>

namespace obd {

/// One value of one sensor. Immutable; may be kept for as long as wanted.
class VELMARA_EXPORT SensorValue {
 public:
  explicit SensorValue(int uid) : m_uid(uid) {}
  virtual ~SensorValue() = default;

  int uid() const { return m_uid; }
  virtual std::string textualValue() const = 0;

 private:
  int m_uid;
};

/// A value that is a text.
class VELMARA_EXPORT TextualSensorValue : public SensorValue {
 public:
  TextualSensorValue(int uid, std::string text) : SensorValue(uid), m_text(std::move(text)) {}
  static std::shared_ptr<TextualSensorValue> buildObject(int uid, const std::string& text) {
    return std::make_shared<TextualSensorValue>(uid, text);
  }

  std::string textualValue() const override { return m_text; }

 private:
  std::string m_text;
};

/// A value that is a number, which knows how numbers of its sensor are written.
class VELMARA_EXPORT NumericSensorValue : public SensorValue {
 public:
  using SensorValue::SensorValue;

  virtual float numericValue() const = 0;
  /// Another number of this sensor, such as a mean, as text.
  virtual std::string toString(float value) const = 0;
};

/// Formats values of some kind.
class VELMARA_EXPORT IValueFormater {
 public:
  virtual ~IValueFormater() = default;
  virtual std::string toString(float value) const = 0;
};

/// Writes numbers with a fixed count of digits behind the point. Halves are rounded upward, in single
/// precision.
class VELMARA_EXPORT TypedValueFormater {
 public:
  explicit TypedValueFormater(int precision);
  std::string toString(float value) const;

 private:
  float fixPrecision(float value) const;

  int m_precision;
  int m_factor;
};

/// A number as its parameter decoded it. The text of an integer is the plain integer; that of a float has the
/// digits of its precision.
template <typename T>
class VELMARA_EXPORT ConcreateNumericSensorValue : public NumericSensorValue {
 public:
  ConcreateNumericSensorValue(int uid, T value, int precision)
      : NumericSensorValue(uid), m_value(value), m_formater(precision) {}
  static std::shared_ptr<ConcreateNumericSensorValue<T>> buildObject(int uid, T value, int precision) {
    return std::make_shared<ConcreateNumericSensorValue<T>>(uid, value, precision);
  }

  std::string textualValue() const override {
    if constexpr (std::is_integral_v<T>) {
      return std::to_string(m_value);
    } else {
      return m_formater.toString(m_value);
    }
  }
  float numericValue() const override { return static_cast<float>(m_value); }
  std::string toString(float value) const override { return m_formater.toString(value); }

 private:
  T m_value;
  TypedValueFormater m_formater;
};

extern template class ConcreateNumericSensorValue<unsigned int>;
extern template class ConcreateNumericSensorValue<int>;
extern template class ConcreateNumericSensorValue<float>;

}  // namespace obd
