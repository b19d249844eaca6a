#include "tools/recording.hpp"

namespace sorvel {

namespace {

constexpr std::size_t kPiece_samples = 4096;

} // namespace

RecordingReceiver::RecordingReceiver(double ownRate_hz)
    : m_ownRate_hz(ownRate_hz), m_converter(ownRate_hz, ownRate_hz), m_converted(kPiece_samples) {}

void RecordingReceiver::begin(double sampleRate_hz) {
    m_converter = RateConverter(sampleRate_hz, m_ownRate_hz);
    start();
}

void RecordingReceiver::take(std::span<const float> mono) {
    while (!mono.empty()) {
        const Converted step = m_converter.convert(mono, m_converted);
        mono = mono.subspan(step.consumed);
        push(std::span(m_converted).first(step.produced));
    }
}

void RecordingReceiver::end() {
    while (const std::size_t produced = m_converter.flush(m_converted))
        push(std::span(m_converted).first(produced));
    complete();
}

} // namespace sorvel
