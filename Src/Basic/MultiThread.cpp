// Locks of objects and of calls, the concurrency mode, and what each thread keeps.
#include "Basic/MultiThread.h"

#include <algorithm>
#include <deque>
#include <mutex>

namespace talora {

// Locks that objects have given back.  A new object takes the one given back longest ago.  Giving one back
// needs no memory.
struct LockPool {
    std::mutex mutex;
    std::deque<RecursiveLock> all;
    RecursiveLock* oldest_idle = nullptr;
    RecursiveLock* newest_idle = nullptr;

    RecursiveLock* Take()
    {
        std::lock_guard guard(mutex);
        if (oldest_idle == nullptr) return &all.emplace_back();
        RecursiveLock* lock = oldest_idle;
        oldest_idle = lock->next_idle_;
        return lock;
    }
    void GiveBack(RecursiveLock* lock) noexcept
    {
        std::lock_guard guard(mutex);
        lock->next_idle_ = nullptr;
        (oldest_idle == nullptr ? oldest_idle : newest_idle->next_idle_) = lock;
        newest_idle = lock;
    }
};

namespace {

// Never destroyed: a thread may outlive the static objects of the library.
LockPool& Pool()
{
    static LockPool* pool = new LockPool;
    return *pool;
}

// The threads that wait for a lock.  Each keeps its entry on its stack.
struct WaitingThreads {
    struct Entry {
        uint32_t thread;
        const RecursiveLock* lock;
        Entry* next;
    };
    std::mutex mutex;
    Entry* first = nullptr;

