// Bounded string helpers: they never write past the size they are given and
// always terminate what they write.
#include <stdarg.h>
#include <stdio.h>

// The one unit of the library that declares strlcpy (see cmake/library.cmake);
// it includes nothing that declares the C library's.
#undef DRLIB_TOOLKIT_NO_STRLCPY
#include "drlib_toolkit.h"

extern "C" {

DRLIB_API uint32_t slprintf(char *s, uint32_t maxlen, const char *format, ...) {
    if (s == nullptr || maxlen == 0U) return 0;
    va_list args;
    va_start(args, format);
    const int n = vsnprintf(s, maxlen, format, args);
    va_end(args);
    if (n < 0) {
        s[0] = '\0';
        return 0;
    }
    if (static_cast<uint32_t>(n) >= maxlen) {
        s[maxlen - 1U] = '\0';  // cut: report what was stored
        return maxlen - 1U;
    }
    return static_cast<uint32_t>(n);
}

DRLIB_API int32_t strlcpy(char *dst, const char *src, uint32_t size) {
    if (dst == nullptr || src == nullptr || size == 0U) return 0;
    for (uint32_t i = 0; i + 1U < size; ++i) {
        dst[i] = src[i];
        if (src[i] == '\0') return static_cast<int32_t>(i + 1U);
    }
    dst[size - 1U] = '\0';
    return static_cast<int32_t>(size);
}

}  // extern "C"
