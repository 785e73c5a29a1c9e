#pragma once

#include <string_view>

namespace velmara {

// Files that the build puts into the program, see embed.cmake.
extern const std::string_view ReportCss;

}  // namespace velmara
