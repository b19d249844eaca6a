#include "modem/resampler.hpp"

#include "modem/ggwave.h"
#include "modem/sinc_kernel.hpp"

#include <climits>
#include <cmath>
#include <cstring>

// The output at time t is the sum of data(j) * sinc((t - j) / max(1, factor)) over the input samples j around
// t. Time is split into the input samples shifted into the delay line, whose newest is at kNewest, and the
// position between them.

using namespace sorvel::detail;

namespace {

constexpr int kDelaySize = 3 * GGWave::Resampler::kWidth;
constexpr int kNewest = 135;          // index of the newest sample in the delay line
constexpr int kHistory = kNewest + 1; // samples in it
constexpr int kRebaseAt = 1 << 30;    // time counters are wound back long before they overflow
constexpr int kBlock = 64;            // outputs made together at factor 2

template <class T>
void place(ggvector<T>& view, void* p, int& n, int count) {
    if (p != nullptr) view = {reinterpret_cast<T*>(static_cast<std::byte*>(p) + n), count};
    n += count * static_cast<int>(sizeof(T));
}

} // namespace

bool GGWave::Resampler::alloc(void* p, int& n) {
    place(m_sincTable, p, n, kKernelTable);
    place(m_delay, p, n, kDelaySize);
    place(m_edge, p, n, kWidth);
    place(m_samplesInp, p, n, kMaxInput + kWidth);
    if (p != nullptr) {
        makeSinc();
        reset();
    }
    return true;
}

void GGWave::Resampler::reset() {
    m_time = {};
    m_fed = m_consumed = 0;
    m_delay.zero();
    m_edge.zero();
    m_samplesInp.zero();
}

void GGWave::Resampler::makeSinc() {
    if (m_sincTable.size() == 0) return;
    makeKernel(m_sincTable.span().first<kKernelTable>());
    for (std::size_t k = 0; k < m_halfRateKernel.size(); ++k)
        m_halfRateKernel[k] = 0.5F * m_sincTable[static_cast<int>(2 * k + 1) * kKernelResolution / 2];
}

double GGWave::Resampler::sinc(double x) const {
    return m_sincTable.size() == 0 ? 0.0 : kernelAt(m_sincTable.span().first<kKernelTable>(), x);
}

void GGWave::Resampler::newData(float sample) {
    if (m_delay.size() == 0) return;
    std::memmove(m_delay.data(), m_delay.data() + 1, kNewest * sizeof(float));
    m_delay[kNewest] = sample;
}

float GGWave::Resampler::getData(int j) const {
    return j >= -kWidth && j < m_delay.size() - kWidth ? m_delay[j + kWidth] : 0.0F;
}

void GGWave::Resampler::Time::advance(float factor) {
    current += static_cast<double>(factor);
    last = integer;
    integer = static_cast<int>(current);
}

int GGWave::Resampler::resample(float factor, int nSamples, const float* samplesInp, float* samplesOut) {
    if (!isUsableFactor(factor)) return 0;
    if (samplesOut == nullptr) return count(factor, nSamples);
    feed(nSamples, samplesInp);
    const int n = take(factor, {samplesOut, INT_MAX});
    settle();
    return n;
}

int GGWave::Resampler::count(float factor, int nSamples) const {
    Time time = m_time;
    int outputs = 0;
    for (int consumed = 0; consumed + (time.integer - time.last) <= nSamples; ++outputs) {
        consumed += time.integer - time.last;
        time.advance(factor);
    }
    return outputs;
}

void GGWave::Resampler::feed(int nSamples, const float* samplesInp) {
    if (!(nSamples > kWidth))
        sorvel::detail::assertionFailed("resample", "ggwave", __LINE__, "nSamples > kWidth");
    if (!(m_samplesInp.size() >= nSamples + kWidth)) {
        sorvel::detail::assertionFailed("resample", "ggwave", __LINE__,
                                        "(int) m_samplesInp.size() >= nSamples + kWidth");
    }
    if (m_time.total > kRebaseAt) {
        const int base = m_time.last;
        m_time = {m_time.total - base, m_time.integer - base, 0, m_time.current - base};
    }
    m_time.total += nSamples;
    m_fed = nSamples;
    m_consumed = 0;
    std::copy_n(m_edge.data(), kWidth, m_samplesInp.data());
    std::copy_n(samplesInp, nSamples, m_samplesInp.data() + kWidth);
    std::copy_n(samplesInp + nSamples - kWidth, kWidth, m_edge.data());
}

int GGWave::Resampler::take(float factor, std::span<float> out) {
    if (!isUsableFactor(factor)) return 0;
    const bool isHalfRate = factor == 2.0F;
    std::array<float, kKernelTaps> scratch{};

    std::size_t n = 0;
    while (n < out.size()) {
        const int shifts = m_time.integer - m_time.last;
        if (m_consumed + shifts > m_fed) {
            m_time.last += m_fed - m_consumed;
            m_consumed = m_fed;
            break;
        }
        // Whole positions need no interpolation: one fixed kernel serves a whole block.
        if (isHalfRate && m_time.current == m_time.integer) {
            n += static_cast<std::size_t>(
                takeHalfRate(out.subspan(n, std::min<std::size_t>(kBlock, out.size() - n))));
            continue;
        }
        m_consumed += shifts;
        const float* const taps = window(m_consumed + 1, scratch);
        out[n++] = kernelSum(m_sincTable.span().first<kKernelTable>(),
                             std::span<const float, kKernelTaps>(taps, kKernelTaps),
                             m_time.current - m_time.integer, factor);
        m_time.advance(factor);
    }
    return static_cast<int>(n);
}

