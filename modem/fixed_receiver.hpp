/// Spectra -> payloads of a length that both sides know.
#pragma once

#include "modem/coding.hpp"
#include "modem/reception.hpp"
#include "modem/settings.hpp"

namespace sorvel::modem {

/// Each power times `scale`, rounded half away from zero, 0 to 255. What is not a number is silence.
void quantise(std::span<const float> power, float scale, std::uint8_t* levels);

/// Such payloads carry no markers. After every frame the receiver looks at the last frames that a
/// whole transmission would span, takes the loudest tone of each group of 16 bins in each frame,
/// and lets the frames of a chunk vote. Only when enough nibbles won a majority is the error
/// correction asked.
class FixedReceiver {
public:
    FixedReceiver(const Settings& settings, Coding& coding) : m_settings(settings), m_coding(coding) {}

    /// The arrays for the rows that are enabled in `protocols`; rows beyond these
    /// are not searched for.
    void place(Layout& layout, const GGWave::Protocols& protocols);

    /// Takes the power spectrum of one frame. A transmission that ends with it is delivered to
    /// `reception`; of several protocols the one with the lowest id.
    void hear(std::span<const float> power, const GGWave::Protocols& protocols, Reception& reception);

    void forget() { m_history.zero(); }

private:
    void remember(std::span<const float> power);
    bool isSearchable(const GGWave::Protocol& protocol) const;
    bool detectTones(const GGWave::Protocol& protocol);
    int wonTone(int first, int frames, int base) const;

    static constexpr int kNoTone = -1;

    const Settings& m_settings;
    Coding& m_coding;
    int m_firstBin = 0; // bins below it do not count for a frame's loudest
    int m_row = 0;      // of m_history, written next
    // In the order of the working block
    ggmatrix<std::uint8_t> m_history;       // frame by bin, relative to the frame's loudest bin
    ggvector<std::uint8_t> m_detectedBins;  // nibbles of the transmission, low before high
    ggvector<std::uint8_t> m_detectedTones; // says what chunk the plan has room for
};

} // namespace sorvel::modem
