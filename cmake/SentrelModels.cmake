# SPDX-License-Identifier: Apache-2.0
#
# The face models are data in build/models of the source folder, put there by scripts/fetch-models. The digests that
# they must have go into the program, the files into the data folder: <prefix>/share/sentrel/models once installed,
# <build folder>/share/sentrel/models (a link) in a build tree, so that the program finds both by the same rule.

set(SENTREL_MODEL_SOURCE ${CMAKE_SOURCE_DIR}/build/models)

file(STRINGS ${CMAKE_SOURCE_DIR}/models/SHA256SUMS sums)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/models/SHA256SUMS)
set(SENTREL_MODEL_DIGESTS "")
set(model_files "")
foreach(line IN LISTS sums)
  string(REGEX MATCH "^([0-9a-f]+)  (.+)$" matched "${line}")
  string(APPEND SENTREL_MODEL_DIGESTS "    {\"${CMAKE_MATCH_2}\",\n     \"${CMAKE_MATCH_1}\"},\n")
  list(APPEND model_files ${SENTREL_MODEL_SOURCE}/${CMAKE_MATCH_2})
endforeach()
configure_file(${CMAKE_SOURCE_DIR}/src/vision/model_constants.h.in ${CMAKE_BINARY_DIR}/generated/model_constants.h @ONLY)

# Checked in every build, because it costs milliseconds and the files are not part of the repository.
add_custom_target(sentrel_models ALL
  COMMAND ${CMAKE_COMMAND} -DSUMS=${CMAKE_SOURCE_DIR}/models/SHA256SUMS -DFOLDER=${SENTREL_MODEL_SOURCE}
          -DLINK=${CMAKE_BINARY_DIR}/share/sentrel/models -P ${CMAKE_SOURCE_DIR}/cmake/CheckModels.cmake
  COMMENT "" VERBATIM)

install(FILES ${model_files} DESTINATION ${CMAKE_INSTALL_DATADIR}/sentrel/models)
install(FILES ${CMAKE_SOURCE_DIR}/models/NOTICE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME NOTICE.models)
