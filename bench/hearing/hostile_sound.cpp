#include "bench/hearing/hostile_sound.hpp"

#include "bench/hearing/channel.hpp"
#include "payload/encoding.hpp"
#include "tools/simulated_air.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sorvel::hearing {

namespace {

constexpr double kLength_s = 10.0;

/// A sine under an envelope that rises in `rise_s` and then decays by `decay_s`.
void addNote(std::span<float> sound, double start_s, double length_s, double frequency_hz, double rise_s,
             double decay_s, double rate_hz) {
    const auto first = static_cast<std::size_t>(start_s * rate_hz);
    const auto last = std::min(sound.size(), static_cast<std::size_t>((start_s + length_s) * rate_hz));
    for (std::size_t i = first; i < last; ++i) {
        const double time_s = static_cast<double>(i - first) / rate_hz;
        const double level =
            std::min({1.0, time_s / rise_s, (length_s - time_s) / rise_s}) * std::exp(-time_s / decay_s);
        sound[i] += static_cast<float>(level * std::sin(2.0 * std::numbers::pi * frequency_hz * time_s));
    }
}

void addNotes(std::span<float> sound, double rate_hz, std::mt19937& generator) {
    for (int voice = 0; voice < 4; ++voice) {
        for (double time_s = uniform(generator, 0.0, 0.3); time_s < kLength_s;) {
            const double length_s = uniform(generator, 0.05, 0.6);
            const double frequency_hz = uniform(generator, air::kLowestTone_hz, air::kHighestTone_hz);
            addNote(sound, time_s, length_s, frequency_hz, 0.01, uniform(generator, 0.1, 2.0), rate_hz);
            time_s += length_s;
        }
    }
}

void addTones(std::span<float> sound, double rate_hz, std::mt19937& generator) {
    std::uniform_int_distribution<int> value(0, 15);
    for (int group = 0; group < 2; ++group) {
        for (double time_s = 0.0; time_s < kLength_s; time_s += Waveform::kChunk_s) {
            const double frequency_hz = air::kLowestTone_hz + 46.875 * (value(generator) + 16 * group);
            addNote(sound, time_s, Waveform::kChunk_s, frequency_hz, 0.15 * Waveform::kChunk_s, 1e9, rate_hz);
        }
    }
}

void addOthers(std::span<float> sound, bool isWalking, double rate_hz, const Draw& draw,
               std::mt19937& generator, std::vector<std::string>& sent) {
    Motion motion;
    if (isWalking) {
        motion.mean_m_s = uniform(generator, -1.4, 1.4);
        motion.swing_m_s = 0.35;
    }
    for (const double start_s : {uniform(generator, 0.1, 1.5), uniform(generator, 5.2, 6.6)}) {
        // The first character differs, so that none begins as the own texts do.
        std::string text;
        do text = drawnText("", 15, generator);
        while (text[0] == kPrefix[0]);
        sent.push_back(text);
        add(Waveform(text), {rate_hz, start_s, 0.0, drawn(motion, draw), 1.0}, 1.0, sound);
    }
}

} // namespace

const char* nameOf(Hostile kind) {
    switch (kind) {
    case Hostile::White:
        return "white noise";
    case Hostile::Pink:
        return "pink noise";
    case Hostile::Notes:
        return "notes in the band";
    case Hostile::Tones:
        return "the protocol's tones, uncoded";
    case Hostile::OtherPrefix:
        return "other prefixes";
    default:
        return "other prefixes, walking";
    }
}

bool hasTexts(Hostile kind) { return kind == Hostile::OtherPrefix || kind == Hostile::Walker; }

std::vector<float> hostileSound(Hostile kind, double rate_hz, const Draw& draw,
                                std::vector<std::string>& sent) {
    std::vector<float> sound(static_cast<std::size_t>(kLength_s * rate_hz));
    std::mt19937 generator = draw.generator(Stream::Timing);
    const auto noise = [&](Colour colour, double power) {
        addNoise(sound, colour, power, rate_hz, draw.generator(Stream::Noise));
    };
    switch (kind) {
    case Hostile::White:
        noise(Colour::White, 1.0);
        break;
    case Hostile::Pink:
        noise(Colour::Pink, 1.0);
        break;
    case Hostile::Notes:
        addNotes(sound, rate_hz, generator);
        noise(Colour::Pink, 1e-3);
        break;
    case Hostile::Tones:
        addTones(sound, rate_hz, generator);
        noise(Colour::White, 1e-3);
        break;
    case Hostile::OtherPrefix:
    case Hostile::Walker:
        addOthers(sound, kind == Hostile::Walker, rate_hz, draw, generator, sent);
        noise(Colour::White, Waveform::kPower / fromDecibels(uniform(generator, 0.0, 15.0)));
        break;
    }
    digitise(sound, -6.0);
    return sound;
}

} // namespace sorvel::hearing
