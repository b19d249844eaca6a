#include "deep/energies.hpp"
#include "moving_sound.hpp"

#include <gtest/gtest.h>

namespace {

using namespace moving_sound;
using sorvel::deep::Refinement;
using sorvel::deep::SampleView;
using sorvel::deep::ToneEnergies;
using sorvel::deep::Transform;
using sorvel::deep::Workspace;

struct Refined {
    int right = 0; // of 34 nibbles, by the strongest tone
    double endError_samples = 0.0;
    float shift = 0.0F;
};

/// From a candidate that is `off_samples` and one bin beside the transmission, which ends with the sound.
Refined refined(const Sound& sound, const Nibbles& sent, double end, int off_samples, int shift) {
    Transform transform(1024);
    Workspace workspace;
    Refinement refinement(transform, workspace);
    refinement.begin(std::lround(end) + off_samples, shift);
    const SampleView samples{sound.re.data(), sound.im.data(), 0, sound.re.size()};
    for (int which = 0; which < Refinement::kEnds; ++which) refinement.tryEnd(samples, which);
    ToneEnergies energies{};
    refinement.finish(samples, energies);
    Refined result;
    result.endError_samples = static_cast<double>(refinement.place().end) - end;
    result.shift = refinement.place().shift;
    for (std::size_t nibble = 0; nibble < sent.size(); ++nibble) {
        const auto* const tones = &energies[nibble / 2][nibble % 2 * 16];
        result.right += std::max_element(tones, tones + 16) - tones == sent[nibble] ? 1 : 0;
    }
    return result;
}

constexpr double kBegin_s = 0.4;
constexpr std::size_t kSamples = 10400; // 0.2 s more than the transmission's 3.264

TEST(Refinement, FindsEndAndShiftOfASourceThatMoves) {
    for (unsigned seed = 1; seed <= 5; ++seed) {
        std::mt19937 random(seed);
        const Nibbles sent = randomNibbles(random);
        Sound sound(kSamples);
        const double end = addTransmission(sound, sent, kBegin_s, [](double) { return 1.5; });
        addNoise(sound, -8.0, random);
        const int shift = 31; // 1.5 m/s are 31.45 bins of 2.604 Hz
        for (const int off : {-28, 0, 28}) {
            const Refined found = refined(sound, sent, end, off, shift);
            EXPECT_GE(found.right, 32) << seed;
            EXPECT_NEAR(found.endError_samples, 0.0, 34.0);
            EXPECT_NEAR(found.shift, 31.45F, 0.6F);
        }
    }
}

// A whistle on a tone takes that tone away, and must not be every nibble's answer.
TEST(Refinement, FindsTonesBesideAWhistle) {
    for (unsigned seed = 1; seed <= 5; ++seed) {
        std::mt19937 random(seed);
        const Nibbles sent = randomNibbles(random);
        Sound sound(kSamples);
        const double end = addTransmission(sound, sent, kBegin_s, [](double) { return 0.0; });
        addNoise(sound, 10.0, random);
        addWhistle(sound, 18281.0, 10.0); // the low nibble's 6
        int sixes = 0;
        for (std::size_t nibble = 0; nibble < sent.size(); nibble += 2) sixes += sent[nibble] == 6 ? 1 : 0;
        EXPECT_GE(refined(sound, sent, end, 9, 0).right, 33 - sixes) << seed;
    }
}

// 20 ms every 150 ms, 30 dB over the tones: some of every chunk.
TEST(Refinement, FindsTonesBetweenBursts) {
    for (unsigned seed = 1; seed <= 5; ++seed) {
        std::mt19937 random(seed);
        const Nibbles sent = randomNibbles(random);
        Sound sound(kSamples), loud(kSamples);
        const double end = addTransmission(sound, sent, kBegin_s, [](double) { return 0.0; });
        addNoise(sound, 0.0, random);
        addNoise(loud, -30.0, random);
        for (std::size_t i = 0; i < kSamples; ++i) {
            if (i % 400 >= 53) continue;
            sound.re[i] += loud.re[i];
            sound.im[i] += loud.im[i];
        }
        EXPECT_GE(refined(sound, sent, end, 9, 0).right, 32) << seed;
    }
}

} // namespace
