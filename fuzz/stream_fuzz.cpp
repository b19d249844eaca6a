// Configurations, calls and sound of any kind: refused with a code or taken, never overrun, and
// what is heard is in order.
#include "sorvel/sorvel.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace {

void hear(const std::uint8_t* data, std::size_t size, const std::string& prefix) {
    sorvel_listener_config config{};
    std::memcpy(&config, data, sizeof config);
    config.prefix = prefix.c_str();
    config.on_heard = nullptr;
    config.size = std::min<std::uint32_t>(config.size, sizeof config); // what lies behind is not ours
    sorvel_listener* listener = nullptr;
    if (sorvel_listener_create(&config, &listener) != SORVEL_OK) return;
    const std::size_t frameBytes =
        std::max<std::size_t>(config.channels, 1) * (config.format == SORVEL_FORMAT_I16 ? 2 : 4);
    sorvel_heard heard{};
    heard.size = sizeof heard;
    std::size_t call = 0;
    while (size >= frameBytes) {
        const std::size_t frames = std::min<std::size_t>(data[0] * 7U + 1U, size / frameBytes);
        sorvel_listener_push(listener, data, frames);
        data += frames * frameBytes;
        size -= frames * frameBytes;
        if (++call % 9 == 0) sorvel_listener_finish(listener);
        if (call % 31 == 0) sorvel_listener_reset(listener);
        while (sorvel_listener_poll(listener, &heard) == 1)
            if (heard.length >= sizeof heard.text || heard.text[heard.length] != '\0') __builtin_trap();
    }
    sorvel_listener_destroy(listener);
}

void send(const std::uint8_t* data, std::size_t size, const std::string& content) {
    sorvel_sender_config config{};
    if (size < sizeof config) return;
    std::memcpy(&config, data, sizeof config);
    config.size = std::min<std::uint32_t>(config.size, sizeof config);
    sorvel_sender* sender = nullptr;
    if (sorvel_sender_create(&config, &sender) != SORVEL_OK) return;
    std::size_t frames = 0, written = 0;
    if (sorvel_sender_count(sender, content.data(), content.size(), &frames) == SORVEL_OK) {
        std::vector<std::uint8_t> samples(frames * (config.format == SORVEL_FORMAT_I16 ? 2 : 4));
        sorvel_sender_send(sender, content.data(), content.size(), samples.data(), frames, &written);
        if (written != frames) __builtin_trap();
    }
    sorvel_sender_destroy(sender);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kText = 20;
    if (size < kText + sizeof(sorvel_listener_config)) return 0;
    const std::string text(reinterpret_cast<const char*>(data + 1),
                           std::min<std::size_t>(data[0] % kText, kText - 1));
    send(data + kText, size - kText, text);
    hear(data + kText, size - kText, text);
    std::uint8_t payload[SORVEL_PAYLOAD_BYTES];
    char unpacked[SORVEL_MOST_TEXT_CHARACTERS + 1];
    if (sorvel_pack(text.data(), text.size(), payload) == SORVEL_OK &&
        (sorvel_unpack(payload, unpacked) != SORVEL_OK || text != unpacked))
        __builtin_trap();
    return 0;
}
