#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "report/json.h"
#include "serve/eventfeed.h"
#include "serve/livetable.h"
#include "serve/watchlist.h"

namespace velmara {

/// A document as text. Bytes that are no UTF-8 are replaced.
std::string jsonText(const Json& document);

/// What the thread that drives the car puts up for all viewers to see at any time, and what these want to
/// see. Any thread.
class Board {
 public:
  LiveTable live;
  EventFeed feed;
  WatchList watched;

  /// How the session stands; told to all viewers.
  void setState(const Json& state);
  Json state() const;

  /// What was read of the vehicle under a name, such as "codes"; told to all viewers.
  void setDocument(const std::string& name, const Json& document);
  /// Null if it was not read, or does not hold any more.
  Json document(const std::string& name) const;
  void clearDocuments();

  void setReportPage(std::string html);
  std::string reportPage() const;

  // A recording of live values, as it grows.
  void startRecording();
  /// False if it has become too long; then nothing was added.
  bool record(std::string_view rows);
  std::string recording() const;
  std::size_t recordingSize() const;

  static constexpr std::size_t LongestRecording = 64U << 20U;  // bytes

 private:
  mutable std::mutex m_mutex;
  Json m_state;
  std::map<std::string, Json> m_documents;
  std::string m_reportPage;
  std::string m_recording;
};

}  // namespace velmara
