#include "modem/ggwave.h"
#include "payload/encoding.hpp"
#include "platform/audio/block_converter.hpp"
#include "platform/audio/cubeb_capture.hpp"
#include "platform/audio/cubeb_devices.hpp"
#include "platform/audio/cubeb_library.hpp"
#include "platform/audio/rate_converter.hpp"
#include "sdk/MainQueue.hpp"
#include "sdk/SorvelUBM.hpp"
#include "telemetry/Event.hpp"
#include "telemetry/EventHub.hpp"
#include "tests/live/run_program.hpp"
#include "tests/support/allocation_count.hpp"
#include "tests/support/fake_platform.hpp"
#include "tests/support/sound_server.hpp"
#include "tests/support/transmissions.hpp"
#include "tools/listen_options.hpp"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <thread>
#include <unistd.h>

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

using Kind = SoundServer::Kind;

/// The real way from microphone to decoder; clock, telemetry and settings are fakes.
class Listening {
public:
    explicit Listening(CaptureOptions options = {})
        : m_capture(CubebCapture::make(std::move(options))), m_listener("acme", platform()) {
        m_listener.setCallBack([this](const std::string& text) { m_heard.push_back(text); });
        m_fakes.clock->advance(10.0);
    }
    ~Listening() {
        m_listener.stopListening();
        GGWave::setLogFile(nullptr); // not every slot is taken
        for (int id = 0; id < 4; ++id) ggwave_free(id);
        GGWave::setLogFile(stderr);
    }
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;

    SorvelUBM& operator*() { return m_listener; }
    CubebCapture& capture() { return *m_capture; }
    std::vector<std::string> lines() { return m_fakes.lines->take(); }
    bool runs() {
        m_fakes.queue->runAll();
        return m_capture->isRunning();
    }
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
    std::shared_ptr<CubebCapture> m_capture;
    SorvelUBM m_listener;
};

/// Captures without a listener.
struct Engine {
    std::shared_ptr<fake::Lines> lines = std::make_shared<fake::Lines>();
    std::shared_ptr<CubebCapture> capture;
    std::atomic<int> blocks = 0;

    explicit Engine(const std::string& device = "") : capture(CubebCapture::make({device, {}, lines})) {
        tap([this](const AudioBuffer&, double) { ++blocks; });
    }
    ~Engine() { capture->stop(); }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    void tap(TapBlock block) { capture->installTap(0, 4096, capture->outputFormat(0), std::move(block)); }
    /// What it says when it has ended by itself.
    std::string end() {
        EXPECT_TRUE(becomes([&] { return !capture->isRunning(); }));
        std::vector<std::string> told;
        EXPECT_TRUE(becomes([&] { return !(told = lines->take()).empty(); }));
        return told.empty() ? "" : told.front();
    }
    bool delivers(Steady::duration patience = kPatience) {
        const int before = blocks;
        return becomes([&] { return blocks > before; }, patience);
    }
};

/// Whatever happens, nothing chatters.
class LiveCapture : public testing::Test {
protected:
    void SetUp() override { testing::internal::CaptureStderr(); }
    void TearDown() override { EXPECT_EQ(testing::internal::GetCapturedStderr(), ""); }
};

class AnyServer : public LiveCapture, public testing::WithParamInterface<Kind> {};

} // namespace

INSTANTIATE_TEST_SUITE_P(Kinds, AnyServer, testing::Values(Kind::PulseAudio, Kind::PipeWire),
                         [](const auto& kind) {
                             return kind.param == Kind::PipeWire ? "PipeWire" : "PulseAudio";
                         });

TEST_P(AnyServer, HearsWhatIsPlayedInBlocksOf100MsWithoutAllocating) {
    const SoundServer server(GetParam(), 48000);
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
    EXPECT_TRUE(becomes([&] { return blocks >= 25; }));
    (*listening).stopListening();
    EXPECT_EQ((*listening).status(), 1);
    EXPECT_EQ(wrongBlocks, 0);
    EXPECT_EQ(allocated, 0U);
    const CaptureStatus status = listening.capture().status();
    EXPECT_EQ(status.device, "air.monitor");
    EXPECT_EQ(status.overruns, 0U);
    EXPECT_EQ(status.error, "");
}

