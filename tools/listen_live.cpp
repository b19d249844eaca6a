#include "platform/cubeb_capture.hpp"
#include "sdk/MainQueue.hpp"
#include "sdk/SorvelUBM.hpp"
#include "tools/band_level.hpp"
#include "tools/command.hpp"
#include "tools/heard_line.hpp"
#include "tools/listen_options.hpp"
#include "tools/text_receiver.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace sorvel {

namespace {

using Time = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr double kFirstPause_s = 0.5, kLongestPause_s = 8.0; // before another attempt to open the microphone
constexpr auto kTick = std::chrono::milliseconds(50);

volatile std::sig_atomic_t wasInterrupted = 0;

void interrupt(int) { wasInterrupted = 1; }

/// Keeps the listener's progress lines back until it listens: a start that fails is one line, the
/// reason.
class HeldLines final : public ProgressLines {
public:
    void line(std::string_view text) noexcept override {
        if (m_isHeld) {
            const std::lock_guard lock(m_mutex);
            m_lines.emplace_back(text);
        } else {
            m_out->line(text);
        }
    }
    void release() {
        const std::lock_guard lock(m_mutex);
        m_isHeld = false;
        for (const std::string& held : std::exchange(m_lines, {})) m_out->line(held);
    }

private:
    std::atomic<bool> m_isHeld = true;
    std::mutex m_mutex;
    std::vector<std::string> m_lines;
    std::shared_ptr<ProgressLines> m_out = standardErrorLines();
};

/// Ends with --timeout, --once or a signal; brings the microphone back when it goes away.
class LiveListening {
public:
    LiveListening(const ListenOptions& options, Platform platform)
        : m_options(options), m_meter(std::make_shared<BandLevel>()),
          m_capture(CubebCapture::make(
              {.device = options.device,
               .observer = [meter = m_meter](const AudioBuffer& block) { meter->hear(block); },
               .lines = nullptr})),
          m_listener(options.prefix.empty() ? "*" : options.prefix, completed(std::move(platform))) {
        m_listener.setCallBack([this](const std::string& text) { hear(text); });
    }
    ~LiveListening() { m_listener.stopListening(); }

    /// @return whether the microphone could be opened
    bool start() {
        m_listener.startListening();
        const bool isListening = m_listener.status() == 1 && m_capture->isRunning();
        if (isListening) m_lines->release();
        return isListening;
    }
    std::string obstacle() const {
        const std::string error = m_capture->status().error;
        return error.empty() ? "the microphone cannot be opened; see sorvel devices" : error;
    }

    int run() {
        while (!isOver()) {
            MainQueue::main().poll();
            if (!m_capture->isRunning() && !comeBack()) return kFailed;
            m_status.show([this] { return meterLine(); });
            std::this_thread::sleep_for(kTick);
        }
        m_status.clear();
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
        return platform;
    }

    bool isOver() const {
        if (wasInterrupted != 0) return true;
        if (m_options.once && m_heard > 0) return true;
        return m_options.timeout_s && elapsed_s() >= *m_options.timeout_s;
    }
    double elapsed_s() const { return Seconds(Time::now() - m_start).count(); }

    void hear(const std::string& text) {
        if (m_options.once && m_heard > 0) return;
        ++m_heard;
        m_status.clear();
        printLine(m_options.json ? jsonLine(Heard{text, elapsed_s()}, m_capture->status().device) : text);
    }

    /// Says why capture ended, and opens the microphone again, with growing pauses.
    /// @return false under --once
    bool comeBack() {
        m_status.clear();
        printError(obstacle());
        m_listener.stopListening();
        if (m_options.once) return false;
        for (double pause_s = kFirstPause_s;; pause_s = std::min(2 * pause_s, kLongestPause_s)) {
            for (const auto until = Time::now() + Seconds(pause_s); Time::now() < until;) {
                if (isOver()) return true;
                std::this_thread::sleep_for(kTick);
            }
            if (start()) break;
            m_listener.stopListening();
        }
        printError("listening again on " + m_capture->status().device);
        return true;
    }

    std::string meterLine() const {
        constexpr int kCells = 24;
        constexpr double kLowest_dbfs = -96.0;
        const double level = m_meter->level_dbfs();
        const int lit =
            static_cast<int>(std::lround(kCells * std::clamp(1.0 - level / kLowest_dbfs, 0.0, 1.0)));
        std::string bar(static_cast<std::size_t>(lit), '#');
        bar.resize(kCells, '.');
        std::array<char, 96> text{};
        std::snprintf(text.data(), text.size(), "[%s] %4.0f dBFS at 18-19.5 kHz, %d heard", bar.c_str(),
                      level, m_heard);
        const auto lost = m_capture->status().overruns;
        return text.data() + (lost > 0 ? ", sound lost " + std::to_string(lost) + " times" : std::string());
    }

    const ListenOptions& m_options;
    std::shared_ptr<HeldLines> m_lines = std::make_shared<HeldLines>();
    std::shared_ptr<BandLevel> m_meter;
    std::shared_ptr<CubebCapture> m_capture;
    SorvelUBM m_listener;
    StatusLine m_status;
    Time::time_point m_start = Time::now();
    int m_heard = 0;
};

} // namespace

int listenLive(const ListenOptions& options, const Platform& platform) {
    LiveListening listening(options, platform);
    if (!listening.start()) {
        printError(listening.obstacle());
        if (!options.orDemo) return kFailed;
        printError("without a microphone, here is the demonstration");
        return runDemo();
    }
    std::signal(SIGINT, interrupt);
    std::signal(SIGTERM, interrupt);
    return listening.run();
}

} // namespace sorvel
