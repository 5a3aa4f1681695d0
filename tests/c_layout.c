/* A host compiled as C99: both headers compile, their layout checks hold,
 * and the static library links with the C driver alone (no C++ runtime). */
#include <stdio.h>
#include <string.h>

#include "drlib.h"
#include "drlib_toolkit.h"

int main(void) {
    unsigned char rec[DRLIB_INPUT_SIZE(12)];
    const ImuSample *first = DRLIB_INPUT_SAMPLES(rec);
    if ((const unsigned char *)first - rec != 88) {
        printf("samples start at %d, expected 88\n", (int)((const unsigned char *)first - rec));
        return 1;
    }
    if (sizeof rec != 472) {
        printf("record of 12 samples is %u bytes, expected 472\n", (unsigned)sizeof rec);
        return 1;
    }
    printf("C layout: DrInput %u, ImuSample %u, DrCfg %u, HwCfg %u, TiltStat %u bytes\n",
           (unsigned)sizeof(DrInput), (unsigned)sizeof(ImuSample), (unsigned)sizeof(DrCfg),
           (unsigned)sizeof(HwCfg), (unsigned)sizeof(TiltStat));
    return 0;
}
