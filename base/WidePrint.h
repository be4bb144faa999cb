#pragma once

#include "base/Export.h"

#include <cstddef>

// Lays a text out as EString::Format does into a buffer of `count` characters, always ended by a null character. The
// number of characters before it, or -1 when the text did not fit and was cut (count 0: nothing is written).
KVBASE_API int _em_swprintf(wchar_t* buffer, std::size_t count, const wchar_t* format, ...);
