#include "platform/portaudio_capture.hpp"

#include "platform/portaudio_stream.hpp"

#include <atomic>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

namespace sorvel {

namespace {

constexpr double kWait_s = 0.1;
// Counted in waits rather than in time, so that a machine that stands still for a while ends nothing.
constexpr int kQuietWaits = 9;
constexpr int kQuietWaitsAtFirst = 50;
constexpr int kWaitsToAsk = 3;

std::string described(const CaptureStatus& status, const std::string& what) {
    return "the input \"" + status.device + "\" " + what;
}

} // namespace

struct PortAudioCapture::State {
    explicit State(CaptureOptions given) : options(std::move(given)) {}

    void prepare();
    AudioResult start();
    void end() noexcept;
    void read(PortAudioStream& input, AudioBuffer block) noexcept;
    void deliver(const AudioBuffer& block, double time_s);
    void lose(PortAudioStream& input, const char* how) noexcept;
    void close(std::string error) noexcept;
    void setStream(std::shared_ptr<PortAudioStream> next, std::string error);
    CaptureStatus currentStatus() const;
    AudioFormat format() const;
    void print(const std::string& line) const {
        if (options.lines) options.lines->line("Sorvel: " + line);
    }

    const CaptureOptions options;
    std::mutex controlMutex; // one start, stop or look at a time
    std::thread reader;
    std::atomic<bool> isStopping = false;
    std::atomic<bool> isRunning = false;

    mutable std::mutex statusMutex; // of the two below; not taken on the capture thread but at its end
    std::shared_ptr<PortAudioStream> stream; // prepared or started
    CaptureStatus status;                    // but for the counts of `stream`

