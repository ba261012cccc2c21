// Numbers with an exponent of their own, for the few tables whose entries leave the range of floats.
#pragma once

#include <cmath>
#include <cstdint>

namespace talora {

// fraction x 2^exponent; the fraction is 0 or in [0.5, 1).  Never negative.
struct WideNumber {
    double fraction = 0;
    int64_t exponent = 0;

    bool IsZero() const { return fraction == 0; }
    bool operator==(const WideNumber&) const = default;
};

// Of a number that has lost its form in a product or sum; also of an ordinary one (exponent 0).
inline WideNumber MakeWide(double fraction, int64_t exponent = 0)
{
    if (fraction == 0) return {};
    int shift = 0;
    const double normal = std::frexp(fraction, &shift);
    return {normal, exponent + shift};
}

inline WideNumber operator*(const WideNumber& a, const WideNumber& b)
{
    const double fraction = a.fraction * b.fraction;  // in [0.25, 1)
    if (fraction == 0) return {};
    return fraction < 0.5 ? WideNumber{fraction * 2, a.exponent + b.exponent - 1}
                          : WideNumber{fraction, a.exponent + b.exponent};
}

inline bool operator<(const WideNumber& a, const WideNumber& b)
{
    if (a.IsZero() || b.IsZero()) return a.IsZero() && !b.IsZero();
    return a.exponent != b.exponent ? a.exponent < b.exponent : a.fraction < b.fraction;
}

inline WideNumber operator+(const WideNumber& a, const WideNumber& b)
{
    const WideNumber &large = a < b ? b : a, &small = a < b ? a : b;
    const int64_t distance = large.exponent - small.exponent;
    if (small.IsZero() || distance > 64) return large;  // beyond the digits of a double
    return MakeWide(large.fraction + std::ldexp(small.fraction, -int(distance)), large.exponent);
}

// The number divided by 2^exponent, which is not less than the largest of its table; 0 where that is beyond
// the range of doubles.
inline double ScaledDown(const WideNumber& number, int64_t exponent)
{
    const int64_t left = number.exponent - exponent;
    return left < -1000 ? 0.0 : std::ldexp(number.fraction, int(left));
}

inline double LogOf(const WideNumber& number)
{
    return std::log(number.fraction) + double(number.exponent) * 0.693147180559945309417;
}

}  // namespace talora
