#include "modem/ggwave.h"

/// Takes the frame; messages between markers are not received by this version.
void GGWave::decode_variable() {}
