// Requests to the vehicle, and its replies as an adapter shows them.

#include "elmcore.h"

namespace simulator {

namespace {

constexpr std::size_t LongestMessage = 4095;  // ISO 15765-2

// CRC of SAE J1850: polynomial 0x1D, begun with and inverted by 0xFF.
std::uint8_t crcJ1850(const Bytes& bytes) {
  unsigned crc = 0xFF;
  for (const std::uint8_t byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 0x80U) != 0 ? (crc << 1 ^ 0x1DU) & 0xFFU : crc << 1 & 0xFFU;
    }
  }
  return static_cast<std::uint8_t>(crc ^ 0xFFU);
}

// Checksum of ISO 9141-2 and ISO 14230: the sum of all bytes.
std::uint8_t sum(const Bytes& bytes) {
  unsigned total = 0;
  for (const std::uint8_t byte : bytes) {
    total += byte;
  }
  return static_cast<std::uint8_t>(total);
}

// Frames of one message on ISO 15765-2.
std::vector<Bytes> canFrames(Bytes message, std::optional<std::uint8_t> filler) {
  message.resize(std::min(message.size(), LongestMessage));
  const std::size_t size = message.size();
  std::vector<Bytes> frames;
  if (size <= 7) {
    frames.push_back({static_cast<std::uint8_t>(size)});
    frames.back().insert(frames.back().end(), message.begin(), message.end());
  } else {
    frames.push_back({static_cast<std::uint8_t>(0x10U | size >> 8), static_cast<std::uint8_t>(size)});
    frames.back().insert(frames.back().end(), message.begin(), message.begin() + 6);
    unsigned sequence = 1;
    for (std::size_t at = 6; at < size; at += 7, ++sequence) {
      frames.push_back({static_cast<std::uint8_t>(0x20U | (sequence & 0x0FU))});
      frames.back().insert(frames.back().end(), message.begin() + static_cast<std::ptrdiff_t>(at),
                           message.begin() + static_cast<std::ptrdiff_t>(std::min(at + 7, size)));
    }
  }
  if (filler) {
    for (Bytes& frame : frames) {
      frame.resize(8, *filler);
    }
  }
  return frames;
}

}  // namespace

void ElmAdapter::Core::request(std::string_view text, Reply& reply) {
  const auto answer = [this, &reply](unsigned delay, std::string_view words) {
    reply.add(delay, std::string(words) + newLine() + newLine());
  };
  // An odd last digit tells how many lines to wait for.
  unsigned most = std::numeric_limits<unsigned>::max();
  if (text.size() % 2 != 0 && text.size() > 2 && m_character.version >= 12 && isHex(text)) {
    most = static_cast<unsigned>(hexDigit(text.back()));
    text.remove_suffix(1);
  }
  if (text.empty() || text.size() % 2 != 0 || text.size() > (m_canFormat ? 14U : 16U) || !isHex(text) ||
      most == 0) {
    answer(0, "?");
    return;
  }
  Bytes bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(hexValue(text.substr(i, 2))));
  }
  if (!m_canFormat && bytes.size() > 1 && isCan()) {  // the host writes the length byte itself
    bytes.erase(bytes.begin());
  }

  VehicleData& vehicle = m_vehicle->data();
  reply.running = true;
  unsigned delay = m_options.latency;
  if (!m_open && !openProtocol(vehicle, reply, delay)) {
    return;
  }
  const std::vector<UnitReply> replies = vehicle.request(bytes, target(vehicle));
  std::vector<Line> lines = wireLines(vehicle, replies);
  if (lines.size() > most) {
    lines.resize(most);
  }
  if (!m_responses) {
    reply.add(delay, newLine());
    return;
  }
  if (lines.empty()) {
    answer(delay + m_options.silence.value_or(m_timeout * 4), "NO DATA");
    return;
  }
  for (const Line& line : lines) {
    reply.add(delay + line.time / 1000, line.text + newLine());
  }
  reply.add(reply.duration(), newLine());
}

// Finds the vehicle's protocol, or wakes the bus. False if that fails; the reply has the words then.
bool ElmAdapter::Core::openProtocol(const VehicleData& vehicle, Reply& reply, unsigned& delay) {
  const bool there = vehicle.ignition();
  const bool slow = m_protocol == 3 || m_protocol == 4;
  const auto fail = [this, &reply, &delay](std::string_view words) {
    reply.add(delay, std::string(words) + newLine() + newLine());
    return false;
  };
  if (m_automatic) {
    reply.add(0, "SEARCHING...");
    delay += m_options.searchTime;
    reply.add(delay, newLine());
    if (!there) {
      return fail("UNABLE TO CONNECT");
    }
    m_protocol = vehicle.protocol;
    if (m_memory) {
      m_stored = m_protocol;
      m_storedAutomatic = true;
    }
    m_open = true;
    return true;
  }
  const bool right = there && m_protocol == vehicle.protocol;
  if (m_protocol >= 3 && m_protocol <= 5) {
    reply.add(0, slow ? "BUS INIT: ..." : "BUS INIT: ");
    delay += m_options.searchTime;
    if (!right) {
      return fail("ERROR");
    }
    reply.add(delay, "OK" + newLine());
  } else if (!right) {
    delay += m_options.silence.value_or(m_timeout * 4);
    return fail(m_protocol >= 6 ? "CAN ERROR" : "NO DATA");
  }
  m_open = true;
  return true;
}

