/// Sorvel's modem: payloads to near-ultrasonic sound and back.
///
/// Two ways in, over the same code:
///   - the C functions below: instances are small integer ids; one text identifier per 13-byte payload
///     (ggwave_decode) or raw payload bytes (ggwave_ndecode);
///   - the C++ class `GGWave` in the second half of this header, for callers that hold the instance.
///
/// Sending:   parameters = ggwave_getDefaultParameters(); id = ggwave_init(parameters);
///            bytes = ggwave_encode(id, payload, size, 12, volume, NULL, 1); allocate bytes;
///            bytes = ggwave_encode(id, payload, size, 12, volume, waveform, 0); ggwave_free(id).
/// Receiving: parameters.payloadLength = 13; id = ggwave_init(parameters); then ggwave_decode for each block.
///
/// Memory: an instance allocates once, in ggwave_init or `prepare`; nothing else here allocates. Nothing
/// locks, waits, throws or reads a clock. Errors are one line each on the log stream (ggwave_setLogFile).
/// Threads: one at a time per instance; instance table, log stream and protocol tables are unsynchronised.
#pragma once

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Plain ints rather than enums: any value may come in from outside, and preparation is what judges it. */

/// How one audio sample is stored; byte order is the machine's own.
typedef int ggwave_SampleFormat;
enum {
    GGWAVE_SAMPLE_FORMAT_UNDEFINED = 0, ///< refused by preparation
    GGWAVE_SAMPLE_FORMAT_U8 = 1,        ///< 1 byte, silence at 128
    GGWAVE_SAMPLE_FORMAT_I8 = 2,        ///< 1 byte
    GGWAVE_SAMPLE_FORMAT_U16 = 3,       ///< 2 bytes, silence at 32768
    GGWAVE_SAMPLE_FORMAT_I16 = 4,       ///< 2 bytes
    GGWAVE_SAMPLE_FORMAT_F32 = 5        ///< 4 bytes, full scale -1.0 to 1.0
};

/// Bits of `operatingMode`; other bits mean nothing.
enum {
    GGWAVE_OPERATING_MODE_RX = 2,            ///< the instance can receive
    GGWAVE_OPERATING_MODE_TX = 4,            ///< the instance can transmit
    GGWAVE_OPERATING_MODE_TX_ONLY_TONES = 8, ///< it makes the list of tones only, no waveform
    GGWAVE_OPERATING_MODE_USE_DSS = 16       ///< payload bytes are XORed with a fixed sequence on both sides
};

/// Row of a protocol table, 0 to 21.
typedef int ggwave_ProtocolId;
enum {
    GGWAVE_PROTOCOL_DT_CUSTOM = 12, ///< the built-in one: two tones at a time from 18 kHz, one byte in 192 ms
    GGWAVE_PROTOCOL_COUNT = 22      ///< also what `rxProtocolId()` says before anything was received
};

/// Kinds of GGWave::filter.
typedef int ggwave_Filter;
enum { GGWAVE_FILTER_HANN = 0, GGWAVE_FILTER_HAMMING = 1, GGWAVE_FILTER_FIRST_ORDER_HIGH_PASS = 2 };

/// What an instance is made from. Take ggwave_getDefaultParameters() and change what differs.
typedef struct ggwave_Parameters {
    int payloadLength;   ///< bytes, 1 to 64: fixed-length payloads without markers; 0 or less: 1 to 140 bytes
                         ///< between markers
    float sampleRateInp; ///< Hz of captured audio, 1000 to 96000
    float sampleRateOut; ///< Hz of the waveforms made
    float sampleRate;    ///< Hz at which tones are made and analysed; both sides of a link must agree
    int samplesPerFrame; ///< at `sampleRate`, 1 to 1024, equal on both sides; a receiver needs a power of two
                         ///< from 2 on
    float soundMarkerThreshold;          ///< ratio of neighbouring bins that makes a marker tone
    ggwave_SampleFormat sampleFormatInp; ///< captured samples
    ggwave_SampleFormat sampleFormatOut; ///< samples of the waveforms made
    int operatingMode;                   ///< GGWAVE_OPERATING_MODE_ bits
} ggwave_Parameters;

