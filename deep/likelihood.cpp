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

/// Fills the probabilities of all nibbles under a model; the evidence comes back.
template <typename Model>
float explain(const Model& model, Scores& probabilities) {
    float evidence = 0.0F;
    for (std::size_t chunk = 0; chunk < kChunks; ++chunk) {
        for (std::size_t side = 0; side < 2; ++side) {
            Nibble& values = probabilities[2 * chunk + side];
            evidence += model(chunk, 16 * side, values);
            evidence += normalise(values);
        }
    }
    return evidence;
}

class Search {
public:
    explicit Search(const ToneEnergies& energies) : m_energies(energies) {}

    void steady(float decibels) {
        const float ratio = ratioOf(decibels);
        consider({decibels, 0.0F, false, 0.0F}, [&](std::size_t chunk, std::size_t first, Nibble& values) {
            for (std::size_t i = 0; i < 16; ++i)
                values[i] = logI0(2.0F * std::sqrt(ratio * m_energies[chunk][first + i])) - ratio;
            return 0.0F;
        });
    }

    void fading(float decibels) {
        const float ratio = ratioOf(decibels);
        const float slope = ratio / (1.0F + ratio);
        const float offset = std::log(1.0F + ratio);
        consider({decibels, 0.0F, true, 0.0F}, [&](std::size_t chunk, std::size_t first, Nibble& values) {
            for (std::size_t i = 0; i < 16; ++i) values[i] = slope * m_energies[chunk][first + i] - offset;
            return 0.0F;
        });
    }

    void echo(float decibels, float ring) {
        const float ratio = ratioOf(decibels);
        consider({decibels, ring, true, -kEchoPenalty},
                 [&](std::size_t chunk, std::size_t first, Nibble& values) {
                     float ofAll = 0.0F; // how much likelier the ringing makes all sixteen
                     for (std::size_t i = 0; i < 16; ++i) {
                         const std::size_t tone = first + i;
                         const float e = m_energies[chunk][tone];
                         const float before = (chunk > 0 ? m_energies[chunk - 1][tone] : 0.0F) +
                                              kSecondRing * (chunk > 1 ? m_energies[chunk - 2][tone] : 0.0F);
                         const float noise = 1.0F + ring * before;
                         const float all = noise + ratio;
                         ofAll += e - e / noise - std::log(noise);
                         values[i] = e / noise - e / all + std::log(noise / all);
                     }
                     return ofAll;
                 });
    }

    const Air& air() const { return m_air; }
    const Scores& best() const { return m_best; }

private:
    template <typename Model>
    void consider(Air air, const Model& model) {
        air.evidence += explain(model, m_now);
        if (m_hasOne && air.evidence <= m_air.evidence) return;
        m_hasOne = true;
        m_air = air;
        m_best = m_now;
    }

    const ToneEnergies& m_energies;
    Air m_air;
    bool m_hasOne = false;
    Scores m_now{}, m_best{};
};

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

Air score(const ToneEnergies& energies, Scores& scores) noexcept {
    Search search(energies);
    for (int step = 0; step <= 12; ++step) {
        const float decibels = 4.0F + 1.5F * static_cast<float>(step);
        search.steady(decibels);
        search.fading(decibels);
    }
    for (const float ring : kEchoes)
        for (int decibels = 4; decibels <= 40; decibels += 4) search.echo(static_cast<float>(decibels), ring);
    scores = search.best();
    for (auto& nibble : scores) toScores(nibble);
    return search.air();
}

} // namespace sorvel::deep
