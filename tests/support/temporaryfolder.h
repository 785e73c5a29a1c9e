#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/// A folder that goes with the test that derives from this.
class TemporaryFolder {
 public:
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

 protected:
  TemporaryFolder() {
    std::string pattern = testing::TempDir() + "velmara-XXXXXX";
    EXPECT_NE(::mkdtemp(pattern.data()), nullptr);
    m_folder = pattern;
  }
  ~TemporaryFolder() { std::filesystem::remove_all(m_folder); }

  std::string path(const std::string& name) const { return (m_folder / name).string(); }
  /// Gives the path.
  std::string write(const std::string& name, const std::string& content) const {
    std::filesystem::create_directories((m_folder / name).parent_path());
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
  }
  static std::string read(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  std::filesystem::path m_folder;
};
