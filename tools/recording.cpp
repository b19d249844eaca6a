#include "tools/recording.hpp"

namespace sorvel {

namespace {

constexpr std::size_t kPiece_samples = 4096;

} // namespace

RecordingReceiver::RecordingReceiver(double ownRate_hz)
    : m_ownRate_hz(ownRate_hz), m_converter(ownRate_hz, ownRate_hz), m_converted(kPiece_samples) {}

Recording::Recording(RecordingReceiver& receiver, double sampleRate_hz) : m_receiver(receiver) {
    receiver.m_converter = RateConverter(sampleRate_hz, receiver.m_ownRate_hz);
    receiver.start();
}

Recording::~Recording() {
    if (m_isFinished) return;
    try {
        finish();
    } catch (...) {
        return; // as the exception under way tells more
    }
}

void Recording::take(std::span<const float> mono) {
    while (!mono.empty()) {
        const Converted step = m_receiver.m_converter.convert(mono, m_receiver.m_converted);
        mono = mono.subspan(step.consumed);
        m_receiver.push(std::span(m_receiver.m_converted).first(step.produced));
    }
}

void Recording::finish() {
    m_isFinished = true;
    while (const std::size_t produced = m_receiver.m_converter.flush(m_receiver.m_converted))
        m_receiver.push(std::span(m_receiver.m_converted).first(produced));
    m_receiver.complete();
}

} // namespace sorvel
