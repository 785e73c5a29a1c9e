// A whole dialogue on one thread: adapter and vehicle are found and set up, the control units interrogated,
// and what the input chooses is asked of them. For each line the input says whether the scripted adapter
// answers, or bytes of the input's choice come, or the link breaks; where it has ended the adapter answers.
// Time is a number that waits count up, so many lives pass in a second. The target "opening" has threads and
// services.

#include <deque>
#include <limits>
#include <map>

#include <hostos/time.h>

#include "dtc/dtcreader.h"
#include "link/devicedetector.h"
#include "subject.h"
#include "target.h"
#include "vehicle/obdproxybuilder.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::uint32_t LongestLife = 600000;  // ms
constexpr int Questions = 6;

class CountingClock : public hostos::IClock {
 public:
  CountingClock() { hostos::CTime::setClock(this); }
  CountingClock(const CountingClock&) = delete;
  CountingClock& operator=(const CountingClock&) = delete;
  ~CountingClock() override { hostos::CTime::setClock(nullptr); }

  std::uint32_t milliseconds() override { return m_now; }
  void msleep(std::uint32_t milliseconds) override { m_now += milliseconds; }
  bool wait(std::condition_variable& /*condition*/, std::unique_lock<std::mutex>& /*lock*/,
            std::uint32_t milliseconds) override {
    fuzz::require(milliseconds != std::numeric_limits<std::uint32_t>::max(), "nobody waits for a thread");
    m_now += milliseconds;
    return false;
  }
  void notify(std::condition_variable& /*condition*/, bool /*all*/) override {}

 private:
  std::uint32_t m_now = 0;
};

// Of an ELM327 on a CAN car with two control units.
const std::map<std::string, std::string, std::less<>> Answers = {
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

class ScriptedConnection : public obd::IConnection {
 public:
  explicit ScriptedConnection(fuzz::Input& input) : m_input(input) {}

  int connect() override { return 0; }
  void disconnect() override { m_down = true; }
  bool isConnected() override { return !m_down; }
  int write(const Bytes& bytes) override {
    const unsigned char choice = m_down ? 0xFF : m_input.byte();
    switch (choice >> 5U) {
      case 4:  // a reply of its own
        m_messages.push_back(m_input.bytes(choice & 0x1FU));
        return 0;
      case 5:  // several at once, of which the last come late
        for (unsigned int left = 1U + (choice & 3U); left > 0; --left) {
          m_messages.push_back(m_input.bytes(m_input.byte()));
        }
        return 0;
      case 6: {  // something in front of the adapter's answer
        Bytes reply = m_input.bytes(choice & 0x1FU);
        const Bytes answer = answerTo(bytes);
        reply.insert(reply.end(), answer.begin(), answer.end());
        m_messages.push_back(std::move(reply));
        return 0;
      }
      case 7:  // the end, or no answer
        m_down = m_down || (choice & 1U) != 0;
        return m_down && (choice & 2U) != 0 ? 1 : 0;
      default:
        m_messages.push_back(answerTo(bytes));
        return 0;
    }
  }
  int read(Bytes& bytes, int timeout) override {
    bytes.clear();
    if (m_down) {
      return obd::ConnectionClosed;
    }
    if (m_messages.empty()) {
      hostos::CTime::msleep(static_cast<std::uint32_t>(timeout));
      return obd::ConnectionTimeout;
    }
    bytes = std::move(m_messages.front());
    m_messages.pop_front();
    return obd::ConnectionMessage;
  }
  void setDelimiter(unsigned char /*delimiter*/) override {}
  std::string lastError() override { return {}; }
  void setDisconnectListener(obd::IDisconnectListener* /*listener*/) override {}
  void addLogger(obd::IConnectionLogger* /*logger*/) override {}
  void removeLogger(obd::IConnectionLogger* /*logger*/) override {}

 private:
  static Bytes answerTo(const Bytes& line) {
    const std::string_view request(reinterpret_cast<const char*>(line.data()), line.size() - 1);
    const auto found = Answers.find(request);
    const std::string_view answer = found != Answers.end()      ? std::string_view(found->second)
                                    : request.starts_with("AT") ? "OK"
                                                                : "NO DATA";
    return {answer.begin(), answer.end()};
  }

  fuzz::Input& m_input;
  std::deque<Bytes> m_messages;
  bool m_down = false;
};

}  // namespace

FUZZ_TARGET(dialogue) {
  static const bool texts = obd::DtcReader::init();
  fuzz::require(texts, "trouble-code texts are there");
  CountingClock clock;
  ScriptedConnection connection(input);
  const auto device = obd::DeviceDetector().detect(&connection);
  const auto proxy = obd::ObdProxyBuilder::createObdProxy();
  const auto protocol = static_cast<obd::VehicleProtocol>(input.below(10));
  if (device->init() && device->detectProtocol(protocol)) {
    proxy->setDevice(device.get());
    try {
      proxy->initialize();
    } catch (const std::exception&) {
      // What a vehicle sends can make a query throw; an opening has failed then.
    }
    for (int i = 0; i < Questions && !input.empty(); ++i) {
      const unsigned char kind = input.byte();
      const fuzz::Subject subject = fuzz::chooseSubject(kind, input.byte(), proxy->obdProtocol());
      try {
        subject.query->update(proxy);
      } catch (const std::exception&) {
        // The dispatcher logs it, and the query has failed.
      }
      for (const auto& ecu : proxy->ecus()) {
        subject.look(ecu);
      }
      proxy->batteryVoltage();
    }
    proxy->setDevice(nullptr);
  }
  device->close();
  fuzz::require(hostos::CTime::milliseconds() < LongestLife, "a life ends");
}
