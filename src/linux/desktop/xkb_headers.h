// SPDX-License-Identifier: Apache-2.0
#pragma once

// The X library's C header of the keyboard extension has a field with the name of a C++ keyword.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit
