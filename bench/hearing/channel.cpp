#include "bench/hearing/channel.hpp"

#include "payload/encoding.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sorvel::hearing {

namespace {

constexpr double kAfter_s = 0.9;

struct Arrived {
    std::vector<float> sound;
    double tonePower;
};

/// The transmissions without anything else.
Arrived arrive(const Channel& channel, double rate_hz, const Draw& draw, Scene& scene) {
    std::mt19937 letters = draw.generator(Stream::Text), timing = draw.generator(Stream::Timing);
    const Motion motion = drawn(channel.motion, draw);
    struct Sent {
        Waveform waveform;
        Hearing hearing;
    };
    std::vector<Sent> all;
    double start_s = channel.before_s + uniform(timing, 0.0, 0.1);
    for (int i = 0; i < channel.transmissions; ++i) {
        if (i == 0 || !channel.isSameText)
            scene.texts.push_back(drawnText(kPrefix, channel.textLength, letters));
        Hearing hearing{rate_hz, start_s, channel.clockError_ppm, motion, 1.0};
        // A swing goes on through all transmissions, each of which counts from its own start.
        hearing.motion.swingPhase += 2.0 * std::numbers::pi * motion.swing_hz * start_s;
        all.push_back({Waveform(scene.texts.back()), hearing});
        scene.end_s = hearing.end_s();
        start_s = scene.end_s + channel.gap_s + uniform(timing, 0.0, 0.1);
    }

    const auto samples = static_cast<std::size_t>((scene.end_s + kAfter_s) * rate_hz);
    Arrived arrived{std::vector<float>(samples), 0.0};
    double energy = 0.0, length = 0.0;
    for (const Sent& sent : all) {
        std::vector<float> one(samples);
        if (channel.room) {
            one = heardInRoom(sent.waveform, sent.hearing, *channel.room, samples, draw);
        } else {
            add(sent.waveform, sent.hearing, 1.0, one);
        }
        const auto first = static_cast<std::size_t>(sent.hearing.start_s * rate_hz);
        const auto last = static_cast<std::size_t>(sent.hearing.end_s() * rate_hz);
        for (std::size_t i = first; i < last; ++i)
            energy += static_cast<double>(one[i]) * static_cast<double>(one[i]);
        length += static_cast<double>(last - first);
        for (std::size_t i = 0; i < samples; ++i) arrived.sound[i] += one[i];
    }
    arrived.tonePower = energy / length;
    return arrived;
}

} // namespace

std::string drawnText(std::string_view prefix, std::size_t length, std::mt19937& generator) {
    std::string text(prefix);
    std::uniform_int_distribution<std::size_t> letter(0, encoding::kAlphabet.size() - 1);
    while (text.size() < length) text.push_back(encoding::kAlphabet[letter(generator)]);
    return text;
}

Scene makeScene(const Channel& channel, double rate_hz, const Draw& draw) {
    Scene scene;
    auto [sound, tonePower] = arrive(channel, rate_hz, draw, scene);
    if (channel.slope_db != 0.0) slope(sound, channel.slope_db, rate_hz);

    std::mt19937 whistles = draw.generator(Stream::Whistles);
    for (const Whistle& whistle : channel.whistles) addWhistle(sound, whistle, tonePower, rate_hz, whistles);
    if (channel.bursts) addBursts(sound, *channel.bursts, tonePower, rate_hz, draw);
    if (channel.snr_db)
        addNoise(sound, channel.colour, tonePower / fromDecibels(*channel.snr_db), rate_hz,
                 draw.generator(Stream::Noise));

    if (channel.gainStep_db != 0.0) stepGain(sound, channel.gainStep_db, rate_hz, draw);
    if (channel.dropouts) scene.end_s -= dropOut(sound, *channel.dropouts, rate_hz, scene.end_s, draw);
    if (channel.clip) {
        float peak = 0.0F;
        for (const float x : sound) peak = std::max(peak, std::abs(x));
        const float limit = peak * static_cast<float>(*channel.clip);
        for (float& x : sound) x = std::clamp(x, -limit, limit);
    }
    digitise(sound, channel.peak_dbfs);
    if (channel.codec) sound = coded(sound, *channel.codec, rate_hz);
    scene.sound = std::move(sound);
    return scene;
}

} // namespace sorvel::hearing
