#include "CountedMemory.h"

#include <execinfo.h>
#include <malloc.h>
#include <string.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>

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

BlockHeader* newest = nullptr;
int64_t live_blocks = 0;
uint64_t next_number = 1;
int64_t num_allocations = 0;

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

const bool keeps_callers = getenv("TALORA_FAULT_TRACE") != nullptr;

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
    ++live_blocks;
    return reinterpret_cast<void*>(at);
}

void Return(void* block) noexcept
{
    if (block == nullptr) return;
    auto* const header = reinterpret_cast<BlockHeader*>(static_cast<char*>(block) - kHeader);
    if (num_watched > 0) Search(block, header->size);
    (header->newer ? header->newer->older : newest) = header->older;
    if (header->older) header->older->newer = header->newer;
    --live_blocks;
    free(header->start);
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

int64_t LiveBlocks()
{
    return live_blocks;
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

// ---- Buffers that grow by realloc.  The linker puts these functions in the place of the library's. ----

extern "C" {
void* __real_realloc(void* block, size_t size);
void __real_free(void* block);

void* __wrap_realloc(void* block, size_t size)
{
    if (MustFail()) return nullptr;
    void** const known = std::find(buffers, buffers + num_buffers, block);
    if (num_watched > 0 && block) Search(block, malloc_usable_size(block));  // it may move
    void* const moved = __real_realloc(block, size);
    if (moved == nullptr) return nullptr;
    if (known < buffers + num_buffers) {
        *known = moved;
    } else if (num_buffers < kMaxBuffers) {
        buffers[num_buffers++] = moved;
        ++live_blocks;
    }
    return moved;
}

void __wrap_free(void* block)
{
    void** const known = std::find(buffers, buffers + num_buffers, block);
    if (block && known < buffers + num_buffers) {
        if (num_watched > 0) Search(block, malloc_usable_size(block));
        *known = buffers[--num_buffers];
        --live_blocks;
    }
    __real_free(block);
}
}
