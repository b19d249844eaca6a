/// Sorvel's modem: payloads to near-ultrasonic sound and back.
///
/// Two ways in, over the same code:
///   - the C functions below: instances are small integer ids; one text identifier per 13-byte
///     payload (ggwave_decode) or raw payload bytes (ggwave_ndecode);
///   - the C++ class `GGWave` in the second half of this header, for callers that hold the instance.
///
/// Sending:   parameters = ggwave_getDefaultParameters(); id = ggwave_init(parameters);
///            bytes = ggwave_encode(id, payload, size, 12, volume, NULL, 1); allocate bytes;
///            bytes = ggwave_encode(id, payload, size, 12, volume, waveform, 0); ggwave_free(id).
/// Receiving: parameters.payloadLength = 13; id = ggwave_init(parameters); ggwave_decode per block.
///
/// Memory: an instance allocates once, in ggwave_init or `prepare`; nothing else here allocates.
/// Nothing locks, waits, throws or reads a clock. What fails is described on the log stream
/// (ggwave_setLogFile), unless said otherwise; a call that uses another may add a line of its own.
/// Threads: one at a time per instance; instance table, log stream and
/// protocol tables are unsynchronised.
#pragma once

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Plain ints rather than enums: any value may come in from outside; preparation judges it. */

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
    GGWAVE_OPERATING_MODE_USE_DSS = 16       ///< payloads are XORed with a sequence on both sides
};

/// Row of a protocol table, 0 to 21.
typedef int ggwave_ProtocolId;
enum {
    GGWAVE_PROTOCOL_DT_CUSTOM = 12, ///< built in: two tones at a time from 18 kHz, a byte in 192 ms
    GGWAVE_PROTOCOL_COUNT = 22      ///< also what `rxProtocolId()` says before anything was received
};

/// Kinds of GGWave::filter.
typedef int ggwave_Filter;
enum { GGWAVE_FILTER_HANN = 0, GGWAVE_FILTER_HAMMING = 1, GGWAVE_FILTER_FIRST_ORDER_HIGH_PASS = 2 };

/// What an instance is made from. Take ggwave_getDefaultParameters() and change what differs.
typedef struct ggwave_Parameters {
    int payloadLength;          ///< bytes, 1 to 64: fixed-length payloads without markers; 0 or less: 1 to
                                ///< 140 bytes between markers. An instance that only sends takes up to 182
    float sampleRateInp;        ///< Hz of captured audio, 1000 to 96000
    float sampleRateOut;        ///< Hz of the waveforms made
    float sampleRate;           ///< Hz at which tones are made and analysed; both sides must agree
    int samplesPerFrame;        ///< at `sampleRate`, 1 to 1024, equal on both sides; a receiver needs a power
                                ///< of two from 2 on
    float soundMarkerThreshold; ///< ratio of neighbouring bins that makes a marker tone
    ggwave_SampleFormat sampleFormatInp; ///< captured samples
    ggwave_SampleFormat sampleFormatOut; ///< samples of the waveforms made
    int operatingMode;                   ///< GGWAVE_OPERATING_MODE_ bits
} ggwave_Parameters;

/// Replaces the stream that failures are described on; NULL silences the modem. It starts as stderr.
void ggwave_setLogFile(FILE* stream);

/// Variable length, 48000 Hz throughout, 1024 samples per frame, threshold 3.0,
/// F32, receive and transmit.
ggwave_Parameters ggwave_getDefaultParameters(void);

/// Makes an instance. At most four exist at a time in a process.
///
/// @return id 0 to 3, the lowest that is free; -1 when all four are taken. Unusable parameters are
///         described on the log stream and still take an id: calls with it fail
int ggwave_init(ggwave_Parameters parameters);

/// Releases an instance; its id may be handed out again.
void ggwave_free(int id);

/// Turns a payload into a waveform in the instance's playback format and rate.
///
/// @param id           an instance that can transmit
/// @param payload      payloadSize bytes. Longer than the instance carries: cut, and said so on the
///                     log stream. Shorter than a fixed length: filled with zero bytes
/// @param payloadSize  bytes
/// @param protocolId   a row enabled when the instance was made
/// @param volume       percent of full scale, 0 to 100; at 100 an integer sample may wrap, use 90 or
///                     less
/// @param waveform     room for as many bytes as a query answers; not used by a query
/// @param query        0: encode; 1: only answer the bytes needed; anything else: only answer the
///                     samples needed. A query leaves the payload queued, and decoding is refused
///                     until it was encoded
/// @return bytes written (or the answer, 0 for what cannot be encoded), at most what the query said;
///         -1: failure
int ggwave_encode(int id, const void* payload, int payloadSize, ggwave_ProtocolId protocolId, int volume,
                  void* waveform, int query);

