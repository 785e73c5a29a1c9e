// Reader of vehicle files. Their format is told in vehicles/README.md.

#include <algorithm>
#include <set>

#include "rowreader.h"

namespace simulator {

namespace {

constexpr std::size_t MostUnits = 8;
constexpr std::size_t LongestReply = 4095;  // what ISO 15765-2 can carry
constexpr std::size_t MostAnswers = 256;    // of a unit
constexpr std::size_t MostMessages = 64;    // of one answer
constexpr std::size_t LongestPadding = 64;
constexpr std::size_t LongestInfo = 1020;      // 255 messages of four bytes, before CAN
constexpr std::uint32_t MostReplies = 1000;    // that a unit gives before it falls silent
constexpr std::uint32_t LongestStand = 86400;  // s before the drive begins
constexpr std::uint32_t LongestWait = 10000;   // ms to an answer, twice what ISO 15765-4 lets a unit ask for

class Parser : private RowReader {
 public:
  Parser(std::string_view text, const std::string& origin) : RowReader(origin), m_text(text) {}

  std::unique_ptr<VehicleData> run() {
    while (!m_text.empty()) {
      const std::size_t end = m_text.find('\n');
      const std::string_view whole = m_text.substr(0, end);
      m_text.remove_prefix(end == std::string_view::npos ? m_text.size() : end + 1);
      nextLine();
      const std::string_view content = trim(withoutComment(whole));
      if (!content.empty()) {
        line(content);
      }
    }
    finish();
    return std::move(m_vehicle);
  }

 private:
  static std::string_view withoutComment(std::string_view text) {
    bool inText = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '"') {
        inText = !inText;
      } else if (text[i] == '#' && !inText) {
        return text.substr(0, i);
      }
    }
    return text;
  }

  std::vector<std::uint16_t> codeList(std::string_view text) const {
    std::vector<std::uint16_t> codes;
    if (text == "none") {
      return codes;
    }
    while (!text.empty()) {
      codes.push_back(code(word(text)));
    }
    if (codes.empty() || codes.size() > 255) {
      fail("Expected 1 to 255 trouble codes, or none");
    }
    return codes;
  }

  // "name * factor + offset : width" without its braces.
  Term signal(std::string_view text) const {
    Term term;
    const auto number2 = [this](std::string_view value) { return number(trim(value), -1e9, 1e9); };
    if (const std::size_t colon = text.find(':'); colon != std::string_view::npos) {
      term.width = whole(trim(text.substr(colon + 1)), 1, 4);
      text = text.substr(0, colon);
    }
    const std::size_t sign = text.find_first_of("+-");
    if (sign != std::string_view::npos) {
      term.offset = number2(text.substr(sign + 1)) * (text[sign] == '-' ? -1 : 1);
      text = text.substr(0, sign);
    }
    if (const std::size_t star = text.find('*'); star != std::string_view::npos) {
      term.factor = number2(text.substr(star + 1));
      text = text.substr(0, star);
    }
    const auto found = signalByName(trim(text));
    if (!found) {
      fail(quoted(trim(text)) + " is no signal");
    }
    term.signal = *found;
    return term;
  }

  Template reply(std::string_view text) const {
    Template terms;
    std::size_t size = 0;
    text = trim(text);
    while (!text.empty()) {
      if (text.front() == '{') {
        const std::size_t end = text.find('}');
        if (end == std::string_view::npos) {
          fail("The signal has no closing brace");
        }
        terms.push_back(signal(text.substr(1, end - 1)));
        size += terms.back().width;
        text = trim(text.substr(end + 1));
        continue;
      }
      if (terms.empty() || terms.back().signal != Signal::Count) {
        terms.emplace_back();
      }
      Bytes& bytes = terms.back().bytes;
      const std::size_t before = bytes.size();
      if (text.front() == '"') {
        const std::string_view characters = quotedText(text);
        bytes.insert(bytes.end(), characters.begin(), characters.end());
      } else {
        std::size_t end = 0;
        while (end < text.size() && !isBlank(text[end]) && text[end] != '{' && text[end] != '"') {
          ++end;
        }
        appendHex(text.substr(0, end), bytes);
        text = trim(text.substr(end));
      }
      size += bytes.size() - before;
    }
    if (size == 0) {
      fail("Expected bytes behind the equals sign");
    }
    if (size > LongestReply) {
      fail("The reply is longer than " + std::to_string(LongestReply) + " bytes");
    }
    return terms;
  }

