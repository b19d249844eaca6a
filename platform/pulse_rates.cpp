#include "platform/pulse_rates.hpp"

#include <algorithm>

#ifdef SORVEL_WITH_PULSE
#include <chrono>
#include <cstdlib>
#include <memory>
#include <pulse/pulseaudio.h>
#include <tuple>
#endif

namespace sorvel {

const ServerSource* SoundServer::defaultSource() const noexcept {
    const auto found = std::find_if(sources.begin(), sources.end(),
                                    [](const ServerSource& source) { return source.isDefault; });
    return found == sources.end() ? nullptr : &*found;
}

const ServerSource* SoundServer::find(const std::string& name) const noexcept {
    const auto found = std::find_if(sources.begin(), sources.end(),
                                    [&](const ServerSource& source) { return source.name == name; });
    return found == sources.end() ? nullptr : &*found;
}

#ifdef SORVEL_WITH_PULSE

namespace {

using Clock = std::chrono::steady_clock;

struct Release {
    void operator()(pa_mainloop* loop) const { pa_mainloop_free(loop); }
    void operator()(pa_context* context) const {
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
    void operator()(pa_operation* operation) const { pa_operation_unref(operation); }
};
template <typename Handle>
using Owned = std::unique_ptr<Handle, Release>;

std::string text(const char* characters) { return characters != nullptr ? characters : ""; }

/// One short conversation with the server, on the calling thread.
class Conversation {
public:
    explicit Conversation(double timeout_s)
        : m_deadline(Clock::now() +
                     std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(timeout_s))),
          m_loop(pa_mainloop_new()) {
        if (m_loop) m_context.reset(pa_context_new(pa_mainloop_get_api(m_loop.get()), "sorvel"));
    }

    SoundServer ask() {
        SoundServer server;
        if (!m_context || pa_context_connect(m_context.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
            return server;
        const auto hasSettled = [this] {
            return state() == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD(state());
        };
        if (!runUntil(hasSettled)) server.state = ServerState::Silent;
        if (state() != PA_CONTEXT_READY) return server;

        const char* const chosen = std::getenv("PULSE_SOURCE");
        std::string defaultName = text(chosen);
        const bool isComplete =
            (!defaultName.empty() ||
             complete(pa_context_get_server_info(m_context.get(), takeDefault, &defaultName))) &&
            complete(pa_context_get_source_info_list(m_context.get(), takeSource, &server.sources));
        server.state = isComplete ? ServerState::Answers : ServerState::Silent;
        for (ServerSource& source : server.sources) source.isDefault = source.name == defaultName;
        std::sort(server.sources.begin(), server.sources.end(),
                  [](const ServerSource& a, const ServerSource& b) {
                      return std::tie(a.isMonitor, a.name) < std::tie(b.isMonitor, b.name);
                  });
        return server;
    }

private:
    static void takeDefault(pa_context*, const pa_server_info* info, void* name) {
        if (info != nullptr) *static_cast<std::string*>(name) = text(info->default_source_name);
    }
    static void takeSource(pa_context*, const pa_source_info* info, int end, void* sources) {
        if (end != 0 || info == nullptr) return;
        static_cast<std::vector<ServerSource>*>(sources)->push_back(
            {text(info->name), text(info->description), static_cast<double>(info->sample_spec.rate), false,
             info->monitor_of_sink != PA_INVALID_INDEX});
    }

    pa_context_state_t state() const { return pa_context_get_state(m_context.get()); }

    bool complete(pa_operation* started) {
        const Owned<pa_operation> operation(started);
        return operation && runUntil([&] {
                   return pa_operation_get_state(operation.get()) != PA_OPERATION_RUNNING ||
                          !PA_CONTEXT_IS_GOOD(state());
               }) &&
               pa_operation_get_state(operation.get()) == PA_OPERATION_DONE;
    }

    /// @return false: not before the deadline
    template <typename Condition>
    bool runUntil(Condition&& isMet) {
        while (!isMet()) {
            const auto left =
                std::chrono::duration_cast<std::chrono::microseconds>(m_deadline - Clock::now());
            if (left.count() <= 0) return false;
            if (pa_mainloop_prepare(m_loop.get(), static_cast<int>(left.count())) < 0 ||
                pa_mainloop_poll(m_loop.get()) < 0 || pa_mainloop_dispatch(m_loop.get()) < 0)
                return false;
        }
        return true;
    }

    const Clock::time_point m_deadline;
    Owned<pa_mainloop> m_loop; // outlives the context, which is driven by it
    Owned<pa_context> m_context;
};

} // namespace

SoundServer askSoundServer(double timeout_s) { return Conversation(timeout_s).ask(); }

#else

SoundServer askSoundServer(double) { return {}; }

#endif

} // namespace sorvel
