// The adapter on its link: characters, time, and what a script of faults does to replies.

#include <simulator/elmadapter.h>

#include <span>

#include <hostos/imessagebus.h>

#include "elmcore.h"

namespace simulator {

namespace {

constexpr char CarriageReturn = '\r';
constexpr std::size_t LongestLine = 128;

// What a receiver at `receiverRate` makes of bytes sent at `senderRate` (8N1, back to back, idle line around
// them): it samples the middle of its own bits and drops bytes whose stop bit isn't there.
template <typename Container>
Bytes resample(const Container& bytes, int senderRate, int receiverRate) {
  if (senderRate == receiverRate || senderRate <= 0 || receiverRate <= 0) {
    return Bytes(bytes.begin(), bytes.end());
  }
  std::vector<bool> line;
  line.reserve(bytes.size() * 10);
  for (const auto character : bytes) {
    const auto byte = static_cast<unsigned char>(character);
    line.push_back(false);
    for (int bit = 0; bit < 8; ++bit) {
      line.push_back((byte >> bit & 1) != 0);
    }
    line.push_back(true);
  }
  const double width = static_cast<double>(senderRate) / receiverRate;
  const auto level = [&line](double time) {
    const auto index = static_cast<std::size_t>(time);
    return index >= line.size() || line[index];
  };
  Bytes received;
  std::size_t at = 0;
  while (true) {
    while (at < line.size() && line[at]) {
      ++at;
    }
    if (at >= line.size()) {
      return received;
    }
    const auto start = static_cast<double>(at);
    const bool framed = !level(start + 0.5 * width) && level(start + 9.5 * width);
    if (framed) {
      unsigned byte = 0;
      for (int bit = 0; bit < 8; ++bit) {
        byte |= level(start + (bit + 1.5) * width) ? 1U << bit : 0U;
      }
      received.push_back(static_cast<std::uint8_t>(byte));
    }
    at = std::max(at + 1, static_cast<std::size_t>(start + 9.5 * width));
    while (at < line.size() && !line[at]) {
      ++at;
    }
  }
}

}  // namespace

ElmAdapter::Core::Core(std::shared_ptr<Vehicle> vehicle, std::shared_ptr<Replay> replay,
                       AdapterOptions options)
    : m_vehicle(std::move(vehicle)),
      m_replay(std::move(replay)),
      m_options(std::move(options)),
      m_character(characterOf(m_options.personality)),
      m_identifier(m_character.identifier),
      m_rate(m_replay ? 0 : m_options.baudrate),
      m_random(m_options.faults.seed),
      m_clock(hostos::CTime::milliseconds()) {
  restoreDefaults();
  m_echo = !m_replay;  // its echo is recorded
}

int ElmAdapter::Core::receive(const unsigned char* bytes, std::size_t count) {
  std::unique_lock lock(m_mutex);
  advance();
  if (!m_up) {
    return 1;
  }
  const Bytes heard = resample(std::span(bytes, count), m_linkRate, m_rate);
  bool swallow = false;
  for (const std::uint8_t byte : heard) {
    if (!m_up) {
      return 1;
    }
    if (swallow) {
      swallow = byte != CarriageReturn;
      continue;
    }
    std::string line;
    if (!take(byte, swallow, line)) {
      continue;
    }
    const unsigned exchange = m_exchanges++;
    if (m_options.faults.onExchange) {
      lock.unlock();
      m_options.faults.onExchange(exchange, line);
      lock.lock();
      advance();
    }
    if (!m_up) {
      return 1;
    }
    if (strikes(Fault::Kind::WriteError, exchange)) {
      return 1;
    }
    perform(exchange, line);
  }
  if (m_linkRate != 0 && m_rate != 0 && m_linkRate != m_rate && !m_newRate) {
    m_line.clear();  // framing errors make the chip forget the line
  }
  m_arrived.notifyAll();
  return 0;
}

int ElmAdapter::Core::read(std::vector<unsigned char>& out, unsigned wait) {
  std::unique_lock lock(m_mutex);
  advance();
  const std::uint64_t limit = m_now + wait;
  while (true) {
    if (!m_up) {
      return hostos::BusReadError;
    }
    if (const std::optional<int> result = deliver(out)) {
      return *result;
    }
    if (m_now >= limit) {
      return hostos::BusNothingToRead;
    }
    const std::uint64_t next = std::min(limit, due());
    m_arrived.wait(lock, static_cast<std::uint32_t>(next - m_now));
    advance();
  }
}

std::optional<std::uint32_t> ElmAdapter::Core::nextDue() {
  const std::lock_guard guard(m_mutex);
  advance();
  const std::uint64_t next = due();
  if (!m_up || next == Never) {
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(next > m_now ? next - m_now : 0);
}

void ElmAdapter::Core::setLink(bool up) {
  const std::lock_guard guard(m_mutex);
  advance();
  m_up = up;
  m_output.clear();
  m_held.clear();
  m_line.clear();
  if (m_newRate) {  // nobody will confirm it
    m_rate = m_newRate->oldRate;
    m_newRate.reset();
  }
  m_arrived.notifyAll();
}

void ElmAdapter::Core::setLinkRate(int rate) {
  const std::lock_guard guard(m_mutex);
  m_linkRate = rate;
}

unsigned ElmAdapter::Core::exchanges() {
  const std::lock_guard guard(m_mutex);
  return m_exchanges;
}

int ElmAdapter::Core::baudrate() {
  const std::lock_guard guard(m_mutex);
  advance();
  return m_rate;
}

void ElmAdapter::Core::advance() {
  const std::uint32_t clock = hostos::CTime::milliseconds();
  m_now += static_cast<std::uint32_t>(clock - m_clock);
  m_clock = clock;
  if (m_newRate && m_now >= m_newRate->expires) {
    m_rate = m_newRate->oldRate;
    const std::uint64_t when = m_newRate->expires;
    m_newRate.reset();
    m_output.emplace(when, Chunk{newLine() + ">", m_rate});
  }
}

std::uint64_t ElmAdapter::Core::due() const {
  const std::uint64_t output = m_output.empty() ? Never : m_output.begin()->first;
  return m_newRate ? std::min(output, m_newRate->expires) : output;
}

std::optional<int> ElmAdapter::Core::deliver(std::vector<unsigned char>& out) {
  bool any = false;
  while (!m_output.empty() && m_output.begin()->first <= m_now) {
    const Chunk& chunk = m_output.begin()->second;
    if (chunk.end != End::None) {
      if (any) {
        break;
      }
      return chunk.end == End::PeerClosed ? hostos::BusPeerClosed : hostos::BusReadError;
    }
    if (m_linkRate == 0 || m_linkRate == chunk.rate) {
      out.insert(out.end(), chunk.text.begin(), chunk.text.end());
    } else {
      const Bytes heard = resample(chunk.text, chunk.rate, m_linkRate);
      out.insert(out.end(), heard.begin(), heard.end());
    }
    any = true;
    const bool whole = chunk.whole;
    m_output.erase(m_output.begin());
    if (whole) {
      break;
    }
  }
  return any ? std::optional<int>(hostos::BusRead) : std::nullopt;
}

// Takes one character; true with the line if it ended one.
bool ElmAdapter::Core::take(std::uint8_t byte, bool& swallow, std::string& line) {
  if (m_asleep) {
    // On a serial line the character is lost that wakes the chip.
    m_asleep = false;
    restoreDefaults();
    if (m_linkRate != 0) {
      return false;
    }
  }
  if (m_newRate) {
    if (byte == CarriageReturn && m_now >= m_newRate->identified) {
      m_newRate.reset();
      send("OK" + newLine() + newLine() + ">");
    }
    return false;
  }
  if (stopRunning()) {
    // The rest of the line comes while the chip is still busy with stopping.
    swallow = byte != CarriageReturn;
    send("STOPPED" + newLine() + newLine() + ">");
    return false;
  }
  if (byte == 0) {
    return false;
  }
  if (m_echo) {
    send(byte == CarriageReturn ? newLine() : std::string(1, static_cast<char>(byte)));
  }
  if (byte != CarriageReturn) {
    if (byte > ' ' && m_line.size() <= LongestLine) {
      m_line.push_back(static_cast<char>(byte >= 'a' && byte <= 'z' ? byte - 'a' + 'A' : byte));
    }
    return false;
  }
  line = std::exchange(m_line, std::string());
  if (line.empty() && !(m_replay && m_replay->has(line))) {
    line = m_last;
  }
  m_last = line;
  return true;
}

bool ElmAdapter::Core::stopRunning() {
  return std::erase_if(m_output, [this](const auto& entry) {
           return entry.second.running && entry.first > m_now;
         }) != 0;
}

bool ElmAdapter::Core::strikes(Fault::Kind kind, unsigned exchange) const {
  return std::any_of(m_options.faults.faults.begin(), m_options.faults.faults.end(),
                     [kind, exchange](const Fault& fault) {
                       return fault.kind == kind && exchange >= fault.first && exchange <= fault.last;
                     });
}

void ElmAdapter::Core::perform(unsigned exchange, const std::string& line) {
  Reply reply;
  if (m_replay) {
    replay(line, reply);
  } else if (line.empty()) {
    reply.add(0, "");  // nothing to repeat yet
  } else if (line.starts_with("AT")) {
    command(std::string_view(line).substr(2), reply);
  } else if (line.starts_with("ST") && (m_character.traits & StnCommands) != 0) {
    stnCommand(std::string_view(line).substr(2), reply);
  } else {
    request(line, reply);
  }
  queue(exchange, std::move(reply));
}

void ElmAdapter::Core::replay(const std::string& line, Reply& reply) {
  const bool forAdapter = line.starts_with("AT") || !isHex(line);
  std::optional<Replay::Answer> answer = m_replay->next(line);
  if (!answer) {
    reply.add(0, (forAdapter ? "?" : "NO DATA") + newLine() + newLine());
    return;
  }
  reply.running = !forAdapter;
  reply.lost = answer->lost;
  reply.prompt = !answer->pieces.empty() && answer->pieces.back().text.ends_with('>');
  if (reply.prompt) {
    answer->pieces.back().text.pop_back();
  }
  for (const Replay::Piece& piece : answer->pieces) {
    reply.add(piece.delay, piece.text);
  }
}

// Applies the script and puts the reply into the output.
void ElmAdapter::Core::queue(unsigned exchange, Reply reply) {
  bool late = false;
  bool hold = false;
  unsigned split = 0;
  End end = End::None;
  for (const Fault& fault : m_options.faults.faults) {
    if (exchange < fault.first || exchange > fault.last) {
      continue;
    }
    unsigned more = 0;
    switch (fault.kind) {
      case Fault::Kind::Latency:
        more = fault.amount;
        break;
      case Fault::Kind::Jitter:
        more = static_cast<unsigned>(m_random() % (std::uint64_t{fault.amount} + 1));
        break;
      case Fault::Kind::LateReply:
        more = fault.amount;
        late = true;
        break;
      case Fault::Kind::Behind:
        std::swap(reply, m_behind);
        reply.prompt = true;
        break;
      case Fault::Kind::Split:
        split = std::max(1U, fault.amount);
        break;
      case Fault::Kind::Merge:
        hold = true;
        break;
      case Fault::Kind::Noise:
        reply.merge();
        makeNoise(reply.pieces.front().text, std::clamp(fault.amount, 1U, 4096U));
        break;
      case Fault::Kind::LostPrompt:
        reply.prompt = false;
        break;
      case Fault::Kind::HalfReply:
        reply.merge();
        reply.pieces.front().text.resize(reply.pieces.front().text.size() / 2);
        reply.prompt = false;
        break;
      case Fault::Kind::Silence:
        reply.pieces.clear();
        reply.prompt = false;
        break;
      case Fault::Kind::ErrorWord:
        reply.merge();
        reply.pieces.front().text = fault.text + newLine() + newLine();
        break;
      case Fault::Kind::PeerClose:
      case Fault::Kind::ReadError:
        end = fault.kind == Fault::Kind::PeerClose ? End::PeerClosed : End::ReadFailed;
        break;
      case Fault::Kind::WriteError:
        break;
    }
    for (Piece& piece : reply.pieces) {
      piece.delay = std::min(piece.delay + std::min(more, 100000000U), 200000000U);
    }
  }
  if (end != End::None) {
    m_output.emplace(m_now, Chunk{{}, m_rate, true, false, end});
    return;
  }
  if (reply.prompt) {
    reply.add(reply.duration(), ">");
  }
  if (hold || !m_held.empty()) {
    reply.merge();
    reply.pieces.front().text.insert(0, m_held);
    m_held.clear();
  }
  if (hold) {
    m_held = std::move(reply.pieces.front().text);
    return;
  }
  const bool running = reply.running && !late;
  const int rate = m_newRate ? m_newRate->oldRate : m_rate;
  unsigned added = 0;
  for (Piece& piece : reply.pieces) {
    if (split == 0) {
      m_output.emplace(m_now + piece.delay, Chunk{std::move(piece.text), rate, false, running});
      continue;
    }
    for (std::size_t at = 0; at < piece.text.size(); at += split) {
      m_output.emplace(m_now + piece.delay + added++,
                       Chunk{piece.text.substr(at, split), rate, true, running});
    }
  }
  if (reply.lost) {
    m_output.emplace(m_now + std::max(*reply.lost, reply.duration() + added),
                     Chunk{{}, rate, true, false, End::PeerClosed});
  }
}

void ElmAdapter::Core::makeNoise(std::string& text, unsigned count) {
  for (unsigned i = 0; i < count; ++i) {
    // Line ends and the prompt would be more than noise.
    static constexpr std::string_view Garble = "\x01\x7F\x80\xC3\xE8\xF8\xFE\xFF!#*xZ~";
    text.insert(m_random() % (text.size() + 1), 1, Garble[m_random() % Garble.size()]);
  }
}

ElmAdapter::ElmAdapter(std::shared_ptr<Vehicle> vehicle, AdapterOptions options)
    : m_core(std::make_unique<Core>(std::move(vehicle), nullptr, std::move(options))) {}
ElmAdapter::ElmAdapter(std::shared_ptr<Replay> replay, AdapterOptions options)
    : m_core(std::make_unique<Core>(nullptr, std::move(replay), std::move(options))) {}
ElmAdapter::~ElmAdapter() = default;

void ElmAdapter::setLinkRate(int rate) {
  m_core->setLinkRate(rate);
}
int ElmAdapter::receive(const unsigned char* bytes, std::size_t count) {
  return m_core->receive(bytes, count);
}
int ElmAdapter::read(std::vector<unsigned char>& out, unsigned waitMilliseconds) {
  return m_core->read(out, waitMilliseconds);
}
std::optional<std::uint32_t> ElmAdapter::nextDue() const {
  return m_core->nextDue();
}
void ElmAdapter::linkUp() {
  m_core->setLink(true);
}
void ElmAdapter::linkDown() {
  m_core->setLink(false);
}
unsigned ElmAdapter::exchanges() const {
  return m_core->exchanges();
}
int ElmAdapter::baudrate() const {
  return m_core->baudrate();
}

}  // namespace simulator
