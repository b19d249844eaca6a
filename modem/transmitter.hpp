/// Payload -> coded bytes -> tones -> waveform in the playback format.
#pragma once

#include "modem/coding.hpp"
#include "modem/resampler.hpp"
#include "modem/settings.hpp"

namespace sorvel::modem {

/// Queues a payload and makes its sound.
///
/// Each coded byte sounds as two tones of 16 each, its low nibble in the lower band and its high
/// nibble in the upper; `bytesPerTx` bytes sound together, or tone after tone in mono-tone
/// protocols. Messages stand between two markers of 16 tones.
class Transmitter {
public:
    Transmitter(const Settings& settings, Coding& coding, GGWave::Resampler& resampler)
        : m_settings(settings), m_coding(coding), m_resampler(resampler) {}

    /// The arrays for the rows that are enabled in `protocols`.
    void place(Layout& layout, const GGWave::Protocols& protocols);

    /// Replaces what was queued; no data only drops it. Longer data than the instance carries is
    /// cut, with a line on the log stream. False, with such a line: nothing is queued.
    bool queue(std::span<const std::uint8_t> data, const GGWave::Protocols& protocols, ggwave_ProtocolId id,
               int volume_percent);
    bool hasData() const { return m_hasData; }

    /// Samples of the waveform that `encode` will make; when resampling, an upper bound. 0 if it will
    /// make none.
    std::uint32_t size_samples() const;

    /// Makes the tone list and the waveform of what is queued; restarts the converter's stream.
    ///
    /// @return bytes of the waveform; 1 when only tones are made; 0 without data, or after a line on the log
    ///         stream
    std::uint32_t encode();

    const void* waveform() const; ///< null if none is made
    ggvector<std::uint8_t> tones() const { return {m_tones.data(), m_nTones}; }
    bool takeAmplitudeI16(ggvector<short>& dst);

private:
    struct Frames; // how many frames of what a transmission has

    Frames transmissionFrames() const;
    const char* obstacle() const;
    int playedSamples(int frames) const;
    int codedByte(int i) const;
    void setDataBits(const Frames& frames, int frame);
    bool makeTones(const Frames& frames);
    void makeSines();
    void synthesizeFrame(const Frames& frames, int frame);
    void makeWaveform(const Frames& frames);
    void append(std::span<const float> samples);

    const Settings& m_settings;
    Coding& m_coding;
    GGWave::Resampler& m_resampler;

    bool m_hasData = false;
    float m_sendVolume = 0.1F;
    GGWave::Protocol m_protocol; // of what is queued
    int m_dataLength = 0;        // bytes
    int m_waveformSamples = 0;   // of the last waveform, until they are taken
    int m_nTones = 0;

    // In the order of the working block
    ggvector<double> m_phaseOffsets;                  // by pair of tones
    ggmatrix<float> m_bit0Amplitude, m_bit1Amplitude; // a frame of each pair's upper and lower tone
    ggvector<float> m_outputBlock, m_outputBlockResampled;
    ggvector<std::uint8_t> m_outputBlockTmp; // the waveform in the playback format
    ggvector<short> m_outputBlockI16;
    ggvector<std::uint8_t> m_txData;   // length, then the payload
    ggvector<std::uint8_t> m_dataBits; // by tone: whether it sounds
    ggvector<std::uint8_t> m_tones;
};

} // namespace sorvel::modem
