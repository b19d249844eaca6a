#include "bench/hearing/receivers.hpp"

namespace sorvel::hearing {

std::unique_ptr<TestedReceiver> makeDeepReceiver(double, std::string_view) { return nullptr; }
std::unique_ptr<TestedReceiver> makeSmallReceiver(double, std::string_view) { return nullptr; }

} // namespace sorvel::hearing
