#include "payload/encoding.hpp"
#include "platform/block_converter.hpp"
#include "platform/portaudio_capture.hpp"
#include "platform/portaudio_devices.hpp"
#include "platform/quiet_stderr.hpp"
#include "platform/rate_converter.hpp"
#include "sdk/SorvelUBM.hpp"
#include "tests/support/allocation_count.hpp"
#include "tests/support/fake_platform.hpp"
#include "tests/support/pulse_server.hpp"
#include "tests/support/transmissions.hpp"

#include <array>
#include <chrono>
#include <cstdio>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

using namespace sorvel;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

using Steady = std::chrono::steady_clock;
constexpr std::chrono::seconds kPatience(20); // far more than anything takes

bool becomes(const std::function<bool()>& condition, Steady::duration patience = kPatience) {
    const auto until = Steady::now() + patience;
    while (!condition()) {
        if (Steady::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

/// A transmission at the sink's rate: the server's own conversion would damage it.
Samples sound(const std::string& text, int rate_hz) {
    std::array<char, encoding::kPayloadBytes> payload{};
    compressString(text, payload.data());
    const Samples sent = transmission(std::string_view(payload.data(), payload.size()));
    Samples samples(sent.size() * static_cast<std::size_t>(rate_hz) / 48000);
    RateConverter converter(48000, rate_hz);
    std::size_t filled = converter.convert(sent, samples).produced;
    while (filled < samples.size()) filled += converter.flush(std::span(samples).subspan(filled));
    return silence(4800) + samples + silence(static_cast<std::size_t>(rate_hz) / 2);
}

/// The real way from microphone to decoder; clock, telemetry and settings are fakes.
class Listening {
public:
    explicit Listening(CaptureOptions options = {})
        : m_capture(PortAudioCapture::make(std::move(options))), m_listener("acme", platform()) {
        m_listener.setCallBack([this](const std::string& text) { m_heard.push_back(text); });
        m_fakes.clock->advance(10.0);
    }
    ~Listening() { m_listener.stopListening(); }
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;

    SorvelUBM& operator*() { return m_listener; }
    PortAudioCapture& capture() { return *m_capture; }
    bool hears(const std::string& text) {
        return becomes([&] {
            m_fakes.queue->runAll();
            return !m_heard.empty() && m_heard.back() == text;
        });
    }

private:
    Platform platform() {
        Platform platform = m_fakes.platform;
        platform.makeAudioEngine = [capture = m_capture] { return capture; };
        platform.makeConverter = makeBlockConverter;
        platform.makeDecoder = nullptr;
        return platform;
    }

    std::vector<std::string> m_heard;
    fake::Platform m_fakes;
    std::shared_ptr<PortAudioCapture> m_capture;
    SorvelUBM m_listener;
};

/// Captures without a listener.
struct Engine {
    std::shared_ptr<fake::Lines> lines = std::make_shared<fake::Lines>();
    std::shared_ptr<PortAudioCapture> capture;
    std::atomic<int> blocks = 0;

    explicit Engine(const std::string& device = "") : capture(PortAudioCapture::make({device, {}, lines})) {
        tap([this](const AudioBuffer&, double) { ++blocks; });
    }
    ~Engine() { capture->stop(); }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    void tap(TapBlock block) { capture->installTap(0, 4096, capture->outputFormat(0), std::move(block)); }
    bool delivers(Steady::duration patience = kPatience) {
        const int before = blocks;
        return becomes([&] { return blocks > before; }, patience);
    }
};

class LiveCapture : public testing::Test {
protected:
    void SetUp() override { testing::internal::CaptureStderr(); }
    void TearDown() override {
        if (m_isTaken) return;
        EXPECT_EQ(standardError(), "");
    }
    std::string standardError() {
        m_isTaken = true;
        return testing::internal::GetCapturedStderr();
    }

private:
    const HushedPortAudio m_hushed;
    bool m_isTaken = false;
};

} // namespace

TEST_F(LiveCapture, HearsWhatIsPlayedInBlocksOf100MsWithoutAllocating) {
    const PulseServer server(48000);
    std::optional<AllocationCount> allocations; // the capture thread's
    std::atomic<std::size_t> allocated = 1;
    std::atomic<int> blocks = 0, wrongBlocks = 0;
    Listening listening({.device = {},
                         .observer =
                             [&](const AudioBuffer& block) {
                                 if (block.frameLength() != 4800 || block.format().sampleRate != 48000)
                                     ++wrongBlocks;
                                 if (!allocations) allocations.emplace();
                                 if (++blocks == 25) allocated = allocations->total(); // no text yet
                             },
                         .lines = standardErrorLines()});
    (*listening).startListening();
    EXPECT_EQ((*listening).status(), 1);
    const auto player = server.play(sound("acme_1234", 48000), 48000);
    EXPECT_TRUE(listening.hears("acme_1234"));
    (*listening).stopListening();
    EXPECT_EQ((*listening).status(), 1);
    EXPECT_EQ(wrongBlocks, 0);
    EXPECT_EQ(allocated, 0U);
    const CaptureStatus status = listening.capture().status();
    EXPECT_EQ(status.device, "air.monitor");
    EXPECT_EQ(status.overruns, 0U);
    EXPECT_EQ(status.error, "");
}

TEST_F(LiveCapture, NoticesThatTheServerDiedAndHearsTheNextTransmissionAtItsNewRate) {
    PulseServer server(48000);
    std::atomic<int> blocks = 0;
    Listening listening({.device = {}, .observer = [&](const AudioBuffer&) { ++blocks; }});
    (*listening).startListening();
    std::optional<PulseServer::Player> player;
    player.emplace(server, sound("acme_lost", 48000), 48000);
    ASSERT_TRUE(becomes([&] { return blocks > 5; })); // amidst the transmission
    server.kill();
    const auto death = Steady::now();
    EXPECT_TRUE(becomes([&] { return !listening.capture().isRunning(); }));
    RecordProperty("notice_ms", static_cast<int>((Steady::now() - death) / std::chrono::milliseconds(1)));
    (*listening).stopListening();
    EXPECT_EQ((*listening).status(), 0);
    const std::string error = listening.capture().status().error;
    EXPECT_THAT(error, HasSubstr("\"air.monitor\" is gone"));
    EXPECT_EQ(standardError(), "Sorvel: " + error + "\n");

    (*listening).startListening();
    EXPECT_EQ((*listening).status(), -1);
    EXPECT_THAT(listening.capture().status().error, HasSubstr("no sound input found"));
    (*listening).stopListening();

    server.start(44100);
    (*listening).startListening();
    EXPECT_EQ((*listening).status(), 1);
    EXPECT_EQ(listening.capture().status().rate_hz, 44100);
    player.emplace(server, sound("acme_next", 44100), 44100);
    EXPECT_TRUE(listening.hears("acme_next"));
}

// PortAudio has not yet set a variable that its way out of this depends on, and may loop for ever.
TEST_F(LiveCapture, NoticesThatTheServerDiedBeforeItGaveAnySound) {
    PulseServer server(48000);
    Engine engine;
    ASSERT_TRUE(engine.capture->start().succeeded());
    server.kill();
    EXPECT_TRUE(becomes([&] { return !engine.capture->isRunning(); }));
    EXPECT_THAT(engine.lines->take(), ElementsAre(HasSubstr("\"air.monitor\" is gone")));
    engine.capture->stop();
    EXPECT_THAT(engine.capture->start().error(), HasSubstr("no sound input found"));
}

TEST_F(LiveCapture, GivesUpAServerThatHangsAndReturnsWhenItDoes) {
    PulseServer server(48000);
    Engine engine;
    ASSERT_TRUE(engine.capture->start().succeeded());
    ASSERT_TRUE(engine.delivers());
    server.freeze();
    EXPECT_TRUE(becomes([&] { return !engine.capture->isRunning(); }));
    EXPECT_THAT(engine.lines->take(), ElementsAre(HasSubstr("delivers no sound")));
    engine.capture->stop();
    EXPECT_THAT(engine.capture->start().error(), HasSubstr("does not answer"));
    EXPECT_THROW(inputDevices(), AudioDeviceError);
    server.thaw();
    EXPECT_TRUE(engine.capture->start().succeeded());
    EXPECT_TRUE(engine.delivers());
}

TEST_F(LiveCapture, CountsTheSoundThatASlowTapLosesAndWaitsForTheTapToEnd) {
    const PulseServer server(48000);
    Engine engine;
    std::atomic<bool> isStalled = true, isRemoved = false;
    std::atomic<int> blocks = 0, late = 0;
    engine.tap([&](const AudioBuffer&, double) {
        if (isRemoved) ++late;
        ++blocks;
        isStalled.wait(true);
        if (isRemoved) ++late;
    });
    ASSERT_TRUE(engine.capture->start().succeeded());
    EXPECT_TRUE(becomes([&] { return engine.capture->status().droppedFrames > 0; }));
    EXPECT_EQ(blocks, 1);
    std::thread remover([&] {
        engine.capture->removeTap(0);
        isRemoved = true;
    });
    isStalled = false;
    isStalled.notify_all();
    remover.join();
    engine.capture->stop();
    EXPECT_EQ(late, 0);
    const CaptureStatus status = engine.capture->status();
    EXPECT_EQ(status.droppedFrames, status.overruns * 4800); // the library's calls are of one block each
    EXPECT_THAT(engine.lines->take(), ElementsAre(HasSubstr(std::to_string(status.droppedFrames))));
}

TEST_F(LiveCapture, StopsAndStartsAgainWithoutACallInBetween) {
    const PulseServer server(48000);
    const auto player = server.play(silence(20 * 48000), 48000); // keeps the sink's own blocks short
    Engine engine;
    for (int round = 0; round < 4; ++round) {
        ASSERT_TRUE(engine.capture->start().succeeded());
        EXPECT_TRUE(engine.capture->start().succeeded()); // no effect
        EXPECT_TRUE(engine.delivers());
        engine.capture->stop();
        EXPECT_FALSE(engine.capture->isRunning());
        EXPECT_FALSE(engine.delivers(std::chrono::milliseconds(150)));
        if (round % 2 == 0) engine.capture->outputFormat(0); // as a listener does, and not
    }
}

TEST_F(LiveCapture, ListsInputsAndFindsThemByAPartOfTheirName) {
    PulseServer server(44100);
    const std::vector<InputDevice> devices = inputDevices();
    ASSERT_EQ(devices.size(), 1U);
    EXPECT_EQ(devices[0].name, "air.monitor");
    EXPECT_THAT(devices[0].description, HasSubstr("Monitor"));
    EXPECT_TRUE(devices[0].isDefault && devices[0].isMonitor);
    EXPECT_EQ(devices[0].nativeRate_hz, 44100);
    EXPECT_EQ(devices[0].captureRate_hz, 44100);
    EXPECT_THAT(devices[0].supportedRates_hz, ElementsAre(44100, 48000, 96000));

    Engine named("Monitor OF");
    EXPECT_TRUE(named.capture->start().succeeded());
    EXPECT_TRUE(named.delivers());
    EXPECT_EQ(named.capture->status().device, "air.monitor");
    EXPECT_THAT(Engine("USB").capture->start().error(), HasSubstr("no input is called \"USB\""));
}

TEST_F(LiveCapture, TheCommandListsInputsAndWarnsOfARateThatCannotCarryTheBand) {
    const auto sorvelDevices = [](const std::string& options) {
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(
            ::popen(("'" SORVEL_PROGRAM "' devices " + options + " 2>&1").c_str(), "r"), ::pclose);
        std::string output(10000, '\0');
        output.resize(std::fread(output.data(), 1, output.size(), pipe.get()));
        return output;
    };
    PulseServer server(48000);
    EXPECT_THAT(sorvelDevices(""),
                testing::MatchesRegex(".*\n\\*  air.monitor +48000 Hz +48000 Hz +yes .*\n"));
    server.start(16000);
    EXPECT_THAT(sorvelDevices("--json"),
                testing::MatchesRegex("\\{\"name\":\"air.monitor\",\"description\":\"Monitor of [^\"]*\","
                                      "\"default\":true,\"monitor\":true,\"own_rate\":16000,\"opened_at\":"
                                      "16000,\"rates\":\\[44100,48000,96000\\],\"carries_band\":false\\}\n"
                                      "sorvel: air.monitor: 16000 Hz cannot carry 18 to 19.5 kHz: .*\n"));
    server.kill();
    EXPECT_THAT(sorvelDevices(""), testing::MatchesRegex("sorvel: no sound input found: .*\n"));
}

TEST_F(LiveCapture, SaysInOneLineThatThereIsNoInput) {
    const PulseServer notRunning;
    EXPECT_TRUE(inputDevices().empty());
    Engine engine;
    EXPECT_EQ(engine.capture->outputFormat(0).sampleRate, 48000);
    const AudioResult result = engine.capture->start();
    EXPECT_THAT(result.error(), HasSubstr("no sound input found"));
    EXPECT_THAT(result.error(), testing::Not(HasSubstr("\n")));
    EXPECT_EQ(engine.capture->status().error, result.error());
}

TEST(Rates, CarryTheBandFrom44100HzOn) {
    EXPECT_TRUE(carriesBand(44100) && carriesBand(48000) && carriesBand(96000));
    EXPECT_EQ(rateWarning(44100), "");
    for (const double rate_hz : {0.0, 8000.0, 16000.0, 32000.0, 40000.0}) {
        EXPECT_FALSE(carriesBand(rate_hz));
        EXPECT_THAT(rateWarning(rate_hz), HasSubstr(std::to_string(static_cast<int>(rate_hz)) + " Hz"));
    }
}
