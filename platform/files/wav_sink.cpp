#include "platform/files/wav_sink.hpp"

#include "platform/files/open_file.hpp"
#include "platform/files/wav_encoding.hpp"
#include "platform/files/wav_writer.hpp"
#include "platform/system/signals.hpp"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <random>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace sorvel {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kLargestWav_bytes =
    std::numeric_limits<std::uint32_t>::max() - 1024; // with its header

[[noreturn]] void cannotWrite(const std::string& path, const std::string& reason) {
    throw AudioFileError("cannot write " + (isStandardStream(path) ? "standard output" : path) + ": " +
                         reason);
}

void writeAll(const std::string& path, int descriptor, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const ssize_t put = ::write(descriptor, bytes.data(), bytes.size());
        if (put < 0 && errno == EINTR) continue;
        if (put < 0 && errno == EPIPE) throw OutputClosed();
        if (put < 0) cannotWrite(path, systemReason(errno));
        bytes = bytes.subspan(static_cast<std::size_t>(put));
    }
}

/// Where the bytes really go: through links, also one whose target is yet to be made.
fs::path destination(const std::string& path) {
    constexpr int kMostLinks = 40;
    fs::path real = path;
    std::error_code error;
    for (int links = 0; fs::is_symlink(fs::symlink_status(real, error)); ++links) {
        if (links == kMostLinks) cannotWrite(path, systemReason(ELOOP));
        real = real.parent_path() / fs::read_symlink(real, error); // which may be absolute
    }
    return real;
}

class Stream final : public WavSink {
public:
    Stream(std::string path, int descriptor, Descriptor::Ownership ownership,
           const std::vector<std::byte>& header)
        : m_path(std::move(path)), m_descriptor(descriptor, ownership) {
        write(header);
    }
    void write(std::span<const std::byte> bytes) override {
        writeAll(m_path, m_descriptor.number(), bytes);
        m_isOdd = m_isOdd != (bytes.size() % 2 != 0);
    }
    void finish() override {
        static constexpr std::array<std::byte, 1> kPadding{};
        if (m_isOdd) write(kPadding);
    }

private:
    std::string m_path;
    Descriptor m_descriptor;
    bool m_isOdd = false;
};

/// Name of the temporary file that has one; a signal handler reads it.
std::atomic<const char*> theTemporary = nullptr;

