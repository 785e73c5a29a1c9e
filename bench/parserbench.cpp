// Parse of adapter text into one message per control unit.

#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "link/messageparser.h"

namespace {

using obd::MessageParser;
using obd::ObdProtocol;
using obd::ResponseMap;

std::vector<unsigned char> bytesOf(const std::string& text) {
  return {text.begin(), text.end()};
}

/// The text of one ISO 15765-2 message of `size` bytes from unit 7E8.
std::string multiFrame(unsigned size) {
  static constexpr char Digits[] = "0123456789ABCDEF";
  std::string text;
  const auto byte = [&](unsigned value) {
    text += Digits[(value >> 4) & 0xF];
    text += Digits[value & 0xF];
  };
  unsigned sent = 0;
  const auto payload = [&](unsigned count) {
    for (unsigned i = 0; i < count; ++i, ++sent) {
      byte(sent < size ? sent * 7 : 0);
    }
  };
  text += "7E8";
  byte(0x10 | (size >> 8));
  byte(size & 0xFF);
  payload(6);
  unsigned sequence = 0;
  while (sent < size) {
    ++sequence;
    text += "7E8";
    byte(0x20 | (sequence & 0xF));
    payload(7);
  }
  return text;
}

void parse(benchmark::State& state, ObdProtocol protocol, const std::string& text, std::size_t units) {
  const std::vector<unsigned char> message = bytesOf(text);
  for (auto _ : state) {
    ResponseMap responses;
    const bool done = MessageParser::parseResponseMessage(protocol, message, responses);
    if (!done || responses.size() != units) {
      state.SkipWithError("the reply did not parse");
      break;
    }
    benchmark::DoNotOptimize(responses);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(message.size()));
}

void parseSingleFrame(benchmark::State& state) {
  parse(state, ObdProtocol::Iso15765Can11Bit, "7E804410C1AF8000000", 1);
}
BENCHMARK(parseSingleFrame);

void parseVin(benchmark::State& state) {
  parse(state, ObdProtocol::Iso15765Can11Bit,
        "7E81014490201564C4D"
        "7E82130303030305852"
        "7E82241303030303737",
        1);
}
BENCHMARK(parseVin);

void parseTwoInterleavedUnits(benchmark::State& state) {
  parse(state, ObdProtocol::Iso15765Can11Bit,
        "7E81014490201564C4D7E91014490201564C4D"
        "7E821303030303058527E92130303030305852"
        "7E822413030303037377E92241303030303738",
        2);
}
BENCHMARK(parseTwoInterleavedUnits);

void parseLongMessage(benchmark::State& state) {
  parse(state, ObdProtocol::Iso15765Can11Bit, multiFrame(static_cast<unsigned>(state.range(0))), 1);
}
BENCHMARK(parseLongMessage)->Arg(1024)->Arg(4095);

void parseKwpSingleFrame(benchmark::State& state) {
  parse(state, ObdProtocol::Iso14230, "84F110410C1AF8E4", 1);
}
BENCHMARK(parseKwpSingleFrame);

void parseJ1850TwoUnits(benchmark::State& state) {
  parse(state, ObdProtocol::SaeJ1850, "486B10410C1AF8B6486B18410D32C1", 2);
}
BENCHMARK(parseJ1850TwoUnits);

}  // namespace
