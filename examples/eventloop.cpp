// The library within an event loop of the program's own, here poll(2), and with settings that are kept in a
// file.

#include <poll.h>
#include <sys/eventfd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>

#include <dispatch/dispatcher.h>
#include <services/iobdvelmara.h>
#include <services/isensorservice.h>
#include <services/libobd.h>

// A line for each: "key number" or "key =text". The library reads settings on several threads.
class FileSettings : public obd::ISettings {
 public:
  explicit FileSettings(const std::string& path) : m_path(path) {
    std::ifstream file(path);
    for (std::string key, text; file >> key && std::getline(file >> std::ws, text);) {
      m_values[key] = text;
    }
  }
  void setValue(const std::string& key, int value) override { store(key, std::to_string(value)); }
  void setValue(const std::string& key, const std::string& value) override { store(key, "=" + value); }
  bool value(const std::string& key, int& value) override {
    return std::sscanf(load(key).c_str(), "%d", &value) == 1;
  }
  bool value(const std::string& key, std::string& value) override {
    const std::string text = load(key);
    return !text.empty() && text[0] == '=' && (value = text.substr(1), true);
  }

 private:
  void store(const std::string& key, const std::string& text) {
    const std::lock_guard guard(m_mutex);
    m_values[key] = text;
    std::ofstream file(m_path);
    for (const auto& [storedKey, storedText] : m_values) {
      file << storedKey << ' ' << storedText << '\n';
    }
  }
  std::string load(const std::string& key) {
    const std::lock_guard guard(m_mutex);
    return m_values.count(key) != 0 ? m_values[key] : std::string();
  }
  const std::string m_path;
  std::mutex m_mutex;
  std::map<std::string, std::string> m_values;
};

// A file for the loop to watch: it is readable when the library wants `dispatch` to be called.
struct Bell : obd::IDispatchRunner {
  void runDispatch() override { eventfd_write(file, 1); }
  const int file = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
};

struct Display : obd::ISensorServiceObserver {
  void onSensorUpdated(bool /*success*/, const std::shared_ptr<obd::ParameterDescriptor>& /*parameter*/,
                       const std::vector<std::shared_ptr<obd::SensorValueDataModel>>& values) override {
    std::printf("%d: %s mph\n", ++lines, values.empty() ? "?" : values.front()->value.c_str());
  }
  int lines = 0;
};

int main(int argc, char** argv) {
  const std::string target = argc > 1 ? argv[1] : "127.0.0.1:35000";
  const std::size_t colon = target.rfind(':');
  Bell bell;
  obd::Dispatcher::getInstance().attach(&bell);  // before anything else
  obd::LIBOBDOpen("");
  const auto settings = std::make_shared<FileSettings>(argc > 2 ? argv[2] : "eventloop.settings");
  auto facade = obd::ObdVelmaraBuilder::createObdVelmara(0, 0, 0, settings);
  auto sensors = obd::SensorServiceBuilder::createSensorService();
  Display display;
  sensors->attach(&display);
  facade->settings()->setUnitSystem(obd::UnitSystem::Imperial);
  facade->connectionManager()->openTcp({target.substr(0, colon), std::atoi(&target[colon + 1])},
                                       obd::VehicleProtocol::Automatic);
  bool polling = false;
  for (int turns = 0; turns < 600 && display.lines < 5; ++turns) {
    pollfd files[] = {{bell.file, POLLIN, 0}};  // and whatever else the program waits for
    ::poll(files, 1, 100);
    eventfd_t rings = 0;
    eventfd_read(bell.file, &rings);  // before `dispatch`, so that no ring is lost
    obd::Dispatcher::getInstance().dispatch();
    if (!polling && (polling = !sensors->parameters().empty())) {  // connected, and ready for questions
      sensors->refresh({obd::ParameterIdentifier::VehicleSpeed});
    }
  }
  sensors.reset();
  facade.reset();  // closes the link
  obd::LIBOBDClose();
  obd::Dispatcher::getInstance().detach(&bell);
  return display.lines > 0 ? 0 : 1;
}
