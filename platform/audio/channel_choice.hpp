#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace sorvel {

/// In sound of several channels, the one in which a transmission is heard best. Their sum would lose
/// what arrives in opposite phase, which at wavelengths of 18 mm happens between any two microphones.
///
///     ChannelChoice choice(48000, 2);
///     takeChannel(interleaved, 2, choice.look(interleaved), mono);
///
/// Ten times in a second of sound it looks how far the strongest frequency stands out, in the lower half
/// of the band and in the upper one, as each holds a tone of a transmission; the lesser of the two means
/// over the last second counts, so that a whistle does not. A channel becomes the best one when it is 1.2 dB
/// better. Where none stands out, 15 dB of level in the band count as 1.2 dB, which leaves an input that
/// nothing is connected to.
///
/// A loud transmission is found with the first look, one as strong as the noise within its band in some
/// 0.3 s; what goes before is still taken from the former channel, unless the caller looks ahead.
///
/// Thread: one at a time. `look` allocates nothing.
class ChannelChoice {
public:
    /// @param rate_hz  8000 to 384000; below 39,000 Hz there is no band, and the first channel is taken
    ChannelChoice(double rate_hz, std::size_t channels);
    ~ChannelChoice();
    ChannelChoice(ChannelChoice&&) noexcept;
    ChannelChoice& operator=(ChannelChoice&&) noexcept;

    /// @param interleaved  a block of some 100 ms; at shorter ones than half of that it may not look
    /// @return the best channel, from 0 on
    std::size_t look(std::span<const float> interleaved) noexcept;

private:
    struct Spectrum;

    /// At one channel, or the mean of several.
    struct Look {
        double lower = 0.0, upper = 0.0; // how far a tone stands out of the half
        double level_db = 0.0;           // of the band

        void add(const Look& other, double share) noexcept;
        double score_db() const noexcept;
    };

    void transform(std::span<const float> interleaved, std::size_t channel) noexcept;
    Look spectrumLook(bool isSecond) const noexcept;

    std::size_t m_channels;
    std::unique_ptr<Spectrum> m_spectrum; // null: one channel, or no band
    std::vector<Look> m_means;            // of each channel
    bool m_hasLooked = false;
    std::size_t m_best = 0;
};

/// One channel of `interleaved`; what is not finite counts as in mixToMono.
///
/// @param mono  interleaved.size() / channels samples
void takeChannel(std::span<const float> interleaved, std::size_t channels, std::size_t channel,
                 std::span<float> mono) noexcept;

} // namespace sorvel
