#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velmara {

/// A file of the page, as it is in the program.
struct PageFile {
  const char* path;
  const char* type;
  std::string_view text;
};

const std::vector<PageFile>& pageFiles();
/// Null if there is none at this path.
const PageFile* findPageFile(std::string_view path);

}  // namespace velmara
