#include "platform/audio/cubeb_capture.hpp"

#include "platform/audio/channel_choice.hpp"
#include "platform/audio/cubeb_stream.hpp"

#include <atomic>
#include <exception>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <utility>
#include <vector>

namespace sorvel {

namespace {

constexpr double kWait_s = 0.1;
// Counted in waits rather than in time, so that a machine that stands still for a while ends nothing.
constexpr int kQuietWaits = 9;
// PulseAudio hands over up to 2 s at once, as from the monitor of a sink that nothing is played to.
constexpr int kQuietWaitsFromServer = 25;
constexpr int kQuietWaitsAtFirst = 50;

std::string described(const CaptureStatus& status, const std::string& what) {
    return "the input \"" + status.device + "\" " + what;
}

/// Empty: no sound was lost.
std::string lossLine(const CaptureStatus& last) {
    if (last.overruns == 0) return {};
    return described(last, "lost sound " + std::to_string(last.overruns) +
                               " times, because the machine was not fast enough: " +
                               std::to_string(last.droppedFrames) + " frames");
}

void print(const std::shared_ptr<ProgressLines>& lines, const std::string& line) {
    if (lines) lines->line("Sorvel: " + line);
}

} // namespace

struct CubebCapture::State {
    explicit State(CaptureOptions given) : options(std::move(given)) {}

    void prepare();
    AudioResult start();
    void end() noexcept;
    class Channels;
    void read(Channels& channels, AudioBuffer block) noexcept;
    void deliver(const AudioBuffer& block, double time_s);
    void lose(EngineEnd end, const char* how) noexcept;
    void close(std::string error) noexcept;
    std::shared_ptr<CubebStream> takeStream(std::string error) noexcept;
    void setStream(std::shared_ptr<CubebStream> next, std::string error);
    CaptureStatus currentStatus() const;
    AudioFormat format() const;

    const CaptureOptions options;
    std::mutex controlMutex; // one start, stop or look at a time
    std::thread reader;
    std::atomic<bool> isStopping = false;
    std::atomic<bool> isRunning = false;

    mutable std::mutex statusMutex;      // of the two below; not taken on the capture thread but at its end
    std::shared_ptr<CubebStream> stream; // prepared or started
    CaptureStatus status;                // but for the name and counts of `stream`

    std::mutex noticeMutex;
    EndNotice notice;

    std::mutex tapMutex; // the capture thread only tries it
    TapBlock tap;
};

/// An input's sound as one channel.
class CubebCapture::State::Channels {
public:
    /// @throws AudioDeviceError  when it does not have the one that is asked for
    Channels(CubebStream& input, std::optional<std::uint32_t> channel, std::uint32_t longest_frames)
        : m_input(&input), m_count(input.channelCount()), m_isGiven(channel.has_value()),
          m_channel(channel.value_or(1) - 1), m_choice(input.rate_hz(), m_count),
          m_interleaved(std::size_t{longest_frames} * m_count) {
        if (m_channel >= m_count)
            throw AudioDeviceError(input.name() + " gives " + std::to_string(m_count) +
                                   (m_count == 1 ? " channel" : " channels") + ", no channel " +
                                   std::to_string(m_channel + 1) + "; leave --channel out for the best one");
    }

