#include "settingsstore.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <map>
#include <mutex>
#include <random>
#include <sstream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "velmara/client/failure.h"

namespace velmara {

namespace fs = std::filesystem;

struct SettingsStore::Content {
  std::mutex mutex;
  nlohmann::json values = nlohmann::json::object();
  std::map<std::string, int> overrides;
  bool changed = false;

  template <typename T>
  void set(const std::string& key, const T& value) {
    const std::lock_guard guard(mutex);
    overrides.erase(key);
    const auto found = values.find(key);
    if (found == values.end() || *found != value) {
      values[key] = value;
      changed = true;
    }
  }
};

namespace {

std::optional<fs::path> directoryFrom(const char* variable) {
  const char* const value = std::getenv(variable);
  // A relative path does not count.
  return value != nullptr && *value == '/' ? std::optional<fs::path>(value) : std::nullopt;
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
  std::error_code error;
  if (!fs::exists(*m_file, error) && !error) {
    return;
  }
  errno = 0;
  const bool isFile = fs::is_regular_file(*m_file, error);  // to open a pipe would wait for its other end
  std::ifstream stream;
  std::stringstream text;
  if (isFile) {
    stream.open(*m_file);
  }
  if (!isFile || !stream || !(text << stream.rdbuf())) {
    // An empty file ends here, too; it holds no settings. Anything else stays untouched, unread.
    if (fs::is_regular_file(*m_file, error) && fs::file_size(*m_file, error) == 0 && !error) {
      return;
    }
    m_complaint =
        fmt::format("The settings in {} cannot be read{}; this run goes without them and saves none.",
                    m_file->string(), errno != 0 ? fmt::format(" ({})", std::strerror(errno)) : "");
    m_file.reset();
    return;
  }
  nlohmann::json values = nlohmann::json::parse(text.str(), nullptr, false);
  if (values.is_object()) {
    m_content->values = std::move(values);
    return;
  }
  const fs::path aside = nameAside(*m_file);
  fs::rename(*m_file, aside, error);
  if (error) {
    m_complaint = fmt::format("The settings in {} are broken; this run goes without them and saves none.",
                              m_file->string());
    m_file.reset();
  } else {
    m_complaint = fmt::format(
        "The settings in {} were broken; they are kept in {}, and all settings are back "
        "at their defaults.",
        m_file->string(), aside.string());
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
  const nlohmann::json valuesBefore = m_content->values;
  const bool changedBefore = m_content->changed;
  guard.unlock();
  setValue(key, value);
  try {
    sync();
    return true;
  } catch (const Failure&) {
    guard.lock();
    m_content->values = valuesBefore;
    m_content->changed = changedBefore;
    return false;
  }
}

void SettingsStore::remove(const std::string& key) {
  const std::lock_guard guard(m_content->mutex);
  m_content->overrides.erase(key);
  m_content->changed = m_content->values.erase(key) != 0 || m_content->changed;
}

void SettingsStore::overrideValue(const std::string& key, int value) {
  const std::lock_guard guard(m_content->mutex);
  m_content->overrides[key] = value;
}

void SettingsStore::sync() {
  const std::lock_guard guard(m_content->mutex);
  if (!m_content->changed || !m_file) {
    return;
  }
  std::error_code error;
  // Somebody's settings may be a link into another folder; the link shall stay.
  fs::path target = fs::weakly_canonical(*m_file, error);
  if (error) {
    target = *m_file;
  }
  fs::create_directories(target.parent_path(), error);
  fs::path temporary = target;
  temporary += fmt::format(".{:08x}", std::random_device{}());
  errno = 0;
  {
    std::ofstream stream(temporary);
    stream << m_content->values.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    stream.close();
    if (!stream) {
      error = std::error_code(errno, std::generic_category());
    } else {
      fs::rename(temporary, target, error);
    }
  }
  if (error) {
    std::error_code ignored;
    fs::remove(temporary, ignored);
    throw Failure(Failure::Kind::Unusable,
                  fmt::format("The settings cannot be saved in {}: {}.", target.string(), error.message()));
  }
  m_content->changed = false;
}

}  // namespace velmara