  // Items of service 09 as ISO 15031-5 packs them.
  Info info(std::uint8_t type, std::string_view text) const {
    Info result;
    std::vector<std::string_view> texts;
    const auto add = [&result](std::string_view characters, std::size_t width) {
      result.bytes.insert(result.bytes.end(), characters.begin(), characters.end());
      result.bytes.insert(result.bytes.end(), width - std::min(width, characters.size()), 0);
    };
    if (text.starts_with('"')) {
      while (!text.empty()) {
        if (text.front() != '"') {
          fail("Expected a text in quotation marks");
        }
        texts.push_back(quotedText(text));
      }
      const bool named = type == 0x0A;
      const std::size_t width = named ? 15 : type == 0x04 ? 16 : 17;
      if ((named && texts.size() != 2) || (!named && type != 0x04 && texts.size() != 1)) {
        fail("Expected one text, any number of calibrations, or acronym and name of the unit");
      }
      for (std::size_t i = 0; i < texts.size(); ++i) {
        const std::size_t limit = named && i == 0 ? 4 : width;
        if (texts[i].empty() || texts[i].size() > limit) {
          fail(quoted(texts[i]) + " must have 1 to " + std::to_string(limit) + " characters");
        }
        if (named && i == 1) {
          result.bytes.push_back('-');
        }
        add(texts[i], limit == 17 ? texts[i].size() : limit);
      }
      checkInfo(result);
      result.count = static_cast<unsigned>(type == 0x04 ? texts.size() : 1);
      return result;
    }
    const bool counters = type == 0x08 || type == 0x0B;
    unsigned items = 0;
    while (!text.empty()) {
      const std::string_view item = word(text);
      if (counters) {
        const auto value = whole(item, 0, 65535);
        result.bytes.push_back(static_cast<std::uint8_t>(value >> 8));
        result.bytes.push_back(static_cast<std::uint8_t>(value));
      } else {
        appendHex(item, result.bytes);
      }
      ++items;
    }
    if (counters && items % 2 != 0) {
      fail("Counters come in pairs");
    }
    if (type == 0x06 && result.bytes.size() != items * std::size_t{4}) {
      fail("A calibration verification number has eight hexadecimal digits");
    }
    checkInfo(result);
    if (counters && items > 255) {
      fail("There are at most 255 counters");
    }
    result.count = type == 0x06 || counters ? items : 1;
    return result;
  }

  void checkInfo(const Info& info) const {
    if (info.bytes.empty() || info.bytes.size() > LongestInfo) {
      fail("Expected 1 to " + std::to_string(LongestInfo) + " bytes of vehicle information");
    }
  }

  void line(std::string_view content) {
    if (content.front() == '[') {
      section(content);
      return;
    }
    const std::size_t equals = content.find('=');
    if (equals == std::string_view::npos) {
      fail("Expected \"key = value\" or \"[unit NAME ID]\"");
    }
    const std::string_view key = trim(content.substr(0, equals));
    const std::string_view value = trim(content.substr(equals + 1));
    if (value.empty()) {
      fail("There is nothing behind the equals sign");
    }
    std::string full(m_unit == nullptr ? "" : m_unit->name);
    for (std::string_view rest = key; !rest.empty();) {
      full.append("\n").append(word(rest));
    }
    if (!m_seen.insert(full).second) {
      fail(quoted(key) + " is told twice");
    }
    if (m_unit == nullptr) {
      vehicleKey(key, value);
    } else {
      unitKey(key, value);
    }
  }

  void section(std::string_view content) {
    if (content.back() != ']') {
      fail("The section has no closing bracket");
    }
    std::string_view inside = content.substr(1, content.size() - 2);
    if (word(inside) != "unit") {
      fail("Expected \"[unit NAME ID]\"");
    }
    const std::string_view name = word(inside);
    const std::string_view id = word(inside);
    if (name.empty() || id.empty() || !inside.empty()) {
      fail("Expected \"[unit NAME ID]\"");
    }
    if (!m_protocolKnown) {
      fail("The protocol must be told before the first unit");
    }
    if (m_vehicle->units.size() == MostUnits) {
      fail("A vehicle has at most " + std::to_string(MostUnits) + " units");
    }
    Unit unit;
    unit.name = name;
    const int protocol = m_vehicle->protocol;
    unit.id = hexNumber(id, protocol < 6 ? 2 : protocol % 2 == 0 ? 3 : 8);
    if (unit.id > (protocol < 6 ? 0xFFU : protocol % 2 == 0 ? 0x7FFU : 0x1FFFFFFFU)) {
      fail(quoted(id) + " is no identifier on this protocol");
    }
    for (const Unit& other : m_vehicle->units) {
      if (other.id == unit.id || other.name == unit.name) {
        fail("There is another unit of that name or identifier");
      }
    }
    m_vehicle->units.push_back(std::move(unit));
    m_unit = &m_vehicle->units.back();
  }

