#include "buscore.h"

#include <hostos/busfactory.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>
#include <asio/post.hpp>

#include <cerrno>
#include <system_error>

#include "buslimits.h"

namespace hostos {

namespace {
constexpr std::size_t ReceiveLimit = 1 << 20;  // unread bytes, beyond which the peer has to wait
constexpr std::chrono::milliseconds Pause{1};  // for callers that ask a dead link again and again
}  // namespace

std::size_t writeDescriptor(int descriptor, asio::const_buffer buffer) {
  ssize_t taken = ::send(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (taken < 0 && errno == ENOTSOCK) {
    taken = ::write(descriptor, buffer.data(), buffer.size());  // Asio opens terminals without blocking
  }
  return taken < 0 ? 0 : static_cast<std::size_t>(taken);
}

void Link::runUntil(const bool& done, Deadline deadline) {
  while (!done && !stopped() && m_io.run_one_until(deadline) != 0) {
  }
}

void Link::abandon(const bool& done) {
  closeStream();
  while (!done) {
    m_io.run_one();
  }
}

asio::error_code Link::start() {
  const std::lock_guard guard(m_mutex);
  if (m_stopped) {
    return asio::error::operation_aborted;
  }
  try {
    m_thread = std::thread([this] {
      pthread_setname_np(pthread_self(), "hostos::Link");
      armRead();
      m_io.run();
    });
  } catch (const std::system_error& error) {
    return asio::error_code(error.code().value(), asio::error::get_system_category());
  }
  m_started = true;
  return {};
}

void Link::stop() {
  {
    const std::lock_guard guard(m_mutex);
    if (!m_stopped) {
      m_stopped = true;
      m_changed.notify_all();
      asio::post(m_io, [this] {
        const std::lock_guard writers(m_mutex);
        closeStream();
        m_work.reset();
      });
    }
  }
  const std::lock_guard guard(m_joinMutex);
  if (m_thread.joinable()) {
    m_thread.join();
  }
}

bool Link::stopped() const {
  const std::lock_guard guard(m_mutex);
  return m_stopped;
}

bool Link::alive() const {
  const std::lock_guard guard(m_mutex);
  return m_started && !m_stopped && !m_failure;
}

void Link::armRead() {
  readSome(asio::buffer(m_chunk),
           [this](const asio::error_code& error, std::size_t size) { onRead(error, size); });
}

void Link::onRead(const asio::error_code& error, std::size_t size) {
  const std::lock_guard guard(m_mutex);
  if (m_stopped) {
    return;
  }
  if (!error) {
    m_received.insert(m_received.end(), m_chunk.begin(), m_chunk.begin() + static_cast<std::ptrdiff_t>(size));
    m_changed.notify_all();
    m_readPaused = m_received.size() >= ReceiveLimit;
  } else if (error != asio::error::operation_aborted) {  // which only means that a write was given up
    m_failure = error;
    m_changed.notify_all();
    return;
  }
  if (!m_readPaused) {
    armRead();
  }
}

BusReadResult Link::read(std::vector<unsigned char>& buffer, asio::error_code& error) {
  std::unique_lock lock(m_mutex);
  if (m_stopped || m_failureTold) {
    m_changed.wait_for(lock, Pause, [] { return false; });
  } else {
    m_changed.wait_for(lock, std::chrono::milliseconds(busLimits().read.load()),
                       [this] { return !m_received.empty() || m_failure || m_stopped; });
  }
  if (m_stopped) {
    return BusNothingToRead;
  }
  if (!m_received.empty()) {
    buffer.clear();
    buffer.swap(m_received);
    if (m_readPaused) {
      m_readPaused = false;
      asio::post(m_io, [this] { armRead(); });
    }
    return BusRead;
  }
  if (!m_failure) {
    return BusNothingToRead;
  }
  m_failureTold = true;
  error = m_failure;
  return error == asio::error::eof ? BusPeerClosed : BusReadError;
}

asio::error_code Link::write(const std::vector<unsigned char>& bytes) {
  const std::lock_guard writer(m_writeMutex);
  std::unique_lock lock(m_mutex);
  if (m_stopped || !m_started) {
    return asio::error::operation_aborted;
  }
  if (bytes.empty()) {
    return {};
  }
  // An adapter's commands are short and fit: no need to wake another thread for them.
  const std::size_t taken = m_failure ? 0 : writeNow(asio::buffer(bytes));
  if (taken == bytes.size()) {
    return {};
  }
  m_outgoing = &bytes;
  m_sent = taken;
  m_writeResult = {};
  m_writeTimedOut = false;
  // Posted with the lock held, so before the closing that `stop` posts: it will be run.
  asio::post(m_io, [this] { continueWrite(); });
  const auto finished = [this] { return m_outgoing == nullptr; };
  if (!m_changed.wait_for(lock, std::chrono::milliseconds(busLimits().write.load()), finished)) {
    m_writeTimedOut = true;
    asio::post(m_io, [this] { cancelStream(); });
    m_changed.wait(lock, finished);
  }
  return m_writeResult;
}

void Link::continueWrite() {
  const std::lock_guard guard(m_mutex);
  writeSome(asio::buffer(m_outgoing->data() + m_sent, m_outgoing->size() - m_sent),
            [this](const asio::error_code& error, std::size_t size) { onWritten(error, size); });
}

void Link::onWritten(const asio::error_code& error, std::size_t size) {
  {
    const std::lock_guard guard(m_mutex);
    m_sent += size;
    const bool complete = m_sent == m_outgoing->size();
    if (complete || error || m_stopped || m_writeTimedOut) {
      if (!complete) {
        m_writeResult = m_stopped         ? asio::error_code(asio::error::operation_aborted)
                        : m_writeTimedOut ? asio::error_code(asio::error::timed_out)
                                          : error;
      }
      m_outgoing = nullptr;
      m_changed.notify_all();
      return;
    }
  }
  continueWrite();
}

bool Link::execute(const std::function<void()>& job) {
  bool done = false;
  std::unique_lock lock(m_mutex);
  if (m_stopped || !m_started) {
    return false;
  }
  asio::post(m_io, [this, &job, &done] {
    job();
    const std::lock_guard guard(m_mutex);
    done = true;
    m_changed.notify_all();
  });
  m_changed.wait(lock, [&done] { return done; });
  return true;
}

std::string explainLink(const std::string& name, const asio::error_code& error) {
  if (error == asio::error::operation_aborted) {
    return "The link to " + name + " is closed; connect again.";
  }
  if (error == asio::error::timed_out) {
    return name + " does not answer; check that the adapter has power and is in reach, then connect again.";
  }
  if (error == asio::error::eof) {
    return name + " has closed the link; check that no other program uses the adapter, then connect again.";
  }
  return "The link to " + name + " was lost (" + error.message() +
         "); check the adapter's plug and power, then connect again.";
}

std::shared_ptr<Link> BusCore::link() const {
  const std::lock_guard guard(m_mutex);
  return m_link;
}

void BusCore::setFailure(std::string text) {
  const std::lock_guard guard(m_mutex);
  m_failure = std::move(text);
}

std::string& BusCore::lastFailure(std::string& text) const {
  const std::lock_guard guard(m_mutex);
  text = m_failure;
  return text;
}

int BusCore::openLink() {
  const std::lock_guard opening(m_openMutex);
  if (const auto old = link()) {
    if (old->alive()) {
      return 0;
    }
    old->stop();
  }
  std::shared_ptr<Link> fresh;
  try {
    fresh = makeLink();
  } catch (const std::system_error& error) {  // no descriptors left for the event loop
    setFailure(std::string("This program cannot open more links (") + error.what() +
               "); close some of them.");
    return error.code().value();
  }
  {
    const std::lock_guard guard(m_mutex);
    m_link = fresh;
  }
  asio::error_code error = connect(fresh);
  if (!error) {
    error = fresh->start();
  }
  if (!error) {
    return 0;
  }
  if (fresh->stopped()) {
    error = asio::error::operation_aborted;
  }
  setFailure(explain(Step::Open, error));
  fresh->stop();
  fresh->abandon(true);  // no thread of its own: the stream is closed here
  return error.value();
}

void BusCore::closeLink() {
  if (const auto present = link()) {
    present->stop();
  }
}

int BusCore::readLink(std::vector<unsigned char>& buffer) {
  const auto present = link();
  if (!present) {
    std::this_thread::sleep_for(Pause);
    return BusNothingToRead;
  }
  asio::error_code error;
  const BusReadResult result = present->read(buffer, error);
  if (error) {
    setFailure(explain(Step::Read, error));
  }
  return result;
}

int BusCore::writeLink(const std::vector<unsigned char>& bytes) {
  const auto present = link();
  const asio::error_code error =
      present ? present->write(bytes) : asio::error_code(asio::error::operation_aborted);
  if (error) {
    setFailure(explain(Step::Write, error));
  }
  return error.value();
}

void BusFactory::releaseBus(const std::shared_ptr<IMessageBus>& bus) {
  // The factory keeps no handle of its own; what is left to end is the link.
  if (bus) {
    bus->close();
  }
}

}  // namespace hostos
