#include "bench/hearing/receivers.hpp"
#include "modem/ggwave.h"
#include "payload/encoding.hpp"
#include "platform/audio/block_converter.hpp"
#include "sdk/block_decoding.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

namespace sorvel::hearing {

namespace {

/// The modem as CPP_wrapper prepares it, but an instance of its own: those of the process are only
/// four and are not for several threads.
class ModemDecoder final : public Decoder {
public:
    ModemDecoder() : m_modem(parameters()) {}

    void InitSorvelWave() override { m_modem.init(0, nullptr, GGWAVE_PROTOCOL_DT_CUSTOM, 0); }

    std::int32_t Decode(const void* waveform, std::int32_t waveformSize, void* payloadBuffer,
                        const std::string&) override {
        if (!m_modem.decode(waveform, static_cast<unsigned>(waveformSize))) return -1;
        ggvector<std::uint8_t> data;
        if (m_modem.rxTakeData(data) != static_cast<int>(encoding::kPayloadBytes)) return 0;
        std::array<char, encoding::kPayloadBytes> payload{};
        std::memcpy(payload.data(), data.data(), payload.size());
        const std::string text = encoding::extractStrings(payload.data());
        if (text == encoding::kError) return 0;
        std::memcpy(payloadBuffer, text.data(), text.size());
        return static_cast<std::int32_t>(text.size());
    }

private:
    static ggwave_Parameters parameters() {
        ggwave_Parameters result = ggwave_getDefaultParameters();
        result.payloadLength = static_cast<int>(encoding::kPayloadBytes);
        result.sampleRateInp = 96000.0F;
        result.sampleFormatInp = GGWAVE_SAMPLE_FORMAT_I16;
        result.sampleFormatOut = GGWAVE_SAMPLE_FORMAT_I16;
        return result;
    }

    GGWave m_modem;
};

class ClassicReceiver final : public TestedReceiver {
public:
    explicit ClassicReceiver(double rate_hz)
        : m_format{SampleType::Float32, rate_hz, 1, true},
          m_block(m_format, static_cast<std::uint32_t>(rate_hz / 10.0)),
          m_decoder(std::make_shared<ModemDecoder>()) {
        ClassicReceiver::begin();
    }

    void begin() override {
        m_decoder->InitSorvelWave();
        auto converter = makeBlockConverter(m_format, kTargetFormat);
        if (!converter) throw std::runtime_error("no conversion from this rate; take 8 to 384 kHz");
        m_decoding.emplace(std::move(converter), m_decoder, std::string(), nullptr);
    }

    void push(std::span<const float> block, std::vector<std::string>& heard) override {
        m_block.reset(static_cast<std::uint32_t>(block.size()));
        std::copy(block.begin(), block.end(), m_block.floatSamples(0).begin());
        m_block.setFrameLength(static_cast<std::uint32_t>(block.size()));
        const std::string_view text = m_decoding->hear(m_block);
        if (!text.empty()) heard.emplace_back(text);
    }

    void end(std::vector<std::string>&) override {}

private:
    AudioFormat m_format;
    AudioBuffer m_block;
    std::shared_ptr<ModemDecoder> m_decoder;
    std::optional<BlockDecoding> m_decoding;
};

} // namespace

std::unique_ptr<TestedReceiver> makeClassicReceiver(double rate_hz) {
    return std::make_unique<ClassicReceiver>(rate_hz);
}

} // namespace sorvel::hearing