/// Replaces the stream that failures are described on, one line each; NULL silences the modem. It starts as
/// stderr.
void ggwave_setLogFile(FILE* stream);

/// Variable length, 48000 Hz throughout, 1024 samples per frame, threshold 3.0, F32, receive and transmit.
ggwave_Parameters ggwave_getDefaultParameters(void);

/// Makes an instance. At most four exist at a time in a process.
///
/// @return id 0 to 3, the lowest that is free; -1 when all four are taken. Unusable parameters are described
/// on
///         the log stream and still take an id: calls with it fail.
int ggwave_init(ggwave_Parameters parameters);

/// Releases an instance; its id may be handed out again.
void ggwave_free(int id);

/// Turns a payload into a waveform in the instance's playback format and rate.
///
/// @param payload      payloadSize bytes. Longer than the instance carries: cut, and said so on the log
/// stream.
///                     Shorter than a fixed length: filled with zero bytes.
/// @param protocolId   a row enabled when the instance was made
/// @param volume       percent of full scale, 0 to 100; at 100 an integer sample may wrap, use 90 or less
/// @param waveform     room for as many bytes as a query answers; not used by a query
/// @param query        0: encode; 1: only answer the bytes needed; anything else: only answer the samples
/// needed.
///                     A query leaves the payload queued, and decoding is refused until it was encoded.
/// @return bytes written (or the answer), at most what the query said; -1: failure
int ggwave_encode(int id, const void* payload, int payloadSize, ggwave_ProtocolId protocolId, int volume,
                  void* waveform, int query);

/// Hands captured audio to an instance and takes the next text that begins with `prefix`.
///
/// The instance must be made for payloads of 13 bytes (payloadLength 13). Block sizes matter:
///   - capture rate equal to the operating and playback rates: whole multiples of samplesPerFrame. After any
///   other
///     block no frame is completed again.
///   - otherwise: at 96 kHz blocks of 4800 or 9600 samples lose 0.5 % of the frames and multiples of 2048
///   none,
///     but 4410 lose a tenth, 441 a quarter, and blocks of 2000 samples or fewer can lose all: a remainder of
///     128 samples or fewer discards the frame being filled and the rest of its block. At 44.1 kHz use 4410
///     or 9600.
///
/// @param waveform       samples in the instance's capture format and rate; may be null if the size is 0
/// @param waveformSize   bytes, a whole number of samples
/// @param payloadBuffer  receives at most 15 characters, not terminated
/// @param prefix         compared byte for byte; received texts are lower case. Empty: every text, "ERROR"
/// included,
///                       which stands for a payload whose check byte does not match
/// @return characters copied; 0: nothing yet; -1: failure (one line on the log stream) or another prefix. A
/// text is
///         reported anew for some 5 frames, and by any later block that completes it: drop repeats by time.
int ggwave_decode(int id, const void* waveform, int waveformSize, void* payloadBuffer, const char* prefix);

/// Hands captured audio to an instance and takes the next payload as raw bytes; block sizes as for
/// ggwave_decode.
///
/// Nothing vouches for these bytes but the error correction: at the edges of a transmission a window that
/// holds only part of it is now and then corrected into another code word (21 in 400 clean transmissions
/// delivered one beside the right payload). Carry a check of your own.
///
/// @return bytes copied; 0: nothing yet; -1: failure; -2: the payload does not fit and is dropped
int ggwave_ndecode(int id, const void* waveform, int waveformSize, void* payloadBuffer,
                   int payloadBufferSize);

/// Enable (state not 0) or disable a row of the process-wide tables. Reaches instances made afterwards. An id
/// outside 0 to 21 changes nothing.
void ggwave_rxToggleProtocol(ggwave_ProtocolId protocolId, int state);
void ggwave_txToggleProtocol(ggwave_ProtocolId protocolId, int state);

