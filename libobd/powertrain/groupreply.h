#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace obd {

/// The most PIDs that one request of service 01 carries on CAN (SAE J1979).
inline constexpr std::size_t MaxGroupSize = 6;

/// A PID and how many data bytes a control unit sends for it.
struct PidLength {
  unsigned char pid = 0;
  std::size_t bytes = 0;
  bool proven = false;  ///< by a reply of this control unit
};

/// What a reply to a request for several PIDs holds of one of them. Part of the reply, which has to outlive
/// it.
struct GroupPart {
  unsigned char pid = 0;
  std::span<const unsigned char> data;
};

/// Takes the reply of one control unit to a request of service 01 for several PIDs apart, by the length that
/// each PID has. PIDs may stand in any order, and any of them may be missing, unless the length of one is not
/// proven: then all of them have to be there, in the order in which they were asked for. False, and no parts,
/// where there is the least doubt: a PID that was not asked for, one that comes twice or is cut short, bytes
/// left over.
bool takeApart(std::span<const PidLength> asked, std::span<const unsigned char> reply,
               std::vector<GroupPart>& parts);

/// How many data bytes a reply for this PID alone has, if it is a length that the PID shall have, so that it
/// can be told from its neighbours in a group; otherwise 0. Fuel trims have one byte or two (SAE J1979).
/// Always 0 for PID 0x55, which cannot be told from filling bytes.
std::size_t ownLength(unsigned char pid, std::span<const unsigned char> reply);

/// The length that a PID shall have (SAE J1979); 0 if it may have several, or is not known.
std::size_t standardLength(unsigned char pid);

/// Whether a PID may stand in a group: a length that it shall have is known.
bool fitsIntoGroup(unsigned char pid);

}  // namespace obd
