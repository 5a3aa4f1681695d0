/* Deepest stack use of DrlibUpdateFusion, measured by painting: the replay
 * runs on a thread whose stack is filled with a pattern first; afterwards the
 * lowest overwritten byte, taken from the frame that makes the calls, is the
 * depth the library reached (its callback, which copies the status, included).
 * Each log runs with the built-in configuration and with the recommended
 * options word.
 * usage: drlib_stack_depth LOG...   (logs written by drlib-sim) */
#define _XOPEN_SOURCE 600  /* pthread_attr_setstack */
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "drlib.h"

#define STACK_BYTES (256u * 1024u)
#define PAINT 0xA5

static unsigned char g_stack[STACK_BYTES] __attribute__((aligned(64)));
static TiltStat g_last;
static uintptr_t g_caller_sp;

static void on_tilt(const TiltStat *st) { memcpy(&g_last, st, sizeof g_last); }

static FILE *g_log;
static const DrCfg *g_cfg;

static void *replay(void *unused) {
    (void)unused;
    static union { DrInput head; unsigned char bytes[DRLIB_INPUT_SIZE(255)]; } rec;
    FILE *f = g_log;
    volatile unsigned char marker = 0;
    g_caller_sp = (uintptr_t)&marker;
    DrlibInit(g_cfg);
    DrlibRegisterCB(on_tilt);
    while (fread(rec.bytes, sizeof(DrInput), 1, f) == 1) {
        const size_t rest = DRLIB_INPUT_SIZE(rec.head.nsamples) - sizeof(DrInput);
        if (fread(rec.bytes + sizeof(DrInput), 1, rest, f) != rest) break;
        DrlibUpdateFusion(&rec.head);
    }
    return NULL;
}

int main(int argc, char **argv) {
    DrCfg options = {0};
    options.options = DRLIB_OPTIONS_MARKER | DRLIB_OPT_ALIGNED_VELOCITY | DRLIB_OPT_SCREEN_SOLUTIONS;
    options.gyro_scale = 1.0058283805847168e-06;  /* the built-in scale factors */
    options.acc_scale = 1.862645149230957e-07;
    const DrCfg *configs[2] = {NULL, &options};
    size_t deepest = 0;
    for (int i = 1; i < argc; ++i) {
        for (int c = 0; c < 2; ++c) {
            g_log = fopen(argv[i], "rb");
            if (g_log == NULL) { fprintf(stderr, "cannot open %s\n", argv[i]); return 2; }
            g_cfg = configs[c];
            memset(g_stack, PAINT, sizeof g_stack);
            pthread_attr_t attr;
            pthread_t thread;
            pthread_attr_init(&attr);
            pthread_attr_setstack(&attr, g_stack, sizeof g_stack);
            if (pthread_create(&thread, &attr, replay, NULL) != 0) { fprintf(stderr, "no thread\n"); return 2; }
            pthread_join(thread, NULL);
            fclose(g_log);
            size_t low = 0;
            while (low < sizeof g_stack && g_stack[low] == PAINT) ++low;
            const size_t depth = g_caller_sp - (uintptr_t)(g_stack + low);
            printf("%s (%s): %zu bytes below the caller's frame\n", argv[i],
                   c ? "recommended options" : "built-in configuration", depth);
            if (depth > deepest) deepest = depth;
        }
    }
    printf("deepest: %zu bytes\n", deepest);
    return 0;
}
