#include "velmara/client/recordingfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "velmara/client/failure.h"

namespace velmara {

namespace fs = std::filesystem;

RecordingFile::RecordingFile(std::string name, bool replace) : m_name(std::move(name)), m_replace(replace) {
  std::error_code error;
  const fs::file_status status = fs::status(m_name, error);
  if (fs::exists(status)) {
    if (!fs::is_regular_file(status)) {
      throw Failure(Failure::Kind::NotAFile, fmt::format("{} is no file to record to.", m_name));
    }
    if (!m_replace) {
      throw Failure(Failure::Kind::FileExists, fmt::format("{} exists already.", m_name),
                    "Choose another name, or have it replaced.");
    }
    if (::access(m_name.c_str(), W_OK) != 0) {
      fail(errno);
    }
    return;
  }
  if (status.type() == fs::file_type::none) {
    fail(error.value());
  }
  const fs::path folder = fs::absolute(m_name, error).parent_path();
  if (!fs::is_directory(folder, error)) {
    throw Failure(Failure::Kind::Unusable, fmt::format("There is no folder {}.", folder.string()));
  }
  if (::access(folder.c_str(), W_OK | X_OK) != 0) {
    fail(errno);
  }
}

RecordingFile::~RecordingFile() {
  if (m_file >= 0) {
    ::close(m_file);
    if (m_size == 0) {
      ::unlink(m_name.c_str());
    }
  }
}

void RecordingFile::fail(int error) const {
  throw Failure(Failure::Kind::Unusable, fmt::format("The recording cannot be written to {}: {}.", m_name,
                                                     std::generic_category().message(error)));
}

void RecordingFile::open() {
  m_file = ::open(m_name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (m_replace ? O_TRUNC : O_EXCL), 0666);
  if (m_file < 0) {
    fail(errno);
  }
}

void RecordingFile::write(std::string_view rows) {
  const auto size = static_cast<long>(rows.size());
  while (!rows.empty()) {
    const ssize_t count = ::write(m_file, rows.data(), rows.size());
    if (count >= 0) {
      rows.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      const int error = errno;
      // Half a row goes; where that is not possible either, the message stands all the same.
      static_cast<void>(::ftruncate(m_file, m_size) == 0 && ::lseek(m_file, m_size, SEEK_SET) == m_size);
      fail(error);
    }
  }
  m_size += size;
}

void RecordingFile::close() {
  const int error = ::fsync(m_file) != 0 ? errno : 0;
  if (::close(std::exchange(m_file, -1)) != 0) {
    fail(errno);
  }
  if (error != 0) {
    fail(error);
  }
}

}  // namespace velmara
