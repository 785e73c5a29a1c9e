#pragma once

#include <string>

#include <tavrix/export.h>

namespace obd {

/// One trouble code with its text (SAE J2012 / ISO 15031-6, or a make's own). Immutable. Any thread.
class VELMARA_EXPORT DtcDataModel {
 public:
  /// The record of a code as `manufacturer` defines it.
  DtcDataModel(std::string code, std::string description, std::string system, std::string manufacturer);

  /// The record of a generic code: the manufacturer is "Generic".
  DtcDataModel(std::string code, std::string description, std::string system);

  /// The code, for example "P0300".
  std::string code() const { return m_code; }

  /// What the code means, or a default text for a code that the database does not hold.
  std::string description() const { return m_description; }

  /// "Powertrain", "Body", "Chassis", "Network" or "Undefined".
  std::string system() const { return m_system; }

  /// The make's name, "Generic" or "Unknown".
  std::string manufacturer() const { return m_manufacturer; }

 private:
  std::string m_code;
  std::string m_description;
  std::string m_system;
  std::string m_manufacturer;
};

}  // namespace obd
