// SPDX-License-Identifier: Apache-2.0
#pragma once

// Before a function with a loop: compiled for the wider instructions of newer processors as well, and the
// widest that the machine has is used, without asking for them in the whole build.
#if defined(__x86_64__) && defined(__gnu_linux__) && !defined(__SANITIZE_ADDRESS__)
#define SENTREL_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define SENTREL_CLONES
#endif
