#include "link/connection.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

#include <tavrix/tracelog.h>

namespace obd {

using tavrix::debugStream;
using tavrix::LogStream;

namespace {

constexpr const char* Source = "src\\connection";
constexpr int LongestWait = 10 * 24 * 60 * 60 * 1000;  // ten days

// Far above any reply. A stream that gets this far ahead is noise, and would eat all memory.
constexpr std::size_t PendingLimit = std::size_t{16} << 20;

// Likewise for messages that nobody takes: an adapter answers one request at a time and then waits.
constexpr std::size_t MessageLimit = 65536;
constexpr std::size_t MessageBytesLimit = std::size_t{32} << 20;

// The bytes that have arrived since the last message. Remembers how far it has been searched, and drops what
// has been cut in large steps, so that the work stays in proportion to the stream.
class PendingBytes {
 public:
  void append(std::vector<unsigned char>& chunk) {
    if (m_begin == m_bytes.size()) {
      m_bytes.swap(chunk);
      m_begin = 0;
      m_searched = 0;
    } else {
      m_bytes.insert(m_bytes.end(), chunk.begin(), chunk.end());
    }
  }

  void clear() {
    m_bytes.clear();
    m_begin = 0;
    m_searched = 0;
  }

  std::size_t size() const { return m_bytes.size() - m_begin; }

  bool cut(unsigned char delimiter, std::vector<unsigned char>& message) {
    if (delimiter != m_delimiter) {
      m_delimiter = delimiter;
      m_searched = m_begin;
    }
    const unsigned char* const bytes = m_bytes.data();
    const std::size_t rest = m_bytes.size() - m_searched;
    const void* const at = rest == 0 ? nullptr : std::memchr(bytes + m_searched, delimiter, rest);
    if (at == nullptr) {
      m_searched = m_bytes.size();
      return false;
    }
    const auto* const end = static_cast<const unsigned char*>(at);
    message.assign(bytes + m_begin, end);
    m_searched = static_cast<std::size_t>(end - bytes);
    m_begin = ++m_searched;
    if (m_begin == m_bytes.size()) {
      clear();
    } else if (m_begin > m_bytes.size() / 2) {
      m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(m_begin));
      m_begin = 0;
      m_searched = 0;
    }
    return true;
  }

 private:
  std::vector<unsigned char> m_bytes;
  std::size_t m_begin = 0;
  std::size_t m_searched = 0;  // no m_delimiter lies between m_begin and here
  unsigned char m_delimiter = 0;
};

}  // namespace

Connection::Connection(const std::shared_ptr<hostos::IMessageBus>& bus)
    : m_bus(bus), m_readThread("Connection::readTask") {}

Connection::~Connection() {
  m_stopping = true;
  m_readThread.join();
  if (m_connected.exchange(false)) {
    m_bus->close();
    m_messageArrived.notifyAll();
  }
}

int Connection::connect() {
  if (m_connected) {
    return 0;
  }
  const unsigned int closings = m_closings;
  if (const int result = m_bus->open(); result != 0) {
    LogStream(Source, __LINE__, 3) << "Failed to connect (" << result << "): " << lastError();
    return result;
  }
  m_stopping = false;
  m_connected = true;
  if (m_closings != closings) {
    disconnect();  // closed while it opened: the link must not come back to life
    return 1;
  }
  if (!m_readThread.run(&Connection::readTask, this)) {
    LogStream(Source, __LINE__, 3) << "Failed to start connection read thread";
  }
  return 0;
}

void Connection::disconnect() {
  ++m_closings;
  m_stopping = true;
  m_connected = false;
  m_bus->close();
  {
    const std::lock_guard guard(m_mutex);
    m_messages.clear();
    m_messageBytes = 0;
  }
  m_messageArrived.notifyAll();
}

void Connection::linkFailed() {
  if (m_stopping.exchange(true)) {
    return;
  }
  disconnect();
  if (IDisconnectListener* const listener = m_disconnectListener) {
    listener->onDisconnected();
  }
}

