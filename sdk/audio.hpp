#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

/// Captured sound on its way to the decoder: session, engine, input node,
/// buffers and rate conversion.
///
/// Who writes a capture source implements AudioEngine and AudioInputNode and calls the tap block;
/// who writes a converter implements AudioConverter. Both run on the capture thread between blocks
/// and must neither allocate, lock, wait nor throw there.
namespace sorvel {

enum class SampleType : std::uint8_t { Float32 = 1, Int16 = 3 };

struct AudioFormat {
    SampleType sampleType = SampleType::Float32;
    double sampleRate = 0.0; ///< Hz
    std::uint32_t channelCount = 1;
    bool interleaved = true; ///< false: one run of samples per channel

    bool operator==(const AudioFormat&) const = default;
};

/// Rates of captured and recorded sound that can be converted.
inline constexpr double kLowestSampleRate_hz = 8000.0;
inline constexpr double kHighestSampleRate_hz = 384000.0;

/// What the decoder takes: 16-bit mono at 96 kHz, in blocks of 100 ms.
inline constexpr AudioFormat kTargetFormat{SampleType::Int16, 96000.0, 1, true};
inline constexpr std::uint32_t kTargetBlockFrames = 9600;
inline constexpr std::uint32_t kTargetBlockBytes = 2 * kTargetBlockFrames;

/// PCM samples in memory of their own, zero-filled when made.
///
/// Sample of frame f and channel c: `floatSamples(c)[f * stride()]`, interleaved or not. The spans
/// reach to the capacity, so that a writer can fill the buffer before it sets `frameLength`.
class AudioBuffer {
public:
    /// @param frameCapacity  frames that fit
    /// @param minimumBytes   memory is never shorter than this, however small the capacity
    AudioBuffer(const AudioFormat& format, std::uint32_t frameCapacity, std::size_t minimumBytes = 0);

    const AudioFormat& format() const noexcept { return m_format; }
    std::uint32_t frameCapacity() const noexcept { return m_frameCapacity; }
    /// Frames that hold sound; 0 at first.
    std::uint32_t frameLength() const noexcept { return m_frameLength; }
    void setFrameLength(std::uint32_t frames) noexcept; ///< at most the capacity is taken

    /// Samples from one frame to the next of a channel: the channel count when interleaved, else 1.
    std::size_t stride() const noexcept { return m_format.interleaved ? m_format.channelCount : 1; }
    /// Empty for another sample type, or a channel that is not there.
    std::span<float> floatSamples(std::uint32_t channel) noexcept;
    std::span<const float> floatSamples(std::uint32_t channel) const noexcept;
    std::span<std::int16_t> int16Samples(std::uint32_t channel) noexcept;
    std::span<const std::int16_t> int16Samples(std::uint32_t channel) const noexcept;

    /// Empties the buffer for its next use: capacity as given, length 0, all memory zero. Allocates
    /// only when `frameCapacity` exceeds every capacity before.
    void reset(std::uint32_t frameCapacity);
    /// All the memory, which may be more than the capacity takes.
    std::span<const std::byte> bytes() const noexcept { return m_memory; }

private:
    template <typename Sample>
    std::span<const Sample> samples(SampleType type, std::uint32_t channel) const noexcept;

    AudioFormat m_format;
    std::uint32_t m_frameCapacity = 0;
    std::uint32_t m_frameLength = 0;
    std::size_t m_minimumBytes = 0;
    std::vector<std::byte> m_memory; // of the default alignment, which suits every sample type
};

/// Success, or one line that says what failed, on which device or file, and what to try.
class [[nodiscard]] AudioResult {
public:
    static AudioResult success() { return AudioResult(std::nullopt); }
    static AudioResult failure(std::string line) { return AudioResult(std::move(line)); }
    bool succeeded() const noexcept { return !m_error; }
    /// Empty after success.
    std::string error() const { return m_error.value_or(std::string()); }

private:
    explicit AudioResult(std::optional<std::string> error) : m_error(std::move(error)) {}
    std::optional<std::string> m_error;
};

/// The process-wide arrangement with the machine's sound system.
class AudioSession {
public:
    /// Option bits of `setCategory`.
    enum CategoryOptions : std::uint8_t { MixWithOthers = 1, DefaultToSpeaker = 8 };
    enum class Category : std::uint8_t { PlayAndRecord };