/// Up to kBlock outputs at factor 2, as many as the input suffices for; at least one.
///
/// Half the kernel's taps fall on the zeros of the sinc, so that only the middle and the samples at odd
/// distances count. These are laid out side by side; the sums of neighbouring outputs then run in step.
/// Farthest taps first: the small products do not drown in a large sum.
int GGWave::Resampler::takeHalfRate(std::span<float> out) {
    constexpr int kPairs = static_cast<int>(std::tuple_size_v<decltype(m_halfRateKernel)>);
    const int first = m_consumed + (m_time.integer - m_time.last); // samples shifted in at the first output
    const int outputs = std::min(static_cast<int>(out.size()), (m_fed - first) / 2 + 1);

    std::array<float, kKernelTaps + 2 * (kBlock - 1) + 1> scratch{};
    const float* const taps = window(
        first + 1, std::span(scratch).first(static_cast<std::size_t>(kKernelTaps + 2 * (outputs - 1))));
    std::array<float, 2 * kPairs + kBlock> odd{};
    std::array<float, kBlock> sums{};
    for (int i = 0; i < 2 * kPairs - 1 + outputs; ++i) odd[static_cast<std::size_t>(i)] = taps[2 * i];

    for (int k = kPairs - 1; k >= 0; --k) {
        const float weight = m_halfRateKernel[static_cast<std::size_t>(k)];
        const float* const left = odd.data() + (kPairs - 1 - k);
        const float* const right = odd.data() + (kPairs + k);
        for (std::size_t i = 0; i < kBlock; ++i) sums[i] += weight * (left[i] + right[i]);
    }
    for (int i = 0; i < outputs; ++i)
        out[static_cast<std::size_t>(i)] =
            sums[static_cast<std::size_t>(i)] + 0.5F * taps[kKernelTaps / 2 + 2 * i];

    m_consumed = first + 2 * (outputs - 1);
    m_time.integer += 2 * outputs;
    m_time.last = m_time.integer - 2;
    m_time.current += 2.0 * outputs;
    return outputs;
}

/// The samples from `first` on, counted from the oldest in the delay line, through what was fed.
const float* GGWave::Resampler::window(int first, std::span<float> scratch) const {
    if (first >= kHistory) return m_samplesInp.data() + (first - kHistory);
    const auto fromDelay = std::min(scratch.size(), static_cast<std::size_t>(kHistory - first));
    std::copy_n(m_delay.data() + first, fromDelay, scratch.begin());
    std::copy_n(m_samplesInp.data(), scratch.size() - fromDelay,
                scratch.begin() + static_cast<std::ptrdiff_t>(fromDelay));
    return scratch.data();
}

/// Moves what was consumed into the delay line, for the next call.
void GGWave::Resampler::settle() {
    const int kept = std::max(0, kHistory - m_consumed);
    std::memmove(m_delay.data(), m_delay.data() + (kHistory - kept),
                 static_cast<std::size_t>(kept) * sizeof(float));
    const int fresh = kHistory - kept;
    std::copy_n(m_samplesInp.data() + m_consumed - fresh, fresh, m_delay.data() + kept);
    m_fed = m_consumed = 0;
}

// Block by block

Resampler::Resampler() { make_sinc(); }

void Resampler::make_sinc() { makeKernel(m_sincTable); }

double Resampler::sinc(double x) const { return kernelAt(m_sincTable, x); }

float Resampler::gimme_data(long j) const {
    return j >= -kKernelWidth && j < kHistory - kKernelWidth
               ? m_delay[static_cast<std::size_t>(j + kKernelWidth)]
               : 0.0F;
}

void Resampler::new_data(float sample) {
    std::copy(m_delay.begin() + 1, m_delay.end(), m_delay.begin());
    m_delay.back() = sample;
}

int Resampler::resample(float factor, int nSamples, const float* samplesInp, float* samplesOut) {
    if (!isUsableFactor(factor) || nSamples < 1 || samplesInp == nullptr || samplesOut == nullptr) return 0;
    if (factor != m_lastFactor) {
        make_sinc();
        m_lastFactor = factor;
    }
    int outputs = 0, shifted = 0;
    for (double time = 0.0;; time += static_cast<double>(factor)) {
        const auto whole = static_cast<std::int64_t>(time);
        while (shifted < whole) {
            new_data(samplesInp[shifted]);
            if (++shifted == nSamples)
                return outputs; // the last one belongs to the next block's first output
        }
        const std::span taps(m_delay.data() + 1, std::size_t{kKernelTaps});
        samplesOut[outputs++] =
            kernelSum(m_sincTable, taps.first<kKernelTaps>(), time - static_cast<double>(whole), factor);
    }
}
