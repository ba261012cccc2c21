// Memory for tables and lists, counted against the limit that the caller has set.
//
// A TableVector counts what it holds and refuses to grow over the limit by throwing
// std::bad_alloc; code that can say what the memory is for calls CheckMemory first, which
// fails with that text.  Entries start on a cache line.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "Basic/Error.h"

namespace talora {

constexpr size_t kTableAlignment = 64;

int64_t MemoryInUse();  // bytes in tables and lists now, whole process
double MemoryLimit();   // bytes
void SetMemoryLimit(double bytes);
double MemoryAvailable();  // limit less what is in use, at least 0

// Counts bytes, or throws std::bad_alloc when that would pass the limit.
void TakeMemory(size_t bytes);
void ReturnMemory(size_t bytes) noexcept;

// Fails with "not enough memory " and the text when so many bytes are not to be had.
void CheckMemory(double bytes, const char* format, ...) TALORA_PRINTF(2, 3);

template <class T>
struct CountedAllocator {
    using value_type = T;
    CountedAllocator() = default;
    template <class U>
    CountedAllocator(const CountedAllocator<U>&)
    {}
    T* allocate(size_t count)
    {
        if (count > SIZE_MAX / 2 / sizeof(T)) throw std::bad_alloc();
        TakeMemory(count * sizeof(T));
        try {
            return static_cast<T*>(::operator new(count * sizeof(T), std::align_val_t(kTableAlignment)));
        } catch (...) {
            ReturnMemory(count * sizeof(T));
            throw;
        }
    }
    // Not inlined: GCC 12 would take the subtraction of freed pointers inside std::vector for a use.
    [[gnu::noinline]] void deallocate(T* block, size_t count) noexcept
    {
        ::operator delete(block, std::align_val_t(kTableAlignment));
        ReturnMemory(count * sizeof(T));
    }
    template <class U>
    bool operator==(const CountedAllocator<U>&) const
    {
        return true;
    }
};

template <class T>
using TableVector = std::vector<T, CountedAllocator<T>>;

// Bytes that are appended in place.  Unlike a vector's, new bytes are not set to zero first.
class ByteBuffer {
public:
    ByteBuffer() = default;
    ByteBuffer(ByteBuffer&& other) noexcept { Swap(other); }
    ByteBuffer& operator=(ByteBuffer&& other) noexcept
    {
        Swap(other);
        return *this;
    }
    ~ByteBuffer();

    size_t Size() const { return size_; }
    size_t Capacity() const { return capacity_; }
    char* Data() { return bytes_; }
    std::string_view View() const { return {bytes_, size_}; }
    void Reserve(size_t capacity);
    void SetSize(size_t size) { size_ = size; }  // at most the capacity; the bytes have been written

private:
    void Swap(ByteBuffer& other) noexcept
    {
        std::swap(bytes_, other.bytes_);
        std::swap(size_, other.size_);
        std::swap(capacity_, other.capacity_);
    }

    char* bytes_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

// ---- Special values: large finite numbers with fixed bit patterns, compared exactly. ----

constexpr double InfinityDbl()
{
    return std::bit_cast<double>(UINT64_C(0x7FEFF7D0F16C2E09));
}
constexpr double UndefDbl()
{
    return std::bit_cast<double>(UINT64_C(0xFFEFEFA6115F8D89));
}
// An entry of a function table whose parent configuration cannot occur.
constexpr double ImpossibleDbl()
{
    return std::bit_cast<double>(UINT64_C(0xFFEFDF5CD0105197));
}
constexpr float InfinityFlt()
{
    return std::bit_cast<float>(UINT32_C(0x7F7FBE86));
}
// Entry never given.
constexpr float MissingProb()
{
    return std::bit_cast<float>(UINT32_C(0xFF7F7D30));
}
// The row's parent configuration cannot occur.
constexpr float ImpossibleProb()
{
    return std::bit_cast<float>(UINT32_C(0xFF7EFAE6));
}

inline bool IsUndef(double value)
{
    return value == UndefDbl();
}
inline bool IsMarker(float entry)
{
    return entry == MissingProb() || entry == ImpossibleProb();
}

}  // namespace talora
