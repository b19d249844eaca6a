/// Frames -> messages of any length between two markers.
#pragma once

#include "modem/coding.hpp"
#include "modem/reception.hpp"
#include "modem/settings.hpp"
#include "modem/spectrum.hpp"

namespace sorvel::modem {

class MessageReceiver {
public:
    MessageReceiver(const Settings& settings, Spectrum& spectrum, Coding& coding)
        : m_settings(settings), m_spectrum(spectrum), m_coding(coding) {}

    void place(Layout& layout);

    /// Takes one frame. A message that it completes is delivered to `reception`, a failed one with length -1.
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
    void record(std::span<const float> frame);
    void chooseRecording(const Protocols& protocols);
    void recordTones(std::span<const float> frame, int byte, float* dst);
    bool isAnalysed(const Protocol& protocol) const;
    void analyseRecording(const Protocols& protocols, Reception& reception);
    int decodeAt(const Protocol& protocol, int alignment, std::span<std::uint8_t> payload);
    int decodeLength(const Protocol& protocol, std::span<std::uint8_t> payload);
    void decodeChunk(const Protocol& protocol, int position, std::uint8_t* dst);

    const Settings& m_settings;
    Spectrum& m_spectrum;
    Coding& m_coding;

    bool m_isReceiving = false, m_isAnalyzing = false;
    int m_markerFreqStart = 0; // of the protocol whose start marker opened the recording
    int m_recordingFrames = 0; // length of the recording; the longest possible until an end marker is heard
    int m_framesRecorded = 0;  // rows of m_recordedAmplitude written
    int m_recordedBytes = 0;   // bytes per chunk whose tones are recorded as running sums; 0: samples are
    int m_framesLeftToAnalyze = 0, m_framesLeftToRecord = 0, m_framesToAnalyze = 0, m_framesToRecord = 0;
    int m_row = 0; // of m_history, written next
    // In the order of the working block
    ggvector<float> m_recordedAmplitude;
    ggvector<float> m_average;
    ggmatrix<float> m_history; // the last frames' samples
};

} // namespace sorvel::modem
