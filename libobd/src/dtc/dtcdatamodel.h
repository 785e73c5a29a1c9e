#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <tavrix/export.h>

namespace obd {

/// One trouble code with its text (SAE J2012 / ISO 15031-6, or a make's own). Immutable; copies are cheap and
/// share their texts. Any thread.
class VELMARA_EXPORT DtcDataModel {
 public:
  /// The record of a code as `manufacturer` defines it.
  DtcDataModel(const std::string& code, const std::string& description, const std::string& system,
               const std::string& manufacturer);

  /// The record of a generic code: the manufacturer is "Generic".
  DtcDataModel(const std::string& code, const std::string& description, const std::string& system);

  /// The code, for example "P0300".
  std::string code() const { return std::string(m_code); }

  /// What the code means, or a default text for a code that the database does not hold.
  std::string description() const { return std::string(m_description); }

  /// "Powertrain", "Body", "Chassis", "Network" or "Undefined".
  std::string system() const { return std::string(m_system); }

  /// The make's name, "Generic" or "Unknown".
  std::string manufacturer() const { return std::string(m_manufacturer); }

 private:
  friend class DtcReader;

  // A record of the built-in table: its texts are constant data and need no owner.
  struct Constant {};
  DtcDataModel(Constant, std::string_view code, std::string_view description, std::string_view system,
               std::string_view manufacturer)
      : m_code(code), m_description(description), m_system(system), m_manufacturer(manufacturer) {}

  std::shared_ptr<const std::string> m_texts;  // what the views look at, unless that is constant
  std::string_view m_code;
  std::string_view m_description;
  std::string_view m_system;
  std::string_view m_manufacturer;
};

}  // namespace obd
