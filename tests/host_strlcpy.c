/* A host that needs libdrlib.so (first in its load order) and a library
 * exporting strlcpy under its own version node: that library's calls must
 * keep its own strlcpy, not the library's same-named one. */
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "drlib.h"

size_t bsd_copy(char *dst, const char *src, size_t size);

int main(void) {
    char version[64], buf[8];
    DrlibVerInfo(version, (int32_t)sizeof version);   /* libdrlib.so is needed and loaded */
    const size_t got = bsd_copy(buf, "survey", 4);     /* BSD: length of the source */
    printf("%s; bsd_copy(\"survey\", 4) = %u, \"%s\"\n", version, (unsigned)got, buf);
    return got == 6 && strcmp(buf, "sur") == 0 ? 0 : 1;
}
