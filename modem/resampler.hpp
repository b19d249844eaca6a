/// Rate conversion of a single block, for applications; the modem's own stream is GGWave::Resampler in
/// ggwave.h.
#pragma once

#include <array>

/// Windowed-sinc rate conversion that takes every call as a block of its own: its time starts at 0, while the
/// last samples of the block before still lie in the delay line. The output lags by 72 input samples.
///
/// The object holds all it needs; nothing is allocated. One thread at a time.
class Resampler {
public:
    Resampler();

    /// @param factor      input samples per output sample, above 0
    /// @param nSamples    input samples, from 1 on
    /// @param samplesOut  room for nSamples / factor + 1 samples
    /// @return output samples; 0 when an argument is out of range
    int resample(float factor, int nSamples, const float* samplesInp, float* samplesOut);

    /// Rebuilds the kernel's table; `resample` does so when the factor changes.
    void make_sinc();
    /// Sample `j` places behind the middle of the delay line, -64 to 71; 0 outside.
    float gimme_data(long j) const;
    /// The kernel `x` input samples from its middle.
    double sinc(double x) const;
    /// Shifts one sample into the delay line.
    void new_data(float sample);

private:
    std::array<float, 2048> m_sincTable{};
    std::array<float, 136> m_delay{};
    float m_lastFactor = 0.0F;
};
