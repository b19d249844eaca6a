/// Rate conversion: of a stream (GGWave::Resampler, the modem's own) and of single
/// blocks (Resampler, for applications).
#pragma once

#include "modem/ggwave.h"
#include "modem/sinc_kernel.hpp"

/// Windowed-sinc rate conversion of a stream, handed over block by block.
///
/// The kernel reaches 63 input samples to each side; when the rate falls it is widened, and so filters.
/// The output lags the input by 136 input samples: 64 are held back to the next call, 72 lie ahead of the
/// centre in the delay line. Working arrays lie in memory given to `alloc`; nothing else is allocated.
class GGWave::Resampler {
public:
    static constexpr int kWidth = 64;               ///< input samples held back, and half the kernel
    static constexpr int kSincResolution = 32;      ///< table entries per input sample
    static constexpr int kMaxInput = 4096 - kWidth; ///< samples that one call may hand over

    /// Factors (input samples per output sample) range from kMinFactor to below kFactorLimit: so every call
    /// comes to an end, and every time fits an int.
    static constexpr float kMinFactor = 1.0F / 4096;
    static constexpr float kFactorLimit = 1e6F;

    /// Adds the bytes of the working arrays to `n`; with a block, places them at p + n first, builds the
    /// kernel and resets the stream.
    bool alloc(void* p, int& n);

    /// Forgets the stream.
    void reset();

    /// @param factor      outside its range nothing happens, and the answer is 0
    /// @param nSamples    65 to 4032 input samples; others are a programming error and abort
    /// @param samplesOut  null: only count, the stream stays where it is (any nSamples; at most INT_MAX is
    ///                    answered); else room for (nSamples + 1) / factor samples, rounded up. Times beyond
    ///                    2^29 * factor input samples are rounded and may yield some more: count first
    /// @return output samples
    int resample(float factor, int nSamples, const float* samplesInp, float* samplesOut);

    /// The same in portions, for an output larger than any one array: `feed` the input once, `take` until
    /// it answers 0, then `settle`. What was not taken by then is cut out of the stream.
    void feed(int nSamples, const float* samplesInp);
    int take(float factor, std::span<float> out);
    void settle();

    /// The place for the next nSamples input samples, which the caller fills before the first `take`.
    std::span<float> feed(int nSamples);

    void newData(float sample);
    float getData(int j) const;
    double sinc(double x) const;
    void makeSinc();

    int samplesTotal() const { return m_total; } ///< input samples since the last reset, at most INT_MAX

private:
    ggvector<float> m_sincTable, m_delay, m_edge, m_samplesInp;
    sorvel::detail::SincKernel m_kernel;
    sorvel::detail::OutputClock m_clock;
    int m_total = 0;    // input samples offered
    int m_last = 0;     // input samples shifted into the delay line
    int m_fed = 0;      // samples in m_samplesInp that may be shifted in by this call
    int m_consumed = 0; // of those, shifted in so far
};

/// Windowed-sinc rate conversion that takes every call as a block of its own: its time starts at 0, while the
/// last 72 samples of the block before still lie ahead in the delay line. The output lags
/// by 72 input samples.
///
/// The object holds all it needs, some 27 KB; nothing is allocated. One thread at a time.
class Resampler {
public:
    Resampler();

    /// @param factor      input samples per output sample, in the range of GGWave::Resampler
    /// @param nSamples    input samples, from 1 on
    /// @param samplesOut  room for nSamples / factor + 1 samples; times beyond 2^29 * factor are rounded, and
    ///                    may yield some more
    /// @return output samples; 0 when an argument is out of range or INT_MAX samples would not suffice
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
    std::array<float, sorvel::detail::kKernelTable> m_sincTable{};
    std::array<float, sorvel::detail::kHistory> m_delay{};
    sorvel::detail::SincKernel m_kernel;
    float m_lastFactor = 0.0F;
};
