#include "telemetry/EventHub.hpp"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

using sorvel::HttpRequest;
using sorvel::HttpResponse;
using sorvel::HttpSession;

namespace {

constexpr std::string_view kScheme = "https://";
constexpr std::string_view kTokenPath = "/api/v0.3/Token/Generate";
constexpr std::string_view kMessagesPath = "/sorveldeveventhub/messages";
constexpr const char* kApiKeyHeader = "SorvelPhoneApiKey";
constexpr const char* kApiKey = "3F7C21B9-5A4E-4C8D-9B26-E0D41A7C58F2";
constexpr const char* kContentType = "application/json";
constexpr double kTimeout_s = 60.0;
constexpr std::size_t kLongestHost = 253;

bool isAlphanumeric(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// "name", "name:port", "1.2.3.4:port" or "[::1]:port", split into the two; an empty name if it is
/// none of these.
struct HostAndPort {
    std::string_view name;
    std::string_view port;
};

HostAndPort split(std::string_view host) {
    const bool isBracketed = host.starts_with('[');
    const std::size_t end = isBracketed ? host.find(']') + 1 : std::min(host.find(':'), host.size());
    const std::string_view name = host.substr(0, end);
    const auto isFit = [&](char c) {
        return isAlphanumeric(c) || c == '.' || (isBracketed ? c == ':' || c == '[' || c == ']' : c == '-');
    };
    if (name.empty() || name.size() > kLongestHost || !std::all_of(name.begin(), name.end(), isFit))
        return {};

    std::string_view port = host.substr(end);
    if (port.empty()) return {name, {}};
    if (port.front() != ':') return {};
    port.remove_prefix(1);
    unsigned number = 0;
    const auto [rest, fault] = std::from_chars(port.data(), port.data() + port.size(), number);
    if (fault != std::errc() || rest != port.data() + port.size() || number < 1 || number > 65535) return {};
    return {name, port};
}

bool isUnderInvalid(std::string_view host) {
    std::string_view name = split(host).name;
    if (name.ends_with('.')) name.remove_suffix(1);
    constexpr std::string_view kReserved = "invalid"; // RFC 2606, 2
    if (name.size() < kReserved.size()) return false;
    const std::string_view last = name.substr(name.size() - kReserved.size());
    const bool isEqual = std::equal(last.begin(), last.end(), kReserved.begin(), [](char a, char b) {
        return (a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) == b;
    });
    return isEqual && (name.size() == kReserved.size() || name[name.size() - kReserved.size() - 1] == '.');
}

bool isReal(std::string_view host) { return !split(host).name.empty() && !isUnderInvalid(host); }

/// Whether the text is an https address that leads to a real host.
bool isReachable(std::string_view uri) {
    if (!uri.starts_with(kScheme)) return false;
    const bool isPlain = std::all_of(uri.begin(), uri.end(), [](char c) { return c > ' ' && c < '\x7F'; });
    uri.remove_prefix(kScheme.size());
    return isPlain && isReal(uri.substr(0, uri.find_first_of("/?#")));
}

struct Hosts {
    std::string token = SORVEL_TOKEN_HOST;
    std::string event = SORVEL_EVENT_HOST;
};

/// The hosts in use, readable without a lock. Earlier ones are kept: a sender may
/// still be reading them.
class Settings {
public:
    Settings() {
        m_all.push_back(std::make_unique<Hosts>());
        m_current = m_all.back().get();
    }

    const Hosts& hosts() const noexcept { return *m_current.load(std::memory_order_acquire); }

    bool replace(std::string Hosts::* which, const std::string& host) {
        if (split(host).name.empty()) return false;
        const std::lock_guard lock(m_mutex);
        auto next = std::make_unique<Hosts>(hosts());
        (*next).*which = host;
        m_all.push_back(std::move(next));
        m_current.store(m_all.back().get(), std::memory_order_release);
        return true;
    }

    std::atomic<bool> isOn = true;

private:
    std::mutex m_mutex;
    std::vector<std::unique_ptr<const Hosts>> m_all;
    std::atomic<const Hosts*> m_current = nullptr;
};

Settings& settings() {
    // Never ended: requests may still complete while the process winds down.
    static Settings& instance = *new Settings;
    return instance;
}

HttpRequest request(const char* method, std::string url) {
    HttpRequest made;
    made.method = method;
    made.url = std::move(url);
    made.headers.emplace_back("Content-Type", kContentType);
    made.timeout_s = kTimeout_s;
    return made;
}

std::string address(const std::string& host, std::string_view path) {
    return std::string(kScheme).append(host).append(path);
}

} // namespace

void EventHub::getSASToken(HttpSession& session, TokenCompletion completion) {
    std::string url = address(settings().hosts().token, kTokenPath);
    if (!settings().isOn || !isReachable(url)) return;
    HttpRequest asking = request("GET", std::move(url));
    asking.headers.emplace_back(kApiKeyHeader, kApiKey);
    session.submit(std::move(asking),
                   [then = std::move(completion)](const std::optional<HttpResponse>& response) {
                       // No look at the status: the hub's answer to a bad token is where such a
                       // failure ends.
                       if (response && sorvel::isUtf8(response->body) && then) then(response->body);
                   });
}

void EventHub::sendEventToAzureEventHub(HttpSession& session, const std::string& uri,
                                        const std::string& token, const std::string& eventData) {
    if (!settings().isOn || !isReachable(uri) || !sorvel::isHeaderSafe(token)) return;
    HttpRequest posting = request("POST", uri);
    posting.headers.emplace_back("Authorization", token);
    posting.body = eventData;
    session.submit(std::move(posting), [](const std::optional<HttpResponse>&) {});
}

void EventHub::getSASToken(TokenCompletion completion) {
    const auto session = sorvel::sharedEnvironment().http;
    if (session) getSASToken(*session, std::move(completion));
}

void EventHub::sendEventToAzureEventHub(const std::string& uri, const std::string& token,
                                        const std::string& eventData) {
    const auto session = sorvel::sharedEnvironment().http;
    if (session) sendEventToAzureEventHub(*session, uri, token, eventData);
}

std::string EventHub::messagesAddress() { return address(settings().hosts().event, kMessagesPath); }

bool EventHub::setTokenHost(const std::string& host) { return settings().replace(&Hosts::token, host); }
bool EventHub::setEventHost(const std::string& host) { return settings().replace(&Hosts::event, host); }

void EventHub::turnOff() noexcept { settings().isOn = false; }
void EventHub::turnOn() noexcept { settings().isOn = true; }

bool EventHub::isSending() noexcept {
    const Hosts& hosts = settings().hosts();
    return settings().isOn && isReal(hosts.token) && isReal(hosts.event);
}
