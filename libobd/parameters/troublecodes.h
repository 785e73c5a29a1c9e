#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/obdparameter.h"
#include "dtc/dtcdatamodel.h"
#include "powertrain/powertrainparameter.h"
#include "powertrain/unitvalues.h"

namespace obd {

/// Reader of a list of trouble codes. Values are kept by control unit. (SAE J1979 services 03, 07 and 0A; the
/// coding of a code in two bytes is that of SAE J2012 / ISO 15031-6.)
class VELMARA_EXPORT DtcParameter : public ObdParameter {
 public:
  /// All database records of the unit's codes, in reply order: a code that three makes define gives three
  /// records. Empty for a unit without codes.
  std::vector<std::shared_ptr<DtcDataModel>> getTroubleCodes(const IEcu& ecu) const;
  void clear() override;

 protected:
  explicit DtcParameter(unsigned char service) : m_service(service) {}
  void getRequestData(std::vector<unsigned char>& data) const override;
  void getSignature(std::vector<unsigned char>& data) const override;
  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  bool fromCanSystem(unsigned int id, const std::vector<unsigned char>& payload);
  bool fromSaeSystem(unsigned int id, const std::vector<unsigned char>& payload);
  void parseCodes(unsigned int id, const unsigned char* bytes, std::size_t size);

  unsigned char m_service;
  std::map<unsigned int, std::vector<std::shared_ptr<DtcDataModel>>> m_codes;
};

/// Service 03: codes of faults that have been confirmed.
class VELMARA_EXPORT ConfirmedTroubleCodes final : public DtcParameter {
 public:
  ConfirmedTroubleCodes() : DtcParameter(0x03) {}
};

/// Service 07: codes of faults seen in this or the last driving cycle.
class VELMARA_EXPORT PendingTroubleCodes final : public DtcParameter {
 public:
  PendingTroubleCodes() : DtcParameter(0x07) {}
};

/// Service 0A: codes that clearing does not remove.
class VELMARA_EXPORT PermanentTroubleCodes final : public DtcParameter {
 public:
  PermanentTroubleCodes() : DtcParameter(0x0A) {}
};

/// Service 04: clears codes, freeze frames and test results in all control units.
class VELMARA_EXPORT ClearTroubleCodes final : public ObdParameter {
 public:
  /// Whether the unit has confirmed.
  bool isCleared(const IEcu& ecu) const;
  void clear() override;

 protected:
  void getRequestData(std::vector<unsigned char>& data) const override;
  void getSignature(std::vector<unsigned char>& data) const override;
  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  std::map<unsigned int, bool> m_cleared;
};

/// Service 02, PID 02: the code that caused a freeze frame.
class VELMARA_EXPORT FreezeFrameTroubleCode final : public PowertrainParameter {
 public:
  explicit FreezeFrameTroubleCode(unsigned char frame);

  /// The code with its generic text; null where the frame holds none.
  std::shared_ptr<DtcDataModel> getTroubleCode(const IEcu& ecu) const;
  void clear() override;

  ParameterIdentifier::Id pid() const override;
  std::string description(const IEcu& ecu) override;
  std::vector<std::shared_ptr<const SensorInfo>> sensorInfo(const IEcu& ecu) override;
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 protected:
  bool fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  UnitValues<std::shared_ptr<DtcDataModel>> m_codes;
  std::shared_ptr<const SensorInfo> m_info;
};

/// The text of a code from its two bytes, "P0133" from 01 33; empty for padding, which is every pair whose
/// low twelve bits are zero. Throws `std::out_of_range` for fewer than two bytes.
VELMARA_EXPORT std::string troubleCodeText(const unsigned char* bytes, std::size_t size);

}  // namespace obd
