#include "platform/files/wav_writer.hpp"

#include "platform/files/wav_encoding.hpp"
#include "platform/files/wav_sink.hpp"

#include <algorithm>
#include <vector>

namespace sorvel {

namespace {

constexpr std::size_t kPiece_samples = 1024;

} // namespace

struct WavWriter::Target {
    std::unique_ptr<WavSink> sink;
    StoredFormat format;
    std::vector<std::byte> encoded; // of one piece
};

WavWriter::WavWriter(const std::string& path, int sampleRate_hz, StoredFormat format, std::uint64_t frames)
    : m_target(new Target{openedSink(path, sampleRate_hz, format, frames), format, {}}) {}

WavWriter::~WavWriter() = default;
WavWriter::WavWriter(WavWriter&&) noexcept = default;
WavWriter& WavWriter::operator=(WavWriter&&) noexcept = default;

void WavWriter::write(std::span<const float> samples) {
    while (!samples.empty()) {
        const std::span<const float> piece = samples.first(std::min(samples.size(), kPiece_samples));
        samples = samples.subspan(piece.size());
        m_target->encoded.clear();
        for (const float sample : piece) append(m_target->encoded, sample, m_target->format);
        m_target->sink->write(m_target->encoded);
    }
}

void WavWriter::finish() { m_target->sink->finish(); }

} // namespace sorvel