    CubebStream& input() const noexcept { return *m_input; }
    /// On the capture thread. @return whether there was enough to fill `mono`
    bool take(std::span<float> mono) noexcept {
        if (m_count == 1) return m_input->take(mono);
        const std::span<float> interleaved = std::span(m_interleaved).first(mono.size() * m_count);
        if (!m_input->take(interleaved)) return false;
        takeChannel(interleaved, m_count, m_isGiven ? m_channel : m_choice.look(interleaved), mono);
        return true;
    }

private:
    CubebStream* m_input;
    std::size_t m_count;
    bool m_isGiven;
    std::size_t m_channel;
    ChannelChoice m_choice;
    std::vector<float> m_interleaved;
};

// --- the application's thread

std::shared_ptr<CubebCapture> CubebCapture::make(CaptureOptions options) {
    return std::make_shared<CubebCapture>(OnlyHere{}, std::move(options));
}

CubebCapture::CubebCapture(OnlyHere, CaptureOptions options)
    : m_state(std::make_unique<State>(std::move(options))) {}

CubebCapture::~CubebCapture() { m_state->end(); }

CaptureStatus CubebCapture::status() const { return m_state->currentStatus(); }

std::shared_ptr<AudioInputNode> CubebCapture::inputNode() noexcept { return shared_from_this(); }

bool CubebCapture::isRunning() const noexcept { return m_state->isRunning; }

AudioFormat CubebCapture::outputFormat(std::uint32_t) noexcept {
    const std::lock_guard lock(m_state->controlMutex);
    if (!m_state->isRunning) m_state->prepare();
    return m_state->format();
}

AudioResult CubebCapture::start() noexcept {
    const std::lock_guard lock(m_state->controlMutex);
    return m_state->isRunning ? AudioResult::success() : m_state->start();
}

void CubebCapture::stop() noexcept {
    const std::lock_guard lock(m_state->controlMutex);
    m_state->end();
}

void CubebCapture::installTap(std::uint32_t, std::uint32_t, const AudioFormat&, TapBlock block) noexcept {
    const std::lock_guard lock(m_state->tapMutex);
    std::swap(m_state->tap, block); // the former one ends outside the lock
}

void CubebCapture::setEndNotice(EndNotice notice) noexcept {
    const std::lock_guard lock(m_state->noticeMutex);
    std::swap(m_state->notice, notice);
}

void CubebCapture::removeTap(std::uint32_t) noexcept { installTap(0, 0, {}, nullptr); }

CaptureStatus CubebCapture::State::currentStatus() const {
    const std::lock_guard lock(statusMutex);
    CaptureStatus current = status;
    if (stream) {
        current.device = stream->name();
        current.overruns = stream->overruns();
        current.droppedFrames = stream->droppedFrames();
    }
    return current;
}

AudioFormat CubebCapture::State::format() const {
    const std::lock_guard lock(statusMutex);
    if (status.device.empty()) return {SampleType::Float32, 48000.0, 1, true};
    return {SampleType::Float32, status.rate_hz, 1, true};
}

void CubebCapture::State::setStream(std::shared_ptr<CubebStream> next, std::string error) {
    const std::lock_guard lock(statusMutex);
    stream = std::move(next);
    status = {};
    status.error = std::move(error);
    if (!stream) return;
    status.device = stream->name();
    status.rate_hz = stream->rate_hz();
    status.channelCount = stream->channelCount();
}

/// Leaves a stream ready to start, or none and the reason in the status.
void CubebCapture::State::prepare() {
    end();
    try {
        setStream(CubebStream::prepare(options.device), {});
    } catch (const std::exception& error) {
        setStream(nullptr, error.what());
    }
}

AudioResult CubebCapture::State::start() {
    // What has ended by itself, or was not looked for since the last start, is looked for now.
    if (reader.joinable() || !stream || stream->end() != CubebStream::End::None) prepare();
    if (!stream) return AudioResult::failure(currentStatus().error);
    try {
        const BlockLengths lengths(format().sampleRate);
        AudioBuffer block(format(), lengths.longest());
        stream->start();
        isStopping = false;
        isRunning = true;
        Channels channels(*stream, options.channel, lengths.longest());
        reader = std::thread([this, block = std::move(block), channels = std::move(channels)]() mutable {
            read(channels, std::move(block));
        });
        return AudioResult::success();
    } catch (const std::exception& error) {
        isRunning = false;
        close(error.what());
        return AudioResult::failure(error.what());
    }
}

void CubebCapture::State::end() noexcept {
    isStopping = true;
    if (const std::lock_guard lock(statusMutex); stream) stream->wake();
    if (reader.joinable()) reader.join();
    isRunning = false;
    close({});
}

/// What is open, to be closed. Its name and counts stay in the status.
std::shared_ptr<CubebStream> CubebCapture::State::takeStream(std::string error) noexcept {
    const std::lock_guard lock(statusMutex);
    if (!stream) return nullptr;
    status.device = stream->name();
    status.overruns = stream->overruns();
    status.droppedFrames = stream->droppedFrames();
    status.error = std::move(error);
    return std::exchange(stream, nullptr);
}

void CubebCapture::State::close(std::string error) noexcept {
    std::shared_ptr<CubebStream> ending = takeStream(std::move(error));
    if (!ending) return;
    CubebStream::retire(std::move(ending));
    try {
        if (const std::string line = lossLine(currentStatus()); !line.empty()) print(options.lines, line);
    } catch (const std::exception&) {
        return; // no memory for a line
    }
}

// --- the capture thread

/// Takes blocks of 100 ms from the ring until it is stopped or the input ends. Between blocks: no
/// allocation, no lock but one that is only tried, no message. The wait for sound is the only one.
void CubebCapture::State::read(Channels& channels, AudioBuffer block) noexcept {
    CubebStream& input = channels.input();
    const AudioFormat form = block.format();
    BlockLengths lengths(form.sampleRate);
    std::uint64_t delivered_frames = 0;
    const int mostQuietWaits = input.isServed() ? kQuietWaitsFromServer : kQuietWaits;
    int quietWaits = 0;
    for (std::uint32_t wanted = lengths.next(); !isStopping;) {
        quietWaits = input.wait(kWait_s) ? 0 : quietWaits + 1;
        while (!isStopping && channels.take(block.floatSamples(0).first(wanted))) {
            block.setFrameLength(wanted);
            deliver(block, static_cast<double>(delivered_frames) / form.sampleRate);
            delivered_frames += wanted;
            wanted = lengths.next();
        }
        if (input.end() == CubebStream::End::Changed)
            return lose(EngineEnd::InputChanged, "is no longer the default one");
        if (input.end() == CubebStream::End::Gone)
            return lose(EngineEnd::InputLost, "is gone: it was unplugged, or the sound server ended");
        if (quietWaits >= (delivered_frames > 0 ? mostQuietWaits : kQuietWaitsAtFirst))
            return lose(EngineEnd::InputLost, "delivers no sound: unplugged, or the sound server hangs");
    }
}

void CubebCapture::State::deliver(const AudioBuffer& block, double time_s) {
    if (options.observer) options.observer(block);
    // Whoever holds it installs or removes the tap just now: the block before or after is as good.
    const std::unique_lock lock(tapMutex, std::try_to_lock);
    if (lock && tap) tap(block, time_s);
}

/// The end of this thread. Closing and telling is left to one that nobody waits for, so that who is
/// told may stop or start this.
void CubebCapture::State::lose(EngineEnd end, const char* how) noexcept {
    try {
        const std::string line = described(currentStatus(), how);
        std::unique_lock lock(noticeMutex);
        auto tell = [end, line, lines = options.lines, notice = notice](std::shared_ptr<CubebStream> ending,
                                                                        const std::string& loss) {
            print(lines, line);
            if (!loss.empty()) print(lines, loss);
            if (notice) notice(end, line);
            CubebStream::retire(std::move(ending));
        };
        lock.unlock();
        std::shared_ptr<CubebStream> ending = takeStream(line);
        const std::string loss = lossLine(currentStatus());
        isRunning = false; // before it is told: who is told looks whether it was started since
        std::thread teller(std::move(tell), std::move(ending), loss);
        teller.detach();
    } catch (const std::exception&) { // no memory for a line, or no thread
        isRunning = false;
        close({});
    }
}

} // namespace sorvel
