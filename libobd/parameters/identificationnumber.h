#pragma once

#include "core/obdparameter.h"
#include "parameters/identificationnumberparser.h"

// The queries for one text of 17 characters, which differ in their information type and its name.

namespace obd {

/// A query of service 09 for one text of 17 characters, with twice the usual time-out.
class VELMARA_EXPORT IdentificationNumber : public ObdParameter {
 public:
  void clear() override { m_parser.clear(); }
  unsigned int timeout() const override { return 2 * ObdParameter::timeout(); }

 protected:
  explicit IdentificationNumber(unsigned char informationType)
      : IdentificationNumber(Request(ObdMode::Mode09, {informationType})) {}

  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override {
    return m_parser.parse(ecu, data);
  }
  /// Empty for a unit that did not answer.
  std::string text(const std::shared_ptr<IEcu>& ecu) const { return m_parser.text(ecu); }

 private:
  explicit IdentificationNumber(const Request& request)
      : ObdParameter(request), m_parser(request.signature()) {}

  IdentificationNumberParser m_parser;
};

/// Information type 02: the vehicle identification number (ISO 3779).
class VELMARA_EXPORT VehicleIdentificationNumber : public IdentificationNumber {
 public:
  VehicleIdentificationNumber() : IdentificationNumber(0x02) {}

  /// Empty for a unit that did not answer.
  std::string vehicleIdentificationNumber(const std::shared_ptr<IEcu>& ecu) const { return text(ecu); }
  /// The model year, 1996 to 2025, from the tenth of 17 characters; 0 if it tells none.
  int vehicleModelYear(const std::shared_ptr<IEcu>& ecu) const;

  /// The year of a model year character in the cycle from 1980 or from 2010; 0 for one that tells none.
  static int getEarlierVin(char character);
  static int getLaterVin(char character);
};

/// Information type 0D: the serial number of the engine.
class VELMARA_EXPORT EngineSerialNumber : public IdentificationNumber {
 public:
  EngineSerialNumber() : IdentificationNumber(0x0D) {}

  /// Empty for a unit that did not answer.
  std::string engineSerialNumber(const std::shared_ptr<IEcu>& ecu) const { return text(ecu); }
};

/// Information type 0F: the exhaust regulation or type approval number.
class VELMARA_EXPORT Erotan : public IdentificationNumber {
 public:
  Erotan() : IdentificationNumber(0x0F) {}

  /// Empty for a unit that did not answer.
  std::string erotan(const std::shared_ptr<IEcu>& ecu) const { return text(ecu); }
};

}  // namespace obd
