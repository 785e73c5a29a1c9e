#include "powertrain/groupreply.h"

#include <algorithm>

#include "powertrain/pidrow.h"

namespace obd {

namespace {

constexpr unsigned char Reply = 0x41;  // service 01 plus 0x40
constexpr std::size_t HeaderSize = 2;  // of the reply for one PID

// 0 where the PID has no row.
std::size_t dataLength(unsigned char pid) {
  const PidRow* const row = lookUpPidRow(static_cast<ParameterIdentifier::Id>(pid));
  return row == nullptr ? 0 : row->bytes;
}

// With this byte, a PID as well, some control units fill up their messages (ISO 15765-2).
constexpr unsigned char Filler = 0x55;

bool isFuelTrim(unsigned char pid) {
  return (pid >= 0x06 && pid <= 0x09) || (pid >= 0x55 && pid <= 0x58);
}

}  // namespace

std::size_t standardLength(unsigned char pid) {
  return isFuelTrim(pid) ? 0 : dataLength(pid);
}

bool fitsIntoGroup(unsigned char pid) {
  return dataLength(pid) != 0;
}

std::size_t ownLength(unsigned char pid, std::span<const unsigned char> reply) {
  if (reply.size() <= HeaderSize || reply[0] != Reply || reply[1] != pid || pid == Filler) {
    return 0;
  }
  const std::size_t bytes = reply.size() - HeaderSize;
  return bytes == dataLength(pid) || (bytes == 1 && isFuelTrim(pid)) ? bytes : 0;
}

bool takeApart(std::span<const PidLength> asked, std::span<const unsigned char> reply,
               std::vector<GroupPart>& parts) {
  parts.clear();
  if (reply.size() <= HeaderSize || reply.front() != Reply) {
    return false;
  }
  for (reply = reply.subspan(1); !reply.empty();) {
    const auto found = std::ranges::find(asked, reply.front(), &PidLength::pid);
    if (found == asked.end() || found->bytes == 0 || reply.size() - 1 < found->bytes ||
        std::ranges::find(parts, found->pid, &GroupPart::pid) != parts.end()) {
      parts.clear();
      return false;
    }
    parts.push_back({found->pid, reply.subspan(1, found->bytes)});
    reply = reply.subspan(1 + found->bytes);
  }
  if (std::ranges::all_of(asked, &PidLength::proven) ||
      std::ranges::equal(asked, parts, {}, &PidLength::pid, &GroupPart::pid)) {
    return true;
  }
  parts.clear();
  return false;
}

}  // namespace obd
