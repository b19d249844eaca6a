/// Everything in a recording that looks like a transmission, whether or not a text comes of it.
#pragma once

#include "deep/likelihood.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace sorvel {

/// Where a transmission may be, and what is known of its nibbles.
struct Sighting {
    double end_s = 0.0;
    double speed_m_s = 0.0; ///< of the source, closer is positive
    bool isMoving = false;  ///< found by the search for sources that change their speed
    deep::Air air;          ///< its evidence ranks sightings: in noise it stays below `kLeastEvidence`
    deep::ToneEnergies energies{};
    deep::Scores scores{};
    std::optional<deep::Scores> second; ///< the view by short looks, where tones stand high enough
};

/// Below it nothing but noise needs to be there.
inline constexpr float kLeastEvidence = 20.0F;

/// The noise that is added to the sound, below tones within their band: no signal-to-noise ratio shows
/// higher.
inline constexpr double kCover_db = 40.0;

/// Takes a recording as the deep receiver does, but looks closely at every candidate, as time does not press,
/// and keeps the best instead of waiting for a text.
///
/// Thread: one at a time. Memory does not grow with the recording.
class TransmissionSearch {
public:
    static constexpr std::size_t kMostSightings = 96;

    /// @param rate_hz  32000 to 384000
    explicit TransmissionSearch(double rate_hz);
    ~TransmissionSearch();
    TransmissionSearch(const TransmissionSearch&) = delete;
    TransmissionSearch& operator=(const TransmissionSearch&) = delete;

    /// @param samples  full scale 1.0
    void take(std::span<const float> samples);
    void finish(); ///< the recording has ended

    /// In no order; times count from the first sample.
    const std::vector<Sighting>& sightings() const noexcept;

private:
    class Parts;
    std::unique_ptr<Parts> m_parts;
    double m_rate_hz;
};

} // namespace sorvel
