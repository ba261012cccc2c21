#include "Basic/MultiThread.h"

#include <condition_variable>
#include <deque>

namespace talora {

// Locks that nets have given back.  A new net takes the one given back longest ago.  Giving one back needs
// no memory.
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

std::atomic<int> mode{LOCK_PER_NET};
std::atomic<int> calls_inside{0};
std::atomic<bool> is_changing{false};

}  // namespace

uint32_t RecursiveLock::ThreadNumber()
{
    return ThisThread().thread_id;
}

RecursiveLock& ProcessLock()
{
    static RecursiveLock* lock = new RecursiveLock;
    return *lock;
}

RecursiveLock* NewNetLock()
{
    return Pool().Take();
}

void ReleaseNetLock(RecursiveLock* lock) noexcept
{
    Pool().GiveBack(lock);
}

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
