#include <simulator/trace.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace simulator {

namespace {

using Kind = TraceEvent::Kind;

constexpr std::string_view Head = "# velmara trace ";
constexpr std::string_view Version = "1";
constexpr std::uintmax_t LargestFile = std::uintmax_t{256} << 20U;
constexpr std::uint64_t Second = 1000000;             // in microseconds
constexpr std::uint64_t LongestTrace = 100000000000;  // seconds
constexpr std::size_t TimeDigits = 6;

struct Word {
  std::string_view word;
  Kind kind;
};
constexpr std::array<Word, 5> Words = {{{"opened", Kind::Opened},
                                        {"failed", Kind::Failed},
                                        {"closed", Kind::Closed},
                                        {"lost", Kind::Lost},
                                        {"baud", Kind::Baud}}};

std::string escaped(std::string_view bytes) {
  static constexpr char Hex[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(bytes.size() + 8);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char c = bytes[i];
    const auto byte = static_cast<unsigned char>(c);
    const bool lastBlank = c == ' ' && i + 1 == bytes.size();  // which editors take away
    if (c == '\r') {
      text += "\\r";
    } else if (c == '\n') {
      text += "\\n";
    } else if (c == '\\') {
      text += "\\\\";
    } else if (byte < ' ' || byte > '~' || lastBlank) {
      text += {'\\', 'x', Hex[byte >> 4U], Hex[byte & 0x0FU]};
    } else {
      text += c;
    }
  }
  return text;
}

std::optional<unsigned> hexDigitOf(char c) {
  unsigned value = 0;
  const auto [end, error] = std::from_chars(&c, &c + 1, value, 16);
  return error == std::errc() ? std::optional(value) : std::nullopt;
}

class Parser {
 public:
  Parser(std::string_view text, const std::string& origin) : m_rest(text), m_origin(origin) {}

  Trace run() {
    head();
    while (!m_rest.empty()) {
      const bool whole = m_rest.find('\n') != std::string_view::npos;
      const std::string_view content = nextLine();
      try {
        line(content);
      } catch (const std::runtime_error& error) {
        if (whole) {
          throw;
        }
        m_trace.cut = std::string(error.what()) + " The last line is cut, and left out.";
      }
    }
    return std::move(m_trace);
  }

 private:
  [[noreturn]] void fail(const std::string& what) const {
    throw std::runtime_error(m_origin + ":" + std::to_string(m_line) + ": " + what);
  }

  std::string_view nextLine() {
    const std::size_t end = m_rest.find('\n');
    std::string_view content = m_rest.substr(0, end);
    m_rest.remove_prefix(end == std::string_view::npos ? m_rest.size() : end + 1);
    ++m_line;
    while (content.ends_with('\r')) {  // of editors; a line that is written again ends in none
      content.remove_suffix(1);
    }
    return content;
  }

  void head() {
    std::string_view content = nextLine();
    if (!content.starts_with(Head)) {
      fail("This is no trace: it does not begin with \"" + std::string(Head) + std::string(Version) + "\".");
    }
    content.remove_prefix(Head.size());
    if (content != Version) {
      fail("A later version of velmara has written this trace.");
    }
  }

  void line(std::string_view content) {
    if (content.empty()) {
      return;
    }
    TraceEvent event;
    event.time = m_time;
    if (content.front() == '#') {
      event.text = content.substr(1);
    } else {
      event.time = time(word(content));
      direction(event, content);
      m_time = event.time;
    }
    m_trace.events.push_back(std::move(event));
  }

  // Takes the next word off the front, with the blank behind it.
  static std::string_view word(std::string_view& content) {
    const std::size_t end = content.find(' ');
    const std::string_view first = content.substr(0, end);
    content.remove_prefix(end == std::string_view::npos ? content.size() : end + 1);
    return first;
  }

  std::uint64_t time(std::string_view text) const {
    const std::size_t point = text.find('.');
    const std::optional<std::uint64_t> seconds = number(text.substr(0, point));
    std::string fraction(point == std::string_view::npos ? "0" : text.substr(point + 1));
    if (fraction.size() < TimeDigits) {
      fraction.resize(TimeDigits, '0');
    }
    const std::optional<std::uint64_t> microseconds = number(fraction);
    if (!seconds || !microseconds || *seconds > LongestTrace || fraction.size() > TimeDigits ||
        text.ends_with('.')) {
      fail("The line does not begin with a time in seconds, such as 12.345678.");
    }
    const std::uint64_t result = *seconds * Second + *microseconds;
    if (result < m_time) {
      fail("The time lies before that of the line above.");
    }
    return result;
  }

  static std::optional<std::uint64_t> number(std::string_view text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return !text.empty() && error == std::errc() && end == text.data() + text.size() ? std::optional(value)
                                                                                     : std::nullopt;
  }

  void direction(TraceEvent& event, std::string_view content) const {
    const std::string_view sign = word(content);
    if (sign == "!") {
      happening(event, content);
    } else if (sign == ">" || sign == "<") {
      event.kind = sign == ">" ? Kind::Sent : Kind::Received;
      event.text = bytes(content);
      if (event.text.empty()) {
        fail("There are no bytes behind the " + std::string(sign) + ".");
      }
    } else {
      fail("Behind the time comes > for bytes to the adapter, < for bytes from it, or ! for an event.");
    }
  }

  void happening(TraceEvent& event, std::string_view content) const {
    const std::string_view name = word(content);
    for (const Word& row : Words) {
      if (row.word == name) {
        event.kind = row.kind;
        event.text = bytes(content);
        if (row.kind == Kind::Baud && !number(event.text)) {
          fail("The baud rate is no number.");
        }
        return;
      }
    }
    fail("An event is opened, failed, closed, lost or baud.");
  }

