#pragma once

#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/error_code.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>

#include <array>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <hostos/imessagebus.h>

namespace hostos {

/// One opening of a bus: a stream and the thread that moves its bytes. One thread opens, reads and closes the
/// stream: the one that opens it, and from `start` on the link's own. A write goes straight to the system as
/// far as that takes it, with the lock held under which the stream is closed, and asks that thread for the
/// rest. So no operation can meet a descriptor that was closed and given out again.
class Link : public std::enable_shared_from_this<Link> {
 public:
  using Deadline = std::chrono::steady_clock::time_point;

  Link() : m_work(m_io.get_executor()) {}
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;
  /// The final class calls `stop` in its destructor, while its stream operations are still there.
  virtual ~Link() = default;

  asio::io_context& io() { return m_io; }

  /// For opening: runs handlers on the calling thread until `done`, the deadline, or `stop`.
  void runUntil(const bool& done, Deadline deadline);
  /// For opening: closes the stream and runs the handlers that this ends, until `done`.
  void abandon(const bool& done);

  /// Begins to move bytes. The cause if there is no thread or `stop` came first.
  asio::error_code start();
  /// Ends the link and all that waits for it; the stream is closed on return. Any thread, any number of
  /// times.
  void stop();

  bool stopped() const;
  /// Whether the link runs and has not failed.
  bool alive() const;

  /// As `IMessageBus::read`; `error` is the cause of a failure.
  BusReadResult read(std::vector<unsigned char>& buffer, asio::error_code& error);
  asio::error_code write(const std::vector<unsigned char>& bytes);
  /// Runs `job` on the thread of the stream and waits for it. False if the link is stopped.
  bool execute(const std::function<void()>& job);

 protected:
  using Handler = std::function<void(const asio::error_code&, std::size_t)>;

  /// Writes what the system takes at once, without waiting; 0 as well on a failure, which the waiting way
  /// will meet again. The one operation that any thread may call, while the stream is kept open.
  virtual std::size_t writeNow(asio::const_buffer buffer) = 0;
  virtual void readSome(asio::mutable_buffer buffer, Handler handler) = 0;
  virtual void writeSome(asio::const_buffer buffer, Handler handler) = 0;
  /// Ends pending reads and writes.
  virtual void cancelStream() = 0;
  virtual void closeStream() = 0;

 private:
  void armRead();
  void onRead(const asio::error_code& error, std::size_t size);
  void continueWrite();
  void onWritten(const asio::error_code& error, std::size_t size);

  asio::io_context m_io;
  asio::executor_work_guard<asio::io_context::executor_type> m_work;
  std::array<unsigned char, 4096> m_chunk{};

  mutable std::mutex m_mutex;  // guards what follows
  std::condition_variable m_changed;
  std::vector<unsigned char> m_received;
  asio::error_code m_failure;  // of reading; none while all is well
  bool m_failureTold = false;
  bool m_readPaused = false;  // nobody took the bytes
  bool m_started = false;
  bool m_stopped = false;
  const std::vector<unsigned char>* m_outgoing = nullptr;  // of the write in progress
  std::size_t m_sent = 0;
  asio::error_code m_writeResult;
  bool m_writeTimedOut = false;

  std::mutex m_writeMutex;  // one write at a time
  std::mutex m_joinMutex;
  std::thread m_thread;
};

/// Writes to a socket or a terminal without waiting; the bytes that were taken.
std::size_t writeDescriptor(int descriptor, asio::const_buffer buffer);

/// A link over an Asio stream.
template <typename Stream>
class StreamLink final : public Link {
 public:
  StreamLink() : m_stream(io()) {}
  ~StreamLink() override { stop(); }

  Stream& stream() { return m_stream; }

 protected:
  std::size_t writeNow(asio::const_buffer buffer) override {
    return writeDescriptor(m_stream.native_handle(), buffer);
  }
  void readSome(asio::mutable_buffer buffer, Handler handler) override {
    m_stream.async_read_some(buffer, std::move(handler));
  }
  void writeSome(asio::const_buffer buffer, Handler handler) override {
    m_stream.async_write_some(buffer, std::move(handler));
  }
  void cancelStream() override {
    asio::error_code ignored;
    m_stream.cancel(ignored);
  }
  void closeStream() override {
    asio::error_code ignored;
    m_stream.close(ignored);
  }

 private:
  Stream m_stream;
};

/// "took no data for 5 s"-like words for a failure that any bus may have; `name` is what the bus leads to.
std::string explainLink(const std::string& name, const asio::error_code& error);

/// What all buses share: the present link, and words for the last failure.
class BusCore {
 public:
  enum class Step { Open, Read, Write };

  virtual ~BusCore() = default;

 protected:
  int openLink();
  void closeLink();
  int readLink(std::vector<unsigned char>& buffer);
  int writeLink(const std::vector<unsigned char>& bytes);
  std::string& lastFailure(std::string& text) const;
  /// The present link, null before the first opening.
  std::shared_ptr<Link> link() const;
  void setFailure(std::string text);

  virtual std::shared_ptr<Link> makeLink() = 0;
  /// Opens the stream of a fresh link on the calling thread, and ends early when the link is stopped.
  virtual asio::error_code connect(const std::shared_ptr<Link>& link) = 0;
  /// One line for people: what failed, and what to do.
  virtual std::string explain(Step step, const asio::error_code& error) const = 0;

 private:
  std::mutex m_openMutex;
  mutable std::mutex m_mutex;  // guards what follows
  std::shared_ptr<Link> m_link;
  std::string m_failure;
};

/// `BusCore` behind the operations of a bus interface.
template <typename Interface>
class Bus : public Interface, protected BusCore {
 public:
  int open() override { return openLink(); }
  void close() override { closeLink(); }
  int read(std::vector<unsigned char>& buffer) override { return readLink(buffer); }
  int write(const std::vector<unsigned char>& bytes) override { return writeLink(bytes); }
  std::string& lastError(std::string& text) override { return lastFailure(text); }
};

}  // namespace hostos
