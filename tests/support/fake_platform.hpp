#pragma once

#include "sdk/platform.hpp"

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

/// A platform without a machine: time stands still until it is told, sound comes from `hear`,
/// requests are written down.
namespace fake {

class Clock final : public sorvel::Clock {
public:
    double now() const noexcept override { return time_s; }
    void advance(double seconds) { time_s = time_s + seconds; }
    std::atomic<double> time_s = 1749721267.0; // 2025-06-12T09:41:07Z
};

class Facts final : public sorvel::DeviceFacts {
public:
    std::string timeZoneName() override { return "Europe/London"; }
    int utcOffset_s(double) override { return offset_s; }
    std::string osVersion() override { return "17.5.1"; }
    std::string modelName() override { return "iPhone15,2"; }
    int offset_s = 3600;
};

class Uuids final : public sorvel::UuidGenerator {
public:
    std::string make() override {
        return "6F1C2A9E-3B7D-4E51-9A0C-52D8E4F7B61" + std::to_string(m_made++ % 10);
    }

private:
    std::atomic<int> m_made = 3;
};

class Lines final : public sorvel::ProgressLines {
public:
    void line(std::string_view text) noexcept override {
        const std::lock_guard lock(m_mutex);
        m_lines.emplace_back(text);
    }
    std::vector<std::string> take() {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_lines, {});
    }

private:
    std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

class Queue final : public sorvel::TaskQueue {
public:
    void async(std::function<void()> task) override {
        const std::lock_guard lock(m_mutex);
        m_tasks.push_back(std::move(task));
    }
    std::size_t runAll() {
        std::size_t ran = 0;
        while (const auto task = next()) {
            (*task)();
            ++ran;
        }
        return ran;
    }

private:
    std::optional<std::function<void()>> next() {
        const std::lock_guard lock(m_mutex);
        if (m_tasks.empty()) return std::nullopt;
        auto task = std::move(m_tasks.front());
        m_tasks.pop_front();
        return task;
    }
    std::mutex m_mutex;
    std::deque<std::function<void()>> m_tasks;
};

/// Answers every GET with the given token at once, on the calling thread;
/// without one, answers nothing.
class Http final : public sorvel::HttpSession {
public:
    void submit(sorvel::HttpRequest request, Completion completion) override {
        const bool isGet = request.method == "GET";
        {
            const std::lock_guard lock(m_mutex);
            m_requests.push_back(std::move(request));
        }
        if (isGet && answer) completion(answer);
    }
    bool drain(double) override { return true; }
    std::vector<sorvel::HttpRequest> take() {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_requests, {});
    }
    std::optional<sorvel::HttpResponse> answer =
        sorvel::HttpResponse{200, "SharedAccessSignature sr=hub&sig=x"};

private:
    std::mutex m_mutex;
    std::vector<sorvel::HttpRequest> m_requests;
};

class Session final : public sorvel::AudioSession {
public:
    int failingStep = 0; ///< 1 to 3: that operation fails
    std::vector<std::string> calls;

    sorvel::AudioResult setCategory(Category, std::uint32_t options) noexcept override {
        return step(1, "category " + std::to_string(options));
    }
    sorvel::AudioResult setActive(bool active) noexcept override {
        return step(2, active ? "active" : "inactive");
    }
    sorvel::AudioResult setAllowHapticsAndSystemSoundsDuringRecording(bool allow) noexcept override {
        return step(3, allow ? "haptics" : "no haptics");
    }

private:
    sorvel::AudioResult step(int number, std::string call) {
        calls.push_back(std::move(call));
        return number == failingStep
                   ? sorvel::AudioResult::failure("step " + std::to_string(number) + " fails")
                   : sorvel::AudioResult::success();
    }
};

class Engine final : public sorvel::AudioEngine, public sorvel::AudioInputNode {
public:
    bool failsToStart = false;
    int startsThatFail = 0; ///< before the first that does not
    int starts = 0;         ///< so far
    std::atomic<bool> runs = false;
    std::uint32_t tapFrames = 0;
    int taps = 0; ///< installed so far
    sorvel::AudioFormat format{sorvel::SampleType::Float32, 48000.0, 1, true};
    std::weak_ptr<Engine> self;

    std::shared_ptr<sorvel::AudioInputNode> inputNode() noexcept override { return self.lock(); }
    bool isRunning() const noexcept override { return runs; }
    sorvel::AudioResult start() noexcept override {
        ++starts;
        if (failsToStart || startsThatFail-- > 0) return sorvel::AudioResult::failure("fails");
        runs = true;
        return sorvel::AudioResult::success();
    }
    void stop() noexcept override { runs = false; }
    void setEndNotice(sorvel::EndNotice notice) noexcept override { m_notice = std::move(notice); }
    /// As when a device goes away; on this thread.
    void end(sorvel::EngineEnd how, const std::string& reason) {
        runs = false;
        if (m_notice) m_notice(how, reason);
    }
    sorvel::AudioFormat outputFormat(std::uint32_t) noexcept override { return format; }
    void installTap(std::uint32_t, std::uint32_t frames, const sorvel::AudioFormat&,
                    sorvel::TapBlock block) noexcept override {
        const std::lock_guard lock(m_mutex);
        tapFrames = frames;
        ++taps;
        m_tap = std::move(block);
    }
    void removeTap(std::uint32_t) noexcept override {
        const std::lock_guard lock(m_mutex);
        m_tap = nullptr;
    }

