#include "bluez.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <utility>

#include "bluetoothlimits.h"

namespace hostos {

namespace {

constexpr const char* BusService = "org.freedesktop.DBus";
constexpr const char* BusPath = "/org/freedesktop/DBus";
constexpr const char* BluezService = "org.bluez";
constexpr std::chrono::milliseconds TellTime{500};  // for the bus to take a message

// In the names and texts of errors by which BlueZ tells that the other side wants a pairing, or refused one.
constexpr const char* PairingWords[] = {"NotAuthorized", "uthentication", "ncryption", "Not paired"};

}  // namespace

const Properties* find(const Interfaces& interfaces, const char* name) {
  const auto place = interfaces.find(name);
  return place == interfaces.end() ? nullptr : &place->second;
}

bool isTimeout(const sdbus::Error& error) {
  return error.getName() == "org.freedesktop.DBus.Error.NoReply" ||
         error.getName() == "org.freedesktop.DBus.Error.Timeout";
}

bool wantsPairing(const sdbus::Error& error) {
  const std::string text = error.getName() + " " + error.getMessage();
  return std::any_of(std::begin(PairingWords), std::end(PairingWords),
                     [&text](const char* word) { return text.find(word) != std::string::npos; });
}

Bluez::Bluez(int wake) : m_wake(wake) {
  try {
    m_connection = sdbus::createSystemBusConnection();
    m_connection->setMethodCallTimeout(Milliseconds(bluetoothLimits().call));
  } catch (const sdbus::Error& error) {
    throw BluetoothFailure(ENOTCONN, "The system bus (D-Bus) cannot be reached: " + error.getMessage() + ".");
  }
  try {
    const auto bus = sdbus::createProxy(*m_connection, BusService, BusPath);
    sdbus::MethodCall message = bus->createMethodCall(BusService, "GetNameOwner");
    message << std::string(BluezService);
    await(*bus, message, Milliseconds(bluetoothLimits().call)) >> m_owner;
  } catch (const sdbus::Error& error) {
    if (error.getName() != "org.freedesktop.DBus.Error.NameHasNoOwner") {
      throw;
    }
    throw BluetoothFailure(ENODEV, "The Bluetooth service (BlueZ) is not running on this computer.");
  }
}

sdbus::MethodReply Bluez::await(sdbus::IProxy& object, const sdbus::MethodCall& message, Milliseconds limit) {
  sdbus::MethodReply answer;
  std::unique_ptr<sdbus::Error> failure;
  bool done = false;
  object.callMethod(
      message,
      [&](sdbus::MethodReply& reply, const sdbus::Error* error) {
        done = true;
        if (error != nullptr) {
          failure = std::make_unique<sdbus::Error>(*error);
        } else {
          answer = reply;
        }
      },
      limit);
  // The reply has the limit; the deadline here is for a bus that does not keep it.
  const bool ended = waitUntil([&] { return done; }, Clock::now() + limit + Milliseconds(1000));
  if (!ended) {
    throw BluetoothFailure(woken() ? ECANCELED : ETIMEDOUT, "The Bluetooth service does not answer.");
  }
  if (failure) {
    throw *failure;
  }
  return answer;
}

void Bluez::tell(const std::string& path, const char* interface, const char* method) {
  try {
    sdbus::createProxy(*m_connection, m_owner, path)
        ->callMethod(method)
        .onInterface(interface)
        .dontExpectReply();
    // Whoever closes a socket with signals unread takes with it what the bus has not read yet.
    sdbus::createProxy(*m_connection, BusService, BusPath)
        ->callMethod("GetId")
        .onInterface(BusService)
        .withTimeout(TellTime);
  } catch (const sdbus::Error&) {
    // The bus is gone, and what was begun ends with it.
  }
}

Objects Bluez::objects() {
  sdbus::MethodReply reply =
      call("/", ObjectManager, "GetManagedObjects", Milliseconds(bluetoothLimits().call));
  Objects objects;
  reply >> objects;
  return objects;
}

std::string Bluez::chooseAdapter(const Objects& objects) {
  bool any = false;
  for (const auto& [path, interfaces] : objects) {
    if (const Properties* const adapter = find(interfaces, AdapterInterface)) {
      any = true;
      bool powered = false;
      take(*adapter, "Powered", powered);
      if (powered) {
        return path;
      }
    }
  }
  throw any ? BluetoothFailure(ENETDOWN, "The Bluetooth adapter of this computer is switched off.")
            : BluetoothFailure(ENODEV, "This computer has no Bluetooth adapter.");
}

sdbus::Slot Bluez::onSignal(const std::string& rule, Handler handler) {
  return m_connection->addMatch("type='signal',sender='" + m_owner + "'," + rule,
                                [handler = std::move(handler)](sdbus::Message& message) {
                                  try {
                                    handler(message);
                                  } catch (const sdbus::Error&) {
                                    // Not of the form it should be of.
                                  }
                                });
}

sdbus::Slot Bluez::onChange(const std::string& path, const char* interface,
                            std::function<void(const std::string& path, const Properties&)> handler) {
  const std::string place = path.empty() ? std::string() : "path='" + path + "',";
  return onSignal(
      place + "interface='" + PropertiesInterface + "',member='PropertiesChanged',arg0='" + interface + "'",
      [handler = std::move(handler)](sdbus::Message& message) {
        std::string ignored;
        Properties properties;
        message >> ignored >> properties;
        handler(message.getPath(), properties);
      });
}

sdbus::Slot Bluez::onEnd(const std::function<void()>& handler) {
  return m_connection->addMatch(std::string("type='signal',sender='") + BusService +
                                    "',member='NameOwnerChanged',arg0='" + m_owner + "'",
                                [handler](sdbus::Message&) { handler(); });
}

bool Bluez::waitUntil(const std::function<bool()>& condition, Clock::time_point deadline) {
  while (!condition()) {
    const bool processed = process();
    if (woken() || Clock::now() >= deadline) {
      return condition();  // however much there is to process
    }
    if (!processed) {
      wait(deadline);
    }
  }
  return true;
}

bool Bluez::woken() const {
  pollfd entry{m_wake, POLLIN, 0};
  return ::poll(&entry, 1, 0) > 0;
}

// Until there is something on the bus, a deadline passes, or somebody wakes the thread.
void Bluez::wait(Clock::time_point deadline) const {
  const auto bus = m_connection->getEventLoopPollData();
  pollfd files[] = {{bus.fd, bus.events, 0}, {m_wake, POLLIN, 0}};
  const auto left = std::chrono::ceil<Milliseconds>(deadline - Clock::now()).count();
  auto limit = static_cast<int>(std::max<std::int64_t>(left, 0));
  if (const int own = bus.getPollTimeout(); own >= 0) {
    limit = std::min(limit, own);
  }
  if (::poll(files, std::size(files), limit) < 0 && errno != EINTR) {
    throw BluetoothFailure(errno, "The Bluetooth service cannot be waited for.");
  }
}

}  // namespace hostos
