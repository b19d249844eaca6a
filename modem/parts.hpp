/// What an instance with a working block consists of.
#pragma once

#include "modem/capture.hpp"
#include "modem/fixed_receiver.hpp"
#include "modem/message_receiver.hpp"
#include "modem/transmitter.hpp"

/// Lies in front of the working block, in the same allocation. The parts only know each other as
/// far as their constructors say.
struct GGWave::Parts {
    explicit Parts(const ggwave_Parameters& parameters);

    /// The plan of the working block: adds the bytes of every array to `n`; with a block, places
    /// them too. False, after a line on the log stream, for lengths out of range.
    bool place(void* block, int& n);

    sorvel::modem::Settings settings;
    Resampler resampler; // one for both directions: sending starts a new stream
    sorvel::modem::Coding coding;
    sorvel::modem::Spectrum spectrum;
    sorvel::modem::Capture capture;
    sorvel::modem::FixedReceiver fixedReceiver;
    sorvel::modem::MessageReceiver messageReceiver;
    sorvel::modem::Transmitter transmitter;
    sorvel::modem::Reception reception;
};