    /// Plays one captured block to the tap on this thread. @return whether there is one
    bool hear(std::uint32_t frames = 4800, double rate = 48000.0) {
        sorvel::AudioBuffer block({sorvel::SampleType::Float32, rate, 1, true}, frames);
        block.setFrameLength(frames);
        return hear(block);
    }
    bool hear(const sorvel::AudioBuffer& block) {
        const std::lock_guard lock(m_mutex);
        if (m_tap) m_tap(block, 0.0);
        return static_cast<bool>(m_tap);
    }

private:
    std::mutex m_mutex;
    sorvel::TapBlock m_tap;
    sorvel::EndNotice m_notice;
};

/// Fills the output with a ramp that never meets zero, all of it or the part that is asked for.
class Converter final : public sorvel::AudioConverter {
public:
    struct Behaviour {
        std::atomic<float> filled = 1.0F;
        std::atomic<sorvel::ConverterStatus> status = sorvel::ConverterStatus::HaveData;
        std::atomic<int> blocksTaken = 0;
    };
    explicit Converter(std::shared_ptr<Behaviour> behaviour) : m_behaviour(std::move(behaviour)) {}

    sorvel::ConverterStatus convert(sorvel::AudioBuffer& output,
                                    sorvel::ConverterInput& input) noexcept override {
        auto status = sorvel::InputStatus::HaveData;
        while (input.next(1, status) != nullptr) ++m_behaviour->blocksTaken;
        const auto frames = static_cast<float>(output.frameCapacity()) * m_behaviour->filled;
        output.setFrameLength(static_cast<std::uint32_t>(frames));
        for (std::size_t at = 0; at < output.frameLength(); ++at)
            output.int16Samples(0)[at] = static_cast<std::int16_t>(at % 1000 + 1);
        return m_behaviour->status;
    }

private:
    std::shared_ptr<Behaviour> m_behaviour;
};

/// "Hears" what it is told to, in every block until told otherwise.
class Decoder final : public sorvel::Decoder {
public:
    struct Script {
        std::mutex mutex;
        std::string payload;                ///< copied to the buffer
        std::optional<std::int32_t> result; ///< instead of the payload's length
        int initialised = 0;
        std::string prefix;
        std::vector<std::int16_t> samples; ///< of the last block: as many as its size in bytes says
        bool takesCaptured = false;        ///< blocks as the source delivers them
        std::vector<sorvel::AudioFormat> prepared;
        std::uint64_t capturedFrames = 0;

        void hears(std::string text) {
            const std::lock_guard lock(mutex);
            payload = std::move(text);
        }
    };
    explicit Decoder(std::shared_ptr<Script> script) : m_script(std::move(script)) {}

    void InitSorvelWave() override { ++m_script->initialised; }
    std::int32_t Decode(const void* waveform, std::int32_t bytes, void* payload,
                        const std::string& prefix) override {
        const std::lock_guard lock(m_script->mutex);
        const auto* const samples = static_cast<const std::int16_t*>(waveform);
        m_script->samples.assign(samples, samples + bytes / 2);
        m_script->prefix = prefix;
        m_script->payload.copy(static_cast<char*>(payload), 256);
        return m_script->result.value_or(static_cast<std::int32_t>(m_script->payload.size()));
    }

    bool prepare(const sorvel::AudioFormat& captured, const std::string& prefix) override {
        const std::lock_guard lock(m_script->mutex);
        m_script->prepared.push_back(captured);
        m_script->prefix = prefix;
        return m_script->takesCaptured;
    }
    std::int32_t DecodeCaptured(const sorvel::AudioBuffer& block, void* payload) override {
        const std::lock_guard lock(m_script->mutex);
        m_script->capturedFrames += block.frameLength();
        m_script->payload.copy(static_cast<char*>(payload), 256);
        return m_script->result.value_or(static_cast<std::int32_t>(m_script->payload.size()));
    }

private:
    std::shared_ptr<Script> m_script;
};

/// The parts above, put together.
struct Platform {
    std::shared_ptr<Clock> clock = std::make_shared<Clock>();
    std::shared_ptr<Facts> facts = std::make_shared<Facts>();
    std::shared_ptr<Lines> lines = std::make_shared<Lines>();
    std::shared_ptr<Queue> queue = std::make_shared<Queue>();
    std::shared_ptr<Http> http = std::make_shared<Http>();
    std::shared_ptr<Session> session = std::make_shared<Session>();
    std::shared_ptr<Engine> engine = std::make_shared<Engine>(); ///< of every listener
    std::shared_ptr<Converter::Behaviour> converter = std::make_shared<Converter::Behaviour>();
    std::shared_ptr<Decoder::Script> decoder = std::make_shared<Decoder::Script>();
    sorvel::Platform platform;

    Platform() {
        engine->self = engine;
        platform.clock = clock;
        platform.store->setString("id", "0D4E8B27-91A3-4C6F-B5E2-7A19C3D8F054");
        platform.facts = facts;
        platform.uuids = std::make_shared<Uuids>();
        platform.http = http;
        platform.audioSession = session;
        platform.makeAudioEngine = [engine = engine] { return engine; };
        platform.makeConverter = [behaviour = converter](const auto&, const auto&) {
            return std::make_unique<Converter>(behaviour);
        };
        platform.mainQueue = queue;
        platform.progress = lines;
        platform.makeDecoder = [script = decoder] { return std::make_unique<Decoder>(script); };
    }
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;
    ~Platform() { engine->removeTap(0); } // a tap keeps its listener, which keeps the engine
};

} // namespace fake
