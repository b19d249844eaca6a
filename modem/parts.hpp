/// What an instance with a working block consists of.
#pragma once

#include "modem/ggwave.h"
#include "modem/protocols.hpp"
#include "modem/resampler.hpp"

struct GGWave::Parts {
    Parts(const GGWave& owner);

    bool alloc(void* p, int& n);
    bool init(int dataSize, const void* data, ggwave_ProtocolId protocolId, int volume);
    std::uint32_t encodeSize_samples() const;
    std::uint32_t encode();
    const void* txWaveform() const;
    bool decode(const void* data, unsigned int nBytes);

    const Protocols& m_rxProtocols; // the instance's own tables
    const Protocols& m_txProtocols;

    struct Frames; // how many frames of what a transmission has

    bool allocReceiver(void* p, std::int64_t& n, int length, int totalLength);
    void allocTransmitter(void* p, std::int64_t& n, int length, int totalLength);

    bool queue(std::span<const std::uint8_t> data, ggwave_ProtocolId protocolId, int volume);
    Frames transmissionFrames() const;
    const char* obstacleToEncoding() const;
    void encodeBytes();
    int codedByte(int i) const;
    void setDataBits(const Frames& frames, int frame);
    bool makeTones(const Frames& frames);
    void makeSines();
    void synthesizeFrame(const Frames& frames, int frame);
    bool makeWaveform(const Frames& frames);
    bool append(std::span<const float> samples, int& total);

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

    // Set by preparation
    float m_sampleRateInp = -1.0F, m_sampleRateOut = -1.0F, m_sampleRate = -1.0F;
    int m_samplesPerFrame = -1;
    float m_isamplesPerFrame = -1.0F;
    int m_sampleSizeInp = -1, m_sampleSizeOut = -1;
    ggwave_SampleFormat m_sampleFormatInp = GGWAVE_SAMPLE_FORMAT_UNDEFINED;
    ggwave_SampleFormat m_sampleFormatOut = GGWAVE_SAMPLE_FORMAT_UNDEFINED;
    float m_hzPerSample = -1.0F;
    int m_nBitsInMarker = -1, m_nMarkerFrames = -1, m_encodedDataOffset = -1;
    float m_soundMarkerThreshold = -1.0F;
    bool m_isFixedPayloadLength = false;
    int m_payloadLength = -1;
    bool m_isRxEnabled = false, m_isTxEnabled = false, m_txOnlyTones = false, m_isDSSEnabled = false;
    bool m_needResampling = false;

    // Used by both directions
    ggvector<std::uint8_t> m_dataEncoded, m_workRSLength, m_workRSData;

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

    // Transmitter
    bool m_txHasData = false;
    float m_sendVolume = 0.1F;
    int m_txDataLength = 0, m_txLastSamples = 0;
    ggvector<std::uint8_t> m_dataBits;
    ggvector<double> m_phaseOffsets;
    ggmatrix<float> m_bit1Amplitude, m_bit0Amplitude;
    ggvector<std::uint8_t> m_txData;
    Protocol m_txProtocol;
    ggvector<float> m_outputBlock, m_outputBlockResampled;
    ggvector<std::uint8_t> m_outputBlockTmp;
    ggvector<short> m_outputBlockI16;
    int m_nTones = 0;
    ggvector<std::uint8_t> m_tones;

    Resampler m_resampler;
};
