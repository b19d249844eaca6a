#pragma once

#include "tools/recording_decoder.hpp"
#include "tools/text_replay.hpp"

#include <functional>
#include <string>
#include <utility>

namespace sorvel {

/// From recordings to the texts that count in them, as fast as they can be read.
///
///     TextReceiver receiver("acme", Repeats::Drop, sorvel::defaultPlatform(), [](const Heard& heard) {...});
class TextReceiver final : public RecordingDecoder {
public:
    /// The parameters are those of RecordingDecoder and TextReplay.
    TextReceiver(const std::string& prefix, Repeats repeats, const Platform& platform,
                 std::function<void(const Heard&)> deliver)
        : RecordingDecoder(prefix, [this](const Heard& heard) { m_replay.take(heard); }),
          m_replay(prefix, repeats, platform, std::move(deliver)) {}

private:
    double start(double sampleRate_hz) override {
        const double wanted_hz = RecordingDecoder::start(sampleRate_hz);
        m_replay.begin();
        return wanted_hz;
    }
    void complete() override {
        RecordingDecoder::complete();
        m_replay.end(length_s());
    }

    TextReplay m_replay;
};

} // namespace sorvel