  std::string bytes(std::string_view text) const {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      if (byte < ' ' || byte > '~') {
        fail("Bytes other than printable ASCII are written as \\r, \\n or \\xHH.");
      }
      result += text[i] == '\\' ? escape(text, i) : text[i];
    }
    return result;
  }

  // What stands from the backslash on; `i` is its last character then.
  char escape(std::string_view text, std::size_t& i) const {
    const char kind = i + 1 < text.size() ? text[i + 1] : ' ';
    ++i;
    switch (kind) {
      case 'r':
        return '\r';
      case 'n':
        return '\n';
      case 't':
        return '\t';
      case '\\':
        return '\\';
      case 'x': {
        const auto high = i + 1 < text.size() ? hexDigitOf(text[i + 1]) : std::nullopt;
        const auto low = i + 2 < text.size() ? hexDigitOf(text[i + 2]) : std::nullopt;
        if (high && low) {
          i += 2;
          return static_cast<char>(*high << 4U | *low);
        }
        break;
      }
      default:
        break;
    }
    fail("Behind a backslash comes r, n, t, another one, or x and two hexadecimal digits.");
  }

  std::string_view m_rest;
  const std::string& m_origin;
  std::size_t m_line = 0;
  std::uint64_t m_time = 0;
  Trace m_trace;
};

// Puts the bytes that are sent together to lines.
class LineReader {
 public:
  template <typename Take>
  void read(std::string_view bytes, const Take& take) {
    for (const char c : bytes) {
      if (c == '\r') {
        take(std::exchange(m_line, std::string()));
      } else if (static_cast<unsigned char>(c) > ' ') {
        m_line += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
      }
    }
  }
  void clear() { m_line.clear(); }

 private:
  std::string m_line;
};

}  // namespace

Trace Trace::parse(std::string_view text, const std::string& origin) {
  return Parser(text, origin).run();
}

Trace Trace::load(const std::string& file) {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::file_status status = fs::status(file, error);
  if (!fs::exists(status)) {
    throw std::runtime_error("There is no file " + file + ".");
  }
  if (!fs::is_regular_file(status)) {
    throw std::runtime_error(file + " is no file of text.");
  }
  const std::uintmax_t size = fs::file_size(file, error);
  if (!error && size > LargestFile) {
    throw std::runtime_error(file + ":1: A trace has at most " + std::to_string(LargestFile >> 20U) +
                             " MiB, this file has " + std::to_string(size >> 20U) + ".");
  }
  std::ifstream stream(file, std::ios::binary);
  std::string text(error ? 0 : static_cast<std::size_t>(size), '\0');
  stream.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (error || !stream) {
    throw std::runtime_error(file + " cannot be read.");
  }
  return parse(text, file);
}

std::string Trace::text() const {
  std::string all = traceHead();
  for (const TraceEvent& event : events) {
    all += traceLine(event);
  }
  return all;
}

std::string Trace::link() const {
  for (const TraceEvent& event : events) {
    if (event.kind == Kind::Opened) {
      return event.text;
    }
  }
  return {};
}

std::string traceHead() {
  return std::string(Head) + std::string(Version) + "\n";
}

std::string traceLine(const TraceEvent& event) {
  if (event.kind == Kind::Comment) {
    return "#" + event.text + "\n";
  }
  std::array<char, 40> time{};
  std::snprintf(time.data(), time.size(), "%llu.%06llu ",
                static_cast<unsigned long long>(event.time / Second),
                static_cast<unsigned long long>(event.time % Second));
  std::string line = time.data();
  if (event.kind == Kind::Sent || event.kind == Kind::Received) {
    line += event.kind == Kind::Sent ? "> " : "< ";
  } else {
    for (const Word& row : Words) {
      if (row.kind == event.kind) {
        line.append("! ").append(row.word).append(event.text.empty() ? "" : " ");
      }
    }
  }
  return line + escaped(event.text) + "\n";
}

std::vector<TraceExchange> exchangesOf(const Trace& trace) {
  std::vector<TraceExchange> exchanges;
  std::size_t opening = 0;  // the first exchange since the link was opened
  bool listening = false;   // to what belongs to the latest exchange
  LineReader reader;
  for (std::size_t i = 0; i < trace.events.size(); ++i) {
    const TraceEvent& event = trace.events[i];
    switch (event.kind) {
      case Kind::Comment:
      case Kind::Failed:
        break;
      case Kind::Opened:
      case Kind::Closed:
        opening = exchanges.size();
        listening = false;
        reader.clear();
        break;
      case Kind::Sent:
        reader.read(event.text, [&](std::string line) {
          exchanges.push_back({std::move(line), event.time, {}, 0, false});
          listening = true;
        });
        break;
      case Kind::Received:
        if (listening) {
          exchanges.back().received.push_back(i);
        }
        break;
      case Kind::Lost:
        if (listening) {
          exchanges.back().lost = i;
        }
        listening = false;
        break;
      case Kind::Baud:
        for (; opening < exchanges.size(); ++opening) {
          exchanges[opening].oldRate = true;
        }
        break;
    }
  }
  return exchanges;
}

std::string answerOf(const Trace& trace, const TraceExchange& exchange) {
  std::string answer;
  for (const std::size_t event : exchange.received) {
    answer += trace.events[event].text;
  }
  return answer;
}

}  // namespace simulator