    virtual ~AudioSession() = default;
    virtual AudioResult setCategory(Category category, std::uint32_t options) noexcept = 0;
    virtual AudioResult setActive(bool active) noexcept = 0;
    virtual AudioResult setAllowHapticsAndSystemSoundsDuringRecording(bool allow) noexcept = 0;
};

/// Receives one captured block: samples in the format the tap was installed with, and their time in
/// seconds on any steady scale. The reference ends with the call. Does not throw, allocate or lock,
/// except to deliver a text.
using TapBlock = std::function<void(const AudioBuffer& block, double time_s)>;

class AudioInputNode {
public:
    virtual ~AudioInputNode() = default;
    /// The format that the hardware delivers; only its sample rate matters to the listener.
    virtual AudioFormat outputFormat(std::uint32_t bus) noexcept = 0;
    /// Installs `block`, in place of any other on this bus. While the engine runs it is called on
    /// the capture thread, one call at a time.
    ///
    /// Sources deliver blocks of 100 ms (see BlockLengths), whatever `bufferFrames` asks for: the
    /// listener scales a fixed 100 ms of decoder input by how full its converted block is.
    virtual void installTap(std::uint32_t bus, std::uint32_t bufferFrames, const AudioFormat& format,
                            TapBlock block) noexcept = 0;
    /// Removes and releases the block; it is not running and will not be called once this returns.
    /// Must not be called from within the block, for which it waits.
    virtual void removeTap(std::uint32_t bus) noexcept = 0;
};

/// Why a source ended by itself. InputChanged: it was the default input, another one is that now,
/// and a start goes on with it.
enum class EngineEnd : std::uint8_t { InputLost, InputChanged };
/// Receives it with one line about it.
using EndNotice = std::function<void(EngineEnd end, const std::string& reason)>;

/// One capture source. Made once per listener, started and stopped any number of times, from any
/// thread but the capture thread.
class AudioEngine {
public:
    virtual ~AudioEngine() = default; ///< stops
    /// The same node at every call; null where there is none.
    virtual std::shared_ptr<AudioInputNode> inputNode() noexcept = 0;
    /// False again once a source has ended by itself (device gone, end of file).
    virtual bool isRunning() const noexcept = 0;
    virtual AudioResult start() noexcept = 0;
    virtual void stop() noexcept = 0;
    /// Has `notice`, in place of the former one, called when the source has ended by itself: on a
    /// thread of which no call of this class waits. Sources that never do need not care.
    // NOLINTNEXTLINE(performance-unnecessary-value-param): who cares keeps it.
    virtual void setEndNotice(EndNotice) noexcept {}
};

enum class ConverterStatus : std::uint8_t { HaveData = 0, InputRanDry = 1, EndOfStream = 2, Error = 3 };
enum class InputStatus : std::uint8_t { HaveData = 0, NoDataNow = 1 };

/// Where a converter takes its input from during one call.
class ConverterInput {
public:
    virtual ~ConverterInput() = default;
    /// The next block to convert and HaveData, or null and NoDataNow.
    virtual const AudioBuffer* next(std::uint32_t packets, InputStatus& status) noexcept = 0;
};

/// Rate conversion, down-mixing to one channel and rounding to 16 bits, as one continuous stream.
class AudioConverter {
public:
    virtual ~AudioConverter() = default;
    /// Takes blocks from `input` until it answers NoDataNow, and writes to `output` from its first
    /// frame on.
    ///
    /// Fills `output` to its capacity for every block, from the first one on: the latency comes out
    /// as leading silence. A block in another format than the one announced gives
    /// Error and length 0.
    ///
    /// Thread: capture thread. Allocates nothing once blocks have reached their
    /// usual length, locks nothing.
    virtual ConverterStatus convert(AudioBuffer& output, ConverterInput& input) noexcept = 0;
};

/// Lengths of successive 100 ms blocks at a rate at which 100 ms may not be a whole number of
/// frames: at 11025 Hz 1102 and 1103 frames in turn, so that blocks keep pace with time.
class BlockLengths {
public:
    /// @param sampleRate  Hz, 10 to 447000; other rates give blocks of the nearest rate in range
    explicit BlockLengths(double sampleRate) noexcept;
    /// Frames of the next block.
    std::uint32_t next() noexcept;
    std::uint32_t longest() const noexcept;

private:
    double m_blockFrames;
    double m_owed = 0.0; // part of a frame that the blocks so far are short of
};

} // namespace sorvel
