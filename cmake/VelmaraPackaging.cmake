# What `cmake --install` and CPack put together besides the library and its headers, which libobd installs.
#
# Components: `library` and `client` are the two shared libraries that programs need to run, `development` what is needed
# to build them, `tools` the two programs, `python` the Python package. Each becomes one Debian package.
include(GNUInstallDirs)
find_program(GZIP_PROGRAM gzip REQUIRED)

set(packaging ${CMAKE_CURRENT_LIST_DIR}/packaging)
set(packaging_output ${PROJECT_BINARY_DIR}/packaging)
string(COMPARE EQUAL "${CMAKE_INSTALL_PREFIX}" "/usr" VELMARA_IN_SYSTEM)

# velmara_install_compressed(SOURCE NAME DESTINATION COMPONENT...): a file as NAME.gz.
function(velmara_install_compressed source name destination)
  set(compressed ${packaging_output}/${name}.gz)
  file(MAKE_DIRECTORY ${packaging_output})
  # -n: the same input gives the same bytes.
  execute_process(COMMAND ${GZIP_PROGRAM} -9nc ${source} OUTPUT_FILE ${compressed} COMMAND_ERROR_IS_FATAL ANY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
  install(FILES ${compressed} DESTINATION ${destination} ${ARGN})
endfunction()

# velmara_install_program(TARGET): a program with its manual and completions. It finds libobd.so beside it, wherever the
# tree is put; within the system's own folders the loader needs no help.
function(velmara_install_program target)
  if(NOT VELMARA_IN_SYSTEM)
    file(RELATIVE_PATH libraries /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries}")
  endif()
  install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  set(page ${packaging_output}/${target}.1)
  configure_file(${PROJECT_SOURCE_DIR}/docs/man/${target}.1 ${page} @ONLY)
  velmara_install_compressed(${page} ${target}.1 ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  set(completions ${PROJECT_SOURCE_DIR}/apps/velmara/completions)
  install(FILES ${completions}/${target} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
  # Where Debian's zsh looks: below /usr for what packages bring, below /usr/local for the rest.
  install(FILES ${completions}/_${target} COMPONENT tools
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/$<IF:${VELMARA_IN_SYSTEM},vendor-completions,site-functions>)
  install(FILES ${completions}/${target}.fish
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tools)
endfunction()

# pkg-config. Paths are relative to the file, so that the tree may be moved. Those of the system's own folders are
# absolute: then pkg-config leaves out what the compiler searches anyway.
set(VELMARA_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
if(NOT VELMARA_IN_SYSTEM)
  file(RELATIVE_PATH up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  string(REGEX REPLACE "/$" "" VELMARA_PC_PREFIX "\${pcfiledir}/${up}")
endif()
# velmara_install_pkgconfig(NAME)
function(velmara_install_pkgconfig name)
  configure_file(${packaging}/${name}.pc.in ${packaging_output}/${name}.pc @ONLY)
  install(FILES ${packaging_output}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()
velmara_install_pkgconfig(velmara)

# Debian packages.
set(VELMARA_SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(VELMARA_MAINTAINER "Velmara maintainers <velmara@example.org>" CACHE STRING
  "Who publishes the packages; the default is nobody's address")
set(library_package libobd${VELMARA_SOVERSION})
set(client_package libvelmara${VELMARA_SOVERSION})
set(development_package libobd-dev)
set(tools_package velmara)
set(python_package python3-velmara)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velmara)
set(CPACK_PACKAGE_VENDOR Velmara)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_CONTACT "${VELMARA_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(components library development tools)
set(libraries "${library_package} (= ${PROJECT_VERSION})")
if(VELMARA_WITH_CLIENT)
  list(APPEND components client)
  string(APPEND libraries ", ${client_package} (= ${PROJECT_VERSION})")
endif()
if(VELMARA_WITH_PYTHON)
  list(APPEND components python)
endif()
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY =)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/libobd ${PROJECT_BINARY_DIR}/client)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${packaging}/triggers)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "Vehicle diagnostics over ELM327-class adapters - library
Reads live values, trouble codes, freeze frames, readiness monitors, test
results and vehicle information from the control units of a vehicle, by
OBD-II (SAE J1979) through an adapter on a serial port, Bluetooth or TCP.
.
This package holds the shared library.")

set(CPACK_DEBIAN_CLIENT_PACKAGE_NAME ${client_package})
set(CPACK_DEBIAN_CLIENT_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_CLIENT_PACKAGE_DEPENDS "${library_package} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_CLIENT_PACKAGE_CONTROL_EXTRA ${packaging}/triggers)
set(CPACK_DEBIAN_CLIENT_DESCRIPTION "Vehicle diagnostics over ELM327-class adapters - client library
Opens a link to an adapter by its text, reads a whole vehicle as plain data,
polls live values, keeps recordings and explains trouble codes.
.
This package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${libraries}")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "Vehicle diagnostics over ELM327-class adapters - headers
Reads live values, trouble codes, freeze frames, readiness monitors, test
results and vehicle information from the control units of a vehicle, by
OBD-II (SAE J1979) through an adapter on a serial port, Bluetooth or TCP.
.
This package holds what is needed to build programs on the library: C++
headers, and files for CMake and pkg-config.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${tools_package})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${libraries}")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "Diagnose vehicles through ELM327-class adapters
Shows live values, trouble codes, freeze frames, readiness monitors, test
results and vehicle information, clears trouble codes, and looks them up in a
database of many makes, on the command line.
.
Beside velmara the package holds velmara-sim, a simulated adapter with vehicles
behind it, to try things without a car.")

# For the interpreter that it was built with, which compiles the files at installation and forgets them at removal.
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME ${python_package})
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
if(VELMARA_WITH_PYTHON)
  math(EXPR next "${Python3_VERSION_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "${libraries}, python3 (>= 3.${Python3_VERSION_MINOR}~), python3 (<< 3.${next}~)")
endif()
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS python3-pandas)
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${packaging}/python/postinst ${packaging}/python/prerm)
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "Vehicle diagnostics over ELM327-class adapters - Python module
Reads live values, trouble codes, freeze frames, readiness monitors, test
results and vehicle information from the control units of a vehicle, by
OBD-II (SAE J1979) through an adapter on a serial port, Bluetooth or TCP.
.
This package holds the module velmara for Python 3, with simulated cars for
tests.")

# Each package tells its license and its history, and that of developers has the examples. A plain install does without.
configure_file(${packaging}/changelog.in ${packaging_output}/changelog @ONLY)
foreach(component IN LISTS components)
  set(documents ${CMAKE_INSTALL_DATADIR}/doc/${${component}_package})
  install(FILES ${packaging}/copyright DESTINATION ${documents} COMPONENT ${component} EXCLUDE_FROM_ALL)
  velmara_install_compressed(${packaging_output}/changelog changelog ${documents} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()
file(GLOB examples CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/*.cpp ${PROJECT_SOURCE_DIR}/examples/*.h
  ${PROJECT_SOURCE_DIR}/examples/Makefile ${PROJECT_SOURCE_DIR}/examples/CMakeLists.txt)
install(FILES ${examples} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${development_package}/examples
  COMPONENT development EXCLUDE_FROM_ALL)
include(CPack)
