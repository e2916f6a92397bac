# SPDX-License-Identifier: Apache-2.0
#
# Most of the time that a file takes to compile goes into the headers of the libraries that it uses. With
# SENTREL_PRECOMPILED_HEADERS these are read once for each group of targets. Releases are built without, which also proves
# that every file of the program includes what it uses.
option(SENTREL_PRECOMPILED_HEADERS "Read the headers of the libraries once for each group of targets" OFF)

# sentrel_precompiled(<target> <group>): the target uses the headers of the group.
function(sentrel_precompiled target group)
  if(SENTREL_PRECOMPILED_HEADERS)
    target_precompile_headers(${target} REUSE_FROM sentrel_precompiled_${group})
  endif()
endfunction()

if(NOT SENTREL_PRECOMPILED_HEADERS)
  return()
endif()
# The compiler takes a precompiled header only for what is compiled the same way: programs as well as libraries, and with
# the name that PipeWire defines in whatever uses it.
add_compile_options(-fPIC)
add_compile_definitions(_REENTRANT)

# sentrel_precompiled_group(<group> <headers...>): a target that is never linked and holds what the group shares. It may define
# no name that a target of the group does not.
function(sentrel_precompiled_group group)
  set(empty ${CMAKE_BINARY_DIR}/generated/precompiled_${group}.cpp)
  file(CONFIGURE OUTPUT ${empty} CONTENT "// SPDX-License-Identifier: Apache-2.0\n")
  add_library(sentrel_precompiled_${group} OBJECT EXCLUDE_FROM_ALL ${empty})
  target_precompile_headers(sentrel_precompiled_${group} PRIVATE ${ARGN})
  target_link_libraries(sentrel_precompiled_${group} PRIVATE sentrel_options)
  if(group MATCHES "qt")
    target_link_libraries(sentrel_precompiled_${group} PRIVATE Qt6::Core)
    set(modules Gui Widgets)
    if(group MATCHES "test")
      list(APPEND modules DBus)
    endif()
    foreach(module IN LISTS modules)
      target_include_directories(sentrel_precompiled_${group} SYSTEM PRIVATE
        $<TARGET_PROPERTY:Qt6::${module},INTERFACE_INCLUDE_DIRECTORIES>)
    endforeach()
  endif()
  if(group MATCHES "test")
    target_link_libraries(sentrel_precompiled_${group} PRIVATE GTest::gmock)
    target_compile_options(sentrel_precompiled_${group} PRIVATE -O1)
  endif()
endfunction()

set(core
  <algorithm> <array> <atomic> <cerrno> <chrono> <cmath> <condition_variable> <cstdint> <cstdlib> <cstring> <filesystem>
  <fstream> <functional> <map> <memory> <mutex> <numbers> <optional> <random> <set> <span> <sstream> <stdexcept> <string>
  <string_view> <thread> <utility> <variant> <vector>)
set(qt
  <QAccessible> <QApplication> <QBoxLayout> <QDir> <QElapsedTimer> <QEventLoop> <QFile> <QHash> <QImage> <QKeyEvent>
  <QPainter> <QPainterPath> <QPointer> <QScreen> <QSocketNotifier> <QString> <QStringList> <QTimer> <QUrl>
  <QVariantAnimation> <QVariantMap> <QWidget> <xcb/xcb.h>)
sentrel_precompiled_group(core ${core})
sentrel_precompiled_group(qt ${core} ${qt})
if(SENTREL_TESTS)
  sentrel_precompiled_group(core_test ${core} <gmock/gmock.h>)
  sentrel_precompiled_group(qt_test ${core} ${qt} <QDBusArgument> <QDBusConnection> <QDBusMessage> <QDBusVariant> <gmock/gmock.h>)
endif()
