#pragma once

#include <optional>
#include <vector>

#include "core/record.h"

// The queries for supported identifiers, which differ in their service and in where a reply has its bitmap.

namespace obd {

/// Asks for one block of supported identifiers (SAE J1979): identifier N of a service reports the 32
/// identifiers N+1 to N+32 as a bitmap, the top bit of the first byte first. An object reads one block; the
/// chain from block to block is the control unit's.
class VELMARA_EXPORT SupportedOids : public Record<std::vector<unsigned char>> {
 public:
  unsigned int timeout() const override { return m_timeout; }

  /// What the block reports for a control unit: 1 to 32, relative to the block, ascending. Empty if it did
  /// not answer.
  std::vector<unsigned char> ids(const IEcu& ecu) const { return records().get(ecu.id()); }

 protected:
  /// Where the bitmap begins in a reply, on CAN and before it. Some services have a filler byte before CAN,
  /// in front of it; a wrong one is noted and read over.
  struct Layout {
    std::size_t can;
    std::size_t frames;
    std::optional<unsigned char> filler = std::nullopt;
  };

  SupportedOids(const Request& request, const Layout& layout, unsigned int timeout = 3500)
      : Record(request, "parameters\\supportedoids"), m_layout(layout), m_timeout(timeout) {}

  bool fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) override {
    return take(ecuId, reply, m_layout.can);
  }
  bool fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) override {
    return take(ecuId, reply, m_layout.frames);
  }

 private:
  bool take(unsigned int ecuId, const std::vector<unsigned char>& reply, std::size_t offset);

  Layout m_layout;
  unsigned int m_timeout;  // milliseconds
};

/// PIDs of current data. The first block may have to wake the bus, so it waits for 11 s.
class VELMARA_EXPORT Service01Oids : public SupportedOids {
 public:
  explicit Service01Oids(unsigned char oid)
      : SupportedOids(Request(ObdMode::Mode01, {oid}), {2, 2}, oid == 0 ? 11000 : 3500) {}
};

/// PIDs of a freeze frame.
class VELMARA_EXPORT Service02Oids : public SupportedOids {
 public:
  Service02Oids(unsigned char oid, unsigned char frame)
      : SupportedOids(Request(ObdMode::Mode02, {oid, frame}), {3, 3}) {}
};

/// Test identifiers of an oxygen sensor, which is given by its sensor byte. Protocols before CAN only.
class VELMARA_EXPORT Service05Oids : public SupportedOids {
 public:
  Service05Oids(unsigned char tid, unsigned char sensor)
      : SupportedOids(Request(ObdMode::Mode05, {tid, sensor}), {3, 3}) {}
};

/// Monitor or test identifiers of on-board monitoring. Before CAN a filler byte 0xFF stands before the
/// bitmap.
class VELMARA_EXPORT Service06Oids : public SupportedOids {
 public:
  explicit Service06Oids(unsigned char oid) : SupportedOids(Request(ObdMode::Mode06, {oid}), {2, 3, 0xFF}) {}
};

/// Test identifiers of on-board systems. Before CAN a filler byte 0x00 stands before the bitmap, and the
/// request carries five zero bytes. It is `protocol` that decides, whichever unit replies.
class VELMARA_EXPORT Service08Oids : public SupportedOids {
 public:
  Service08Oids(unsigned char tid, ObdProtocol protocol)
      : SupportedOids(Request::ofService08(tid, protocol),
                      isCan(protocol) ? Layout{2, 2} : Layout{3, 3, 0x00}) {}
};

/// Information types of service 09. Before CAN a message count stands before the bitmap.
class VELMARA_EXPORT Service09Oids : public SupportedOids {
 public:
  explicit Service09Oids(unsigned char oid) : SupportedOids(Request(ObdMode::Mode09, {oid}), {2, 3}) {}
};

}  // namespace obd