TEST_P(AnyServer, NoticesThatTheServerDiedAndHearsTheNextTransmissionAtItsNewRate) {
    SoundServer server(GetParam(), 48000);
    std::atomic<int> blocks = 0;
    Listening listening({.device = {}, .observer = [&](const AudioBuffer&) { ++blocks; }, .lines = nullptr});
    std::vector<std::pair<SorvelUBM::State, std::string>> told;
    (*listening).setStateCallBack([&](SorvelUBM::State state, const std::string& reason) {
        told.emplace_back(state, reason);
        if (state == SorvelUBM::State::Lost) (*listening).stopListening();
    });
    (*listening).startListening();
    std::optional<SoundServer::Player> player;
    player.emplace(server, sound("acme_lost", 48000), 48000);
    ASSERT_TRUE(becomes([&] { return blocks > 5; })); // amidst the transmission
    server.kill();
    EXPECT_TRUE(becomes([&] {
        return !listening.runs() && !told.empty() && told.back().first == SorvelUBM::State::Stopped;
    }));
    ASSERT_EQ(told.size(), 3U);
    EXPECT_EQ(told[1].first, SorvelUBM::State::Lost);
    EXPECT_THAT(told[1].second, HasSubstr("\"air.monitor\" is gone"));
    EXPECT_EQ((*listening).status(), 0);
    EXPECT_EQ((*listening).reason(), told[1].second);

    (*listening).startListening();
    EXPECT_EQ((*listening).status(), -1);
    EXPECT_THAT((*listening).reason(), HasSubstr("no sound input found"));
    (*listening).stopListening();

    server.start(44100);
    (*listening).startListening();
    EXPECT_EQ((*listening).status(), 1);
    EXPECT_EQ(listening.capture().status().rate_hz, 44100);
    player.emplace(server, sound("acme_next", 44100), 44100);
    EXPECT_TRUE(listening.hears("acme_next"));
}

TEST_P(AnyServer, GivesUpAServerThatHangsAndReturnsWhenItDoes) {
    SoundServer server(GetParam(), 48000);
    Engine engine;
    ASSERT_TRUE(engine.capture->start().succeeded());
    ASSERT_TRUE(engine.delivers());
    server.freeze();
    EXPECT_THAT(engine.end(), HasSubstr("delivers no sound"));
    engine.capture->stop();
    EXPECT_THAT(engine.capture->start().error(), HasSubstr("does not answer"));
    server.thaw();
    EXPECT_TRUE(becomes([&] { return engine.capture->start().succeeded(); }));
    EXPECT_TRUE(engine.delivers());
}

TEST_P(AnyServer, FollowsTheDefaultInputAndNoOther) {
    const SoundServer server(GetParam(), 48000);
    Listening listening({.device = {}, .observer = {}, .lines = nullptr});
    (*listening).startListening();
    listening.lines();
    const auto isOn = [&](const std::string& device, double rate_hz) {
        return becomes([&] {
            const CaptureStatus status = listening.capture().status();
            return listening.runs() && status.device == device && status.rate_hz == rate_hz;
        });
    };
    EXPECT_TRUE(isOn("air.monitor", 48000));
    const std::string other = server.addSink("other", 44100), equal = server.addSink("equal", 48000);
    EXPECT_TRUE(becomes([] { return inputDevices().size() == 3; }));
    const Samples nothing = silence(90 * 48000); // keeps the sinks' own blocks short
    const SoundServer::Player onAir(server, nothing, 48000), onOther(server, nothing, 44100, "other"),
        onEqual(server, nothing, 48000, "equal");
    Engine named("OTHER.mon"); // also keeps the server from running this source at 48000 Hz
    EXPECT_TRUE(named.capture->start().succeeded());
    EXPECT_TRUE(named.delivers());
    server.makeDefault("equal.monitor");
    EXPECT_TRUE(isOn("equal.monitor", 48000));
    server.makeDefault("other.monitor");
    EXPECT_TRUE(isOn("other.monitor", 44100));
    EXPECT_THAT(listening.lines(), testing::IsEmpty()); // the microphone was never off

    const SoundServer::Player player(server, sound("acme_other", 44100), 44100, "other");
    EXPECT_TRUE(listening.hears("acme_other"));
    server.makeDefault("air.monitor");
    EXPECT_TRUE(isOn("air.monitor", 48000))
        << listening.capture().status().device << ' ' << listening.capture().status().rate_hz << ' '
        << (*listening).reason() << listening.capture().status().error;
    EXPECT_TRUE(named.delivers());
    server.removeSink(other); // then the server moves the capture to an input that is not the one asked for
    EXPECT_THAT(named.end(), HasSubstr("\"other.monitor\" is gone"));
    EXPECT_THAT(named.capture->start().error(), HasSubstr("no input is called \"OTHER.mon\""));
}

