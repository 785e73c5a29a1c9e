#pragma once

#include <string>
#include <vector>

#include <tavrix/export.h>

namespace obd {

/// Sees the traffic of a connection: `onWrite` on the writing thread, `onRead` on the reading one, never both
/// at once. Must not read from the connection or close it from within.
class VELMARA_EXPORT IConnectionLogger {
 public:
  virtual ~IConnectionLogger() = default;
  /// Bytes as they went out, line end included.
  virtual void onWrite(const std::vector<unsigned char>& bytes) = 0;
  /// One reply as it came in, without its prompt.
  virtual void onRead(const std::vector<unsigned char>& bytes) = 0;
};

/// Hears, once, of a link that failed; not of a link that was closed on purpose. Called on the thread that
/// met the failure, which must not destroy the connection from there.
class VELMARA_EXPORT IDisconnectListener {
 public:
  virtual ~IDisconnectListener() = default;
  virtual void onDisconnected() = 0;
};

/// Results of `IConnection::read`.
enum ConnectionReadResult : int {
  ConnectionMessage = 0,  ///< a message was taken
  ConnectionTimeout = 1,  ///< no message within the time
  ConnectionClosed = 2    ///< the link is down
};

/// A byte stream cut into messages at a delimiter. One thread at a time holds the dialogue; `disconnect` and
/// the loggers' operations may come from any thread.
class VELMARA_EXPORT IConnection {
 public:
  virtual ~IConnection() = default;
  /// Opens the link. 0 for success, otherwise the bus's error code.
  virtual int connect() = 0;
  /// Ends the link and wakes who waits for a message. Does not wait for anything.
  virtual void disconnect() = 0;
  virtual bool isConnected() = 0;
  /// 0 for success.
  virtual int write(const std::vector<unsigned char>& bytes) = 0;
  /// Replaces `bytes` by the oldest message, waiting at most `timeout` milliseconds. Gives a
  /// `ConnectionReadResult`.
  virtual int read(std::vector<unsigned char>& bytes, int timeout) = 0;
  /// The byte that ends a message. Applies to bytes that have arrived already, too.
  virtual void setDelimiter(unsigned char delimiter) = 0;
  /// The bus's words on its latest failure.
  virtual std::string lastError() = 0;
  /// Not owned; null for none.
  virtual void setDisconnectListener(IDisconnectListener* listener) = 0;
  /// Not owned. Loggers are told in the order of adding.
  virtual void addLogger(IConnectionLogger* logger) = 0;
  /// Takes out the first entry of this logger. No call to it is in progress on another thread afterwards.
  virtual void removeLogger(IConnectionLogger* logger) = 0;
};

}  // namespace obd
