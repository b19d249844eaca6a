#pragma once

#include "telemetry/environment.hpp"

#include <filesystem>
#include <memory>

namespace sorvel {

/// The store's file: `sorvel/settings` in $XDG_CONFIG_HOME, else in ~/.config. Empty
/// where there is neither.
std::filesystem::path settingsFile();

/// Texts kept in one small file of lines `key=value`, read once when the store is made.
///
/// Every change writes the whole file anew, with mode 0600: a temporary file beside it, fsync,
/// rename. So a reader, or a machine that loses power, finds the old or the new file. A file that
/// is missing, unreadable or not made of such lines counts as empty; where it cannot be written,
/// values last as long as the store. Keys and values that do not fit a line are kept in memory
/// only. Of two processes that write at once, the later one's file stays.
///
/// Thread: any. Reading holds a lock for a copy; writing files happens outside of that lock.
std::shared_ptr<KeyValueStore> makeFileStore(std::filesystem::path file);

} // namespace sorvel
