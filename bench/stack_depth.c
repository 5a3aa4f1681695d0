/* Deepest stack use of DrlibUpdateFusion, measured by painting: the replay
 * runs on a thread whose stack is filled with a pattern first; afterwards the
 * lowest overwritten byte, taken from the frame that makes the calls, is the
 * depth the library reached (its callback, which copies the status, included).
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

static void *replay(void *arg) {
    FILE *f = (FILE *)arg;
    static union { DrInput head; unsigned char bytes[DRLIB_INPUT_SIZE(255)]; } rec;
    volatile unsigned char marker = 0;
    g_caller_sp = (uintptr_t)&marker;
    DrlibInit(NULL);
    DrlibRegisterCB(on_tilt);
    while (fread(rec.bytes, sizeof(DrInput), 1, f) == 1) {
        const size_t rest = DRLIB_INPUT_SIZE(rec.head.nsamples) - sizeof(DrInput);
        if (fread(rec.bytes + sizeof(DrInput), 1, rest, f) != rest) break;
        DrlibUpdateFusion(&rec.head);
    }
    return NULL;
}

int main(int argc, char **argv) {
    size_t deepest = 0;
    for (int i = 1; i < argc; ++i) {
        FILE *f = fopen(argv[i], "rb");
        if (f == NULL) { fprintf(stderr, "cannot open %s\n", argv[i]); return 2; }
        memset(g_stack, PAINT, sizeof g_stack);
        pthread_attr_t attr;
        pthread_t thread;
        pthread_attr_init(&attr);
        pthread_attr_setstack(&attr, g_stack, sizeof g_stack);
        if (pthread_create(&thread, &attr, replay, f) != 0) { fprintf(stderr, "no thread\n"); return 2; }
        pthread_join(thread, NULL);
        fclose(f);
        size_t low = 0;
        while (low < sizeof g_stack && g_stack[low] == PAINT) ++low;
        const size_t depth = g_caller_sp - (uintptr_t)(g_stack + low);
        printf("%s: %zu bytes below the caller's frame\n", argv[i], depth);
        if (depth > deepest) deepest = depth;
    }
    printf("deepest: %zu bytes\n", deepest);
    return 0;
}
