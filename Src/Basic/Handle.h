// Handles: how the library distinguishes a live object from a deleted or foreign one.
//
// Every object that a caller holds begins with a HandleHeader whose low 12 bits give its kind.
// Records live in slabs that are never given back, so that reading the header of a deleted object
// is always allowed; a released record is reused first in, first out, and only after kMinReuse
// other releases, so a stale handle is recognised for long.  The header is not touched by the
// record's constructor and destructor: only the pool writes it, atomically, because another
// thread may be looking at a stale handle.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define TALORA_HAS_POISON 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TALORA_HAS_POISON 1
#endif
#endif
#ifdef TALORA_HAS_POISON
#include <sanitizer/asan_interface.h>
#define TALORA_POISON(start, bytes) ASAN_POISON_MEMORY_REGION(start, bytes)
#define TALORA_UNPOISON(start, bytes) ASAN_UNPOISON_MEMORY_REGION(start, bytes)
#else
#define TALORA_POISON(start, bytes) (void(start), void(bytes))
#define TALORA_UNPOISON(start, bytes) (void(start), void(bytes))
#endif

struct report_vx;

namespace talora {

enum HandleKind : uint16_t {
    DELETED_TYPE = 0x0DE,
    ENVIRON_TYPE = 0x101,
    NET_TYPE = 0x102,
    NODE_TYPE = 0x103,
    NODELIST_TYPE = 0x104,
    STREAM_TYPE = 0x105,
    ERRLOG_TYPE = 0x106,
    RANDGEN_TYPE = 0x107,
    TESTER_TYPE = 0x108,
    SENSV_TYPE = 0x109,
    LEARNER_TYPE = 0x10A,
    CASESET_TYPE = 0x10B,
    CRITSEC_TYPE = 0x10C,
    SETTING_TYPE = 0x10D,
    DBMGR_TYPE = 0x10E
};

constexpr uint16_t kKindMask = 0x0FFF;
constexpr uint16_t kDeletedFlag = 0x1000;  // the object was deleted, its slot not yet used again
constexpr uint16_t kStaticFlag = 0x2000;   // a record that is never freed

class RecursiveLock;
RecursiveLock* NewObjectLock();  // see MultiThread.h
void ReleaseObjectLock(RecursiveLock* lock) noexcept;

struct HandleHeader {
    uint16_t tag;
    RecursiveLock* lock;  // of the object or of its net, or null; locks are never freed

    HandleHeader() {}  // leaves both as they are: see above

    uint16_t Tag() const
    {
        return std::atomic_ref(const_cast<uint16_t&>(tag)).load(std::memory_order_acquire);
    }
    void SetTag(uint16_t value) { std::atomic_ref(tag).store(value, std::memory_order_release); }
    RecursiveLock* Lock() const
    {
        return std::atomic_ref(const_cast<RecursiveLock*&>(lock)).load(std::memory_order_acquire);
    }
    void SetLock(RecursiveLock* value) { std::atomic_ref(lock).store(value, std::memory_order_release); }
};

// True if the pointer can be read as a handle of this kind.  Null and misaligned pointers are not.
template <class T>
bool IsLive(const T* object, HandleKind kind)
{
    if (object == nullptr || reinterpret_cast<uintptr_t>(object) % alignof(T) != 0) return false;
    return (reinterpret_cast<const HandleHeader*>(object)->Tag() & (kKindMask | kDeletedFlag)) == kind;
}

// For a handle within a record that was released, like a node's list of parents: it was set to DELETED_TYPE,
// and callers may still read it.
inline void KeepReadable(const HandleHeader& header)
{
    TALORA_UNPOISON(&header, sizeof header);
}

// Records of all types that are live now, for tests.
inline std::atomic<int64_t> num_live_handles{0};

// Makes and releases the records of one type.  One pool per type, shared by all threads.  Releasing needs no
// memory: the queue of released records is linked through the slots, behind the records.
template <class T, HandleKind kKind>
class HandlePool {
public:
    static constexpr size_t kSlabRecords = 32;
    static constexpr size_t kMinReuse = 1024;

    // A new record, its header set to kKind.  Throws std::bad_alloc.
    template <class... Args>
    T* New(RecursiveLock* lock, Args&&... args)
    {
        Slot* slot = TakeSlot();
        TALORA_UNPOISON(slot->bytes, sizeof(T));
        T* record;
        try {
            record = ::new (static_cast<void*>(slot->bytes)) T(std::forward<Args>(args)...);
        } catch (...) {
            GiveBack(slot);
            throw;
        }
        record->header.SetLock(lock);
        record->header.SetTag(kKind);
        num_live_handles.fetch_add(1, std::memory_order_relaxed);
        return record;
    }

    void Release(T* record) noexcept
    {
        record->header.SetTag(kKind | kDeletedFlag);
        record->~T();
        // The sanitizer sees uses of all but the header.
        TALORA_POISON(reinterpret_cast<std::byte*>(record) + sizeof(HandleHeader),
                      sizeof(T) - sizeof(HandleHeader));
        GiveBack(reinterpret_cast<Slot*>(record));
        num_live_handles.fetch_sub(1, std::memory_order_relaxed);
    }

    // The same for objects with a lock of their own.
    template <class... Args>
    T* NewWithLock(Args&&... args)
    {
        RecursiveLock* lock = NewObjectLock();
        try {
            return New(lock, std::forward<Args>(args)...);
        } catch (...) {
            ReleaseObjectLock(lock);
            throw;
        }
    }
    void ReleaseWithLock(T* record) noexcept
    {
        RecursiveLock* lock = record->header.Lock();
        Release(record);
        ReleaseObjectLock(lock);
    }

private:
    struct alignas(64) Slot {
        std::byte bytes[sizeof(T)];
        Slot* next;  // among the released ones
    };

    Slot* TakeSlot()
    {
        std::lock_guard guard(mutex_);
        if (num_released_ > kMinReuse) {
            Slot* slot = oldest_;
            oldest_ = slot->next;
            --num_released_;
            return slot;
        }
        if (next_ == kSlabRecords || slabs_.empty()) {
            slabs_.push_back(std::make_unique<Slot[]>(kSlabRecords));
            next_ = 0;
        }
        return &slabs_.back()[next_++];
    }

    void GiveBack(Slot* slot) noexcept
    {
        std::lock_guard guard(mutex_);
        slot->next = nullptr;
        (num_released_++ == 0 ? oldest_ : newest_->next) = slot;
        newest_ = slot;
    }

    std::mutex mutex_;
    std::vector<std::unique_ptr<Slot[]>> slabs_;
    Slot* oldest_ = nullptr;  // of the released ones, oldest first
    Slot* newest_ = nullptr;
    size_t num_released_ = 0;
    size_t next_ = 0;
};

}  // namespace talora