/// A temporary file that takes the destination's name at the end. Until then it has none, where the
/// file system allows that, and goes away with the process; else it lies beside the destination.
class NewFile final : public WavSink {
public:
    NewFile(std::string path, int sampleRate_hz, StoredFormat format)
        : m_path(std::move(path)), m_destination(destination(m_path)), m_file(create()) {
        if (m_file.number() < 0) cannotWrite(m_path, systemReason(errno));
        SF_INFO info{};
        info.samplerate = sampleRate_hz;
        info.channels = 1;
        info.format = SF_FORMAT_WAV | soundFormat(format);
        m_sound.reset(soundFileFunctions().open_fd(m_file.number(), SFM_WRITE, &info, SF_FALSE));
        if (!m_sound) fail(soundFileFunctions().strerror(nullptr));
    }
    ~NewFile() override {
        m_sound.reset();
        removeTemporary();
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void write(std::span<const std::byte> bytes) override {
        const auto size = static_cast<sf_count_t>(bytes.size());
        if (soundFileFunctions().write_raw(m_sound.get(), bytes.data(), size) != size)
            fail(soundFileFunctions().strerror(m_sound.get()));
    }
    void finish() override {
        if (const int error = soundFileFunctions().close(m_sound.release()); error != SF_ERR_NO_ERROR)
            fail(soundFileFunctions().error_number(error));
        keepMode();
        const AllSignalsBlocked blocked; // until the name below is gone again
        if (m_temporary.empty() && !giveName()) fail(systemReason(errno));
        if (::rename(m_temporary.c_str(), m_destination.c_str()) != 0) fail(systemReason(errno));
        theTemporary = nullptr;
        m_temporary.clear();
    }

private:
    fs::path folder() const {
        const fs::path parent = m_destination.parent_path();
        return parent.empty() ? fs::path(".") : parent;
    }
    /// Drawn by lot: a number that comes again, such as the process's, meets what another left.
    fs::path anyName() const {
        std::random_device random;
        char name[32];
        std::snprintf(name, sizeof name, ".sorvel-%08x%08x.tmp", static_cast<unsigned>(random()),
                      static_cast<unsigned>(random()));
        return folder() / name;
    }
    /// Not with the C library's temporary files: those stay private, while this one obeys the umask.
    int create() {
        constexpr mode_t kMode = 0666;
        if (::access(kOwnDescriptors, X_OK) == 0) { // without these a file cannot get a name later
            const int nameless = ::open(folder().c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, kMode);
            if (nameless >= 0) return nameless;
        }
        const fs::path name = anyName();
        const int descriptor = ::open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
        if (descriptor >= 0) {
            m_temporary = name;
            theTemporary = m_temporary.c_str();
        }
        return descriptor;
    }
    bool giveName() {
        const fs::path name = anyName();
        const std::string own = std::string(kOwnDescriptors) + "/" + std::to_string(m_file.number());
        if (::linkat(AT_FDCWD, own.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0) return false;
        m_temporary = name;
        return true;
    }
    /// What is replaced hands on who may use it; its owner only where files may be given away.
    void keepMode() const {
        struct stat facts = {};
        if (::stat(m_destination.c_str(), &facts) != 0) return;
        [[maybe_unused]] const int given = ::fchown(m_file.number(), facts.st_uid, facts.st_gid);
        ::fchmod(m_file.number(), facts.st_mode & 07777U);
    }
    void removeTemporary() {
        if (m_temporary.empty()) return;
        ::unlink(m_temporary.c_str());
        theTemporary = nullptr;
        m_temporary.clear();
    }
    /// Also from the constructor, whose destructor does not run.
    [[noreturn]] void fail(const std::string& reason) {
        m_sound.reset();
        removeTemporary();
        cannotWrite(m_path, reason);
    }

    static constexpr const char* kOwnDescriptors = "/proc/self/fd";

    std::string m_path;
    fs::path m_destination;
    fs::path m_temporary; // empty: the file has no name
    Descriptor m_file;    // outlives m_sound
    Sound m_sound;
};

/// Replacing needs no right to write a file, but whoever took that right away did not mean it.
void checkWritable(const std::string& path) {
    constexpr auto kWriters = fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
    std::error_code error;
    const bool isForAnyone = (fs::status(path, error).permissions() & kWriters) != fs::perms::none;
    if (!isForAnyone || ::access(path.c_str(), W_OK) != 0)
        cannotWrite(path, "it is read-only; name another file, or make it writable");
}

} // namespace

std::unique_ptr<WavSink> openedSink(const std::string& path, int sampleRate_hz, StoredFormat format,
                                    std::uint64_t frames) {
    if (frames > kLargestWav_bytes / bytesPerSample(format))
        cannotWrite(path, "WAV ends at 4 GiB; make it shorter");
    const std::vector<std::byte> header =
        wavHeader(static_cast<std::uint32_t>(sampleRate_hz), format, static_cast<std::uint32_t>(frames));
    if (isStandardStream(path)) {
        if (::isatty(STDOUT_FILENO) == 1)
            cannotWrite(path, "it is a terminal; pipe it into a player or name a file");
        return std::make_unique<Stream>(path, STDOUT_FILENO, Descriptor::Ownership::Borrowed, header);
    }
    std::error_code error; // where nothing is known about the path, opening the file will tell
    const fs::file_status status = fs::status(path, error);
    if (fs::is_directory(status)) cannotWrite(path, "it is a folder; name a file in it");
    if (fs::is_regular_file(status)) checkWritable(path);
    if (!fs::exists(status) || fs::is_regular_file(status))
        return std::make_unique<NewFile>(path, sampleRate_hz, format);
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (descriptor < 0) cannotWrite(path, systemReason(errno));
    return std::make_unique<Stream>(path, descriptor, Descriptor::Ownership::Owned, header);
}

void removeTemporaryFile() noexcept {
    if (const char* const name = theTemporary) ::unlink(name);
}

} // namespace sorvel
