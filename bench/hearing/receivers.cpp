#include "bench/hearing/receivers.hpp"

#include "bench/hearing/channel.hpp"

namespace sorvel::hearing {

const char* shortName(Kind kind) {
    switch (kind) {
    case Kind::Classic:
        return "classic";
    case Kind::DeepWithPrefix:
        return "deep/4";
    default:
        return "deep/0";
    }
}

std::unique_ptr<TestedReceiver> makeReceiver(Kind kind, double rate_hz) {
    if (kind == Kind::Classic) return makeClassicReceiver(rate_hz);
    return makeDeepReceiver(rate_hz, kind == Kind::DeepWithPrefix ? kPrefix : std::string_view());
}

} // namespace sorvel::hearing
