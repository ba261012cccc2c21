// Locks and what the library keeps for each thread.
//
// Lock objects are never freed, so that a thread may still be waiting for the lock of a net that
// has just been deleted.  All locks are re-entrant for their thread, because handlers may call
// the interface again.  That is the one way in which threads could come to wait for each other in a
// circle; the one that would close the circle is refused instead.
//
// Coffman, Elphick & Shoshani (1971), System deadlocks.
#pragma once

#include <atomic>
#include <cstdint>

#include "Basic/FloatMode.h"

struct environ_vx;
struct report_vx;

namespace talora {

class RecursiveLock {
public:
    // Waits until the lock is free.  False, and not entered, if that would never be: the thread that has it
    // waits, itself or through others, for a lock that the calling thread has.
    bool Enter();
    bool TryEnter();  // without waiting
    void Leave();

    // A small number for the calling thread, 1 or more, never used twice.
    static uint32_t ThreadNumber();

private:
    bool Wait(uint32_t self);

    std::atomic<uint32_t> owner_{0};  // the thread that has it
    std::atomic<uint32_t> waiters_{0};
    int depth_ = 0;
    RecursiveLock* next_idle_ = nullptr;

    friend struct LockPool;
    friend bool WouldNeverEnd(const RecursiveLock& wanted, uint32_t self);
};

RecursiveLock& ProcessLock();                     // of the whole library
RecursiveLock* NewObjectLock();                   // from a pool; throws std::bad_alloc
void ReleaseObjectLock(RecursiveLock*) noexcept;  // back to the pool; the lock stays usable

// The locks of the objects that one call works on.  They are entered together or not at all: while a
// call waits for one of them it holds none of the others, so calls that are not made in a handler never
// wait for each other in a circle.  What is entered depends on the mode; what the call uses is known in
// every mode.
class CallLocks {
public:
    void Add(RecursiveLock* lock);  // null and what is there already are passed over
    bool Enter();                   // false: see RecursiveLock::Enter
    void Leave();
    // A new object's lock, from now on like the others.
    void Adopt(RecursiveLock* lock);
    bool Has(const RecursiveLock* lock) const;
    // Whether this call, or one of those in whose handlers it is made, uses the lock.  `call` may be null.
    static bool IsUsed(const CallLocks* call, const RecursiveLock* lock);

    const CallLocks* callers = nullptr;  // of the call in whose handler this one is made

private:
    static constexpr int kMost = 8;
    bool EnterAll();

    int num_used_ = 0, num_entered_ = 0;
    RecursiveLock* used_[kMost];
    RecursiveLock* entered_[kMost];
};

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
    bool aborted = false;            // the user asked to abort the operation, when a report was shown
    bool has_warned = false;         // warnings of this call have been counted
    int repeat_mode = 2;
    CallLocks* locks = nullptr;  // of the call
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
