#pragma once

#include <asio/error.hpp>
#include <asio/error_code.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <hostos/imessagebus.h>

namespace hostos {

/// A new bus, within what the calling thread wants around it (`BusFactory::setWrapper`).
std::shared_ptr<IMessageBus> wrapped(std::shared_ptr<IMessageBus> bus);

/// One opening of a bus: a stream and a descriptor that wakes whoever waits for it. Until `start` the stream
/// belongs to the thread that opens it; from then on those who read and write move the bytes themselves, and
/// are counted while they do, so that `stop` closes the stream when the last one has left. So no operation
/// can meet a descriptor that was closed and given out again.
class Link : public std::enable_shared_from_this<Link> {
 public:
  using Deadline = std::chrono::steady_clock::time_point;

  /// Throws `std::system_error` if the system has no descriptor left.
  Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;
  /// Nobody uses the stream any more; the stream closes itself.
  virtual ~Link();

  asio::io_context& io() { return m_io; }

  /// For opening: runs handlers on the calling thread until `done`, the deadline, or `stop`.
  void runUntil(const bool& done, Deadline deadline);
  /// For opening: closes the stream and runs the handlers that this ends, until `done`.
  void abandon(const bool& done);

  /// Ends the opening of a stream that does not block: from now on it may be used. The cause if `stop` came
  /// first.
  asio::error_code start();
  /// Ends the link and all that waits for it; a stream that was in use is closed on return. Any thread, any
  /// number of times.
  void stop();

  bool stopped() const;
  /// Whether the link runs and has not failed.
  bool alive() const;

  /// As `IMessageBus::read`; `error` is the cause of a failure.
  BusReadResult read(std::vector<unsigned char>& buffer, asio::error_code& error);
  asio::error_code write(const std::vector<unsigned char>& bytes);
  /// Runs `job`, in which the stream stays open. False if the link is stopped.
  bool execute(const std::function<void()>& job);

 protected:
  /// What follows is for threads that keep the stream open. Readable when there is something to receive, and
  /// writable when the stream takes more.
  virtual int inlet() = 0;
  virtual int outlet() { return inlet(); }
  /// Takes what has arrived into an empty buffer. `eof` if the other side has closed the stream,
  /// `would_block` if there was nothing.
  virtual asio::error_code receive(std::vector<unsigned char>& buffer);
  /// Gives away what the stream takes at once, and tells how much that was; `would_block` if it was nothing.
  virtual asio::error_code send(const unsigned char* bytes, std::size_t size, std::size_t& taken);
  virtual void closeStream() = 0;

  /// Waits until the descriptor allows one of `events`, or has failed; false if the time ran out or the link
  /// is stopped. May return early.
  bool await(int descriptor, short events, std::chrono::milliseconds limit) const;
  /// Readable once the link is stopped.
  int wake() const { return m_wake; }

 private:
  class Use;

  std::size_t take(std::vector<unsigned char>& buffer);

  asio::io_context m_io;
  asio::executor_work_guard<asio::io_context::executor_type> m_work;
  const int m_wake;

  mutable std::mutex m_mutex;  // guards what follows
  std::condition_variable m_unused;
  int m_users = 0;             // of the stream, after the opening
  asio::error_code m_failure;  // of reading; none while all is well
  bool m_started = false;
  bool m_stopped = false;

  std::mutex m_writeMutex;  // one write at a time
};

/// A link over an Asio stream.
template <typename Stream>
class StreamLink final : public Link {
 public:
  StreamLink() : m_stream(io()) {}

  Stream& stream() { return m_stream; }

 protected:
  int inlet() override { return m_stream.native_handle(); }
  void closeStream() override {
    asio::error_code ignored;
    m_stream.close(ignored);
  }

 private:
  Stream m_stream;
};

/// The failure that `errno` names.
inline asio::error_code systemError(int code) {
  return {code, asio::error::get_system_category()};
}

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
