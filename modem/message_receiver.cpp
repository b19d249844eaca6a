#include "modem/message_receiver.hpp"

#include "modem/log.hpp"
#include "modem/protocols.hpp"

#include <cmath>
#include <numbers>

// Messages of any length stand between two markers. The first half of this file waits for the start marker
// and records what follows; the second takes the recording apart once the end marker or the longest duration
// is reached.
//
// Nobody knows at which sample the first chunk begins, only that it is within the marker's 16 frames after
// the recording's start. So up to 256 alignments are tried, a sixteenth of a frame apart, latest first.
//
// The parts of a recording that alignments share are computed once, while it arrives: a frame is kept not as
// its samples but as the running sums of its tones, sixteenth by sixteenth. The spectrum of a chunk at any
// alignment is then the difference of two such sums. They take the room of `bytesPerTx` frames of 1024
// samples, but a message takes as many times fewer frames. Where they do not fit all the same, the samples
// are kept, and each chunk is summed up and transformed anew.

namespace sorvel::modem {

using detail::logLine;

namespace {

constexpr int kAlignmentsPerFrame = 16;
constexpr int kTonesPerNibble = 16;
constexpr int kTonesPerByte = 2 * kTonesPerNibble;
constexpr int kToneSums = 2 * kTonesPerByte; // real parts, then imaginary parts
constexpr int kLongestCoded = GGWave::kDefaultEncodedDataOffset + GGWave::kMaxLengthVariable +
                              eccBytes(GGWave::kMaxLengthVariable); // bytes

enum class Marker { None, Start, End };

/// Which marker sounds from bin `first` on: of 16 pairs of neighbouring bins, each has the one or the other
/// that is louder by `threshold`, in turn.
Marker markerAt(std::span<const float> spectrum, int first, float threshold) {
    if (first < 0 || static_cast<std::size_t>(first) + kTonesPerByte > spectrum.size()) return Marker::None;
    int startBits = 0, endBits = 0;
    for (int i = 0; i < GGWave::kBitsInMarker; ++i) {
        const float a = spectrum[static_cast<std::size_t>(first + 2 * i)];
        const float c = threshold * spectrum[static_cast<std::size_t>(first + 2 * i + 1)];
        const bool isEven = i % 2 == 0;
        startBits += (isEven ? a > c : a < c) ? 1 : 0;
        endBits += (isEven ? a < c : a > c) ? 1 : 0;
    }
    return startBits == GGWave::kBitsInMarker ? Marker::Start
           : endBits == GGWave::kBitsInMarker ? Marker::End
                                              : Marker::None;
}

/// Index of the largest of 16 values; of equal ones the first. Bins outside the spectrum are silent.
int loudestTone(std::span<const float> spectrum, int base) {
    int tone = 0;
    float most = 0.0F;
    for (int t = 0; t < kTonesPerNibble; ++t) {
        const auto bin = static_cast<std::size_t>(base + t);
        if (bin < spectrum.size() && spectrum[bin] > most) {
            most = spectrum[bin];
            tone = t;
        }
    }
    return tone;
}

/// Frames that `bytes` coded bytes last.
int framesOf(const GGWave::Protocol& protocol, int bytes) {
    return (bytes + protocol.bytesPerTx - 1) / protocol.bytesPerTx * protocol.framesPerTx;
}

} // namespace

// Recording

void MessageReceiver::place(Layout& layout) {
    const std::int64_t spf = m_settings.samplesPerFrame;
    layout.place(m_recordedAmplitude, GGWave::kMaxRecordedFrames * spf);
    layout.place(m_average, spf);
    layout.place(m_history, GGWave::kMaxSpectrumHistory, spf);
}

void MessageReceiver::hear(std::span<const float> frame, const Protocols& protocols, Reception& reception) {
    std::copy(frame.begin(), frame.end(), m_history[m_row].begin());
    m_row = (m_row + 1) % m_history.rows();

    if (m_row == 0 || m_isReceiving) analyseAverage();
    if (m_framesLeftToRecord > 0) {
        record(frame);
        if (--m_framesLeftToRecord < 1) m_isAnalyzing = true;
    }
    if (m_isAnalyzing) analyseRecording(protocols, reception);
    searchMarkers(protocols, reception);
}

bool MessageReceiver::stopReceiving() {
    const bool wasReceiving = m_isReceiving;
    m_isReceiving = false;
    return wasReceiving;
}

void MessageReceiver::forget() {
    m_isReceiving = m_isAnalyzing = false;
    m_framesToAnalyze = m_framesLeftToAnalyze = m_framesToRecord = m_framesLeftToRecord = 0;
    m_history.zero();
}

/// Spectrum of the mean of the last frames: markers stay the same from frame to frame, most else averages
/// out.
void MessageReceiver::analyseAverage() {
    for (int i = 0; i < m_average.size(); ++i) {
        float sum = 0.0F;
        for (int row = 0; row < m_history.rows(); ++row) sum += m_history[row][i];
        m_average[i] = 0.25F * sum;
    }
    m_spectrum.analyse(m_average.span());
}

void MessageReceiver::searchMarkers(const Protocols& protocols, Reception& reception) {
    for (const Protocol& protocol : protocols) {
        if (!protocol.enabled) continue;
        const Marker marker =
            markerAt(m_spectrum.power().span(), protocol.freqStart, m_settings.soundMarkerThreshold);
        if (marker == Marker::None) continue;
        if (marker == Marker::Start && !m_isReceiving) {
            reception.data.zero();
            startRecording(protocol.freqStart, protocols);
        }
        if (marker == Marker::End && m_isReceiving) endRecording();
        return;
    }
}

void MessageReceiver::startRecording(int freqStart, const Protocols& protocols) {
    logLine("Receiving sound data ...\n");
    m_isReceiving = true;
    m_markerFreqStart = freqStart;
    const int chunks = 1 + (kLongestCoded - m_settings.lengthBytes) / std::max(1, minBytesPerTx(protocols));
    const int frames = maxFramesPerTx(protocols, true) * chunks + 2 * m_settings.markerFrames;
    m_framesToRecord = m_framesLeftToRecord = std::min(frames, GGWave::kMaxRecordedFrames); // rows there are
    m_recordingFrames = m_framesToRecord;
    m_framesRecorded = 0;
    chooseRecording(protocols);
}

/// Keeps tones if the longest message of every protocol that may follow fits as such.
void MessageReceiver::chooseRecording(const Protocols& protocols) {
    int bytes = 1, frames = 0;
    for (const Protocol& protocol : protocols) {
        if (!isAnalysed(protocol)) continue;
        bytes = std::max<int>(bytes, protocol.bytesPerTx);
        frames = std::max(frames, framesOf(protocol, kLongestCoded) + 2 * m_settings.markerFrames);
    }
    const int room = m_recordedAmplitude.size() / (kAlignmentsPerFrame * kToneSums * bytes);
    // The lowest and the upper half of the bins are not plain tones in the spectrum that this must agree
    // with.
    const bool arePlainTones =
        m_markerFreqStart > 0 && m_markerFreqStart + kTonesPerByte * bytes <= m_settings.samplesPerFrame / 2;
    m_recordedBytes =
        arePlainTones && frames <= room && m_settings.samplesPerFrame % kAlignmentsPerFrame == 0 ? bytes : 0;
}

void MessageReceiver::endRecording() {
    if (m_framesToRecord < 2) return;
    m_recordingFrames = m_framesToRecord - m_framesLeftToRecord + 1;
    logLine("Received end marker. Frames left = %d, recorded = %d\n", m_framesLeftToRecord,
            m_recordingFrames);
    m_framesLeftToRecord = 1;
}

void MessageReceiver::record(std::span<const float> frame) {
    const int frameSize =
        m_recordedBytes > 0 ? kAlignmentsPerFrame * kToneSums * m_recordedBytes : m_settings.samplesPerFrame;
    if (m_framesRecorded >= m_recordedAmplitude.size() / frameSize)
        return; // longer than any message it could be
    float* const dst = m_recordedAmplitude.data() + std::ptrdiff_t{m_framesRecorded++} * frameSize;
    if (m_recordedBytes == 0) std::copy(frame.begin(), frame.end(), dst);
    for (int byte = 0; byte < m_recordedBytes; ++byte) recordTones(frame, byte, dst + byte * kToneSums);
}

/// Continues the running sums of the 32 tones of byte `byte` of a chunk, sixteenth by sixteenth. Tones turn
/// by a whole number of cycles in a frame, so that every frame starts at phase 0.
void MessageReceiver::recordTones(std::span<const float> frame, int byte, float* dst) {
    using Tones = std::array<float, kTonesPerByte>;
    const double turn = 2.0 * std::numbers::pi;
    const std::size_t samples = frame.size() / kAlignmentsPerFrame;
    const int stride = kToneSums * m_recordedBytes, first = m_markerFreqStart + kTonesPerByte * byte;
    Tones stepRe, stepIm, sumRe{}, sumIm{};
    for (int q = 0; q < kTonesPerByte; ++q) {
        const double angle = turn * (first + q) / static_cast<double>(frame.size());
        stepRe[static_cast<std::size_t>(q)] = static_cast<float>(std::cos(angle));
        stepIm[static_cast<std::size_t>(q)] = static_cast<float>(std::sin(angle));
    }
    if (m_framesRecorded > 1) {
        std::copy_n(dst - stride, kTonesPerByte, sumRe.begin());
        std::copy_n(dst - stride + kTonesPerByte, kTonesPerByte, sumIm.begin());
    }
    for (int block = 0; block < kAlignmentsPerFrame; ++block, dst += stride) {
        Tones re, im; // of the tones at this sample; exact again at each block's start
        for (int q = 0; q < kTonesPerByte; ++q) {
            const double angle = turn * ((first + q) * block % kAlignmentsPerFrame) / kAlignmentsPerFrame;
            re[static_cast<std::size_t>(q)] = static_cast<float>(std::cos(angle));
            im[static_cast<std::size_t>(q)] = static_cast<float>(std::sin(angle));
        }
        Tones blockRe{}, blockIm{};
        for (const float x : frame.subspan(static_cast<std::size_t>(block) * samples, samples)) {
            for (std::size_t q = 0; q < kTonesPerByte; ++q) {
                blockRe[q] += x * re[q];
                blockIm[q] += x * im[q];
                const float turned = re[q] * stepRe[q] - im[q] * stepIm[q];
                im[q] = im[q] * stepRe[q] + re[q] * stepIm[q];
                re[q] = turned;
            }
        }
        for (std::size_t q = 0; q < kTonesPerByte; ++q) {
            dst[q] = sumRe[q] += blockRe[q];
            dst[q + kTonesPerByte] = sumIm[q] += blockIm[q];
        }
    }
}

// Analysis

bool MessageReceiver::isAnalysed(const Protocol& protocol) const {
    return protocol.enabled && protocol.extra == 1 && protocol.framesPerTx > 0 && protocol.bytesPerTx > 0 &&
           protocol.freqStart == m_markerFreqStart;
}

void MessageReceiver::analyseRecording(const Protocols& protocols, Reception& reception) {
    logLine("Analyzing captured data ..\n");
    int length = 0;
    for (ggwave_ProtocolId id = 0; id < GGWAVE_PROTOCOL_COUNT && length == 0; ++id) {
        const Protocol& protocol = protocols[static_cast<std::size_t>(id)];
        if (!isAnalysed(protocol)) continue;
        m_spectrum.forget();
        m_framesToAnalyze = m_framesLeftToAnalyze = m_settings.markerFrames * kAlignmentsPerFrame;
        for (int alignment = m_framesToAnalyze - 1; alignment >= 0 && length == 0;
             --alignment, --m_framesLeftToAnalyze) {
            if (alignment + 1 > kAlignmentsPerFrame * m_recordingFrames) continue;
            length = decodeAt(protocol, alignment, reception.data.span());
        }
        if (length > 0) reception.deliver(length, protocols, id, m_settings.isSpread);
    }
    m_framesToRecord = length > 0 ? 0 : -1;
    if (length == 0) reception.length = -1;
    m_isReceiving = m_isAnalyzing = false;
    m_spectrum.forget();
    m_framesToAnalyze = m_framesLeftToAnalyze = 0;
}

/// Decodes the recording with the first chunk at `alignment` sixteenths of a frame. The length comes first:
/// most alignments end with it. Answers the payload's length, 0 if there is none.
int MessageReceiver::decodeAt(const Protocol& protocol, int alignment, std::span<std::uint8_t> payload) {
    const int bytesPerTx = protocol.bytesPerTx;
    const std::span<std::uint8_t> word = m_coding.word();
    std::fill(word.begin(), word.end(), std::uint8_t{0});

    int length = 0, bytes = 0; // bytes: coded bytes expected, once the length is known
    for (int chunk = 0; chunk < 1024 && (chunk + 1) * bytesPerTx < static_cast<int>(word.size()); ++chunk) {
        const int position = alignment + chunk * protocol.framesPerTx * kAlignmentsPerFrame;
        if (position >= m_recordingFrames * kAlignmentsPerFrame) break;
        if (length > 0 && chunk * bytesPerTx > bytes + 1) break;
        decodeChunk(protocol, position, word.data() + chunk * bytesPerTx);

        if (length == 0 && (chunk + 1) * bytesPerTx >= m_settings.lengthBytes) {
            length = decodeLength(protocol, payload);
            if (length == 0) return 0;
            bytes = m_settings.lengthBytes + length + eccBytes(length);
        }
    }
    return length > 0 && m_coding.decodePayload(length, payload) ? length : 0;
}

/// The announced length; 0 unless it is one that fits the recording, markers at most included.
int MessageReceiver::decodeLength(const Protocol& protocol, std::span<std::uint8_t> payload) {
    const int length = m_coding.decodeLength(payload);
    if (length < 1 || length > GGWave::kMaxLengthVariable) return 0;
    const int frames = framesOf(protocol, m_settings.lengthBytes + length + eccBytes(length));
    return m_recordingFrames >= frames && m_recordingFrames <= frames + 2 * m_settings.markerFrames ? length
                                                                                                    : 0;
}

/// Reads one chunk of bytes at `position` sixteenths of a frame; what lies behind the recording is silence.
void MessageReceiver::decodeChunk(const Protocol& protocol, int position, std::uint8_t* dst) {
    const int recorded = std::max(position, m_framesRecorded * kAlignmentsPerFrame);
    const int end = std::min(position + protocol.framesPerTx * kAlignmentsPerFrame, recorded);
    const float* const recording = m_recordedAmplitude.data();
    if (m_recordedBytes == 0) {
        const std::span<float> sums = m_spectrum.samples();
        std::fill(sums.begin(), sums.end(), 0.0F);
        const int samplesEnd = end * m_settings.samplesPerFrame / kAlignmentsPerFrame;
        for (int at = position * m_settings.samplesPerFrame / kAlignmentsPerFrame; at < samplesEnd;
             at += m_settings.samplesPerFrame) {
            const int samples = std::min(m_settings.samplesPerFrame, samplesEnd - at);
            for (int i = 0; i < samples; ++i) sums[static_cast<std::size_t>(i)] += recording[at + i];
        }
        m_spectrum.analyseSamples();
    } else if (end > position) {
        constexpr std::array<float, kToneSums> kNothing{};
        const std::ptrdiff_t stride = std::ptrdiff_t{kToneSums} * m_recordedBytes;
        for (int j = 0; j < std::min<int>(protocol.bytesPerTx, m_recordedBytes); ++j) {
            const float* const after = recording + (end - 1) * stride + j * kToneSums;
            const float* const before =
                position > 0 ? recording + (position - 1) * stride + j * kToneSums : kNothing.data();
            float* const power = m_spectrum.power().data() + m_markerFreqStart + kTonesPerByte * j;
            for (int q = 0; q < kTonesPerByte; ++q) {
                const float re = after[q] - before[q],
                            im = after[q + kTonesPerByte] - before[q + kTonesPerByte];
                power[q] = re * re + im * im;
            }
        }
    } else {
        m_spectrum.power().zero();
    }
    const std::span spectrum = m_spectrum.power().span();
    for (int j = 0; j < protocol.bytesPerTx; ++j) {
        const int base = protocol.freqStart + kTonesPerByte * j;
        dst[j] = static_cast<std::uint8_t>(loudestTone(spectrum, base) |
                                           loudestTone(spectrum, base + kTonesPerNibble) << 4);
    }
}

} // namespace sorvel::modem
