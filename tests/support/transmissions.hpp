#pragma once

#include "modem/ggwave.h"

#include <cmath>
#include <cstring>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// Makers of sound for the tests, and a receiver that collects all it hears.

using Samples = std::vector<float>;
using Bytes = std::vector<std::uint8_t>;

inline ggwave_Parameters fixedLength(int payloadLength = 13) {
    ggwave_Parameters parameters = ggwave_getDefaultParameters();
    parameters.payloadLength = payloadLength;
    return parameters;
}

/// One transmission as floats at the playback rate, from `modem` itself or from a fresh F32 instance.
inline Samples transmission(GGWave& modem, std::string_view payload, int volume = 50,
                            ggwave_ProtocolId protocol = GGWAVE_PROTOCOL_DT_CUSTOM) {
    if (!modem.init(static_cast<int>(payload.size()), payload.data(), protocol, volume))
        throw std::runtime_error("init");
    Samples samples(modem.encode() / sizeof(float));
    std::memcpy(samples.data(), modem.txWaveform(), samples.size() * sizeof(float));
    return samples;
}

inline Samples transmission(std::string_view payload, ggwave_Parameters parameters = fixedLength(),
                            int volume = 50) {
    parameters.operatingMode &= ~GGWAVE_OPERATING_MODE_RX;
    parameters.operatingMode |= GGWAVE_OPERATING_MODE_TX;
    parameters.sampleFormatOut = GGWAVE_SAMPLE_FORMAT_F32;
    GGWave modem(parameters);
    return transmission(modem, payload, volume);
}

inline Samples operator+(Samples a, const Samples& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

inline Samples silence(std::size_t samples) { return Samples(samples, 0.0F); }

/// White noise of the given standard deviation.
inline Samples noise(std::size_t samples, float deviation, unsigned seed) {
    std::mt19937 generator(seed);
    std::normal_distribution<float> distribution(0.0F, deviation);
    Samples result(samples);
    for (float& x : result) x = distribution(generator);
    return result;
}

/// In a capture format, rounded and clipped.
inline Bytes stored(std::span<const float> samples, ggwave_SampleFormat format) {
    Bytes bytes;
    const auto put = [&bytes](auto value) {
        const auto* const raw = reinterpret_cast<const std::uint8_t*>(&value);
        bytes.insert(bytes.end(), raw, raw + sizeof value);
    };
    for (const float x : samples) {
        const auto level = [x](float scale) {
            return static_cast<int>(std::lround(std::clamp(x * scale, -scale, scale - 1)));
        };
        switch (format) {
        case GGWAVE_SAMPLE_FORMAT_U8:
            put(static_cast<std::uint8_t>(level(128) + 128));
            break;
        case GGWAVE_SAMPLE_FORMAT_I8:
            put(static_cast<std::int8_t>(level(128)));
            break;
        case GGWAVE_SAMPLE_FORMAT_U16:
            put(static_cast<std::uint16_t>(level(32768) + 32768));
            break;
        case GGWAVE_SAMPLE_FORMAT_I16:
            put(static_cast<std::int16_t>(level(32768)));
            break;
        default:
            put(x);
            break;
        }
    }
    return bytes;
}

/// Every payload delivered while `captured` is handed over in blocks of `blockSamples`.
inline std::vector<std::string> received(GGWave& modem, std::span<const std::uint8_t> captured,
                                         std::size_t blockSamples) {
    std::vector<std::string> payloads;
    while (!captured.empty()) {
        const auto block = captured.first(
            std::min(captured.size(), blockSamples * static_cast<std::size_t>(modem.sampleSizeInp())));
        captured = captured.subspan(block.size());
        modem.decode(block.data(), static_cast<unsigned>(block.size()));
        ggvector<std::uint8_t> data;
        const int length = modem.rxTakeData(data);
        if (length != 0) payloads.emplace_back(data.begin(), data.end());
    }
    return payloads;
}

inline std::vector<std::string> received(const ggwave_Parameters& parameters, std::span<const float> samples,
                                         std::size_t blockSamples = 1024) {
    GGWave modem(parameters);
    return received(modem, stored(samples, parameters.sampleFormatInp), blockSamples);
}
