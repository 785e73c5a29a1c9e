#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <initializer_list>
#include <vector>

#include "core/vehicletypes.h"

namespace obd {

/// What the vehicle is asked: a service and, behind it, the identifiers that this service wants (SAE J1979).
class Request {
 public:
  /// Nothing is asked; every reply fits.
  Request() = default;
  /// `length` fills the request up with zero bytes, which a reply does not repeat. Three identifiers at most.
  explicit Request(unsigned char service, std::initializer_list<unsigned char> identifiers = {},
                   std::size_t length = 0)
      : m_size(1 + identifiers.size()), m_length(std::max(m_size, length)) {
    m_bytes[0] = service;
    std::copy(identifiers.begin(), identifiers.end(), m_bytes.begin() + 1);
  }

  explicit Request(ObdMode service, std::initializer_list<unsigned char> identifiers)
      : Request(static_cast<unsigned char>(service), identifiers) {}
  /// Service 08 for one test, which before CAN has a fixed length.
  static Request ofService08(unsigned char tid, ObdProtocol protocol) {
    const bool fixed = !isCan(protocol) && protocol != ObdProtocol::Unknown;
    return Request(static_cast<unsigned char>(ObdMode::Mode08), {tid}, fixed ? 7 : 0);
  }

  /// The bytes of the request.
  std::vector<unsigned char> bytes() const {
    std::vector<unsigned char> bytes(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(m_size));
    bytes.resize(m_length);
    return bytes;
  }

  /// Replaces `bytes` by those with which every reply begins: the service plus 0x40, and the identifiers.
  void getSignature(std::vector<unsigned char>& bytes) const {
    bytes.assign(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(m_size));
    if (m_size > 0) {
      bytes[0] = static_cast<unsigned char>(bytes[0] + 0x40);
    }
  }
  /// The same as a vector of its own.
  std::vector<unsigned char> signature() const {
    std::vector<unsigned char> bytes;
    getSignature(bytes);
    return bytes;
  }

  /// How many bytes the signature has.
  std::size_t signatureSize() const { return m_size; }

 private:
  std::array<unsigned char, 4> m_bytes{};
  std::size_t m_size = 0;
  std::size_t m_length = 0;
};

}  // namespace obd
