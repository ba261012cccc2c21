#include "CountedMemory.h"

#include <errno.h>
#include <execinfo.h>
#include <fcntl.h>
#include <malloc.h>
#include <string.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <utility>

extern "C" void __real_free(void* block);

namespace faults {

namespace {

// Stands in front of each block.
struct alignas(16) BlockHeader {
    BlockHeader* older;
    BlockHeader* newer;
    uint64_t number;
    size_t size;
    void* start;  // as malloc gave it
    void* callers[7];
};

constexpr size_t kHeader = sizeof(BlockHeader);
constexpr size_t kMaxWatched = 16;
constexpr size_t kMaxBuffers = 4096;

std::mutex mutex;
BlockHeader* newest = nullptr;
int64_t live_blocks = 0;
int64_t live_bytes = 0;
int64_t peak_bytes = 0;
uint64_t next_number = 1;
int64_t num_allocations = 0;
int64_t total_bytes = 0;

int64_t until_failure = 0;  // 0: none is to fail
Repeat failure_repeat = Repeat::ONCE;
bool failing = false;
int64_t num_failed = 0;

std::string_view watched[kMaxWatched];
size_t num_watched = 0;
int64_t num_found = 0;
int64_t bytes_searched = 0;

void* buffers[kMaxBuffers];  // taken by realloc
size_t num_buffers = 0;

RandomBytes random_bytes = RandomBytes::REAL;

const bool keeps_callers = getenv("TALORA_FAULT_TRACE") != nullptr;

void Count(int64_t blocks, int64_t bytes)
{
    live_blocks += blocks;
    live_bytes += bytes;
    if (bytes > 0) total_bytes += bytes;
    peak_bytes = std::max(peak_bytes, live_bytes);
}

bool MustFail()
{
    ++num_allocations;
    if (failing) {
        ++num_failed;
        return true;
    }
    if (until_failure == 0 || --until_failure > 0) return false;
    failing = failure_repeat == Repeat::FROM_THEN_ON;
    ++num_failed;
    return true;
}

void Search(const void* block, size_t size)
{
    bytes_searched += static_cast<int64_t>(size);
    for (size_t i = 0; i < num_watched; ++i)
        if (memmem(block, size, watched[i].data(), watched[i].size()) != nullptr) {
            ++num_found;
            return;
        }
}

void* Take(size_t size, size_t alignment) noexcept
{
    const std::lock_guard guard(mutex);
    if (MustFail()) return nullptr;
    alignment = std::max(alignment, alignof(std::max_align_t));
    if (size > SIZE_MAX - kHeader - alignment) return nullptr;
    void* const start = malloc(size + kHeader + alignment);
    if (start == nullptr) return nullptr;
    const uintptr_t at = (reinterpret_cast<uintptr_t>(start) + kHeader + alignment - 1) & ~(alignment - 1);
    auto* const header = reinterpret_cast<BlockHeader*>(at - kHeader);
    *header = {newest, nullptr, next_number++, size, start, {}};
    if (keeps_callers) backtrace(header->callers, 7);
    if (newest) newest->newer = header;
    newest = header;
    Count(1, static_cast<int64_t>(size));
    return reinterpret_cast<void*>(at);
}

void Return(void* block) noexcept
{
    if (block == nullptr) return;
    const std::lock_guard guard(mutex);
    auto* const header = reinterpret_cast<BlockHeader*>(static_cast<char*>(block) - kHeader);
    if (num_watched > 0) Search(block, header->size);
    (header->newer ? header->newer->older : newest) = header->older;
    if (header->older) header->older->newer = header->newer;
    Count(-1, -static_cast<int64_t>(header->size));
    __real_free(header->start);
}

void* TakeOrThrow(size_t size, size_t alignment)
{
    void* const block = Take(size, alignment);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

}  // namespace

void FailAllocation(int64_t n, Repeat repeat)
{
    until_failure = n;
    failure_repeat = repeat;
    failing = false;
    num_failed = 0;
}

int64_t EndFailing()
{
    until_failure = 0;
    failing = false;
    return num_failed;
}

int64_t CountAllocations()
{
    return num_allocations;
}

int64_t TotalBytes()
{
    return total_bytes;
}

int64_t LiveBlocks()
{
    return live_blocks;
}

int64_t LiveBytes()
{
    return live_bytes;
}

int64_t PeakBytes()
{
    return peak_bytes;
}

void ResetPeak()
{
    peak_bytes = live_bytes;
}

void GiveRandomBytes(RandomBytes given)
{
    random_bytes = given;
}

uint64_t MarkBlocks()
{
    return next_number;
}

std::string DescribeBlocksSince(uint64_t mark)
{
    std::string text;
    int told = 0;
    for (const BlockHeader* block = newest; block && block->number >= mark && told < 12;
         block = block->older) {
        text += "  " + std::to_string(block->size) + " bytes\n";
        ++told;
        if (!keeps_callers) continue;
        char** const names = backtrace_symbols(block->callers, 7);
        for (int i = 2; i < 7; ++i) text += std::string("    ") + names[i] + "\n";
        free(names);
    }
    return text;
}

void WatchFreed(std::string_view secret)
{
    if (num_watched < kMaxWatched && !secret.empty()) watched[num_watched++] = secret;
}

int64_t EndWatching()
{
    num_watched = 0;
    return std::exchange(num_found, 0);
}

int64_t BytesSearched()
{
    return bytes_searched;
}

}  // namespace faults

// ---- Operator new ----

using namespace faults;

void* operator new(size_t size)
{
    return TakeOrThrow(size, 0);
}
void* operator new[](size_t size)
{
    return TakeOrThrow(size, 0);
}
void* operator new(size_t size, std::align_val_t alignment)
{
    return TakeOrThrow(size, size_t(alignment));
}
void* operator new[](size_t size, std::align_val_t alignment)
{
    return TakeOrThrow(size, size_t(alignment));
}
void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    return Take(size, 0);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept
{
    return Take(size, 0);
}
void operator delete(void* block) noexcept
{
    Return(block);
}
void operator delete[](void* block) noexcept
{
    Return(block);
}
void operator delete(void* block, size_t) noexcept
{
    Return(block);
}
void operator delete[](void* block, size_t) noexcept
{
    Return(block);
}
void operator delete(void* block, std::align_val_t) noexcept
{
    Return(block);
}
void operator delete[](void* block, std::align_val_t) noexcept
{
    Return(block);
}
void operator delete(void* block, size_t, std::align_val_t) noexcept
{
    Return(block);
}
void operator delete[](void* block, size_t, std::align_val_t) noexcept
{
    Return(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept
{
    Return(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept
{
    Return(block);
}

// ---- Functions that the linker puts in the place of the library's: buffers that grow, random bytes. ----

extern "C" {
void* __real_realloc(void* block, size_t size);

void* __wrap_realloc(void* block, size_t size)
{
    const std::lock_guard guard(mutex);
    if (MustFail()) return nullptr;
    void** const known = std::find(buffers, buffers + num_buffers, block);
    const size_t before = block ? malloc_usable_size(block) : 0;
    if (num_watched > 0 && block) Search(block, before);  // it may move
    void* const moved = __real_realloc(block, size);
    if (moved == nullptr) return nullptr;
    const auto grown = static_cast<int64_t>(malloc_usable_size(moved));
    if (known < buffers + num_buffers) {
        *known = moved;
        Count(0, grown - static_cast<int64_t>(before));
    } else if (num_buffers < kMaxBuffers) {
        buffers[num_buffers++] = moved;
        Count(1, grown);
    }
    return moved;
}

void __wrap_free(void* block)
{
    const std::unique_lock guard(mutex);
    void** const known = std::find(buffers, buffers + num_buffers, block);
    if (block && known < buffers + num_buffers) {
        if (num_watched > 0) Search(block, malloc_usable_size(block));
        *known = buffers[--num_buffers];
        Count(-1, -static_cast<int64_t>(malloc_usable_size(block)));
    }
    __real_free(block);
}

ssize_t __real_getrandom(void* bytes, size_t count, unsigned flags);
int __real_open(const char* path, int flags, ...);

ssize_t __wrap_getrandom(void* bytes, size_t count, unsigned flags)
{
    if (random_bytes == RandomBytes::REAL) return __real_getrandom(bytes, count, flags);
    if (random_bytes == RandomBytes::FIXED) {
        memset(bytes, kFixedRandomByte, count);
        return static_cast<ssize_t>(count);
    }
    errno = ENOSYS;
    return -1;
}

int __wrap_open(const char* path, int flags, ...)
{
    va_list more;
    va_start(more, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(more, int) : 0;
    va_end(more);
    if (random_bytes != RandomBytes::NONE || strcmp(path, "/dev/urandom") != 0)
        return __real_open(path, flags, mode);
    errno = ENOENT;
    return -1;
}
}
