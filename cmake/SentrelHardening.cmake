# SPDX-License-Identifier: Apache-2.0
#
# What makes a fault in the program harder to exploit, and its binary the same whoever builds it and wherever. Checked by
# scripts/check-binary on the finished program.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported()

add_compile_options(-fstack-protector-strong -fstack-clash-protection)
check_cxx_compiler_flag(-fcf-protection=full SENTREL_HAS_CF_PROTECTION)  # x86 alone
if(SENTREL_HAS_CF_PROTECTION)
  add_compile_options(-fcf-protection=full)
endif()
# It needs optimisation, and the sanitizers check the same calls themselves.
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug" AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
endif()
add_compile_definitions($<$<COMPILE_LANGUAGE:CXX>:_GLIBCXX_ASSERTIONS>)
add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)

# No folder of the machine that builds, and no time of day, gets into the binary.
# The last map that matches counts.
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}=. -ffile-prefix-map=${CMAKE_BINARY_DIR}=build)
