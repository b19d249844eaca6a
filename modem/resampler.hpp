/// Rate conversion: of a stream (GGWave::Resampler, the modem's own) and of single blocks (Resampler, for
/// applications).
#pragma once

#include "modem/ggwave.h"

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

    /// Adds the bytes of the working arrays to `n`; with a block, places them at p + n first, builds the
    /// kernel and resets the stream.
    bool alloc(void* p, int& n);

    /// Forgets the stream.
    void reset();

    /// @param factor      input samples per output sample, above 0
    /// @param nSamples    65 to 4032 input samples; others are a programming error and abort
    /// @param samplesOut  null: only count, the stream stays where it is (any nSamples); else room for
    ///                    nSamples / factor + 2 samples
    /// @return output samples
    int resample(float factor, int nSamples, const float* samplesInp, float* samplesOut);

    /// The same in portions, for an output larger than any one array: `feed` the input once, `take` until
    /// it answers 0, then `settle`.
    void feed(int nSamples, const float* samplesInp);
    int take(float factor, std::span<float> out);
    void settle();

    void newData(float sample);
    float getData(int j) const;
    double sinc(double x) const;
    void makeSinc();

    int samplesTotal() const { return m_time.total; } ///< input samples since the last reset

private:
    struct Time {
        int total = 0;        // input samples offered
        int integer = 0;      // floor of `current`
        int last = 0;         // input samples shifted into the delay line
        double current = 0.0; // of the next output sample, in input samples
        void advance(float factor);
    };
    int count(float factor, int nSamples) const;
    int takeHalfRate(std::span<float> out);
    const float* window(int first, std::span<float> scratch) const;

    ggvector<float> m_sincTable, m_delay, m_edge, m_samplesInp;
    Time m_time;
    int m_fed = 0;                            // samples in m_samplesInp that may be consumed by this call
    int m_consumed = 0;                       // of those, shifted in so far
    std::array<float, 32> m_halfRateKernel{}; // taps at odd distances for a factor of 2
};

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
