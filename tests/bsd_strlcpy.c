/* Another library's strlcpy, under a version node of its own, with the BSD
 * and glibc semantics (it returns the length of the source). bsd_copy calls
 * it through the dynamic linker, as any caller in another module would. */
#include <stddef.h>
#include <string.h>

size_t strlcpy(char *dst, const char *src, size_t size);

size_t strlcpy(char *dst, const char *src, size_t size) {
    size_t len = strlen(src);
    if (size > 0) {
        size_t n = len < size - 1 ? len : size - 1;
        memcpy(dst, src, n);
        dst[n] = '\0';
    }
    return len;
}

size_t bsd_copy(char *dst, const char *src, size_t size) { return strlcpy(dst, src, size); }
