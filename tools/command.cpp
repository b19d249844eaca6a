#include "tools/command.hpp"

#include "payload/encoding.hpp"
#include "platform/files/audio_file.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <sys/ioctl.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace sorvel {

namespace {

/// Also U+0080 to U+009F, which drive terminals as well: in UTF-8 the byte C2 and one below A0.
std::string printable(std::string_view text) {
    std::string shown(text);
    for (std::size_t i = 0; i < shown.size(); ++i) {
        const auto c = static_cast<unsigned char>(shown[i]);
        const bool isHigh =
            c == 0xC2 && i + 1 < shown.size() && static_cast<unsigned char>(shown[i + 1]) < 0xA0;
        if (isHigh) shown.erase(i, 1);
        if (isHigh || c < 0x20 || c == 0x7F) shown[i] = '?';
    }
    return shown;
}

/// The first `columns` characters of UTF-8, each counted as one wide.
std::string cut(const std::string& text, std::size_t columns) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < text.size(); ++i)
        if ((static_cast<unsigned char>(text[i]) & 0xC0U) != 0x80U && count++ == columns)
            return text.substr(0, i);
    return text;
}

constexpr std::array<std::pair<StoredFormat, const char*>, 4> kFormatNames{
    {
     {StoredFormat::U8, "u8"},
     {StoredFormat::I16, "i16"},
     {StoredFormat::I32, "i32"},
     {StoredFormat::F32, "f32"},
     }
};

} // namespace

CLI::Option* addFormat(CLI::App& app, StoredFormat& format, const std::vector<StoredFormat>& formats,
                       const std::string& help) {
    std::vector<std::string> names;
    std::string initial;
    for (const auto& [value, name] : kFormatNames) {
        if (std::find(formats.begin(), formats.end(), value) != formats.end()) names.emplace_back(name);
        if (value == format) initial = name;
    }
    const auto take = [&format](const std::string& given) {
        for (const auto& [value, name] : kFormatNames)
            if (given == name) format = value;
    };
    return app.add_option_function<std::string>("--format", take, help + CLI::detail::join(names, ", "))
        ->check(CLI::IsMember(names))
        ->type_name("NAME")
        ->default_str(initial);
}

CLI::Validator seconds(double most) {
    const std::string range = "0 to " + std::to_string(std::llround(most)) + " seconds";
    return {[most, range](const std::string& given) {
                double value = 0.0;
                const bool isIn = CLI::detail::lexical_cast(given, value) && value >= 0.0 && value <= most;
                return isIn ? std::string() : given + " is not within " + range;
            },
            range};
}

void checkPrefix(const std::string& prefix) {
    if (prefix.size() > encoding::kMaxTextLength)
        throw UsageError("the prefix has " + std::to_string(prefix.size()) +
                         " characters, texts have at most 15");
    for (const char c : prefix)
        if (!(c >= 'A' && c <= 'Z') && encoding::kAlphabet.find(c) == std::string_view::npos)
            throw UsageError("no text begins with the prefix \"" + prefix + "\": texts are made of \"" +
                             std::string(encoding::kAlphabet) + "\"");
}

CLI::Validator given(const std::string& what) {
    return {[what](const std::string& value) {
                return value.empty() ? what + " is empty; leave the option out, or set the variable behind it"
                                     : std::string();
            },
            ""};
}

void printLine(std::string_view line) {
    std::string whole(line);
    whole += '\n';
    if (std::fwrite(whole.data(), 1, whole.size(), stdout) == whole.size() && std::fflush(stdout) == 0)
        return;
    if (errno == EPIPE) throw OutputClosed();
    throw std::runtime_error("cannot write standard output: " + std::generic_category().message(errno));
}

void printError(std::string_view text) { std::fprintf(stderr, "sorvel: %s\n", printable(text).c_str()); }

struct StatusLine::State {
    std::chrono::steady_clock::time_point next; // when it may be shown again
    bool isShown = false;
};

StatusLine::StatusLine() : m_state(::isatty(STDERR_FILENO) == 1 ? std::make_unique<State>() : nullptr) {}

StatusLine::~StatusLine() { clear(); }

void StatusLine::show(const std::function<std::string()>& text) {
    if (!m_state) return;
    const auto now = std::chrono::steady_clock::now();
    if (now < m_state->next) return;
    m_state->next = now + std::chrono::milliseconds(100);
    m_state->isShown = true;
    std::fprintf(stderr, "\r\033[K%s", cut(printable(text()), columns() - 1).c_str());
}

std::size_t StatusLine::columns() const {
    winsize size{};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

void StatusLine::clear() {
    if (!m_state || !m_state->isShown) return;
    m_state->isShown = false;
    std::fputs("\r\033[K", stderr);
}

} // namespace sorvel
