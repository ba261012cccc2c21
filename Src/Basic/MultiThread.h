// Locks and what the library keeps for each thread.
//
// Lock objects are never freed, so that a thread may still be waiting for the lock of a net that
// has just been deleted.  All locks are re-entrant for their thread, because callbacks may call
// the interface again.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "Basic/FloatMode.h"

struct environ_vx;
struct report_vx;

namespace talora {

class RecursiveLock {
public:
    void Enter()
    {
        const uint32_t self = ThreadNumber();
        if (owner_.load(std::memory_order_relaxed) != self) {
            mutex_.lock();
            owner_.store(self, std::memory_order_relaxed);
        }
        ++depth_;
    }
    void Leave()
    {
        if (--depth_ > 0) return;
        owner_.store(0, std::memory_order_relaxed);
        mutex_.unlock();
    }

    // A small number for the calling thread, 1 or more, never used twice.
    static uint32_t ThreadNumber();

private:
    friend struct LockPool;

    std::mutex mutex_;
    std::atomic<uint32_t> owner_{0};
    int depth_ = 0;
    RecursiveLock* next_idle_ = nullptr;
};

RecursiveLock& ProcessLock();                  // of the whole library
RecursiveLock* NewNetLock();                   // from a pool; throws std::bad_alloc
void ReleaseNetLock(RecursiveLock*) noexcept;  // back to the pool, usable for ever

enum ConcurrencyMode { NO_LOCKS = 0, LOCK_PER_NET = 1, LOCK_ALL = 2 };
ConcurrencyMode Concurrency();
// Waits until no other call is inside.  Not from within a nested call.
void ChangeConcurrency(ConcurrencyMode mode);

// Marks the calling thread as inside the library (outermost call only).
void EnterLibrary();
void LeaveLibrary();

// What is kept per thread while calls run.
struct ThreadState {
    uint32_t thread_id = 0;          // 0 until it is first asked for
    const char* function = nullptr;  // current interface function, static text
    environ_vx* env = nullptr;       // environment of the call
    int depth = 0;                   // calls under way, more than 1 through callbacks
    bool failed = false;             // a record of severity "error" or more was raised in this call
    bool aborted = false;            // the person asked to abort the operation, when a report was shown
    bool has_warned = false;         // warnings of this call have been counted
    int repeat_mode = 2;
};

// Every call looks at it several times, so it is reached without a function call.
extern constinit thread_local TALORA_NEAR_TLS ThreadState this_thread;
void NumberThread(ThreadState& thread);
inline ThreadState& ThisThread()
{
    if (this_thread.thread_id == 0) NumberThread(this_thread);
    return this_thread;
}

}  // namespace talora
