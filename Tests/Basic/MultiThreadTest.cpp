#include "Basic/MultiThread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <thread>
#include <vector>

#include "Basic/FloatMode.h"

using namespace talora;

namespace {

void InThreads(int count, const std::function<void(int)>& work)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) threads.emplace_back(work, i);
    for (std::thread& thread : threads) thread.join();
}

TEST(MultiThreadTest, LocksExcludeOthersAndLetTheirThreadBackIn)
{
    RecursiveLock* lock = NewObjectLock();
    int64_t count = 0;
    InThreads(4, [&](int) {
        for (int i = 0; i < 5000; ++i) {
            lock->Enter();
            lock->Enter();
            ++count;
            lock->Leave();
            ++count;
            lock->Leave();
        }
    });
    EXPECT_EQ(count, 40000);
    ReleaseObjectLock(lock);
}

TEST(MultiThreadTest, AChangeOfModeWaitsUntilNoCallIsInside)
{
    std::atomic<int> inside{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> callers;
    for (int i = 0; i < 3; ++i)
        callers.emplace_back([&] {
            while (!stop) {
                EnterLibrary();
                const ConcurrencyMode mode = Concurrency();
                ++inside;
                std::this_thread::yield();
                EXPECT_EQ(Concurrency(), mode) << "changed under a call";
                --inside;
                LeaveLibrary();
            }
        });
    for (int i = 0; i < 60; ++i) ChangeConcurrency(ConcurrencyMode(i % 3));
    stop = true;
    for (std::thread& caller : callers) caller.join();
    ChangeConcurrency(LOCK_PER_NET);
    EXPECT_EQ(inside, 0);
}

TEST(MultiThreadTest, EachThreadHasItsNumber)
{
    const uint32_t mine = RecursiveLock::ThreadNumber();
    std::vector<uint32_t> numbers(3);
    InThreads(3, [&](int i) { numbers[i] = RecursiveLock::ThreadNumber(); });
    numbers.push_back(mine);
    std::sort(numbers.begin(), numbers.end());
    EXPECT_EQ(std::unique(numbers.begin(), numbers.end()), numbers.end());
    EXPECT_EQ(RecursiveLock::ThreadNumber(), mine);
}

TEST(MultiThreadTest, DenormalsAreZeroInsideOnly)
{
    volatile float tiny = 1e-40f, one = 1.0f;
    const auto counts = [&] { return tiny * one != 0; };
    EXPECT_TRUE(counts());
    {
        const DenormalsOff off;
        EXPECT_EQ(counts(), kLibraryMode == 0);
        {
            const CallerFloatMode caller;
            EXPECT_TRUE(counts());
        }
        EXPECT_EQ(counts(), kLibraryMode == 0);
    }
    EXPECT_TRUE(counts());
}

}  // namespace