/// Hands captured audio to an instance and takes the next text that begins with `prefix`.
///
/// The instance must be made for payloads of 13 bytes (payloadLength 13). Block sizes matter:
///   - capture rate equal to the operating and playback rates: whole multiples of samplesPerFrame.
///     After any other block no frame is completed again.
///   - otherwise: at 96 kHz blocks of 4800 or 9600 samples lose 0.5 % of the frames and multiples of
///     2048 none, but 4410 lose a tenth, 441 a quarter, and blocks of 2000 samples or fewer can lose
///     all: a remainder of 128 samples or fewer discards the frame being filled and the rest of its
///     block. At 44.1 kHz use 4410 or 9600.
///
/// @param id             an instance that can receive
/// @param waveform       samples in the instance's capture format and rate; may be null if the size
///                       is 0
/// @param waveformSize   bytes, a whole number of samples
/// @param payloadBuffer  receives at most 15 characters, not terminated
/// @param prefix         compared byte for byte; received texts are lower case. Empty: every text,
///                       "ERROR" included, which stands for a payload whose check byte does not match
/// @return characters copied; 0: nothing yet; -1: failure (described on the log stream), another
///         prefix, or a message between markers that could not be decoded (neither is described). A
///         text is reported anew for some 5 frames, and by any later block that completes it: drop
///         repeats by time
int ggwave_decode(int id, const void* waveform, int waveformSize, void* payloadBuffer, const char* prefix);

/// Hands captured audio to an instance and takes the next payload as raw bytes; block
/// sizes as for ggwave_decode.
///
/// Nothing vouches for these bytes but the error correction: at the edges of a transmission a window
/// that holds only part of it is now and then corrected into another code word (21 in 400 clean
/// transmissions delivered one beside the right payload). Carry a check of your own.
///
/// @return bytes copied; 0: nothing yet; -1: failure (described on the log stream), or a message
///         between markers that could not be decoded (not described); -2: the payload does not fit
///         and is dropped
int ggwave_ndecode(int id, const void* waveform, int waveformSize, void* payloadBuffer,
                   int payloadBufferSize);

/// Enable (state not 0) or disable a row of the process-wide tables. Reaches instances made
/// afterwards. An id outside 0 to 21 changes nothing.
void ggwave_rxToggleProtocol(ggwave_ProtocolId protocolId, int state);
void ggwave_txToggleProtocol(ggwave_ProtocolId protocolId, int state);

/// Move a row's lowest tone to bin `freqStart` (units of sampleRate / samplesPerFrame; the low 16
/// bits count). Reaches instances made afterwards. An id outside 0 to 21 changes nothing.
void ggwave_rxProtocolSetFreqStart(ggwave_ProtocolId protocolId, int freqStart);
void ggwave_txProtocolSetFreqStart(ggwave_ProtocolId protocolId, int freqStart);

#ifdef __cplusplus
} // extern "C"

#include "modem/ggvector.hpp"

#include <array>
#include <cstdint>

