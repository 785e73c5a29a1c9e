#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <tavrix/export.h>

namespace velmara {

/// What a recording holds.
struct Recording {
  struct Point {
    double time;  ///< seconds
    double value;
  };
  struct Series {
    std::string name;
    std::string unit;
    std::vector<Point> points;
  };

  std::vector<Series> series;            ///< columns of numbers
  std::vector<std::string> textColumns;  ///< names of the others
};

/// Reads a recording. Throws `Failure` (Unusable) with a sentence that names the line of `file` where it
/// makes no sense. What is no finite number does not count.
VELMARA_EXPORT Recording readRecording(std::string_view text, const std::string& file);

}  // namespace velmara
