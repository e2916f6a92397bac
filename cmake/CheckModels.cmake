# SPDX-License-Identifier: Apache-2.0
#
# cmake -DSUMS=file -DFOLDER=folder -DLINK=path -P CheckModels.cmake: fails unless the folder holds every file of the
# list with its SHA-256, then makes the link to the folder.
file(STRINGS ${SUMS} sums)
foreach(line IN LISTS sums)
  string(REGEX MATCH "^([0-9a-f]+)  (.+)$" matched "${line}")
  set(file ${FOLDER}/${CMAKE_MATCH_2})
  set(expected ${CMAKE_MATCH_1})
  if(NOT EXISTS ${file})
    message(FATAL_ERROR "The face model ${file} is missing: run scripts/fetch-models")
  endif()
  file(SHA256 ${file} found)
  if(NOT found STREQUAL expected)
    message(FATAL_ERROR "The face model ${file} is damaged: remove it and run scripts/fetch-models")
  endif()
endforeach()
# Also where the build folder was made for another place.
if(IS_SYMLINK ${LINK})
  file(READ_SYMLINK ${LINK} target)
endif()
if(NOT target STREQUAL FOLDER)
  get_filename_component(parent ${LINK} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  file(CREATE_LINK ${FOLDER} ${LINK} SYMBOLIC)
endif()
