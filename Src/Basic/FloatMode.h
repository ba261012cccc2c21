// Floating-point mode: what is set while the library runs, and what callers get back.
//
// Tables hold products of many small probabilities; a processor can take a hundred times longer
// over a denormal result than over a normal one.  So denormal numbers are read and written as 0
// inside the library, rounding is to nearest and nothing traps.  The caller's own mode comes back
// on every exit, and around every call of his code.
#pragma once

#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

// A small thread-local variable that every call touches: placed so that a shared library reaches it
// without asking the loader.
#define TALORA_NEAR_TLS __attribute__((tls_model("initial-exec")))

namespace talora {

#if defined(__SSE2__)
using FloatControl = unsigned;
constexpr FloatControl kLibraryMode =
    0x1F80 | 0x8000 | 0x0040;  // all masked, flush to zero, denormals are zero
inline FloatControl ReadFloatControl()
{
    return _mm_getcsr();
}
inline void WriteFloatControl(FloatControl mode)
{
    _mm_setcsr(mode);
}
#elif defined(__aarch64__)
using FloatControl = unsigned long;
constexpr FloatControl kLibraryMode = 1ul << 24;  // flush to zero
inline FloatControl ReadFloatControl()
{
    FloatControl mode;
    asm volatile("mrs %0, fpcr" : "=r"(mode));
    return mode;
}
inline void WriteFloatControl(FloatControl mode)
{
    asm volatile("msr fpcr, %0" : : "r"(mode));
}
#else
using FloatControl = int;
constexpr FloatControl kLibraryMode = 0;
inline FloatControl ReadFloatControl()
{
    return 0;
}
inline void WriteFloatControl(FloatControl) {}
#endif

// Whether the processor flushed a result to 0 since it was last asked.  It keeps such a flag anyway, so
// noticing costs nothing per number.  Where there is no flag the answer is always that it may have.
class UnderflowWatch {
public:
#if defined(__SSE2__)
    static constexpr bool kIsExact = true;
    static bool Seen()
    {
        asm volatile("" ::: "memory");  // what was computed before is computed by now
        const unsigned status = _mm_getcsr();
        if ((status & kUnderflow) == 0) return false;
        _mm_setcsr(status & ~kUnderflow);
        return true;
    }

private:
    static constexpr unsigned kUnderflow = 0x10;
#elif defined(__aarch64__)
    static constexpr bool kIsExact = true;
    static bool Seen()
    {
        unsigned long status;
        asm volatile("mrs %0, fpsr" : "=r"(status) : : "memory");
        if ((status & kUnderflow) == 0) return false;
        asm volatile("msr fpsr, %0" : : "r"(status & ~kUnderflow));
        return true;
    }

private:
    static constexpr unsigned long kUnderflow = 0x8;
#else
    static constexpr bool kIsExact = false;
    static bool Seen()
    {
        return true;
    }
#endif
};

// The library's mode while it lives.  The outermost one of a thread remembers the caller's mode.
class DenormalsOff {
public:
    DenormalsOff() : saved_(ReadFloatControl())
    {
        if (depth++ == 0) callers_mode = saved_;
        if (saved_ != kLibraryMode) WriteFloatControl(kLibraryMode);
    }
    ~DenormalsOff()
    {
        --depth;
        if (saved_ != kLibraryMode) WriteFloatControl(saved_);
    }
    DenormalsOff(const DenormalsOff&) = delete;
    DenormalsOff& operator=(const DenormalsOff&) = delete;

    static bool IsOn() { return depth > 0; }
    static FloatControl CallersMode() { return depth > 0 ? callers_mode : ReadFloatControl(); }

private:
    FloatControl saved_;
    static inline constinit thread_local int depth TALORA_NEAR_TLS = 0;
    static inline constinit thread_local FloatControl callers_mode TALORA_NEAR_TLS = 0;
};

// The caller's mode while it lives, around a call of his code.
class CallerFloatMode {
public:
    CallerFloatMode() : saved_(ReadFloatControl()) { WriteFloatControl(DenormalsOff::CallersMode()); }
    ~CallerFloatMode() { WriteFloatControl(saved_); }
    CallerFloatMode(const CallerFloatMode&) = delete;
    CallerFloatMode& operator=(const CallerFloatMode&) = delete;

private:
    FloatControl saved_;
};

}  // namespace talora
