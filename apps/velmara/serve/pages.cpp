#include "serve/pages.h"

#include <algorithm>

#include "embedded.h"

namespace velmara {

const std::vector<PageFile>& pageFiles() {
  constexpr const char* Html = "text/html; charset=utf-8";
  constexpr const char* Style = "text/css; charset=utf-8";
  constexpr const char* Script = "text/javascript; charset=utf-8";
  static const std::vector<PageFile> files = {{"/", Html, IndexHtml},
                                              {"/style.css", Style, StyleCss},
                                              {"/main.js", Script, MainJs},
                                              {"/server.js", Script, ServerJs},
                                              {"/dom.js", Script, DomJs},
                                              {"/connect.js", Script, ConnectJs},
                                              {"/live.js", Script, LiveJs},
                                              {"/tiles.js", Script, TilesJs},
                                              {"/charts.js", Script, ChartsJs},
                                              {"/chooser.js", Script, ChooserJs},
                                              {"/vehicle.js", Script, VehicleJs},
                                              {"/recording.js", Script, RecordingJs},
                                              {"/dygraph.js", Script, DygraphJs},
                                              {"/dygraph.css", Style, DygraphCss},
                                              {"/icon.svg", "image/svg+xml", IconSvg},
                                              {"/api/openapi.json", "application/json", OpenapiJson}};
  return files;
}

const PageFile* findPageFile(std::string_view path) {
  const std::vector<PageFile>& files = pageFiles();
  const auto found =
      std::find_if(files.begin(), files.end(), [path](const PageFile& file) { return file.path == path; });
  return found == files.end() ? nullptr : &*found;
}

}  // namespace velmara
