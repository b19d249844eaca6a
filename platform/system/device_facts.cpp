#include "platform/system/device_facts.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/utsname.h>
#include <utility>

namespace sorvel {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestLine = 1024;
constexpr int kMostLines = 200;
constexpr std::string_view kZoneFolder = "/zoneinfo/";

/// Calls `take(line)` until it answers true or the file ends; a file that is not one of short lines
/// ends early.
template <typename Take>
void forEachLine(const fs::path& file, Take&& take) {
    std::error_code fault;
    if (!fs::is_regular_file(file, fault)) return;
    std::ifstream stream(file);
    char line[kLongestLine];
    for (int count = 0; count < kMostLines && stream.getline(line, sizeof line); ++count) {
        if (take(std::string_view(line))) return;
    }
}

bool isZoneName(std::string_view name) {
    const auto isFit = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '/' ||
               c == '_' || c == '-' || c == '+';
    };
    return !name.empty() && name.size() < 100 && name.front() != '/' && name.back() != '/' &&
           std::all_of(name.begin(), name.end(), isFit);
}

/// "Europe/London" of ".../zoneinfo/Europe/London"; empty if the path is no zone's.
std::string zoneOfPath(std::string_view path) {
    const std::size_t folder = path.rfind(kZoneFolder);
    if (folder == std::string_view::npos) return {};
    std::string_view name = path.substr(folder + kZoneFolder.size());
    for (const std::string_view variant : {"posix/", "right/"}) {
        if (name.starts_with(variant)) name.remove_prefix(variant.size());
    }
    return isZoneName(name) ? std::string(name) : std::string();
}

/// The zone of a file that a link may lead to, as /etc/localtime does.
std::string zoneOfFile(fs::path file, const fs::path& root) {
    constexpr int kMostLinks = 40;
    std::error_code fault;
    for (int links = 0; links < kMostLinks; ++links) {
        if (std::string name = zoneOfPath(file.lexically_normal().string()); !name.empty()) return name;
        const fs::path target = fs::read_symlink(root / file.relative_path(), fault);
        if (fault) break;
        file = file.parent_path() / target; // which may be absolute
    }
    // A link may also be among its folders.
    return zoneOfPath(fs::canonical(root / file.relative_path(), fault).string());
}

/// TZ can also hold a file, or a rule such as "CET-1CEST", which has no name unless a zone file
/// bears it.
std::string zoneOfVariable(std::string_view value, const fs::path& root) {
    if (value.starts_with(':')) value.remove_prefix(1);
    if (value.starts_with('/')) return zoneOfFile(value, root);
    if (!isZoneName(value)) return {};
    std::error_code fault;
    const bool isFile = fs::is_regular_file(root / "usr/share/zoneinfo" / value, fault);
    const bool looksLikeOne = value.find('/') != std::string_view::npos; // machines without zone files exist
    return isFile || looksLikeOne ? std::string(value) : std::string();
}

std::string readZoneName(const fs::path& root) {
    if (const char* const variable = std::getenv("TZ")) {
        const std::string name = zoneOfVariable(variable, root);
        return name.empty() ? "UTC" : name; // the C library does not look further either
    }
    std::string name = zoneOfFile("/etc/localtime", root);
    if (!name.empty()) return name;
    forEachLine(root / "etc/timezone", [&](std::string_view line) {
        if (isZoneName(line)) name = line;
        return true; // the first line only
    });
    return name.empty() ? "UTC" : name;
}

std::string unquoted(std::string_view value) {
    std::string text;
    const char quote = value.empty() ? '\0' : value.front();
    const bool isQuoted = quote == '"' || quote == '\'';
    for (std::size_t at = isQuoted ? 1 : 0; at < value.size(); ++at) {
        if (isQuoted && value[at] == quote) break;
        if (value[at] == '\\' && at + 1 < value.size()) ++at;
        text += value[at];
    }
    return text;
}

std::string readOsVersion(const fs::path& root, const utsname& system) {
    std::string version;
    std::string prettyName;
    std::error_code fault;
    const bool isInEtc = fs::is_regular_file(root / "etc/os-release", fault);
    forEachLine(root / (isInEtc ? "etc/os-release" : "usr/lib/os-release"), [&](std::string_view line) {
        constexpr std::string_view kVersion = "VERSION_ID=";
        constexpr std::string_view kPrettyName = "PRETTY_NAME=";
        if (line.starts_with(kVersion)) version = unquoted(line.substr(kVersion.size()));
        if (line.starts_with(kPrettyName)) prettyName = unquoted(line.substr(kPrettyName.size()));
        return false;
    });
    if (!version.empty()) return version;
    return prettyName.empty() ? system.release : prettyName;
}

std::string asciiMachine(const utsname& system) {
    std::string name = system.machine;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) > 0x7F; }, '?');
    return name;
}

/// What the C library's clock shows at a few moments. Zones differ in at least one: before standard
/// time each town had its own.
class ZoneRules {
public:
    ZoneRules() {
        for (std::size_t at = 0; at < kMoments_s.size(); ++at) {
            std::tm local = {};
            if (::localtime_r(&kMoments_s[at], &local) != nullptr) m_offsets_s[at] = local.tm_gmtoff;
        }
    }
    bool operator==(const ZoneRules&) const = default;

private:
    // 1850; Januaries and Julies of 1920, 1945, 1975 and 2025
    static constexpr std::array<std::time_t, 9> kMoments_s{-3786825600, -1577923200, -1562198400,
                                                           -788918400,  -773280000,  157766400,
                                                           173404800,   1735689600,  1751328000};
    std::array<long, kMoments_s.size()> m_offsets_s{};
};

class LinuxFacts final : public DeviceFacts {
public:
    explicit LinuxFacts(fs::path root) : m_root(std::move(root)) {
        ::tzset(); // reads the zone's rules now rather than at the first event
        utsname system = {};
        ::uname(&system);
        m_rules = ZoneRules();
        m_zone = readZoneName(m_root);
        m_version = readOsVersion(m_root, system);
        m_model = asciiMachine(system);
    }

    /// Looks at the environment and at files only after the rules have changed, which the
    /// application brings about.
    std::string timeZoneName() override {
        const ZoneRules now;
        const std::lock_guard lock(m_mutex);
        if (now != m_rules) {
            m_zone = readZoneName(m_root);
            m_rules = now;
        }
        return m_zone;
    }
    std::string osVersion() override { return m_version; }
    std::string modelName() override { return m_model; }

    int utcOffset_s(double time_s) override {
        constexpr double kRange_s =
            1e15; // some 30 million years, within what the calendar of the C library holds
        if (!(std::abs(time_s) < kRange_s)) return 0;
        const auto time = static_cast<std::time_t>(std::floor(time_s));
        std::tm local = {};
        return ::localtime_r(&time, &local) == nullptr ? 0 : static_cast<int>(local.tm_gmtoff);
    }

private:
    const fs::path m_root;
    std::mutex m_mutex; // of the next two
    ZoneRules m_rules;
    std::string m_zone;
    std::string m_version;
    std::string m_model;
};

} // namespace

std::shared_ptr<DeviceFacts> makeDeviceFacts(const fs::path& root) {
    return std::make_shared<LinuxFacts>(root);
}

} // namespace sorvel
