#include "deep/receiver.hpp"
#include "platform/audio/cubeb_capture.hpp"
#include "platform/deep_decoder.hpp"
#include "sdk/MainQueue.hpp"
#include "sdk/SorvelUBM.hpp"
#include "tools/band_level.hpp"
#include "tools/command.hpp"
#include "tools/heard_line.hpp"
#include "tools/interruption.hpp"
#include "tools/level_line.hpp"
#include "tools/listen_options.hpp"
#include "tools/text_replay.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace sorvel {

namespace {

using Time = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr double kFirstPause_s = 0.5, kLongestPause_s = 8.0; // before another attempt to open the microphone
constexpr auto kTick = std::chrono::milliseconds(50);

/// The listener's progress lines, but for those of a microphone that comes and goes.
class PausingLines final : public ProgressLines {
public:
    void line(std::string_view text) noexcept override {
        if (!isPaused) m_out->line(text);
    }
    std::atomic<bool> isPaused = false;

private:
    std::shared_ptr<ProgressLines> m_out = standardErrorLines();
};

/// From the capture thread, which hears, to the main queue, where its texts arrive.
class LatestReceptions {
public:
    void put(const deep::Reception& heard) {
        const std::lock_guard lock(m_mutex);
        m_kept[m_next++ % m_kept.size()] = heard;
    }
    /// Of the youngest of this text; nothing if there is none, or it has waited for too long.
    std::optional<Circumstances> circumstancesOf(const std::string& text) const {
        const std::lock_guard lock(m_mutex);
        for (std::size_t back = 1; back <= m_kept.size(); ++back) {
            const deep::Reception& heard = m_kept[(m_next + m_kept.size() - back) % m_kept.size()];
            if (text == heard.text.data()) return circumstances(heard);
        }
        return std::nullopt;
    }

private:
    mutable std::mutex m_mutex; // once a second at most
    std::array<deep::Reception, 8> m_kept;
    std::size_t m_next = 0;
};

std::string obstacle(const CubebCapture& capture) {
    const std::string error = capture.status().error;
    return error.empty() ? "the microphone cannot be opened; see sorvel devices" : error;
}

/// Ends with --timeout, --once or a signal; brings the microphone back when it goes away.
class LiveListening {
public:
    /// @param capture  running
    LiveListening(const ListenOptions& options, Platform platform, std::shared_ptr<CubebCapture> capture,
                  std::shared_ptr<BandLevel> meter)
        : m_options(options), m_meter(std::move(meter)), m_capture(std::move(capture)),
          m_listener(options.prefix.empty() ? "*" : options.prefix, completed(std::move(platform))) {
        m_listener.setCallBack([this](const std::string& text) { hear(text); });
        m_listener.setStateCallBack([this](SorvelUBM::State state, const std::string& reason) {
            if (state == SorvelUBM::State::Lost || state == SorvelUBM::State::Failed) m_loss = reason;
        });
    }
    ~LiveListening() { m_listener.stopListening(); }

    int run() {
        m_listener.startListening();
        m_device = m_capture->status().device;
        while (!isOver()) {
            MainQueue::main().poll();
            if (m_loss && !comeBack()) return kFailed;
            if (!m_loss && !m_listener.micTapped()) {
                printError(m_listener.reason());
                return kFailed;
            }
            followDevice();
            m_status.show([this] { return meterLine(); });
            std::this_thread::sleep_for(kTick);
        }
        m_status.clear();
        m_lines->isPaused = false;
        m_listener.stopListening();
        MainQueue::main().poll(); // a text that was heard with the last block
        const CaptureStatus status = m_capture->status();
        if (status.overruns > 0)
            printError(std::to_string(status.overruns) + " times sound was lost: this machine was too slow");
        return m_heard > 0 ? kDone : kNothingHeard;
    }

private:
    Platform completed(Platform platform) {
        platform.makeAudioEngine = [capture = m_capture] { return capture; };
        platform.progress = m_lines;
        if (m_options.prefix.empty()) {
            platform.makeDecoder = decoderOfEveryText;
            platform.http = nullptr;
        }
        if (m_options.receiver == ReceiverKind::Deep)
            platform.makeDecoder = [texts = m_options.prefix.empty() ? DeepDecoder::Texts::All
                                                                     : DeepDecoder::Texts::WithPrefix,
                                    latest = m_latest] {
                return std::make_unique<DeepDecoder>(
                    texts, [latest](const deep::Reception& heard) { latest->put(heard); });
            };
        return platform;
    }

