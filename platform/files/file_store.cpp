#include "platform/files/file_store.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace sorvel {

namespace {

namespace fs = std::filesystem;
using Values = std::map<std::string, std::string>;

constexpr std::size_t kLargestFile = 65536;

class Descriptor {
public:
    explicit Descriptor(int number) : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor() { close(); }

    bool isOpen() const { return m_number >= 0; }
    int number() const { return m_number; }
    bool close() { return m_number < 0 || ::close(std::exchange(m_number, -1)) == 0; }

private:
    int m_number;
};

bool isLine(std::string_view text) { return !text.empty() && isHeaderSafe(text) && isUtf8(text); }
bool isKey(std::string_view text) { return isLine(text) && text.find('=') == std::string_view::npos; }

/// The file's content; empty if it is no readable regular file of a sensible size.
std::string readAll(const fs::path& file) {
    // Without O_NONBLOCK, opening a pipe of that name would wait for its other end.
    const Descriptor source(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat facts = {};
    if (!source.isOpen() || ::fstat(source.number(), &facts) != 0 || !S_ISREG(facts.st_mode)) return {};
    std::string content;
    std::array<char, 4096> chunk{};
    while (content.size() <= kLargestFile) {
        const ssize_t got = ::read(source.number(), chunk.data(), chunk.size());
        if (got < 0) return {};
        if (got == 0) return content;
        content.append(chunk.data(), static_cast<std::size_t>(got));
    }
    return {};
}

Values parse(std::string_view content) {
    Values values;
    while (!content.empty()) {
        const std::size_t end = std::min(content.find('\n'), content.size());
        const std::string_view line = content.substr(0, end);
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos || !isKey(line.substr(0, equals)) ||
            !isLine(line.substr(equals + 1)))
            return {}; // damaged: no part of it can be trusted
        values[std::string(line.substr(0, equals))] = line.substr(equals + 1);
        content.remove_prefix(std::min(end + 1, content.size()));
    }
    return values;
}

bool writeAll(int descriptor, std::string_view content) {
    while (!content.empty()) {
        const ssize_t put = ::write(descriptor, content.data(), content.size());
        if (put <= 0) return false;
        content.remove_prefix(static_cast<std::size_t>(put));
    }
    return ::fsync(descriptor) == 0;
}

/// Replaces the file, or leaves it as it was.
void replaceFile(const fs::path& file, std::string_view content) {
    std::error_code ignored; // shows when the file cannot be made
    if (const fs::path folder = file.parent_path(); !fs::is_directory(folder, ignored)) {
        fs::create_directories(folder, ignored);
        fs::permissions(folder, fs::perms::owner_all, ignored);
    }
    std::string temporary = file.string() + ".XXXXXX";
    Descriptor target(::mkostemp(temporary.data(), O_CLOEXEC)); // mode 0600
    if (!target.isOpen()) return;
    const bool isWritten = writeAll(target.number(), content);
    if (!(target.close() && isWritten && ::rename(temporary.c_str(), file.c_str()) == 0)) {
        ::unlink(temporary.c_str());
        return;
    }
    const Descriptor folder(::open(file.parent_path().c_str(), O_RDONLY | O_CLOEXEC | O_DIRECTORY));
    if (folder.isOpen()) ::fsync(folder.number()); // the new name survives a loss of power too
}

class FileStore final : public KeyValueStore {
public:
    explicit FileStore(fs::path file) : m_file(std::move(file)) {
        if (!m_file.empty()) m_values = parse(readAll(m_file));
    }

    std::optional<std::string> string(const std::string& key) override {
        const std::lock_guard lock(m_mutex);
        const auto found = m_values.find(key);
        return found == m_values.end() ? std::nullopt : std::optional(found->second);
    }

    void setString(const std::string& key, const std::string& value) override {
        const std::lock_guard writing(m_writing); // one file after another, the last with every value
        std::string content;
        {
            const std::lock_guard lock(m_mutex);
            m_values[key] = value;
            for (const auto& [name, text] : m_values) {
                if (isKey(name) && isLine(text)) content.append(name).append("=").append(text).append("\n");
            }
        }
        if (!m_file.empty() && content.size() <= kLargestFile) replaceFile(m_file, content);
    }

private:
    const fs::path m_file;
    std::mutex m_writing;
    std::mutex m_mutex; // of the values
    Values m_values;
};

} // namespace

fs::path settingsFile() {
    const auto folder = [](const char* variable) {
        const char* const value = std::getenv(variable);
        const fs::path path = value == nullptr ? "" : value;
        return path.is_absolute() ? path : fs::path();
    };
    if (const fs::path configuration = folder("XDG_CONFIG_HOME"); !configuration.empty())
        return configuration / "sorvel" / "settings";
    const fs::path home = folder("HOME");
    return home.empty() ? home : home / ".config" / "sorvel" / "settings";
}

std::shared_ptr<KeyValueStore> makeFileStore(fs::path file) {
    return std::make_shared<FileStore>(std::move(file));
}

} // namespace sorvel
