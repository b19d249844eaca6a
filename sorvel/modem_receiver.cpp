#include "modem/ggwave.h"
#include "payload/encoding.hpp"
#include "sorvel/rate_conversion.hpp"
#include "sorvel/receiver.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <string>

// The modem's receivers behind a conversion to the rate at which they analyse, in whole frames of
// theirs: so no block of the caller's ever reaches them, nor a remainder.

namespace sorvel::stream {

namespace {

constexpr double kRate_hz = 48000.0;
constexpr std::size_t kFrame_samples = 1024;
constexpr double kRepeat_s = 1.0; // within which texts are repeats

ggwave_Parameters parameters(int payloadLength) {
    ggwave_Parameters result = GGWave::getDefaultParameters();
    result.payloadLength = payloadLength;
    result.operatingMode = GGWAVE_OPERATING_MODE_RX;
    return result;
}

class ModemReceiver : public Receiver {
public:
    ModemReceiver(double sampleRate_hz, int payloadLength)
        : m_modem(parameters(payloadLength)), m_conversion(sampleRate_hz, kRate_hz),
          m_rate_hz(sampleRate_hz) {}

    bool isReady() const { return m_modem.heapSize() > 0; }

    void hear(std::span<const float> samples) noexcept final {
        m_pushed += samples.size();
        convert(samples);
    }

    bool take(sorvel_heard& heard) noexcept final {
        if (!m_hasHeard) return false;
        m_hasHeard = false;
        heard.length = m_length;
        heard.end_s = m_end_s;
        std::copy(m_text.begin(), m_text.end(), heard.text);
        heard.has_quality = 0;
        heard.snr_db = heard.speed_m_s = heard.echo = heard.margin = 0.0F;
        return true;
    }

    void reset() noexcept override {
        m_modem.init(0, "", GGWAVE_PROTOCOL_DT_CUSTOM, 0);
        ggvector<std::uint8_t> dropped;
        m_modem.rxTakeData(dropped);
        m_conversion.reset();
        m_gathered = 0;
        m_pushed = m_frames = 0;
        m_hasHeard = false;
    }

protected:
    GGWave& modem() { return m_modem; }

    /// Silence behind the sound.
    void pass(std::size_t samples) noexcept {
        static constexpr std::array<float, kMost_samples> kSilence{};
        for (std::size_t left = samples; left > 0;) {
            const std::size_t count = std::min(left, kSilence.size());
            convert(std::span(kSilence).first(count));
            left -= count;
        }
    }
    std::size_t samplesIn(double time_s) const { return static_cast<std::size_t>(time_s * m_rate_hz) + 1; }
    std::size_t latency_samples() const { return m_conversion.latency_samples(); }
    double now_s() const {
        return std::min(static_cast<double>(m_frames * kFrame_samples) / kRate_hz,
                        static_cast<double>(m_pushed) / m_rate_hz);
    }
    void tell(std::string_view text) noexcept {
        m_text.fill('\0');
        m_length = static_cast<std::uint32_t>(std::min(text.size(), m_text.size() - 1));
        std::copy_n(text.begin(), m_length, m_text.begin());
        m_end_s = now_s();
        m_hasHeard = true;
    }

private:
    virtual void prepare(std::span<float, kFrame_samples> /*frame*/) noexcept {}
    virtual void payload(std::span<const char> bytes) noexcept = 0;

    void convert(std::span<const float> samples) noexcept {
        while (true) {
            const auto step = m_conversion.convert(samples, std::span(m_frame).subspan(m_gathered));
            samples = samples.subspan(step.consumed);
            m_gathered += step.produced;
            if (m_gathered < kFrame_samples) return;
            m_gathered = 0;
            decodeFrame();
        }
    }

    void decodeFrame() noexcept {
        ++m_frames;
        prepare(m_frame);
        m_modem.decode(m_frame.data(), sizeof m_frame);
        ggvector<std::uint8_t> data;
        const int length = m_modem.rxTakeData(data);
        if (length < 1) return;
        std::array<char, GGWave::kMaxLengthVariable> bytes{};
        const std::size_t count = std::min(bytes.size(), data.span().size());
        std::memcpy(bytes.data(), data.data(), count);
        payload(std::span<const char>(bytes).first(count));
    }

