#include "payload/encoding.hpp"
#include "tests/sorvel/stream.hpp"
#include "tests/support/allocation_count.hpp"
#include "tools/simulated_air.hpp"

#include <gmock/gmock.h>
#include <limits>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kTransmission_s = 3.264;

/// A quiet room, 50 dB below the tones, so that there is something to compare them with.
Samples inRoom(Samples sound) {
    const Samples added = noise(sound.size(), 0.001F, 1);
    for (std::size_t i = 0; i < sound.size(); ++i) sound[i] += added[i];
    return sound;
}

std::vector<std::int16_t> rounded(const Samples& sound) {
    std::vector<std::int16_t> result;
    for (const float x : sound) result.push_back(static_cast<std::int16_t>(std::lround(32767.0F * x)));
    return result;
}

struct Way {
    double rate_hz;
    int receiver;

    friend std::ostream& operator<<(std::ostream& out, const Way& way) {
        return out << (way.receiver == SORVEL_RECEIVER_DEEP ? "deep at " : "classic at ") << way.rate_hz;
    }
};

class ListenerByEveryWay : public testing::TestWithParam<Way> {};

INSTANTIATE_TEST_SUITE_P(
    Ways, ListenerByEveryWay,
    testing::Values(Way{44100, SORVEL_RECEIVER_CLASSIC}, Way{48000, SORVEL_RECEIVER_CLASSIC},
                    Way{96000, SORVEL_RECEIVER_CLASSIC}, Way{192000, SORVEL_RECEIVER_CLASSIC},
                    Way{47999.5, SORVEL_RECEIVER_CLASSIC}, Way{44100, SORVEL_RECEIVER_DEEP},
                    Way{48000, SORVEL_RECEIVER_DEEP}, Way{96000, SORVEL_RECEIVER_DEEP}));

TEST_P(ListenerByEveryWay, HearsATextOnceWhateverTheBlocksAndTheFormat) {
    const auto [rate_hz, receiver] = GetParam();
    const Samples sound = inRoom(pause(0.731, rate_hz) + soundOf("acme_9 x", rate_hz) + pause(1.0, rate_hz));
    const auto levels = rounded(sound);
    sorvel_listener_config config = listening(rate_hz, "acme", receiver);
    const ListenerHandle floats = made(config);
    config.format = SORVEL_FORMAT_I16;
    const ListenerHandle integers = made(config);
    const auto expectHeard = [&](const std::vector<sorvel_heard>& heard) {
        ASSERT_THAT(textsOf(heard), ElementsAre("acme_9 x"));
        EXPECT_EQ(heard[0].text[8], '\0');
        // The classic receiver has enough of it a chunk or so before its end.
        EXPECT_NEAR(heard[0].end_s, 0.731 + kTransmission_s, receiver == SORVEL_RECEIVER_DEEP ? 0.03 : 0.3);
        EXPECT_EQ(heard[0].has_quality == 1, receiver == SORVEL_RECEIVER_DEEP);
        if (heard[0].has_quality == 1) {
            EXPECT_GT(heard[0].snr_db, 30.0F);
            EXPECT_NEAR(heard[0].speed_m_s, 0.0F, 0.05F);
            EXPECT_GT(heard[0].margin, 0.0F);
        }
    };
    for (const std::size_t block : {1U, 100U, 128U, 441U, 480U, 960U, 4800U}) {
        SCOPED_TRACE(block);
        sorvel_listener_reset(floats.get());
        sorvel_listener_reset(integers.get());
        push(floats.get(), sound, block);
        push(integers.get(), levels, block);
        expectHeard(polled(floats.get()));
        expectHeard(polled(integers.get()));
    }
}

TEST(Listener, TellsTheSameTimesWhateverTheBlocks) {
    Samples sound = pause(0.3, 44100);
    for (const char* text : {"acme_1", "acme_2", "acme_3"}) sound = sound + soundOf(text, 44100);
    std::mt19937 random(5);
    for (const int receiver : {SORVEL_RECEIVER_CLASSIC, SORVEL_RECEIVER_DEEP}) {
        std::vector<double> ends;
        for (int run = 0; run < 5; ++run) {
            const ListenerHandle listener = made(listening(44100, "", receiver));
            for (std::size_t at = 0; at < sound.size();) {
                const std::size_t block = std::min<std::size_t>(random() % 3000, sound.size() - at);
                sorvel_listener_push(listener.get(), sound.data() + at, block);
                at += block;
            }
            sorvel_listener_finish(listener.get());
            const auto heard = polled(listener.get());
            ASSERT_THAT(textsOf(heard), ElementsAre("acme_1", "acme_2", "acme_3"));
            std::vector<double> times;
            for (const sorvel_heard& one : heard) times.push_back(one.end_s);
            if (run == 0) ends = times;
            EXPECT_EQ(times, ends);
        }
    }
}

