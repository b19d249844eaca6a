// A program with names of its own that libsorvel.a uses inside.
#include "sorvel/sorvel.h"

#include <cstdlib>
#include <cstring>
#include <vector>

void rdft(int n, int isgn, float* a, int* ip, float* w);
void makewt(int nw, int* ip, float* w);

// Whoever calls one of these from inside the library ends the program.
void rdft(int, int, float*, int*, float*) { std::abort(); }
void makewt(int, int*, float*) { std::abort(); }
class Resampler {
public:
    Resampler();
    int resample(float factor, int nSamples, const float* samplesInp, float* samplesOut);
};
Resampler::Resampler() = default;
int Resampler::resample(float, int, const float*, float*) { std::abort(); }

int main() {
    const sorvel_sender_config sending{sizeof sending, SORVEL_FORMAT_I16, 44100, SORVEL_CONTENT_TEXTS, 80};
    const sorvel_listener_config listening{
        sizeof listening, 1, 44100, "acme", SORVEL_FORMAT_I16, SORVEL_RECEIVER_CLASSIC, nullptr, nullptr};
    sorvel_sender* sender = nullptr;
    sorvel_listener* listener = nullptr;
    std::size_t frames = 0;
    if (sorvel_sender_create(&sending, &sender) != SORVEL_OK) return 1;
    if (sorvel_listener_create(&listening, &listener) != SORVEL_OK) return 1;
    sorvel_sender_count(sender, "acme_1", 6, &frames);
    std::vector<short> samples(frames);
    sorvel_sender_send(sender, "acme_1", 6, samples.data(), frames, &frames);
    sorvel_listener_push(listener, samples.data(), frames);
    sorvel_listener_finish(listener);
    sorvel_heard heard{};
    heard.size = sizeof heard;
    const bool wasHeard =
        sorvel_listener_poll(listener, &heard) == 1 && std::strcmp(heard.text, "acme_1") == 0;
    sorvel_listener_destroy(listener);
    sorvel_sender_destroy(sender);
    const Resampler mine;
    static_cast<void>(mine);
    return wasHeard ? 0 : 1;
}
