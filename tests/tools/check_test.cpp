#include "platform/audio/rate_converter.hpp"
#include "tests/support/transmissions.hpp"
#include "tools/check_report.hpp"
#include "tools/simulated_air.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numbers>

namespace {

using namespace sorvel;
using namespace sorvel::check;
using testing::HasSubstr;

constexpr double kRate_hz = 48000.0;

Samples tone(double frequency_hz, double amplitude, std::size_t n, double rate_hz = kRate_hz) {
    Samples samples(n);
    for (std::size_t i = 0; i < n; ++i)
        samples[i] = static_cast<float>(
            amplitude * std::sin(2.0 * std::numbers::pi * frequency_hz * static_cast<double>(i) / rate_hz));
    return samples;
}

void add(Samples& sound, const Samples& other) {
    for (std::size_t i = 0; i < sound.size(); ++i) sound[i] += other[i];
}

/// With silence in place of transmissions, which the probes do not depend on.
Program played(double rate_hz = kRate_hz) {
    return program(std::vector<Samples>(2, silence(static_cast<std::size_t>(rate_hz))), rate_hz, 50);
}

/// In the middle of the last silence, 4 s and more behind the first probe.
std::size_t betweenProbes(const Program& program) {
    return static_cast<std::size_t>((1.5 + program.distance_s - 0.3) * kRate_hz);
}

/// A machine on which all is well.
Report good() {
    static const Report kGood = [] {
        Report report;
        report.input = {"mic", 48000.0, false};
        report.output = {"loud", 48000.0, false};
        Samples sound = played().samples;
        add(sound, noise(sound.size(), 0.001F, 1));
        report.found = findProbes(sound, kRate_hz, played().distance_s);
        report.background = background(std::span(sound).first(70000), kRate_hz);
        report.textsSent = report.textsHeard = 3;
        return report;
    }();
    return kGood;
}

TEST(CheckAnalysis, MeasuresEveryToneOfWhatComesLateAndQuietAtAnyRate) {
    for (const double rate_hz : {44100.0, 48000.0, 96000.0}) {
        const Program program = played(rate_hz);
        // 0.25 of full scale each, -12 dBFS; 20 dB less and 0.7 s late.
        Samples heard = silence(static_cast<std::size_t>(0.7 * rate_hz)) + program.samples;
        air::amplify(heard, -20.0);
        const double deviation = 0.001;
        add(heard, noise(heard.size(), static_cast<float>(deviation), 2));
        const auto found = findProbes(heard, rate_hz, program.distance_s);
        ASSERT_TRUE(found) << rate_hz;
        EXPECT_NEAR(found->start_s, 2.2, 0.02);
        EXPECT_NEAR(found->late_s.value_or(1.0), 0.0, 0.002);
        ASSERT_EQ(found->response.size(), kProbes);
        // A sine's power over that of the noise in 46.9 Hz.
        const double snr_db =
            -32.04 - 10.0 * std::log10(2.0 * deviation * deviation * 46.875 / (rate_hz / 2.0));
        double mean_db = 0.0;
        for (const Tone& each : found->response) {
            EXPECT_NEAR(each.level_dbfs, -32.04, 0.2) << each.frequency_hz;
            mean_db += each.snr_db / kProbes;
        }
        EXPECT_NEAR(mean_db, snr_db, 0.5);
        EXPECT_DOUBLE_EQ(found->response[kFirstTone].frequency_hz, 18000.0);
    }
}

TEST(CheckAnalysis, FindsProbesInARoomAndInNoiseButNotWhereThereAreNone) {
    const Program program = played();
    Samples room = air::convolved(program.samples, air::roomResponse(0.4, 0.0, kRate_hz, 3));
    air::addWhiteNoise(room, 6.0, 0.25 * 0.25 / 2, kRate_hz, 4);
    const auto found = findProbes(room, kRate_hz, program.distance_s);
    ASSERT_TRUE(found);
    EXPECT_NEAR(found->start_s, 1.5, 0.05);
    EXPECT_NEAR(found->late_s.value_or(1.0), 0.0, 0.015);
    const Samples nothing = noise(program.samples.size(), 0.1F, 5);
    EXPECT_FALSE(findProbes(nothing, kRate_hz, program.distance_s));
    EXPECT_FALSE(findProbes(silence(program.samples.size()), kRate_hz, program.distance_s));
    for (const std::size_t n : {0U, 100U, 1536U, 100000U})
        EXPECT_FALSE(findProbes(std::span(nothing).first(n), kRate_hz, program.distance_s)) << n;
}

TEST(CheckAnalysis, TellsHowMuchSoundWasLostOrInsertedOnTheWay) {
    const Program program = played();
    const auto at = static_cast<std::ptrdiff_t>(betweenProbes(program));
    Samples lost = program.samples;
    lost.erase(lost.begin() + at, lost.begin() + at + 4800);
    EXPECT_NEAR(findProbes(lost, kRate_hz, program.distance_s)->late_s.value_or(1.0), -0.1, 0.002);
    Samples inserted = program.samples;
    inserted.insert(inserted.begin() + at, 24000, 0.0F);
    EXPECT_NEAR(findProbes(inserted, kRate_hz, program.distance_s)->late_s.value_or(0.0), 0.5, 0.002);
    EXPECT_FALSE(
        findProbes(std::span(lost).first(betweenProbes(program)), kRate_hz, program.distance_s)->late_s);
}

TEST(CheckAnalysis, NamesWhistlesInNoiseAndInDigitalSilence) {
    for (const float deviation : {0.0F, 0.001F}) // in 6 Hz the latter has -93 dBFS
        for (const double frequency_hz : {17600.0, 18903.3, 19998.0}) {
            Samples sound = tone(frequency_hz, 0.0005, 72000);
            add(sound, tone(18200.0, 0.1, 72000));
            add(sound, noise(72000, deviation, 6));
            const auto whistles = background(sound, kRate_hz).whistles;
            ASSERT_EQ(whistles.size(), 2U) << frequency_hz << ' ' << deviation;
            EXPECT_NEAR(whistles[0].frequency_hz, 18200.0, 1.0);
            EXPECT_NEAR(whistles[0].level_dbfs, -20.0, 1.5); // between two steps
            EXPECT_NEAR(whistles[1].frequency_hz, frequency_hz, 2.0);
            EXPECT_NEAR(whistles[1].level_dbfs, -66.0, 1.5);
        }
    // A whistle that is interrupted, as when sound is lost, is still one.
    for (const std::size_t silent : {1250U, 1300U, 1400U}) {
        Samples broken = tone(19210.0, 0.05, 72000);
        broken.insert(broken.begin() + 20000, silent, 0.0F);
        broken.resize(72000);
        EXPECT_EQ(background(broken, kRate_hz).whistles.size(), 1U) << silent;
    }
    for (unsigned seed = 0; seed < 8; ++seed)
        EXPECT_TRUE(background(noise(72000, 0.01F, seed), kRate_hz).whistles.empty()) << seed;
    EXPECT_TRUE(background({}, kRate_hz).whistles.empty());
}

TEST(CheckAnalysis, MeasuresTheNoiseOfTheBandAndWhetherTheBandIsThere) {
    const Samples white = noise(240000, 0.01F, 7);
    const Background open = background(white, kRate_hz);
    // As a sine of the noise's power within 1500 of 24000 Hz.
    EXPECT_NEAR(open.noise_dbfs, 10.0 * std::log10(2 * 0.0001 * 1500 / 24000), 0.5);
    EXPECT_NEAR(open.falloff_db, 0.0, 1.0);
    // To 36 kHz and back, as a sound server may do it.
    Samples low(white.size() * 3 / 4), back(white.size());
    RateConverter(48000, 36000).convert(white, low);
    RateConverter(36000, 48000).convert(low, back);
    EXPECT_GT(background(std::span(back).first(200000), kRate_hz).falloff_db,
              25.0); // what the verdict takes for removed
}

TEST(CheckReport, SaysGoodAndElseWhatIsWrong) {
    EXPECT_EQ(verdict(good()), Verdict::Good);
    EXPECT_EQ(clearTones(*good().found), 32);
    EXPECT_THAT(advice(good()), testing::IsEmpty());

    const auto expect = [](const Report& report, Verdict is, const char* hint) {
        EXPECT_EQ(verdict(report), is) << hint;
        EXPECT_THAT(advice(report), testing::Contains(HasSubstr(hint)));
        const std::string json = jsonLine(report);
        EXPECT_THAT(json, testing::Not(HasSubstr("\n")));
        EXPECT_THAT(json, HasSubstr(hint));
    };
    Report report = good();
    report.output->rate_hz = 32000.0;
    expect(report, Verdict::CannotCarry, "loud: 32000 Hz");
    report = good();
    report.background->whistles = {
        {18903.0, -30.0, 60.0}
    };
    expect(report, Verdict::Disturbed, "18903 Hz");
    report.background->whistles = {
        {18903.0, -50.0, 40.0}
    }; // far below the tones
    EXPECT_EQ(verdict(report), Verdict::Good);
    report = good();
    report.found.reset();
    report.textsHeard = 0;
    expect(report, Verdict::NotHeard, "turn the loudspeaker up");
    report = good();
    report.textsHeard = 2;
    expect(report, Verdict::Weak, "too weak");
    report.found->late_s = -0.06;
    expect(report, Verdict::Lossy, "sound is lost");
    report = good();
    report.background->falloff_db = 45.0;
    expect(report, Verdict::Weak, "45 dB weaker");
    report = good();
    for (std::size_t at = 30; at < kProbes; ++at) report.found->response[at].level_dbfs -= 20.0;
    EXPECT_THAT(advice(report), testing::Contains(HasSubstr("20 dB weaker")));
    report = good();
    report.output.reset(); // listened only
    report.found.reset();
    EXPECT_EQ(verdict(report), Verdict::Good);
    report.background = background(silence(240000), kRate_hz);
    expect(report, Verdict::NoSound, "muted");
    report.input.isMonitor = true;
    EXPECT_EQ(verdict(report), Verdict::Good);
}

TEST(CheckReport, FitsATerminal) {
    for (const std::string& line : lines(good())) EXPECT_LE(line.size(), 80U) << line;
    EXPECT_EQ(lines(good()).back(), "verdict   good");
}

} // namespace
