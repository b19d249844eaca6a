#include "platform/audio/block_converter.hpp"
#include "platform/audio/cubeb_capture.hpp"
#include "platform/default_platform.hpp"

namespace sorvel {

namespace {

/// Sound servers mix what programs play and capture, and route it as the user has set it: nothing
/// to arrange.
class ServedSession final : public AudioSession {
public:
    AudioResult setCategory(Category, std::uint32_t) noexcept override { return AudioResult::success(); }
    AudioResult setActive(bool) noexcept override { return AudioResult::success(); }
    AudioResult setAllowHapticsAndSystemSoundsDuringRecording(bool) noexcept override {
        return AudioResult::success();
    }
};

} // namespace

void addDefaultAudio(Platform& platform) {
    platform.audioSession = std::make_shared<ServedSession>();
    platform.makeAudioEngine = [] { return CubebCapture::make(); };
    platform.makeConverter = makeBlockConverter;
}

} // namespace sorvel
