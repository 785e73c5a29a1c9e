#include "settingsstore.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <limits>
#include <map>
#include <mutex>
#include <sstream>
#include <system_error>
#include <thread>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "newfile.h"
#include "velmara/client/failure.h"

namespace velmara {

namespace fs = std::filesystem;

using Values = nlohmann::json;

struct SettingsStore::Content {
  std::mutex mutex;
  Values values = Values::object();                      // as this run sees them
  std::map<std::string, std::optional<Values>> changes;  // that the file has not heard of; nothing: forgotten
  std::map<std::string, int> overrides;

  template <typename T>
  void set(const std::string& key, const T& value) {
    const std::lock_guard guard(mutex);
    overrides.erase(key);
    values[key] = value;
    changes[key] = value;
  }

  void applyTo(Values& file) const {
    for (const auto& [key, value] : changes) {
      if (value) {
        file[key] = *value;
      } else {
        file.erase(key);
      }
    }
  }

  bool isKnownTo(const Values& file) const {
    return std::all_of(changes.begin(), changes.end(), [&file](const auto& change) {
      const auto found = file.find(change.first);
      return change.second ? found != file.end() && *found == *change.second : found == file.end();
    });
  }
};

namespace {

std::optional<fs::path> directoryFrom(const char* variable) {
  const char* const value = std::getenv(variable);
  // A relative path does not count.
  return value != nullptr && *value == '/' ? std::optional<fs::path>(value) : std::nullopt;
}

struct FileContent {
  enum class State { Missing, Good, Broken, Unreadable };