TEST(Listener, IsNotDeafAfterAStrayBlockNorAfterWhatIsNoSound) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    Samples stray(100, 0.1F);
    stray[3] = nan, stray[50] = std::numeric_limits<float>::infinity(), stray[99] = 3e38F;
    const Samples sound = soundOf("acme_1", 48000);
    for (const int receiver : {SORVEL_RECEIVER_CLASSIC, SORVEL_RECEIVER_DEEP})
        EXPECT_THAT(textsIn(listening(48000, "acme", receiver), stray + sound + stray + stray + sound),
                    ElementsAre("acme_1", "acme_1"));
}

TEST(Listener, TellsWhatBeginsWithThePrefixAndNothingDamaged) {
    std::array<char, encoding::kPayloadBytes> payload{};
    compressString("acme_1", payload.data());
    payload[0] = static_cast<char>(payload[0] ^ 1); // the check byte
    const Samples damaged = transmission({payload.data(), payload.size()});
    const Samples sound =
        soundOf("acme_2", 48000) + pause(0.5, 48000) + soundOf("other", 48000) + pause(0.5, 48000) + damaged;
    for (const int receiver : {SORVEL_RECEIVER_CLASSIC, SORVEL_RECEIVER_DEEP}) {
        EXPECT_THAT(textsIn(listening(48000, "", receiver), sound), ElementsAre("acme_2", "other"));
        EXPECT_THAT(textsIn(listening(48000, "ACME_", receiver), sound), ElementsAre("acme_2"));
        EXPECT_THAT(textsIn(listening(48000, "acme_3", receiver), sound), IsEmpty());
    }
}

TEST(Listener, HearsNothingAtRatesThatHoldNoBandAndRefusesWhatTheDeepReceiverCannotTake) {
    for (const double rate_hz : {8000.0, 11025.0, 16000.0, 32000.0})
        EXPECT_THAT(textsIn(listening(rate_hz, ""), noise(100000, 0.1F, 3)), IsEmpty());
    sorvel_listener* listener = nullptr;
    const auto config = listening(16000, "", SORVEL_RECEIVER_DEEP);
    EXPECT_EQ(sorvel_listener_create(&config, &listener), SORVEL_ERROR_RATE);
}

TEST(Listener, HearsThroughAsMuchNoiseAsTone) {
    for (const double rate_hz : {44100.0, 48000.0, 88200.0, 96000.0, 192000.0, 384000.0}) {
        SCOPED_TRACE(rate_hz);
        const Samples alone = soundOf("acme_0123456789", rate_hz);
        for (unsigned seed = 1; seed <= 5; ++seed) {
            Samples sound = pause(0.2, rate_hz) + alone + pause(0.2, rate_hz);
            sorvel::air::addWhiteNoise(sound, 0.0, sorvel::air::tonePower(alone), rate_hz, seed);
            EXPECT_THAT(textsIn(listening(rate_hz), sound), ElementsAre("acme_0123456789")) << seed;
        }
    }
}

TEST(Listener, BeginsAnewAfterResetAndAfterTheEndOfASound) {
    const Samples sound = inRoom(soundOf("acme_1", 48000)); // nothing behind the last tone
    const std::size_t most = sound.size() / 4 * 3; // of a half the deep receiver still makes the whole
    for (const int receiver : {SORVEL_RECEIVER_CLASSIC, SORVEL_RECEIVER_DEEP}) {
        const ListenerHandle listener = made(listening(48000, "acme", receiver));
        sorvel_listener* const l = listener.get();
        sorvel_listener_push(l, sound.data(), most);
        sorvel_listener_reset(l); // loses what it has
        sorvel_listener_push(l, sound.data() + most, sound.size() - most);
        EXPECT_EQ(sorvel_listener_finish(l), SORVEL_OK);
        EXPECT_THAT(polled(l), IsEmpty());

        push(l, sound);
        sorvel_listener_finish(l);
        sorvel_listener_finish(l); // says it twice, and changes nothing
        push(l, sound);            // a new sound
        sorvel_listener_finish(l);
        const auto heard = polled(l);
        ASSERT_THAT(textsOf(heard), ElementsAre("acme_1", "acme_1"));
        EXPECT_EQ(heard[0].end_s, heard[1].end_s);
        EXPECT_LE(heard[1].end_s, kTransmission_s + 1e-9);

        push(l, sound);
        sorvel_listener_finish(l);
        sorvel_listener_reset(l); // what waits is dropped
        EXPECT_THAT(polled(l), IsEmpty());
    }
}

