#include "modem/sinc_kernel.hpp"

#include "modem/sinc_sums.hpp"

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace sorvel::detail {

namespace {

std::size_t sumStretch(const KernelWeights& weights, const Stretch& stretch) {
#ifdef SORVEL_SUMS_AVX2
    if (__builtin_cpu_supports("avx2")) return sumStretchAvx2(weights, stretch);
#endif
    return sumStretchBy<kNativeWidth>(weights, stretch);
}

/// Nothing from the end of the kernel on, as `kernelAt` has it.
float entryAt(KernelTable table, int i) {
    return i < kKernelEnd * kKernelResolution ? table[static_cast<std::size_t>(i)] : 0.0F;
}

} // namespace

void makeKernel(std::span<float, kKernelTable> table) {
    table[0] = 1.0F;
    for (std::size_t j = 1; j < table.size(); ++j) {
        const double x = std::numbers::pi * static_cast<double>(j) / kKernelResolution;
        const auto lobes = static_cast<float>(std::sin(x) / x);
        const double taper = 0.5 + 0.5 * std::cos(std::numbers::pi * static_cast<double>(j) / kKernelTable);
        table[j] = static_cast<float>(static_cast<double>(lobes) * taper);
    }
}

double kernelAt(KernelTable table, double x) {
    x = std::fabs(x);
    if (!(x < kKernelEnd)) return 0.0;
    const double u = x * kKernelResolution;
    const auto i = static_cast<std::size_t>(u);
    const auto low = static_cast<double>(table[i]), high = static_cast<double>(table[i + 1]);
    return low + (high - low) * (u - static_cast<double>(i));
}

/// Between two powers of two all doubles are equally far apart, so that every step there is rounded alike (if
/// halfway between two, then from the second step on: the first makes the last bit of the time even, and the
/// others keep it so). The steps left in such a range are therefore counted by one division.
int OutputClock::countBefore(double end, float factor) const {
    const auto step = static_cast<double>(factor);
    double outputs = 0.0;
    for (double time = next; time < end && outputs < INT_MAX; outputs += 1.0, time += step) {
        const double second = time + step, third = second + step;
        const double binade = std::bit_cast<double>(std::bit_cast<std::uint64_t>(second) >> 52 << 52);
        const double limit = std::min(2.0 * binade, end);
        if (!(time >= binade && third < limit)) continue;
        const double rounded = third - second;
        double steps = std::floor((limit - second) / rounded);
        if (!(second + steps * rounded < limit)) steps -= 1.0; // the division may have been rounded up
        time = second + steps * rounded;
        outputs += 1.0 + steps;
    }
    return static_cast<int>(std::min<double>(outputs, INT_MAX));
}

void SincKernel::forget() {
    m_step = 0.0;
    m_hasHalfRate = false;
}

std::size_t SincKernel::convert(KernelTable table, const KernelInput& input, OutputClock& clock, double end,
                                float factor, std::span<float> out) {
    const auto increment = static_cast<double>(factor);
    const double step = kKernelResolution / std::max(1.0, increment);
    const bool isHalfRate = increment == 2.0 && clock.next == std::floor(clock.next);
    if (isHalfRate && !m_hasHalfRate) layOutHalfRate(table);
    if (!isHalfRate && m_step != step) layOut(table, step);
    const KernelWeights weights{m_rows, m_offsets, m_halfRate, step, isHalfRate};

    // First the outputs for which samples in the delay line count, then those from `fresh` alone.
    constexpr int kSeam = kHistory - 1;
    std::size_t outputs = 0;
    if (clock.next < input.begin + kSeam) {
        std::array<float, kHistory + kKernelTaps> seam{};
        const auto rest = std::copy(input.history.begin(), input.history.end(), seam.begin());
        std::copy_n(input.fresh.begin(), std::min(std::size_t{kKernelTaps}, input.fresh.size()), rest);
        outputs = sumStretch(weights, {std::span(seam).subspan(1), input.begin,
                                       std::min<double>(end, input.begin + kSeam), increment, clock, out});
    }
    const double last = input.begin + kSeam + static_cast<double>(input.fresh.size()) - kKernelTaps;
    return outputs + sumStretch(weights, {input.fresh, input.begin + kSeam, std::min(end, last + 1.0),
                                          increment, clock, out.subspan(outputs)});
}

/// In each row, first the weights of the samples up to the whole time, the nearest one last; then those of
/// the samples from there on. The centre stands in both halves, in the second with a weight of 0: so no sum
/// touches a sample outside the 127, whose NaN would spoil it. Without widening, what lies `row` entries
/// farther to one side lies `row` entries nearer to the other, and the second half runs backwards.
void SincKernel::layOut(KernelTable table, double step) {
    m_step = step;
    const int rows = std::min(kRows, static_cast<int>(step) + 3);
    for (int i = 0; i < kRowSize; ++i) {
        const bool isAfter = i >= kKernelWidth;
        const bool isBackwards = isAfter && step == kKernelResolution;
        const int m = isAfter ? i - kKernelWidth - 1 : kKernelWidth - 1 - i;
        const double distance = std::max(0, m) * step;
        const int entry = static_cast<int>(distance);
        m_offsets[static_cast<std::size_t>(i)] = static_cast<float>(distance - entry - 1.0);
        for (int row = 0; row < rows; ++row) {
            const int along = isBackwards ? kKernelResolution - row : row;
            m_rows[static_cast<std::size_t>(row * kRowSize + i)] =
                m < 0 || along < 0 ? 0.0F : entryAt(table, entry + along);
        }
    }
}

void SincKernel::layOutHalfRate(KernelTable table) {
    for (std::size_t k = 0; k < m_halfRate.size(); ++k)
        m_halfRate[k] = 0.5F * table[(2 * k + 1) * kKernelResolution / 2];
    m_hasHalfRate = true;
}

} // namespace sorvel::detail
