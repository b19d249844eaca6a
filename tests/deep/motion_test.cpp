#include "../support/allocation_count.hpp"
#include "deep/dewarp.hpp"
#include "deep/line_filter.hpp"
#include "deep/motion_gate.hpp"
#include "deep/motion_search.hpp"
#include "moving_sound.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>

using namespace moving_sound;
using namespace sorvel::deep;

namespace {

constexpr double kLead_s = 4.0;

/// What a listener does: rows to the gate, its candidates to the search. The nibbles right of the best.
struct Listener {
    MotionGate gate;
    Transform transform{1024};
    Workspace workspace;
    MotionSearch search{transform, workspace};
    int candidates = 0;
    std::size_t knownAt_row = 0; // the last of them

    std::vector<int> hear(const Sound& sound, const std::vector<Nibbles>& sent) {
        std::vector<int> best(sent.size());
        for (std::size_t row = 3; row < sound.re.size() / 64; ++row) {
            const std::size_t end = (row + 1) * 64;
            gate.push(sound.re.data() + end - 171, sound.im.data() + end - 171, row);
            std::uint64_t endRow = 0;
            if (!gate.takeCandidate(endRow)) continue;
            ++candidates;
            knownAt_row = row;
            search.begin({sound.re.data(), end}, {sound.im.data(), end}, (endRow + 1) * 64);
            do {
                while (!search.step()) {
                }
                if (search.hasPath() && decode(sent, best)) gate.forget(endRow);
            } while (search.nextOffset());
        }
        return best;
    }

private:
    bool decode(const std::vector<Nibbles>& sent, std::vector<int>& best) const {
        bool isHeard = false;
        for (std::size_t i = 0; i < sent.size(); ++i) {
            const int right = nibblesRight(search, sent[i]);
            best[i] = std::max(best[i], right);
            isHeard = isHeard || right >= 30;
        }
        return isHeard;
    }
};

struct Motion {
    const char* name;
    Speed speed;
    double snr_db;
    double whistle_db; // over the tones
};

std::ostream& operator<<(std::ostream& out, const Motion& motion) { return out << motion.name; }

constexpr double kNoWhistle = -100.0;

double lift(double t) { return t < 1.0 || t > 2.0 ? 0.0 : 0.5 * (1.0 - std::cos(2 * std::numbers::pi * t)); }

class MovingSource : public testing::TestWithParam<Motion> {};

} // namespace

TEST_P(MovingSource, IsTurnedIntoOneOfConstantSpeed) {
    const Motion& motion = GetParam();
    Listener listener;
    for (unsigned seed = 1; seed <= 2; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        Sound sound(static_cast<std::size_t>((kLead_s + 4.0) * kRate_hz));
        const Nibbles sent = randomNibbles(random);
        const double end = addTransmission(sound, sent, kLead_s + 0.011 * seed, motion.speed);
        addWhistle(sound, 18300.0 + 200.0 * seed, motion.whistle_db);
        addNoise(sound, motion.snr_db, random);
        listener.gate.reset();
        EXPECT_GE(listener.hear(sound, {sent})[0], 32);
        EXPECT_LE(static_cast<double>(listener.knownAt_row), end / 64.0 + 9.0); // 0.2 s
    }
}

INSTANTIATE_TEST_SUITE_P(All, MovingSource,
                         testing::Values(Motion{"GaitOnTheSpot", swing(0.0, 0.35, 2.0, 1.0), -6.0,
                                                kNoWhistle},
                                         Motion{"GaitTowards", swing(1.4, 0.35, 2.0, 2.0), -3.0, kNoWhistle},
                                         Motion{"GaitAway", swing(-0.7, 0.35, 2.0, 5.0), 0.0, kNoWhistle},
                                         Motion{"GaitBesideAWhistle", swing(0.7, 0.35, 2.0, 3.0), 10.0, 10.0},
                                         Motion{"WideSwing", swing(0.0, 1.0, 2.0, 4.0), 10.0, kNoWhistle},
                                         Motion{"Lift", lift, 0.0, kNoWhistle}),
                         [](const auto& motion) { return std::string(motion.param.name); });

TEST(MotionGate, PartsTransmissionsThatFollowOneAnotherAndLeavesNoiseAlone) {
    std::mt19937 random(7);
    Sound sound(static_cast<std::size_t>(18.0 * kRate_hz));
    const std::vector<Nibbles> sent{randomNibbles(random), randomNibbles(random)};
    const double end = addTransmission(sound, sent[0], 10.0, swing(0.7, 0.35, 2.0, 1.0));
    addTransmission(sound, sent[1], end / kRate_hz + 0.03, swing(0.7, 0.35, 2.0, 3.0));
    addNoise(sound, 6.0, random);
    Listener listener;
    EXPECT_THAT(listener.hear(sound, sent), testing::Each(testing::Ge(32)));
    EXPECT_LE(listener.candidates, 4);
}