/// Move a row's lowest tone to bin `freqStart` (units of sampleRate / samplesPerFrame; the low 16 bits
/// count). Reaches instances made afterwards. An id outside 0 to 21 changes nothing.
void ggwave_rxProtocolSetFreqStart(ggwave_ProtocolId protocolId, int freqStart);
void ggwave_txProtocolSetFreqStart(ggwave_ProtocolId protocolId, int freqStart);

#ifdef __cplusplus
} // extern "C"

#include "modem/assertion.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

/// View of `size()` elements that somebody else owns. Valid as long as that memory: for the views an instance
/// hands out, until its next `prepare` or its end.
template <class T>
class ggvector {
public:
    ggvector() = default;
    ggvector(T* data, int size) : m_data(data), m_size(size) {}

    T& operator[](int i) { return m_data[i]; }
    const T& operator[](int i) const { return m_data[i]; }
    int size() const { return m_size; }
    T* data() const { return m_data; }
    T* begin() const { return m_data; }
    T* end() const { return m_data + m_size; }

    void assign(const ggvector& other) { *this = other; }

    /// Copies as many elements as both views hold. A view onto itself is a programming error and aborts.
    void copy(const ggvector& other) {
        if (this == &other) sorvel::detail::assertionFailed("copy", "ggwave", 327, "false");
        std::copy_n(other.m_data, std::min(m_size, other.m_size), m_data);
    }
    void zero() { zero(m_size); }
    void zero(int n) { std::fill_n(m_data, n, T{}); }

    std::span<T> span() const { return {m_data, static_cast<std::size_t>(m_size)}; }

private:
    T* m_data = nullptr;
    int m_size = 0;
};

/// View of rows() x cols() elements, row after row, that somebody else owns.
template <class T>
class ggmatrix {
public:
    ggmatrix() = default;
    ggmatrix(T* data, int rows, int cols) : m_data(data), m_rows(rows), m_cols(cols) {}

    ggvector<T> operator[](int row) const {
        return {m_data + static_cast<std::ptrdiff_t>(row) * m_cols, m_cols};
    }
    T* data() const { return m_data; }
    int rows() const { return m_rows; }
    int cols() const { return m_cols; }
    void zero() { std::fill_n(m_data, static_cast<std::ptrdiff_t>(m_rows) * m_cols, T{}); }

private:
    T* m_data = nullptr;
    int m_rows = 0;
    int m_cols = 0;
};

/// Reed-Solomon parity bytes that protect `length` payload bytes: 2 below 4, else a fifth of them twice, at
/// least 4.
int getECCBytesForLength(int length);

/// One modem instance: parameters, one working block, a transmitter and a receiver.
class GGWave {
public:
    static constexpr int kMaxSamplesPerFrame = 1024;
    static constexpr float kMinSampleRate = 1000.0F;  ///< Hz, of captured audio
    static constexpr float kMaxSampleRate = 96000.0F; ///< Hz, of captured audio
    static constexpr int kMaxLengthVariable = 140;    ///< payload bytes between markers
    static constexpr int kMaxLengthFixed = 64;        ///< payload bytes of a receiver of fixed length
    static constexpr int kMaxDataSize = 256;          ///< payload and parity bytes
    static constexpr int kMaxSpectrumHistory = 4;     ///< frames averaged while waiting for markers
    static constexpr int kMaxRecordedFrames = 2048;   ///< frames that one transmission or recording may span
    static constexpr int kDefaultMarkerFrames = 16;
    static constexpr int kDefaultEncodedDataOffset = 3; ///< bytes of the coded length
    static constexpr int kBitsInMarker = 16;
    static constexpr int kResampleMargin = 128;  ///< samples that may follow a completed frame
    static constexpr int kResampleFactorMax = 8; ///< room for captured samples, in frames

    /// How payload bytes become tones. Each tone carries 4 bits; chunks of `bytesPerTx` bytes follow each
    /// other.
    struct Protocol {
        const char* name = nullptr;  ///< null: the row is not defined
        std::int16_t freqStart = 0;  ///< bin of the lowest tone
        std::int8_t framesPerTx = 0; ///< frames that one chunk lasts
        std::int8_t bytesPerTx = 0;  ///< bytes in one chunk
        std::int8_t extra = 0;       ///< 1: the tones of a chunk sound together; 2: one after another
        bool enabled = false;
    };

