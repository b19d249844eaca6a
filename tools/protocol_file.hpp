/// Protocols that a user defines in a JSON file, for sending and receiving messages.
#pragma once

#include <string>

namespace sorvel {

/// Puts the rows of a file in place of all others in the modem's tables, both to send and to
/// receive; what is made afterwards uses them. The file is an array of objects:
///
///     [{"id": 2, "name": "fast", "freqStart": 300, "framesPerTx": 3, "bytesPerTx": 1, "extra": 1}]
///
/// `extra` may be left out; it is 1, as messages between markers have no other.
///
/// @return id of the file's first row, the one to send with unless told otherwise
/// @throws UsageError, one line: which file, which row, what is wrong with it
int useProtocolFile(const std::string& file);

} // namespace sorvel
