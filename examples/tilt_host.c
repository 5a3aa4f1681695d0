/*
 * tilt_host: a minimal host of libdrlib.
 *
 * Reads an input log (DrInput records, each followed by its ImuSample
 * records, as drlib-sim writes them), feeds it to the library record by
 * record and prints one line per tilt status.
 *
 * usage: tilt_host LOG [POLE_HEIGHT_M]
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "drlib.h"

static unsigned long g_status_lines;
static unsigned long g_class_counts[4];

/* The record lives only during the call: print (or copy) it here. */
static void on_tilt(const TiltStat *stat) {
    const double deg = 57.29577951308232;
    TiltStat s;
    memcpy(&s, stat, sizeof s);
    printf("%10u %u %8.3f %8.3f %8.3f %15.4f %15.4f %15.4f %7.4f %7.4f %7.4f\n", (unsigned)s.tow_ms,
           (unsigned)s.status, s.att[0] * deg, s.att[1] * deg, s.att[2] * deg, s.tip_pos[0],
           s.tip_pos[1], s.tip_pos[2], (double)s.tip_std_total[0], (double)s.tip_std_total[1],
           (double)s.tip_std_total[2]);
    ++g_status_lines;
    if (s.status < 4) ++g_class_counts[s.status];
}

/* Reads one record (header and samples) into buf; 0 at the end of the log. */
static int read_record(FILE *f, unsigned char *buf, size_t cap, const char **error) {
    DrInput header;
    size_t n = fread(buf, 1, sizeof header, f);
    *error = NULL;
    if (n == 0) return 0;
    if (n != sizeof header) {
        *error = "truncated record header";
        return 0;
    }
    memcpy(&header, buf, sizeof header);
    if (DRLIB_INPUT_SIZE(header.nsamples) > cap) {
        *error = "record too large";
        return 0;
    }
    n = fread(buf + sizeof header, sizeof(ImuSample), header.nsamples, f);
    if (n != header.nsamples) {
        *error = "truncated IMU samples";
        return 0;
    }
    return 1;
}

int main(int argc, char **argv) {
    /* Large enough for any nsamples a record header can state; doubles keep it aligned. */
    double storage[(DRLIB_INPUT_SIZE(255) + sizeof(double) - 1) / sizeof(double)];
    unsigned char *buf = (unsigned char *)storage;
    double pole[3] = {0.0, 0.0, 1.892};
    char version[64];
    unsigned long records = 0, rejected = 0;
    const char *error = NULL;
    FILE *f;

    if (argc < 2 || argc > 3) {
        fprintf(stderr, "usage: %s LOG [POLE_HEIGHT_M]\n", argv[0]);
        return 2;
    }
    if (argc == 3) pole[2] = atof(argv[2]);
    f = fopen(argv[1], "rb");
    if (f == NULL) {
        fprintf(stderr, "%s: cannot open %s\n", argv[0], argv[1]);
        return 2;
    }

    DrlibVerInfo(version, (int32_t)sizeof version);
    printf("# %s\n", version);
    DrlibInit(NULL);            /* built-in configuration */
    DrlibRegisterCB(on_tilt);   /* after DrlibInit, which clears it */
    DrlibSetHwCfg(pole);        /* antenna relative to the tip, body axes */
    printf("# tow_ms status roll_deg pitch_deg heading_deg tip_x tip_y tip_z std_n std_e std_d\n");

    while (read_record(f, buf, sizeof storage, &error)) {
        ++records;
        if (DrlibUpdateFusion((const DrInput *)(const void *)buf) != 0) ++rejected;
    }
    fclose(f);
    DrlibDestroy(NULL);

    printf("# records %lu, rejected %lu, status lines %lu (class 0: %lu, 1: %lu, 2: %lu, 3: %lu)\n",
           records, rejected, g_status_lines, g_class_counts[0], g_class_counts[1],
           g_class_counts[2], g_class_counts[3]);
    if (error != NULL) {
        fprintf(stderr, "%s: %s after %lu records\n", argv[0], error, records);
        return 1;
    }
    /* A log with no accepted record, or one that never reaches a tilt solution, is a failure here. */
    return (records > 0 && g_status_lines == records - rejected &&
            g_class_counts[1] + g_class_counts[2] + g_class_counts[3] > 0) ? 0 : 1;
}
