#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <hostos/busfactory.h>
#include <linux/serial.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>
#include <asio/serial_port.hpp>

#include <algorithm>
#include <atomic>
#include <limits>

#include "buscore.h"

namespace hostos {

// Bytes that cannot leave would hold up the closing, and the mark of sole use outlives a pseudo-terminal's
// descriptor.
template <>
void StreamLink<asio::serial_port>::closeStream() {
  if (m_stream.is_open()) {
    ::tcflush(m_stream.native_handle(), TCIOFLUSH);
    ::ioctl(m_stream.native_handle(), TIOCNXCL);
  }
  asio::error_code ignored;
  m_stream.close(ignored);
}

namespace {

using SerialLink = StreamLink<asio::serial_port>;

struct Rate {
  int baud;
  speed_t speed;
};

constexpr Rate Rates[] = {{1200, B1200},       {2400, B2400},       {4800, B4800},       {9600, B9600},
                          {19200, B19200},     {38400, B38400},     {57600, B57600},     {115200, B115200},
                          {230400, B230400},   {460800, B460800},   {500000, B500000},   {576000, B576000},
                          {921600, B921600},   {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000},
                          {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000},
                          {4000000, B4000000}};

asio::error_code lastSystemError() {
  return systemError(errno);
}

// The rate at which the port runs; 0 if it does not tell.
int rateOf(int file) {
  termios settings{};
  if (::tcgetattr(file, &settings) != 0) {
    return 0;
  }
  const speed_t speed = ::cfgetospeed(&settings);
  const auto* const rate = std::find_if(std::begin(Rates), std::end(Rates),
                                        [speed](const Rate& row) { return row.speed == speed; });
  return rate != std::end(Rates) && ::cfgetispeed(&settings) == speed ? rate->baud : 0;
}

// Raw bytes, 8N1, no flow control, at `baud`. A driver may take a part of the settings and report success, so
// what counts is what the port says afterwards.
asio::error_code configure(int file, int baud) {
  const auto* const rate =
      std::find_if(std::begin(Rates), std::end(Rates), [baud](const Rate& row) { return row.baud == baud; });
  if (rate == std::end(Rates)) {
    return asio::error::invalid_argument;
  }
  termios settings{};
  if (::tcgetattr(file, &settings) != 0) {
    return lastSystemError();
  }
  ::cfmakeraw(&settings);
  settings.c_iflag &= ~static_cast<tcflag_t>(IXOFF | IXANY | INPCK);
  settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | PARENB | CRTSCTS);
  settings.c_cflag |= CREAD | CLOCAL;
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  ::cfsetispeed(&settings, rate->speed);
  ::cfsetospeed(&settings, rate->speed);
  if (::tcsetattr(file, TCSANOW, &settings) != 0) {
    return lastSystemError();
  }
  return rateOf(file) == baud ? asio::error_code() : asio::error_code(asio::error::invalid_argument);
}

// Some drivers gather bytes for up to 16 ms unless told not to.
void askLowLatency(int file) {
  serial_struct serial{};
  if (::ioctl(file, TIOCGSERIAL, &serial) == 0) {
    serial.flags |= ASYNC_LOW_LATENCY;
    ::ioctl(file, TIOCSSERIAL, &serial);
  }
}

// The open port for us alone, ready to use.
asio::error_code openPort(const std::string& device, int baud, int& file) {
  file = ::open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (file < 0) {
    return lastSystemError();
  }
  asio::error_code error;
  if (::isatty(file) == 0) {
    error = systemError(ENOTTY);
  } else if (::flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    error = systemError(EBUSY);
  } else {
    ::ioctl(file, TIOCEXCL);
    error = configure(file, baud);
    if (error) {
      ::ioctl(file, TIOCNXCL);
    }
  }
  if (error) {
    ::close(file);
    file = -1;
  } else {
    askLowLatency(file);
  }
  return error;
}

std::string portsPresent() {
  constexpr std::size_t Most = 8;
  static constexpr const char* Prefixes[] = {"ttyUSB", "ttyACM", "rfcomm", "ttyAMA", "ttyXRUSB"};
  std::vector<std::string> ports;
  if (DIR* const directory = ::opendir("/dev")) {
    while (const dirent* const entry = ::readdir(directory)) {
      const std::string name = entry->d_name;
      if (std::any_of(std::begin(Prefixes), std::end(Prefixes),
                      [&name](const char* prefix) { return name.rfind(prefix, 0) == 0; })) {
        ports.push_back("/dev/" + name);
      }
    }
    ::closedir(directory);
  }
  std::sort(ports.begin(), ports.end());
  std::string text;
  for (std::size_t i = 0; i < std::min(Most, ports.size()); ++i) {
    text += (i == 0 ? "" : ", ") + ports[i];
  }
  return text;
}

// The group that may use the port; empty if none may.
std::string groupOf(const std::string& device) {
  struct stat status {};
  if (::stat(device.c_str(), &status) != 0 || (status.st_mode & S_IRGRP) == 0 ||
      (status.st_mode & S_IWGRP) == 0) {
    return {};
  }
  group entry{};
  group* found = nullptr;
  std::vector<char> buffer(16384);
  if (::getgrgid_r(status.st_gid, &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
    return {};
  }
  return found->gr_name;
}

std::string explainPort(const std::string& device, int baud, const asio::error_code& error) {
  switch (error.value()) {
    case ENOENT:
    case ENODEV:
    case ENXIO: {
      const std::string present = portsPresent();
      return "There is no serial port " + device +
             (present.empty() ? "; plug the adapter in, no serial adapter is present now."
                              : "; plug the adapter in or choose one that is present: " + present + ".");
    }
    case EACCES:
    case EPERM: {
      const std::string group = groupOf(device);
      return "No permission to open " + device +
             (group.empty() ? "; its group may not use it either: ask the administrator of this computer."
                            : "; join its group with \"sudo usermod -aG " + group +
                                  " $USER\", then log out and in again.");
    }
    case EBUSY:
      return device + " is busy: it is open elsewhere; close the other program that uses it and try again.";
    case ENOTTY:
      return device + " is not a serial port; choose another one.";
    case EINVAL:
      return device + " does not run at " + std::to_string(baud) +
             " baud; choose 9600, 19200, 38400, 57600 or 115200.";
    default:
      return "Cannot open " + device + " (" + error.message() + "); unplug the adapter and plug it in again.";
  }
}

class SerialBus : public Bus<ISerialBus> {
 public:
  SerialBus(const std::string& device, std::uint32_t baud)
      : m_device(device),
        m_wanted(static_cast<int>(
            std::min<std::uint32_t>(baud, static_cast<std::uint32_t>(std::numeric_limits<int>::max())))),
        m_rate(m_wanted) {}
  ~SerialBus() override { closeLink(); }

  std::string description() const override { return m_device; }

  bool setBaudrate(int rate) override {
    asio::error_code error = asio::error::operation_aborted;
    if (const auto present = serialLink()) {
      present->execute([&] { error = configure(present->stream().native_handle(), rate); });
    }
    if (error) {
      setFailure(error == asio::error::operation_aborted ? explainLink(m_device, error)
                                                         : explainPort(m_device, rate, error));
      return false;
    }
    m_rate = rate;
    return true;
  }

  int baudrate() override {
    int rate = 0;
    if (const auto present = serialLink()) {
      present->execute([&] { rate = rateOf(present->stream().native_handle()); });
    }
    return rate != 0 ? rate : m_rate.load();
  }

 protected:
  std::shared_ptr<Link> makeLink() override { return std::make_shared<SerialLink>(); }

  asio::error_code connect(const std::shared_ptr<Link>& link) override {
    int file = -1;
    asio::error_code error = openPort(m_device, m_wanted, file);
    if (!error) {
      m_rate = m_wanted;
      static_cast<SerialLink&>(*link).stream().assign(file, error);
      if (error) {
        ::close(file);
      }
    }
    return error;
  }

  std::string explain(Step step, const asio::error_code& error) const override {
    if (step == Step::Open && error != asio::error::operation_aborted) {
      return explainPort(m_device, m_wanted, error);
    }
    return explainLink(m_device, error);
  }

 private:
  std::shared_ptr<SerialLink> serialLink() const { return std::static_pointer_cast<SerialLink>(link()); }

  const std::string m_device;
  const int m_wanted;
  std::atomic<int> m_rate;  // last known
};

}  // namespace

std::shared_ptr<IMessageBus> BusFactory::createSerialBus(const std::string& device, std::uint32_t baudrate) {
  return wrapped(std::make_shared<SerialBus>(device, baudrate));
}

}  // namespace hostos
