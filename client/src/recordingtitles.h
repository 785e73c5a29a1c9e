#pragma once

#include <string_view>

namespace velmara {

// Titles of the first two columns of every recording.
inline constexpr std::string_view TimeTitle = "Time [s]";
inline constexpr std::string_view ClockTitle = "Clock";

}  // namespace velmara