    /// A table of protocols, indexed by `ggwave_ProtocolId`. Ids outside the table change nothing.
    struct Protocols : std::array<Protocol, GGWAVE_PROTOCOL_COUNT> {
        /// The three process-wide tables: the built-in one, and those that instances copy when they are
        /// prepared.
        static Protocols& kDefault();
        static Protocols& rx();
        static Protocols& tx();

        void enableAll(); ///< all rows with a name
        void disableAll();
        void only(ggwave_ProtocolId id);
        void toggle(ggwave_ProtocolId id, bool state);
    };

    /// Windowed-sinc rate conversion of a stream, handed over block by block.
    ///
    /// The kernel reaches 63 input samples to each side; when the rate falls it is widened, and so filters.
    /// The output lags the input by 136 input samples: 64 are held back to the next call, 72 lie ahead of the
    /// centre in the delay line. Working arrays lie in memory given to `alloc`; nothing else is allocated.
    class Resampler {
    public:
        static constexpr int kWidth = 64;               ///< input samples held back, and half the kernel
        static constexpr int kSincResolution = 32;      ///< table entries per input sample
        static constexpr int kMaxInput = 4096 - kWidth; ///< samples that one call may hand over

        /// Adds the bytes of the working arrays to `n`; with a block, places them at p + n first, builds the
        /// kernel and resets the stream.
        bool alloc(void* p, int& n);

        /// Forgets the stream.
        void reset();

        /// @param factor      input samples per output sample, above 0
        /// @param nSamples    65 to 4032 input samples; others are a programming error and abort
        /// @param samplesOut  null: only count, the stream stays where it is (any nSamples); else room for
        ///                    nSamples / factor + 2 samples
        /// @return output samples
        int resample(float factor, int nSamples, const float* samplesInp, float* samplesOut);

        /// The same in portions, for an output larger than any one array: `feed` the input once, `take` until
        /// it answers 0, then `settle`.
        void feed(int nSamples, const float* samplesInp);
        int take(float factor, std::span<float> out);
        void settle();

        void newData(float sample);
        float getData(int j) const;
        double sinc(double x) const;
        void makeSinc();

        int samplesTotal() const { return m_time.total; } ///< input samples since the last reset

    private:
        struct Time {
            int total = 0;        // input samples offered
            int integer = 0;      // floor of `current`
            int last = 0;         // input samples shifted into the delay line
            double current = 0.0; // of the next output sample, in input samples
            void advance(float factor);
        };
        int count(float factor, int nSamples) const;
        int takeHalfRate(std::span<float> out);
        const float* window(int first, std::span<float> scratch) const;

        ggvector<float> m_sincTable, m_delay, m_edge, m_samplesInp;
        Time m_time;
        int m_fed = 0;                            // samples in m_samplesInp that may be consumed by this call
        int m_consumed = 0;                       // of those, shifted in so far
        std::array<float, 32> m_halfRateKernel{}; // taps at odd distances for a factor of 2
    };

    explicit GGWave(const ggwave_Parameters& parameters);
    ~GGWave();
    GGWave(const GGWave&) = delete;
    GGWave& operator=(const GGWave&) = delete;

    static void setLogFile(FILE* stream);
    static const ggwave_Parameters& getDefaultParameters();

    /// Gives up the old working block and all views into it, and lays out a new one. The only call that
    /// allocates.
    ///
    /// @param allocate  false: only judge the parameters and the size
    /// @return false after one line on the log stream; the instance then has heapSize() 0 and refuses every
    /// call
    bool prepare(const ggwave_Parameters& parameters, bool allocate = true);

    /// The layout: adds the bytes of every array, each rounded up to 8, to `n`; with a block, points the
    /// views into it as well. False (one line on the log stream) when a length is out of range or the sum is
    /// beyond an int.
    bool alloc(void* p, int& n);

