#pragma once

#include <string>
#include <string_view>

namespace velmara {

// Titles of the first two columns of every recording.
inline constexpr std::string_view TimeTitle = "Time [s]";
inline constexpr std::string_view ClockTitle = "Clock";

/// A cell of text as it stands in a recording. What a spreadsheet would take for a formula gets an apostrophe
/// in front, which spreadsheets do not show; numbers do not.
std::string guarded(std::string cell);
/// The text of such a cell.
std::string withoutGuard(std::string cell);

}  // namespace velmara
