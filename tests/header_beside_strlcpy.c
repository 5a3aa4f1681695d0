/* A host unit that sees the strlcpy of glibc 2.38 and later, as <string.h>
 * declares it there (always in C++, in C with _DEFAULT_SOURCE): drlib.h must
 * compile beside it, as C99 and as C++17. */
#include <stddef.h>

#ifdef __cplusplus
extern "C"
#endif
size_t strlcpy(char *dst, const char *src, size_t size);

#include "drlib.h"

size_t host_copy_name(char *dst, size_t size) {
    return strlcpy(dst, "drlib", size) + DRLIB_INPUT_SIZE(0) - sizeof(DrInput);
}
