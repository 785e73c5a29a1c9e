#include "serve/board.h"

#include <utility>

namespace velmara {

std::string jsonText(const Json& document) {
  return document.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void Board::setState(const Json& state) {
  {
    const std::lock_guard guard(m_mutex);
    m_state = state;
  }
  feed.publish("state", jsonText(state));
}

Json Board::state() const {
  const std::lock_guard guard(m_mutex);
  return m_state;
}

void Board::setDocument(const std::string& name, const Json& document) {
  {
    const std::lock_guard guard(m_mutex);
    m_documents[name] = document;
  }
  feed.publish("document", jsonText({{"name", name}}));
}

Json Board::document(const std::string& name) const {
  const std::lock_guard guard(m_mutex);
  const auto found = m_documents.find(name);
  return found == m_documents.end() ? Json() : found->second;
}

void Board::clearDocuments() {
  {
    const std::lock_guard guard(m_mutex);
    m_documents.clear();
    m_reportPage.clear();
  }
  feed.publish("document", jsonText({{"name", nullptr}}));
}

void Board::setReportPage(std::string html) {
  const std::lock_guard guard(m_mutex);
  m_reportPage = std::move(html);
}

std::string Board::reportPage() const {
  const std::lock_guard guard(m_mutex);
  return m_reportPage;
}

void Board::startRecording() {
  const std::lock_guard guard(m_mutex);
  m_recording.clear();
}

bool Board::record(std::string_view rows) {
  const std::lock_guard guard(m_mutex);
  if (m_recording.size() + rows.size() > LongestRecording) {
    return false;
  }
  m_recording += rows;
  return true;
}

std::string Board::recording() const {
  const std::lock_guard guard(m_mutex);
  return m_recording;
}

std::size_t Board::recordingSize() const {
  const std::lock_guard guard(m_mutex);
  return m_recording.size();
}

}  // namespace velmara
