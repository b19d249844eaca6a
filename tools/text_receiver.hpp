#pragma once

#include "tools/text_replay.hpp"

namespace sorvel {

/// From recordings to the texts that count in them, as fast as they can be read.
///
///     TextReceiver receiver("acme", Repeats::Drop, sorvel::defaultPlatform(), [](const Heard& heard) {...});
class TextReceiver final : public RecordingDecoder {
public:
    /// The parameters are those of RecordingDecoder and TextReplay.
    TextReceiver(const std::string& prefix, Repeats repeats, const Platform& platform,
                 std::function<void(const Heard&)> deliver);

private:
    double start(double sampleRate_hz) override;
    void complete() override;

    TextReplay m_replay;
};

} // namespace sorvel
