#include "adapter.h"

#include <string_view>
#include <unordered_map>

namespace fuzz {

namespace {

using Bytes = ScriptedAdapter::Bytes;

using Answers = std::unordered_map<std::string_view, std::string_view>;

const Answers LargeCar = {
    {"ATZ", "ELM327 v1.5"},
    {"ATI", "ELM327 v1.5"},
    {"AT@1", "OBDII to RS232 Interpreter"},
    {"AT@2", "?"},
    {"ATDPN", "A6"},
    {"ATDP", "AUTO, ISO 15765-4 (CAN 11/500)"},
    {"ATRV", "12.5V"},
    {"0100", "7E8064100BE3FA813\r7E906410018180001"},
    {"0101", "7E8064101830765E5\r7E906410100040000"},
    {"010C", "7E804410C1AF8"},
    {"011C", "7E803411C01\r7E903411C01"},
    {"0120", "7E8064120A005B011"},
    {"03", "7E8064302017103011"},
    {"07", "7E80247000"},
    {"0A", "7E8024A00"},
    {"020200", "7E805420200017100"},
    {"0600", "7E8064600C0000001"},
    {"0601", "7E8100A46010B0A01F4\r7E821000003E8"},
    {"0900", "7E806490055400000"},
    {"0902", "7E81014490201314456\r7E8214D304341523131\r7E82234353637383930"},
    {"090A", "7E81017490A0145434D00\r7E8212D456E67696E65\r7E822436F6E74726F6C00\r7E82300000000"}};

// Where it differs.
const Answers SmallCar = {
    {"0100", "7E806410080100000"}, {"0101", "7E8064101830765E5"}, {"0600", "NO DATA"}, {"0900", "NO DATA"}};

}  // namespace

std::string_view ScriptedAdapter::answerTo(const Bytes& line) const {
  const std::string_view request(reinterpret_cast<const char*>(line.data()), line.size() - 1);
  if (const auto found = SmallCar.find(request); small && found != SmallCar.end()) {
    return found->second;
  }
  const auto found = LargeCar.find(request);
  return found != LargeCar.end() ? found->second : request.starts_with("AT") ? "OK" : "NO DATA";
}

int ScriptedAdapter::write(const Bytes& line) {
  const unsigned char choice = down ? 0xFF : m_input.byte();
  switch (choice >> 5U) {
    case 4:  // a reply of its own
      messages.push_back(m_input.bytes(choice & 0x1FU));
      return 0;
    case 5:  // several at once, of which the last come late
      for (unsigned int left = 1U + (choice & 3U); left > 0; --left) {
        messages.push_back(m_input.bytes(m_input.byte()));
      }
      return 0;
    case 6: {  // something in front of the adapter's answer
      Bytes reply = m_input.bytes(choice & 0x1FU);
      const std::string_view answer = answerTo(line);
      reply.insert(reply.end(), answer.begin(), answer.end());
      messages.push_back(std::move(reply));
      return 0;
    }
    case 7:  // the end, or no answer
      down = down || (choice & 1U) != 0;
      return down && (choice & 2U) != 0 ? 1 : 0;
    default: {
      const std::string_view answer = answerTo(line);
      messages.emplace_back(answer.begin(), answer.end());
      return 0;
    }
  }
}

}  // namespace fuzz
