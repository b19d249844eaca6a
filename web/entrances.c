/* What JavaScript calls: the stream interface with arguments that are numbers, so that no layout of a C
 * struct has to be known there. One instance of the module holds one listener or one sender. */
#include "sorvel/sorvel.h"

#include <stdlib.h>

#define ENTRANCE(name) __attribute__((export_name(#name), used)) name

static sorvel_listener* listener;
static sorvel_sender* sender;
static sorvel_heard heard;

/* Room that JavaScript fills or reads; it lasts as long as the instance. 0: there is none. */
void* ENTRANCE(room)(size_t bytes) { return malloc(bytes); }

const char* ENTRANCE(errorText)(int code) { return sorvel_error_text(code); }
const char* ENTRANCE(version)(void) { return sorvel_version_string(); }

/* Each answers SORVEL_OK or what is wrong. */
int ENTRANCE(listen)(double sample_rate_hz, uint32_t channels, int32_t receiver, const char* prefix) {
    const sorvel_listener_config config = {.size = sizeof config,
                                           .channels = channels,
                                           .sample_rate_hz = sample_rate_hz,
                                           .prefix = prefix,
                                           .format = SORVEL_FORMAT_F32,
                                           .receiver = receiver};
    return sorvel_listener_create(&config, &listener);
}
int ENTRANCE(push)(const float* samples, size_t frames) {
    return sorvel_listener_push(listener, samples, frames);
}
int ENTRANCE(finish)(void) { return sorvel_listener_finish(listener); }

/* 1: there is a text, which the next six tell of. */
int ENTRANCE(poll)(void) {
    heard.size = sizeof heard;
    return sorvel_listener_poll(listener, &heard);
}
const char* ENTRANCE(heardText)(void) { return heard.text; }
double ENTRANCE(heardEnd_s)(void) { return heard.end_s; }
uint32_t ENTRANCE(hasQuality)(void) { return heard.has_quality; }
float ENTRANCE(snr_db)(void) { return heard.snr_db; }
float ENTRANCE(speed_m_s)(void) { return heard.speed_m_s; }
float ENTRANCE(echo)(void) { return heard.echo; }
float ENTRANCE(margin)(void) { return heard.margin; }

int ENTRANCE(prepareToSend)(double sample_rate_hz, int32_t volume_percent) {
    const sorvel_sender_config config = {.size = sizeof config,
                                         .format = SORVEL_FORMAT_F32,
                                         .sample_rate_hz = sample_rate_hz,
                                         .volume_percent = volume_percent};
    return sorvel_sender_create(&config, &sender);
}
/* Samples that `send` will write, or what is wrong with the text. */
int ENTRANCE(count)(const char* text, size_t characters) {
    size_t frames = 0;
    const int wrong = sorvel_sender_count(sender, text, characters, &frames);
    return wrong != SORVEL_OK ? wrong : (int)frames;
}
int ENTRANCE(send)(const char* text, size_t characters, float* samples, size_t frames) {
    return sorvel_sender_send(sender, text, characters, samples, frames, NULL);
}
