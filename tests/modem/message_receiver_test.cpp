#include "tests/support/allocation_count.hpp"
#include "tests/support/literal_message_receiver.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/transmissions.hpp"
#include "tools/simulated_air.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace air = sorvel::air;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr std::size_t kFrame = 1024;
const ggwave_Parameters kVariable = ggwave_getDefaultParameters();

std::string randomBytes(std::size_t length, unsigned seed) {
    std::mt19937 generator(seed);
    std::string bytes(length, '\0');
    for (char& c : bytes) c = static_cast<char>(generator());
    return bytes;
}

/// The message as sound with a second of quiet around it, under a trace of noise: in digital
/// silence the switching of tones looks like an end marker.
Samples onAir(const Samples& message, std::size_t lead, unsigned seed, float hiss = 1e-4F) {
    Samples sound = silence(lead) + message + silence(20 * kFrame);
    const Samples floor = noise(sound.size(), hiss, seed);
    for (std::size_t i = 0; i < sound.size(); ++i) sound[i] += floor[i];
    sound.resize(sound.size() / kFrame * kFrame);
    return sound;
}

struct Messages : testing::Test {
    ~Messages() override {
        GGWave::Protocols::rx() = GGWave::Protocols::tx() = GGWave::Protocols::kDefault();
    }
    LogCapture log; // three progress lines a message
};

TEST_F(Messages, OfEveryLengthArrive) {
    GGWave modem(kVariable);
    for (std::size_t length = 1; length <= 140; ++length) {
        const auto seed = static_cast<unsigned>(length);
        const std::string message = randomBytes(length, seed);
        const Samples sound = onAir(transmission(modem, message), 5000 + 997 * length % 1024, seed);
        EXPECT_THAT(received(modem, stored(sound, 5), kFrame), ElementsAre(message)) << length;
    }
    EXPECT_THAT(log.take(), HasSubstr("Receiving sound data ...\nReceived end marker. Frames left = "));
}

TEST_F(Messages, ArriveAtEveryAlignmentWithAndWithoutSpreading) {
    for (const int mode : {6, 6 | GGWAVE_OPERATING_MODE_USE_DSS}) {
        ggwave_Parameters parameters = kVariable;
        parameters.operatingMode = mode;
        GGWave modem(parameters);
        const std::string message(9, '\0'); // the same tones all along unless spread
        const Samples sound = transmission(modem, message);
        for (std::size_t offset = 0; offset < 4 * kFrame; offset += 77)
            EXPECT_THAT(received(modem, stored(onAir(sound, offset, 1), 5), kFrame), ElementsAre(message))
                << offset;
    }
}

TEST_F(Messages, ArriveInEveryFormatAndRate) {
    const std::string message = randomBytes(40, 4);
    for (const float rate : {44100.0F, 48000.0F, 96000.0F}) {
        for (const int format : {1, 2, 3, 4, 5}) {
            ggwave_Parameters parameters = kVariable;
            parameters.sampleRateOut = rate;
            const Samples sound = onAir(transmission(message, parameters), 3333, 5, 2e-3F);
            parameters.sampleRateOut = 48000;
            parameters.sampleRateInp = rate;
            parameters.sampleFormatInp = format;
            const std::size_t block = rate == 48000.0F ? kFrame : rate == 96000.0F ? 2048 : 4410;
            EXPECT_THAT(received(parameters, sound, block), Contains(message)) << format << " at " << rate;
        }
    }
}

TEST_F(Messages, OfProtocolsAnApplicationAddsArrive) {
    struct Case {
        GGWave::Protocol row;
        std::size_t length;
    };
    for (const auto& [row, length] : {
             Case{{"fast", 40, 3, 1, 1, true},   140},
             Case{{"wide", 60, 6, 3, 1, true},   100},
             Case{{"slow", 384, 12, 1, 1, true}, 30 },
             Case{{"odd", 320, 5, 5, 1, true},   33 }
    }) {
        for (auto* table : {&GGWave::Protocols::rx(), &GGWave::Protocols::tx()}) {
            table->disableAll();
            (*table)[2] = row;
        }
        GGWave modem(kVariable);
        const std::string message = randomBytes(length, 6);
        const Samples sound = onAir(transmission(modem, message, 50, 2), 4321, 7);
        EXPECT_THAT(received(modem, stored(sound, 5), kFrame), ElementsAre(message)) << row.name;
    }
}

