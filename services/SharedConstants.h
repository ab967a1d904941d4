// The constants of services/SharedConstants.def, for the library.
#pragma once

#include <cstdint>

#define KZT_INT(name, value) constexpr int32_t name = value;
#define KZT_LONG(name, value) constexpr uint64_t name = value;
#define KZT_TEXT(name, value) constexpr char name[] = value;
#include "services/SharedConstants.def"
#undef KZT_INT
#undef KZT_LONG
#undef KZT_TEXT
