#pragma once

#include "telemetry/environment.hpp"

#include <memory>

namespace sorvel {

/// Random UUIDs from the system's library. Thread: any.
std::shared_ptr<UuidGenerator> makeUuids();

} // namespace sorvel
