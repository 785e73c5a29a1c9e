#include "velmara/client/tracingbus.h"

#include <atomic>
#include <utility>
#include <vector>

#include <hostos/imessagebus.h>

#include "velmara/client/tracewriter.h"

namespace velmara {

namespace {

template <typename Interface>
class TracingBus : public Interface {
 public:
  TracingBus(std::shared_ptr<Interface> bus, std::shared_ptr<TraceWriter> trace, std::string link)
      : m_bus(std::move(bus)), m_trace(std::move(trace)), m_link(std::move(link)) {}

  int open() override {
    const int result = m_bus->open();
    if (result == 0) {
      m_trace->opened(m_link);
      m_open = true;
    } else {
      m_trace->failed(innerError());
    }
    return result;
  }

  // What the others still meet on it is no loss.
  void close() override {
    if (m_open.exchange(false)) {
      m_trace->closed();
    }
    m_bus->close();
  }

  int read(std::vector<unsigned char>& buffer) override {
    const int result = m_bus->read(buffer);
    if (!buffer.empty()) {
      m_trace->received(buffer);
    }
    if (result == hostos::BusPeerClosed) {
      lose("the other side has closed it");
    } else if (result == hostos::BusReadError) {
      lose(innerError());
    }
    return result;
  }

  // The answer must not come before the request.
  int write(const std::vector<unsigned char>& bytes) override {
    if (m_open) {
      m_trace->sent(bytes);
    }
    const int result = m_bus->write(bytes);
    if (result != 0) {
      lose(innerError());
    }
    return result;
  }

  std::string& lastError(std::string& text) override { return m_bus->lastError(text); }
  std::string description() const override { return m_bus->description(); }

 protected:
  Interface& bus() { return *m_bus; }
  TraceWriter& trace() { return *m_trace; }

 private:
  void lose(const std::string& how) {
    if (m_open.exchange(false)) {
      m_trace->lost(how);
    }
  }

  std::string innerError() {
    std::string text;
    return m_bus->lastError(text);
  }

  const std::shared_ptr<Interface> m_bus;
  const std::shared_ptr<TraceWriter> m_trace;
  const std::string m_link;
  std::atomic<bool> m_open{false};
};

class TracingSerialBus final : public TracingBus<hostos::ISerialBus> {
 public:
  using TracingBus::TracingBus;

  bool setBaudrate(int rate) override {
    const bool done = bus().setBaudrate(rate);
    if (done) {
      trace().baudrate(rate);
    }
    return done;
  }
  int baudrate() override { return bus().baudrate(); }
};

}  // namespace

std::shared_ptr<hostos::IMessageBus> makeTracingBus(std::shared_ptr<hostos::IMessageBus> bus,
                                                    std::shared_ptr<TraceWriter> trace, std::string link) {
  if (auto serial = std::dynamic_pointer_cast<hostos::ISerialBus>(bus)) {
    return std::make_shared<TracingSerialBus>(std::move(serial), std::move(trace), std::move(link));
  }
  return std::make_shared<TracingBus<hostos::IMessageBus>>(std::move(bus), std::move(trace), std::move(link));
}

}  // namespace velmara
