#pragma once

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <map>
#include <mutex>
#include <random>
#include <utility>

#include <hostos/time.h>
#include <simulator/replay.h>

#include "elmpersonality.h"
#include "vehicledata.h"

namespace simulator {

inline int hexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

inline bool isHex(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return hexDigit(c) >= 0; });
}

// Up to eight digits, all hexadecimal.
inline std::uint32_t hexValue(std::string_view text) {
  std::uint32_t value = 0;
  for (const char c : text) {
    value = value << 4 | static_cast<std::uint32_t>(hexDigit(c));
  }
  return value;
}

inline std::string hexText(unsigned value) {
  std::array<char, 16> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "%X", value);
  return buffer.data();
}

/// The adapter behind its shell. elmadapter.cpp has the link with time, characters and faults;
/// elmcommands.cpp what AT sets; elmrequests.cpp the way to the vehicle and the form of its replies.
class ElmAdapter::Core {
 public:
  Core(std::shared_ptr<Vehicle> vehicle, std::shared_ptr<Replay> replay, AdapterOptions options);
  int receive(const unsigned char* bytes, std::size_t count);
  int read(std::vector<unsigned char>& out, unsigned wait);
  std::optional<std::uint32_t> nextDue();
  void setLink(bool up);
  void setLinkRate(int rate);
  unsigned exchanges();
  int baudrate();

 private:
  static constexpr std::uint64_t Never = std::numeric_limits<std::uint64_t>::max();

  enum class End { None, PeerClosed, ReadFailed };

  struct Chunk {
    std::string text;
    int rate = 0;
    bool whole = false;    // a read ends behind it
    bool running = false;  // a character from the host stops it
    End end = End::None;
  };

  // A piece of a reply, so many milliseconds from now.
  struct Piece {
    unsigned delay = 0;
    std::string text;
  };

  struct Reply {
    std::vector<Piece> pieces;
    bool running = false;
    bool prompt = true;
    std::optional<unsigned> lost;  // the link ends so many milliseconds from now

    void add(unsigned delay, std::string_view text) {
      if (!pieces.empty() && pieces.back().delay >= delay) {
        pieces.back().text += text;
      } else {
        pieces.push_back({delay, std::string(text)});
      }
    }
    unsigned duration() const { return pieces.empty() ? 0 : pieces.back().delay; }
    void merge() {
      Piece all{duration(), {}};
      for (const Piece& piece : pieces) {
        all.text += piece.text;
      }
      pieces.clear();
      pieces.push_back(std::move(all));
    }
  };

  // A baud rate on trial.
  struct NewRate {
    int oldRate = 0;
    std::uint64_t identified = 0;  // when the identification goes out
    std::uint64_t expires = 0;
  };

  // Time.
  void advance();
  std::uint64_t due() const;
  std::optional<int> deliver(std::vector<unsigned char>& out);

  // Characters.
  std::string newLine() const { return m_lineFeeds ? "\r\n" : "\r"; }
  void send(std::string text) { m_output.emplace(m_now, Chunk{std::move(text), m_rate}); }
  bool take(std::uint8_t byte, bool& swallow, std::string& line);
  bool stopRunning();

  // Exchanges.
  bool strikes(Fault::Kind kind, unsigned exchange) const;
  void perform(unsigned exchange, const std::string& line);
  void replay(const std::string& line, Reply& reply);
  void queue(unsigned exchange, Reply reply);
  void makeNoise(std::string& text, unsigned count);

  // Commands.
  void restoreDefaults();
  void command(std::string_view text, Reply& reply);
  bool special(std::string_view text);
  void stnCommand(std::string_view text, Reply& reply);
  std::string protocolName() const;
  std::string programmableParameters() const;
  bool setProtocol(std::string_view argument, bool store);
  void tryRate(int rate, Reply& reply);

  // Requests.
  void request(std::string_view text, Reply& reply);
  bool openProtocol(const VehicleData& vehicle, Reply& reply, unsigned& delay);
  std::optional<std::uint32_t> target(const VehicleData& vehicle) const;
  bool isCan() const { return m_open ? m_protocol >= 6 : m_vehicle->data().isCan(); }

  struct Line {
    unsigned time = 0;  // in microseconds
    std::string text;
  };

  std::vector<Line> wireLines(const VehicleData& vehicle, const std::vector<UnitReply>& replies) const;
  bool passes(std::uint32_t id, bool shortId) const;
  void appendBytes(std::string& text, const Bytes& bytes, std::size_t from = 0) const;
  void canLines(std::uint32_t id, const Bytes& frame, bool shortId, std::size_t size, unsigned time,
                std::vector<Line>& lines) const;
  std::string lineText(int protocol, std::uint32_t id, const Bytes& message) const;

  const std::shared_ptr<Vehicle> m_vehicle;  // null if the answers come from a trace
  const std::shared_ptr<Replay> m_replay;
  const AdapterOptions m_options;
  const Character& m_character;

  std::mutex m_mutex;
  hostos::WaitCondition m_arrived;

  std::string m_identifier;
  int m_rate;
  int m_linkRate = 0;
  std::mt19937 m_random;
  Reply m_behind;           // to the command before, of a faulty adapter
  std::uint32_t m_clock;    // last reading of the clock
  std::uint64_t m_now = 0;  // milliseconds since power on
  bool m_up = false;
  bool m_asleep = false;
  unsigned m_exchanges = 0;
  std::string m_line;
  std::string m_last;
  std::string m_held;
  std::multimap<std::uint64_t, Chunk> m_output;
  std::optional<NewRate> m_newRate;

  // Settings.
  bool m_echo = true;
  bool m_lineFeeds = false;
  bool m_spaces = true;
  bool m_headers = false;
  bool m_memory = true;
  bool m_responses = true;
  bool m_canFormat = true;
  unsigned m_timeout = 0x32;
  unsigned m_baudTimeout = 0x0F;
  std::string m_header;
  std::optional<std::uint32_t> m_filter;
  std::optional<std::uint32_t> m_mask;

  // The protocol: the chosen one, whether others are tried too, and what is remembered of both.
  int m_protocol = 0;
  bool m_automatic = true;
  int m_stored = 0;
  bool m_storedAutomatic = true;
  bool m_open = false;
};

}  // namespace simulator
