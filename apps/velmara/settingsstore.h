#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "link/isettings.h"

namespace velmara {

/// Settings in a JSON file: one object, a number or a text per key. What the file holds besides is kept as it
/// is. All operations but the construction may come from any thread.
///
/// Several programs may share the file. Each goes by what it read when it began; its own changes, and nothing
/// else, go into what the file holds when it writes, under a lock on a file beside it.
class SettingsStore : public obd::ISettings {
 public:
  /// Where the settings of this user are: under XDG_CONFIG_HOME or ~/.config. Nothing if the user has no
  /// home.
  static std::optional<std::filesystem::path> defaultFile();

  /// Reads `file`, which need not exist. Without a file settings last as long as the store. One that is
  /// broken is moved aside, and `complaint` says so.
  explicit SettingsStore(std::optional<std::filesystem::path> file);
  /// Does not write: that is what `sync` is for.
  ~SettingsStore() override;

  /// What was wrong with the file, for people; empty if nothing was.
  const std::string& complaint() const { return m_complaint; }

  void setValue(const std::string& key, int value) override;
  void setValue(const std::string& key, const std::string& value) override;
  bool value(const std::string& key, int& value) override;
  bool value(const std::string& key, std::string& value) override;
  /// Keeps a text for later runs, at once. False if the file cannot be written; then nothing has changed.
  bool remember(const std::string& key, const std::string& value);
  /// Forgets a key.
  void remove(const std::string& key);

  /// Lets a key read as `value` in this run. The file does not hear of it.
  void overrideValue(const std::string& key, int value);

  /// Writes the file if anything has changed: whole or not at all. Throws `Failure` if it cannot be written,
  /// or if another program has it locked for seconds.
  void sync() override;

 private:
  struct Content;
  class Lock;

  void load();
  void moveAside();
  std::filesystem::path target() const;
  void write(const std::filesystem::path& file);

  std::optional<std::filesystem::path> m_file;
  std::string m_complaint;
  std::unique_ptr<Content> m_content;
};

}  // namespace velmara
