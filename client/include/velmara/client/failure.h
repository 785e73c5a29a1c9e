#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include <tavrix/export.h>

namespace velmara {

/// The one way in which the client tells that something did not work: what failed, in whole sentences, and
/// what the user may try. Whatever throws it leaves its session usable, unless it says otherwise.
class VELMARA_EXPORT Failure : public std::runtime_error {
 public:
  enum class Kind {
    Unusable,    ///< a wrong input, or something on this computer that cannot be used
    FileExists,  ///< a file is there that is not to be replaced
    NotAFile,    ///< a folder, a device and the like stands where a file was meant
    LinkFailed,  ///< the link to the adapter cannot be opened
    NoAdapter,   ///< the link is open, but no adapter answers on it
    NoVehicle,   ///< the adapter answers, but no vehicle does
    LinkLost,    ///< the link was lost on the way
    NoData,      ///< the vehicle refuses, or does not have what was asked for
    Cancelled    ///< somebody has called the work off
  };

  Failure(Kind kind, const std::string& message, std::string advice = {})
      : std::runtime_error(message), m_kind(kind), m_advice(std::move(advice)) {}

  Kind kind() const { return m_kind; }
  /// What to try, as a sentence; may be empty.
  const std::string& advice() const { return m_advice; }

 private:
  Kind m_kind;
  std::string m_advice;
};

}  // namespace velmara