TEST_F(Messages, ArriveThroughNoiseEchoAndOneAfterTheOther) {
    GGWave modem(kVariable);
    const std::string first = randomBytes(30, 8), second = randomBytes(5, 9);
    const Samples pair = silence(3000) + transmission(modem, first) + silence(2000) +
                         transmission(modem, second) + silence(20 * kFrame);
    Samples noisy = pair;
    air::addWhiteNoise(noisy, 15.0, air::tonePower(pair), 48000, 10);
    const Samples echoing = onAir(air::convolved(pair, air::roomResponse(0.3, 6.0, 48000, 11)), 0, 12);
    EXPECT_THAT(received(kVariable, noisy), ElementsAre(first, second));
    EXPECT_THAT(received(kVariable, echoing), Contains(first));
}

/// Result of the modem for `sound`, as the literal receiver words it.
std::vector<std::string> outcomes(const Samples& sound) {
    GGWave modem(kVariable);
    std::vector<std::string> results;
    ggvector<std::uint8_t> data;
    for (std::size_t at = 0; at + kFrame <= sound.size(); at += kFrame) {
        modem.decode(sound.data() + at, kFrame * sizeof(float));
        const int length = modem.rxTakeData(data);
        if (length > 0) results.emplace_back(data.begin(), data.end());
        if (length < 0) results.emplace_back("");
    }
    return results;
}

std::vector<std::string> literalOutcomes(const Samples& sound, const GGWave::Protocol& row) {
    LiteralMessageReceiver literal(row, kFrame);
    std::vector<std::string> results;
    for (std::size_t at = 0; at + kFrame <= sound.size(); at += kFrame) {
        if (auto result = literal.hear(std::span(sound).subspan(at, kFrame))) results.push_back(*result);
    }
    return results;
}

TEST_F(Messages, AreFoundWhereTheLiteralSearchFindsThem) {
    int arrived = 0, failed = 0;
    for (unsigned seed = 1; seed <= 48; ++seed) {
        // Chunks of every kind: from the lowest bin on, reaching into the silent upper half, too
        // large for sums.
        const GGWave::Protocol row = std::array<GGWave::Protocol, 6>{
            {
             {"built in", 384, 9, 1, 1, true},
             {"lowest", 1, 5, 2, 1, true},
             {"silent above", 480, 4, 3, 1, true},
             {"wide", 200, 6, 5, 1, true},
             {"fast", 100, 2, 1, 1, true},
             {"large", 3, 127, 16, 1, true},
             }
        }[seed % 6];
        for (auto* table : {&GGWave::Protocols::rx(), &GGWave::Protocols::tx()}) {
            table->disableAll();
            (*table)[2] = row;
        }
        const std::string message = randomBytes(1 + seed * 13 % 60, seed);
        GGWave modem(kVariable);
        Samples sound =
            silence(4000 + 311 * seed) + transmission(modem, message, 50, 2) + silence(20 * kFrame);
        // Around the noise at which receptions begin to fail, some with a burst that the code
        // cannot mend.
        air::addWhiteNoise(sound, 12.0 - seed % 5, air::tonePower(sound), 48000, seed);
        if (seed % 4 == 0)
            std::fill_n(sound.begin() + 60 * kFrame,
                        std::min<std::size_t>(90 * kFrame, sound.size() - 60 * kFrame), 0.0F);
        const auto expected = literalOutcomes(sound, row);
        EXPECT_EQ(outcomes(sound), expected) << row.name << ", seed " << seed;
        for (const auto& result : expected) ++(result.empty() ? failed : arrived);
    }
    EXPECT_GT(arrived, 5); // the noise was chosen to give both
    EXPECT_GT(failed, 2);
}

TEST_F(Messages, LoseNoMoreToABadSampleThanTheChunksThatHoldIt) {
    const std::string message = randomBytes(40, 23);
    for (const float rate : {48000.0F, 44100.0F, 96000.0F}) {
        ggwave_Parameters parameters = kVariable;
        parameters.sampleRateOut = rate;
        const Samples clean = onAir(transmission(message, parameters), 3000, 24);
        parameters.sampleRateOut = 48000.0F;
        parameters.sampleRateInp = rate;
        for (const float bad : {NAN, INFINITY, -INFINITY, 1e9F, 1e12F, 3e38F}) {
            for (const double share :
                 {0.11, 0.3, 0.5, 0.8}) { // of the sound: in its length, its bytes, its parity
                Samples sound = clean;
                sound[static_cast<std::size_t>(share * static_cast<double>(sound.size()))] = bad;
                const std::size_t block = rate == 48000.0F ? kFrame : rate == 96000.0F ? 2048 : 4410;
                EXPECT_THAT(received(parameters, sound, block), ElementsAre(message))
                    << bad << " at " << share << " of " << rate << " Hz";
                if (rate != 48000.0F) continue;
                EXPECT_THAT(literalOutcomes(sound, GGWave::Protocols::kDefault()[12]), ElementsAre(message));
            }
        }
    }
}

