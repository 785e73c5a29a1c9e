#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "velmara/client/failure.h"

namespace velmara {

/// Writes a file whole or not at all: beside its place, from where it moves there once the disk has it. Gives
/// what went wrong; what was there before remains then.
std::error_code replaceFile(const std::filesystem::path& target, std::string_view text);

/// Where a file goes that is to be there whole or not at all.
class NewFile {
 public:
  /// `what` is what it holds, for messages. Throws `Failure` where it cannot be written for sure, so that
  /// nothing long begins.
  NewFile(std::string what, const std::string& name);

  /// Throws `Failure`; what was there before remains then.
  void write(std::string_view text) const;

  std::string name() const { return m_target.string(); }

 private:
  Failure failure(int error) const;

  std::string m_what;
  std::filesystem::path m_target;
};

}  // namespace velmara
