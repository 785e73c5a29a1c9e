// velmara-sim: a simulated adapter in a simulated vehicle, to connect to over TCP or a pseudo-terminal.

#include <csignal>
#include <cstdio>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include <simulator/replay.h>
#include <simulator/server.h>

namespace {

void listVehicles(const char* title, const std::vector<std::string>& names) {
  std::printf("%s:\n", title);
  for (const std::string& name : names) {
    const std::shared_ptr<simulator::Vehicle> vehicle = simulator::Vehicle::load(name);
    std::printf("  %-14s %s\n", name.c_str(), vehicle->name().c_str());
  }
}

void list() {
  listVehicles("Vehicles", simulator::vehicleNames());
  std::printf("Adapters:\n");
  for (const simulator::PersonalityName& row : simulator::personalities()) {
    std::printf("  %-14s %s\n", row.name, row.description);
  }
  listVehicles("Odd vehicles", simulator::oddVehicleNames());
}

std::shared_ptr<simulator::ElmAdapter> makeAdapter(const std::string& trace, const std::string& vehicle,
                                                   const simulator::AdapterOptions& options) {
  return trace.empty() ? std::make_shared<simulator::ElmAdapter>(simulator::Vehicle::load(vehicle), options)
                       : std::make_shared<simulator::ElmAdapter>(simulator::Replay::load(trace), options);
}

// Waits for Ctrl-C or SIGTERM, which are blocked in every thread.
void waitForEnd(const sigset_t& signals) {
  int signal = 0;
  sigwait(&signals, &signal);
}

void announce(const std::string& link) {
  std::printf("%s\n", link.c_str());
  std::fflush(stdout);
}

// Help without the parser's own remarks on each option.
class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter() { column_width(22); }
  std::string make_option_opts(const CLI::Option* option) const override {
    return option->get_type_size() == 0 ? std::string() : " " + option->get_type_name();
  }
};

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "A simulated ELM327-class adapter in a simulated vehicle. The first line printed is the address "
      "to connect to.");
  std::string vehicleName = "petrol-can11";
  std::string adapterName = "elm15";
  std::string trace;
  std::vector<std::string> faults;
  simulator::AdapterOptions options;
  std::uint16_t port = 0;
  unsigned silence = 0;
  bool pty = false;
  bool listing = false;
  app.formatter(std::make_shared<HelpFormatter>());
  CLI::Option* const vehicleOption =
      app.add_option("--vehicle", vehicleName, "Built-in vehicle or vehicle file; petrol-can11 if not given")
          ->type_name("VEHICLE");
  CLI::Option* const adapterOption =
      app.add_option("--adapter", adapterName, "Kind of adapter; elm15 if not given")->type_name("NAME");
  app.add_option(
         "--trace", trace,
         "Answer from a trace instead, which velmara --trace writes;\nFILE@fast does without its delays")
      ->type_name("FILE")
      ->excludes(vehicleOption)
      ->excludes(adapterOption);
  app.add_option("--baud", options.baudrate,
                 "Rate at which the adapter starts: 9600, 19200, 38400, 57600\nor 115200; 38400 if not given")
      ->check(CLI::IsMember({9600, 19200, 38400, 57600, 115200}).description(""))
      ->type_name("RATE");
  const auto time = CLI::Range(0U, 600000U).description("");
  app.add_option("--latency", options.latency, "Milliseconds that the vehicle takes to answer")
      ->check(time)
      ->type_name("MS");
  CLI::Option* silenceOption =
      app.add_option("--silence", silence, "Milliseconds before NO DATA, instead of what ATST says")
          ->check(time)
          ->type_name("MS");
  app.add_option("--fault", faults,
                 "Faults by script: kind[:amount or text][@first[-[last]]],\n"
                 "such as latency:20, split:3@4-, error:BUS ERROR@12 or close@30")
      ->type_name("FAULT");
  CLI::Option* tcpOption =
      app.add_option("--tcp", port, "Serve on this TCP port of 127.0.0.1; 0 picks one")->type_name("PORT");
  CLI::Option* ptyOption = app.add_flag("--pty", pty, "Serve on a pseudo-terminal");
  app.add_flag("--list", listing, "List vehicles and adapters");
  tcpOption->excludes(ptyOption);
  CLI11_PARSE(app, argc, argv);

  try {
    if (listing) {
      list();
      return 0;
    }
    if (tcpOption->count() == 0 && !pty) {
      throw std::runtime_error("Say how to serve: --tcp PORT or --pty.");
    }
    const auto personality = simulator::personalityByName(adapterName);
    if (!personality) {
      throw std::runtime_error("There is no adapter \"" + adapterName + "\"; --list shows all.");
    }
    options.personality = *personality;
    if (silenceOption->count() != 0) {
      options.silence = silence;
    }
    for (const std::string& fault : faults) {
      const simulator::FaultPlan plan = simulator::FaultPlan::parse(fault);
      options.faults.faults.insert(options.faults.faults.end(), plan.faults.begin(), plan.faults.end());
    }

    // Before the servers start their threads, which inherit the mask.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    const std::shared_ptr<simulator::ElmAdapter> adapter = makeAdapter(trace, vehicleName, options);
    if (pty) {
      const simulator::PtyServer server(adapter);
      announce(server.link());
      waitForEnd(signals);
    } else {
      const simulator::TcpServer server(adapter, port);
      announce(server.link());
      waitForEnd(signals);
    }
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "velmara-sim: %s\n", error.what());
    return 1;
  }
}
