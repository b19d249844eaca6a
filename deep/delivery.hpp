#pragma once

#include "deep/decoder.hpp"

namespace sorvel::deep {

/// Decides whether a search's best text is one that was sent.
///
///     Delivery delivery(prefix, workspace);
///     delivery.beginAttempt();                     // for each candidate of an end
///     while (delivery.begin(scores)) {             // for each view of it, at most `kDecodes`
///         while (!delivery.step(50000)) {}
///         if (const auto word = delivery.accepted()) ...
///     }
///
/// A text is accepted if its margin (score less ln 38 per open character) is 20 nats and more behind a
/// prefix, 17 without one; if the odds against another text of the same prefix are e^10 and more
/// (`Word::certainty`); and if, with a prefix, no text without it scores higher.
///
/// False texts: to sound that knows nothing of the code, every value of a nibble is as likely, and as the
/// mean over the values of e^score is 1, so is the mean over the words. Of the 38^n words of n open
/// characters, then, one has a margin of s with a probability of at most e^-s (Markov's inequality), which
/// makes at most 16 e^-s for the lengths of one decode, 12 e^-s behind a prefix of four. So per 1000 hours
/// at most
///
///     lengths * decodes per hour * 1000 * e^-margin
///
/// | sound, decodes an hour                        | prefix of four (20) | none (17) | none, in tones (20) |
/// |-----------------------------------------------|---------------------|-----------|---------------------|
/// | noise, 600: 55 candidates and 5 that move     | 0.015               | 0.40      | 0.02                |
/// | dense tones, 9300: all that the allowance has | 0.23                | 6.2       | 0.31                |
///
/// The decodes in dense tones are what Receiver can afford: two for each quick attempt of 1.4 ms, six for
/// each motion search of 25 ms. Without a prefix the bound does not hold them below 1: a listener for all
/// texts in music should take `kNoPrefixInTones`. Other transmissions' texts are no such noise: they are
/// code words. Behind their attempts with another prefix stands the last condition, since their own text
/// scores higher.
///
/// Time, thread, allocation: as TextDecoder; the search for a better text takes a third of its words more.
class Delivery {
public:
    static constexpr int kDecodes = 8; ///< in an attempt
    static constexpr float kMarginBehindPrefix = 20.0F;
    static constexpr float kMarginWithoutPrefix = 17.0F;
    static constexpr float kNoPrefixInTones = 20.0F;
    static constexpr float kCertainty = 10.0F;

    /// @param workspace  lent for good; for nobody else from `begin` until a decode is finished
    Delivery(std::string_view prefix, Workspace& workspace);

    /// False: the prefix is none, and all texts are accepted.
    bool isReady() const { return m_isReady; }

    /// The least margin, in place of the above.
    void setMargin(float margin) { m_margin = margin; }
    float margin() const { return m_margin; }

    void beginAttempt() { m_decodes = 0; }

    /// Starts a decode. False: this attempt has had `kDecodes`.
    ///
    /// @param mostWords  to look at
    bool begin(const Scores& scores, int mostWords = TextDecoder::kMostWords);

    /// Goes on for some `words` words; true: finished.
    bool step(int words);

    /// The text, once finished.
    std::optional<TextDecoder::Word> accepted() const;

    int looked() const { return m_decoder.looked(); } ///< words since `begin`, or since its comparison began

private:
    enum class Phase { kIdle, kSearching, kComparing, kAccepted };

    TextDecoder m_decoder;
    bool m_isReady = false;
    float m_margin = 0.0F;
    int m_decodes = 0;
    Phase m_phase = Phase::kIdle;
    Scores m_scores{};
    TextDecoder::Word m_word{};
};

} // namespace sorvel::deep