    bool isOver() const {
        if (Interruption::hasCome()) return true;
        if (m_options.once && m_heard > 0) return true;
        return m_options.timeout_s && elapsed_s() >= *m_options.timeout_s;
    }
    double elapsed_s() const { return Seconds(Time::now() - m_start).count(); }

    void hear(const std::string& text) {
        if (m_options.once && m_heard > 0) return;
        ++m_heard;
        m_status.clear();
        printLine(m_options.json ? jsonLine(Heard{text, elapsed_s(), m_latest->circumstancesOf(text)},
                                            m_capture->status().device, std::chrono::system_clock::now())
                                 : text);
    }

    void followDevice() {
        const std::string device = m_capture->status().device;
        if (device.empty() || device == m_device) return;
        m_device = device;
        m_status.clear();
        printError("listening on " + device + " now, which has become the default input");
    }

    /// Says why capture ended, and opens the microphone again, with growing pauses. The listener is
    /// started only once sound comes: each of its starts and stops is an event.
    /// @return false under --once
    bool comeBack() {
        m_status.clear();
        printError(m_loss.value_or("").empty() ? obstacle(*m_capture) : m_loss.value_or(""));
        m_lines->isPaused = true;
        m_listener.stopListening();
        if (m_options.once) return false;
        double pause_s = kFirstPause_s;
        while (!m_capture->start().succeeded()) {
            for (const auto until = Time::now() + Seconds(pause_s); Time::now() < until;) {
                if (isOver()) return true;
                std::this_thread::sleep_for(kTick);
            }
            pause_s = std::min(2 * pause_s, kLongestPause_s);
        }
        m_listener.startListening();
        MainQueue::main().poll(); // what the stop and this start have told
        m_loss.reset();
        m_lines->isPaused = false;
        m_device = m_capture->status().device;
        printError("listening again on " + m_device);
        return true;
    }

    std::string meterLine() const {
        return levelLine(
            {.level_dbfs = m_meter->level_dbfs(), .heard = m_heard, .lost = m_capture->status().overruns},
            m_status.columns());
    }

    const ListenOptions& m_options;
    std::shared_ptr<PausingLines> m_lines = std::make_shared<PausingLines>();
    std::shared_ptr<LatestReceptions> m_latest = std::make_shared<LatestReceptions>();
    std::shared_ptr<BandLevel> m_meter;
    std::shared_ptr<CubebCapture> m_capture;
    SorvelUBM m_listener;
    StatusLine m_status;
    Time::time_point m_start = Time::now();
    int m_heard = 0;
    std::string m_device;              // that was last told
    std::optional<std::string> m_loss; // why there is no sound
};

} // namespace

int listenLive(const ListenOptions& options, const Platform& platform) {
    const auto meter = std::make_shared<BandLevel>();
    const auto capture =
        CubebCapture::make({.device = options.device,
                            .observer = [meter](const AudioBuffer& block) { meter->hear(block); },
                            .lines = nullptr,
                            .channel = options.channel});
    if (!capture->start().succeeded()) {
        printError(obstacle(*capture));
        if (!options.orDemo) return kFailed;
        printError("without a microphone, here is the demonstration");
        return runDemo();
    }
    const Interruption interruption;
    return LiveListening(options, platform, capture, meter).run();
}

} // namespace sorvel
