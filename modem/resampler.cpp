#include "modem/resampler.hpp"

#include "modem/ggwave.h"
#include "modem/sinc_kernel.hpp"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>

// Both keep the last 136 samples in a delay line and their place in time; the sums are made in sinc_kernel.

using namespace sorvel::detail;

namespace {

constexpr int kDelaySize = 3 * GGWave::Resampler::kWidth;

constexpr int kRebaseAt = 1 << 30; // time is wound back long before an int overflows

bool isUsableFactor(float factor) {
    return factor >= GGWave::Resampler::kMinFactor && factor < GGWave::Resampler::kFactorLimit;
}

template <class T>
void place(ggvector<T>& view, void* p, int& n, int count) {
    if (p != nullptr) view = {reinterpret_cast<T*>(static_cast<std::byte*>(p) + n), count};
    n += count * static_cast<int>(sizeof(T));
}

/// Shifts samples into a delay line, oldest first.
void shiftIn(std::span<float, kHistory> line, std::span<const float> samples) {
    samples = samples.last(std::min(samples.size(), line.size()));
    std::copy(line.begin() + static_cast<std::ptrdiff_t>(samples.size()), line.end(), line.begin());
    std::copy(samples.begin(), samples.end(), line.end() - static_cast<std::ptrdiff_t>(samples.size()));
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
    m_clock = {};
    m_total = m_last = m_fed = m_consumed = 0;
    m_delay.zero();
    m_edge.zero();
    m_samplesInp.zero();
}

void GGWave::Resampler::makeSinc() {
    if (m_sincTable.size() == 0) return;
    makeKernel(m_sincTable.span().first<kKernelTable>());
    m_kernel.forget();
}

double GGWave::Resampler::sinc(double x) const {
    return m_sincTable.size() == 0 ? 0.0 : kernelAt(m_sincTable.span().first<kKernelTable>(), x);
}

void GGWave::Resampler::newData(float sample) {
    if (m_delay.size() != 0) shiftIn(m_delay.span().first<kHistory>(), {&sample, 1});
}

float GGWave::Resampler::getData(int j) const {
    return j >= -kWidth && j < m_delay.size() - kWidth ? m_delay[j + kWidth] : 0.0F;
}

int GGWave::Resampler::resample(float factor, int nSamples, const float* samplesInp, float* samplesOut) {
    if (!isUsableFactor(factor)) return 0;
    if (samplesOut == nullptr) return m_clock.countBefore(1.0 + m_last + nSamples, factor);
    feed(nSamples, samplesInp);
    const int n = take(factor, {samplesOut, INT_MAX});
    settle();
    return n;
}

void GGWave::Resampler::feed(int nSamples, const float* samplesInp) {
    const std::span<float> input = feed(nSamples);
    std::copy_n(samplesInp, nSamples, input.data());
}

std::span<float> GGWave::Resampler::feed(int nSamples) {
    if (!(nSamples > kWidth))
        sorvel::detail::assertionFailed("resample", "ggwave", __LINE__, "nSamples > kWidth");
    if (!(m_samplesInp.size() >= nSamples + kWidth)) {
        sorvel::detail::assertionFailed("resample", "ggwave", __LINE__,
                                        "(int) m_samplesInp.size() >= nSamples + kWidth");
    }
    if (m_last > kRebaseAt) {
        m_clock = {m_clock.next - m_last, m_clock.latest - m_last};
        m_last = 0;
    }
    m_total += std::min(nSamples, INT_MAX - m_total);
    m_fed = nSamples;
    m_consumed = 0;
    std::copy_n(m_edge.data(), kWidth, m_samplesInp.data());
    return m_samplesInp.span().subspan(kWidth, static_cast<std::size_t>(nSamples));
}

/// The last 64 samples of the input lie within reach, but are shifted in by the next call.
int GGWave::Resampler::take(float factor, std::span<float> out) {
    if (!isUsableFactor(factor) || m_fed == 0) return 0;
    const KernelInput input{m_delay.span().first<kHistory>(),
                            m_samplesInp.span().first(static_cast<std::size_t>(m_fed + kWidth)), m_last};
    const double end = 1.0 + m_last + m_fed; // the first time that wants more than was fed
    const std::size_t n =
        m_kernel.convert(m_sincTable.span().first<kKernelTable>(), input, m_clock, end, factor, out);
    if (n > 0) m_consumed = m_clock.latest - m_last;
    if (m_clock.next >= end) m_consumed = m_fed;
    return static_cast<int>(n);
}

/// Moves what was consumed into the delay line, and the edge aside, for the next call.
void GGWave::Resampler::settle() {
    if (m_fed == 0) return;
    shiftIn(m_delay.span().first<kHistory>(),
            m_samplesInp.span().first(static_cast<std::size_t>(m_consumed)));
    std::copy_n(m_samplesInp.data() + m_fed, kWidth, m_edge.data());
    m_last += m_consumed;
    m_fed = m_consumed = 0;
}

// Block by block

Resampler::Resampler() { make_sinc(); }

void Resampler::make_sinc() {
    makeKernel(m_sincTable);
    m_kernel.forget();
}

double Resampler::sinc(double x) const { return kernelAt(m_sincTable, x); }

float Resampler::gimme_data(long j) const {
    return j >= -kKernelWidth && j < kHistory - kKernelWidth
               ? m_delay[static_cast<std::size_t>(j + kKernelWidth)]
               : 0.0F;
}

void Resampler::new_data(float sample) { shiftIn(m_delay, {&sample, 1}); }

int Resampler::resample(float factor, int nSamples, const float* samplesInp, float* samplesOut) {
    if (!isUsableFactor(factor) || nSamples < 1 || samplesInp == nullptr || samplesOut == nullptr) return 0;
    OutputClock clock;
    const int n = clock.countBefore(nSamples, factor);
    if (n == INT_MAX) return 0;
    if (factor != m_lastFactor) {
        make_sinc();
        m_lastFactor = factor;
    }
    auto history = m_delay;
    std::fill_n(history.begin(), kKernelWidth, 0.0F); // before time 0: in the line, but they do not count
    const std::span samples(samplesInp, static_cast<std::size_t>(nSamples));
    m_kernel.convert(m_sincTable, {history, samples}, clock, nSamples, factor,
                     {samplesOut, static_cast<std::size_t>(n)});
    shiftIn(m_delay, samples);
    return n;
}
