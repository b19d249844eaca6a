#include "tools/deep_recording_decoder.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace sorvel {

namespace {

constexpr double kUsualRate_hz = 48000.0;
constexpr double kLongestPiece_s = 1.0; // of whose texts the receiver keeps all

double within(float value, double most) {
    return std::isnan(value) ? 0.0 : std::clamp(static_cast<double>(value), -most, most);
}

} // namespace

Circumstances circumstances(const deep::Reception& heard) {
    return {.snr_db = within(heard.snr_db, 200.0),
            .speed_m_s = within(heard.speed_m_s, 1000.0),
            .echo = within(heard.echo, 1.0),
            .margin = within(heard.margin, 1e6)};
}

DeepRecordingDecoder::DeepRecordingDecoder(std::string prefix, std::function<void(const Heard&)> deliver)
    : m_prefix(std::move(prefix)), m_deliver(std::move(deliver)) {}

double DeepRecordingDecoder::start(double sampleRate_hz) {
    const bool isOwnRate =
        sampleRate_hz >= deep::Receiver::kLowestRate_hz && sampleRate_hz <= deep::Receiver::kHighestRate_hz;
    const double rate_hz = isOwnRate ? sampleRate_hz : kUsualRate_hz;
    if (m_receiver && rate_hz == m_rate_hz)
        m_receiver->reset();
    else
        m_receiver = std::make_unique<deep::Receiver>(rate_hz, m_prefix);
    m_rate_hz = rate_hz;
    m_pushed = 0;
    return rate_hz;
}

void DeepRecordingDecoder::push(std::span<const float> samples) {
    const auto longest = static_cast<std::size_t>(m_rate_hz * kLongestPiece_s);
    while (!samples.empty()) {
        const auto piece = samples.first(std::min(samples.size(), longest));
        m_receiver->push(piece);
        m_pushed += piece.size();
        samples = samples.subspan(piece.size());
        deliver();
    }
}

void DeepRecordingDecoder::complete() {
    m_receiver->finish();
    deliver();
}

double DeepRecordingDecoder::length_s() const { return static_cast<double>(m_pushed) / m_rate_hz; }

void DeepRecordingDecoder::deliver() {
    for (deep::Reception heard; m_receiver->poll(heard);)
        m_deliver({heard.text.data(), std::min(heard.end_s, length_s()), circumstances(heard)});
}

} // namespace sorvel
