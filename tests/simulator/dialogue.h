#pragma once

#include <memory>
#include <string>
#include <vector>

#include <hostos/imessagebus.h>
#include <hostos/time.h>

/// A terminal on a bus.
class Dialogue {
 public:
  explicit Dialogue(std::shared_ptr<hostos::IMessageBus> bus) : m_bus(std::move(bus)) { m_bus->open(); }

  /// Types a line without waiting for anything.
  int type(const std::string& text) {
    return m_bus->write(std::vector<unsigned char>(text.begin(), text.end()));
  }

  /// Everything up to `end`, or what has come when the time is over or the link is gone.
  std::string listen(char end = '>', std::uint32_t milliseconds = 3000) {
    std::string heard;
    const std::uint32_t start = hostos::CTime::milliseconds();
    while (hostos::CTime::milliseconds() - start < milliseconds) {
      std::vector<unsigned char> bytes;
      result = m_bus->read(bytes);
      heard.append(bytes.begin(), bytes.end());
      reads += bytes.empty() ? 0 : 1;
      if (result == hostos::BusReadError || result == hostos::BusPeerClosed ||
          (!heard.empty() && heard.back() == end)) {
        break;
      }
    }
    return heard;
  }

  /// A command and its reply.
  std::string ask(const std::string& command) {
    reads = 0;
    type(command + "\r");
    return listen();
  }

  /// Echo off, headers on, blanks off.
  void prepare() {
    for (const char* command : {"ATZ", "ATE0", "ATL0", "ATH1", "ATS0"}) {
      ask(command);
    }
  }

  int result = hostos::BusRead;  // of the last read
  int reads = 0;                 // reads that gave bytes, in the last exchange

 private:
  std::shared_ptr<hostos::IMessageBus> m_bus;
};
