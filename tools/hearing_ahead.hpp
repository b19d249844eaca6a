#pragma once

#include "tools/hearing.hpp"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace sorvel {

/// Hears many files at once, and tells what is in them in the order of the files.
///
/// Each worker has a receiver of its own. Memory stays bounded: nobody begins a file that is more than
/// four times the workers ahead of the one that is being told, nor goes on in one of which some thousand
/// findings wait.
///
///     HearingAhead ahead(options, files, 4);
///     for (std::size_t i = 0; i < files.size(); ++i) ahead.tell(i, findings);
///
/// Thread: one. Its end, whenever that is, waits for no more than 100 ms of sound of each worker.
class HearingAhead {
public:
    /// @param options  outlive it, as do `files`
    /// @param files    regular files
    HearingAhead(const ListenOptions& options, const std::vector<std::string>& files, std::size_t workers);
    ~HearingAhead();
    HearingAhead(const HearingAhead&) = delete;
    HearingAhead& operator=(const HearingAhead&) = delete;

    /// Hands over what is found in file `number`, as it is found, and returns at its end, or when
    /// `findings` want no more, for whom it then ends there. Numbers only grow; what is in those left out is
    /// dropped.
    /// @throws what a worker met that is no failure of a file, and what `findings` throw
    void tell(std::size_t number, Findings& findings);

private:
    /// What a worker has found and nobody was told.
    struct Slot {
        std::deque<Finding> findings;
        HearingProgress progress;
        bool isDone = false;
    };
    class ToSlot;

    static bool tellAll(const std::deque<Finding>& news, Findings& findings);
    void work();
    bool takeNumber(std::size_t& number);
    bool isWanted(std::size_t number) const { return !m_isOver && number >= m_told; }

    const ListenOptions& m_options;
    const std::vector<std::string>& m_files;
    const std::size_t m_window;

    std::mutex m_mutex; // of all below
    std::condition_variable m_found, m_roomMade;
    std::map<std::size_t, Slot> m_slots; // of the files begun and not yet told
    std::size_t m_next = 0;              // to be begun
    std::size_t m_told = 0;              // being told
    bool m_isOver = false;
    std::vector<std::thread> m_workers;
};

} // namespace sorvel
