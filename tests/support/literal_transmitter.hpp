#pragma once

#include "modem/ggwave.h"
#include "tests/support/slow_rs.hpp"

#include <cmath>
#include <numbers>
#include <string>
#include <string_view>
#include <vector>

/// A transmission as its closed form: every sample a sum of sines under an envelope, in double.
/// Shares nothing with the modem but the parameters.
struct LiteralTransmission {
    std::vector<double> samples; // at the operating rate
    std::vector<int> tones;      // indices, 255 after each step

    LiteralTransmission(const ggwave_Parameters& parameters, const GGWave::Protocol& p,
                        std::string_view payload, int volume) {
        const bool isFixed = parameters.payloadLength > 0;
        const std::size_t length =
            isFixed ? static_cast<std::size_t>(parameters.payloadLength) : payload.size();
        std::vector<std::uint8_t> data(length);
        std::copy(payload.begin(), payload.end(), data.begin());
        if ((parameters.operatingMode & GGWAVE_OPERATING_MODE_USE_DSS) != 0)
            for (std::size_t i = 0; i < length; ++i) data[i] ^= static_cast<std::uint8_t>(kSpreading[i % 64]);
        std::vector<std::uint8_t> coded;
        if (!isFixed) coded = slow_rs::encode({static_cast<std::uint8_t>(length)}, 2);
        const auto word = slow_rs::encode(data, length < 4 ? 2 : std::max<std::size_t>(4, length / 5 * 2));
        coded.insert(coded.end(), word.begin(), word.end());

        const int bytes = p.bytesPerTx, frames = p.framesPerTx, marker = isFixed ? 0 : 16;
        const int chunks = (static_cast<int>(coded.size()) + bytes - 1) / bytes * p.extra;
        coded.resize(coded.size() + static_cast<std::size_t>((chunks + 1) * bytes)); // zeros behind the word
        const auto dataTones = [&](int step) {
            std::vector<int> result;
            for (int j = 0; j < bytes; ++j) {
                const int value = coded[static_cast<std::size_t>(step * bytes / p.extra + j)];
                const bool isHigh = step * bytes % p.extra != 0;
                if (p.extra == 1)
                    result.insert(result.end(), {32 * j + value % 16, 32 * j + 16 + value / 16});
                if (p.extra == 2) result.push_back(32 * j + (isHigh ? value / 16 : value % 16));
            }
            return result;
        };
        const auto markerTones = [](bool isStart) {
            std::vector<int> result;
            for (int i = 0; i < 16; ++i) result.push_back((2 * i + i % 2) ^ (isStart ? 0 : 1));
            return result;
        };
        const auto sound = [&](const std::vector<int>& sounding, int length_frames) {
            const int spf = parameters.samplesPerFrame, span = length_frames * spf;
            const double ramp = 0.15 * span;
            for (int i = 0; i < span; ++i) {
                double sum = 0;
                for (const int tone : sounding)
                    sum += std::sin(2 * std::numbers::pi * (i % spf) * (p.freqStart + tone) / spf +
                                    std::numbers::pi * (tone / 2) / (8 * bytes));
                // The end of the sustained part is reckoned in single precision.
                const bool isFalling = static_cast<float>(i) > std::trunc(0.85F * static_cast<float>(span));
                const double envelope = i < std::trunc(ramp) ? i / ramp : isFalling ? (span - i) / ramp : 1.0;
                samples.push_back(0.01 * volume * sum * envelope / static_cast<double>(sounding.size()));
            }
        };
        if (!isFixed) sound(markerTones(true), marker);
        for (int step = 0; step < chunks; ++step) {
            sound(dataTones(step), frames);
            for (const int tone : dataTones(step)) tones.push_back(tone);
            if (2 * bytes / p.extra > 1) tones.push_back(255);
        }
        if (!isFixed) sound(markerTones(false), marker);
    }

    /// What both ends of a spread link have agreed on.
    static constexpr std::string_view kSpreading{
        "\x96\x9F\xB4\xAF\x1B\x91\xDE\xC5\x45\x75\xE8\x2E\x0F\x32\x4A\x5F\xB4\x56\x95\xCB\x7F\x6A"
        "\x54\x6A\x48\xF2\x0B\x7B\xCD\xFB\x93\x6D\x3C\x77\x5E\xC3\x33\x47\xC0\xF1\x71\x32\x33\x27"
        "\x35\x68\x47\x1F\x4E\xAC\x23\x42\x5F\x00\x37\xA4\x50\x6D\x48\x24\x91\x7C\xA1\x4E",
        64};
};