/// Reed-Solomon parity bytes that protect `length` payload bytes: 2 below 4, else twice a fifth of
/// them, at least 4.
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
    static constexpr int kMaxRecordedFrames = 2048;   ///< of one transmission or recording
    static constexpr int kDefaultMarkerFrames = 16;
    static constexpr int kDefaultEncodedDataOffset = 3; ///< bytes of the coded length
    static constexpr int kBitsInMarker = 16;
    static constexpr int kResampleMargin = 128;  ///< samples that may follow a completed frame
    static constexpr int kResampleFactorMax = 8; ///< room for captured samples, in frames

    /// How payload bytes become tones. Each tone carries 4 bits; chunks of `bytesPerTx` bytes follow
    /// each other.
    struct Protocol {
        const char* name = nullptr;  ///< null: the row is not defined
        std::int16_t freqStart = 0;  ///< bin of the lowest tone
        std::int8_t framesPerTx = 0; ///< frames that one chunk lasts
        std::int8_t bytesPerTx = 0;  ///< bytes in one chunk
        std::int8_t extra = 0;       ///< 1: the tones of a chunk sound together; 2: one by one
        bool enabled = false;
    };

    /// A table of protocols, indexed by `ggwave_ProtocolId`. Ids outside the table change nothing.
    struct Protocols : std::array<Protocol, GGWAVE_PROTOCOL_COUNT> {
        /// The process-wide tables: the built-in one, and those that instances copy when prepared.
        static Protocols& kDefault();
        static Protocols& rx();
        static Protocols& tx();

        void enableAll(); ///< all rows with a name
        void disableAll();
        void only(ggwave_ProtocolId id);
        void toggle(ggwave_ProtocolId id, bool state);
    };

    class Resampler; ///< rate conversion of a stream: modem/resampler.hpp

    explicit GGWave(const ggwave_Parameters& parameters);
    ~GGWave();
    GGWave(const GGWave&) = delete;
    GGWave& operator=(const GGWave&) = delete;

    static void setLogFile(FILE* stream);
    static const ggwave_Parameters& getDefaultParameters();

    /// Gives up the old working block and all views into it, and lays out a new one. The only call
    /// that allocates, and once.
    ///
    /// @param allocate  false: only judge the parameters and the size; there is no block then
    /// @return false after lines on the log stream; the instance then has no block. Without a block
    ///         heapSize() is 0 and `init` and `decode` refuse
    bool prepare(const ggwave_Parameters& parameters, bool allocate = true);

    /// The layout of the working block: adds the bytes of every array, each rounded up to 8, to `n`;
    /// with a block, points an instance that has one into it as well.
    ///
    /// @return false when a length is out of range (described on the log stream), the sum is beyond an
    ///         int, or a block is given to an instance without one
    bool alloc(void* p, int& n);

    // Transmitting

    /// Queues a payload and resets the receiver.
    ///
    /// @param dataSize    bytes; 0 only resets. Above what the instance carries: cut, with a line on
    ///                    the log stream
    /// @param protocolId  a row enabled in txProtocols(), not mono-tone between markers
    /// @param volume      percent, 0 to 100
    bool init(int dataSize, const void* data, ggwave_ProtocolId protocolId, int volume);
    bool init(const char* text, ggwave_ProtocolId protocolId, int volume);

    /// Length of the waveform that `encode` will make; when resampling, an upper bound. 0 without a
    /// queued payload, for one that `encode` would refuse, and when only tones are made.
    std::uint32_t encodeSize_samples() const;
    std::uint32_t encodeSize_bytes() const;

    /// Makes the tone list and the waveform of the queued payload.
    ///
    /// @return bytes of txWaveform(); 1 when only tones are made; 0 without a queued payload, and,
    ///         after a line on the log stream, for one that does not fit (more than 2048 frames, or as
    ///         many samples at the playback rate) or whose protocol or rates cannot be carried out
    std::uint32_t encode();

    /// The waveform in the playback format; null when the instance makes none.
    const void* txWaveform() const;

    /// Tone indices of the last encode (bin = freqStart + index), 255 after each chunk of several
    /// tones. Indices keep their low 8 bits, so they are unambiguous up to 7 bytes per chunk.
    ggvector<std::uint8_t> txTones() const;
    bool txHasData() const;
    bool txTakeAmplitudeI16(ggvector<short>& dst);
    const Protocols& txProtocols() const { return m_txProtocols; }

    // Receiving

    /// Takes captured samples; block sizes as for ggwave_decode. Results wait behind `rxTakeData`.
    ///
    /// Messages between markers: a recording runs from the start marker to the end marker, or for the
    /// longest message there is; then one call analyses it. docs/performance.md states the worst time
    /// of that call for the built-in protocol. It grows with the enabled rows that share a start bin:
    /// 22 rows of one byte per chunk take half of a frame's 21.3 ms. Rows whose chunks are very large
    /// (see modem/recording.hpp) are analysed from samples: one takes about a frame, each further one
    /// that shares its start bin as long again.
    /// In perfect digital silence the switching of tones looks like an end marker and ends recordings
    /// early: a synthetic loopback needs a trace of noise, -100 dBFS will do.
    ///
    /// @return false: this instance cannot receive now; a line on the log stream says why
    bool decode(const void* data, unsigned int nBytes);

    bool rxReceiving() const;
    bool rxAnalyzing() const;
    int rxSamplesNeeded() const;
    int rxFramesToRecord() const;
    int rxFramesLeftToRecord() const;
    int rxFramesToAnalyze() const;
    int rxFramesLeftToAnalyze() const;
    bool rxStopReceiving();

    /// The instance's own table; what is enabled here is searched for from then on (between markers:
    /// from the next start marker on), as far as the working block, sized at preparation, has room.
    Protocols& rxProtocols() { return m_rxProtocols; }

    int rxDataLength() const;
    ggvector<std::uint8_t> rxData() const;
    const Protocol& rxProtocol() const;
    ggwave_ProtocolId rxProtocolId() const;
    ggvector<float> rxSpectrum() const;
    ggvector<float> rxAmplitude() const;

    /// Takes what was received: the payload's length after setting `dst` to it; 0: nothing waits; -1:
    /// a failed reception. `dst` is left alone by the latter two.
    int rxTakeData(ggvector<std::uint8_t>& dst);
    bool rxTakeSpectrum(ggvector<float>& dst);
    bool rxTakeAmplitude(ggvector<float>& dst);

    // What the instance was made from

    bool isDSSEnabled() const { return (m_parameters.operatingMode & GGWAVE_OPERATING_MODE_USE_DSS) != 0; }
    int samplesPerFrame() const { return m_parameters.samplesPerFrame; }
    int sampleSizeInp() const { return m_sampleSizeInp; }
    int sampleSizeOut() const { return m_sampleSizeOut; }
    float hzPerSample() const { return m_hzPerSample; }
    float sampleRateInp() const { return m_parameters.sampleRateInp; }
    float sampleRateOut() const { return m_parameters.sampleRateOut; }
    ggwave_SampleFormat sampleFormatInp() const { return m_parameters.sampleFormatInp; }
    ggwave_SampleFormat sampleFormatOut() const { return m_parameters.sampleFormatOut; }
    int heapSize() const { return m_heapSize; } ///< bytes of the working block; 0: there is none

    // Queries over the enabled rows of a table

    int minFreqStart(const Protocols& protocols) const;  ///< at most samplesPerFrame()
    int minBytesPerTx(const Protocols& protocols) const; ///< at most 1
    int maxBytesPerTx(const Protocols& protocols) const; ///< at least 1
    int maxTonesPerTx(const Protocols& protocols) const; ///< at least 1
    /// @param excludeMT  without mono-tone rows
    int maxFramesPerTx(const Protocols& protocols, bool excludeMT) const;

    /// Hz of the lower tone of pair `bit`: tone 2 * bit; tone 2 * bit + 1 lies one bin higher.
    float bitFreq(const Protocol& protocol, int bit) const;

    // Spectrum tools

    /// Forward transform (layout: rdft in modem/fft.h) of N = samplesPerFrame() floats. False,
    /// after a line on the log stream and with `dst` untouched: another N, no power of
    /// two, or no receiver.
    bool computeFFTR(const float* src, float* dst, int N);

    /// The same with the caller's work arrays, for any power of two N from 2 on. `wi` needs
    /// sqrt(N / 2) + 3 ints with wi[0] = wi[1] = 0 before the first call, `wf` needs N / 2 floats.
    ///
    /// @return 1; 0 for another N, with `dst` untouched. Without `wi` 2 * N, without `wf`
    ///         sqrt(N / 2) + 3: answers kept for compatibility that do not match the arrays; size them
    ///         by the figures above
    static int computeFFTR(const float* src, float* dst, int N, int* wi, float* wf);

    /// Applies a window (Hann, Hamming; the denominator is N) or a recursion (first-order high-pass)
    /// to N samples.
    ///
    /// The high-pass is y = (1 + g) / 2 * (x - x1) - g * y1 with g = cos(t) / (1 + sin(t)) and
    /// t = 2 pi p0 / p1.
    /// @param p0  high-pass: cut-off in Hz
    /// @param p1  high-pass: sample rate in Hz
    /// @param w   state, zero-filled before the first call and kept between calls; null: only answers
    ///            its length in floats, N for the windows, 11 for the high-pass, 0 for any other type
    /// @return 1 with a state
    static int filter(ggwave_Filter type, float* waveform, int N, float p0, float p1, float* w);

private:
    struct Parts; // all that a working instance consists of, in front of its block: modem/parts.hpp

    void dropBlock();

    // What an instance without a working block still answers.
    ggwave_Parameters m_parameters{};
    int m_sampleSizeInp = -1, m_sampleSizeOut = -1; // bytes
    float m_hzPerSample = -1.0F;
    Protocols m_rxProtocols{}, m_txProtocols{};

    Parts* m_parts = nullptr;
    int m_heapSize = 0;
};

#endif // __cplusplus