TEST_F(LiveCapture, NoticesThatTheServerDiedBeforeItGaveAnySound) {
    SoundServer server(Kind::PulseAudio, 48000);
    Engine engine;
    ASSERT_TRUE(engine.capture->start().succeeded());
    server.kill();
    EXPECT_THAT(engine.end(), HasSubstr("\"air.monitor\" is gone"));
    engine.capture->stop();
    EXPECT_THAT(engine.capture->start().error(), HasSubstr("no sound input found"));
}

TEST_F(LiveCapture, MayBeStoppedAndDestroyedByWhoIsToldOfItsEnd) {
    struct Stopping final : ProgressLines {
        void line(std::string_view) noexcept override {
            wasRunning = capture->isRunning();
            capture->stop();
            capture.reset();
            isDone = true;
        }
        std::shared_ptr<CubebCapture> capture;
        bool wasRunning = false;
        std::atomic<bool> isDone = false;
    };
    SoundServer server(Kind::PulseAudio, 48000);
    const auto lines = std::make_shared<Stopping>();
    lines->capture = CubebCapture::make({.device = {}, .observer = {}, .lines = lines});
    ASSERT_TRUE(lines->capture->start().succeeded());
    server.kill();
    EXPECT_TRUE(becomes([&] { return lines->isDone.load(); }));
    EXPECT_FALSE(lines->wasRunning); // else who is told takes it for one that was started since
}

TEST_F(LiveCapture, LeavesStandardErrorToTheRestOfTheProgramWhileItStarts) {
    const SoundServer server(Kind::PulseAudio, 48000);
    Engine engine;
    std::atomic<bool> ends = false;
    std::size_t written = 0;
    std::thread writer([&] {
        while (!ends) {
            if (::write(STDERR_FILENO, "x", 1) == 1) ++written;
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
    });
    for (int round = 0; round < 5; ++round) {
        EXPECT_TRUE(engine.capture->start().succeeded());
        engine.capture->stop();
    }
    ends = true;
    writer.join();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(written, 'x'));
    testing::internal::CaptureStderr();
}

TEST_F(LiveCapture, CountsTheSoundThatASlowTapLosesAndWaitsForTheTapToEnd) {
    const SoundServer server(Kind::PulseAudio, 48000);
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
    EXPECT_GT(status.overruns, 0U);
    EXPECT_THAT(engine.lines->take(), ElementsAre(HasSubstr(std::to_string(status.droppedFrames))));
}

TEST_F(LiveCapture, StopsAndStartsAgainWithoutACallInBetween) {
    const SoundServer server(Kind::PulseAudio, 48000);
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
    SoundServer server(Kind::PulseAudio, 44100);
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

namespace {

std::string sorvelDevices(const std::string& options) { return ran("sorvel devices " + options).output; }

} // namespace

TEST_F(LiveCapture, TheCommandListsInputsAndOutputsAndWarnsOfARateThatCannotCarryTheBand) {
    SoundServer server(Kind::PulseAudio, 48000);
    EXPECT_THAT(sorvelDevices(""),
                testing::MatchesRegex(" +input .*\n\\*  air.monitor +48000 Hz +48000 Hz +yes .*\n"
                                      " +output .*\n\\*  air +48000 Hz +48000 Hz +yes .*\n"));
    server.start(16000);
    EXPECT_THAT(sorvelDevices("--json"),
                testing::MatchesRegex("\\{\"name\":\"air.monitor\",\"description\":\"Monitor of [^\"]*\","
                                      "\"default\":true,\"monitor\":true,\"own_rate\":16000,\"opened_at\":"
                                      "16000,\"rates\":\\[44100,48000,96000\\],\"carries_band\":false,"
                                      "\"direction\":\"input\"\\}\n"
                                      "\\{\"name\":\"air\",\"description\":\"[^\"]*\",\"default\":true,"
                                      "\"own_rate\":16000,[^\n]*\"direction\":\"output\"\\}\n"
                                      "sorvel: air.monitor: 16000 Hz cannot carry 18 to 19.5 kHz: set the "
                                      "input [^\n]*\n"
                                      "sorvel: air: 16000 Hz cannot carry 18 to 19.5 kHz: set the output "
                                      "[^\n]*\n"));
    server.kill();
    EXPECT_THAT(sorvelDevices(""), testing::MatchesRegex("sorvel: no sound input or output found: [^\n]*\n"));
}

TEST_F(LiveCapture, TheCommandTellsOnceThatTheMicrophoneGoesAndOnceThatItIsBack) {
    SoundServer server(Kind::PulseAudio, 48000);
    fake::Platform fakes;
    Platform platform = fakes.platform;
    platform.makeConverter = makeBlockConverter;
    platform.mainQueue = std::shared_ptr<TaskQueue>(std::shared_ptr<void>(), &MainQueue::main());
    EventHub::turnOn();
    EventHub::setTokenHost("token.test");
    EventHub::setEventHost("hub.test");
    std::vector<std::string> events;
    const auto sent = [&] {
        for (const HttpRequest& request : fakes.http->take())
            if (request.method != "GET")
                events.push_back(*Event::decode(request.body, platform).event->EventType);
        return events.size();
    };
    std::thread user([&] {
        EXPECT_TRUE(becomes([&] { return sent() == 2; }));
        server.kill();
        EXPECT_TRUE(becomes([&] { return sent() == 3; }));
        std::this_thread::sleep_for(std::chrono::seconds(2)); // for several attempts
        server.start(48000);
        EXPECT_TRUE(becomes([&] { return sent() == 4; }));
        ::kill(::getpid(), SIGTERM);
    });
    ListenOptions options;
    options.prefix = "acme";
    EXPECT_EQ(listenLive(options, platform), 1);
    user.join();
    sent();
    EXPECT_THAT(events, ElementsAre("Initialisation", "On", "Off", "On", "Off"));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::MatchesRegex("Sorvel init\nSorvel started listening for ubms\n"
                                      "sorvel: the input \"air.monitor\" is gone[^\n]*\n"
                                      "sorvel: listening again on air.monitor\n"
                                      "Sorvel stoped listening for ubms\n"));
    testing::internal::CaptureStderr();
}