TEST(Listener, ChoosesAChannelInsteadOfLettingThemCancel) {
    const Samples mono = inRoom(pause(0.3, 48000) + soundOf("acme_1", 48000) + pause(0.5, 48000));
    const auto heardFrom = [&](const std::vector<float>& gains) {
        sorvel_listener_config config = listening(48000);
        config.channels = static_cast<std::uint32_t>(gains.size());
        const ListenerHandle listener = made(config);
        Samples frames;
        for (const float x : mono)
            for (const float gain : gains) frames.push_back(gain * x);
        for (std::size_t at = 0; at < mono.size(); at += 441)
            sorvel_listener_push(listener.get(), frames.data() + at * gains.size(),
                                 std::min<std::size_t>(441, mono.size() - at));
        return textsOf(polled(listener.get()));
    };
    EXPECT_THAT(heardFrom({1.0F, -1.0F}), ElementsAre("acme_1"));
    EXPECT_THAT(heardFrom({0.0F, 1.0F}), ElementsAre("acme_1"));
    EXPECT_THAT(heardFrom({1.0F, 0.0F}), ElementsAre("acme_1"));
    EXPECT_THAT(heardFrom({0.0F, 0.0F, 0.0F, 0.0F, 0.0F, -1.0F}), ElementsAre("acme_1"));
    EXPECT_THAT(heardFrom({0.0F, 0.0F}), IsEmpty());
}

TEST(Listener, KeepsSixtyFourTextsAndTellsHowManyItLost) {
    const Samples sound = soundOf("acme_1", 48000);
    const ListenerHandle listener = made(listening(48000));
    for (int i = 0; i < 66; ++i) push(listener.get(), sound, sound.size());
    const auto heard = polled(listener.get());
    ASSERT_EQ(heard.size(), 64U);
    EXPECT_EQ(heard[0].lost, 2U);
    EXPECT_EQ(heard[1].lost, 0U);
    EXPECT_NEAR(heard[0].end_s, 3 * kTransmission_s, 0.3); // the third one
}

struct Called {
    sorvel_listener* listener = nullptr;
    bool destroys = false;
    Texts texts;
    std::vector<int> answers;

    static void by(void* user, const sorvel_heard* heard) {
        auto& self = *static_cast<Called*>(user);
        self.texts.push_back(textOf(*heard));
        const float sample = 0.0F;
        sorvel_heard other = *heard;
        self.answers = {sorvel_listener_push(self.listener, &sample, 1),
                        sorvel_listener_finish(self.listener), sorvel_listener_reset(self.listener),
                        sorvel_listener_poll(self.listener, &other)};
        if (self.destroys) sorvel_listener_destroy(self.listener);
    }
};

TEST(Listener, CallsBackAndMayBeDestroyedFromThere) {
    const Samples sound = soundOf("acme_1", 48000);
    const Samples twice = sound + sound;
    Called called;
    sorvel_listener_config config = listening(48000);
    config.on_heard = Called::by;
    config.user = &called;
    ASSERT_EQ(sorvel_listener_create(&config, &called.listener), SORVEL_OK);
    push(called.listener, twice, 128);
    EXPECT_THAT(called.texts, ElementsAre("acme_1", "acme_1"));
    EXPECT_THAT(called.answers, testing::Each(SORVEL_ERROR_BUSY));
    EXPECT_THAT(polled(called.listener), IsEmpty());
    sorvel_listener_reset(called.listener);
    called.texts.clear();
    called.destroys = true; // in the middle of the block: the second text is not heard any more
    EXPECT_EQ(sorvel_listener_push(called.listener, twice.data(), twice.size()), SORVEL_OK);
    EXPECT_THAT(called.texts, ElementsAre("acme_1"));
}

