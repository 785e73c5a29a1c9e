// Makes a vehicle file for the simulator of a trace.

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "traceframes.h"
#include "traces.h"
#include "velmara/client/failure.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

using Bytes = std::vector<std::uint8_t>;
using simulator::TraceExchange;

constexpr std::uint8_t Negative = 0x7F;
constexpr std::size_t MostUnits = 8;      // of a vehicle file, as is the next
constexpr std::size_t MostAnswers = 256;  // of a unit
constexpr std::size_t MostMessages = 64;  // of an answer
constexpr std::size_t LongestShort = 7;   // bytes of a request, and of a message before CAN
constexpr unsigned FirstCan = 6;          // protocol, as an ELM327 numbers it

std::string hexOf(const Bytes& bytes, std::size_t from = 0) {
  return fmt::format(
      "{:02X}",
      fmt::join(bytes.begin() + static_cast<std::ptrdiff_t>(std::min(from, bytes.size())), bytes.end(), " "));
}

// A trouble code as people write it (SAE J2012).
std::string codeText(std::uint8_t high, std::uint8_t low) {
  return fmt::format("{}{}{:X}{:02X}", "PCBU"[high >> 6U], high >> 4U & 3U, high & 0x0FU, low);
}

bool isList(std::uint8_t id) {
  return id % 0x20 == 0;
}

// What one control unit answered to one request.
using Messages = std::vector<Bytes>;

class Unit {
 public:
  void add(const Bytes& request, Messages messages) {
    if (m_answers.try_emplace(request, std::move(messages)).second) {
      m_order.push_back(request);
    }
  }

  // The acronym that it gives itself, four characters at most.
  std::string name() const {
    std::string name;
    const Messages* const messages = find({0x09, 0x0A});
    for (const Bytes& message : messages != nullptr ? *messages : Messages()) {
      for (std::size_t i = 3; i < message.size() && name.size() < 4; ++i) {
        if (std::isalnum(message[i]) == 0) {
          return name;
        }
        name += static_cast<char>(message[i]);
      }
    }
    return name;
  }

  std::string lines(bool isCan) {
    m_text.clear();
    m_rows = 0;
    const std::size_t codes = codeLists();
    monitors(codes);
    for (const Bytes& request : m_order) {
      row(request, m_answers.at(request), isCan);
    }
    return m_text;
  }

 private:
  const Messages* find(const Bytes& request) const {
    const auto found = m_answers.find(request);
    return found == m_answers.end() ? nullptr : &found->second;
  }

  static bool isPositive(const Bytes& request, const Messages& messages) {
    return std::all_of(messages.begin(), messages.end(), [&](const Bytes& message) {
      return !message.empty() && message[0] == request[0] + 0x40;
    });
  }

  // Confirmed, pending and permanent codes; gives how many are confirmed.
  std::size_t codeLists() {
    struct Row {
      std::uint8_t service;
      const char* key;
    };
    static constexpr Row Rows[] = {{0x03, "codes"}, {0x07, "pending"}, {0x0A, "permanent"}};
    std::size_t confirmed = 0;
    for (const Row& row : Rows) {
      const Messages* const messages = find({row.service});
      if (messages == nullptr || !isPositive({row.service}, *messages)) {
        continue;
      }
      std::set<std::string> seen;
      std::vector<std::string> codes;
      for (const Bytes& message : *messages) {
        // On CAN a count stands in front of the codes.
        for (std::size_t i = message.size() % 2 == 0 ? 2 : 1; i + 1 < message.size(); i += 2) {
          const std::string code = codeText(message[i], message[i + 1]);
          if ((message[i] != 0 || message[i + 1] != 0) && seen.insert(code).second) {
            codes.push_back(code);
          }
        }
      }
      m_text += fmt::format("{} = {}\n", row.key,
                            codes.empty() ? "none" : fmt::format("{}", fmt::join(codes, " ")));
      m_told.insert({row.service});
      confirmed = row.service == 0x03 ? codes.size() : confirmed;
    }
    return confirmed;
  }

