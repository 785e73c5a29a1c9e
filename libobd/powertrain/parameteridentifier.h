#pragma once

#include <string>

#include <tavrix/export.h>

namespace obd {

/// The identifier of a parameter: its PID of service 01 (SAE J1979), or 240 and up for values that the
/// library works out and that never reach the wire. Each is named as the parameter's class.
class VELMARA_EXPORT ParameterIdentifier {
 public:
  enum Id : int {
#define VELMARA_PID_OF(number, name, ...) name = number,
#define VELMARA_OWN_PID(number, name, ...) name = number,
#include "powertrain/pids.h"

    // The ways to work out fuel consumption.
    GasConsumption = 241,
    GasConsumptionMap = 242,
    DieselConsumption = 243
  };

  constexpr ParameterIdentifier(int id) : m_id(id) {}  // NOLINT(google-explicit-constructor)
  constexpr ParameterIdentifier(Id id) : m_id(id) {}   // NOLINT(google-explicit-constructor)

  constexpr Id id() const {
    return static_cast<Id>(m_id);
  }
  /// The identifier as a byte of a request: its low 8 bits.
  constexpr unsigned char toOid() const {
    return static_cast<unsigned char>(static_cast<unsigned int>(m_id) & 0xFFU);
  }
  /// "$0C": upper-case hexadecimal of at least two digits.
  std::string toString() const;

 private:
  int m_id;
};

/// The unique identifier of a sensor: ten times the identifier of its parameter plus its index there, which
/// is below 10. The only sensor of a parameter has index 0.
constexpr int Pid2Uid(int pid, int index = 0) {
  return static_cast<int>(static_cast<unsigned int>(pid) * 10U + static_cast<unsigned int>(index));
}
/// The parameter that a sensor belongs to.
constexpr ParameterIdentifier::Id Uid2Pid(int uid) {
  return ParameterIdentifier(uid / 10).id();
}

}  // namespace obd