TEST(MotionSearch, IsNotDrawnToTonesInSilence) {
    Transform transform(1024);
    Workspace workspace;
    MotionSearch search(transform, workspace);
    std::mt19937 random(11);
    const Nibbles sent = randomNibbles(random);
    Sound sound(static_cast<std::size_t>(8.0 * kRate_hz)), faint(sound.re.size());
    const double arrived = addTransmission(sound, sent, 4.0, swing(0.0, 0.35, 2.0, 1.0));
    addNoise(sound, 10.0, random);
    addWhistle(faint, 18187.5, -100.0); // no noise beside them, so they stand out more than what was sent
    addWhistle(faint, 18937.5, -100.0);
    const auto end = static_cast<std::size_t>(arrived);
    std::copy(faint.re.begin() + static_cast<std::ptrdiff_t>(end), faint.re.end(),
              sound.re.begin() + static_cast<std::ptrdiff_t>(end));
    std::copy(faint.im.begin() + static_cast<std::ptrdiff_t>(end), faint.im.end(),
              sound.im.begin() + static_cast<std::ptrdiff_t>(end));
    search.begin(sound.re, sound.im, end);
    while (!search.step()) {
    }
    ASSERT_TRUE(search.hasPath());
    EXPECT_NEAR(search.endOffset_samples(), 0, 64);
    EXPECT_GE(nibblesRight(search, sent), 32);
}

TEST(MotionSearch, EndsAndAllocatesNothingWhateverTheSound) {
    Transform transform(1024);
    Workspace workspace;
    MotionSearch search(transform, workspace);
    MotionGate gate;
    std::mt19937 random(9);
    Sound noise(11000), silence(11000), odd(11000), steady(11000);
    addNoise(noise, 0.0, random);
    addWhistle(steady, 18703.0, 20.0);
    for (std::size_t i = 0; i < odd.re.size(); ++i) {
        odd.re[i] = i % 3 == 0 ? std::numeric_limits<float>::quiet_NaN() : 1e30F;
        odd.im[i] = i % 2 == 0 ? std::numeric_limits<float>::infinity() : -1e-40F;
    }
    const AllocationCount count;
    for (const Sound* const sound : {&noise, &silence, &odd, &steady}) {
        for (const std::size_t end :
             {std::size_t{0}, std::size_t{64}, std::size_t{10000}, std::size_t{11000}}) {
            search.begin(sound->re, sound->im, end);
            int steps = 0;
            while (!search.step()) ASSERT_LT(++steps, 100);
            while (search.nextOffset())
                while (!search.step()) ASSERT_LT(++steps, 300);
        }
        for (std::size_t row = 3; row < 170; ++row)
            gate.push(sound->re.data() + (row + 1) * 64 - 171, sound->im.data() + (row + 1) * 64 - 171, row);
    }
    EXPECT_EQ(count.total(), 0U);
}

TEST(Dewarp, StillsAToneThatFollowsTheTrackAndCanBeUndone) {
    FrequencyTrack track;
    track.firstMiddle_samples = 300.0;
    for (std::size_t i = 0; i < track.hz.size(); ++i) {
        const double t = 0.192 * static_cast<double>(i);
        track.hz[i] = 40.0 + 20.0 * std::sin(5.0 * t);
        track.hz_s[i] = 100.0 * std::cos(5.0 * t);
    }
    std::vector<float> re(9000), im(9000);
    double turns = 0.0;
    for (std::size_t i = 0; i < re.size(); ++i) {
        re[i] = static_cast<float>(std::cos(2 * std::numbers::pi * turns));
        im[i] = static_cast<float>(std::sin(2 * std::numbers::pi * turns));
        // Between the middles the cubic stays within 0.2 Hz of the sine.
        turns += (40.0 + 20.0 * std::sin(5.0 * (static_cast<double>(i) + 0.5 - 300.0) / kRate_hz)) / kRate_hz;
    }
    const std::vector<float> before = re;
    takeTrackOut(track, 0.0, re, im, 0.0);
    for (std::size_t i = 300; i < 8300; ++i) ASSERT_NEAR(re[i], re[300], 0.15) << i;
    putTrackBack(track, 0.0, re, im, 0.0);
    for (std::size_t i = 0; i < re.size(); ++i) ASSERT_NEAR(re[i], before[i], 1e-5) << i;
}

TEST(LineFilter, TakesAWhistleOutAndLeavesEvenARepetitiveTransmission) {
    std::mt19937 random(3);
    Nibbles sent = randomNibbles(random);
    std::fill(sent.begin() + 8, sent.begin() + 24, 0); // 8 of 17 chunks alike
    Sound code(10752);
    addTransmission(code, sent, 0.3, [](double) { return 0.0; });
    Sound whistle(10752);
    addWhistle(whistle, 18600.7, 20.0);
    const auto power = [](const Sound& sound) {
        double sum = 0.0;
        for (std::size_t i = 1024; i + 1024 < sound.re.size(); ++i)
            sum += static_cast<double>(sound.re[i] * sound.re[i] + sound.im[i] * sound.im[i]);
        return sum;
    };
    Sound both = code;
    addWhistle(both, 18600.7, 20.0);
    Transform transform(LineFilter::kBlock_samples);
    std::vector<float> memory(LineFilter::kMemory_floats);
    LineFilter filter;
    const auto filtered = [&](Sound sound) {
        addNoise(sound, 20.0, random);
        filter.begin(transform, memory);
        const std::size_t blocks = LineFilter::blocks(sound.re.size());
        for (std::size_t i = 0; i < blocks; ++i)
            filter.study(sound.re.data() + 512 * i, sound.im.data() + 512 * i);
        if (filter.findLines())
            for (std::size_t i = 0; i < blocks; ++i)
                filter.subtract(sound.re.data() + 512 * i, sound.im.data() + 512 * i);
        return sound;
    };
    EXPECT_NEAR(power(filtered(code)), power(code), 0.05 * power(code)); // with 1.8 % of noise
    EXPECT_NEAR(power(filtered(both)), power(code), 0.1 * power(code));  // of 101 times as much
    EXPECT_LT(power(filtered(whistle)), 0.001 * power(whistle));
}
