/// The stream interface as C++ tests use it.
#pragma once

#include "sorvel/sorvel.h"
#include "tests/support/transmissions.hpp"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

using Texts = std::vector<std::string>;

inline sorvel_listener_config listening(double rate_hz, const char* prefix = "acme",
                                        int receiver = SORVEL_RECEIVER_CLASSIC) {
    sorvel_listener_config config{};
    config.size = sizeof config;
    config.sample_rate_hz = rate_hz;
    config.prefix = prefix;
    config.receiver = receiver;
    return config;
}

inline sorvel_sender_config sending(double rate_hz, int content = SORVEL_CONTENT_TEXTS) {
    sorvel_sender_config config{};
    config.size = sizeof config;
    config.sample_rate_hz = rate_hz;
    config.content = content;
    return config;
}

using ListenerHandle = std::unique_ptr<sorvel_listener, decltype(&sorvel_listener_destroy)>;
using SenderHandle = std::unique_ptr<sorvel_sender, decltype(&sorvel_sender_destroy)>;

inline ListenerHandle made(const sorvel_listener_config& config) {
    sorvel_listener* listener = nullptr;
    const int code = sorvel_listener_create(&config, &listener);
    if (code != SORVEL_OK) throw std::runtime_error(sorvel_error_text(code));
    return {listener, sorvel_listener_destroy};
}

inline SenderHandle made(const sorvel_sender_config& config) {
    sorvel_sender* sender = nullptr;
    const int code = sorvel_sender_create(&config, &sender);
    if (code != SORVEL_OK) throw std::runtime_error(sorvel_error_text(code));
    return {sender, sorvel_sender_destroy};
}

/// What a sender of floats makes of `content`.
inline Samples soundOf(const std::string& content, double rate_hz, int kind = SORVEL_CONTENT_TEXTS) {
    const SenderHandle sender = made(sending(rate_hz, kind));
    std::size_t frames = 0;
    if (sorvel_sender_count(sender.get(), content.data(), content.size(), &frames) != SORVEL_OK)
        throw std::runtime_error("count");
    Samples samples(frames);
    if (sorvel_sender_send(sender.get(), content.data(), content.size(), samples.data(), frames, nullptr) !=
        SORVEL_OK)
        throw std::runtime_error("send");
    return samples;
}

inline Samples pause(double duration_s, double rate_hz) {
    return silence(static_cast<std::size_t>(duration_s * rate_hz));
}

inline std::vector<sorvel_heard> polled(sorvel_listener* listener) {
    std::vector<sorvel_heard> all;
    sorvel_heard heard{};
    heard.size = sizeof heard;
    while (sorvel_listener_poll(listener, &heard) == 1) all.push_back(heard);
    return all;
}

/// Bytes and all: a message may hold zeros.
inline std::string textOf(const sorvel_heard& heard) { return {heard.text, heard.length}; }

inline Texts textsOf(const std::vector<sorvel_heard>& all) {
    Texts texts;
    for (const sorvel_heard& heard : all) texts.push_back(textOf(heard));
    return texts;
}

/// Pushes mono sound in blocks of `block` frames.
template <typename Sample>
void push(sorvel_listener* listener, const std::vector<Sample>& sound, std::size_t block = 480) {
    for (std::size_t at = 0; at < sound.size(); at += block)
        sorvel_listener_push(listener, sound.data() + at, std::min(block, sound.size() - at));
}

inline Texts textsIn(const sorvel_listener_config& config, const Samples& sound) {
    const ListenerHandle listener = made(config);
    push(listener.get(), sound);
    sorvel_listener_finish(listener.get());
    return textsOf(polled(listener.get()));
}
