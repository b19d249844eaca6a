#include "deep/likelihood.hpp"

#include <algorithm>
#include <cmath>

namespace sorvel::deep {

namespace {

constexpr float kAnything = 0.03F;
constexpr float kEchoPenalty = 8.0F; // of evidence: an echo explains a little of everything
constexpr float kSecondRing = 0.12F; // energy left after two chunks, of that after one
constexpr std::array<float, 4> kEchoes{0.02F, 0.08F, 0.3F, 1.0F};

float ratioOf(float decibels) { return std::pow(10.0F, 0.1F * decibels); }

/// Logarithm of the modified Bessel function I0, within 2e-7 of I0 (Abramowitz and Stegun, 9.8.1 and 9.8.2).
float logI0(float x) {
    if (x < 3.75F) {
        const float t = (x / 3.75F) * (x / 3.75F);
        return std::log(
            1.0F +
            t * (3.5156229F +
                 t * (3.0899424F + t * (1.2067492F + t * (0.2659732F + t * (0.0360768F + t * 0.0045813F))))));
    }
    const float t = 3.75F / x;
    const float tail =
        0.39894228F +
        t * (0.01328592F +
             t * (0.00225319F +
                  t * (-0.00157565F +
                       t * (0.00916281F +
                            t * (-0.02057706F + t * (0.02635537F + t * (-0.01647633F + t * 0.00392377F)))))));
    return x + std::log(tail / std::sqrt(x));
}

/// One nibble's tones under a model.
using Nibble = std::array<float, 16>;

/// Turns log-likelihoods into probabilities; the logarithm of their mean comes back.
float normalise(Nibble& values) {
    const float most = *std::max_element(values.begin(), values.end());
    float sum = 0.0F;
    for (float& value : values) {
        value = std::exp(value - most);
        sum += value;
    }
    for (float& value : values) value /= sum;
    return most + std::log(sum / 16.0F);
}

// The models in the order in which they are tried: steady and fading in turn, then echoes.
constexpr int kRatios = 13;
constexpr int kEchoRatios = 10;
constexpr int kModels = 2 * kRatios + kEchoRatios * static_cast<int>(kEchoes.size());

/// A way through the air, as far as a model of it is told by a number; without evidence.
Air modelled(int model) {
    if (model < 2 * kRatios) {
        const int ratio = model / 2;
        return {4.0F + 1.5F * static_cast<float>(ratio), 0.0F, model % 2 == 1, 0.0F};
    }
    const int echo = model - 2 * kRatios;
    return {static_cast<float>(4 + 4 * (echo % kEchoRatios)),
            kEchoes[static_cast<std::size_t>(echo / kEchoRatios)], true, -kEchoPenalty};
}

/// Fills the log-likelihoods of a nibble's values; what comes back makes all of them likelier.
class Model {
public:
    Model(const Air& air, const ToneEnergies& energies)
        : m_energies(energies), m_air(air), m_ratio(ratioOf(air.ratio)), m_offset(std::log(1.0F + m_ratio)) {}

    float fill(std::size_t chunk, std::size_t first, Nibble& values) const {
        if (m_air.echo > 0.0F) return fillEcho(chunk, first, values);
        const float slope = m_ratio / (1.0F + m_ratio);
        for (std::size_t i = 0; i < 16; ++i) {
            const float e = m_energies[chunk][first + i];
            values[i] =
                m_air.isFading ? slope * e - m_offset : logI0(2.0F * std::sqrt(m_ratio * e)) - m_ratio;
        }
        return 0.0F;
    }

private:
    float fillEcho(std::size_t chunk, std::size_t first, Nibble& values) const {
        float ofAll = 0.0F; // how much likelier the ringing makes all sixteen
        for (std::size_t i = 0; i < 16; ++i) {
            const std::size_t tone = first + i;
            const float e = m_energies[chunk][tone];
            const float before = (chunk > 0 ? m_energies[chunk - 1][tone] : 0.0F) +
                                 kSecondRing * (chunk > 1 ? m_energies[chunk - 2][tone] : 0.0F);
            const float noise = 1.0F + m_air.echo * before;
            const float all = noise + m_ratio;
            ofAll += e - e / noise - std::log(noise);
            values[i] = e / noise - e / all + std::log(noise / all);
        }
        return ofAll;
    }

    const ToneEnergies& m_energies;
    Air m_air;
    float m_ratio, m_offset;
};

/// Hands each nibble's probabilities to `take`; the evidence comes back.
template <typename Take>
float explain(const Model& model, const Take& take) {
    float evidence = 0.0F;
    Nibble values;
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
        for (std::size_t side = 0; side < 2; ++side) {
            evidence += model.fill(chunk, 16 * side, values);
            evidence += normalise(values);
            take(2 * chunk + side, values);
        }
    }
    return evidence;
}

} // namespace

void toScores(std::span<float, 16> probabilities) noexcept {
    for (float& p : probabilities) p = std::log((1.0F - kAnything) * 16.0F * p + kAnything);
}

Arrival arrival(const ToneEnergies& energies, std::span<const std::uint8_t, kChunks> bytes) noexcept {
    float sent = 0.0F;
    float before = 0.0F; // of tones that are not sent any more in the next chunk
    float rest = 0.0F;   // and what is left of them there
    float gone = 0.0F;
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
        for (const std::size_t side : {0U, 4U}) {
            const auto toneOf = [&](std::size_t c) { return 4U * side + (bytes[c] >> side & 15U); };
            sent += energies[chunk][toneOf(chunk)];
            if (chunk == 0 || toneOf(chunk) == toneOf(chunk - 1)) continue;
            before += energies[chunk - 1][toneOf(chunk - 1)];
            rest += energies[chunk][toneOf(chunk - 1)];
            gone += 1.0F;
        }
    }
    const float ratio = std::max(sent / static_cast<float>(kNibbles) - 1.0F, 0.01F);
    const float echo = std::clamp((rest - gone) / std::max(before - gone, 1.0F), 0.0F, 1.0F);
    return {10.0F * std::log10(ratio) - kBandOverTone_dB, echo};
}

bool AirSearch::step(const ToneEnergies& energies, int models) noexcept {
    for (const int until = std::min(m_next + models, kModels); m_next < until; ++m_next) {
        Air air = modelled(m_next);
        air.evidence += explain(Model(air, energies), [](std::size_t, const Nibble&) {});
        if (m_next > 0 && air.evidence <= m_best.evidence) continue;
        m_best = air;
        m_bestModel = m_next;
    }
    return m_next == kModels;
}

Air AirSearch::finish(const ToneEnergies& energies, Scores& scores) const noexcept {
    explain(Model(modelled(m_bestModel), energies),
            [&](std::size_t nibble, const Nibble& values) { scores[nibble] = values; });
    for (auto& nibble : scores) toScores(nibble);
    return m_best;
}

Air score(const ToneEnergies& energies, Scores& scores) noexcept {
    AirSearch search;
    search.step(energies, kModels);
    return search.finish(energies, scores);
}

} // namespace sorvel::deep
