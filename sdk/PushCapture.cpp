#include "sdk/PushCapture.hpp"

#include <algorithm>
#include <atomic>
#include <optional>

using namespace sorvel;

namespace {

constexpr std::uint32_t kMostChannels = 64;

Platform checked(double sampleRate, std::uint32_t channelCount, const Platform& platform) {
    if (!(sampleRate >= kLowestSampleRate_hz && sampleRate <= kHighestSampleRate_hz))
        throw MyError::runtimeError("captured sound needs a sample rate of 8000 to 384000 Hz");
    if (channelCount < 1 || channelCount > kMostChannels)
        throw MyError::runtimeError("captured sound needs 1 to 64 channels");
    return platform;
}

/// Whose sound is already captured needs no arrangement with the sound system.
class NoSession final : public AudioSession {
public:
    AudioResult setCategory(Category, std::uint32_t) noexcept override { return AudioResult::success(); }
    AudioResult setActive(bool) noexcept override { return AudioResult::success(); }
    AudioResult setAllowHapticsAndSystemSoundsDuringRecording(bool) noexcept override {
        return AudioResult::success();
    }
};

void copySamples(std::span<const float> from, std::span<float> to) noexcept {
    std::copy(from.begin(), from.end(), to.begin());
}

void copySamples(std::span<const std::int16_t> from, std::span<float> to) noexcept {
    constexpr float kStep = 1.0F / 32768.0F;
    for (std::size_t i = 0; i < from.size(); ++i) to[i] = kStep * static_cast<float>(from[i]);
}

/// A lock that the pushing side only ever tries: whoever installs or removes a tap waits for it, a
/// push does not.
class Turn {
public:
    bool tryTake() noexcept { return !m_isTaken.test_and_set(std::memory_order_acquire); }
    void take() noexcept {
        while (!tryTake()) m_isTaken.wait(true, std::memory_order_relaxed);
    }
    void giveBack() noexcept {
        m_isTaken.clear(std::memory_order_release);
        m_isTaken.notify_one();
    }

private:
    std::atomic_flag m_isTaken;
};

} // namespace

class PushCapture::Source final : public AudioEngine, public AudioInputNode {
public:
    Source(double sampleRate, std::uint32_t channelCount)
        : m_format{SampleType::Float32, sampleRate, channelCount, true}, m_lengths(sampleRate),
          m_block(m_format, m_lengths.longest()) {}

    template <typename Sample>
    bool push(std::span<const Sample> interleaved) noexcept;

    std::shared_ptr<AudioInputNode> inputNode() noexcept override {
        return {m_self.lock(), static_cast<AudioInputNode*>(this)};
    }
    void setSelf(const std::shared_ptr<Source>& self) { m_self = self; }

    bool isRunning() const noexcept override { return m_isRunning; }
    AudioResult start() noexcept override {
        m_turn.take();
        m_block.setFrameLength(
            0); // sound from before a pause does not belong in one block with that after it
        m_wanted = 0;
        m_isRunning = true;
        m_turn.giveBack();
        return AudioResult::success();
    }
    void stop() noexcept override { m_isRunning = false; }

    AudioFormat outputFormat(std::uint32_t) noexcept override { return m_format; }
    void installTap(std::uint32_t, std::uint32_t, const AudioFormat&, TapBlock block) noexcept override {
        exchangeTap(block);
    }
    void removeTap(std::uint32_t) noexcept override {
        TapBlock none;
        exchangeTap(none);
    }

private:
    void exchangeTap(TapBlock& block) noexcept { // the former one ends with the caller's, outside the turn
        m_turn.take();
        std::swap(m_tap, block);
        m_turn.giveBack();
    }

    const AudioFormat m_format;
    std::weak_ptr<Source> m_self;
    std::atomic<bool> m_isRunning = false;
    Turn m_turn; // of what follows
    TapBlock m_tap;
    BlockLengths m_lengths;
    AudioBuffer m_block;
    std::uint32_t m_wanted = 0; // frames of the block being filled; 0: not begun
    std::uint64_t m_delivered_frames = 0;
};

template <typename Sample>
bool PushCapture::Source::push(std::span<const Sample> interleaved) noexcept {
    const std::size_t channels = m_format.channelCount;
    if (interleaved.size() % channels != 0 || !m_isRunning || !m_turn.tryTake()) return false;
    const bool isTapped = static_cast<bool>(m_tap);
    while (isTapped && !interleaved.empty()) {
        if (m_wanted == 0) m_wanted = m_lengths.next();
        const std::uint32_t filled = m_block.frameLength();
        const std::size_t frames = std::min<std::size_t>(interleaved.size() / channels, m_wanted - filled);
        copySamples(interleaved.first(frames * channels), m_block.floatSamples(0).subspan(filled * channels));
        interleaved = interleaved.subspan(frames * channels);
        m_block.setFrameLength(filled + static_cast<std::uint32_t>(frames));
        if (m_block.frameLength() < m_wanted) break; // the buffer is used up

        m_tap(m_block, static_cast<double>(m_delivered_frames) / m_format.sampleRate);
        m_delivered_frames += m_wanted;
        m_block.setFrameLength(0);
        m_wanted = 0;
    }
    m_turn.giveBack();
    return isTapped;
}

PushCapture::PushCapture(double sampleRate, std::uint32_t channelCount, const Platform& platform)
    : m_platform(checked(sampleRate, channelCount, platform)) {
    m_source = std::make_shared<Source>(sampleRate, channelCount);
    m_source->setSelf(m_source);
    m_platform.audioSession = std::make_shared<NoSession>();
    m_platform.makeAudioEngine = [source = m_source] { return source; };
}

PushCapture::~PushCapture() {
    m_source->stop();
    m_source->removeTap(0); // its block would keep a listener alive that nothing can reach any more
}

bool PushCapture::push(std::span<const float> interleaved) noexcept { return m_source->push(interleaved); }
bool PushCapture::push(std::span<const std::int16_t> interleaved) noexcept {
    return m_source->push(interleaved);
}
