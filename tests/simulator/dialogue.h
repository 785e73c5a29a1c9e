#pragma once

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
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

  /// Exchanges with semicolons between: a command, and with ">" in front its reply, if that matters; "|" is
  /// the end of a line, and the end of the reply goes without saying.
  void converse(const std::string& script) {
    std::istringstream stream(script);
    for (std::string exchange; std::getline(stream >> std::ws, exchange, ';');) {
      const std::size_t end = exchange.find('>');
      const std::string heard = ask(exchange.substr(0, end));
      if (end != std::string::npos) {
        std::string reply = exchange.substr(end + 1) + "||>";
        std::replace(reply.begin(), reply.end(), '|', '\r');
        EXPECT_EQ(heard, reply) << exchange;
      }
    }
  }

  /// Echo off, headers on, blanks off.
  void prepare() { converse("ATZ;ATE0;ATL0;ATH1;ATS0"); }

  int result = hostos::BusRead;  // of the last read
  int reads = 0;                 // reads that gave bytes, in the last exchange

 private:
  std::shared_ptr<hostos::IMessageBus> m_bus;
};
