#include "buscore.h"

#include <hostos/busfactory.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <asio/post.hpp>

#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <thread>
#include <utility>

#include "buslimits.h"

namespace hostos {

namespace {

constexpr std::size_t ChunkSize = 4096;        // of one read
constexpr std::chrono::milliseconds Pause{1};  // for callers that ask a dead link again and again

int makeWake() {
  const int wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wake < 0) {
    throw std::system_error(errno, std::system_category());
  }
  return wake;
}

// What the system takes at once, of a socket or a terminal; as ::write.
ssize_t writeDescriptor(int descriptor, const unsigned char* bytes, std::size_t size) {
  const ssize_t taken = ::send(descriptor, bytes, size, MSG_NOSIGNAL);
  return taken < 0 && errno == ENOTSOCK ? ::write(descriptor, bytes, size) : taken;
}

// Whether it may go better another time.
bool passes(const asio::error_code& error) {
  return error == asio::error::would_block || error == asio::error::try_again ||
         error == asio::error::interrupted;
}

}  // namespace

// Keeps the stream of a running link open; nothing if the link does not run.
class Link::Use {
 public:
  explicit Use(Link& link) : m_link(link) {
    const std::lock_guard guard(link.m_mutex);
    m_counted = link.m_started && !link.m_stopped;
    link.m_users += m_counted ? 1 : 0;
  }
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;
  ~Use() {
    if (m_counted) {
      const std::lock_guard guard(m_link.m_mutex);
      if (--m_link.m_users == 0 && m_link.m_stopped) {
        m_link.m_unused.notify_all();
      }
    }
  }
  explicit operator bool() const { return m_counted; }

 private:
  Link& m_link;
  bool m_counted;
};

Link::Link() : m_work(m_io.get_executor()), m_wake(makeWake()) {}

Link::~Link() {
  ::close(m_wake);
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
  m_started = true;
  return {};
}

void Link::stop() {
  std::unique_lock lock(m_mutex);
  if (!m_stopped) {
    m_stopped = true;
    asio::post(m_io, [] {});  // wakes who opens
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_wake, &one, sizeof(one));  // and who reads and writes
  }
  m_unused.wait(lock, [this] { return m_users == 0; });
  if (m_started) {
    closeStream();
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

bool Link::await(int descriptor, short events, std::chrono::milliseconds limit) const {
  std::array<pollfd, 2> entries{{{descriptor, events, 0}, {m_wake, POLLIN, 0}}};
  return ::poll(entries.data(), entries.size(), static_cast<int>(limit.count())) > 0 &&
         entries[0].revents != 0 && entries[1].revents == 0;
}

asio::error_code Link::receive(std::vector<unsigned char>& buffer) {
  std::array<unsigned char, ChunkSize> chunk;
  const ssize_t size = ::read(inlet(), chunk.data(), chunk.size());
  if (size > 0) {
    buffer.assign(chunk.begin(), chunk.begin() + size);
    return {};
  }
  return size == 0 ? asio::error_code(asio::error::eof) : systemError(errno);
}

asio::error_code Link::send(const unsigned char* bytes, std::size_t size, std::size_t& taken) {
  const ssize_t sent = writeDescriptor(outlet(), bytes, size);
  taken = sent < 0 ? 0 : static_cast<std::size_t>(sent);
  return sent < 0 ? systemError(errno) : asio::error_code();
}

std::size_t Link::take(std::vector<unsigned char>& buffer) {
  const Use use(*this);
  if (!use || !await(inlet(), POLLIN, std::chrono::milliseconds(busLimits().read))) {
    return 0;
  }
  const asio::error_code error = receive(buffer);
  if (error && !passes(error)) {
    const std::lock_guard guard(m_mutex);
    m_failure = error;
  }
  return buffer.size();
}

BusReadResult Link::read(std::vector<unsigned char>& buffer, asio::error_code& error) {
  if (!alive()) {
    std::this_thread::sleep_for(Pause);
  } else if (take(buffer) != 0) {
    return BusRead;
  }
  const std::lock_guard guard(m_mutex);
  if (m_stopped || !m_failure) {
    return BusNothingToRead;
  }
  error = m_failure;
  return error == asio::error::eof ? BusPeerClosed : BusReadError;
}

asio::error_code Link::write(const std::vector<unsigned char>& bytes) {
  const std::lock_guard writer(m_writeMutex);
  const Use use(*this);
  if (!use) {
    return asio::error::operation_aborted;
  }
  const Deadline deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(busLimits().write);
  for (std::size_t sent = 0; sent < bytes.size();) {
    std::size_t taken = 0;
    const asio::error_code error = send(bytes.data() + sent, bytes.size() - sent, taken);
    if (error && !passes(error)) {
      return error;
    }
    sent += taken;
    if (sent == bytes.size()) {
      break;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left <= left.zero()) {
      return asio::error::timed_out;
    }
    if (error) {
      await(outlet(), POLLOUT, left);
    }
    if (stopped()) {
      return asio::error::operation_aborted;
    }
  }
  return {};
}

bool Link::execute(const std::function<void()>& job) {
  const Use use(*this);
  if (!use) {
    return false;
  }
  job();
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

namespace {
thread_local BusFactory::Wrapper busWrapper;
}

void BusFactory::setWrapper(Wrapper wrapper) {
  busWrapper = std::move(wrapper);
}

std::shared_ptr<IMessageBus> wrapped(std::shared_ptr<IMessageBus> bus) {
  return busWrapper ? busWrapper(std::move(bus)) : bus;
}

void BusFactory::releaseBus(const std::shared_ptr<IMessageBus>& bus) {
  // The factory keeps no handle of its own; what is left to end is the link.
  if (bus) {
    bus->close();
  }
}

}  // namespace hostos
