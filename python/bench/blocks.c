/* The C interface beside the package: what bench/blocks.py loads and times. */
#include "sorvel/sorvel.h"

#include <stdlib.h>
#include <time.h>

__attribute__((visibility("default"))) double
microseconds_per_call(const float* samples, size_t blocks, size_t frames, double rate_hz, int receiver);

/* Of `blocks` pushes of `frames` frames each, and polls after them; negative after a failure. */
double microseconds_per_call(const float* samples, size_t blocks, size_t frames, double rate_hz,
                             int receiver) {
    sorvel_listener_config config = {sizeof config,     1,        rate_hz, "acme",
                                     SORVEL_FORMAT_F32, receiver, NULL,    NULL};
    sorvel_heard heard = {.size = sizeof heard};
    sorvel_listener* listener = NULL;
    struct timespec begin, end;
    size_t block;
    if (sorvel_listener_create(&config, &listener) != SORVEL_OK) return -1.0;
    clock_gettime(CLOCK_MONOTONIC, &begin);
    for (block = 0; block < blocks; ++block) {
        sorvel_listener_push(listener, samples + block * frames, frames);
        while (sorvel_listener_poll(listener, &heard) == 1) {
        }
    }
    clock_gettime(CLOCK_MONOTONIC, &end);
    sorvel_listener_destroy(listener);
    return ((double)(end.tv_sec - begin.tv_sec) * 1e6 + (double)(end.tv_nsec - begin.tv_nsec) * 1e-3) /
           (double)blocks;
}
