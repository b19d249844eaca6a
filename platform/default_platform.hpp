#pragma once

#include "sdk/platform.hpp"

namespace sorvel {

/// Completes a platform with the machine's default microphone: session, engine and converter.
void addDefaultAudio(Platform& platform);

} // namespace sorvel