  void vehicleKey(std::string_view key, std::string_view value) {
    struct DriveKey {
      std::string_view key;
      double Drive::*field;
      double least, most;
    };
    static constexpr DriveKey DriveKeys[] = {{"displacement", &Drive::displacement, 0.1, 20},
                                             {"mass", &Drive::mass, 100, 60000},
                                             {"idle", &Drive::idle, 300, 3000},
                                             {"cruise", &Drive::cruise, 10, 250},
                                             {"coolant", &Drive::coolant, -40, 90},
                                             {"ambient", &Drive::ambient, -40, 60},
                                             {"fuel", &Drive::fuelLevel, 0, 100},
                                             {"torque", &Drive::referenceTorque, 20, 5000},
                                             {"soot", &Drive::sootAtStart, 0, 100}};
    if (key == "name") {
      m_vehicle->name = value;
    } else if (key == "protocol") {
      m_vehicle->protocol = static_cast<int>(whole(value, 1, 9));
      m_protocolKnown = true;
    } else if (key == "filler") {
      if (value == "none") {
        m_vehicle->filler.reset();
      } else {
        m_vehicle->filler = hexByte(value);
      }
    } else if (key == "battery") {
      m_vehicle->battery = number(value, 0.1, 60);
    } else if (key == "stands") {
      m_vehicle->stands = whole(value, 0, LongestStand) * 1000;
    } else if (key == "engine") {
      if (value != "petrol" && value != "diesel" && value != "hybrid") {
        fail(quoted(value) + " is no engine; there are petrol, diesel and hybrid");
      }
      m_vehicle->drive.engine = value == "petrol"   ? EngineKind::Petrol
                                : value == "diesel" ? EngineKind::Diesel
                                                    : EngineKind::Hybrid;
    } else {
      const auto* row = std::find_if(std::begin(DriveKeys), std::end(DriveKeys),
                                     [key](const DriveKey& entry) { return entry.key == key; });
      if (row == std::end(DriveKeys)) {
        fail(quoted(key) + " is nothing that a vehicle has");
      }
      m_vehicle->drive.*(row->field) = number(value, row->least, row->most);
    }
  }

  void unitKey(std::string_view key, std::string_view value) {
    std::string_view rest = key;
    const std::string_view first = word(rest);
    if (first == "01" || first == "09") {
      const std::uint8_t id = hexByte(rest);
      if (id % 0x20 == 0) {
        fail("Identifier " + std::string(rest) + " is a list of what is supported, which is worked out");
      }
      if (first == "01") {
        m_unit->pids[id] = reply(value);
      } else {
        m_unit->infos[id] = info(id, value);
      }
    } else if (first == "05" || first == "06" || first == "08") {
      readTestRow(*this, m_vehicle->isCan(), hexByte(first), rest, value, *m_unit);
    } else if (first == "freeze") {
      freeze(rest, value);
    } else if (first == "answer" || first == "stopped") {
      answer(rest, value, first == "stopped");
    } else if (key == "latency") {
      m_unit->latency = whole(value, 0, LongestWait);
    } else if (key == "replies") {
      m_unit->replies = whole(value, 1, MostReplies);
    } else if (key == "monitors") {
      Bytes bytes;
      while (!value.empty()) {
        appendHex(word(value), bytes);
      }
      if (bytes.size() != 3) {
        fail("The monitors are three bytes, B to D of PID 01");
      }
      m_unit->monitors = {bytes[0], bytes[1], bytes[2]};
    } else if (key == "light") {
      m_unit->light = yes(value);
    } else if (key == "codes" || key == "pending" || key == "permanent") {
      m_unit->hasCodes = true;
      m_unit->hasPermanent = m_unit->hasPermanent || key == "permanent";
      (key == "codes"     ? m_unit->confirmed
       : key == "pending" ? m_unit->pending
                          : m_unit->permanent) = codeList(value);
    } else if (key == "clear") {
      m_unit->hasCodes = true;
      m_unit->clears = yes(value);
    } else if (key == "groups") {
      m_unit->groups = groups(value);
    } else if (key == "refuse") {
      m_unit->refusal = hexByte(value);
    } else {
      fail(quoted(key) + " is nothing that a unit has");
    }
  }

