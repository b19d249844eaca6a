/* A text to sound, and heard again in blocks of 128 samples, as browsers and sound cards hand them over. */
#include "sorvel/sorvel.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void) {
    const char* const text = "acme_1234";
    sorvel_sender_config sending = {sizeof sending, SORVEL_FORMAT_F32, 48000, SORVEL_CONTENT_TEXTS, 50};
    sorvel_listener_config listening = {sizeof listening, 1, 48000, "acme", 0, 0, NULL, NULL};
    sorvel_heard heard = {.size = sizeof heard};
    sorvel_sender* sender = NULL;
    sorvel_listener* listener = NULL;
    size_t frames = 0, at;
    int code = sorvel_sender_create(&sending, &sender);
    if (code == SORVEL_OK) code = sorvel_listener_create(&listening, &listener);
    if (code == SORVEL_OK) code = sorvel_sender_count(sender, text, strlen(text), &frames);
    float* samples = calloc(frames + 48000, sizeof *samples); /* a second of silence behind it */
    if (code == SORVEL_OK) code = sorvel_sender_send(sender, text, strlen(text), samples, frames, NULL);
    if (code != SORVEL_OK) return fprintf(stderr, "%s\n", sorvel_error_text(code)), 1;

    for (at = 0; at + 128 <= frames + 48000; at += 128) {
        sorvel_listener_push(listener, samples + at, 128);
        while (sorvel_listener_poll(listener, &heard) == 1) printf("%.2f s: %s\n", heard.end_s, heard.text);
    }
    free(samples);
    sorvel_sender_destroy(sender);
    sorvel_listener_destroy(listener);
    return strcmp(heard.text, text) == 0 ? 0 : 1;
}
