// What each of these examples needs around the library, and what every program on it needs in some form: a
// store of settings, a loop that calls observers, and a connection. Take it as a start for your own.
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <variant>

#include <dispatch/dispatcher.h>
#include <services/iconnectionservice.h>
#include <services/iobdvelmara.h>
#include <services/libobd.h>

/// Settings that last as long as the program. The library asks for them on several threads.
class MemorySettings : public obd::ISettings {
 public:
  void setValue(const std::string& key, int value) override { store(key, value); }
  void setValue(const std::string& key, const std::string& value) override { store(key, value); }
  bool value(const std::string& key, int& value) override { return load(key, value); }
  bool value(const std::string& key, std::string& value) override { return load(key, value); }

 private:
  template <typename T>
  void store(const std::string& key, const T& value) {
    const std::lock_guard guard(m_mutex);
    m_values[key] = value;
  }

  template <typename T>
  bool load(const std::string& key, T& value) {
    const std::lock_guard guard(m_mutex);
    const auto found = m_values.find(key);
    const T* const stored = found == m_values.end() ? nullptr : std::get_if<T>(&found->second);
    if (stored != nullptr) {
      value = *stored;
    }
    return stored != nullptr;
  }

  std::mutex m_mutex;
  std::map<std::string, std::variant<int, std::string>> m_values;
};

/// The smallest event loop: it sleeps until the library rings, and then lets it call its observers.
class Loop : public obd::IDispatchRunner {
 public:
  Loop() { obd::Dispatcher::getInstance().attach(this); }
  ~Loop() override { obd::Dispatcher::getInstance().detach(this); }

  /// Runs until `done` says so; false if that takes longer than `limit`.
  template <typename Done>
  bool runUntil(const Done& done, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
      std::unique_lock lock(m_mutex);
      // Now and then also without a ring: so the library keeps the adapter awake.
      m_bell.wait_for(lock, std::chrono::milliseconds(100), [this] { return m_rung; });
      m_rung = false;
      lock.unlock();
      obd::Dispatcher::getInstance().dispatch();
      if (std::chrono::steady_clock::now() >= end) {
        return done();
      }
    }
    return true;
  }

  /// The library's ring. It comes on any thread, so it does nothing but wake the loop.
  void runDispatch() override {
    const std::lock_guard guard(m_mutex);
    m_rung = true;
    m_bell.notify_one();
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_bell;
  bool m_rung = false;
};

/// The library from start to end, with one connection. Services must be gone before it is.
class FrontEnd : private obd::IConnectionServiceObserver {
 public:
  explicit FrontEnd(const std::shared_ptr<obd::ISettings>& settings = std::make_shared<MemorySettings>()) {
    obd::LIBOBDOpen("");  // or the name of a log file
    m_facade = obd::ObdVelmaraBuilder::createObdVelmara(0, 0, 0, settings);
    m_connection = obd::ConnectionServiceBuilder::createConnectionService();
    m_connection->attach(this);
  }
  FrontEnd(const FrontEnd&) = delete;
  FrontEnd& operator=(const FrontEnd&) = delete;
  ~FrontEnd() override {
    m_connection->detach(this);
    m_connection.reset();
    m_facade.reset();  // closes the link
    obd::LIBOBDClose();
  }

  /// Connects to the adapter at "host:port".
  void connect(const std::string& target) {
    const std::size_t colon = target.rfind(':');
    if (colon == std::string::npos) {
      throw std::runtime_error("Name the adapter as host:port.");
    }
    const obd::TcpDescriptor adapter(target.substr(0, colon), std::stoi(target.substr(colon + 1)));
    wait(m_facade->connectionManager()->openTcp(adapter, obd::VehicleProtocol::Automatic));
  }

  /// Connects through a link of the program's own.
  void connect(const std::shared_ptr<hostos::IMessageBus>& bus) {
    wait(m_facade->connectionManager()->openBus(bus, obd::VehicleProtocol::Automatic));
  }

  template <typename Done>
  bool runUntil(const Done& done, std::chrono::milliseconds limit) {
    return m_loop.runUntil(done, limit);
  }
  bool lost() const { return m_state == State::Lost; }
  obd::IObdVelmara& facade() { return *m_facade; }

 private:
  enum class State { Opening, Connected, Lost, Failed };

  // Finding out the vehicle's protocol may take two minutes.
  void wait(bool started) {
    m_state = State::Opening;
    if (!started || !runUntil([this] { return m_state != State::Opening; }, std::chrono::minutes(3)) ||
        m_state != State::Connected) {
      throw std::runtime_error("No connection to a vehicle. " + m_connection->connectionMessage());
    }
  }

  void onConnected() override { m_state = State::Connected; }
  void onDisconnected() override { m_state = State::Lost; }
  void onConnectionPhaseChanged(obd::IConnectionListener::OpenConnectionPhase phase) override {
    if (phase == obd::IConnectionListener::PhaseFailed) {
      m_state = State::Failed;
    }
  }

  Loop m_loop;  // first, since it must be attached before anything else happens
  State m_state = State::Opening;
  std::shared_ptr<obd::IObdVelmara> m_facade;
  std::shared_ptr<obd::IConnectionService> m_connection;
};
