#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <hostos/imessagebus.h>
#include <hostos/thread.h>
#include <hostos/time.h>

#include "link/iconnection.h"

namespace obd {

/// The connection over a bus. A read task of its own polls the bus and cuts what arrives into messages.
class Connection : public IConnection {
 public:
  explicit Connection(const std::shared_ptr<hostos::IMessageBus>& bus);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  /// Ends the link and waits for the read task.
  ~Connection() override;

  int connect() override;
  void disconnect() override;
  bool isConnected() override { return m_connected; }
  int write(const std::vector<unsigned char>& bytes) override;
  int read(std::vector<unsigned char>& bytes, int timeout) override;
  void setDelimiter(unsigned char delimiter) override { m_delimiter = delimiter; }
  std::string lastError() override;
  void setDisconnectListener(IDisconnectListener* listener) override { m_disconnectListener = listener; }
  void addLogger(IConnectionLogger* logger) override;
  void removeLogger(IConnectionLogger* logger) override;

 private:
  static void* readTask(void* argument);
  void readLoop();
  // False, with nothing queued, if far too many messages wait already.
  bool queueMessage(std::vector<unsigned char>&& message);
  void linkFailed();

  const std::shared_ptr<hostos::IMessageBus> m_bus;
  std::atomic<bool> m_connected{false};
  std::atomic<bool> m_stopping{false};
  std::atomic<unsigned int> m_closings{0};  // tells `connect` of a `disconnect` while the bus was opening
  std::atomic<unsigned char> m_delimiter{0};
  std::atomic<IDisconnectListener*> m_disconnectListener{nullptr};

  std::mutex m_mutex;  // guards m_messages and m_messageBytes; taken before m_loggersMutex
  std::deque<std::vector<unsigned char>> m_messages;
  std::size_t m_messageBytes = 0;  // in m_messages
  hostos::WaitCondition m_messageArrived;

  // Held while loggers are told, so that a logger taken out is not called any more; recursive, so that a
  // logger may take itself out from within.
  std::recursive_mutex m_loggersMutex;
  std::vector<IConnectionLogger*> m_loggers;

  hostos::CThread m_readThread;
};

}  // namespace obd
