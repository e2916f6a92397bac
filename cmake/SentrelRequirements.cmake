# SPDX-License-Identifier: Apache-2.0
#
# Everything that a build needs from outside, with the packages that bring it. Nothing else looks for anything, so that all
# that is missing is told at once. Included twice: before project(), which fails without the tools and where nothing but the
# tools can be looked for, and after it.

set(sentrel_needs program ${SENTREL_INFERENCE})
set(sentrel_wishes)  # looked for, and done without
if(SENTREL_TESTS)
  list(APPEND sentrel_needs tests)
  list(APPEND sentrel_wishes xnnpack opencv)  # to hold them against each other
  if(SENTREL_BENCH)
    list(APPEND sentrel_needs bench)
  endif()
endif()
set(sentrel_missing_lines)
set(sentrel_missing_debian)
set(sentrel_missing_fedora)
set(sentrel_missing_tool FALSE)

# sentrel_require(<need> <use> <Debian package> <Fedora package> <kind> <arguments of the kind...>): one row of the table.
# Macros, because what CMake finds are variables of whoever looks for it.
macro(sentrel_require need use debian fedora kind)
  if("${need}" IN_LIST sentrel_needs OR "${need}" IN_LIST sentrel_wishes)
    set(sentrel_found FALSE)
    set(sentrel_remark "")
    cmake_language(CALL sentrel_find_${kind} ${ARGN})
    if(NOT sentrel_found AND "${need}" IN_LIST sentrel_needs)
      string(APPEND sentrel_missing_lines "   ${sentrel_label}${sentrel_remark}, for ${use}: ${debian} (Fedora: ${fedora})\n")
      list(APPEND sentrel_missing_debian ${debian})
      list(APPEND sentrel_missing_fedora ${fedora})
      if("${kind}" STREQUAL "TOOL")
        set(sentrel_missing_tool TRUE)
      endif()
    endif()
  endif()
endmacro()

# TOOL <variable that CMake knows it by> <programs, one of which will do...>
macro(sentrel_find_TOOL variable)
  set(sentrel_label "${ARGV1}")
  if(DEFINED ${variable} OR PROJECT_NAME OR CMAKE_TOOLCHAIN_FILE OR
     ("${variable}" STREQUAL "CMAKE_CXX_COMPILER" AND DEFINED ENV{CXX}) OR
     ("${variable}" STREQUAL "CMAKE_MAKE_PROGRAM" AND NOT CMAKE_GENERATOR MATCHES "Ninja"))
    set(sentrel_found TRUE)
  else()
    find_program(sentrel_tool NAMES ${ARGN} NO_CACHE)
    if(sentrel_tool)
      set(sentrel_found TRUE)
    endif()
    unset(sentrel_tool)
  endif()
endmacro()

# PACKAGE <name, with ">=version" where it must not be older> <components...>
macro(sentrel_find_PACKAGE wanted)
  string(REGEX MATCH "^([^>]+)(>=(.+))?$" sentrel_match "${wanted}")
  set(sentrel_name ${CMAKE_MATCH_1})
  set(sentrel_minimum ${CMAKE_MATCH_3})
  string(JOIN " " sentrel_label ${wanted} ${ARGN})
  if(PROJECT_NAME)
    set(sentrel_components ${ARGN})
    if(sentrel_components)
      list(PREPEND sentrel_components COMPONENTS)
    endif()
    # Without the version: some packages count a newer one as unfit, and it can be told here.
    find_package(${sentrel_name} QUIET ${sentrel_components})
    set(sentrel_found ${${sentrel_name}_FOUND})
    if(sentrel_found AND sentrel_minimum AND ${sentrel_name}_VERSION VERSION_LESS sentrel_minimum)
      set(sentrel_found FALSE)
      set(sentrel_remark " (too old: ${${sentrel_name}_VERSION})")
    endif()
  endif()
endmacro()

