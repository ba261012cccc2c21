// Sizes of tables as doubles that saturate instead of overflowing.
#pragma once

namespace talora {

// One thousandth of the largest double, so that sums of sizes stay finite.
constexpr double kMaxTableSize = 1.7976931348623156e305;

// The size of a table of `running` entries after a variable with `count` states joins it.  A
// variable without states makes the size 0, and it stays 0.
inline double MultiplySize(double running, int count)
{
    if (count <= 0) return 0.0;
    if (running >= kMaxTableSize / count) return kMaxTableSize;
    return running * count;
}

}  // namespace talora
