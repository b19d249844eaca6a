#pragma once

#include "deep/attempt.hpp"
#include "deep/candidates.hpp"
#include "deep/small_decoder.hpp"
#include "deep/small_refinement.hpp"

#include <optional>
#include <variant>

namespace sorvel::deep::small {

/// One candidate's way from samples to a text, in 11 KiB, as deep::Attempt; without former hearings.
///
/// Goes in steps of about one size, of which one fits between two blocks of sound.
///
/// Thread: one at a time. Allocates nothing.
class Attempt {
public:
    /// @param texts  lent for good
    explicit Attempt(const Texts& texts)
        : m_texts(texts), m_margin(texts.prefixLength() > 0 ? Delivery::kMarginBehindPrefix
                                                            : Delivery::kMarginWithoutPrefix) {}
    float margin() const noexcept { return m_margin; } ///< that a text must have

    void begin(const Candidate& candidate) noexcept;
    void abandon() noexcept { m_stage = Stage::Done; }
    bool isFinished() const noexcept { return m_stage == Stage::Done; }
    /// A text is there, and is only compared with others.
    bool isComparing() const noexcept { return m_stage == Stage::Compare; }
    const Candidate& candidate() const noexcept { return m_candidate; }

    /// One step.
    ///
    /// @param power  scratch
    void step(const Baseband& baseband, Spectrum& spectrum, std::span<float, Spectrum::kBins> power) noexcept;
    const std::optional<Found>& found() const noexcept { return m_found; }

private:
    enum class Stage : std::uint8_t { Refine, Score, Decode, Compare, SecondView, Done };

    /// What is known once the place is.
    struct Hearing {
        explicit Hearing(const Texts& texts) : decoder(texts) {}
        ToneEnergies energies{};
        Scores scores{};
        AirSearch search;
        Decoder decoder;
    };

    void refine(const Baseband& baseband, Spectrum& spectrum,
                std::span<float, Spectrum::kBins> power) noexcept;
    void beginDecode(Hearing& hearing) noexcept;
    void decode(const Baseband& baseband) noexcept;
    void compare() noexcept;
    void endDecode(const Baseband& baseband) noexcept;
    void accept() noexcept;
    bool isKept(const Baseband& baseband) const noexcept;
    void beginShift() noexcept;

    const Texts& m_texts;
    float m_margin;
    // One at a time: the second needs nothing of the first but its result.
    std::variant<Refinement, Hearing> m_work;
    Candidate m_candidate;
    std::size_t m_shift = 0;
    int m_which = 0; // of the ends
    Place m_place;
    Air m_air;
    bool m_isSecondView = false;
    Stage m_stage = Stage::Done;
    TextDecoder::Word m_word;
    std::optional<Found> m_found;
};

} // namespace sorvel::deep::small