    GGWave m_modem;
    RateConversion m_conversion;
    double m_rate_hz;
    alignas(16) std::array<float, kFrame_samples> m_frame{};
    std::size_t m_gathered = 0; // samples in it
    std::uint64_t m_pushed = 0; // samples
    std::uint64_t m_frames = 0;

    bool m_hasHeard = false;
    std::array<char, sizeof sorvel_heard::text> m_text{};
    std::uint32_t m_length = 0;
    double m_end_s = 0.0;
};

class TextReceiver final : public ModemReceiver {
public:
    TextReceiver(double sampleRate_hz, std::string_view prefix)
        : ModemReceiver(sampleRate_hz, static_cast<int>(encoding::kPayloadBytes)), m_prefix(prefix) {}

    void finish() noexcept override { pass(samplesIn(1.0) + latency_samples()); }
    void reset() noexcept override {
        ModemReceiver::reset();
        m_last_s = -std::numeric_limits<double>::infinity();
    }

private:
    void payload(std::span<const char> bytes) noexcept override {
        if (bytes.size() != encoding::kPayloadBytes) return;
        const std::string text = encoding::extractStrings(bytes.data());
        if (text.empty() || text == encoding::kError || !text.starts_with(m_prefix)) return;
        if (!(now_s() - m_last_s > kRepeat_s)) return;
        m_last_s = now_s();
        tell(text);
    }

    std::string m_prefix;
    double m_last_s = -std::numeric_limits<double>::infinity(); // when a text was told
};

class MessageReceiver final : public ModemReceiver {
public:
    MessageReceiver(double sampleRate_hz, std::string_view prefix)
        : ModemReceiver(sampleRate_hz, -1), m_prefix(prefix) {}

    void finish() noexcept override {
        pass(latency_samples() + samplesIn(8.0 * kFrame_s));
        // A message that broke off is given up after the longest duration there is.
        for (int i = 0; i < GGWave::kMaxRecordedFrames + 40 && modem().rxReceiving(); ++i)
            pass(samplesIn(kFrame_s));
    }
    void reset() noexcept override {
        ModemReceiver::reset();
        m_random = 1;
    }

private:
    static constexpr double kFrame_s = static_cast<double>(kFrame_samples) / kRate_hz;

    /// A triangular dither of one 16-bit step: in digital silence the switching of tones looks
    /// like the end of a message.
    void prepare(std::span<float, kFrame_samples> frame) noexcept override {
        for (float& sample : frame) sample += halfStep() + halfStep();
    }
    /// Evenly spread over half a step to both sides (Lehmer's generator, as in Park and Miller,
    /// "Random number generators: good ones are hard to find", 1988).
    float halfStep() noexcept {
        m_random = static_cast<std::uint32_t>(std::uint64_t{m_random} * 48271 % 2147483647);
        return (static_cast<float>(m_random) * (1.0F / 2147483647.0F) - 0.5F) * (1.0F / 32768.0F);
    }

    void payload(std::span<const char> bytes) noexcept override {
        const std::string_view message(bytes.data(), bytes.size());
        if (message.starts_with(m_prefix)) tell(message);
    }

    std::string m_prefix;
    std::uint32_t m_random = 1;
};

template <typename Kind>
std::unique_ptr<Receiver> made(double sampleRate_hz, std::string_view prefix) {
    auto receiver = std::make_unique<Kind>(sampleRate_hz, prefix);
    if (!receiver->isReady()) return nullptr;
    return receiver;
}

} // namespace

std::unique_ptr<Receiver> makeTextReceiver(double sampleRate_hz, std::string_view prefix) {
    return made<TextReceiver>(sampleRate_hz, prefix);
}

std::unique_ptr<Receiver> makeMessageReceiver(double sampleRate_hz, std::string_view prefix) {
    return made<MessageReceiver>(sampleRate_hz, prefix);
}

} // namespace sorvel::stream
