#include "platform/audio/rate_converter.hpp"

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <limits>
#include <new>
#include <speex/speex_resampler.h>
#include <stdexcept>
#include <string>

namespace sorvel {

namespace {

constexpr int kQuality = 5; // flat to 19.5 kHz from 44.1 kHz; 4 and below lose the top of the band

// The library's own products of a ratio and its filter's length fit 32 bits up to this resolution.
constexpr double kStepsPerHz = 100.0;

constexpr double kReserve_s = 0.001;
constexpr std::size_t kPiece_samples = 512;

spx_uint32_t steps(double rate_hz) {
    // Written so that a rate that is not a number is refused too.
    if (!(rate_hz >= kLowestSampleRate_hz && rate_hz <= kHighestSampleRate_hz)) {
        const bool isWhole = rate_hz == std::floor(rate_hz) && std::fabs(rate_hz) < 1e15;
        throw std::invalid_argument(
            "sample rate " + (isWhole ? std::to_string(std::llround(rate_hz)) : std::to_string(rate_hz)) +
            " Hz is outside 8000 to 384000 Hz");
    }
    return static_cast<spx_uint32_t>(std::llround(rate_hz * kStepsPerHz));
}

spx_uint32_t samples32(std::size_t n) {
    return static_cast<spx_uint32_t>(std::min<std::size_t>(n, 1U << 24U)); // the library counts in 32 bits
}

} // namespace

struct ResamplingFilter::State {
    State(spx_uint32_t from, spx_uint32_t to) {
        int error = RESAMPLER_ERR_SUCCESS;
        constexpr auto kHz = static_cast<spx_uint32_t>(kStepsPerHz);
        handle = speex_resampler_init_frac(1, from, to, from / kHz, to / kHz, kQuality, &error);
        if (handle == nullptr || error != RESAMPLER_ERR_SUCCESS) {
            if (handle != nullptr) speex_resampler_destroy(handle);
            throw std::bad_alloc(); // the one failure that rates within the limits leave
        }
    }
    ~State() { speex_resampler_destroy(handle); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    SpeexResamplerState* handle = nullptr;
};

ResamplingFilter::ResamplingFilter(double from_hz, double to_hz)
    : m_ratio(static_cast<double>(steps(to_hz)) / static_cast<double>(steps(from_hz))) {
    if (steps(from_hz) == steps(to_hz)) return;
    // To a whole multiple the library takes a sixth less time, and is as good.
    const bool isMultiple = steps(to_hz) % steps(from_hz) == 0;
    if (!isMultiple) m_polyphase = PolyphaseFilter::make(steps(from_hz), steps(to_hz));
    if (!m_polyphase) m_state = std::make_unique<State>(steps(from_hz), steps(to_hz));
}

ResamplingFilter::~ResamplingFilter() = default;
ResamplingFilter::ResamplingFilter(ResamplingFilter&&) noexcept = default;
ResamplingFilter& ResamplingFilter::operator=(ResamplingFilter&&) noexcept = default;

Converted ResamplingFilter::process(std::span<const float> in, std::span<float> out) noexcept {
    if (m_polyphase) return m_polyphase->process(in, out);
    if (!m_state) {
        const std::size_t n = std::min(in.size(), out.size());
        std::copy_n(in.begin(), n, out.begin());
        return {n, n};
    }
    Converted all;
    while (all.consumed < in.size() && all.produced < out.size()) {
        spx_uint32_t consumed = samples32(in.size() - all.consumed);
        spx_uint32_t produced = samples32(out.size() - all.produced);
        speex_resampler_process_float(m_state->handle, 0, in.data() + all.consumed, &consumed,
                                      out.data() + all.produced, &produced);
        if (consumed == 0 && produced == 0) break;
        all.consumed += consumed;
        all.produced += produced;
    }
    return all;
}

void ResamplingFilter::skipLatency() noexcept {
    if (m_polyphase) m_polyphase->skipLatency();
    if (m_state) speex_resampler_skip_zeros(m_state->handle);
}

RateConverter::RateConverter(double from_hz, double to_hz) : m_filter(from_hz, to_hz) {
    m_filter.skipLatency();
}

Converted RateConverter::convert(std::span<const float> in, std::span<float> out) noexcept {
    const Converted step = m_filter.process(in, out);
    m_consumed += step.consumed;
    m_produced += step.produced;
    return step;
}

std::size_t RateConverter::flush(std::span<float> out) noexcept {
    const auto total =
        static_cast<std::uint64_t>(std::llround(static_cast<double>(m_consumed) * m_filter.ratio()));
    if (m_produced >= total) return 0;
    const std::span<float> wanted =
        out.first(static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), total - m_produced)));
    static constexpr std::array<float, kPiece_samples> kSilence{};
    std::size_t produced = 0;
    while (produced < wanted.size())
        produced += m_filter.process(kSilence, wanted.subspan(produced)).produced;
    m_produced += produced;
    return produced;
}

