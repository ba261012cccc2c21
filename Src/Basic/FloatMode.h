// Floating-point mode: denormal numbers read and written as 0 while a DenormalsOff lives.
//
// Tables hold products of many small probabilities; a processor can take a hundred times longer
// over a denormal result than over a normal one.  The caller's mode comes back on every exit.
#pragma once

#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

namespace talora {

class DenormalsOff {
public:
    DenormalsOff(const DenormalsOff&) = delete;
    DenormalsOff& operator=(const DenormalsOff&) = delete;
#if defined(__SSE2__)
    DenormalsOff() : saved_(_mm_getcsr())
    {
        _mm_setcsr(saved_ | kFlushToZero | kDenormalsAreZero);
    }
    ~DenormalsOff()
    {
        _mm_setcsr(saved_);
    }

private:
    static constexpr unsigned kFlushToZero = 0x8000;
    static constexpr unsigned kDenormalsAreZero = 0x0040;
    unsigned saved_;
#else
    DenormalsOff() {}
#endif
};

}  // namespace talora
