#include "tools/recording.hpp"

namespace sorvel {

namespace {

constexpr std::size_t kPiece_samples = 4096;
constexpr double kAnyRate_hz = 48000.0;

} // namespace

RecordingReceiver::RecordingReceiver() : m_converter(kAnyRate_hz, kAnyRate_hz) {}

Recording::Recording(RecordingReceiver& receiver, double sampleRate_hz) : m_receiver(receiver) {
    const double wanted_hz = receiver.start(sampleRate_hz);
    receiver.m_converter = RateConverter(sampleRate_hz, wanted_hz);
    m_isConverted = sampleRate_hz != wanted_hz;
    if (m_isConverted) receiver.m_converted.resize(kPiece_samples);
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
    if (!m_isConverted) return m_receiver.push(mono);
    while (!mono.empty()) {
        const Converted step = m_receiver.m_converter.convert(mono, m_receiver.m_converted);
        mono = mono.subspan(step.consumed);
        m_receiver.push(std::span(m_receiver.m_converted).first(step.produced));
    }
}

void Recording::finish() {
    m_isFinished = true;
    while (m_isConverted) {
        const std::size_t produced = m_receiver.m_converter.flush(m_receiver.m_converted);
        if (produced == 0) break;
        m_receiver.push(std::span(m_receiver.m_converted).first(produced));
    }
    m_receiver.complete();
}

} // namespace sorvel
