#include "tools/text_receiver.hpp"

#include <utility>

namespace sorvel {

TextReceiver::TextReceiver(const std::string& prefix, Repeats repeats, const Platform& platform,
                           std::function<void(const Heard&)> deliver)
    : RecordingDecoder(prefix, [this](const Heard& heard) { m_replay.take(heard); }),
      m_replay(prefix, repeats, platform, std::move(deliver)) {}

double TextReceiver::start(double sampleRate_hz) {
    const double wanted_hz = RecordingDecoder::start(sampleRate_hz);
    m_replay.begin();
    return wanted_hz;
}

void TextReceiver::complete() {
    RecordingDecoder::complete();
    m_replay.end(length_s());
}

} // namespace sorvel