TEST(Listener, AllocatesAndPrintsNothingAfterCreate) {
    const std::string message("14\0 bytes here", 14);
    const SenderHandle texts = made(sending(44100)), messages = made(sending(96000, SORVEL_CONTENT_MESSAGES));
    const ListenerHandle classic = made(listening(44100)),
                         deep = made(listening(44100, "acme", SORVEL_RECEIVER_DEEP)),
                         long_ = made(listening(96000, "", SORVEL_RECEIVER_MESSAGES));
    Samples samples(20 * 96000);
    sorvel_heard heard{};
    heard.size = sizeof heard;
    Texts all;
    all.reserve(8);
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    std::size_t allocations = 0;
    const auto hear = [&](sorvel_sender* sender, const std::string& content, sorvel_listener* listener) {
        std::size_t frames = 0;
        const AllocationCount count;
        sorvel_sender_send(sender, content.data(), content.size(), samples.data(), samples.size(), &frames);
        for (std::size_t at = 0; at < frames; at += 441)
            sorvel_listener_push(listener, samples.data() + at, std::min<std::size_t>(441, frames - at));
        sorvel_listener_finish(listener);
        const bool wasHeard = sorvel_listener_poll(listener, &heard) == 1;
        sorvel_listener_reset(listener);
        allocations += count.total();
        if (wasHeard) all.push_back(textOf(heard));
    };
    hear(texts.get(), "acme_1", classic.get());
    hear(texts.get(), "acme_2", deep.get());
    hear(messages.get(), message, long_.get());
    const std::string out = testing::internal::GetCapturedStdout(),
                      err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(allocations, 0U);
    EXPECT_EQ(out + err, "");
    EXPECT_THAT(all, ElementsAre("acme_1", "acme_2", message)); // it did the work it was counted for
}

TEST(Listener, IsIndependentOfOthersOnOtherThreads) {
    const auto work = [](const std::string& text, int receiver, double rate_hz, Texts& heard) {
        heard = textsIn(listening(rate_hz, "", receiver), soundOf(text, rate_hz)); // all made on this thread
    };
    std::vector<Texts> heard(4);
    std::vector<std::thread> threads;
    threads.emplace_back(work, "one", SORVEL_RECEIVER_CLASSIC, 48000.0, std::ref(heard[0]));
    threads.emplace_back(work, "two", SORVEL_RECEIVER_CLASSIC, 44100.0, std::ref(heard[1]));
    threads.emplace_back(work, "three", SORVEL_RECEIVER_DEEP, 48000.0, std::ref(heard[2]));
    threads.emplace_back(work, "four", SORVEL_RECEIVER_DEEP, 96000.0, std::ref(heard[3]));
    for (std::thread& thread : threads) thread.join();
    EXPECT_THAT(heard, ElementsAre(Texts{"one"}, Texts{"two"}, Texts{"three"}, Texts{"four"}));
}

TEST(Messages, ArriveFromOneByteTo140AtEveryRate) {
    std::string longest;
    for (int i = 0; i < 140; ++i) longest += static_cast<char>(i * 37);
    for (const std::string& message : {std::string(1, '\0'), std::string("Grüße, acme"), longest}) {
        for (const double rate_hz : {44100.0, 48000.0, 96000.0}) {
            SCOPED_TRACE(testing::Message() << message.size() << " bytes at " << rate_hz);
            const Samples sound = pause(0.3, rate_hz) + soundOf(message, rate_hz, SORVEL_CONTENT_MESSAGES) +
                                  pause(0.01, rate_hz);
            const ListenerHandle listener = made(listening(rate_hz, "", SORVEL_RECEIVER_MESSAGES));
            push(listener.get(), sound, 128);
            sorvel_listener_finish(listener.get());
            const auto heard = polled(listener.get());
            ASSERT_THAT(textsOf(heard), ElementsAre(message));
            EXPECT_NEAR(heard[0].end_s, static_cast<double>(sound.size()) / rate_hz, 0.5);
        }
    }
    const Samples sound = soundOf("Grüße", 48000, SORVEL_CONTENT_MESSAGES);
    EXPECT_THAT(textsIn(listening(48000, "Gr\xC3", SORVEL_RECEIVER_MESSAGES), sound), ElementsAre("Grüße"));
    EXPECT_THAT(textsIn(listening(48000, "gr", SORVEL_RECEIVER_MESSAGES), sound), IsEmpty());
}

} // namespace
