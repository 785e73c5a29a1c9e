// Replays what real adapters have sent: text in, values out, through the adapter dialogue, the parser and the
// records. The project's own rows always run; VELMARA_CAPTURES names a file of recorded ones.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "core/fakevehicle.h"
#include "link/elmscantool.h"
#include "link/fakes.h"
#include "parameters/dtcparameter.h"
#include "parameters/freezeframetroublecode.h"
#include "parameters/identificationnumber.h"

namespace {

struct Row {
  int line = 0;
  std::string protocol;
  std::string request;
  std::string reply;
  std::string meaning;
};

std::string unescape(const std::string& text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) {
      ++i;
      result += text[i] == 'r' ? '\r' : text[i] == 'n' ? '\n' : text[i];
    } else {
      result += text[i];
    }
  }
  return result;
}

std::vector<Row> readRows(const std::string& path) {
  std::vector<Row> rows;
  std::ifstream file(path);
  std::string text;
  for (int line = 1; std::getline(file, text); ++line) {
    std::vector<std::string> columns;
    std::istringstream stream(text);
    for (std::string column; std::getline(stream, column, '\t');) {
      columns.push_back(column);
    }
    if (!text.starts_with('#') && columns.size() >= 5) {
      rows.push_back({line, columns[1], columns[2], unescape(columns[3]), columns[4]});
    }
  }
  return rows;
}

/// The adapter's number in "CAN11/500(6)"; CAN for rows of any protocol, ISO 9141-2 for those before CAN.
int protocolNumber(const std::string& protocol) {
  const std::size_t open = protocol.find('(');
  if (open != std::string::npos) {
    return protocol[open + 1] - '0';
  }
  return protocol == "non-CAN" ? 3 : 6;
}

bool isHex(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789ABCDEF") == std::string::npos;
}

/// What one row gives: the result of the request and the replies by control unit.
struct Outcome {
  int result = 0;
  obd::ResponseMap responses;
  obd::ObdProtocol protocol = obd::ObdProtocol::Unknown;
};

Outcome replay(const Row& row) {
  FakeConnection connection;
  const int number = protocolNumber(row.protocol);
  const std::string digit = std::to_string(number);
  for (const std::string command : {"ATE0", "ATL0", "ATS0", "ATM0", "ATST64", "ATH1"}) {
    connection.script[command] = {"OK"};
  }
  connection.script["ATTP" + digit] = {"OK"};
  connection.script["ATI"] = {"ELM327 v1.5"};
  connection.script["0100"] = {"4100"};
  connection.script["ATDPN"] = {digit};
  connection.script["ATDP"] = {"a protocol"};
  obd::ElmScantool device(&connection);
  Outcome outcome;
  if (!device.init() || !device.detectProtocol(static_cast<obd::VehicleProtocol>(number))) {
    ADD_FAILURE() << "the scripted adapter did not open";
    return outcome;
  }
  outcome.protocol = device.obdProtocol();

  // The request's bytes do not matter to the reply, so requests with wild cards are replayed as well.
  const Bytes request = isHex(row.request) ? fake::bytes(row.request) : Bytes{0x01, 0x00};
  connection.script[isHex(row.request) ? row.request : "0100"] = {row.reply.substr(0, row.reply.find('>'))};
  outcome.result = device.sendRequest(request, outcome.responses, 1000);
  return outcome;
}

/// Words between blanks, commas and semicolons.
std::vector<std::string> wordsOf(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == ',' || c == ';'; }, ' ');
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  return words;
}

bool isTroubleCode(const std::string& word) {
  return word.size() == 5 && std::string("PCBU").find(word[0]) != std::string::npos && word[1] <= '3' &&
         isHex(word.substr(1));
}

template <typename Record>
void decode(Record& record, const Outcome& outcome) {
  for (const auto& [id, data] : outcome.responses) {
    record.setResponseData(std::make_shared<fake::Ecu>(static_cast<unsigned>(id), outcome.protocol), data);
  }
}

template <typename Record>
std::vector<std::string> codesOf(Record record, const Outcome& outcome) {
  decode(record, outcome);
  std::vector<std::string> codes;
  for (const auto& [id, data] : outcome.responses) {
    const fake::Ecu ecu(static_cast<unsigned>(id));
    if constexpr (std::is_same_v<Record, obd::FreezeFrameTroubleCode>) {
      if (const auto code = record.getTroubleCode(ecu)) {
        codes.push_back(code->code());
      }
    } else {
      for (const auto& code : record.getTroubleCodes(ecu)) {
        codes.push_back(code->code());
      }
    }
  }
  codes.erase(std::unique(codes.begin(), codes.end()), codes.end());  // one of each make
  return codes;
}

std::vector<std::string> codesOf(const Row& row, const Outcome& outcome) {
  return row.request == "07"               ? codesOf(obd::PendingTroubleCodes(), outcome)
         : row.request.starts_with("0202") ? codesOf(obd::FreezeFrameTroubleCode(0), outcome)
                                           : codesOf(obd::ConfirmedTroubleCodes(), outcome);
}

std::string vinOf(const Outcome& outcome) {
  obd::VehicleIdentificationNumber record;
  decode(record, outcome);
  for (const auto& [id, data] : outcome.responses) {
    const auto ecu = std::make_shared<fake::Ecu>(static_cast<unsigned>(id), outcome.protocol);
    if (std::string vin = record.vehicleIdentificationNumber(ecu); !vin.empty()) {
      return vin;
    }
  }
  return {};
}

