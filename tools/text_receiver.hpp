#pragma once

#include "tools/deep_recording_decoder.hpp"
#include "tools/recording_decoder.hpp"
#include "tools/text_replay.hpp"

#include <functional>
#include <string>
#include <utility>

namespace sorvel {

/// From recordings to the texts that count in them, as fast as they can be read.
///
///     TextReceiver receiver("acme", Repeats::Drop, sorvel::defaultPlatform(), [](const Heard& heard) {...});
///
/// @tparam Decoding  a receiver of recordings that delivers every text it hears
template <typename Decoding>
class TextReceiverBy final : public Decoding {
public:
    /// The parameters are those of Decoding and TextReplay.
    TextReceiverBy(const std::string& prefix, Repeats repeats, const Platform& platform,
                   std::function<void(const Heard&)> deliver)
        : Decoding(prefix, [this](const Heard& heard) { m_replay.take(heard); }),
          m_replay(prefix, repeats, platform, std::move(deliver)) {}

private:
    double start(double sampleRate_hz) override {
        const double wanted_hz = Decoding::start(sampleRate_hz);
        m_replay.begin();
        return wanted_hz;
    }
    void complete() override {
        Decoding::complete();
        m_replay.end(this->length_s());
    }

    TextReplay m_replay;
};

using TextReceiver = TextReceiverBy<RecordingDecoder>;
using DeepTextReceiver = TextReceiverBy<DeepRecordingDecoder>;

} // namespace sorvel
