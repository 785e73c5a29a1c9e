# Compiler settings shared by every target, and the two functions by which rooms declare themselves.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_package(Threads REQUIRED)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  # Precompiled headers need the two liberties.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE_PROGRAM})
endif()

add_library(velmara_options INTERFACE)
# Results must agree to the last digit on every processor, so no fused multiply-add.
target_compile_options(velmara_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -ffp-contract=off)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 sees overlaps and uninitialized parts in optimized std::string code that are not there (GCC bugs
  # 105651 and 105562), and reads beyond the end where vectors of bytes are compared.
  target_compile_options(velmara_options INTERFACE -Wno-restrict -Wno-maybe-uninitialized -Wno-stringop-overread)
endif()
# The table of trouble codes is one long literal.
target_compile_options(velmara_options INTERFACE $<$<CXX_COMPILER_ID:Clang>:-Wno-overlength-strings>)
if(VELMARA_WERROR)
  target_compile_options(velmara_options INTERFACE -Werror)
endif()
if(VELMARA_SANITIZE)
  target_compile_definitions(velmara_options INTERFACE VELMARA_SANITIZED)
  target_compile_options(velmara_options INTERFACE -fsanitize=${VELMARA_SANITIZE} -fno-omit-frame-pointer
                                                   -fno-sanitize-recover=all)
  target_link_options(velmara_options INTERFACE -fsanitize=${VELMARA_SANITIZE})
endif()

# velmara_find(VARIABLE WHAT NEEDED...): whether WHAT can be built, and words for people if not. Each of NEEDED is a
# package, or a target of one before it that is packaged apart.
function(velmara_find variable what)
  set(missing)
  foreach(needed IN LISTS ARGN)
    if(NOT needed MATCHES "::")
      find_package(${needed} QUIET)
    endif()
    if(NOT ${needed}_FOUND AND NOT TARGET ${needed})
      list(APPEND missing ${needed})
    endif()
  endforeach()
  if(missing)
    list(JOIN missing ", " missing)
    message(STATUS "Building without ${what}, for want of ${missing}")
    set(${variable} OFF PARENT_SCOPE)
  else()
    set(${variable} ON PARENT_SCOPE)
  endif()
endfunction()

# velmara_precompiled(TARGET): takes headers that nearly every file includes in one gulp. Off by default, since a
# file that forgets an include goes unnoticed with it.
if(VELMARA_PCH)
  set(pch_source ${CMAKE_BINARY_DIR}/pch.cpp)
  file(CONFIGURE OUTPUT ${pch_source} CONTENT "// Carries the precompiled headers.\nint main() {}\n")
  add_library(velmara_pch STATIC ${pch_source})
  target_link_libraries(velmara_pch PRIVATE velmara_options)
  target_compile_options(velmara_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
  set(VELMARA_PCH_HEADERS <algorithm> <array> <atomic> <condition_variable> <functional> <map> <memory> <mutex>
      <optional> <set> <sstream> <string> <string_view> <thread> <utility> <vector>)
  target_precompile_headers(velmara_pch PRIVATE ${VELMARA_PCH_HEADERS})
endif()
function(velmara_precompiled target)
  if(VELMARA_PCH)
    target_precompile_headers(${target} REUSE_FROM velmara_pch)
  endif()
endfunction()

# velmara_room(NAME SOURCES ... HEADERS ... LINK ... [BASE dir])
# One room of the library: a static library with hidden symbols whose objects also go into libobd.so.
# HEADERS are public: they are installed, and each must compile on its own.
function(velmara_room name)
  cmake_parse_arguments(ROOM "" "BASE" "SOURCES;HEADERS;LINK" ${ARGN})
  if(ROOM_SOURCES)
    add_library(${name} STATIC ${ROOM_SOURCES})
    set(scope PUBLIC)
    target_link_libraries(${name} PRIVATE velmara_options)
    velmara_precompiled(${name})
  else()
    add_library(${name} INTERFACE)
    set(scope INTERFACE)
  endif()
  if(ROOM_HEADERS)
    target_sources(${name} ${scope} FILE_SET HEADERS BASE_DIRS ${ROOM_BASE} FILES ${ROOM_HEADERS})
    set_property(GLOBAL APPEND PROPERTY VELMARA_PUBLIC_ROOMS ${name})
    foreach(header IN LISTS ROOM_HEADERS)
      get_filename_component(absolute ${header} ABSOLUTE)
      file(RELATIVE_PATH relative ${ROOM_BASE} ${absolute})
      set_property(GLOBAL APPEND PROPERTY VELMARA_PUBLIC_HEADERS ${relative})
    endforeach()
  endif()
  target_include_directories(${name} ${scope} $<BUILD_INTERFACE:${ROOM_BASE}>)
  target_link_libraries(${name} ${scope} ${ROOM_LINK})
endfunction()

# velmara_test(NAME SOURCES ... LINK ... [TIMEOUT s] [SHARDS n]): a GoogleTest program run by CTest as one test, or
# as several that share its cases, where these mostly wait.
function(velmara_test name)
  cmake_parse_arguments(TEST "" "TIMEOUT;SHARDS" "SOURCES;LINK" ${ARGN})
  if(NOT TEST_TIMEOUT)
    set(TEST_TIMEOUT 120)
  endif()
  add_executable(${name} ${TEST_SOURCES})
  target_link_libraries(${name} PRIVATE velmara_options ${TEST_LINK} GTest::gmock GTest::gtest_main)
  if(VELMARA_PCH)
    target_precompile_headers(${name} REUSE_FROM velmara_test_pch)
  endif()
  if(NOT TEST_SHARDS)
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${TEST_TIMEOUT})
    return()
  endif()
  math(EXPR last "${TEST_SHARDS} - 1")
  foreach(shard RANGE ${last})
    add_test(NAME ${name}_${shard} COMMAND ${name})
    set_tests_properties(${name}_${shard} PROPERTIES TIMEOUT ${TEST_TIMEOUT}
      ENVIRONMENT "GTEST_TOTAL_SHARDS=${TEST_SHARDS};GTEST_SHARD_INDEX=${shard}")
  endforeach()
endfunction()
