#pragma once

#include <string_view>

namespace velmara {

// Files that the build puts into the program, see embed.cmake.
extern const std::string_view ReportCss;

// The page that `velmara serve` shows, and what its charts are drawn with.
extern const std::string_view ChartsJs;
extern const std::string_view ChooserJs;
extern const std::string_view ConnectJs;
extern const std::string_view DomJs;
extern const std::string_view DygraphCss;
extern const std::string_view DygraphJs;
extern const std::string_view IconSvg;
extern const std::string_view IndexHtml;
extern const std::string_view LiveJs;
extern const std::string_view MainJs;
extern const std::string_view OpenapiJson;
extern const std::string_view RecordingJs;
extern const std::string_view ServerJs;
extern const std::string_view StyleCss;
extern const std::string_view TilesJs;
extern const std::string_view VehicleJs;

}  // namespace velmara
