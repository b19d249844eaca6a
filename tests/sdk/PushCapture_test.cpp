#include "sdk/PushCapture.hpp"
#include "sdk/SorvelUBM.hpp"
#include "tests/support/fake_platform.hpp"

#include <chrono>
#include <cmath>
#include <future>
#include <gmock/gmock.h>
#include <limits>
#include <numeric>
#include <thread>

namespace {

class PushCaptureTest : public testing::Test {
protected:
    /// Installs a tap that writes down what it gets.
    void listenTo(PushCapture& capture) {
        m_engine = capture.platform().makeAudioEngine();
        m_engine->inputNode()->installTap(
            0, 4096, {}, [this](const sorvel::AudioBuffer& block, double time_s) {
                m_lengths.push_back(block.frameLength());
                m_times_s.push_back(time_s);
                const auto samples = block.floatSamples(0).first(block.frameLength() * block.stride());
                m_samples.insert(m_samples.end(), samples.begin(), samples.end());
            });
        EXPECT_TRUE(m_engine->start().succeeded());
    }

    static std::vector<float> ramp(std::size_t samples) {
        std::vector<float> made(samples);
        std::iota(made.begin(), made.end(), 1.0F);
        return made;
    }

    fake::Platform m_fake;
    std::shared_ptr<sorvel::AudioEngine> m_engine;
    std::vector<std::uint32_t> m_lengths;
    std::vector<double> m_times_s;
    std::vector<float> m_samples;
};

TEST_F(PushCaptureTest, CutsBuffersOfAnyLengthIntoBlocksOf100MsWithoutLosingASample) {
    for (const std::uint32_t channels : {1U, 2U}) {
        PushCapture capture(48000.0, channels, m_fake.platform);
        listenTo(capture);
        const std::vector<float> sound = ramp(std::size_t{5} * 4800 * channels);
        std::span<const float> left(sound);
        for (std::size_t frames = 0; !left.empty();
             frames = frames * 2 + 1) { // 0, 1, 3, 7 ... and the rest at once
            const std::size_t samples = std::min(left.size(), frames * channels);
            EXPECT_TRUE(capture.push(left.first(samples)));
            left = left.subspan(samples);
        }
        EXPECT_THAT(std::exchange(m_lengths, {}), testing::ElementsAre(4800, 4800, 4800, 4800, 4800));
        EXPECT_EQ(std::exchange(m_samples, {}), sound);
        EXPECT_NEAR(m_times_s.back(), 0.4, 1e-9);
    }
}

TEST_F(PushCaptureTest, TakesSixteenBitSamplesAtTheirLevelAmongFloats) {
    PushCapture capture(48000.0, 2, m_fake.platform);
    listenTo(capture);
    const std::vector<std::int16_t> levels{0, 1, -1, 16384, 32767, -32768};
    EXPECT_TRUE(capture.push(levels));
    EXPECT_FALSE(capture.push(std::span(levels).first(3))); // half a frame
    EXPECT_TRUE(capture.push(ramp(2 * 4797)));
    ASSERT_THAT(m_lengths, testing::ElementsAre(4800));
    EXPECT_THAT(std::span(m_samples).first(6),
                testing::ElementsAre(0.0F, 1 / 32768.0F, -1 / 32768.0F, 0.5F, 32767 / 32768.0F, -1.0F));
    EXPECT_EQ(m_samples[6], 1.0F);
}

TEST_F(PushCaptureTest, BlocksKeepPaceWithTimeWhere100MsIsNoWholeNumberOfFrames) {
    PushCapture capture(11025.0, 1, m_fake.platform);
    listenTo(capture);
    EXPECT_TRUE(capture.push(ramp(11025)));
    EXPECT_THAT(m_lengths, testing::ElementsAre(1102, 1103, 1102, 1103, 1102, 1103, 1102, 1103, 1102, 1103));
}

TEST_F(PushCaptureTest, TakesNothingThatItCannotUse) {
    PushCapture capture(48000.0, 2, m_fake.platform);
    EXPECT_FALSE(capture.push(ramp(9600))); // nobody listens
    listenTo(capture);
    EXPECT_FALSE(capture.push(ramp(9599))); // half a frame
    EXPECT_TRUE(capture.push(ramp(4800)));
    m_engine->stop();
    EXPECT_FALSE(capture.push(ramp(9600)));
    EXPECT_TRUE(m_engine->start().succeeded());
    EXPECT_TRUE(capture.push(ramp(9600))); // what was begun before the pause is not continued
    EXPECT_EQ(m_samples, ramp(9600));

    for (const double rate : {0.0, -1.0, 7999.0, 384001.0, HUGE_VAL, std::nan("")})
        EXPECT_THROW(PushCapture(rate, 1, m_fake.platform), MyError);
    for (const double rate : {8000.0, 384000.0}) EXPECT_NO_THROW(PushCapture(rate, 64, m_fake.platform));
    for (const std::uint32_t channels : {0U, 65U})
        EXPECT_THROW(PushCapture(48000.0, channels, m_fake.platform), MyError);
}

TEST_F(PushCaptureTest, DrivesAListenerThatMayOutliveIt) {
    m_fake.session->failingStep = 1; // the machine's own session does not matter
    auto capture = std::make_unique<PushCapture>(48000.0, 1, m_fake.platform);
    SorvelUBM listener("acme", capture->platform());
    std::string heard;
    listener.setCallBack([&](const std::string& ubm) { heard = ubm; });
    listener.startListening();
    EXPECT_EQ(listener.status(), 1);
    m_fake.clock->advance(2.0);
    m_fake.decoder->hears("acme_1");
    EXPECT_TRUE(capture->push(ramp(4800)));
    m_fake.queue->runAll();
    EXPECT_EQ(heard, "acme_1");
    capture.reset();
    listener.stopListening();
    EXPECT_EQ(listener.status(), 0);
}

TEST_F(PushCaptureTest, LetsItsListenerGoWithItself) {
    std::weak_ptr<int> alive;
    auto capture = std::make_unique<PushCapture>(48000.0, 1, m_fake.platform);
    {
        SorvelUBM listener("acme", capture->platform());
        const auto token = std::make_shared<int>(0);
        alive = token;
        listener.setCallBack([token](const std::string&) {});
        listener.startListening(); // from now on it lives without a handle
    }
    EXPECT_FALSE(alive.expired());
    capture.reset();
    EXPECT_TRUE(alive.expired());
}

// The remover waits for the tap, and has to be told of its end.
TEST_F(PushCaptureTest, ATapIsRemovedAsSoonAsItsBlockIsHeard) {
    auto capture = std::make_shared<PushCapture>(48000.0, 1, m_fake.platform);
    const auto engine = capture->platform().makeAudioEngine();
    const auto entered = std::make_shared<std::promise<void>>(),
               leave = std::make_shared<std::promise<void>>(),
               removed = std::make_shared<std::promise<void>>();
    engine->inputNode()->installTap(0, 4096, {}, [=](const sorvel::AudioBuffer&, double) {
        entered->set_value();
        leave->get_future().wait();
    });
    EXPECT_TRUE(engine->start().succeeded());
    std::thread capturing([capture, sound = ramp(4800)] { capture->push(sound); });
    entered->get_future().wait();
    std::thread([engine, removed] {
        engine->inputNode()->removeTap(0);
        removed->set_value();
    }).detach(); // a remover that nobody tells waits for ever
    auto done = removed->get_future();
    EXPECT_EQ(done.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    leave->set_value();
    capturing.join();
    EXPECT_EQ(done.wait_for(std::chrono::seconds(20)), std::future_status::ready);
}

// For the thread sanitizer above all: one thread captures, one starts, stops
// and replaces the callback.
TEST_F(PushCaptureTest, StartsStopsAndCallbacksMayMeetCapturedSoundAtAnyMoment) {
    PushCapture capture(48000.0, 1, m_fake.platform);
    SorvelUBM listener("acme", capture.platform());
    m_fake.decoder->hears("acme_1");
    std::atomic<bool> ends = false;
    std::thread capturing([&, sound = ramp(1000)] {
        while (!ends) {
            capture.push(sound);
            m_fake.clock->advance(0.7);
        }
    });
    int heard = 0; // by this thread alone, which runs the main queue
    for (int cycle = 0; cycle < 200 || (heard == 0 && cycle < 100000); ++cycle) {
        listener.startListening();
        listener.setCallBack([&heard](const std::string&) { ++heard; });
        std::this_thread::yield();
        m_fake.queue->runAll();
        if (cycle % 2 == 0) listener.stopListening();
    }
    listener.stopListening();
    ends = true;
    capturing.join();
    EXPECT_FALSE(capture.push(ramp(4800)));
    EXPECT_GT(heard, 0);
}

} // namespace