  // PID 01, unless it counts other codes than service 03 lists.
  void monitors(std::size_t codes) {
    const Messages* const messages = find({0x01, 0x01});
    if (messages == nullptr || messages->front().size() != 6 || !isPositive({0x01, 0x01}, *messages)) {
      return;
    }
    const Bytes& reply = messages->front();
    if ((reply[2] & 0x7FU) == codes) {
      m_text +=
          fmt::format("monitors = {}\nlight = {}\n", hexOf(reply, 3), (reply[2] & 0x80U) != 0 ? "on" : "off");
      m_told.insert({0x01, 0x01});
    }
  }

  void row(const Bytes& request, const Messages& messages, bool isCan) {
    const bool one = messages.size() == 1 && isPositive(request, messages);
    const Bytes& first = messages.front();
    if (m_told.contains(request) || !fitsVehicleFile(request, messages, isCan)) {
      return;
    }
    if (one && request.size() == 2 && request[0] == 0x01 && !isList(request[1]) && first.size() > 2) {
      m_text += fmt::format("{} = {}\n", hexOf(request), hexOf(first, 2));
    } else if (one && request.size() == 3 && request[0] == 0x02 && !isList(request[1]) && first.size() > 3) {
      freeze(request, first);
    } else if (one && isCan && request.size() == 2 && request[0] == 0x09 && first.size() > 3 &&
               isText(request[1], first)) {
      m_text += fmt::format("{} = \"{}\"\n", hexOf(request), std::string(first.begin() + 3, first.end()));
    } else if (request != Bytes{0x04} || !one) {  // codes can be cleared anyway
      answer(request, messages);
    }
  }

  static bool fitsVehicleFile(const Bytes& request, const Messages& messages, bool isCan) {
    return request.size() <= LongestShort && messages.size() <= MostMessages &&
           (isCan || std::all_of(messages.begin(), messages.end(),
                                 [](const Bytes& message) { return message.size() <= LongestShort; }));
  }

  void freeze(const Bytes& request, const Bytes& reply) {
    const int frame = request[2];
    if (request[1] == 0x02 && reply.size() == 5 && (reply[3] != 0 || reply[4] != 0)) {
      m_frames.insert(frame);
      m_text += fmt::format("freeze {} = {}\n", frame, codeText(reply[3], reply[4]));
    } else if (m_frames.contains(frame) && request[1] != 0x02) {
      m_text += fmt::format("freeze {} {:02X} = {}\n", frame, request[1], hexOf(reply, 3));
    } else {
      answer(request, {reply});
    }
  }

  // One text without what would end it in a vehicle file.
  static bool isText(std::uint8_t type, const Bytes& reply) {
    return (type == 0x02 || type == 0x0D || type == 0x0F) && reply.size() <= 20 &&
           std::all_of(reply.begin() + 3, reply.end(),
                       [](std::uint8_t byte) { return byte > ' ' && byte < 0x7F && byte != '"'; });
  }

  void answer(const Bytes& request, const Messages& messages) {
    if (++m_rows > MostAnswers) {
      return;
    }
    std::string value;
    if (messages.size() == 1 && messages[0].size() == 3 && messages[0][0] == Negative) {
      value = fmt::format("refuse {:02X}", messages[0][2]);
    } else {
      for (const Bytes& message : messages) {
        value += (value.empty() ? "" : " | ") + hexOf(message);
      }
    }
    m_text += fmt::format("answer {} = {}\n", hexOf(request), value);
  }

  std::map<Bytes, Messages> m_answers;
  std::vector<Bytes> m_order;
  std::set<Bytes> m_told;
  std::set<int> m_frames;
  std::size_t m_rows = 0;
  std::string m_text;
};

class VehicleWriter {
 public:
  explicit VehicleWriter(const simulator::Trace& trace) {
    for (const TraceExchange& exchange : simulator::exchangesOf(trace)) {
      const std::string answer = simulator::answerOf(trace, exchange);
      if (exchange.request == "ATDPN" || exchange.request == "ATN") {
        readProtocol(answer);
      } else if (exchange.request == "ATRV" && m_battery.empty()) {
        readBattery(answer);
      } else {
        add(answer, exchange.request);
      }
    }
  }

