#include "deep/receiver.hpp"
#include "sorvel/receiver.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace sorvel::stream {

namespace {

/// In digital silence there is no noise to compare with, and some figures have no end.
float within(float figure, float most) { return std::isnan(figure) ? 0.0F : std::clamp(figure, -most, most); }

class DeepReceiver final : public Receiver {
public:
    DeepReceiver(double sampleRate_hz, std::string_view prefix)
        : m_receiver(sampleRate_hz, prefix), m_rate_hz(sampleRate_hz) {}

    bool isReady() const { return m_receiver.isReady(); }

    void hear(std::span<const float> samples) noexcept override {
        m_receiver.push(samples);
        m_pushed += samples.size();
    }

    void finish() noexcept override { m_receiver.finish(); }

    bool take(sorvel_heard& heard) noexcept override {
        deep::Reception reception;
        if (!m_receiver.poll(reception)) return false;
        std::fill(std::begin(heard.text), std::end(heard.text), '\0');
        reception.text.back() = '\0';
        heard.length = static_cast<std::uint32_t>(std::strlen(reception.text.data()));
        std::copy_n(reception.text.begin(), heard.length, heard.text);
        heard.end_s = std::min(reception.end_s, static_cast<double>(m_pushed) / m_rate_hz);
        heard.has_quality = 1;
        heard.snr_db = within(reception.snr_db, 200.0F);
        heard.speed_m_s = within(reception.speed_m_s, 1000.0F);
        heard.echo = within(reception.echo, 1.0F);
        heard.margin = within(reception.margin, 1e6F);
        return true;
    }

    void reset() noexcept override {
        m_receiver.reset();
        m_pushed = 0;
    }

private:
    deep::Receiver m_receiver;
    double m_rate_hz;
    std::uint64_t m_pushed = 0; // samples
};

} // namespace

std::unique_ptr<Receiver> makeDeepReceiver(double sampleRate_hz, std::string_view prefix) {
    auto receiver = std::make_unique<DeepReceiver>(sampleRate_hz, prefix);
    if (!receiver->isReady()) return nullptr;
    return receiver;
}

} // namespace sorvel::stream