int Connection::write(const std::vector<unsigned char>& bytes) {
  if (!m_connected || m_stopping) {
    return 1;
  }
  if (m_bus->write(bytes) != 0) {
    LogStream(Source, __LINE__, 3) << "Failed to write socket: " << lastError();
    linkFailed();
    return 1;
  }
  const std::lock_guard guard(m_loggersMutex);
  for (std::size_t i = 0; i < m_loggers.size(); ++i) {
    m_loggers[i]->onWrite(bytes);
  }
  return 0;
}

int Connection::read(std::vector<unsigned char>& bytes, int timeout) {
  std::unique_lock lock(m_mutex);
  // Looked at under the lock, so that a disconnect in between is not slept through.
  if (!m_connected || m_stopping) {
    return ConnectionClosed;
  }
  if (m_messages.empty()) {
    if (timeout < 1) {
      return ConnectionTimeout;
    }
    const auto limit = static_cast<std::uint32_t>(std::min(timeout, LongestWait));
    const std::uint32_t begin = hostos::CTime::milliseconds();
    // A wake-up may come without a message: for nothing, or late for one that was taken already.
    for (std::uint32_t elapsed = 0; m_messages.empty(); elapsed = hostos::CTime::milliseconds() - begin) {
      if (!m_connected || m_stopping || elapsed >= limit || !m_messageArrived.wait(lock, limit - elapsed)) {
        return ConnectionTimeout;
      }
    }
  }
  bytes = std::move(m_messages.front());
  m_messages.pop_front();
  m_messageBytes -= bytes.size();
  const std::lock_guard guard(m_loggersMutex);
  for (std::size_t i = 0; i < m_loggers.size(); ++i) {
    m_loggers[i]->onRead(bytes);
  }
  return ConnectionMessage;
}

std::string Connection::lastError() {
  std::string text;
  return m_bus->lastError(text);
}

void Connection::addLogger(IConnectionLogger* logger) {
  const std::lock_guard guard(m_loggersMutex);
  m_loggers.push_back(logger);
}

void Connection::removeLogger(IConnectionLogger* logger) {
  const std::lock_guard guard(m_loggersMutex);
  if (const auto at = std::find(m_loggers.begin(), m_loggers.end(), logger); at != m_loggers.end()) {
    m_loggers.erase(at);
  }
}

bool Connection::queueMessage(std::vector<unsigned char>&& message) {
  {
    const std::lock_guard guard(m_mutex);
    if (m_messages.size() >= MessageLimit || m_messageBytes + message.size() > MessageBytesLimit) {
      return false;
    }
    m_messageBytes += message.size();
    m_messages.push_back(std::move(message));
  }
  m_messageArrived.notifyOne();
  return true;
}

void* Connection::readTask(void* argument) {
  debugStream << "Read task started enter";
  static_cast<Connection*>(argument)->readLoop();
  debugStream << "read task exit";
  return nullptr;
}

void Connection::readLoop() {
  PendingBytes pending;
  std::vector<unsigned char> chunk;
  while (!m_stopping) {
    chunk.clear();
    const std::uint32_t begin = hostos::CTime::milliseconds();
    const int result = m_bus->read(chunk);
    // A bus that has waited for bytes needs no rest, which would only hold up the next reply.
    const bool waited = hostos::CTime::milliseconds() != begin;
    const bool idle = result == hostos::BusRead && chunk.empty();
    if (result == hostos::BusRead) {
      pending.append(chunk);
    } else if (result == hostos::BusReadError) {
      LogStream(Source, __LINE__, 3) << "Failed to read socket: " << lastError();
      linkFailed();
      return;
    } else if (result == hostos::BusPeerClosed) {
      debugStream << "Disconnected by server";
      linkFailed();
      return;
    } else if (!waited) {
      hostos::CTime::msleep(1);
    }

    std::vector<unsigned char> message;
    if (pending.cut(m_delimiter, message)) {
      if (!queueMessage(std::move(message))) {
        LogStream(Source, __LINE__, 3) << "Failed to read socket: too many messages that nobody takes";
        linkFailed();
        return;
      }
    } else if (idle && !waited && !m_stopping) {
      hostos::CTime::msleep(1);
    }
    if (pending.size() > PendingLimit) {
      LogStream(Source, __LINE__, 3) << "Failed to read socket: too much data, " << pending.size()
                                     << " bytes still to be cut";
      linkFailed();
      return;
    }
  }
}

}  // namespace obd
