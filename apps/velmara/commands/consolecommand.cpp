#include <algorithm>
#include <chrono>

#include <fmt/format.h>

#include "commands/command.h"
#include "programsession.h"
#include "report/json.h"
#include "services/itroubleshootingservice.h"
#include "terminal/lineinput.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

using std::chrono::milliseconds;

// The adapter's answer line by line, without its prompt.
std::vector<std::string> linesOf(const std::string& response) {
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < response.size();) {
    const std::size_t end = std::min(response.find_first_of("\r\n", begin), response.size());
    std::string line = response.substr(begin, end - begin);
    std::erase_if(line, [](char character) { return character == '>' || character == '\0'; });
    line.erase(line.find_last_not_of(' ') + 1);
    if (!line.empty()) {
      lines.push_back(printable(line));
    }
    begin = end + 1;
  }
  return lines;
}

std::string trimmed(const std::string& text) {
  constexpr const char* Blanks = " \t\r";
  const std::size_t begin = text.find_first_not_of(Blanks);
  return begin == std::string::npos ? std::string()
                                    : text.substr(begin, text.find_last_not_of(Blanks) - begin + 1);
}

class ConsoleCommand : public Command, private obd::ITroubleshootingServiceObserver {
 public:
  std::string name() const override { return "console"; }
  std::string summary() const override { return "Talk to the adapter in its own language"; }
  std::string examples() const override {
    return "  velmara console                    type requests; quit or Ctrl-D ends\n"
           "  velmara console ATI 0100           these requests only\n"
           "  echo 010C | velmara console        requests from elsewhere, a line each\n"
           "  velmara console --traffic          with all that goes over the link\n";
  }

  void declare(Options& options) override {
    constexpr int LongestTimeout = 600000;
    options.value("REQUEST", m_requests, "", "What to send; lines of standard input if not given");
    options.flag("--traffic", m_traffic, "Show the traffic with the adapter, the library's own too");
    options.value("--timeout", m_timeout, "MS", "Wait so long for an answer; 5000 if not given")
        .between(1, LongestTimeout);
    options.flag("--json", m_json, "Print one JSON object per answer and line");
  }

  ExitCode run(Program& program) override {
    ProgramSession session(program);
    session.connect();
    const std::shared_ptr<obd::ITroubleshootingService> service =
        obd::TroubleshootingServiceBuilder::createTroubleshootingService();
    m_out = &program.out;
    const Attachment attachment(*service, *this);
    if (!m_requests.empty()) {
      for (const std::string& request : m_requests) {
        ask(program, session, *service, trimmed(request));
      }
      return verdict();
    }
    return talk(program, session, *service);
  }

 private:
  // The service must not call when this run is over.
  class Attachment {
   public:
    Attachment(obd::ITroubleshootingService& service, ConsoleCommand& command)
        : m_service(service), m_command(command) {
      m_service.attach(&m_command);
    }
    ~Attachment() { m_service.detach(&m_command); }
    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;

   private:
    obd::ITroubleshootingService& m_service;
    ConsoleCommand& m_command;
  };

  ExitCode talk(Program& program, Session& session, obd::ITroubleshootingService& service) {
    std::optional<std::filesystem::path> history = SettingsStore::defaultFile();
    if (history) {
      history = history->parent_path() / "console-history";
    }
    LineInput input(program.out, history);
    for (;;) {
      const std::optional<std::string> line = nextLine(program, session, input);
      if (!line) {
        break;
      }
      const std::string request = trimmed(*line);
      if (request == "quit" || request == "exit") {
        break;
      }
      if (!request.empty()) {
        ask(program, session, service, request);
      }
    }
    program.out.flush();
    return input.isTerminal() ? ExitCode::Ok : verdict();
  }

  // Nothing at the end of the input.
  std::optional<std::string> nextLine(Program& program, Session& session, LineInput& input) {
    // Also while the event loop throws.
    struct Watch {
      TerminalWaiter& waiter;
      explicit Watch(TerminalWaiter& itsWaiter) : waiter(itsWaiter) { waiter.watchInput(true); }
      ~Watch() { waiter.watchInput(false); }
      Watch(const Watch&) = delete;
      Watch& operator=(const Watch&) = delete;
    };
    const Watch watch(*program.waiter);
    std::optional<std::string> line;
    m_input = &input;
    input.prompt();
    session.pumpUntil([&] {
      line = input.poll();
      program.out.flush();
      return line || input.ended();
    });
    m_input = nullptr;
    return line;
  }

  void ask(Program& program, Session& session, obd::ITroubleshootingService& service,
           const std::string& request) {
    constexpr milliseconds Margin{15000};  // for what waits in front of the request
    m_answered = false;
    m_success = false;
    m_response.clear();
    service.sendRequest(request, m_timeout);
    session.pumpUntil([this] { return m_answered; }, milliseconds(m_timeout) + Margin);
    const std::vector<std::string> lines = linesOf(m_response);
    ++m_asked;
    m_failures += m_success ? 0U : 1U;
    if (m_json) {
      printJson(program.out, {{"request", printable(request)}, {"success", m_success}, {"lines", lines}});
    } else {
      for (const std::string& line : lines) {
        program.out.line(line);
      }
    }
    program.out.flush();
    if (lines.empty() && !m_json) {
      program.notes.warn(fmt::format("No answer to {}.", printable(request)));
    }
  }

  ExitCode verdict() const {
    if (m_failures != 0) {
      throw Failure(Failure::Kind::NoData, fmt::format("{} of {} {} got no good answer.", m_failures, m_asked,
                                                       m_asked == 1 ? "request" : "requests"));
    }
    return ExitCode::Ok;
  }

  void onResponseArrived(bool success, const std::string& response) override {
    m_answered = true;
    m_success = success;
    m_response = response;
  }

  void onLogEntryAdded(const std::shared_ptr<obd::DataEntryDescriptor>& entry) override {
    if (!m_traffic) {
      return;
    }
    if (m_input != nullptr) {
      m_input->hide();
    }
    const std::string data = printable(entry->data());
    if (m_json) {
      printJson(*m_out, {{"time", entry->timestamp()}, {"direction", entry->direction()}, {"data", data}});
    } else {
      m_out->line(fmt::format("{} {} {}", entry->timestamp(), entry->direction(), data));
    }
    if (m_input != nullptr) {
      m_input->prompt();
    }
  }

  static constexpr int DefaultTimeout = 5000;

  std::vector<std::string> m_requests;
  bool m_traffic = false;
  bool m_json = false;
  int m_timeout = DefaultTimeout;

  Output* m_out = nullptr;
  LineInput* m_input = nullptr;  // while a line is awaited
  bool m_answered = false;
  bool m_success = false;
  std::string m_response;
  unsigned m_asked = 0;
  unsigned m_failures = 0;
};

}  // namespace

std::unique_ptr<Command> makeConsoleCommand() {
  return std::make_unique<ConsoleCommand>();
}

}  // namespace velmara
