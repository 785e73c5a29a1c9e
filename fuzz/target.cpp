#include "target.h"

#include <cstdio>
#include <cstdlib>

namespace fuzz {

namespace {

std::vector<std::pair<std::string, Function>>& list() {
  static std::vector<std::pair<std::string, Function>> all;
  return all;
}

}  // namespace

void require(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "Does not hold: %s\n", what);
    std::abort();
  }
}

int enroll(const char* name, Function function) {
  list().emplace_back(name, function);
  return 0;
}

const std::vector<std::pair<std::string, Function>>& targets() {
  return list();
}

}  // namespace fuzz

#ifdef VELMARA_LIBFUZZER
// Where memory was taken is not noted, since that takes a sixth of the time: as much is found, and is told
// whole when the input runs again with ASAN_OPTIONS=malloc_context_size=30. The quarantine is that of many
// lives.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "malloc_context_size=0:quarantine_size_mb=32";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  for (const auto& [name, function] : fuzz::targets()) {
    function(fuzz::Input(data, size));
  }
  return 0;
}
#endif
