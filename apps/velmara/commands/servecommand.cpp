// The car on a page, for browsers and for other programs.

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <sys/socket.h>

#include <array>
#include <charconv>
#include <fstream>
#include <memory>
#include <optional>

#include <fmt/format.h>

#include "commands/command.h"
#include "serve/board.h"
#include "serve/guard.h"
#include "serve/httpserver.h"
#include "serve/mailbox.h"
#include "serve/sharedsession.h"
#include "serve/site.h"
#include "velmara/client/library.h"
#include "velmara/client/parameters.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

constexpr const char* DefaultAddress = "127.0.0.1:8020";
constexpr std::size_t ShortestToken = 16;

struct Address {
  std::string host;
  int port = 0;
};

[[noreturn]] void refuseAddress(const std::string& text) {
  throw Failure(
      Failure::Kind::Unusable, fmt::format("\"{}\" is no address to listen at.", text),
      "It is HOST:PORT, such as 127.0.0.1:8020, 0.0.0.0:8020 or [::1]:8020; port 0 stands for any.");
}

Address parseAddress(const std::string& text) {
  constexpr int LastPort = 65535;
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0) {
    refuseAddress(text);
  }
  Address address{text.substr(0, colon), -1};
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data() + colon + 1, end, address.port);
  if (error != std::errc() || rest != end || address.port < 0 || address.port > LastPort) {
    refuseAddress(text);
  }
  if (address.host.starts_with('[') && address.host.ends_with(']')) {
    address.host = address.host.substr(1, address.host.size() - 2);
  } else if (address.host.find(':') != std::string::npos) {
    refuseAddress(text);
  }
  return address;
}

bool isWildcard(const std::string& host) {
  return host == "0.0.0.0" || host == "::";
}

// Addresses at which other computers may find this one.
std::vector<std::string> ownAddresses() {
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) {
    return {};
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, ::freeifaddrs);
  std::vector<std::string> addresses;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    std::array<char, INET_ADDRSTRLEN> text{};
    if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET &&
        ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr, text.data(),
                    text.size()) != nullptr) {
      addresses.emplace_back(text.data());
    }
  }
  return addresses;
}

std::string readToken(const std::string& name) {
  std::ifstream file(name);
  std::string token;
  if (!std::getline(file, token)) {
    throw Failure(Failure::Kind::Unusable, fmt::format("There is no token in {}.", name),
                  "It is the first line of the file.");
  }
  const bool isPlain =
      token.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_") ==
      std::string::npos;
  if (token.size() < ShortestToken || !isPlain) {
    throw Failure(Failure::Kind::Unusable, fmt::format("The token in {} is none.", name),
                  fmt::format("It has {} letters and digits at least.", ShortestToken));
  }
  return token;
}

class ServeCommand : public Command {
 public:
  std::string name() const override { return "serve"; }
  std::string summary() const override { return "Show the car on a page in the browser"; }
  std::string examples() const override {
    return "  velmara serve                              the page lets choose a link\n"
           "  velmara serve --link demo:                 the simulated car, at once\n"
           "  velmara serve --listen 0.0.0.0:8020        for the tablet in the bay, too; needs a token\n"
           "  velmara serve 0C 0D                        reads these even if no page shows them\n";
  }

  bool endsBySignal() const override { return true; }
  const char* linkDefault() const override { return "the page lets choose, and offers the last one named"; }

  void declare(Options& options) override {
    options.value(
        "PID", m_always, "",
        "What to read at all times, for programs: PIDs in\nhexadecimal (0C), or names of calculated values");
    options.value("--listen", m_listen, "ADDRESS",
                  fmt::format("Where to be found; {} if not given.\nAny address but loopback needs a token",
                              DefaultAddress));
    options.flag("--fast", m_fast,
                 "Ask for up to six values with one request, where the\n"
                 "vehicle answers that; see velmara settings fast");
    options.value("--token-file", m_tokenFile, "FILE",
                  "Take the token from this file; a new one for each run\nif not given");
  }

  ExitCode run(Program& program) override {
    const Address address = parseAddress(m_listen.empty() ? DefaultAddress : m_listen);
    SharedSession::Polling polling{parseParameters(m_always), m_fast};
    if (int fast = 0; program.settings->value(FastSetting, fast)) {
      polling.fast = polling.fast || fast != 0;
    }
    const std::string token = m_tokenFile.empty() ? makeToken() : readToken(m_tokenFile);
    const ExitCode code = serve(program, address, polling, token);
    program.endTrace();
    if (const std::string& log = program.options.logFile; !log.empty() && !isWholeLog(log)) {
      program.logIsCut = true;
      program.notes.warn(
          fmt::format("velmara: The log {} is not whole: its disk may be full.", printable(log)));
    }
    return code;
  }

 private:
  static ExitCode serve(Program& program, const Address& address, const SharedSession::Polling& polling,
                        const std::string& token) {
    Board board;
    Mailbox mailbox([&program] { program.loop.wake(); });
    SharedSession session(program, board, mailbox, polling);
    chooseLink(program, session);
    HttpServer server;
    server.bind(address.host, address.port);
    Site site(Guard({address.host, server.port(), server.isLoopback(), token}), board, mailbox, session,
              server, [&program] { program.loop.cancel(); });
    server.start(site);
    const auto end = [&] {
      mailbox.close();
      board.feed.close();
      server.stop();
    };
    try {
      printAddresses(program, address.host, server, token);
      session.run();
    } catch (const Interrupted&) {  // the way in which it ends
      end();
      return ExitCode::Ok;
    } catch (...) {
      end();
      throw;
    }
  }

  // Without a link of its own, the page offers the one of last time.
  static void chooseLink(Program& program, SharedSession& session) {
    const Protocol protocol =
        program.options.protocol.empty() ? Protocol() : parseProtocol(program.options.protocol);
    if (!program.options.link.empty()) {
      session.open(parseLink(program.options.link), protocol);
    } else if (const std::optional<RememberedLink> link = rememberedLink(*program.settings)) {
      session.propose(parseLink(link->text), protocol);
    }
  }

  static void printAddresses(Program& program, const std::string& host, const HttpServer& server,
                             const std::string& token) {
    const std::vector<std::string> hosts = isWildcard(host) ? ownAddresses() : std::vector<std::string>{host};
    for (const std::string& each : hosts) {
      program.out.line(fmt::format("http://{}:{}/{}",
                                   each.find(':') == std::string::npos ? each : "[" + each + "]",
                                   server.port(), server.isLoopback() ? "" : "#token=" + token));
    }
    program.out.flush();
    program.notes.note(server.isLoopback()
                           ? "Open this page in a browser. Ctrl-C ends it."
                           : "Open one of these pages; who has the token may use the car. Ctrl-C ends it.");
  }

  std::vector<std::string> m_always;
  std::string m_listen;
  std::string m_tokenFile;
  bool m_fast = false;
};

}  // namespace

std::unique_ptr<Command> makeServeCommand() {
  return std::make_unique<ServeCommand>();
}

}  // namespace velmara
