#include "bench/hearing/codec.hpp"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace sorvel::hearing {

namespace {

/// Named as ffmpeg knows the coder, and a container that can be piped.
struct Names {
    const char *coder, *container;
};
Names names(CodecKind kind) {
    switch (kind) {
    case CodecKind::Mp3:
        return {"libmp3lame", "mp3"};
    case CodecKind::Aac:
        return {"aac", "adts"};
    case CodecKind::Opus:
        return {"libopus", "ogg"};
    default:
        return {"libvorbis", "ogg"};
    }
}

class Folder {
public:
    Folder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "hearing-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("no folder can be made in " +
                                     std::filesystem::temp_directory_path().string() +
                                     "; set TMPDIR to one that can be written to");
        m_path = pattern;
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::filesystem::path operator/(const char* name) const { return m_path / name; }

private:
    std::filesystem::path m_path;
};

} // namespace

bool codecsAreInstalled() {
    static const bool kInstalled = std::system("ffmpeg -version >/dev/null 2>&1") == 0; // NOLINT(*-mt-unsafe)
    return kInstalled;
}

std::vector<float> coded(std::span<const float> sound, const Codec& codec, double rate_hz) {
    if (!codecsAreInstalled())
        throw std::runtime_error("ffmpeg not found, which codes the sound: apt install ffmpeg");
    const Folder folder;
    const auto in = folder / "in", out = folder / "out";
    {
        std::ofstream file(in, std::ios::binary);
        for (const float x : sound) {
            const std::array<float, 2> both{x, x};
            file.write(reinterpret_cast<const char*>(both.data()), sizeof both);
        }
    }
    const auto [coder, container] = names(codec.kind);
    const std::string rate = std::to_string(std::lround(rate_hz));
    // Files and figures are this program's own, so that nothing needs to be quoted but the folder.
    const std::string command =
        "ffmpeg -v error -nostdin -f f32le -ar " + rate + " -ac 2 -i '" + in.string() + "' -c:a " + coder +
        " -b:a " + std::to_string(codec.bitrate_kbit_s) + "k -f " + container +
        " - | ffmpeg -v error -i - -f f32le -ar " + rate + " -ac 1 '" + out.string() + "'";
    if (std::system(command.c_str()) != 0) // NOLINT(*-mt-unsafe)
        throw std::runtime_error(std::string("ffmpeg failed to code with ") + coder +
                                 "; its own line says why");
    std::ifstream file(out, std::ios::binary);
    std::vector<float> result(std::filesystem::file_size(out) / sizeof(float));
    file.read(reinterpret_cast<char*>(result.data()),
              static_cast<std::streamsize>(result.size() * sizeof(float)));
    return result;
}

} // namespace sorvel::hearing
