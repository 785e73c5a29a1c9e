#pragma once

#include <algorithm>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <hostos/imessagebus.h>

#include "system/frontend.h"

/// A front end that writes events down as one letter each, in the order in which they came: 0 to 4 a phase of
/// the connection, C connected, D disconnected, s a sensor value, r the codes were to be cleared, c other
/// codes, x the console's reply, i what was told is void, d all refreshes of a service are through.
class House : public FrontEnd {
 public:
  /// Opens and waits for the end of the opening: true when the connection stands.
  bool open(const std::shared_ptr<hostos::IMessageBus>& bus,
            obd::VehicleProtocol protocol = obd::VehicleProtocol::Automatic) {
    obd::Dispatcher::getInstance().dispatch();  // what the connection before still has to tell
    heard.clear();
    return manager().openBus(bus, protocol) && connected();
  }
  /// Waits for the end of the opening that was just started.
  bool connected(std::uint32_t limit = 600000) {
    EXPECT_TRUE(run([this] { return has('C') || has('0'); }, limit)) << "the opening hangs: " << heard;
    return has('C') && !has('D');
  }

  bool has(char event) const { return heard.find(event) != std::string::npos; }
  long count(char event) const { return std::count(heard.begin(), heard.end(), event); }

  std::string heard;

 protected:
  void happened(Event event, int phase) override {
    switch (event) {
      case Phase:
      case Failed:
        heard += static_cast<char>('0' + phase);
        break;
      case Connected:
        heard += 'C';
        break;
      case Disconnected:
        heard += 'D';
        break;
      case SensorValues:
        heard += 's';
        break;
      case Cleared:
        heard += 'r';
        break;
      case Confirmed:
      case Pending:
      case FreezeFrameCode:
        heard += 'c';
        break;
      case ConsoleReply:
        heard += 'x';
        break;
      case Invalidated:
        heard += 'i';
        break;
      case Done:
        heard += 'd';
        break;
      default:
        break;
    }
  }
};
