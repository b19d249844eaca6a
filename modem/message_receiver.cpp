#include "modem/message_receiver.hpp"

#include "modem/log.hpp"
#include "modem/protocols.hpp"

// Nobody knows at which sample the first chunk of a message begins, only that it is within the
// marker's 16 frames after the recording's start. So up to 256 alignments are tried, a sixteenth of
// a frame apart, latest first.

namespace sorvel::modem {

using detail::logLine;

namespace {

enum class Marker { None, Start, End };

/// Which marker sounds from bin `first` on: of 16 pairs of neighbouring bins, each has the one or
/// the other that is louder by `threshold`, in turn.
Marker markerAt(std::span<const float> spectrum, int first, float threshold) {
    if (first < 0 || static_cast<std::size_t>(first) + 2 * GGWave::kBitsInMarker > spectrum.size())
        return Marker::None;
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

/// Frames that `bytes` coded bytes last.
int framesOf(const GGWave::Protocol& protocol, int bytes) {
    return (bytes + protocol.bytesPerTx - 1) / protocol.bytesPerTx * protocol.framesPerTx;
}

} // namespace

// Recording

void MessageReceiver::place(Layout& layout) {
    const int spf = m_settings.samplesPerFrame;
    m_recording.place(layout, spf);
    layout.place(m_average, spf);
    layout.place(m_history, GGWave::kMaxSpectrumHistory, spf);
}

void MessageReceiver::hear(std::span<const float> frame, const Protocols& protocols, Reception& reception) {
    std::copy(frame.begin(), frame.end(), m_history[m_row].begin());
    m_row = (m_row + 1) % m_history.rows();

    if (m_row == 0 || m_isReceiving) analyseAverage();
    if (m_framesLeftToRecord > 0) {
        m_recording.add(frame);
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

/// Spectrum of the mean of the last frames: markers stay the same from frame to frame, most else
/// averages out.
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
    const int chunks = 1 + m_settings.codedBytes() / std::max(1, minBytesPerTx(protocols));
    const int frames = maxFramesPerTx(protocols, true) * chunks + 2 * m_settings.markerFrames;
    m_framesToRecord = m_framesLeftToRecord = std::min(frames, GGWave::kMaxRecordedFrames); // rows there are
    m_recordingFrames = m_framesToRecord;
    m_recording.begin(freqStart, protocols);
}

void MessageReceiver::endRecording() {
    if (m_framesToRecord < 2) return;
    m_recordingFrames = m_framesToRecord - m_framesLeftToRecord + 1;
    logLine("Received end marker. Frames left = %d, recorded = %d\n", m_framesLeftToRecord,
            m_recordingFrames);
    m_framesLeftToRecord = 1;
}

// Analysis

void MessageReceiver::analyseRecording(const Protocols& protocols, Reception& reception) {
    logLine("Analyzing captured data ..\n");
    m_recording.end();
    int length = 0;
    for (ggwave_ProtocolId id = 0; id < GGWAVE_PROTOCOL_COUNT && length == 0; ++id) {
        const Protocol& protocol = protocols[static_cast<std::size_t>(id)];
        if (!m_recording.has(id, protocol)) continue;
        m_spectrum.forget();
        m_framesToAnalyze = m_framesLeftToAnalyze = m_settings.markerFrames * Recording::kPositions;
        for (int alignment = m_framesToAnalyze - 1; alignment >= 0 && length == 0;
             --alignment, --m_framesLeftToAnalyze) {
            if (alignment + 1 > Recording::kPositions * m_recordingFrames) continue;
            length = decodeAt(id, protocol, alignment, reception.data.span());
        }
        if (length > 0) reception.deliver(length, protocols, id, m_settings.isSpread);
    }
    m_framesToRecord = length > 0 ? 0 : -1;
    if (length == 0) reception.length = -1;
    m_isReceiving = m_isAnalyzing = false;
    m_spectrum.forget();
    m_framesToAnalyze = m_framesLeftToAnalyze = 0;
}

/// Decodes the recording with the first chunk at `alignment` sixteenths of a frame. The length
/// comes first: most alignments end with it. Answers the payload's length, 0 if there is none.
int MessageReceiver::decodeAt(ggwave_ProtocolId id, const Protocol& protocol, int alignment,
                              std::span<std::uint8_t> payload) {
    const std::span<std::uint8_t> word = m_coding.word();
    std::fill(word.begin(), word.end(), std::uint8_t{0});
    const int bytesPerTx = protocol.bytesPerTx;

    int length = 0, bytes = 0; // bytes: coded bytes expected, once the length is known
    for (int chunk = 0; chunk < 1024 && (chunk + 1) * bytesPerTx < static_cast<int>(word.size()); ++chunk) {
        const int position = alignment + chunk * protocol.framesPerTx * Recording::kPositions;
        if (position >= m_recordingFrames * Recording::kPositions) break;
        if (length > 0 && chunk * bytesPerTx > bytes + 1) break;
        m_recording.read(
            id, position,
            word.subspan(static_cast<std::size_t>(chunk * bytesPerTx), static_cast<std::size_t>(bytesPerTx)));

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

} // namespace sorvel::modem
