#pragma once

#include <deque>
#include <string_view>
#include <vector>

#include "target.h"

namespace fuzz {

/// An ELM327 on a CAN car with two control units, or with one that has little to tell. For each line that is
/// written the input says whether it answers, or bytes of the input's choice come, or the link breaks; where
/// the input has ended it answers.
class ScriptedAdapter {
 public:
  using Bytes = std::vector<unsigned char>;

  /// The input stays the caller's, who may take from it between two lines.
  explicit ScriptedAdapter(Input& input) : m_input(input) {}

  /// Takes a line with its end. 0 for success; not 0 if the link has broken on it.
  int write(const Bytes& line);

  /// What it has said and nobody has taken yet, message by message, without prompts.
  std::deque<Bytes> messages;
  /// The link is broken.
  bool down = false;
  /// One control unit, whose interrogation is short.
  bool small = false;

 private:
  std::string_view answerTo(const Bytes& line) const;

  Input& m_input;
};

}  // namespace fuzz
