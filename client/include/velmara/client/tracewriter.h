#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tavrix/export.h>

#include "recordingfile.h"

namespace velmara {

/// Writes a trace: what goes over links to adapters, a line an event, each of which is in the file before the
/// dialogue goes on. Several connections may follow one another in one trace. Any thread may call it.
///
/// The dialogue does not end with the disk: when something cannot be written, the trace ends there, and
/// `failure` tells.
class VELMARA_EXPORT TraceWriter {
 public:
  /// Throws `Failure` (Unusable, FileExists, NotAFile) where the file cannot be written for sure, or is there
  /// already. It is made with the first event.
  explicit TraceWriter(const std::string& file);
  TraceWriter(const TraceWriter&) = delete;
  TraceWriter& operator=(const TraceWriter&) = delete;
  ~TraceWriter();

  /// Bytes to the adapter, and from it.
  void sent(const std::vector<unsigned char>& bytes);
  void received(const std::vector<unsigned char>& bytes);

  /// What became of the link: it is open, and people call it so; could not be opened, and why; was closed by
  /// this side; has ended by itself, and how.
  void opened(const std::string& link);
  void failed(const std::string& why);
  void closed();
  void lost(const std::string& how);
  /// The port runs at this rate from here on.
  void baudrate(int rate);

  const std::string& name() const { return m_file.name(); }
  /// A sentence if the trace is not whole; empty if it is.
  std::string failure() const;

 private:
  void write(int kind, std::string text);
  void begin();

  mutable std::mutex m_mutex;
  RecordingFile m_file;
  std::optional<std::uint64_t> m_start;  // in microseconds, of the first event
  std::string m_failure;
};

}  // namespace velmara
