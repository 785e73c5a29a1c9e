#pragma once

#include <vector>

#include "core/record.h"

namespace obd {

/// Service 04: clears codes, freeze frames and test results in all control units.
class VELMARA_EXPORT ClearTroubleCodes final : public Record<bool> {
 public:
  ClearTroubleCodes() : Record(Request(0x04), "parameters\\cleartroublecodes") {}

  /// Whether the unit has confirmed. A line in the log for a unit that did not answer.
  bool isCleared(const IEcu& ecu) const { return recordOf(ecu); }

 protected:
  bool fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) override {
    records().set(ecuId, !reply.empty());
    return !reply.empty();
  }
};

}  // namespace obd
