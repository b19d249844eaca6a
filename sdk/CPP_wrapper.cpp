#include "sdk/CPP_wrapper.hpp"

#include "modem/ggwave.h"

#include <atomic>

namespace {

// Atomic, as one listener may be made while another is decoding.
std::atomic<std::int32_t> ggwaveId{0};

} // namespace

void CPP_wrapper::InitSorvelWave() {
    ggwave_Parameters parameters = ggwave_getDefaultParameters();
    parameters.payloadLength = 13;
    parameters.sampleRateInp = 96000.0F;
    parameters.samplesPerFrame = 1024;
    parameters.sampleFormatInp = GGWAVE_SAMPLE_FORMAT_I16;
    parameters.sampleFormatOut = GGWAVE_SAMPLE_FORMAT_I16;
    ggwaveId.store(ggwave_init(parameters));
}

std::int32_t CPP_wrapper::Decode(const void* waveform, std::int32_t waveformSize, void* payloadBuffer,
                                 const std::string& prefix) {
    return ggwave_decode(ggwaveId.load(), waveform, waveformSize, payloadBuffer, prefix.c_str());
}