  std::string text(const std::string& file, const std::string& name) {
    if (m_protocol == 0) {
      throw Failure(Failure::Kind::NoData, fmt::format("{} does not tell the protocol of the vehicle.", file),
                    "It must hold the answer to ATDPN, as any trace of velmara's does.");
    }
    std::erase_if(m_units, [this](const auto& entry) { return !isIdentifier(entry.first); });
    if (m_units.empty()) {
      throw Failure(Failure::Kind::NoData,
                    fmt::format("{} holds no answer of a control unit with its header.", file),
                    "Record it with headers on (ATH1), as velmara does.");
    }
    std::string text = fmt::format("# Made of {} by velmara trace vehicle.\nname = {}\nprotocol = {}\n",
                                   clean(file), clean(name), m_protocol);
    const bool isCan = m_protocol >= FirstCan;
    if (isCan) {
      text += m_filler < 0 ? "filler = none\n" : fmt::format("filler = {:02X}\n", m_filler);
    }
    text += m_battery.empty() ? "" : fmt::format("battery = {}\n", m_battery);
    std::set<std::string> names;
    for (auto& [label, unit] : m_units) {
      std::string own = unit.name();
      if (own.empty() || !names.insert(own).second) {
        own = "U" + label;
      }
      text += fmt::format("\n[unit {} {}]\n{}", own, label, unit.lines(isCan));
    }
    return text;
  }

 private:
  // Whether control units have such on the vehicle's protocol; what is damaged may look like any.
  bool isIdentifier(const std::string& label) const {
    if (m_protocol < FirstCan) {
      return label.size() == 2;
    }
    return m_protocol % 2 == 0 ? label.size() == 3 && label[0] < '8'
                               : label.size() == 8 && label < "20000000";
  }

  // The last digit of "A6".
  void readProtocol(const std::string& answer) {
    const std::size_t end = answer.find_last_of("123456789ABC");
    if (end != std::string::npos && answer[end] <= '9') {
      m_protocol = static_cast<unsigned>(answer[end] - '0');
    }
  }

  void readBattery(const std::string& answer) {
    const std::size_t end = answer.find('V', answer.find('.'));
    const std::size_t begin =
        end == std::string::npos ? end : answer.find_last_not_of("0123456789.", end - 1);
    if (end != std::string::npos) {
      const std::string number = answer.substr(begin + 1, end - begin - 1);
      const std::optional<double> volts = finiteNumber(number);
      m_battery = volts && *volts > 0.1 && *volts < 60 ? number : std::string();
    }
  }

  void add(const std::string& answer, const std::string& request) {
    const auto bytes = requestBytes(request);
    if (!bytes) {
      return;
    }
    const TracedAnswer read = readAnswer(answer, request);
    m_filler = read.filler.value_or(m_filler);
    std::map<std::string, Messages> byUnit;
    std::set<std::string> damaged;
    for (const TracedMessage& message : read.messages) {
      byUnit[message.unit].push_back(message.data.bytes);
      const std::vector<std::uint8_t>& reply = message.data.bytes;
      const bool fits = !reply.empty() && (reply[0] == bytes->front() + 0x40 || reply[0] == Negative);
      if (!message.whole || !fits) {
        damaged.insert(message.unit);
      }
    }
    for (auto& [label, messages] : byUnit) {
      if (!label.empty() && !damaged.contains(label) &&
          (m_units.contains(label) || m_units.size() < MostUnits)) {
        m_units[label].add(*bytes, std::move(messages));
      }
    }
  }

  // A line of a vehicle file for people; # begins a comment there.
  static std::string clean(const std::string& text) {
    std::string words = printable(text);
    std::replace(words.begin(), words.end(), '#', ' ');
    return words;
  }

  unsigned m_protocol = 0;
  int m_filler = 0;
  std::string m_battery;
  std::map<std::string, Unit> m_units;
};

}  // namespace

std::string vehicleOf(const simulator::Trace& trace, const std::string& file, const std::string& name) {
  return VehicleWriter(trace).text(file, name);
}

}  // namespace velmara