# MODULE <name> <module of pkg-config, with ">=version" where it must not be older>: the target PkgConfig::<name>.
macro(sentrel_find_MODULE name wanted)
  set(sentrel_label "${wanted}")
  if(PROJECT_NAME AND PKG_CONFIG_FOUND)
    pkg_check_modules(${name} QUIET IMPORTED_TARGET ${wanted})
    set(sentrel_found ${${name}_FOUND})
    if(NOT sentrel_found)
      string(REGEX MATCH "^([^>]+)(>=(.+))?$" sentrel_match "${wanted}")
      set(sentrel_minimum ${CMAKE_MATCH_3})
      execute_process(COMMAND ${PKG_CONFIG_EXECUTABLE} --modversion ${CMAKE_MATCH_1} OUTPUT_VARIABLE sentrel_version
        ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
      if(sentrel_version AND sentrel_minimum AND sentrel_version VERSION_LESS sentrel_minimum)
        set(sentrel_remark " (too old: ${sentrel_version})")
      endif()
    endif()
  elseif(PROJECT_NAME)
    set(sentrel_remark " (not looked for, without pkg-config)")
  endif()
endmacro()

# PROGRAM <variable> <names...>
macro(sentrel_find_PROGRAM variable)
  set(sentrel_label "${ARGV1}")
  if(PROJECT_NAME)
    # Qt keeps its programs in a folder of its own, which Debian leaves out of the path.
    find_program(${variable} NAMES ${ARGN} HINTS ${QT6_INSTALL_PREFIX}/${QT6_INSTALL_BINS} PATHS /usr/lib/qt6/bin)
    if(${variable})
      set(sentrel_found TRUE)
    endif()
  endif()
endmacro()

# HEADER <variable> <file> <folders that it may be in, below the usual ones...>
macro(sentrel_find_HEADER variable file)
  set(sentrel_label "${file}")
  if(PROJECT_NAME)
    find_path(${variable} ${file} PATH_SUFFIXES ${ARGN})
    if(${variable})
      set(sentrel_found TRUE)
    endif()
  endif()
endmacro()

# LIBRARY <variable> <name>
macro(sentrel_find_LIBRARY variable name)
  set(sentrel_label "lib${name}")
  if(PROJECT_NAME)
    find_library(${variable} ${name})
    if(${variable})
      set(sentrel_found TRUE)
    endif()
  endif()
endmacro()

# The table. scripts/lib.sh reads it, too: one row a line. scripts/check-requirements holds all other lists against it.
sentrel_require(program "compiling"           g++                 gcc-c++                TOOL CMAKE_CXX_COMPILER c++ g++ clang++)
sentrel_require(program "building"            cmake               cmake                  TOOL CMAKE_COMMAND cmake)
sentrel_require(program "building"            ninja-build         ninja-build            TOOL CMAKE_MAKE_PROGRAM ninja ninja-build samu)
sentrel_require(program "finding libraries"   pkg-config          pkgconf-pkg-config     PACKAGE PkgConfig)
sentrel_require(program "threads"             g++                 gcc-c++                PACKAGE Threads)
sentrel_require(program "windows and buses"   qt6-base-dev        qt6-qtbase-devel       PACKAGE Qt6>=6.4 Core DBus Gui Widgets)
sentrel_require(program "translations"        qt6-l10n-tools      qt6-linguist           PROGRAM LRELEASE lrelease lrelease-qt6)
sentrel_require(program "cameras"             libpipewire-0.3-dev pipewire-devel         MODULE PIPEWIRE libpipewire-0.3>=0.3.65)
sentrel_require(program "camera pictures"     libyuv-dev          libyuv-devel           HEADER YUV_INCLUDE_DIR libyuv.h)
sentrel_require(program "camera pictures"     libyuv-dev          libyuv-devel           LIBRARY YUV_LIBRARY yuv)
sentrel_require(program "camera pictures"     libjpeg-dev         libjpeg-turbo-devel    MODULE JPEG libjpeg)
sentrel_require(program "angles of the head"  libeigen3-dev       eigen3-devel           PACKAGE Eigen3>=3.4)
sentrel_require(program "the call filter"     libseccomp-dev      libseccomp-devel       MODULE SECCOMP libseccomp>=2.5)
sentrel_require(program "X11"                 libxcb1-dev         libxcb-devel           MODULE XCB xcb)
sentrel_require(program "X11"                 libxcb-composite0-dev libxcb-devel         MODULE XCB_COMPOSITE xcb-composite)
sentrel_require(program "X11"                 libxcb-dpms0-dev    libxcb-devel           MODULE XCB_DPMS xcb-dpms)
sentrel_require(program "X11"                 libxcb-randr0-dev   libxcb-devel           MODULE XCB_RANDR xcb-randr)
sentrel_require(program "X11"                 libxcb-shape0-dev   libxcb-devel           MODULE XCB_SHAPE xcb-shape)
sentrel_require(program "X11"                 libxcb-xfixes0-dev  libxcb-devel           MODULE XCB_XFIXES xcb-xfixes)
sentrel_require(program "X11"                 libxcb-xinput-dev   libxcb-devel           MODULE XCB_XINPUT xcb-xinput)
sentrel_require(program "X11"                 libxcb-xkb-dev      libxcb-devel           MODULE XCB_XKB xcb-xkb)
sentrel_require(program "Wayland"             libwayland-dev      wayland-devel          MODULE WAYLAND wayland-client)
sentrel_require(program "Wayland"             libwayland-bin      wayland-devel          PROGRAM WAYLAND_SCANNER wayland-scanner)
sentrel_require(program "Wayland"             wayland-protocols   wayland-protocols-devel MODULE WAYLAND_PROTOCOLS wayland-protocols>=1.31)
sentrel_require(xnnpack "the face networks"   libxnnpack-dev      xnnpack-devel          HEADER XNNPACK_INCLUDE_DIR xnnpack.h)
sentrel_require(xnnpack "the face networks"   libxnnpack-dev      xnnpack-devel          LIBRARY XNNPACK_LIBRARY XNNPACK)
sentrel_require(xnnpack "the face networks"   libpthreadpool-dev  pthreadpool-devel      HEADER PTHREADPOOL_INCLUDE_DIR pthreadpool.h)
# By what is used of it: its CMake package comes only with all of its modules.
sentrel_require(opencv  "the face networks"   libopencv-dnn-dev   opencv-devel           HEADER OPENCV_INCLUDE_DIR opencv2/dnn.hpp opencv4)
sentrel_require(opencv  "the face networks"   libopencv-dnn-dev   opencv-devel           LIBRARY OPENCV_DNN_LIBRARY opencv_dnn)
sentrel_require(opencv  "the face networks"   libopencv-core-dev  opencv-devel           LIBRARY OPENCV_CORE_LIBRARY opencv_core)
sentrel_require(tests   "the tests"           qt6-base-dev        qt6-qtbase-devel       PACKAGE Qt6>=6.4 Test)
sentrel_require(tests   "the tests"           libgtest-dev        gtest-devel            PACKAGE GTest)
sentrel_require(tests   "the tests"           libgmock-dev        gmock-devel            HEADER GMOCK_INCLUDE_DIR gmock/gmock.h)
sentrel_require(bench   "the benchmarks"      libbenchmark-dev    google-benchmark-devel PACKAGE benchmark)

# Without a tool the rest stays unknown, and is listed: to install what is there already does no harm.
if(sentrel_missing_lines AND (PROJECT_NAME OR sentrel_missing_tool))
  list(REMOVE_DUPLICATES sentrel_missing_debian)
  list(REMOVE_DUPLICATES sentrel_missing_fedora)
  list(JOIN sentrel_missing_debian " " sentrel_missing_debian)
  list(JOIN sentrel_missing_fedora " " sentrel_missing_fedora)
  if(NOT PROJECT_NAME)
    string(APPEND sentrel_missing_lines " Nothing but the tools could be looked for without them; all of the rest is listed.\n")
  endif()
  # Lines that begin with a space are left as they are.
  message(FATAL_ERROR " This is missing:\n${sentrel_missing_lines}"
    " On Debian or Ubuntu:\n   sudo apt install ${sentrel_missing_debian}\n"
    " On Fedora:\n   sudo dnf install ${sentrel_missing_fedora}\n")
endif()