  Groups groups(std::string_view value) const {
    enum class Rest { Nothing, Byte, Bytes };
    struct Word {
      std::string_view word;
      Groups::Way way;
      Rest rest;
    };
    using Way = Groups::Way;
    static constexpr Word Words[] = {
        {"all", Way::All, Rest::Nothing},         {"first", Way::First, Rest::Nothing},
        {"refuse", Way::Refuse, Rest::Byte},      {"silence", Way::Silence, Rest::Nothing},
        {"reverse", Way::Reverse, Rest::Nothing}, {"omit", Way::Omit, Rest::Byte},
        {"pad", Way::Pad, Rest::Bytes},           {"cut", Way::Cut, Rest::Nothing},
        {"long", Way::Long, Rest::Byte}};
    if (!m_vehicle->isCan()) {
      fail("Before CAN a request has one PID");
    }
    const std::string_view first = word(value);
    const auto* found = std::find_if(std::begin(Words), std::end(Words),
                                     [first](const Word& entry) { return entry.word == first; });
    if (found == std::end(Words)) {
      fail(quoted(first) + " is no way to answer several PIDs");
    }
    Groups result{found->way, 0, {}};
    if (found->rest == Rest::Byte) {
      result.byte = hexByte(word(value));
    } else if (found->rest == Rest::Bytes) {
      do {
        result.padding.push_back(hexByte(word(value)));
      } while (!value.empty() && result.padding.size() < LongestPadding);
    }
    if (!value.empty()) {
      fail(quoted(value) + " is too much here");
    }
    return result;
  }

  void freeze(std::string_view rest, std::string_view value) {
    const auto frame = static_cast<std::uint8_t>(whole(word(rest), 0, 255));
    if (rest.empty()) {
      m_unit->frames[frame].code = code(value);
      return;
    }
    const auto found = m_unit->frames.find(frame);
    if (found == m_unit->frames.end()) {
      fail("The trouble code of the freeze frame must be told first");
    }
    const std::uint8_t pid = hexByte(rest);
    if (pid == 0x02 || pid % 0x20 == 0) {
      fail("PID " + std::string(rest) + " of a freeze frame is worked out");
    }
    found->second.pids[pid] = reply(value);
  }

  void answer(std::string_view rest, std::string_view value, bool onlyStopped) {
    Answer result;
    result.onlyStopped = onlyStopped;
    while (!rest.empty()) {
      const std::string_view next = word(rest);
      if (next == "*" && rest.empty()) {
        result.anyRest = true;
      } else {
        appendHex(next, result.request);
      }
    }
    if (result.request.empty() || result.request.size() > LongestReply) {
      fail("Expected the bytes of a request in front of the equals sign");
    }
    std::string_view words = value;
    const std::string_view first = word(words);
    if (first == "refuse") {
      Term term;
      term.bytes = {0x7F, result.request.front(), hexByte(words)};
      result.messages = {{term}};
    } else if (value != "silence") {
      while (true) {
        const std::size_t bar = value.find('|');
        result.messages.push_back(reply(value.substr(0, bar)));
        if (bar == std::string_view::npos) {
          break;
        }
        value.remove_prefix(bar + 1);
      }
    }
    if (result.messages.size() > MostMessages || m_unit->answers.size() == MostAnswers) {
      fail("A unit has at most " + std::to_string(MostAnswers) + " answers of up to " +
           std::to_string(MostMessages) + " messages");
    }
    m_unit->answers.push_back(std::move(result));
  }

  void finish() const {
    if (m_vehicle->name.empty() || !m_protocolKnown || m_vehicle->units.empty()) {
      fail("A vehicle needs a name, a protocol and at least one unit");
    }
    if (m_vehicle->isCan()) {
      return;
    }
    for (const Unit& unit : m_vehicle->units) {
      for (const auto& entry : unit.pids) {
        checkLength(unit, entry.second, 2);
      }
      for (const auto& frame : unit.frames) {
        for (const auto& entry : frame.second.pids) {
          checkLength(unit, entry.second, 3);
        }
      }
      for (const Answer& known : unit.answers) {
        for (const Template& message : known.messages) {
          checkLength(unit, message, 0);
        }
      }
    }
  }

  // Before CAN a message has at most seven bytes.
  void checkLength(const Unit& unit, const Template& terms, std::size_t size) const {
    for (const Term& term : terms) {
      size += term.signal == Signal::Count ? term.bytes.size() : term.width;
    }
    if (size > 7) {
      fail("Unit " + unit.name + " has a message of more than 7 bytes, which needs CAN");
    }
  }

  std::string_view m_text;
  std::unique_ptr<VehicleData> m_vehicle = std::make_unique<VehicleData>();
  Unit* m_unit = nullptr;
  bool m_protocolKnown = false;
  std::set<std::string> m_seen;
};

}  // namespace

std::unique_ptr<VehicleData> parseVehicle(std::string_view text, const std::string& origin) {
  return Parser(text, origin).run();
}

}  // namespace simulator
