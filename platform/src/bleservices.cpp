#include "bleservices.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <optional>

namespace hostos {

namespace {

// The 16-bit identifiers are short for this with the x replaced (Bluetooth Core, Vol 3, Part B, 2.5.1).
constexpr std::string_view BaseUuid = "0000xxxx-0000-1000-8000-00805f9b34fb";

struct KnownService {
  std::string_view service;
  std::string_view inlet;
  std::string_view outlet;
};

// Services that carry a serial stream. The first that a device has is taken.
constexpr std::array<KnownService, 6> KnownServices{{
    // The "simple profile" of the samples to Texas Instruments' CC254x modules, with another use of its
    // parts.
    {"fff0", "fff1", "fff2"},
    // Data sheet of the HM-10 serial module.
    {"ffe0", "ffe1", "ffe1"},
    // No document of a maker: what adapters offer. The Bluetooth SIG has not given 18F0 out.
    {"18f0", "2af0", "2af1"},
    {"e7810a71-73ae-499d-8c15-faa9aef0c3f2", "bef8d6c9-9c21-4c9e-b632-bd58c1009f9f",
     "bef8d6c9-9c21-4c9e-b632-bd58c1009f9f"},
    // "Transparent UART" of Microchip (RN4870/71 User's Guide, DS50002466).
    {"49535343-fe7d-4ae5-8fa9-9fafd205e455", "49535343-1e4d-4bd9-ba61-23c647249616",
     "49535343-8841-43f4-a8d4-ecbe34729bb3"},
    // Nordic UART Service (documentation of Nordic's nRF5 SDK).
    {"6e400001-b5a3-f393-e0a9-e50e24dcca9e", "6e400003-b5a3-f393-e0a9-e50e24dcca9e",
     "6e400002-b5a3-f393-e0a9-e50e24dcca9e"},
}};

// Services that the Bluetooth SIG has given a meaning (Assigned Numbers, 3.4): no serial streams.
bool isStandard(const std::string& uuid) {
  return uuid.starts_with("000018") && uuid.ends_with(BaseUuid.substr(8));
}

// Rank in the table, its size for others.
std::size_t rank(const std::string& service) {
  const auto place = std::find_if(KnownServices.begin(), KnownServices.end(),
                                  [&](const KnownService& row) { return longUuid(row.service) == service; });
  return static_cast<std::size_t>(place - KnownServices.begin());
}

Characteristic characteristic(const std::string& path, const Properties& properties) {
  Characteristic result;
  result.path = path;
  take(properties, "UUID", result.uuid);
  take(properties, "MTU", result.mtu);
  std::vector<std::string> flags;
  take(properties, "Flags", flags);
  const auto has = [&flags](const char* flag) {
    return std::find(flags.begin(), flags.end(), flag) != flags.end();
  };
  result.notifies = has("notify");
  result.indicates = has("indicate");
  result.takesCommands = has("write-without-response");
  result.takesRequests = has("write");
  for (const char* name : {"Notifying", "NotifyAcquired", "WriteAcquired"}) {
    bool used = false;
    take(properties, name, used);
    result.busy = result.busy || used;
  }
  return result;
}

struct Service {
  std::string uuid;
  std::vector<Characteristic> characteristics;
};

std::vector<Service> servicesOf(const Objects& objects, const std::string& device) {
  std::vector<Service> services;
  for (const auto& [path, interfaces] : objects) {
    const Properties* const properties = find(interfaces, ServiceInterface);
    if (properties == nullptr || !path.starts_with(device + "/")) {
      continue;
    }
    Service service;
    take(*properties, "UUID", service.uuid);
    for (auto place = objects.lower_bound(sdbus::ObjectPath(path + "/"));
         place != objects.end() && place->first.starts_with(path + "/"); ++place) {
      if (const Properties* const inner = find(place->second, CharacteristicInterface)) {
        service.characteristics.push_back(characteristic(place->first, *inner));
      }
    }
    services.push_back(std::move(service));
  }
  return services;
}

std::optional<SerialStream> knownStream(const Service& service) {
  const std::size_t row = rank(service.uuid);
  if (row == KnownServices.size()) {
    return std::nullopt;
  }
  SerialStream stream{service.uuid, {}, {}, true};
  for (const Characteristic& entry : service.characteristics) {
    if (entry.uuid == longUuid(KnownServices[row].inlet) && entry.readable()) {
      stream.inlet = entry;
    }
    if (entry.uuid == longUuid(KnownServices[row].outlet) && entry.writable()) {
      stream.outlet = entry;
    }
  }
  return stream.inlet.path.empty() || stream.outlet.path.empty() ? std::nullopt : std::optional(stream);
}

// One characteristic for each way. Of a service that the user has chosen, the first of several.
std::optional<SerialStream> likelyStream(const Service& service, bool chosen) {
  const auto& all = service.characteristics;
  const auto inlet = std::find_if(all.begin(), all.end(), [](const auto& c) { return c.readable(); });
  const auto outlet = std::find_if(all.begin(), all.end(), [](const auto& c) { return c.writable(); });
  if (inlet == all.end() || outlet == all.end()) {
    return std::nullopt;
  }
  const auto readable = std::count_if(all.begin(), all.end(), [](const auto& c) { return c.readable(); });
  const auto writable = std::count_if(all.begin(), all.end(), [](const auto& c) { return c.writable(); });
  if (!chosen && (readable > 1 || writable > 1)) {
    return std::nullopt;
  }
  return SerialStream{service.uuid, *inlet, *outlet, chosen};
}

}  // namespace

std::string longUuid(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
  }
  std::string uuid(BaseUuid);
  if (text.size() == 4) {
    uuid.replace(4, 4, text);
  } else {
    uuid = text;
  }
  if (uuid.size() != BaseUuid.size()) {
    return {};
  }
  for (std::size_t i = 0; i < uuid.size(); ++i) {
    const auto letter = static_cast<unsigned char>(uuid[i]);
    if (BaseUuid[i] == '-' ? letter != '-' : std::isxdigit(letter) == 0) {
      return {};
    }
    uuid[i] = static_cast<char>(std::tolower(letter));
  }
  return uuid;
}

bool isSerialService(const std::string& uuid) {
  return rank(uuid) != KnownServices.size();
}

std::vector<SerialStream> serialStreams(const Objects& objects, const std::string& device,
                                        const std::string& service) {
  std::vector<SerialStream> streams;
  for (const Service& entry : servicesOf(objects, device)) {
    const bool chosen = entry.uuid == service;
    if (!chosen && !service.empty()) {
      continue;
    }
    std::optional<SerialStream> stream = knownStream(entry);
    if (!stream && (chosen || isSerialService(entry.uuid) || !isStandard(entry.uuid))) {
      stream = likelyStream(entry, chosen);
    }
    if (stream) {
      streams.push_back(*stream);
    }
  }
  std::stable_sort(streams.begin(), streams.end(), [](const SerialStream& a, const SerialStream& b) {
    return a.known != b.known ? a.known : rank(a.service) < rank(b.service);
  });
  return streams;
}

}  // namespace hostos
