#include "Fuzz/Harness.h"

#include <malloc.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "Basic/Environ.h"
#include "Basic/Memory.h"
#include "Basic/Steps.h"

namespace {

std::atomic<int64_t> heap_in_use{0}, heap_peak{0};

void* Count(void* block)
{
    if (block == nullptr) throw std::bad_alloc();
    const int64_t now = heap_in_use += static_cast<int64_t>(malloc_usable_size(block));
    if (now > heap_peak) heap_peak = now;
    return block;
}

void Release(void* block) noexcept
{
    if (block) heap_in_use -= static_cast<int64_t>(malloc_usable_size(block));
    free(block);
}

}  // namespace

// ---- Counting what is on the heap ----
// Over malloc, so that a huge request is std::bad_alloc under the address sanitizer too.

void* operator new(size_t size)
{
    return Count(malloc(size > 0 ? size : 1));
}
void* operator new[](size_t size)
{
    return operator new(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    void* const block = malloc(size > 0 ? size : 1);
    return block ? Count(block) : nullptr;
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept
{
    return operator new(size, std::nothrow);
}
void* operator new(size_t size, std::align_val_t alignment)
{
    const auto align = static_cast<size_t>(alignment);
    return Count(aligned_alloc(align, (size / align + 1) * align));
}
void operator delete(void* block) noexcept
{
    Release(block);
}
void operator delete(void* block, size_t) noexcept
{
    Release(block);
}
void operator delete[](void* block) noexcept
{
    Release(block);
}
void operator delete[](void* block, size_t) noexcept
{
    Release(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept
{
    Release(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept
{
    Release(block);
}
void operator delete(void* block, std::align_val_t) noexcept
{
    Release(block);
}
void operator delete(void* block, size_t, std::align_val_t) noexcept
{
    Release(block);
}

// Of the leak sanitizer, where there is one.
extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));

// The sanitizer asks for these; what the command line says comes after them.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options()
{
    return "allocator_may_return_null=1:detect_leaks=1:malloc_context_size=8:quarantine_size_mb=8";
}

namespace fuzz {

namespace {

ComputingClock::time_point halt_at;
bool was_halted = false;
std::string taken_message;
size_t nets_before = 0, streams_before = 0, lists_before = 0;
int64_t tables_before = 0;

// Deleted handles are kept for a while, so allocations and releases of one input need not match, by which
// libFuzzer would look for leaks.  Looking takes long: only now and then.
void LookForLeaks()
{
    constexpr int kInputsBetween = 2000;
    static int num_inputs = 0;
    if (++num_inputs % kInputsBetween == 0 && __lsan_do_recoverable_leak_check)
        Check(__lsan_do_recoverable_leak_check() == 0, "nothing leaks");
}

bool_vx GoOn(environ_vx*, const char*, double, void*)
{
    if (ComputingClock::now() < halt_at) return 1;
    was_halted = true;
    return 0;
}

void CountObjects()
{
    const environ_vx* const env = Environ();
    nets_before = env->nets.size();
    streams_before = env->streams.size();
    lists_before = env->lists.size();
    tables_before = talora::MemoryInUse();
}

}  // namespace

void Check(bool condition, const char* promise)
{
    if (condition) return;
    const report_vx* const report = GetError_vx(nullptr, WARNING_SEVERITY, 0, nullptr);
    fprintf(stderr, "Broken promise: %s (last record: %s)\n", promise,
            report ? ErrorMessage_vx(report) : "none");
    abort();
}

environ_vx* Environ()
{
    static environ_vx* const env = [] {
        environ_vx* made = NewTaloraEnviron_vx("fuzz", nullptr);
        InitTalora2_bn(made, nullptr);
        LimitMemoryUsage_vx(static_cast<double>(kMemoryLimit), made);
        ArgumentChecking_vx(CHECK_OBJECTS, made);
        SetReproducibleRandom_vx(made, 1);
        SetProgressHandler_vx(made, GoOn, nullptr);
        made->max_key_iterations = 100;  // the derivation has tests of its own
        return made;
    }();
    return env;
}

Input::Input()
{
    Environ();
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    CountObjects();
    ResetPeak();
    RestartClock();
}

Input::~Input()
{
    const environ_vx* const env = Environ();
    Check(GetError_vx(nullptr, INTERNAL_SEVERITY, 0, nullptr) == nullptr, "no internal error");
    Check(HeapPeak() <= kMemoryLimit + kMemoryAllowance, "memory stays within the limit");
    Check(env->nets.size() == nets_before && env->streams.size() == streams_before &&
              env->lists.size() == lists_before,
          "no net, stream or list is left behind");
    Check(talora::MemoryInUse() == tables_before, "no table is left behind");
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    LookForLeaks();
}

ComputingClock::time_point ComputingClock::now() noexcept
{
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return time_point(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

bool Input::WasHalted()
{
    return was_halted;
}

void Input::RestartClock()
{
    was_halted = false;
    halt_at = ComputingClock::now() + std::chrono::milliseconds(kHaltMilliseconds);
}

int TakenError(errseverity_vx severity)
{
    Check(GetError_vx(nullptr, INTERNAL_SEVERITY, 0, nullptr) == nullptr, "no internal error");
    const report_vx* const report = GetError_vx(nullptr, severity, 0, nullptr);
    const int number = report ? -ErrorNumber_vx(report) : 0;
    taken_message = report ? ErrorMessage_vx(report) : "";
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    return number;
}

const std::string& TakenMessage()
{
    return taken_message;
}

int64_t HeapInUse()
{
    return heap_in_use;
}
int64_t HeapPeak()
{
    return heap_peak;
}
void ResetPeak()
{
    heap_peak = heap_in_use.load();
}

stream_vx* NewStreamOf(std::string_view bytes, const char* name, const char* password)
{
    stream_vx* const stream = NewMemoryStream_vx(name, Environ(), nullptr);
    SetStreamContents_vx(stream, bytes.data(), static_cast<int64_t>(bytes.size()));
    if (password) SetStreamPassword_vx(stream, password);
    return stream;
}

net_bn* ReadNetOf(std::string_view bytes, const char* name, const char* password)
{
    stream_vx* const stream = NewStreamOf(bytes, name, password);
    talora::steps_taken = 0;
    net_bn* const net = ReadNet_bn(stream, NO_WINDOW);
    Check(talora::steps_taken <= talora::MostSteps(bytes.size()),
          "reading takes steps by the size of its input");
    DeleteStream_vx(stream);
    return net;
}

std::string WriteNetTo(const net_bn* net, const char* name, const char* password)
{
    stream_vx* const stream = NewMemoryStream_vx(name, Environ(), nullptr);
    if (password) SetStreamPassword_vx(stream, password);
    WriteNet_bn(net, stream);
    int64_t length = 0;
    const char* const contents = GetStreamContents_vx(stream, &length);
    const std::string bytes(contents ? contents : "", static_cast<size_t>(length));
    DeleteStream_vx(stream);
    return bytes;
}

bool CheckNetBytes(std::string_view bytes, const char* name, const char* password)
{
    net_bn* const net = ReadNetOf(bytes, name, password);
    if (net == nullptr) {
        Check(GetError_vx(nullptr, ERROR_SEVERITY, 0, nullptr) != nullptr, "a refusal is recorded");
        return false;
    }
    TakenError();
    Input::RestartClock();
    const std::string written = WriteNetTo(net, "x.dne");  // at checking level 4
    const int problem = TakenError();
    if (!Input::WasHalted()) Check(problem == 0, "an accepted net is valid and can be written");
    DeleteNet_bn(net);
    Input::RestartClock();
    net_bn* const again = ReadNetOf(written, "x.dne");
    if (again == nullptr && (Input::WasHalted() || problem != 0)) return true;
    Check(again != nullptr, "what was written can be read");
    TakenError();
    const std::string twice = WriteNetTo(again, "x.dne");
    DeleteNet_bn(again);
    Check(Input::WasHalted() || twice == written, "write, read and write gives the same bytes");
    return true;
}

}  // namespace fuzz
