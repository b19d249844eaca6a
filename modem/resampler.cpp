#include "modem/ggwave.h"

#include <climits>
#include <cmath>
#include <cstring>
#include <numbers>

// The output at time t is the sum of data(j) * sinc((t - j) / max(1, factor)) over the input samples j around
// t, with a Hann-tapered sinc (Smith, "Digital Audio Resampling Home Page", CCRMA). Time is split into the
// input samples shifted into the delay line, whose newest is at kNewest, and the position between them.

namespace {

constexpr int kTableSize = 64 * GGWave::Resampler::kSincResolution;
constexpr int kDelaySize = 3 * GGWave::Resampler::kWidth;
constexpr int kNewest = 135;                             // index of the newest sample in the delay line
constexpr int kTaps = 2 * GGWave::Resampler::kWidth - 1; // samples under the kernel
constexpr double kKernelEnd = 63.0;                      // in input samples
constexpr int kRebaseAt = 1 << 30; // time counters are wound back long before they overflow
constexpr int kBlock = 64;         // outputs made together at factor 2

/// Input samples per output sample that keep every count finite and every time within an int.
bool isUsable(float factor) { return factor > 0.0F && factor < 1e6F; }

template <class T>
void place(ggvector<T>& view, void* p, int& n, int count) {
    if (p != nullptr) view = {reinterpret_cast<T*>(static_cast<std::byte*>(p) + n), count};
    n += count * static_cast<int>(sizeof(T));
}

} // namespace

bool GGWave::Resampler::alloc(void* p, int& n) {
    place(m_sincTable, p, n, kTableSize);
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
    m_sincTable[0] = 1.0F;
    for (int j = 1; j < kTableSize; ++j) {
        const double x = std::numbers::pi * j / kSincResolution;
        const auto lobes = static_cast<float>(std::sin(x) / x);
        const double taper = 0.5 + 0.5 * std::cos(std::numbers::pi * j / kTableSize);
        m_sincTable[j] = static_cast<float>(static_cast<double>(lobes) * taper);
    }
    for (std::size_t k = 0; k < m_halfRateKernel.size(); ++k)
        m_halfRateKernel[k] = 0.5F * m_sincTable[static_cast<int>(2 * k + 1) * kSincResolution / 2];
}

double GGWave::Resampler::sinc(double x) const {
    x = std::fabs(x);
    if (!(x < kKernelEnd) || m_sincTable.size() == 0) return 0.0;
    const double u = x * kSincResolution;
    const int i = static_cast<int>(u);
    const auto low = static_cast<double>(m_sincTable[i]), high = static_cast<double>(m_sincTable[i + 1]);
    return low + (high - low) * (u - i);
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
    if (!isUsable(factor)) return 0;
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
    if (!isUsable(factor)) return 0;
    const bool widens = factor >= 1.0F;
    const double scale = widens ? 1.0 / static_cast<double>(factor) : 1.0;
    const bool isHalfRate = factor == 2.0F;
    std::array<float, kTaps> scratch;

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
        const double position = m_time.current - m_time.integer;
        double sum = 0.0;
        for (int i = 0; i < kTaps; ++i) {
            const double distance = std::fabs(position - (i - (kWidth - 1)));
            sum += scale * static_cast<double>(taps[i]) * sinc(distance * scale);
        }
        out[n++] = static_cast<float>(sum);
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

    std::array<float, kTaps + 2 * (kBlock - 1) + 1> scratch;
    const float* const taps =
        window(first + 1, std::span(scratch).first(static_cast<std::size_t>(kTaps + 2 * (outputs - 1))));
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
        out[static_cast<std::size_t>(i)] = sums[static_cast<std::size_t>(i)] + 0.5F * taps[kTaps / 2 + 2 * i];

    m_consumed = first + 2 * (outputs - 1);
    m_time.integer += 2 * outputs;
    m_time.last = m_time.integer - 2;
    m_time.current += 2.0 * outputs;
    return outputs;
}

/// The samples from `first` on, counted from the oldest in the delay line, through what was fed.
const float* GGWave::Resampler::window(int first, std::span<float> scratch) const {
    constexpr int kHistory = kNewest + 1;
    if (first >= kHistory) return m_samplesInp.data() + (first - kHistory);
    const auto fromDelay = std::min(scratch.size(), static_cast<std::size_t>(kHistory - first));
    std::copy_n(m_delay.data() + first, fromDelay, scratch.begin());
    std::copy_n(m_samplesInp.data(), scratch.size() - fromDelay,
                scratch.begin() + static_cast<std::ptrdiff_t>(fromDelay));
    return scratch.data();
}

/// Moves what was consumed into the delay line, for the next call.
void GGWave::Resampler::settle() {
    constexpr int kHistory = kNewest + 1;
    const int kept = std::max(0, kHistory - m_consumed);
    std::memmove(m_delay.data(), m_delay.data() + (kHistory - kept),
                 static_cast<std::size_t>(kept) * sizeof(float));
    const int fresh = kHistory - kept;
    std::copy_n(m_samplesInp.data() + m_consumed - fresh, fresh, m_delay.data() + kept);
    m_fed = m_consumed = 0;
}