TEST_F(Messages, ThatBreakOffFailOnceTheLongestDurationIsOver) {
    GGWave modem(kVariable);
    Samples sound = transmission(modem, "a message that breaks off");
    sound.resize(60 * kFrame);
    const Samples onlyStart = onAir(sound, 0, 13) + noise(1850 * kFrame, 1e-4F, 14);
    EXPECT_THAT(outcomes(onlyStart), ElementsAre(""));
    EXPECT_THAT(log.take(), HasSubstr("Analyzing captured data ..\n"));

    const int id = ggwave_init(kVariable); // through the C interface it is -1, once
    char buffer[256];
    int failures = 0;
    for (std::size_t at = 0; at + kFrame <= onlyStart.size(); at += kFrame)
        failures += ggwave_ndecode(id, onlyStart.data() + at, kFrame * 4, buffer, 256) == -1 ? 1 : 0;
    ggwave_free(id);
    EXPECT_EQ(failures, 1);
}

TEST_F(Messages, ReportTheirProgress) {
    GGWave modem(kVariable);
    const Samples sound = onAir(transmission(modem, "progress"), 2000, 15);
    bool wasReceiving = false;
    int left = 0;
    for (std::size_t at = 0; at + kFrame <= sound.size() && !(wasReceiving && !modem.rxReceiving());
         at += kFrame) {
        if (modem.rxFramesLeftToRecord() > 1) left = modem.rxFramesLeftToRecord();
        modem.decode(sound.data() + at, kFrame * 4);
        wasReceiving |= modem.rxReceiving();
        if (modem.rxReceiving()) {
            EXPECT_EQ(modem.rxFramesToRecord(), 9 * 197 + 32);
            EXPECT_GT(modem.rxFramesLeftToRecord(), 0);
        }
    }
    ggvector<std::uint8_t> data;
    EXPECT_EQ(modem.rxTakeData(data), 8);
    EXPECT_EQ(modem.rxFramesToRecord(), 0);
    EXPECT_FALSE(modem.rxAnalyzing() || modem.rxStopReceiving());
    const int recorded =
        9 * 197 + 32 - (left - 1) + 1; // one frame was recorded in the call that heard the end
    EXPECT_EQ(log.take(),
              "Receiving sound data ...\nReceived end marker. Frames left = " + std::to_string(left - 1) +
                  ", recorded = " + std::to_string(recorded) + "\nAnalyzing captured data ..\n");
}

TEST_F(Messages, OfAnyTableStayWithinTheRecording) {
    // Longest chunks, start frequencies at the edge, an infinite search for markers: sanitizers are
    // the judge.
    std::mt19937 generator(16);
    const Samples sound =
        onAir(transmission("any table", kVariable), 0, 17, 0.05F) + noise(2100 * kFrame, 0.05F, 18);
    for (const int start : {384, 0, 992, 1000, 1023, -1}) {
        for (const int frames : {9, 127}) {
            ggwave_Parameters parameters = kVariable;
            parameters.soundMarkerThreshold = start == 384 ? 3.0F : 0.0F;
            GGWave modem(parameters);
            for (auto& row : modem.rxProtocols())
                row = {"any",
                       static_cast<std::int16_t>(start),
                       static_cast<std::int8_t>(frames),
                       static_cast<std::int8_t>(generator() % 128),
                       1,
                       true};
            for (std::size_t at = 0; at + kFrame <= sound.size(); at += kFrame)
                modem.decode(sound.data() + at, kFrame * 4);
            EXPECT_LE(modem.rxFramesToRecord(), 2048);
        }
    }
}

TEST_F(Messages, AllocateNothingOnTheirWay) {
    GGWave modem(kVariable);
    const Samples sound = onAir(transmission(modem, "no allocation"), 100, 19);
    int arrived = 0;
    const AllocationCount count;
    GGWave::setLogFile(nullptr);
    for (std::size_t at = 0; at + kFrame <= sound.size(); at += kFrame) {
        modem.decode(sound.data() + at, kFrame * 4);
        ggvector<std::uint8_t> data;
        arrived += modem.rxTakeData(data) == 13 ? 1 : 0;
    }
    EXPECT_EQ(count.total(), 0U);
    EXPECT_EQ(arrived, 1);
}

} // namespace
