#include "newfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <random>
#include <system_error>
#include <utility>

#include <fmt/format.h>

namespace velmara {

namespace fs = std::filesystem;

namespace {

// The error, or 0.
int writeAll(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(file, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return ::fsync(file) == 0 ? 0 : errno;
}

// So that a new name is still there after a power cut. Not every file system can do it.
void syncFolder(const fs::path& folder) {
  const int file = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (file >= 0) {
    ::fsync(file);
    ::close(file);
  }
}

}  // namespace

std::error_code replaceFile(const fs::path& target, std::string_view text) {
  // Random, since a process may have the same number as one that was killed while it wrote.
  const std::string temporary = fmt::format("{}.{:08x}", target.string(), std::random_device{}());
  const int file = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file < 0) {
    return {errno, std::generic_category()};
  }
  int error = writeAll(file, text);
  if (::close(file) != 0 && error == 0) {
    error = errno;
  }
  if (error == 0 && ::rename(temporary.c_str(), target.c_str()) != 0) {
    error = errno;
  }
  if (error != 0) {
    ::unlink(temporary.c_str());
  } else {
    syncFolder(target.parent_path());
  }
  return {error, std::generic_category()};
}

NewFile::NewFile(std::string what, const std::string& name) : m_what(std::move(what)) {
  std::error_code error;
  const fs::path absolute = fs::absolute(name, error);  // the next call may leave a new name relative
  m_target = fs::weakly_canonical(absolute, error);     // a link shall stay
  if (error) {
    m_target = absolute;
  }
  if (fs::exists(m_target, error) && !fs::is_regular_file(m_target, error)) {
    throw Failure(Failure::Kind::Unusable, fmt::format("{} is no file to write to.", name),
                  "- stands for standard output.");
  }
  const fs::path folder = m_target.parent_path();
  if (!fs::is_directory(folder, error)) {
    throw Failure(Failure::Kind::Unusable, fmt::format("There is no folder {}.", folder.string()));
  }
  if (::access(folder.c_str(), W_OK | X_OK) != 0) {
    throw failure(errno);
  }
}

void NewFile::write(std::string_view text) const {
  if (const std::error_code error = replaceFile(m_target, text)) {
    throw failure(error.value());
  }
}

Failure NewFile::failure(int error) const {
  return {Failure::Kind::Unusable, fmt::format("The {} cannot be written to {}: {}.", m_what,
                                               m_target.string(), std::generic_category().message(error))};
}

}  // namespace velmara
