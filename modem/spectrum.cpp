#include "modem/spectrum.hpp"

#include "modem/fft.h"
#include "modem/target_clones.hpp"

#include <cmath>

namespace sorvel::modem {

namespace {

SORVEL_TARGET_CLONES void squareMagnitudes(const float* pairs, std::span<float> power) {
    // Fused: bins must compare alike on every processor.
    for (std::size_t i = 0; i < power.size(); ++i)
        power[i] = std::fma(pairs[2 * i], pairs[2 * i], pairs[2 * i + 1] * pairs[2 * i + 1]);
}

} // namespace

void Spectrum::place(Layout& layout, int samplesPerFrame) {
    const int pairs = samplesPerFrame / 2;
    layout.place(m_fftOut, 2 * samplesPerFrame);
    layout.place(m_fftWorkI, static_cast<int>(std::sqrt(static_cast<double>(pairs)) + 3.0));
    layout.place(m_fftWorkF, pairs);
    layout.place(m_power, samplesPerFrame);
}

std::span<const float> Spectrum::analyse(std::span<const float> frame) {
    m_isNews = true;
    std::copy(frame.begin(), frame.end(), m_fftOut.data());
    return analyseSamples();
}

std::span<const float> Spectrum::analyseSamples() {
    transform(m_fftOut.data());
    squareMagnitudes(m_fftOut.data(), m_power.span().first(m_power.span().size() / 2));
    return m_power.span();
}

bool Spectrum::takeNews() {
    const bool wasNews = m_isNews;
    m_isNews = false;
    return wasNews;
}

bool Spectrum::transform(float* frame) {
    if (m_fftWorkI.size() == 0 || !canTransform(m_power.size())) return false;
    rdft(m_power.size(), 1, frame, m_fftWorkI.data(), m_fftWorkF.data());
    return true;
}

} // namespace sorvel::modem
