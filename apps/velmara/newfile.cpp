#include "newfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include <fmt/format.h>

namespace velmara {

namespace fs = std::filesystem;

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
  const std::string temporary = fmt::format("{}.{}", m_target.string(), ::getpid());
  const int file = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file < 0) {
    throw failure(errno);
  }
  int error = 0;
  while (error == 0 && !text.empty()) {
    const ssize_t count = ::write(file, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      error = errno;
    }
  }
  if (error == 0 && ::fsync(file) != 0) {
    error = errno;
  }
  if (::close(file) != 0 && error == 0) {
    error = errno;
  }
  if (error == 0 && ::rename(temporary.c_str(), m_target.c_str()) != 0) {
    error = errno;
  }
  if (error != 0) {
    ::unlink(temporary.c_str());
    throw failure(error);
  }
}

Failure NewFile::failure(int error) const {
  return {Failure::Kind::Unusable, fmt::format("The {} cannot be written to {}: {}.", m_what,
                                               m_target.string(), std::generic_category().message(error))};
}

}  // namespace velmara
