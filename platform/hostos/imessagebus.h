#pragma once

#include <string>
#include <vector>

#include <tavrix/export.h>

namespace hostos {

/// Results of `IMessageBus::read`.
enum BusReadResult : int {
  BusRead = 0,          ///< the buffer holds what arrived, possibly nothing
  BusReadError = 1,     ///< the link has failed; `lastError` tells why
  BusPeerClosed = 2,    ///< the other side has closed the link
  BusNothingToRead = 3  ///< nothing arrived within the wait
};

/// A byte stream to an adapter. One thread reads while another writes, and `close` may come from a third
/// at any time; the implementation allows all three at once.
class VELMARA_EXPORT IMessageBus {
 public:
  virtual ~IMessageBus() = default;

  /// Opens the link. 0 for success, otherwise an error code for the log; `lastError` has the words.
  virtual int open() = 0;

  /// Ends the link, and any `open`, `read` or `write` in progress with it. Harmless when repeated.
  virtual void close() = 0;

  /// Fills `buffer`, which comes in empty, with what has arrived. Waits at most about 20 ms and returns the
  /// moment bytes come or the bus is closed. Gives a `BusReadResult`.
  virtual int read(std::vector<unsigned char>& buffer) = 0;

  /// Writes all of `bytes`. 0 for success.
  virtual int write(const std::vector<unsigned char>& bytes) = 0;

  /// Stores in `text`, and gives back, one line about the last failure: what it was and what to do.
  virtual std::string& lastError(std::string& text) = 0;

  /// What this bus leads to, for messages to people: a port name, an address.
  virtual std::string description() const = 0;
};

/// A bus with a baud rate: a serial port.
class VELMARA_EXPORT ISerialBus : public IMessageBus {
 public:
  /// Changes the rate of the open port. True if the port runs at that rate now. May be called while another
  /// thread reads.
  virtual bool setBaudrate(int rate) = 0;

  /// The rate at which the port runs, in baud.
  virtual int baudrate() = 0;
};

}  // namespace hostos
