// The count of the bytes that tables and lists take, and its limit.
#include "Basic/Memory.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdlib>

#include "Basic/MemoryAllowance.h"

namespace talora {

namespace {

// Four fifths of the machine's memory until the caller sets a limit.
double DefaultLimit()
{
    return 0.8 * double(sysconf(_SC_PHYS_PAGES)) * double(sysconf(_SC_PAGE_SIZE));
}

std::atomic<int64_t> in_use{0};
std::atomic<double> limit{DefaultLimit()};
thread_local bool is_allowed_all = false;

}  // namespace

int64_t MemoryInUse()
{
    return in_use.load(std::memory_order_relaxed);
}

double MemoryLimit()
{
    return limit.load(std::memory_order_relaxed);
}

void SetMemoryLimit(double bytes)
{
    limit.store(bytes, std::memory_order_relaxed);
}

double MemoryAvailable()
{
    return std::max(0.0, MemoryLimit() - double(MemoryInUse()));
}

MemoryAllowance::MemoryAllowance(bool is_given) noexcept : before_(is_allowed_all)
{
    is_allowed_all = is_allowed_all || is_given;
}

MemoryAllowance::~MemoryAllowance()
{
    is_allowed_all = before_;
}

// Counts first and takes back on excess, so that threads at the same time cannot pass the limit together.
void TakeMemory(size_t bytes)
{
    const int64_t after = in_use.fetch_add(int64_t(bytes), std::memory_order_relaxed) + int64_t(bytes);
    if (double(after) <= MemoryLimit() || is_allowed_all) return;
    ReturnMemory(bytes);
    throw std::bad_alloc();
}

void ReturnMemory(size_t bytes) noexcept
{
    in_use.fetch_sub(int64_t(bytes), std::memory_order_relaxed);
}

// A look ahead for a message that names the work; whether there really is memory shows when it is taken.
void CheckMemory(double bytes, const char* format, ...)
{
    if (bytes <= MemoryAvailable() || is_allowed_all) return;
    va_list values;
    va_start(values, format);
    FailOutOfMemoryV(format, values);
    va_end(values);
}

ByteBuffer::~ByteBuffer()
{
    std::free(bytes_);
    ReturnMemory(capacity_);
}

void ByteBuffer::Reserve(size_t capacity)
{
    if (capacity <= capacity_) return;
    TakeMemory(capacity - capacity_);
    // Large blocks grow without being copied: the system gives their pages another address.
    char* const bytes = static_cast<char*>(std::realloc(bytes_, capacity));
    if (bytes == nullptr) {
        ReturnMemory(capacity - capacity_);
        throw std::bad_alloc();
    }
    bytes_ = bytes;
    capacity_ = capacity;
}

}  // namespace talora