LiveRateConverter::LiveRateConverter(double from_hz, double to_hz)
    : m_filter(from_hz, to_hz), m_reserve(static_cast<std::size_t>(to_hz * kReserve_s)),
      m_waiting(2 * m_reserve, 0.0F), m_count(m_reserve) {}

void LiveRateConverter::convert(std::span<const float> in, std::span<float> out) noexcept {
    std::size_t filled = take(out);
    const Converted step = m_filter.process(in, out.subspan(filled));
    filled += step.produced;
    keep(in.subspan(step.consumed));
    if (filled < out.size()) {
        std::fill(out.begin() + static_cast<std::ptrdiff_t>(filled), out.end(), 0.0F);
        // A whole reserve at once, so that a caller who always asks for a little too
        // much has few gaps.
        std::fill(m_waiting.begin(), m_waiting.end(), 0.0F);
        m_count = m_reserve;
    }
}

/// Moves the oldest samples in hand to `out`; answers how many.
std::size_t LiveRateConverter::take(std::span<float> out) noexcept {
    const std::size_t n = std::min(out.size(), m_count);
    for (std::size_t i = 0; i < n; ++i) out[i] = m_waiting[(m_first + i) % m_waiting.size()];
    m_first = (m_first + n) % m_waiting.size();
    m_count -= n;
    return n;
}

/// Converts what did not fit the block and keeps it for the next one.
void LiveRateConverter::keep(std::span<const float> in) noexcept {
    std::array<float, kPiece_samples> piece{};
    while (!in.empty()) {
        const Converted step = m_filter.process(in, piece);
        if (step.consumed == 0 && step.produced == 0) return;
        in = in.subspan(step.consumed);
        for (std::size_t i = 0; i < step.produced; ++i) {
            if (m_count == m_waiting.size()) {
                m_first = (m_first + m_reserve) % m_waiting.size();
                m_count -= m_reserve;
            }
            m_waiting[(m_first + m_count++) % m_waiting.size()] = piece[i];
        }
    }
}

namespace {

/// Written with choices between values, which compilers make for several samples at once.
float tamed(float sample) noexcept {
    constexpr float kLimit = 1e6F;
    const float least = sample > -kLimit ? sample : -kLimit;
    const float limited = least < kLimit ? least : kLimit;
    return std::fabs(sample) <= std::numeric_limits<float>::max() ? limited : 0.0F; // nor not a number
}

/// With the count known when compiling, which matters for one and two channels.
template <std::size_t kChannels>
void mix(const float* interleaved, std::span<float> mono) noexcept {
    constexpr float kShare = 1.0F / static_cast<float>(kChannels);
    for (std::size_t frame = 0; frame < mono.size(); ++frame) {
        float sum = 0.0F;
        for (std::size_t channel = 0; channel < kChannels; ++channel)
            sum += tamed(interleaved[frame * kChannels + channel]);
        mono[frame] = sum * kShare;
    }
}

/// In this file alone: what a shared library exports is called, not inlined.
std::int16_t rounded(float sample) noexcept {
    const float number = sample * 32768.0F;
    const float least = number > -32768.0F ? number : -32768.0F;
    const float limited = least < 32767.0F ? least : 32767.0F;
    const float level = std::fabs(number) <= std::numeric_limits<float>::infinity() ? limited : 0.0F;
    // A sum this large has no room for fractions, so it is the nearest whole number, even of two,
    // where floats are summed as floats. A call of lrint takes longer than all else.
    constexpr float kNoFractions = 12582912.0F; // 1.5 * 2^23
    if constexpr (FLT_EVAL_METHOD == 0)
        return static_cast<std::int16_t>(static_cast<int>(level + kNoFractions - kNoFractions));
    return static_cast<std::int16_t>(std::lrint(level));
}

} // namespace

void mixToMono(std::span<const float> interleaved, std::size_t channels, std::span<float> mono) noexcept {
    const std::span<const float> all = interleaved.first(mono.size() * channels);
    if (channels == 1) return mix<1>(all.data(), mono);
    if (channels == 2) return mix<2>(all.data(), mono);
    const float share = 1.0F / static_cast<float>(channels);
    for (std::size_t frame = 0; frame < mono.size(); ++frame) {
        float sum = 0.0F;
        for (const float sample : all.subspan(frame * channels, channels)) sum += tamed(sample);
        mono[frame] = sum * share;
    }
}

void tame(std::span<float> samples) noexcept { mix<1>(samples.data(), samples); }

std::int16_t toInt16(float sample) noexcept { return rounded(sample); }

void toInt16(std::span<const float> samples, std::span<std::int16_t> out) noexcept {
    const std::size_t n = std::min(samples.size(), out.size());
    for (std::size_t i = 0; i < n; ++i) out[i] = rounded(samples[i]);
}

} // namespace sorvel
