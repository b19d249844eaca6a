#pragma once

#include "deep/delivery.hpp"
#include "deep/energies.hpp"
#include "deep/likelihood.hpp"
#include "deep/sub_blocks.hpp"

#include <optional>
#include <span>

namespace sorvel::deep {

/// What an attempt found out about a text that it accepts.
struct Found {
    TextDecoder::Word word;
    Place place;
    float snr_db = 0.0F; ///< power of the tones over that of the noise from 18 to 19.5 kHz
    float echo = 0.0F;   ///< part of a tone's energy that was still there a chunk later
};

/// One candidate's way from samples to a text, in steps small enough to go between blocks of sound.
///
/// Every shift of the candidate is refined, scored and decoded; where tones stand so high that what
/// remains unclear must be echo, a second view of short looks is decoded too.
///
/// What a quick attempt heard and could not decode is kept for half a minute: beacons repeat, and two
/// hearings of one text add up to some 3 dB. That of the former ones which agrees best is combined with a new
/// one, if the nibbles say that the two are one word.
///
/// Thread: one at a time. Allocates in the constructor only.
class Attempt {
public:
    /// @param transform  of 1024 points, lent for good; may serve others too
    /// @param workspace  lent for good; for nobody else from `begin` until it is finished
    Attempt(std::string_view prefix, Transform& transform, Workspace& workspace)
        : m_refinement(transform, workspace), m_subBlocks(workspace), m_delivery(prefix, workspace) {}
    bool isReady() const { return m_delivery.isReady(); }
    void reset() noexcept; ///< forgets what was heard, and ends what is under way
    float margin() const { return m_delivery.margin(); } ///< that a text must have

    enum class Effort : std::uint8_t {
        Quick, ///< the best shift alone, few words, and former hearings: enough for what is clear or repeated
        Full
    };
    /// @param end     number of the sample behind the transmission, within half a row
    /// @param shifts  at most three, the likeliest first
    void begin(std::int64_t end, std::span<const int> shifts, Effort effort) noexcept;

    /// One step.
    ///
    /// @param samples  the same sound at every step
    /// @return what it cost, in microseconds of a processor of 3 GHz with AVX2; 0: it was finished before
    int step(SampleView samples) noexcept;
    static constexpr int kMostPerStep_us = 1020;
    bool isFinished() const noexcept { return m_stage == Stage::Done; }
    Effort effort() const noexcept { return m_effort; } ///< of the latest `begin`
    const std::optional<Found>& found() const noexcept { return m_found; }

private:
    enum class Stage : std::uint8_t {
        Refine,
        Score,
        Decode,
        SecondView,
        DecodeSecond,
        Combine,
        DecodeCombined,
        Done
    };

    int decode(Stage next) noexcept;
    void accept(const TextDecoder::Word& word) noexcept;
    int mostWords() const noexcept;
    void nextShift() noexcept;
    bool combine() noexcept;

    /// Of a transmission that was not decoded.
    struct Hearing {
        std::array<std::array<ShortFloat, 16>, kNibbles> scores{};
        std::int64_t end = 0;
        bool isKept = false;
    };
    float agreement(const Hearing& before) const noexcept;

    Refinement m_refinement;
    SubBlocks m_subBlocks;
    Delivery m_delivery;
    ToneEnergies m_energies{};
    Scores m_scores{};
    std::array<Hearing, 20> m_before;
    std::size_t m_oldest = 0;
    Air m_air;
    std::int64_t m_end = 0;
    std::array<int, 3> m_shifts{};
    std::size_t m_shiftCount = 0;
    std::size_t m_shift = 0;
    int m_which = 0; // of the ends
    Effort m_effort = Effort::Quick;
    Stage m_stage = Stage::Done;
    std::optional<Found> m_found;
};

} // namespace sorvel::deep