    // Transmitting

    /// Queues a payload and resets the receiver.
    ///
    /// @param dataSize    bytes; 0 only resets. Above what the instance carries: cut, with a line on the log
    /// stream
    /// @param protocolId  a row enabled in txProtocols(), not mono-tone between markers
    /// @param volume      percent, 0 to 100
    bool init(int dataSize, const void* data, ggwave_ProtocolId protocolId, int volume);
    bool init(const char* text, ggwave_ProtocolId protocolId, int volume);

    /// Length of the waveform that `encode` will make; when resampling, an upper bound. 0 without a queued
    /// payload and for one that cannot be carried out.
    std::uint32_t encodeSize_samples() const;
    std::uint32_t encodeSize_bytes() const;

    /// Makes the tone list and the waveform of the queued payload.
    ///
    /// @return bytes of txWaveform(); 1 when only tones are made; 0 without a queued payload, and for one
    /// that does
    ///         not fit (more than 2048 frames, or as many samples at the playback rate): one line on the log
    ///         stream
    std::uint32_t encode();

    /// The waveform in the playback format; null when the instance makes none.
    const void* txWaveform() const;

    /// Tone indices of the last encode (bin = freqStart + index), 255 after each chunk of several tones.
    /// Indices keep their low 8 bits, so they are unambiguous up to 7 bytes per chunk.
    ggvector<std::uint8_t> txTones() const { return {m_tones.data(), m_nTones}; }
    bool txHasData() const { return m_txHasData; }
    bool txTakeAmplitudeI16(ggvector<short>& dst);
    const Protocols& txProtocols() const { return m_txProtocols; }

    // Receiving

    /// Takes captured samples; block sizes as for ggwave_decode. Results wait behind `rxTakeData`.
    ///
    /// Messages between markers: a recording runs from the start marker to the end marker, or for the longest
    /// message there is; then one call analyses it, at most 4.6 ms for a spoilt message of 140 bytes and 0.1
    /// ms for one that arrives (bench/analysis_times, the built-in protocol; 13 ms with 2 bytes per chunk),
    /// less than the 21.3 ms of a frame. In perfect digital silence the switching of tones looks like an end
    /// marker and ends recordings early: a synthetic loopback needs a trace of noise, -100 dBFS will do.
    ///
    /// @return false: this instance cannot receive now; one line on the log stream says why
    bool decode(const void* data, unsigned int nBytes);

    bool rxReceiving() const { return m_rxReceiving; }
    bool rxAnalyzing() const { return m_rxAnalyzing; }
    int rxSamplesNeeded() const { return m_samplesNeeded; }
    int rxFramesToRecord() const { return m_framesToRecord; }
    int rxFramesLeftToRecord() const { return m_framesLeftToRecord; }
    int rxFramesToAnalyze() const { return m_framesToAnalyze; }
    int rxFramesLeftToAnalyze() const { return m_framesLeftToAnalyze; }
    bool rxStopReceiving();

    /// The instance's own table; what is enabled here from now on is searched for, as far as the working
    /// block, sized at preparation, has room for it.
    Protocols& rxProtocols() { return m_rxProtocols; }

    int rxDataLength() const { return m_rxDataLength; }
    ggvector<std::uint8_t> rxData() const { return m_rxData; }
    const Protocol& rxProtocol() const { return m_rxProtocol; }
    ggwave_ProtocolId rxProtocolId() const { return m_rxProtocolId; }
    ggvector<float> rxSpectrum() const { return m_sampleSpectrum; }
    ggvector<float> rxAmplitude() const { return m_sampleAmplitude; }

    /// Takes what was received: the payload's length after setting `dst` to it; 0: nothing waits; -1: a
    /// failed reception. `dst` is left alone by the latter two.
    int rxTakeData(ggvector<std::uint8_t>& dst);
    bool rxTakeSpectrum(ggvector<float>& dst);
    bool rxTakeAmplitude(ggvector<float>& dst);

    // What the instance was made from

