/// Frames -> messages of any length between two markers.
#pragma once

#include "modem/coding.hpp"
#include "modem/reception.hpp"
#include "modem/recording.hpp"
#include "modem/settings.hpp"
#include "modem/spectrum.hpp"

namespace sorvel::modem {

/// Waits for a start marker, records until the end marker or the longest duration is over, then
/// takes the recording apart within one frame's call.
class MessageReceiver {
public:
    MessageReceiver(const Settings& settings, Spectrum& spectrum, Coding& coding)
        : m_settings(settings), m_spectrum(spectrum), m_coding(coding), m_recording(spectrum) {}

    void place(Layout& layout);

    /// Takes one frame. A message that it completes is delivered to `reception`, a failed one with
    /// length -1.
    void hear(std::span<const float> frame, const GGWave::Protocols& protocols, Reception& reception);

    bool isReceiving() const { return m_isReceiving; }
    bool isAnalyzing() const { return m_isAnalyzing; }
    bool stopReceiving(); ///< whether it was
    int framesToRecord() const { return m_framesToRecord; }
    int framesLeftToRecord() const { return m_framesLeftToRecord; }
    int framesToAnalyze() const { return m_framesToAnalyze; }
    int framesLeftToAnalyze() const { return m_framesLeftToAnalyze; }
    void forget();

private:
    using Protocol = GGWave::Protocol;
    using Protocols = GGWave::Protocols;

    void analyseAverage();
    void searchMarkers(const Protocols& protocols, Reception& reception);
    void startRecording(int freqStart, const Protocols& protocols);
    void endRecording();
    void analyseRecording(const Protocols& protocols, Reception& reception);
    int decodeAt(ggwave_ProtocolId id, const Protocol& protocol, int alignment,
                 std::span<std::uint8_t> payload);
    int decodeLength(const Protocol& protocol, std::span<std::uint8_t> payload);

    const Settings& m_settings;
    Spectrum& m_spectrum;
    Coding& m_coding;

    bool m_isReceiving = false, m_isAnalyzing = false;
    int m_recordingFrames = 0; // length of the recording; the longest possible until an end marker is heard
    int m_framesLeftToAnalyze = 0, m_framesLeftToRecord = 0, m_framesToAnalyze = 0, m_framesToRecord = 0;
    int m_row = 0; // of m_history, written next
    // In the order of the working block
    Recording m_recording;
    ggvector<float> m_average;
    ggmatrix<float> m_history; // the last frames' samples
};

} // namespace sorvel::modem
