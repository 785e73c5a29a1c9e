#pragma once

#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/obdparameter.h"

namespace obd {

/// Reads the replies that carry one text of 17 characters. On CAN a count and the text follow the signature;
/// before CAN the text is right-aligned in five frames of 49, type, sequence number 1 to 5 and four bytes, in
/// any order, without checksums (SAE J1979, ISO 15031-5). Keeps one text per control unit.
class VELMARA_EXPORT IdentificationNumberParser {
 public:
  /// `signature` are the two bytes with which a reply, and before CAN each of its frames, begins.
  explicit IdentificationNumberParser(const std::array<unsigned char, 2>& signature);

  /// Takes a whole reply. False, with the earlier text kept, if it is malformed.
  bool parse(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& payload);
  /// Empty for a unit that did not answer.
  std::string text(const std::shared_ptr<IEcu>& ecu) const;
  void clear();

 private:
  bool parseCan(unsigned int id, const std::vector<unsigned char>& payload);
  bool parseFrames(unsigned int id, const std::vector<unsigned char>& payload);

  std::array<unsigned char, 2> m_signature;
  std::map<unsigned int, std::string> m_texts;  // by control unit
};

/// A query of service 09 for one information type.
class VELMARA_EXPORT VehicleInformation : public ObdParameter {
 protected:
  explicit VehicleInformation(unsigned char informationType) : m_informationType(informationType) {}

  void getRequestData(std::vector<unsigned char>& data) const override;
  void getSignature(std::vector<unsigned char>& data) const override;

 private:
  unsigned char m_informationType;
};

/// A query for one text of 17 characters, with twice the usual time-out.
class VELMARA_EXPORT IdentificationNumber : public VehicleInformation {
 public:
  void clear() override;
  unsigned int timeout() const override;

 protected:
  explicit IdentificationNumber(unsigned char informationType);

  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;
  std::string text(const std::shared_ptr<IEcu>& ecu) const { return m_parser.text(ecu); }

 private:
  IdentificationNumberParser m_parser;
};

/// Information type 02: the vehicle identification number (ISO 3779).
class VELMARA_EXPORT VehicleIdentificationNumber : public IdentificationNumber {
 public:
  VehicleIdentificationNumber();

  /// Empty for a unit that did not answer.
  std::string vehicleIdentificationNumber(const std::shared_ptr<IEcu>& ecu) const;
  /// The model year, 1996 to 2025, from the tenth of 17 characters; 0 if it tells none.
  int vehicleModelYear(const std::shared_ptr<IEcu>& ecu) const;

  /// The year of a model year character in the cycle from 1980 or from 2010; 0 for one that tells none.
  static int getEarlierVin(char character);
  static int getLaterVin(char character);
};

/// Information type 0D: the serial number of the engine.
class VELMARA_EXPORT EngineSerialNumber : public IdentificationNumber {
 public:
  EngineSerialNumber();

  /// Empty for a unit that did not answer.
  std::string engineSerialNumber(const std::shared_ptr<IEcu>& ecu) const;
};

/// Information type 0F: the exhaust regulation or type approval number.
class VELMARA_EXPORT Erotan : public IdentificationNumber {
 public:
  Erotan();

  /// Empty for a unit that did not answer.
  std::string erotan(const std::shared_ptr<IEcu>& ecu) const;
};

/// Information type 04: calibration identifiers, up to 16 characters each.
class VELMARA_EXPORT CalibrationIds : public VehicleInformation {
 public:
  CalibrationIds();

  /// Empty for a unit that did not answer.
  std::vector<std::string> calibrationIds(const std::shared_ptr<IEcu>& ecu) const;

 protected:
  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  bool fromCanSystem(unsigned int id, const std::vector<unsigned char>& payload);
  bool fromSaeSystem(unsigned int id, const std::vector<unsigned char>& payload);

  std::map<unsigned int, std::vector<std::string>> m_ids;  // by control unit
};

/// Information type 06: calibration verification numbers as hexadecimal text. Zero bytes are left out of the
/// text, so it may be shorter than eight digits.
class VELMARA_EXPORT CalibrationVerificationNumbers : public VehicleInformation {
 public:
  CalibrationVerificationNumbers();

  /// Empty, with a line in the log, for a unit that did not answer.
  std::vector<std::string> verificationNumbers(const std::shared_ptr<IEcu>& ecu) const;

 protected:
  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  bool fromCanSystem(unsigned int id, const std::vector<unsigned char>& payload);
  bool fromSaeSystem(unsigned int id, const std::vector<unsigned char>& payload);

  std::map<unsigned int, std::vector<std::string>> m_numbers;  // by control unit
};

/// Information type 0A: acronym (four characters at most) and name (15 at most) of the control unit. Each
/// text is empty, with a line in the log, for a unit that did not answer. `update` and `setResponseData`
/// throw `std::out_of_range` for a frame, before CAN, whose sequence number is not 1 to 5.
class VELMARA_EXPORT EcuName : public VehicleInformation {
 public:
  EcuName();

  std::string ecuAcronym(const IEcu& ecu) const;
  /// The name as the unit reports it.
  std::string ecuText(const IEcu& ecu) const;
  /// What the acronym stands for (SAE J1979); empty if it is not known.
  std::string ecuDescription(const IEcu& ecu) const;

 protected:
  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  bool fromCanSystem(unsigned int id, const std::vector<unsigned char>& payload);
  bool fromSaeSystem(unsigned int id, const std::vector<unsigned char>& payload);
  void store(unsigned int id, const unsigned char* text);

  std::map<unsigned int, std::string> m_acronyms;  // by control unit
  std::map<unsigned int, std::string> m_names;     // by control unit
};

}  // namespace obd
