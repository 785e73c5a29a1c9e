#pragma once

#include <vector>

#include <tavrix/export.h>

#include "core/iecu.h"
#include "core/vehicletypes.h"

namespace obd {

constexpr unsigned char MonitorStatusPid = 0x01;
constexpr unsigned char FreezeFrameCodePid = 0x02;

/// Whether an identifier of any service asks which of the 32 behind it there are: 0x00, 0x20, 0x40, ...
/// (SAE J1979).
constexpr bool isIdentifierList(unsigned int identifier) {
  return (identifier & 0x1F) == 0;
}

/// Whether an identifier of service 01 stands for a live value, and not for a list or a record.
constexpr bool isLiveSensor(unsigned int identifier) {
  return !isIdentifierList(identifier) && identifier != MonitorStatusPid && identifier != FreezeFrameCodePid;
}

/// What a list of a unit's sensors is for.
enum class SensorPurpose {
  LiveValues,        ///< service 01 without the records: what can be polled
  Overview,          ///< all of service 01, and the code of the freeze frame if only service 02 offers it
  FreezeFrame,       ///< what a walk over the freeze frames reads of one
  FreezeFrameChoice  ///< the same without the monitor status: what a person may choose from
};

/// Whether a control unit has reported any list of a service's identifiers.
VELMARA_EXPORT bool hasList(const IEcu& ecu, ObdMode mode);

/// What a control unit reports to support in a service, without the lists themselves, in its order.
VELMARA_EXPORT std::vector<unsigned char> supportedIdentifiers(const IEcu& ecu, ObdMode mode,
                                                               unsigned char frame = 0);

/// The identifiers of a unit's sensors for a purpose, in the order of its lists. `frame` matters for freeze
/// frames only.
VELMARA_EXPORT std::vector<unsigned char> sensorIdentifiers(const IEcu& ecu, SensorPurpose purpose,
                                                            unsigned char frame = 0);

}  // namespace obd
