#include "deep/motion_path.hpp"

#include "deep/target_clones.hpp"
#include "deep/window.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sorvel::deep {

namespace {

constexpr float kNever = -1e9F;

/// What may be reached by jumps from the ends, and by which.
SORVEL_DEEP_CLONES
void jump(const float* __restrict end, std::size_t n, const Trellis::JumpCost& cost,
          float* __restrict reached, std::int8_t* __restrict by) {
    for (std::size_t g = 0; g < n; ++g) reached[g] = end[g];
    for (std::size_t g = 0; g < n; ++g) by[g] = 0;
    for (int width = 1; width <= cost.widest; ++width) {
        const auto size = static_cast<float>(width);
        const float price = cost.linear * size + cost.quadratic * size * size;
        for (const int step : {-width, width}) {
            const float* const from = end + step;
            const auto mark = static_cast<std::int8_t>(step);
            for (std::size_t g = 0; g < n; ++g) {
                const float worth = from[g] - price;
                by[g] = worth > reached[g] ? mark : by[g];
                reached[g] = worth > reached[g] ? worth : reached[g];
            }
        }
    }
}

SORVEL_DEEP_CLONES
void extend(const float* __restrict reached, const float* __restrict score, std::size_t n, float cost,
            std::uint8_t mark, float* __restrict end, std::uint8_t* __restrict by) {
    for (std::size_t i = 0; i < n; ++i) {
        const float worth = reached[i] + (score[i] - cost);
        by[i] = worth > end[i] ? mark : by[i];
        end[i] = worth > end[i] ? worth : end[i];
    }
}

/// y = x times the factor, or times its conjugate where the sign is -1.
SORVEL_DEEP_CLONES
void turn(const float* __restrict xr, const float* __restrict xi, const float* __restrict factor, float sign,
          float* __restrict yr, float* __restrict yi) {
    for (std::size_t i = 0; i < kChunk; ++i) {
        const float c = factor[i];
        const float s = sign * factor[kChunk + i];
        const float r = xr[i];
        yr[i] = r * c - xi[i] * s;
        yi[i] = r * s + xi[i] * c;
    }
}

} // namespace

Chirp Chirp::of(double slope_hz_s, double bend_hz_s2) {
    const double straight = slope_hz_s * kChunk_s / 2.0;
    // A hand that walks comes to 240 Hz/s or 3000 Hz/s^2, hardly to both at once.
    const double bent = bend_hz_s2 * kChunk_s * kChunk_s / 8.0;
    return {.slope_hz_s = static_cast<float>(slope_hz_s),
            .bend_hz_s2 = static_cast<float>(bend_hz_s2),
            .left = static_cast<int>(std::lround((bent - straight) / kBin_hz)),
            .right = static_cast<int>(std::lround((bent + straight) / kBin_hz)),
            .cost = static_cast<float>(2.0 *
                                       (std::pow(slope_hz_s / 240.0, 2) + std::pow(bend_hz_s2 / 3000.0, 2)))};
}

void Trellis::begin(Memory& memory) noexcept {
    m_memory = &memory;
    m_chunk = 0;
    for (auto& row : memory.chirp) row.fill(0);
    for (auto& row : memory.jump) row.fill(0);
}

void Trellis::beginChunk(const JumpCost& cost) noexcept {
    const auto chunk = static_cast<std::size_t>(m_chunk++);
    if (chunk == 0)
        m_begin.fill(0.0F);
    else
        jump(m_end.data() + kMostJump, kEdges, cost, m_begin.data(), m_memory->jump[chunk].data());
    m_end.fill(kNever);
}

void Trellis::add(const Chirp& chirp, int index, int first, std::span<const float> scores) noexcept {
    const auto begin = static_cast<std::size_t>(first + chirp.left + kEdge);
    const auto end = static_cast<std::size_t>(first + chirp.right + kEdge);
    extend(m_begin.data() + begin, scores.data(), scores.size(), chirp.cost, static_cast<std::uint8_t>(index),
           m_end.data() + kMostJump + end,
           m_memory->chirp[static_cast<std::size_t>(m_chunk - 1)].data() + end);
}

float Trellis::best() const noexcept { return *std::max_element(m_end.begin(), m_end.end()); }

void Trellis::trace(std::span<const Chirp> chirps, Steps& steps) const noexcept {
    // Sound that is not a number leads nowhere, and must not lead out of the memory.
    const auto inside = [](std::ptrdiff_t edge) {
        return static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(edge, 0, kEdges - 1));
    };
    auto edge = inside(std::max_element(m_end.begin(), m_end.end()) - m_end.begin() - kMostJump);
    for (std::size_t chunk = steps.size(); chunk-- > 0;) {
        const std::uint8_t index = m_memory->chirp[chunk][edge];
        const Chirp& chirp = chirps[index];
        const auto middle = static_cast<std::ptrdiff_t>(edge) - chirp.right;
        steps[chunk] = {static_cast<std::int16_t>(middle - kEdge), index};
        const std::size_t begin = inside(middle + chirp.left);
        edge = inside(static_cast<std::ptrdiff_t>(begin) + m_memory->jump[chunk][begin]);
    }
}

