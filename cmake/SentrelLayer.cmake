# SPDX-License-Identifier: Apache-2.0
#
# A layer is a folder of src/ that sees its own headers and those of the layers it names, and no others:
# a header is included as "layer/name.h" through an include root that holds exactly one layer. An include against
# the direction of the layers therefore does not compile.

add_library(sentrel_options INTERFACE)
target_compile_features(sentrel_options INTERFACE cxx_std_20)
target_compile_options(sentrel_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Wold-style-cast
  -Woverloaded-virtual -Wimplicit-fallthrough -Wunused)
# Qt's macro "emit" would break our own signals.
target_compile_definitions(sentrel_options INTERFACE QT_NO_KEYWORDS)
if(SENTREL_WARNINGS_AS_ERRORS)
  target_compile_options(sentrel_options INTERFACE -Werror)
endif()

# sentrel_include_root(<layer> [<folder>]): an INTERFACE target that makes "layer/name.h" visible, from the folder src/<layer>
# unless another one is named.
function(sentrel_include_root layer)
  set(folder src/${layer} ${ARGN})
  list(GET folder -1 folder)
  string(REPLACE "/" "_" name ${layer})
  get_filename_component(leaf ${layer} NAME)
  set(root ${CMAKE_BINARY_DIR}/include/${name})
  get_filename_component(parent ${root}/${layer} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${folder} ${parent}/${leaf} SYMBOLIC)
  add_library(sentrel_${name}_headers INTERFACE)
  target_include_directories(sentrel_${name}_headers INTERFACE ${root})
endfunction()

# sentrel_layer(<layer> USES <layers...> SOURCES <files...> [QT]): an object library of one layer; QT marks one that links Qt.
function(sentrel_layer layer)
  cmake_parse_arguments(PARSE_ARGV 1 arg "QT" "" "USES;SOURCES")
  string(REPLACE "/" "_" name ${layer})
  sentrel_include_root(${layer})
  add_library(sentrel_${name} OBJECT ${arg_SOURCES})
  target_link_libraries(sentrel_${name} PUBLIC sentrel_${name}_headers PRIVATE sentrel_options)
  foreach(used IN LISTS arg_USES)
    string(REPLACE "/" "_" used_name ${used})
    target_link_libraries(sentrel_${name} PUBLIC sentrel_${used_name}_headers)
  endforeach()
  if(arg_QT)
    sentrel_precompiled(sentrel_${name} qt)
  else()
    sentrel_precompiled(sentrel_${name} core)
  endif()
endfunction()
