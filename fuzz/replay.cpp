// Replays the corpora: replay FOLDER [TARGET...]. Each input is named before it runs, so that the one that
// breaks something is known.

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "target.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "Usage: %s FOLDER-OF-CORPORA [TARGET...]\n", argv[0]);
    return 2;
  }
  const auto wanted = [&](const std::string& name) {
    return argc == 2 || std::any_of(argv + 2, argv + argc, [&](const char* a) { return name == a; });
  };
  for (const auto& [name, function] : fuzz::targets()) {
    if (!wanted(name)) {
      continue;
    }
    const auto folder = std::filesystem::path(argv[1]) / name;
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    const auto start = std::chrono::steady_clock::now();
    for (const auto& path : files) {
      std::printf("%s %s\n", name.c_str(), path.filename().c_str());
      std::fflush(stdout);
      std::ifstream file(path, std::ios::binary);
      const std::vector<char> content((std::istreambuf_iterator<char>(file)), {});
      std::vector<std::uint8_t> data(content.size());
      std::memcpy(data.data(), content.data(), content.size());
      function(fuzz::Input(data.data(), data.size()));
    }
    const auto spent =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    std::printf("%s: %zu inputs in %lld ms\n", name.c_str(), files.size(),
                static_cast<long long>(spent.count()));
    if (files.empty()) {
      std::fprintf(stderr, "No inputs for %s in %s\n", name.c_str(), folder.c_str());
      return 1;
    }
  }
  return 0;
}
