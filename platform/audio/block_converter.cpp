#include "platform/audio/block_converter.hpp"

#include "platform/audio/rate_converter.hpp"

#include <algorithm>
#include <cmath>
#include <new>
#include <stdexcept>
#include <vector>

namespace sorvel {

namespace {

constexpr double kUsualBlock_s = 0.1;

std::size_t usualFrames(double rate_hz) {
    return static_cast<std::size_t>(std::ceil(rate_hz * kUsualBlock_s));
}

class BlockConverter final : public AudioConverter {
public:
    BlockConverter(const AudioFormat& from, const AudioFormat& to)
        : m_from(from), m_to(to), m_converter(from.sampleRate, to.sampleRate),
          m_converted(usualFrames(to.sampleRate)) {
        m_mono.reserve(usualFrames(from.sampleRate));
    }

    ConverterStatus convert(AudioBuffer& output, ConverterInput& input) noexcept override {
        output.setFrameLength(0);
        try {
            return output.format() == m_to ? convertAll(output, input) : ConverterStatus::Error;
        } catch (const std::bad_alloc&) { // a block longer than every one before
            return ConverterStatus::Error;
        }
    }

private:
    ConverterStatus convertAll(AudioBuffer& output, ConverterInput& input) {
        m_mono.clear();
        auto status = InputStatus::NoDataNow;
        bool isAnnounced = true;
        while (const AudioBuffer* const block = input.next(output.frameCapacity(), status)) {
            isAnnounced = isAnnounced && block->format() == m_from;
            if (isAnnounced) gather(*block);
        }
        if (!isAnnounced) return ConverterStatus::Error;
        if (m_mono.empty()) return ConverterStatus::InputRanDry;

        if (m_converted.size() < output.frameCapacity()) m_converted.resize(output.frameCapacity());
        const std::span<float> converted = std::span(m_converted).first(output.frameCapacity());
        m_converter.convert(m_mono, converted);
        toInt16(converted, output.int16Samples(0));
        output.setFrameLength(output.frameCapacity());
        return ConverterStatus::HaveData;
    }

    void gather(const AudioBuffer& block) {
        const std::size_t before = m_mono.size();
        m_mono.resize(before + block.frameLength());
        mixToMono(block.floatSamples(0), m_from.channelCount, std::span(m_mono).subspan(before));
    }

    const AudioFormat m_from;
    const AudioFormat m_to;
    LiveRateConverter m_converter;
    std::vector<float> m_mono;
    std::vector<float> m_converted;
};

} // namespace

std::unique_ptr<AudioConverter> makeBlockConverter(const AudioFormat& from, const AudioFormat& to) {
    const bool isTaken = from.sampleType == SampleType::Float32 && from.channelCount >= 1 &&
                         (from.interleaved || from.channelCount == 1);
    const bool isGiven = to.sampleType == SampleType::Int16 && to.channelCount == 1;
    if (!isTaken || !isGiven) return nullptr;
    try {
        return std::make_unique<BlockConverter>(from, to);
    } catch (const std::invalid_argument&) { // a rate outside the range
        return nullptr;
    }
}

} // namespace sorvel
