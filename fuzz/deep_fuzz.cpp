// Rates, prefixes, block lengths and samples of any kind, with pieces of transmissions among them: the
// receiver may refuse or hear nothing, never overrun, hang or end the process.
#include "deep/receiver.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <vector>

namespace {

constexpr std::size_t kMost_samples = 200'000; // some 4 s, a transmission and more

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}
    bool isEmpty() const { return m_size == 0; }
    template <typename Value>
    Value take() {
        Value value{};
        const std::size_t count = std::min(sizeof value, m_size);
        std::memcpy(&value, m_data, count);
        m_data += count;
        m_size -= count;
        return value;
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
};

/// One coded byte's sound, as long as asked for.
void addChunk(std::vector<float>& sound, unsigned coded, double rate_hz, double length_s) {
    const double low_hz = 18000.0 + 46.875 * (coded & 15U);
    const double high_hz = 18750.0 + 46.875 * (coded >> 4U);
    const auto count = static_cast<std::size_t>(length_s * rate_hz);
    for (std::size_t i = 0; i < count && sound.size() < kMost_samples; ++i) {
        const double turn = 2.0 * std::numbers::pi * static_cast<double>(i) / rate_hz;
        sound.push_back(static_cast<float>(0.25 * (std::sin(turn * low_hz) + std::sin(turn * high_hz))));
    }
}

void addSounds(std::vector<float>& sound, Input& input, double rate_hz) {
    while (!input.isEmpty() && sound.size() < kMost_samples) {
        const auto kind = input.take<std::uint8_t>();
        const std::size_t count = kind / 8U + 1U;
        if (kind % 8 < 4) {
            for (std::size_t i = 0; i < count; ++i)
                addChunk(sound, input.take<std::uint8_t>(), rate_hz, 0.192);
        } else if (kind % 8 == 4) {
            for (std::size_t i = 0; i < count; ++i) sound.push_back(input.take<float>()); // of any bits
        } else if (kind % 8 == 5) {
            addChunk(sound, input.take<std::uint8_t>(), rate_hz, 0.01 * static_cast<double>(count));
        } else {
            const float level = kind % 8 == 6 ? input.take<float>() : 0.0F;
            sound.insert(sound.end(), count * 400, level);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const auto choice = input.take<std::uint8_t>();
    const double rates_hz[] = {48000.0, 44100.0, 32000.0 + 5.5 * input.take<std::uint16_t>()};
    const double rate_hz = choice % 4 == 3 ? input.take<double>() : rates_hz[choice % 4];
    std::array<char, 16> prefix{};
    const std::size_t prefixLength = choice / 4 % 17;
    for (std::size_t i = 0; i < prefixLength; ++i) prefix[i] = input.take<char>();
    const bool is16Bit = choice >= 128;
    const std::size_t block = input.take<std::uint8_t>() * 97U + 1U;

    sorvel::deep::Receiver receiver(rate_hz, {prefix.data(), prefixLength});
    std::vector<float> sound;
    addSounds(sound, input, receiver.isReady() ? rate_hz : 48000.0);
    std::vector<std::int16_t> rounded;
    for (const float x : sound)
        rounded.push_back(static_cast<std::int16_t>(std::abs(x) <= 1.0F ? 32767.0F * x : 0.0F));

    sorvel::deep::Reception heard;
    const auto poll = [&] {
        while (receiver.poll(heard))
            if (heard.text.back() != 0 || !std::isfinite(heard.end_s) || !std::isfinite(heard.snr_db))
                __builtin_trap();
    };
    for (std::size_t at = 0; at < sound.size(); at += block) {
        const std::size_t count = std::min(block, sound.size() - at);
        if (is16Bit)
            receiver.push(std::span<const std::int16_t>(rounded).subspan(at, count));
        else
            receiver.push(std::span<const float>(sound).subspan(at, count));
        if (at % 3 == 0) poll();
    }
    receiver.finish();
    poll();
    receiver.reset();
    receiver.finish();
    if (receiver.poll(heard)) __builtin_trap();
    return 0;
}
