#include "parameters/identificationnumberparser.h"

#include <algorithm>
#include <array>

#include <tavrix/tracelog.h>

#include "core/record.h"

namespace obd {

namespace {

using tavrix::LogStream;

constexpr const char* Source = "parameters\\identificationnumberparser";
constexpr std::size_t CountPosition = 2;
constexpr std::size_t TextPosition = 3;
constexpr std::size_t TextLength = 17;
constexpr std::size_t Frames = 5;
constexpr std::size_t FramedLength = 20;  // right-aligned

// The text without the zero bytes around it.
std::string trim(const unsigned char* first, std::size_t size) {
  const unsigned char* last = first + size;
  while (first != last && *first == 0) {
    ++first;
  }
  while (first != last && *(last - 1) == 0) {
    --last;
  }
  return {first, last};
}

}  // namespace

bool IdentificationNumberParser::parse(const std::shared_ptr<IEcu>& ecu,
                                       const std::vector<unsigned char>& payload) {
  return isCan(ecu->protocol()) ? parseCan(ecu->id(), payload) : parseFrames(ecu->id(), payload);
}

bool IdentificationNumberParser::hasSignature(const unsigned char* bytes) const {
  const bool found = std::equal(m_signature.begin(), m_signature.end(), bytes);
  if (!found) {
    LogStream(Source, __LINE__, 2) << "Invalid data received: signature mismatch";
  }
  return found;
}

bool IdentificationNumberParser::parseCan(unsigned int id, const std::vector<unsigned char>& payload) {
  if (payload.size() < TextPosition + TextLength) {
    return refuseByteCount(Source, 2, payload.size());
  }
  if (!hasSignature(payload.data())) {
    return false;
  }
  tavrix::debugStream << "Number of items: " << static_cast<int>(payload[CountPosition]);
  m_texts.set(id, trim(payload.data() + TextPosition, TextLength));
  return true;
}

bool IdentificationNumberParser::parseFrames(unsigned int id, const std::vector<unsigned char>& payload) {
  const SaeFrames frames(payload, 0);
  if (frames.count() < Frames) {
    return refuseByteCount(Source, 2, payload.size());
  }
  std::array<unsigned char, FramedLength> buffer{};
  for (std::size_t i = 0; i < Frames; ++i) {
    if (!hasSignature(frames[i])) {
      return false;
    }
    if (!frames.place(i, 1, buffer)) {
      LogStream(Source, __LINE__, 2) << "Invalid sequence number: " << frames.sequence(i) - 1;
      return false;
    }
  }
  m_texts.set(id, trim(buffer.data(), buffer.size()));
  return true;
}

}  // namespace obd
