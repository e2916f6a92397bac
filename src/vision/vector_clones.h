// SPDX-License-Identifier: Apache-2.0
#pragma once

// Before a function with a loop: compiled for the wider instructions of newer processors as well, and the
// widest that the machine has is used, without asking for them in the whole build. Who chooses runs before a
// sanitizer is ready.
#ifdef __has_feature
#define SENTREL_SANITIZED (__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SENTREL_SANITIZED 1
#else
#define SENTREL_SANITIZED 0
#endif
#if defined(__x86_64__) && defined(__gnu_linux__) && !SENTREL_SANITIZED
#define SENTREL_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define SENTREL_CLONES
#endif
