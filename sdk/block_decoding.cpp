#include "sdk/block_decoding.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace sorvel {

namespace {

// A minute. Only blocks at rates far below any sound could ask for more.
constexpr std::uint32_t kLargestOutput_frames = 60 * 96000;

/// Frames at 96 kHz that last as long as `frames` at `rate`, the rate cut to whole Hz; nothing if
/// the product leaves 32 bits or the rate is no rate.
std::optional<std::uint32_t> outputFrames(std::uint32_t frames, double rate) {
    constexpr std::uint32_t kTargetRate = 96000;
    if (!(rate >= 1.0 && rate <= std::numeric_limits<std::uint32_t>::max()))
        return std::nullopt; // nor not a number
    if (frames > std::numeric_limits<std::uint32_t>::max() / kTargetRate) return std::nullopt;
    const std::uint32_t output = kTargetRate * frames / static_cast<std::uint32_t>(rate);
    return output <= kLargestOutput_frames ? std::optional(output) : std::nullopt;
}

/// Hands one block over, once.
class OneBlock final : public ConverterInput {
public:
    explicit OneBlock(const AudioBuffer& block) : m_block(&block) {}
    const AudioBuffer* next(std::uint32_t, InputStatus& status) noexcept override {
        const AudioBuffer* const block = std::exchange(m_block, nullptr);
        status = block != nullptr ? InputStatus::HaveData : InputStatus::NoDataNow;
        return block;
    }

private:
    const AudioBuffer* m_block;
};

} // namespace

BlockDecoding::BlockDecoding(std::unique_ptr<AudioConverter> converter, std::shared_ptr<Decoder> decoder,
                             std::string prefix, std::shared_ptr<ProgressLines> progress)
    : m_converter(std::move(converter)), m_decoder(std::move(decoder)), m_prefix(std::move(prefix)),
      m_progress(std::move(progress)), m_output(kTargetFormat, kTargetBlockFrames, kTargetBlockBytes) {}

std::string_view BlockDecoding::hear(const AudioBuffer& block) {
    m_payload.fill(0);
    const std::int32_t length = decode(block);
    if (length < 1) return {};
    std::transform(m_payload.begin(), m_payload.end(), m_text.begin(),
                   [](unsigned char byte) { return byte < 128 ? static_cast<char>(byte) : ' '; });
    return std::string_view(m_text.data(), m_text.size()).substr(0, static_cast<std::size_t>(length));
}

std::int32_t BlockDecoding::decode(const AudioBuffer& block) {
    if (!m_converter) return m_decoder->DecodeCaptured(block, m_payload.data());
    if (!convert(block)) return 0;
    return m_decoder->Decode(m_output.int16Samples(0).data(), waveformBytes(), m_payload.data(), m_prefix);
}

/// @return whether there is anything to decode
bool BlockDecoding::convert(const AudioBuffer& block) {
    const std::optional<std::uint32_t> frames = outputFrames(block.frameLength(), block.format().sampleRate);
    if (!frames && !m_wasUnusable) print("Sorvel can't use a block of this length and rate");
    m_wasUnusable = !frames;
    if (!frames || *frames == 0) return false;

    m_output.reset(*frames);
    OneBlock input(block);
    const ConverterStatus status = m_converter->convert(m_output, input);
    const bool isConverted = status != ConverterStatus::Error;
    if (!isConverted && m_wasConverted) print("Sorvel conversion status 3");
    m_wasConverted = isConverted;
    return true; // after an error too: the modem's clock goes on
}

/// A fixed 100 ms of bytes, scaled by how full the converted block is: in blocks of 100 ms that is
/// what they hold. The buffer has memory for them at any capacity.
std::int32_t BlockDecoding::waveformBytes() const noexcept {
    const float fullness =
        static_cast<float>(m_output.frameLength()) / static_cast<float>(m_output.frameCapacity());
    return static_cast<std::int32_t>(fullness * static_cast<float>(kTargetBlockBytes));
}

void BlockDecoding::print(std::string_view line) {
    if (m_progress) m_progress->line(line);
}

} // namespace sorvel
