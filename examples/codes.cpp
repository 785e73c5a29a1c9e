// Prints the trouble codes of the vehicle's first control unit, and its freeze frames: what was measured at
// the moment when a fault was stored.

#include <cstdio>
#include <exception>
#include <map>

#include <services/itroublecodeservice.h>

#include "frontend.h"

namespace {

class Reader : public obd::ITroubleCodeServiceObserver {
 public:
  bool done() const { return m_done; }
  void begin() { m_done = false; }

  void onMilStatusUpdated(bool success, MilStatus status) override {
    std::printf("Indicator lamp: %s\n", !success ? "not told" : status == MilOn ? "on" : "off");
  }
  void onConfirmedCodesUpdated(bool success, const Codes& codes) override {
    print("Confirmed", success, codes);
  }
  void onPendingCodesUpdated(bool success, const Codes& codes) override { print("Pending", success, codes); }

  // First a frame's code, then its sensors; a frame without a code ends the walk.
  void onFreezeFrameCodeUpdated(int /*id*/, bool success, const std::shared_ptr<obd::DtcDataModel>& code,
                                int frame) override {
    if (success && code && !code->code().empty()) {
      std::printf("Freeze frame %d, stored by %s:\n", frame, code->code().c_str());
    }
  }
  void onFreezeFrameSensorUpdated(int /*id*/, bool success,
                                  const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                                  const SensorValues& values, int /*frame*/) override {
    if (!success || !parameter) {
      return;
    }
    std::map<int, std::string> names;
    for (const auto& sensor : parameter->sensors()) {
      names[sensor->uid()] = sensor->description();
    }
    for (const auto& value : values) {
      std::printf("  %s: %s\n", names[value->uid].c_str(), value->value.c_str());
    }
  }

  // Whatever was asked for has been told by now, or could not be had.
  void onRefreshDone() override { m_done = true; }

 private:
  static void print(const char* kind, bool success, const Codes& codes) {
    std::printf("%s codes: %s\n", kind, success ? std::to_string(codes.size()).c_str() : "not told");
    // A code that makes define differently comes once for each of them.
    for (const auto& code : codes) {
      std::printf("  %s %s (%s)\n", code->code().c_str(), code->description().c_str(),
                  code->manufacturer().c_str());
    }
  }

  bool m_done = false;
};

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 2) {
    std::fprintf(stderr, "Usage: %s HOST:PORT\n", argv[0]);
    return 1;
  }
  FrontEnd frontEnd;
  frontEnd.connect(argv[1]);

  Reader reader;
  const auto codes = obd::TroubleCodeServiceBuilder::createTroubleCodeService();
  codes->attach(&reader);
  const auto over = [&] { return reader.done() || frontEnd.lost(); };
  codes->refreshMilStatus();
  codes->refreshConfirmedCodes();
  codes->refreshPendingCodes();
  frontEnd.runUntil(over, std::chrono::seconds(30));
  reader.begin();
  codes->refreshFreezeFrames();
  frontEnd.runUntil(over, std::chrono::seconds(30));
  codes->detach(&reader);
  return reader.done() ? 0 : 1;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
