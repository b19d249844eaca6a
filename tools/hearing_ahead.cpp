#include "tools/hearing_ahead.hpp"

#include "tools/interruption.hpp"

#include <chrono>
#include <optional>
#include <system_error>
#include <utility>

namespace sorvel {

namespace {

constexpr std::size_t kFilesPerWorker = 4;
constexpr std::size_t kMostWaiting = 1000; // findings of one file
constexpr auto kShown = std::chrono::milliseconds(100);

} // namespace

/// A worker's findings on their way to the one that tells.
class HearingAhead::ToSlot final : public Findings {
public:
    ToSlot(HearingAhead& ahead, std::size_t number) : m_ahead(ahead), m_number(number) {}

    void take(Finding finding) override {
        std::unique_lock lock(m_ahead.m_mutex);
        m_ahead.m_roomMade.wait(lock, [this] {
            return !m_ahead.isWanted(m_number) || m_ahead.m_slots[m_number].findings.size() < kMostWaiting;
        });
        if (!m_ahead.isWanted(m_number)) return;
        m_ahead.m_slots[m_number].findings.push_back(std::move(finding));
        if (m_number == m_ahead.m_told) m_ahead.m_found.notify_one();
    }
    void show(const HearingProgress& progress) override {
        const std::lock_guard lock(m_ahead.m_mutex);
        if (m_ahead.isWanted(m_number)) m_ahead.m_slots[m_number].progress = progress;
    }
    bool isOver() const override {
        if (Interruption::hasCome()) return true;
        const std::lock_guard lock(m_ahead.m_mutex);
        return !m_ahead.isWanted(m_number);
    }
    void end() {
        const std::lock_guard lock(m_ahead.m_mutex);
        if (!m_ahead.isWanted(m_number)) return;
        m_ahead.m_slots[m_number].isDone = true;
        m_ahead.m_found.notify_one();
    }

private:
    HearingAhead& m_ahead;
    const std::size_t m_number;
};

HearingAhead::HearingAhead(const ListenOptions& options, const std::vector<std::string>& files,
                           std::size_t workers)
    : m_options(options), m_files(files), m_window(kFilesPerWorker * workers) {
    try {
        for (std::size_t i = 0; i < workers; ++i) m_workers.emplace_back([this] { work(); });
    } catch (const std::system_error&) { // no more threads are to be had
        if (m_workers.empty()) throw;
    }
}

HearingAhead::~HearingAhead() {
    {
        const std::lock_guard lock(m_mutex);
        m_isOver = true;
    }
    m_roomMade.notify_all();
    for (std::thread& worker : m_workers) worker.join();
}

/// @return false: no more is wanted, though there may be more
bool HearingAhead::tellAll(const std::deque<Finding>& news, Findings& findings) {
    for (const Finding& finding : news) {
        if (const auto* const exception = std::get_if<std::exception_ptr>(&finding))
            std::rethrow_exception(*exception);
        findings.take(finding);
        if (std::holds_alternative<RecordingEnded>(finding)) continue;
        // After a signal the worker ends by itself, and what it has read until then is told.
        if (!findings.isOver() || Interruption::hasCome()) continue;
        findings.take(RecordingEnded{});
        return false;
    }
    return true;
}

void HearingAhead::tell(std::size_t number, Findings& findings) {
    std::unique_lock lock(m_mutex);
    m_told = number;
    m_slots.erase(m_slots.begin(), m_slots.lower_bound(number));
    m_roomMade.notify_all();
    Slot& slot = m_slots[number];
    while (!slot.isDone || !slot.findings.empty()) {
        m_found.wait_for(lock, kShown, [&] { return slot.isDone || !slot.findings.empty(); });
        const std::deque<Finding> news = std::exchange(slot.findings, {});
        const HearingProgress progress = slot.progress;
        m_roomMade.notify_all();
        lock.unlock();
        const bool goesOn = tellAll(news, findings);
        if (goesOn && progress.sampleRate_hz > 0) findings.show(progress);
        lock.lock();
        if (!goesOn) break;
    }
    m_told = number + 1;
    m_slots.erase(number);
    m_roomMade.notify_all();
}

void HearingAhead::work() {
    std::optional<Hearing> hearing;
    for (std::size_t number = 0; takeNumber(number);) {
        ToSlot findings(*this, number);
        try {
            if (!hearing) hearing.emplace(m_options);
            hearing->hear(m_files[number], findings);
        } catch (...) {
            findings.take(std::current_exception());
        }
        findings.end();
    }
}

/// Waits until a file may be begun. @return false: none ever will
bool HearingAhead::takeNumber(std::size_t& number) {
    std::unique_lock lock(m_mutex);
    m_roomMade.wait(lock,
                    [this] { return m_isOver || m_next >= m_files.size() || m_next < m_told + m_window; });
    if (m_isOver || m_next >= m_files.size()) return false;
    number = m_next++;
    m_slots[number];
    return true;
}

} // namespace sorvel