ChirpScores::ChirpScores(Transform& transform)
    : m_transform(transform), m_comb(kPoints, kReach), m_trapezoid(trapezoid(kChunk, 0.15)),
      m_power(m_comb.bins()), m_scores(2 * kReach + 1) {}

void ChirpScores::setFactor(std::size_t row, double slope_hz_s, double bend_hz_s2) noexcept {
    float* const cosines = m_memory->factors.data() + row * 2 * kChunk;
    for (std::size_t i = 0; i < kChunk; ++i) {
        const double t = (static_cast<double>(i) - 255.5) * kChunk_s / static_cast<double>(kChunk);
        const double turns = slope_hz_s * t * t / 2.0 + bend_hz_s2 * t * t * t / 6.0;
        const double angle = -2.0 * std::numbers::pi * turns;
        cosines[i] = static_cast<float>(std::cos(angle));
        cosines[kChunk + i] = static_cast<float>(std::sin(angle));
    }
}

void ChirpScores::setGrid(double slopeStep, int slopes, double bendStep, int bends) noexcept {
    m_count = 0;
    for (int k = -bends; k <= bends; ++k) {
        for (int i = -slopes; i <= slopes; ++i) {
            const double u = i / (slopes + 0.25), v = k / (bends + 0.2);
            const double radius = std::hypot(u, v);
            if (radius > 1.0 || m_count == kMostChirps) continue;
            m_chirps[m_count] = Chirp::of(i * slopeStep, k * bendStep);
            m_places[m_count] = {static_cast<std::int8_t>(i), static_cast<std::int8_t>(k)};
            m_isAtRim[m_count++] = radius > 0.8;
        }
    }
    for (int i = 1; i <= slopes; ++i) setFactor(static_cast<std::size_t>(i - 1), i * slopeStep, 0.0);
    for (int k = 1; k <= bends; ++k)
        setFactor(static_cast<std::size_t>(kMostSlopes + k - 1), 0.0, k * bendStep);
}

void ChirpScores::setWindow(const float* re, const float* im, float leastNoise) noexcept {
    Memory& memory = *m_memory;
    for (std::size_t i = 0; i < kChunk; ++i) {
        memory.windowed[i] = re[i] * m_trapezoid[i];
        memory.windowed[kChunk + i] = im[i] * m_trapezoid[i];
    }
    // Chirps leave the noise as it is, so the steady one's measure serves all.
    std::copy_n(memory.windowed.begin(), kChunk, memory.re.begin());
    std::copy_n(memory.windowed.begin() + kChunk, kChunk, memory.im.begin());
    transform();
    m_scale = 1.0F / std::max(ToneComb::noise(m_power), leastNoise);
}

/// Powers of the chunk in `re` and `im`.
void ChirpScores::transform() noexcept {
    Memory& memory = *m_memory;
    std::fill(memory.re.begin() + kChunk, memory.re.end(), 0.0F);
    std::fill(memory.im.begin() + kChunk, memory.im.end(), 0.0F);
    m_transform.forward(memory.re.data(), memory.im.data());
    m_comb.powers(memory.re.data(), memory.im.data(), m_power.data());
}

std::span<const float> ChirpScores::scores(int index, int first, int last) noexcept {
    Memory& memory = *m_memory;
    const auto factor = [&memory](int row) {
        return memory.factors.data() + row * 2 * static_cast<int>(kChunk);
    };
    const auto sign = [](int of) { return of > 0 ? 1.0F : -1.0F; };
    const Place place = m_places[static_cast<std::size_t>(index)];
    const float* re = memory.windowed.data();
    if (place.bend != 0) {
        float* const bent = memory.bent.data();
        turn(re, re + kChunk, factor(kMostSlopes + std::abs(place.bend) - 1), sign(place.bend), bent,
             bent + kChunk);
        re = bent;
    }
    const float* const im = re + kChunk;
    if (place.slope != 0) {
        turn(re, im, factor(std::abs(place.slope) - 1), sign(place.slope), memory.re.data(),
             memory.im.data());
    } else {
        std::copy_n(re, kChunk, memory.re.begin());
        std::copy_n(im, kChunk, memory.im.begin());
    }
    transform();
    m_comb.scores(m_power.data(), m_scale, first, last, m_scores.data());
    return {m_scores.data(), static_cast<std::size_t>(last - first + 1)};
}

} // namespace sorvel::deep
