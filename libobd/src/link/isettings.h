#pragma once

#include <string>

#include <tavrix/export.h>

namespace obd {

/// The front end's persistent store of settings. The library calls it on the front end's thread, and from
/// services that read settings on the worker thread; an implementation must stand both at once.
class VELMARA_EXPORT ISettings {
 public:
  virtual ~ISettings() = default;
  virtual void setValue(const std::string& key, int value) = 0;
  virtual void setValue(const std::string& key, const std::string& value) = 0;
  /// False, with `value` untouched, if the key is not stored or holds a text.
  virtual bool value(const std::string& key, int& value) = 0;
  /// False, with `value` untouched, if the key is not stored or holds a number.
  virtual bool value(const std::string& key, std::string& value) = 0;
  /// Writes the store to its medium. For the front end's own use; the library does not call it.
  virtual void sync() {}
};

}  // namespace obd
