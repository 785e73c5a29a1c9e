#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/ecumap.h"

namespace obd {

/// Reads the replies that carry one text of 17 characters. On CAN a count and the text follow the signature;
/// before CAN the text is right-aligned in five frames of 49, type, sequence number 1 to 5 and four bytes, in
/// any order, without checksums (SAE J1979, ISO 15031-5). Keeps one text per control unit.
class VELMARA_EXPORT IdentificationNumberParser {
 public:
  /// `signature` are the bytes with which a reply, and before CAN each of its frames, begins.
  explicit IdentificationNumberParser(std::vector<unsigned char> signature)
      : m_signature(std::move(signature)) {}

  /// Takes a whole reply. False, with the earlier text kept, if it is malformed.
  bool parse(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& payload);
  /// Empty for a unit that did not answer.
  std::string text(const std::shared_ptr<IEcu>& ecu) const { return m_texts.get(ecu->id()); }
  void clear() { m_texts.clear(); }

 private:
  bool parseCan(unsigned int id, const std::vector<unsigned char>& payload);
  bool parseFrames(unsigned int id, const std::vector<unsigned char>& payload);
  bool hasSignature(const unsigned char* bytes) const;

  std::vector<unsigned char> m_signature;
  EcuMap<std::string> m_texts;
};

}  // namespace obd