/// Whether the reply of unit `name` ("7E8", or the last byte of a longer identifier) holds `part`.
bool unitReplied(const Outcome& outcome, const std::string& name, const Bytes& part) {
  const int wanted = std::stoi(name, nullptr, 16);
  return std::any_of(outcome.responses.begin(), outcome.responses.end(), [&](const auto& entry) {
    const auto& [id, data] = entry;
    return (id == wanted || (wanted <= 0xFF && (id & 0xFF) == wanted)) &&
           std::search(data.begin(), data.end(), part.begin(), part.end()) != data.end();
  });
}

enum class Verdict { Agrees, Differs, NotTold };

/// Compares the outcome with as much of the meaning as is told in a regular form.
Verdict compare(const Row& row, const Outcome& outcome) {
  const auto verdict = [](bool agrees) { return agrees ? Verdict::Agrees : Verdict::Differs; };
  const std::string& meaning = row.meaning;
  if (meaning.starts_with("error:")) {
    return verdict(outcome.result == obd::RequestRefused);
  }
  if (meaning.starts_with("dropped")) {
    return verdict(outcome.responses.empty());
  }
  if (meaning.starts_with("negative response ")) {
    const auto code = static_cast<unsigned char>(std::stoi(meaning.substr(18, 2), nullptr, 16));
    return verdict(!outcome.responses.empty() &&
                   std::all_of(outcome.responses.begin(), outcome.responses.end(), [&](const auto& entry) {
                     return entry.second.size() >= 2 && entry.second[0] == 0x7F &&
                            (entry.second.size() < 3 || entry.second[2] == code);
                   }));
  }
  if (meaning.starts_with("VIN ")) {
    return verdict(vinOf(outcome) == meaning.substr(4, 17));
  }
  if (meaning.starts_with("no codes")) {
    return verdict(!outcome.responses.empty() && codesOf(row, outcome).empty());
  }
  const std::vector<std::string> words = wordsOf(meaning);
  std::vector<std::string> codes;
  std::copy_if(words.begin(), words.end(), std::back_inserter(codes), isTroubleCode);
  if (!codes.empty()) {
    return verdict(codesOf(row, outcome) == codes);
  }
  // "ECU 7E8: 41 00 BE" or "7E8: 41 00 BE": every unit that is told with bytes.
  bool told = false;
  bool agrees = true;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (!words[i].ends_with(':') || !isHex(words[i].substr(0, words[i].size() - 1))) {
      continue;
    }
    std::string data;
    for (std::size_t k = i + 1; k < words.size() && words[k].size() == 2 && isHex(words[k]); ++k) {
      data += words[k];
    }
    if (!data.empty()) {
      told = true;
      agrees = agrees && unitReplied(outcome, words[i].substr(0, words[i].size() - 1), fake::bytes(data));
    }
  }
  return told ? verdict(agrees) : Verdict::NotTold;
}

std::string describe(const Row& row, const Outcome& outcome) {
  std::ostringstream text;
  text << "line " << row.line << ", request " << row.request << ": " << row.meaning << "\n  result "
       << outcome.result;
  for (const auto& [id, data] : outcome.responses) {
    text << "\n  unit " << std::hex << id << std::dec << ": " << fake::hex(data);
  }
  return text.str();
}

/// Replays a file, and expects those rows to differ that are known to.
std::map<Verdict, int> replayAll(const char* path, const std::map<int, std::string>& known) {
  std::map<Verdict, int> counts;
  const std::vector<Row> rows = readRows(path);
  EXPECT_FALSE(rows.empty()) << path;
  for (const Row& row : rows) {
    const Outcome outcome = replay(row);
    const Verdict verdict = compare(row, outcome);
    ++counts[verdict];
    EXPECT_EQ(verdict == Verdict::Differs, known.contains(row.line)) << describe(row, outcome);
  }
  return counts;
}

TEST(Replay, OwnReplies) {
  EXPECT_EQ(replayAll(VELMARA_REPLIES, {})[Verdict::NotTold], 0);
}

/// Recorded rows whose meaning differs from what this library makes of them, by line of the file, with the
/// reason.
const std::map<int, std::string> KnownDifferences = {
    {5, "identification numbers are read from plain seven-byte frames, and these carry check bytes"},
    {7, "the same"},
    {78, "the same"},
    {23, "the protocol search in front of the frames is only expected in the first request"},
    {60, "recorded with headers off, while the library works with headers on"},
    {81, "the same"},
    {67, "a separate length byte behind the header is not honored"},
    {74, "a flow control frame ends the reply"},
    {80, "a consecutive frame must have all of its eight bytes"},
    {84, "not among the adapter's error words"},
    {86, "the same"},
};

TEST(Replay, RecordedReplies) {
  const char* const path = std::getenv("VELMARA_CAPTURES");
  if (path == nullptr) {
    GTEST_SKIP() << "VELMARA_CAPTURES names no file of recorded replies";
  }
  std::map<Verdict, int> counts = replayAll(path, KnownDifferences);
  std::printf("Recorded replies: %d as told, %d known differences, %d without a told meaning\n",
              counts[Verdict::Agrees], counts[Verdict::Differs], counts[Verdict::NotTold]);
}

}  // namespace
