#pragma once

#include "telemetry/environment.hpp"

#include <filesystem>
#include <memory>

namespace sorvel {

/// Facts about this machine, read once when they are made, and the process's time zone.
///
/// Zone name: TZ if that names a zone or a file of one, else where /etc/localtime points, else the
/// content of /etc/timezone, else "UTC"; links are followed. A zone that the application sets with
/// `tzset` shows from the next call on, its name as its offset. OS version: VERSION_ID of
/// os-release, else PRETTY_NAME, else the kernel's release. Model: the machine field of uname, with
/// '?' for a byte beyond ASCII.
///
/// @param root  where /etc and /usr are looked up
std::shared_ptr<DeviceFacts> makeDeviceFacts(const std::filesystem::path& root = "/");

} // namespace sorvel
