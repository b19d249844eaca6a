/// What an instance with a working block consists of.
#pragma once

#include "modem/ggwave.h"
#include "modem/protocols.hpp"
#include "modem/resampler.hpp"
#include "modem/transmitter.hpp"

struct GGWave::Parts {
    Parts(const GGWave& owner);

    bool alloc(void* p, int& n);
    void forget();
    bool decode(const void* data, unsigned int nBytes);

    const Protocols& m_rxProtocols; // the instance's own tables
    const Protocols& m_txProtocols;

    sorvel::modem::Settings m_settings;
    Resampler m_resampler;
    sorvel::modem::Coding m_coding;
    sorvel::modem::Transmitter m_transmitter;

    bool placeReceiver(sorvel::modem::Layout& layout);

    const char* obstacleToDecoding() const;
    void convertCaptured(std::span<const std::uint8_t> bytes, float* dst);
    void analyseFrame(std::span<const float> frame);
    void powerSpectrum();
    void decode_fixed();
    void decode_variable();
    void analyseAverage();
    void searchMarkers();
    void startRecording(int freqStart);
    void endRecording();
    void record(std::span<const float> frame);
    void chooseRecording();
    void recordTones(std::span<const float> frame, int byte, float* dst);
    bool isAnalysed(const Protocol& protocol) const;
    void analyseRecording();
    bool decodeAt(ggwave_ProtocolId id, int alignment);
    int decodeLength(const Protocol& protocol);
    void decodeChunk(const Protocol& protocol, int position, std::uint8_t* dst);
    bool fitsReceiver(const Protocol& protocol) const;
    bool detectTones(const Protocol& protocol);
    void voteFrame(const Protocol& protocol, std::span<const std::uint8_t> row, int chunk, int bytes);
    void deliver(ggwave_ProtocolId id, int length);

    // Receiver
    bool m_rxReceiving = false, m_rxAnalyzing = false;
    int m_markersSeen = 0;     // in a row
    int m_markerFreqStart = 0; // of the protocol whose start marker opened the recording
    int m_recordingFrames = 0; // length of the recording; the longest possible until an end marker is heard
    int m_framesRecorded = 0;  // rows of m_recordedAmplitude written
    int m_recordedBytes = 0;   // bytes per chunk whose tones are recorded as running sums; 0: samples are
    int m_minFreqStart = 0;
    int m_framesLeftToAnalyze = 0, m_framesLeftToRecord = 0, m_framesToAnalyze = 0, m_framesToRecord = 0;
    int m_samplesNeeded = 0;
    ggvector<float> m_fftOut;
    ggvector<int> m_fftWorkI;
    ggvector<float> m_fftWorkF;
    bool m_hasNewSpectrum = false, m_hasNewAmplitude = false;
    ggvector<float> m_sampleSpectrum, m_sampleAmplitude, m_sampleAmplitudeResampled;
    ggvector<std::uint8_t> m_sampleAmplitudeTmp;
    int m_rxDataLength = 0;
    ggvector<std::uint8_t> m_rxData;
    Protocol m_rxProtocol;
    ggwave_ProtocolId m_rxProtocolId = GGWAVE_PROTOCOL_COUNT;
    int m_historyRow = 0; // of m_amplitudeHistory, written next
    ggvector<float> m_spectrumAverage;
    ggmatrix<float> m_spectrumHistory;
    ggvector<float> m_recordedAmplitude;
    int m_historyRowFixed = 0; // of m_spectrumHistoryFixed, written next
    ggmatrix<std::uint8_t> m_spectrumHistoryFixed;
    ggvector<std::uint8_t> m_detectedBins, m_detectedTones;
};
