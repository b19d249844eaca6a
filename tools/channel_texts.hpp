#pragma once

#include "tools/heard.hpp"

#include <functional>
#include <vector>

namespace sorvel {

/// Texts that two channels of a recording gave, on their way into one order of time, in which each stands
/// once: as it was heard with the greater margin.
class ChannelTexts {
public:
    void put(const Heard& heard);
    /// Hands over all that end so long before `heard_s`, up to which both channels were heard, that no
    /// other can come before or beside them any more. What `deliver` throws passes through.
    void release(double heard_s, const std::function<void(const Heard&)>& deliver);

private:
    std::vector<Heard> m_waiting; // in the order of time
};

} // namespace sorvel