    std::mutex tapMutex; // the capture thread only tries it
    TapBlock tap;
};

// --- the application's thread

std::shared_ptr<PortAudioCapture> PortAudioCapture::make(CaptureOptions options) {
    return std::make_shared<PortAudioCapture>(OnlyHere{}, std::move(options));
}

PortAudioCapture::PortAudioCapture(OnlyHere, CaptureOptions options)
    : m_state(std::make_unique<State>(std::move(options))) {}

PortAudioCapture::~PortAudioCapture() { m_state->end(); }

CaptureStatus PortAudioCapture::status() const { return m_state->currentStatus(); }

std::shared_ptr<AudioInputNode> PortAudioCapture::inputNode() noexcept { return shared_from_this(); }

bool PortAudioCapture::isRunning() const noexcept { return m_state->isRunning; }

AudioFormat PortAudioCapture::outputFormat(std::uint32_t) noexcept {
    const std::lock_guard lock(m_state->controlMutex);
    if (!m_state->isRunning) m_state->prepare();
    return m_state->format();
}

AudioResult PortAudioCapture::start() noexcept {
    const std::lock_guard lock(m_state->controlMutex);
    return m_state->isRunning ? AudioResult::success() : m_state->start();
}

void PortAudioCapture::stop() noexcept {
    const std::lock_guard lock(m_state->controlMutex);
    m_state->end();
}

void PortAudioCapture::installTap(std::uint32_t, std::uint32_t, const AudioFormat&, TapBlock block) noexcept {
    const std::lock_guard lock(m_state->tapMutex);
    std::swap(m_state->tap, block); // the former one ends outside the lock
}

void PortAudioCapture::removeTap(std::uint32_t) noexcept { installTap(0, 0, {}, nullptr); }

CaptureStatus PortAudioCapture::State::currentStatus() const {
    const std::lock_guard lock(statusMutex);
    CaptureStatus current = status;
    if (stream) {
        current.overruns = stream->overruns();
        current.droppedFrames = stream->droppedFrames();
    }
    return current;
}

AudioFormat PortAudioCapture::State::format() const {
    const std::lock_guard lock(statusMutex);
    if (status.device.empty()) return {SampleType::Float32, 48000.0, 1, true};
    return {SampleType::Float32, status.rate_hz, status.channelCount, true};
}

void PortAudioCapture::State::setStream(std::shared_ptr<PortAudioStream> next, std::string error) {
    const std::lock_guard lock(statusMutex);
    stream = std::move(next);
    status = {};
    status.error = std::move(error);
    if (!stream) return;
    status.device = stream->input().name;
    status.rate_hz = stream->input().rate_hz;
    status.channelCount = stream->input().channelCount;
}

/// Leaves a stream ready to start, or none and the reason in the status.
void PortAudioCapture::State::prepare() {
    end();
    try {
        setStream(PortAudioStream::prepare(options.device), {});
    } catch (const std::exception& error) {
        setStream(nullptr, error.what());
    }
}

AudioResult PortAudioCapture::State::start() {
    // What has ended by itself, or was not looked for since the last start, is looked for now.
    if (reader.joinable() || !stream) prepare();
    if (!stream) return AudioResult::failure(currentStatus().error);
    try {
        const BlockLengths lengths(format().sampleRate);
        AudioBuffer block(format(), lengths.longest());
        stream->start(lengths.longest());
        isStopping = false;
        isRunning = true;
        reader = std::thread(
            [this, &input = *stream, block = std::move(block)]() mutable { read(input, std::move(block)); });
        return AudioResult::success();
    } catch (const std::exception& error) {
        isRunning = false;
        close(error.what());
        return AudioResult::failure(error.what());
    }
}

void PortAudioCapture::State::end() noexcept {
    isStopping = true;
    if (const std::lock_guard lock(statusMutex); stream) stream->wake();
    if (reader.joinable()) reader.join();
    isRunning = false;
    close({});
}

/// Closes what is open. Its counts stay in the status.
void PortAudioCapture::State::close(std::string error) noexcept {
    std::shared_ptr<PortAudioStream> ending;
    {
        const std::lock_guard lock(statusMutex);
        if (!stream) return;
        status.overruns = stream->overruns();
        status.droppedFrames = stream->droppedFrames();
        status.error = std::move(error);
        ending = std::exchange(stream, nullptr);
    }
    PortAudioStream::retire(std::move(ending));
    try {
        if (const CaptureStatus last = currentStatus(); last.overruns > 0)
            print(described(last, "lost sound " + std::to_string(last.overruns) +
                                      " times, because the machine was not fast enough: " +
                                      std::to_string(last.droppedFrames) + " frames"));
    } catch (const std::exception&) {
        return; // no memory for a line
    }
}

// --- the capture thread

/// Takes blocks of 100 ms from the ring until it is stopped or the input ends. Between blocks: no
/// allocation, no lock but one that is only tried, no message. The wait for sound is the only one.
void PortAudioCapture::State::read(PortAudioStream& input, AudioBuffer block) noexcept {
    const AudioFormat form = block.format();
    BlockLengths lengths(form.sampleRate);
    std::uint64_t delivered_frames = 0;
    int quietWaits = 0;
    for (std::uint32_t wanted = lengths.next(); !isStopping;) {
        quietWaits = input.wait(kWait_s) ? 0 : quietWaits + 1;
        while (!isStopping && input.take(block.floatSamples(0).first(wanted * form.channelCount))) {
            block.setFrameLength(wanted);
            deliver(block, static_cast<double>(delivered_frames) / form.sampleRate);
            delivered_frames += wanted;
            wanted = lengths.next();
        }
        const bool hasLostServer = quietWaits > 0 && quietWaits % kWaitsToAsk == 0 && input.hasLostServer();
        if (input.hasEnded() || hasLostServer)
            return lose(input, "is gone: it was unplugged, or the sound server ended");
        if (quietWaits >= (delivered_frames > 0 ? kQuietWaits : kQuietWaitsAtFirst))
            return lose(input, "delivers no sound: unplugged, or the sound server hangs");
    }
}

void PortAudioCapture::State::deliver(const AudioBuffer& block, double time_s) {
    if (options.observer) options.observer(block);
    // Whoever holds it installs or removes the tap just now: the block before or after is as good.
    const std::unique_lock lock(tapMutex, std::try_to_lock);
    if (lock && tap) tap(block, time_s);
}

/// Closes at once rather than at the next stop: an input that has failed may keep its thread busy.
void PortAudioCapture::State::lose(PortAudioStream& input, const char* how) noexcept {
    input.giveUp();
    try {
        const std::string line = described(currentStatus(), how);
        print(line);
        isRunning = false;
        close(line);
    } catch (const std::exception&) { // no memory for a line
        isRunning = false;
        close({});
    }
}

} // namespace sorvel
