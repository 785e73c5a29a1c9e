#pragma once

#include <string>
#include <string_view>

#include <tavrix/export.h>

namespace velmara {

/// The file of a recording. It grows by whole rows, and is gone at the end if it got none.
class VELMARA_EXPORT RecordingFile {
 public:
  /// Throws `Failure` (Unusable, FileExists, NotAFile) where it cannot be written for sure, or exists and is
  /// not to be replaced. Does not touch it yet.
  RecordingFile(std::string name, bool replace);
  RecordingFile(const RecordingFile&) = delete;
  RecordingFile& operator=(const RecordingFile&) = delete;
  ~RecordingFile();

  /// Creates or empties it. Throws `Failure` (Unusable).
  void open();
  /// Appends all of it or nothing. Throws `Failure` (Unusable).
  void write(std::string_view rows);
  /// Throws `Failure` (Unusable) if something is not on the disk.
  void close();

  const std::string& name() const { return m_name; }

 private:
  [[noreturn]] void fail(int error) const;

  std::string m_name;
  bool m_replace;
  int m_file = -1;
  long m_size = 0;
};

}  // namespace velmara