  State state = State::Missing;
  Values values = Values::object();
  int error = 0;  // why it cannot be read; 0 if it is no file
};

// An empty file holds no settings.
FileContent readFile(const fs::path& file) {
  using State = FileContent::State;
  std::error_code error;
  if (!fs::exists(file, error) && !error) {
    return {};
  }
  if (!fs::is_regular_file(file, error)) {  // to open a pipe would wait for its other end
    return {State::Unreadable, {}, error.value()};
  }
  errno = 0;
  std::ifstream stream(file);
  std::stringstream text;
  if (!stream || !(text << stream.rdbuf())) {
    const int reason = errno;
    const bool empty = fs::file_size(file, error) == 0 && !error;
    return empty ? FileContent() : FileContent{State::Unreadable, {}, reason};
  }
  Values values = Values::parse(text.str(), nullptr, false);
  return values.is_object() ? FileContent{State::Good, std::move(values), 0}
                            : FileContent{State::Broken, Values::object(), 0};
}

Failure notSaved(const fs::path& file, const std::string& why) {
  return {Failure::Kind::Unusable,
          fmt::format("The settings cannot be saved in {}: {}.", file.string(), why)};
}

std::string messageOf(int error) {
  return std::generic_category().message(error);
}

// A free name beside the file for what was in it.
fs::path nameAside(const fs::path& file) {
  for (int i = 1;; ++i) {
    fs::path aside = file;
    aside += i == 1 ? ".broken" : fmt::format(".broken-{}", i);
    std::error_code error;
    if (!fs::exists(fs::symlink_status(aside, error))) {
      return aside;
    }
  }
}

}  // namespace

// Programs that change the same file take turns. The lock file stays: whoever removed it would leave two
// programs with a lock each. A lock ends with its program, whatever ends that.
class SettingsStore::Lock {
 public:
  // Throws `Failure`.
  explicit Lock(const fs::path& file)
      : m_file(::open((file.string() + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {
    if (m_file < 0) {
      throw notSaved(file, messageOf(errno));
    }
    constexpr auto Patience = std::chrono::seconds(5);
    constexpr auto Pause = std::chrono::milliseconds(2);
    const auto end = std::chrono::steady_clock::now() + Patience;
    while (::flock(m_file, LOCK_EX | LOCK_NB) != 0) {
      const int error = errno;
      if (error != EWOULDBLOCK || std::chrono::steady_clock::now() > end) {
        ::close(m_file);
        throw notSaved(file, error == EWOULDBLOCK ? "another program has locked them" : messageOf(error));
      }
      std::this_thread::sleep_for(Pause);
    }
  }
  ~Lock() { ::close(m_file); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  int m_file;
};

std::optional<fs::path> SettingsStore::defaultFile() {
  if (const auto config = directoryFrom("XDG_CONFIG_HOME")) {
    return *config / "velmara" / "settings.json";
  }
  if (const auto home = directoryFrom("HOME")) {
    return *home / ".config" / "velmara" / "settings.json";
  }
  return std::nullopt;
}

SettingsStore::SettingsStore(std::optional<fs::path> file)
    : m_file(std::move(file)), m_content(std::make_unique<Content>()) {
  if (m_file) {
    load();
  }
}

SettingsStore::~SettingsStore() = default;

void SettingsStore::load() {
  using State = FileContent::State;
  FileContent content = readFile(*m_file);
  if (content.state == State::Broken) {
    moveAside();
  } else if (content.state == State::Unreadable) {
    m_complaint = fmt::format(
        "The settings in {} cannot be read{}; this run goes without them and saves none.", m_file->string(),
        content.error != 0 ? fmt::format(" ({})", messageOf(content.error)) : "");
    m_file.reset();
  } else {
    m_content->values = std::move(content.values);
  }
}

// Unless another program has just done so: then the file holds good settings again.
void SettingsStore::moveAside() {
  try {
    const Lock lock(target());
    FileContent content = readFile(*m_file);
    if (content.state != FileContent::State::Broken) {
      m_content->values = std::move(content.values);
      return;
    }
    const fs::path aside = nameAside(*m_file);
    fs::rename(*m_file, aside);
    m_complaint = fmt::format(
        "The settings in {} were broken; they are kept in {}, and all settings are back "
        "at their defaults.",
        m_file->string(), aside.string());
  } catch (const std::exception&) {  // no lock, or no right to rename
    m_complaint = fmt::format("The settings in {} are broken; this run goes without them and saves none.",
                              m_file->string());
    m_file.reset();
  }
}

void SettingsStore::setValue(const std::string& key, int value) {
  m_content->set(key, value);
}

void SettingsStore::setValue(const std::string& key, const std::string& value) {
  m_content->set(key, value);
}

bool SettingsStore::value(const std::string& key, int& value) {
  const std::lock_guard guard(m_content->mutex);
  if (const auto found = m_content->overrides.find(key); found != m_content->overrides.end()) {
    value = found->second;
    return true;
  }
  const auto found = m_content->values.find(key);
  if (found == m_content->values.end() || !found->is_number_integer()) {
    return false;
  }
  // A number beyond 64 bits is no integer to the parser; one beyond 63 is unsigned.
  const bool huge = found->is_number_unsigned() &&
                    found->get<std::uint64_t>() > static_cast<std::uint64_t>(std::numeric_limits<int>::max());
  const std::int64_t number = huge ? 0 : found->get<std::int64_t>();
  if (huge || number < std::numeric_limits<int>::min()) {
    return false;
  }
  value = static_cast<int>(number);
  return true;
}

bool SettingsStore::value(const std::string& key, std::string& value) {
  const std::lock_guard guard(m_content->mutex);
  const auto found = m_content->values.find(key);
  if (found == m_content->values.end() || !found->is_string()) {
    return false;
  }
  value = found->get<std::string>();
  return true;
}

bool SettingsStore::remember(const std::string& key, const std::string& value) {
  std::unique_lock guard(m_content->mutex);
  const Values valuesBefore = m_content->values;
  const auto changesBefore = m_content->changes;
  guard.unlock();
  setValue(key, value);
  try {
    sync();
    return true;
  } catch (const Failure&) {
    guard.lock();
    m_content->values = valuesBefore;
    m_content->changes = changesBefore;
    return false;
  }
}

void SettingsStore::remove(const std::string& key) {
  const std::lock_guard guard(m_content->mutex);
  m_content->overrides.erase(key);
  m_content->values.erase(key);
  m_content->changes[key] = std::nullopt;
}

void SettingsStore::overrideValue(const std::string& key, int value) {
  const std::lock_guard guard(m_content->mutex);
  m_content->overrides[key] = value;
}

void SettingsStore::sync() {
  const std::lock_guard guard(m_content->mutex);
  if (m_content->changes.empty() || !m_file) {
    return;
  }
  const fs::path file = target();
  if (!m_content->isKnownTo(readFile(file).values)) {
    std::error_code ignored;  // the lock will say so
    fs::create_directories(file.parent_path(), ignored);
    const Lock lock(file);
    write(file);
  }
  m_content->changes.clear();
}

// Somebody's settings may be a link into another folder; the link shall stay.
fs::path SettingsStore::target() const {
  std::error_code error;
  fs::path file = fs::weakly_canonical(*m_file, error);
  return error ? *m_file : file;
}

// Under the lock. What has become unreadable since the start is somebody else's: it stays.
void SettingsStore::write(const fs::path& file) {
  FileContent content = readFile(file);
  if (content.state == FileContent::State::Unreadable || content.state == FileContent::State::Broken) {
    throw notSaved(file, "it does not hold settings any more");
  }
  m_content->applyTo(content.values);
  const std::string text = content.values.dump(2, ' ', false, Values::error_handler_t::replace) + '\n';
  if (const std::error_code error = replaceFile(file, text)) {
    throw notSaved(file, error.message());
  }
}

}  // namespace velmara
