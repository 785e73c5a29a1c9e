// Prints the trouble codes of all control units, on the client library: a link as people write it, plain data
// back, and one exception for whatever goes wrong.

#include <cstdio>
#include <string>

#include <velmara/client/session.h>
#include <velmara/client/vehiclereader.h>

namespace {

void print(const velmara::ControlUnit& unit, const velmara::FaultsSection& faults) {
  std::printf("%s\n", unit.title().c_str());
  if (!faults.confirmed) {
    std::printf("  %s\n", faults.reason.c_str());
    return;
  }
  for (const velmara::CodeEntry& entry : *faults.confirmed) {
    std::printf("  %s %s\n", entry.code.c_str(), entry.meanings.front().text.c_str());
  }
}

}  // namespace

int main(int argc, char** argv) try {
  velmara::EventLoop loop;
  velmara::Session session(loop);
  velmara::ConnectOptions options;
  options.progress = [last = std::string()](velmara::Phase, const std::string& words) mutable {
    if (words != last) {
      std::fprintf(stderr, "%s\n", words.c_str());
      last = words;
    }
  };
  session.connect(velmara::parseLink(argc > 1 ? argv[1] : "demo:"), options);
  for (const velmara::ControlUnit& unit : session.units()) {
    print(unit, velmara::readFaults(session, unit));
  }
  return 0;
} catch (const velmara::Failure& failure) {
  std::fprintf(stderr, "%s %s\n", failure.what(), failure.advice().c_str());
  return 1;
}
