#pragma once

#include "bench/hearing/channel.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace sorvel::hearing {

/// A channel with a name, and the curve that it is a point of.
struct Point {
    std::string family;
    double value = 0.0; ///< in the family's unit
    Channel channel;

    std::string name() const; ///< "family:value"
};

struct Family {
    std::string group, name, meaning, unit;
    std::vector<Point> points;
};

/// All channels that are measured.
const std::vector<Family>& families();

const Family& familyOf(const Point& point);
/// @throws std::runtime_error, one line, for a name that there is not
const Point& pointNamed(std::string_view name);

/// A row of what is to be reached: the first to the last point must each reach the share.
struct Goal {
    std::string meaning;
    std::vector<std::string> points; ///< with a prefix
    std::vector<std::string> pointsWithoutPrefix;
    double share;
};
const std::vector<Goal>& goals();

} // namespace sorvel::hearing
