/// What reading and writing sound files share: open files, and how they are told of.
#pragma once

#include "platform/files/audio_file.hpp"
#include "platform/files/sound_file_functions.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <system_error>
#include <unistd.h>

namespace sorvel {

class Descriptor {
public:
    enum class Ownership : std::uint8_t { Owned, Borrowed };
    explicit Descriptor(int number, Ownership ownership = Ownership::Owned)
        : m_number(number), m_isOwned(ownership == Ownership::Owned) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (m_isOwned && m_number >= 0) ::close(m_number);
    }
    int number() const { return m_number; }

private:
    int m_number;
    bool m_isOwned;
};

struct CloseSound {
    void operator()(SNDFILE* sound) const { soundFileFunctions().close(sound); }
};
using Sound = std::unique_ptr<SNDFILE, CloseSound>;

inline bool isStandardStream(const std::string& path) { return path == "-"; }
inline std::string systemReason(int error) { return std::generic_category().message(error); }

/// In the library's terms.
inline int soundFormat(StoredFormat format) {
    switch (format) {
    case StoredFormat::U8:
        return SF_FORMAT_PCM_U8;
    case StoredFormat::I16:
        return SF_FORMAT_PCM_16;
    case StoredFormat::I32:
        return SF_FORMAT_PCM_32;
    case StoredFormat::F32:
        break;
    }
    return SF_FORMAT_FLOAT;
}

} // namespace sorvel