// Whom the header addresses: nobody in particular, or the unit that answers with this identifier.
std::optional<std::uint32_t> ElmAdapter::Core::target(const VehicleData& vehicle) const {
  constexpr std::uint32_t Nobody = 0xFFFFFFFF;
  if (m_header.empty()) {
    return std::nullopt;
  }
  const std::uint32_t header = hexValue(m_header);
  if (!vehicle.isCan()) {
    const std::uint32_t address = header >> 8 & 0xFFU;
    return address == 0x6A || address == 0x33 ? std::nullopt : std::optional(address);
  }
  if (vehicle.protocol % 2 == 0) {
    return (header & 0x7FFU) == 0x7DF ? std::nullopt : std::optional((header & 0x7FFU) + 8);
  }
  const std::uint32_t low = header & 0xFFFFFFU;
  if (low == 0xDB33F1) {
    return std::nullopt;
  }
  return (low & 0xFF00FFU) == 0xDA00F1 ? std::optional(0x18DAF100U | (low >> 8 & 0xFFU))
                                       : std::optional(Nobody);
}

std::vector<ElmAdapter::Core::Line> ElmAdapter::Core::wireLines(const VehicleData& vehicle,
                                                                const std::vector<UnitReply>& replies) const {
  std::vector<Line> lines;
  for (const UnitReply& unit : replies) {
    if (vehicle.isCan() && !passes(unit.id, vehicle.protocol % 2 == 0)) {
      continue;
    }
    // Frames of one unit follow each other closely; those of several interleave.
    unsigned time = unit.latency * 1000;
    for (const Bytes& message : unit.messages) {
      if (vehicle.isCan()) {
        const std::vector<Bytes> frames = canFrames(message, vehicle.filler);
        for (const Bytes& frame : frames) {
          canLines(unit.id, frame, vehicle.protocol % 2 == 0, message.size(), time, lines);
          ++time;
        }
      } else {
        lines.push_back({time++, lineText(vehicle.protocol, unit.id, message)});
      }
    }
  }
  std::stable_sort(lines.begin(), lines.end(), [](const Line& a, const Line& b) { return a.time < b.time; });
  return lines;
}

bool ElmAdapter::Core::passes(std::uint32_t id, bool shortId) const {
  if (!m_filter) {
    return true;
  }
  const std::uint32_t mask = m_mask.value_or(shortId ? 0x7FFU : 0x1FFFFFFFU);
  return (id & mask) == (*m_filter & mask);
}

void ElmAdapter::Core::appendBytes(std::string& text, const Bytes& bytes, std::size_t from) const {
  static constexpr char Hex[] = "0123456789ABCDEF";
  for (std::size_t i = from; i < bytes.size(); ++i) {
    text.push_back(Hex[bytes[i] >> 4]);
    text.push_back(Hex[bytes[i] & 0x0F]);
    if (m_spaces) {
      text.push_back(' ');
    }
  }
}

void ElmAdapter::Core::canLines(std::uint32_t id, const Bytes& frame, bool shortId, std::size_t size,
                                unsigned time, std::vector<Line>& lines) const {
  std::string text;
  if (m_headers) {
    if (shortId) {
      static constexpr char Hex[] = "0123456789ABCDEF";
      text = {Hex[id >> 8 & 0x0F], Hex[id >> 4 & 0x0F], Hex[id & 0x0F]};
      if (m_spaces) {
        text.push_back(' ');
      }
    } else {
      appendBytes(text, {static_cast<std::uint8_t>(id >> 24), static_cast<std::uint8_t>(id >> 16),
                         static_cast<std::uint8_t>(id >> 8), static_cast<std::uint8_t>(id)});
    }
    appendBytes(text, frame);
  } else if (!m_canFormat) {
    appendBytes(text, frame);
  } else if (frame[0] >> 4 == 0) {
    const std::size_t length = frame[0] & 0x0FU;
    appendBytes(text, Bytes(frame.begin() + 1, frame.begin() + 1 + static_cast<std::ptrdiff_t>(length)));
  } else if (frame[0] >> 4 == 1) {
    // Without headers the length stands on a line of its own, and the frames are numbered.
    std::array<char, 16> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%03zX", size & 0xFFFU);
    lines.push_back({time, buffer.data() + (m_spaces ? std::string(" ") : std::string())});
    text = m_spaces ? "0: " : "0:";
    appendBytes(text, frame, 2);
  } else {
    text = hexText(frame[0] & 0x0FU) + (m_spaces ? ": " : ":");
    appendBytes(text, frame, 1);
  }
  lines.push_back({time, std::move(text)});
}

// A frame of the protocols before CAN, with its header and check byte if headers are on.
std::string ElmAdapter::Core::lineText(int protocol, std::uint32_t id, const Bytes& message) const {
  const auto address = static_cast<std::uint8_t>(id);
  Bytes frame;
  if (m_headers) {
    switch (protocol) {
      case 1:
        frame = {0x41, 0x6B, address};
        break;
      case 2:
      case 3:
        frame = {0x48, 0x6B, address};
        break;
      default:
        frame = {static_cast<std::uint8_t>(0x80U | std::min<std::size_t>(message.size(), 0x3F)), 0xF1,
                 address};
        break;
    }
  }
  frame.insert(frame.end(), message.begin(), message.end());
  if (m_headers) {
    frame.push_back(protocol <= 2 ? crcJ1850(frame) : sum(frame));
  }
  std::string text;
  appendBytes(text, frame);
  return text;
}

}  // namespace simulator
