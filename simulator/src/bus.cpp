#include <simulator/bus.h>

#include <atomic>

namespace simulator {

namespace {

constexpr unsigned ReadWait = 20;  // ms

template <typename Interface>
class SimulatedBus : public Interface {
 public:
  explicit SimulatedBus(std::shared_ptr<ElmAdapter> adapter) : m_adapter(std::move(adapter)) {}
  ~SimulatedBus() override { m_adapter->linkDown(); }

  int open() override {
    m_adapter->setLinkRate(rate());
    m_adapter->linkUp();
    return 0;
  }

  void close() override { m_adapter->linkDown(); }

  int read(std::vector<unsigned char>& buffer) override {
    const int result = m_adapter->read(buffer, ReadWait);
    if (result == hostos::BusReadError) {
      m_failure = Failure::Read;
    }
    return result;
  }

  int write(const std::vector<unsigned char>& bytes) override {
    const int result = m_adapter->receive(bytes.data(), bytes.size());
    if (result != 0) {
      m_failure = Failure::Write;
    }
    return result;
  }

  std::string& lastError(std::string& text) override {
    switch (m_failure.load()) {
      case Failure::None:
        text = "no error";
        break;
      case Failure::Read:
        text = "the simulated link is closed or failed while reading; open it again";
        break;
      case Failure::Write:
        text = "the simulated link is closed or failed while writing; open it again";
        break;
    }
    return text;
  }

  std::string description() const override { return "simulated adapter"; }

 protected:
  virtual int rate() const { return 0; }
  ElmAdapter& adapter() { return *m_adapter; }

 private:
  enum class Failure { None, Read, Write };

  std::shared_ptr<ElmAdapter> m_adapter;
  std::atomic<Failure> m_failure{Failure::None};
};

class SimulatedSerialBus : public SimulatedBus<hostos::ISerialBus> {
 public:
  SimulatedSerialBus(std::shared_ptr<ElmAdapter> adapter, int portBaudrate)
      : SimulatedBus(std::move(adapter)), m_rate(portBaudrate) {}

  bool setBaudrate(int rate) override {
    for (const int known : {9600, 19200, 38400, 57600, 115200}) {
      if (rate == known) {
        m_rate = rate;
        this->adapter().setLinkRate(rate);
        return true;
      }
    }
    return false;
  }

  int baudrate() override { return m_rate; }
  std::string description() const override { return "simulated serial adapter"; }

 protected:
  int rate() const override { return m_rate; }

 private:
  std::atomic<int> m_rate;
};

}  // namespace

std::shared_ptr<hostos::IMessageBus> makeBus(std::shared_ptr<Vehicle> vehicle, AdapterOptions options) {
  return makeBus(std::make_shared<ElmAdapter>(std::move(vehicle), std::move(options)));
}

std::shared_ptr<hostos::ISerialBus> makeSerialBus(std::shared_ptr<Vehicle> vehicle, AdapterOptions options,
                                                  int portBaudrate) {
  return makeSerialBus(std::make_shared<ElmAdapter>(std::move(vehicle), std::move(options)), portBaudrate);
}

std::shared_ptr<hostos::IMessageBus> makeBus(std::shared_ptr<ElmAdapter> adapter) {
  return std::make_shared<SimulatedBus<hostos::IMessageBus>>(std::move(adapter));
}

std::shared_ptr<hostos::ISerialBus> makeSerialBus(std::shared_ptr<ElmAdapter> adapter, int portBaudrate) {
  return std::make_shared<SimulatedSerialBus>(std::move(adapter), portBaudrate);
}

}  // namespace simulator