// It lets some six clients wait, and turns away the rest.
TEST_F(LiveCapture, TheCommandSaysAnyNumberOfTimesThatAServerHangs) {
    SoundServer server(Kind::PulseAudio, 48000);
    server.freeze();
    std::vector<std::future<std::string>> answers;
    for (int client = 0; client < 9; ++client)
        answers.push_back(std::async(std::launch::async, sorvelDevices, ""));
    for (auto& answer : answers)
        EXPECT_EQ(answer.get(), "sorvel: the sound server does not answer: restart it\n");
}

// A file stands in for a microphone that gives its sound as fast as it is taken.
TEST_F(LiveCapture, WithoutAServerItTakesTheDevicesAndPrefers48000Hz) {
    const SoundServer notRunning;
    const TemporaryFolder folder;
    folder.write("sound", std::string(96000, '\x11'));
    folder.write("asound.conf", "pcm.nowhere { type null }\n"
                                "pcm.!default { type plug slave.pcm { type file file /dev/null format raw "
                                "infile " +
                                    folder.path().string() + "/sound slave.pcm nowhere } }\n");
    ::setenv("ALSA_CONFIG_PATH", (folder.path() / "asound.conf").c_str(), 1);
    const std::vector<InputDevice> devices = inputDevices();
    ASSERT_EQ(devices.size(), 1U);
    EXPECT_EQ(devices[0].name, "default");
    EXPECT_TRUE(devices[0].isDefault);
    EXPECT_EQ(devices[0].nativeRate_hz, 0.0);
    EXPECT_EQ(devices[0].captureRate_hz, 48000);
    Engine engine;
    EXPECT_TRUE(engine.capture->start().succeeded());
    EXPECT_TRUE(engine.delivers());
    EXPECT_EQ(engine.capture->status().rate_hz, 48000);
}

TEST(AlsaInputs, AreTheLinesOfTheTableThatCapture) {
    std::istringstream table("00-00: ALC257 Analog : ALC257 Analog : playback 1 : capture 1\n"
                             "00-03: HDMI 0 : HDMI 0 : playback 1\n"
                             "02-01: USB Audio : USB Audio #1 : capture 1\n"
                             "nonsense : capture 1\n03-00:\n");
    const std::vector<CubebInput> inputs = alsaInputs(table);
    ASSERT_EQ(inputs.size(), 2U);
    EXPECT_EQ(inputs[0].name + " " + inputs[0].description, "plughw:0,0 ALC257 Analog");
    EXPECT_EQ(inputs[1].name + " " + inputs[1].description, "plughw:2,1 USB Audio");
    EXPECT_EQ(&chooseInput(inputs, "usb"), &inputs[1]);
    EXPECT_THROW(chooseInput(inputs, ""), AudioDeviceError); // none is the default
}

TEST_F(LiveCapture, SaysInOneLineThatThereIsNoInput) {
    const SoundServer notRunning;
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
