// The digits of a number, denormal ones included.
//
// While an interface function runs, denormal numbers count as 0 (Basic/FloatMode.h), and std::to_chars would
// print them so.  What is saved must read back as what it was.
#pragma once

#include <bit>
#include <charconv>
#include <cstdint>
#include <type_traits>

#include "Basic/FloatMode.h"

namespace talora {

// Denormal numbers are numbers while it lives.
class DenormalsOn {
public:
    DenormalsOn() : saved_(ReadFloatControl())
    {
        constexpr FloatControl kMasks = 0x1F80;  // of traps, where they are in the same word
        WriteFloatControl(saved_ & ~(kLibraryMode & ~kMasks));
    }
    ~DenormalsOn() { WriteFloatControl(saved_); }
    DenormalsOn(const DenormalsOn&) = delete;
    DenormalsOn& operator=(const DenormalsOn&) = delete;

private:
    FloatControl saved_;
};

template <class T>
bool IsDenormal(T value)
{
    using Bits = std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>;
    constexpr int kMantissa = sizeof(T) == 4 ? 23 : 52;
    const Bits magnitude = std::bit_cast<Bits>(value) << 1 >> 1;
    return magnitude != 0 && magnitude >> kMantissa == 0;
}

// As std::to_chars.  @return behind the last digit
template <class T, class... Form>
char* PrintDigits(char* begin, char* end, T value, Form... form)
{
    if (!IsDenormal(value)) return std::to_chars(begin, end, value, form...).ptr;
    const DenormalsOn mode;
    return std::to_chars(begin, end, value, form...).ptr;
}

}  // namespace talora