    const Entry* Find(uint32_t thread) const
    {
        const Entry* entry = first;
        while (entry != nullptr && entry->thread != thread) entry = entry->next;
        return entry;
    }
    void Remove(const Entry& entry)
    {
        Entry** link = &first;
        while (*link != &entry) link = &(*link)->next;
        *link = entry.next;
    }
};

WaitingThreads& Waiting()
{
    static WaitingThreads* waiting = new WaitingThreads;
    return *waiting;
}

std::atomic<int> mode{LOCK_PER_NET};
std::atomic<int> calls_inside{0};
std::atomic<bool> is_changing{false};

}  // namespace

// ---- Locks ----

uint32_t RecursiveLock::ThreadNumber()
{
    return ThisThread().thread_id;
}

// Whether the owner of a lock waits, directly or through others, for one that the thread `self` has.  Called
// with the list of waiting threads held.  A thread that waits keeps what it has, so that each step along the
// chain stays true, and the last thread of a circle to begin waiting sees all of it.
bool WouldNeverEnd(const RecursiveLock& wanted, uint32_t self)
{
    const RecursiveLock* lock = &wanted;
    for (;;) {
        const uint32_t owner = lock->owner_.load(std::memory_order_acquire);
        if (owner == self) return true;
        const WaitingThreads::Entry* entry = owner == 0 ? nullptr : Waiting().Find(owner);
        if (entry == nullptr || entry->lock == lock) return false;  // it has just got what it waited for
        lock = entry->lock;
    }
}

bool RecursiveLock::TryEnter()
{
    const uint32_t self = ThreadNumber();
    if (owner_.load(std::memory_order_relaxed) != self) {
        uint32_t no_owner = 0;
        if (!owner_.compare_exchange_strong(no_owner, self, std::memory_order_acquire)) return false;
    }
    ++depth_;
    return true;
}

bool RecursiveLock::Enter()
{
    return TryEnter() || Wait(ThreadNumber());
}

// Enters the list of waiting threads, unless waiting would close a circle, and sleeps until the owner leaves.
bool RecursiveLock::Wait(uint32_t self)
{
    WaitingThreads& waiting = Waiting();
    WaitingThreads::Entry entry = {self, this, nullptr};
    {
        std::lock_guard guard(waiting.mutex);
        if (WouldNeverEnd(*this, self)) return false;
        entry.next = waiting.first;
        waiting.first = &entry;
    }
    ++waiters_;
    for (;;) {
        uint32_t owner = 0;
        if (owner_.compare_exchange_strong(owner, self)) break;
        owner_.wait(owner);
    }
    --waiters_;
    depth_ = 1;
    std::lock_guard guard(waiting.mutex);
    waiting.Remove(entry);
    return true;
}

void RecursiveLock::Leave()
{
    if (--depth_ > 0) return;
    owner_.store(0);
    // Both stores are sequentially consistent: a waiter has either raised the count before this is read, or
    // sees owner 0.
    if (waiters_.load() > 0) owner_.notify_one();
}

RecursiveLock& ProcessLock()
{
    static RecursiveLock* lock = new RecursiveLock;
    return *lock;
}

RecursiveLock* NewObjectLock()
{
    return Pool().Take();
}

void ReleaseObjectLock(RecursiveLock* lock) noexcept
{
    Pool().GiveBack(lock);
}

// ---- The locks of a call ----

void CallLocks::Add(RecursiveLock* lock)
{
    if (lock != nullptr && !Has(lock) && num_used_ < kMost) used_[num_used_++] = lock;
}

bool CallLocks::Has(const RecursiveLock* lock) const
{
    return std::find(used_, used_ + num_used_, lock) != used_ + num_used_;
}

// Whether the call or one of those around it has the lock.
bool CallLocks::IsUsed(const CallLocks* call, const RecursiveLock* lock)
{
    while (call != nullptr && !call->Has(lock)) call = call->callers;
    return call != nullptr;
}

// By mode: none, those of the objects, or the one of the library.
bool CallLocks::Enter()
{
    const ConcurrencyMode current = Concurrency();
    if (current == NO_LOCKS) return true;
    if (current == LOCK_PER_NET) return EnterAll();
    if (!ProcessLock().Enter()) return false;
    entered_[num_entered_++] = &ProcessLock();
    return true;
}

// Waits for one lock at a time, without any of the others, and then tries the rest.
bool CallLocks::EnterAll()
{
    for (int awaited = 0; num_entered_ < num_used_;) {
        if (!used_[awaited]->Enter()) return false;
        entered_[num_entered_++] = used_[awaited];
        const int held = awaited;
        for (int i = 0; i < num_used_; ++i) {
            if (i == held) continue;
            if (!used_[i]->TryEnter()) {
                awaited = i;
                Leave();
                break;
            }
            entered_[num_entered_++] = used_[i];
        }
    }
    return true;
}

void CallLocks::Leave()
{
    while (num_entered_ > 0) entered_[--num_entered_]->Leave();
}

// The lock of an object that the call itself has made: no other thread knows it yet, so it is free.
void CallLocks::Adopt(RecursiveLock* lock)
{
    if (Has(lock) || num_used_ == kMost) return;
    used_[num_used_++] = lock;
    if (Concurrency() == LOCK_PER_NET && lock->Enter()) entered_[num_entered_++] = lock;
}

// ---- Modes and threads ----

ConcurrencyMode Concurrency()
{
    return ConcurrencyMode(mode.load(std::memory_order_relaxed));
}

// Callers announce themselves first and look for a change afterwards; the changer announces the change
// first and looks for callers afterwards.  So at least one of the two sees the other.
void EnterLibrary()
{
    for (;;) {
        calls_inside.fetch_add(1);
        if (!is_changing.load()) return;
        LeaveLibrary();
        is_changing.wait(true);
    }
}

void LeaveLibrary()
{
    calls_inside.fetch_sub(1);
    if (is_changing.load()) calls_inside.notify_all();
}

// Waits until no call is inside, with new calls held back at their entry.
void ChangeConcurrency(ConcurrencyMode wanted)
{
    static std::mutex one_at_a_time;
    std::lock_guard guard(one_at_a_time);
    is_changing.store(true);
    for (int inside = calls_inside.load(); inside != 0; inside = calls_inside.load())
        calls_inside.wait(inside);
    mode.store(wanted);
    is_changing.store(false);
    is_changing.notify_all();
}

constinit thread_local ThreadState this_thread;

void NumberThread(ThreadState& thread)
{
    static std::atomic<uint32_t> last_number{0};
    thread.thread_id = ++last_number;
}

}  // namespace talora
