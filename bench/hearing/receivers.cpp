#include "bench/hearing/receivers.hpp"

#include "bench/hearing/channel.hpp"

namespace sorvel::hearing {

const char* shortName(Kind kind) {
    switch (kind) {
    case Kind::Classic:
        return "classic";
    case Kind::DeepWithPrefix:
        return "deep/4";
    case Kind::DeepWithout:
        return "deep/0";
    case Kind::SmallWithPrefix:
        return "small/4";
    default:
        return "small/0";
    }
}

std::unique_ptr<TestedReceiver> makeReceiver(Kind kind, double rate_hz) {
    if (kind == Kind::Classic) return makeClassicReceiver(rate_hz);
    const bool isPrefixed = kind == Kind::DeepWithPrefix || kind == Kind::SmallWithPrefix;
    const std::string_view prefix = isPrefixed ? kPrefix : std::string_view();
    const bool isSmall = kind == Kind::SmallWithPrefix || kind == Kind::SmallWithout;
    return isSmall ? makeSmallReceiver(rate_hz, prefix) : makeDeepReceiver(rate_hz, prefix);
}

} // namespace sorvel::hearing
