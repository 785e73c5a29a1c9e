# dygraphs, which draws values over time in browsers. Gives DYGRAPHS_SCRIPT and DYGRAPHS_STYLE, files to embed.
set(folders share/javascript/dygraphs share/nodejs/dygraphs/dist)
find_file(DYGRAPHS_SCRIPT dygraph.min.js PATH_SUFFIXES ${folders} PATHS /usr)
find_file(DYGRAPHS_STYLE dygraph.css PATH_SUFFIXES ${folders} PATHS /usr)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Dygraphs REQUIRED_VARS DYGRAPHS_SCRIPT DYGRAPHS_STYLE)
mark_as_advanced(DYGRAPHS_SCRIPT DYGRAPHS_STYLE)