    bool isDSSEnabled() const { return m_isDSSEnabled; }
    int samplesPerFrame() const { return m_samplesPerFrame; }
    int sampleSizeInp() const { return m_sampleSizeInp; }
    int sampleSizeOut() const { return m_sampleSizeOut; }
    float hzPerSample() const { return m_hzPerSample; }
    float sampleRateInp() const { return m_sampleRateInp; }
    float sampleRateOut() const { return m_sampleRateOut; }
    ggwave_SampleFormat sampleFormatInp() const { return m_sampleFormatInp; }
    ggwave_SampleFormat sampleFormatOut() const { return m_sampleFormatOut; }
    int heapSize() const { return m_heapSize; } ///< bytes of the working block; 0: preparation failed

    // Queries over the enabled rows of a table

    int minFreqStart(const Protocols& protocols) const;  ///< at most samplesPerFrame()
    int minBytesPerTx(const Protocols& protocols) const; ///< at most 1
    int maxBytesPerTx(const Protocols& protocols) const; ///< at least 1
    int maxFramesPerTx(const Protocols& protocols,
                       bool excludeMT) const;            ///< excludeMT: without mono-tone rows
    int maxTonesPerTx(const Protocols& protocols) const; ///< at least 1

    /// Hz of the lower tone of pair `bit`: tone 2 * bit; tone 2 * bit + 1 lies one bin higher.
    float bitFreq(const Protocol& protocol, int bit) const;

    // Spectrum tools

    /// Forward transform (layout: rdft in modem/fft.h) of N = samplesPerFrame() floats; false for another N.
    bool computeFFTR(const float* src, float* dst, int N);

    /// The same with the caller's work arrays, for any power of two N from 2 on. `wi` needs sqrt(N / 2) + 3
    /// ints with wi[0] = wi[1] = 0 before the first call, `wf` needs N / 2 floats.
    ///
    /// @return 1; without `wi` 2 * N, without `wf` sqrt(N / 2) + 3: answers kept for compatibility that do
    /// not match
    ///         the arrays; size them by the figures above
    static int computeFFTR(const float* src, float* dst, int N, int* wi, float* wf);

    /// Applies a window (Hann, Hamming; the denominator is N) or a recursion (first-order high-pass) to N
    /// samples.
    ///
    /// The high-pass is y = (1 + g) / 2 * (x - x1) - g * y1 with g = cos(t) / (1 + sin(t)), t = 2 pi p0 / p1.
    /// @param p0, p1  high-pass: cut-off and sample rate in Hz
    /// @param w       state, zero-filled before the first call and kept between calls; null: only answers its
    /// length
    ///                in floats, N for the windows, 11 for the high-pass, 0 for any other type
    /// @return 1 with a state
    static int filter(ggwave_Filter type, float* waveform, int N, float p0, float p1, float* w);

private:
    struct Frames; // how many frames of what a transmission has

    void reset();
    void dropBlock();
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
    float m_hzPerSample = -1.0F, m_ihzPerSample = -1.0F;
    int m_freqDelta_bin = -1;
    float m_freqDelta_hz = -1.0F;
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
    bool m_hasNewRxData = false, m_hasNewSpectrum = false, m_hasNewAmplitude = false;
    ggvector<float> m_sampleSpectrum, m_sampleAmplitude, m_sampleAmplitudeResampled;
    ggvector<std::uint8_t> m_sampleAmplitudeTmp;
    int m_rxDataLength = 0;
    ggvector<std::uint8_t> m_rxData;
    Protocol m_rxProtocol;
    ggwave_ProtocolId m_rxProtocolId = GGWAVE_PROTOCOL_COUNT;
    Protocols m_rxProtocols{};
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
    Protocols m_txProtocols{};
    ggvector<float> m_outputBlock, m_outputBlockResampled;
    ggvector<std::uint8_t> m_outputBlockTmp;
    ggvector<short> m_outputBlockI16;
    int m_nTones = 0;
    ggvector<std::uint8_t> m_tones;

    Resampler m_resampler;
    void* m_heap = nullptr;
    int m_heapSize = 0;
};

#endif // __cplusplus
