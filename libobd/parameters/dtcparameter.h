#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/record.h"
#include "dtc/dtcdatamodel.h"

// The readers of trouble codes, which differ in their service only.

namespace obd {

/// Reader of a list of trouble codes. (SAE J1979 services 03, 07 and 0A; the coding of a code in two bytes is
/// that of SAE J2012 / ISO 15031-6.)
class VELMARA_EXPORT DtcParameter : public Record<std::vector<std::shared_ptr<DtcDataModel>>> {
 public:
  /// All database records of the unit's codes, in reply order: a code that three makes define gives three
  /// records. Empty, with a line in the log, for a unit without codes.
  std::vector<std::shared_ptr<DtcDataModel>> getTroubleCodes(const IEcu& ecu) const { return recordOf(ecu); }

 protected:
  explicit DtcParameter(unsigned char service);
  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;
  bool fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) override;
  bool fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) override;

 private:
  using Codes = std::vector<std::shared_ptr<DtcDataModel>>;

  void keep(unsigned int ecuId, Codes codes);
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

/// The text of a code from its two bytes, "P0133" from 01 33; empty for padding, which is every pair whose
/// low twelve bits are zero. Throws `std::out_of_range` for fewer than two bytes.
VELMARA_EXPORT std::string troubleCodeText(const unsigned char* bytes, std::size_t size);

}  // namespace obd
