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
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  for (const auto& [name, function] : fuzz::targets()) {
    function(fuzz::Input(data, size));
  }
  return 0;
}
#endif
