/// An instance's parameters after they were judged, with what follows from them.
#pragma once

#include "modem/coding.hpp"
#include "modem/ggwave.h"

namespace sorvel::modem {

struct Settings {
    Settings() = default;
    explicit Settings(const ggwave_Parameters& parameters);

    float sampleRateInp = 0.0F, sampleRateOut = 0.0F, sampleRate = 0.0F; // Hz: captured, played, operating
    int samplesPerFrame = 0;
    float hzPerBin = 0.0F;
    ggwave_SampleFormat sampleFormatInp = GGWAVE_SAMPLE_FORMAT_UNDEFINED;
    ggwave_SampleFormat sampleFormatOut = GGWAVE_SAMPLE_FORMAT_UNDEFINED;
    float soundMarkerThreshold = 0.0F;
    bool isFixedLength = false;
    int payloadLength = 0; // bytes: of every payload, or of the longest message
    int lengthBytes = 0;   // bytes of the coded length in front of a message
    int markerFrames = 0;  // frames of each marker around a message
    bool canReceive = false, canTransmit = false, makesOnlyTones = false, isSpread = false;
    bool needsResampling = false; // in either direction: both share one converter

    int codedBytes() const { return payloadLength + eccBytes(payloadLength); } ///< payload and its parity
};

/// Bytes of one sample; 0 for what is no format.
int sampleSize(ggwave_SampleFormat format);

} // namespace sorvel::modem
