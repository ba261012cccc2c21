// The frame of every interface function: failures, nesting through callbacks, locks, floating-point mode.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Basic/FloatMode.h"
#include "Basic/Memory.h"
#include "Support/TestEnviron.h"
#include "Talora/APICheck.h"

namespace {

TEST(FrameTest, EveryKindOfFaultBecomesItsRecord)
{
    TestEnviron env;
    const struct {
        const char* fault;
        int number;
        errseverity_vx severity;
        bool out_of_memory;
    } rows[] = {{"out of memory", 5622, ERROR_SEVERITY, true},
                {"exception", 5621, ERROR_SEVERITY, false},
                {"foreign exception", 5621, ERROR_SEVERITY, false},
                {"assertion", 5624, INTERNAL_SEVERITY, false},
                {"nonsense", 5644, ERROR_SEVERITY, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.fault);
        EXPECT_EQ(TestFaultRecovery_vx(env, row.fault), -1);
        const report_vx* error = GetError_vx(env, ERROR_SEVERITY, 0, nullptr);
        EXPECT_EQ(ErrorSeverity_vx(error), row.severity);
        EXPECT_EQ(ErrorCategory_vx(MEMORY_CONDITION, error), row.out_of_memory);
        EXPECT_STREQ(ErrorFunction_vx(error), "TestFaultRecovery_vx");
        EXPECT_EQ(env.Taken(), row.number);
    }
}

TEST(FrameTest, LowMemoryIsReportedBeforeTheWorkStarts)
{
    TestEnviron env;
    const double limit = talora::MemoryLimit();
    talora::SetMemoryLimit(double(talora::MemoryInUse()));
    EXPECT_EQ(NewNet_bn("n", env), nullptr);
    talora::SetMemoryLimit(limit);
    EXPECT_EQ(env.Taken(), 5622);
    EXPECT_EQ(env.Message(), "not enough memory left to even start function NewNet_bn");
}

TEST(FrameTest, FailuresStayWithTheirCall)
{
    TestEnviron env;
    struct Seen {
        environ_vx* env;
        bool denormals = false;
    } seen = {env};
    SetMessageHandler_vx(
        env,
        [](environ_vx*, const char*, const report_vx*, void* data) {
            Seen& s = *static_cast<Seen*>(data);
            SetMessageHandler_vx(s.env, nullptr, nullptr);
            volatile float tiny = 1e-40f, one = 1.0f;
            s.denormals = tiny * one != 0;
            EXPECT_EQ(TestFaultRecovery_vx(s.env, "exception"), -1);
            EXPECT_LT(CloseTalora_bn(s.env, nullptr), 0) << "closed under a call";
            EXPECT_EQ(ControlConcurrency_vx(s.env, "mode", "2"), -1);
            return 1;
        },
        &seen);
    EXPECT_NE(NewError_vx(env, 10, WARNING_SEVERITY, "calls back"), nullptr);
    EXPECT_TRUE(seen.denormals) << "callbacks run in the caller's floating-point mode";
    EXPECT_EQ(env.Taken(), 5639);
    net_bn* net = NewNet_bn("n", env);
    EXPECT_STREQ(GetNetName_bn(net), "n") << "an old error does not fail the next call";
}

TEST(FrameTest, FloatingPointModeComesBack)
{
    TestEnviron env;
    const talora::FloatControl before = talora::ReadFloatControl();
    NewNet_bn("ok", env);
    EXPECT_EQ(talora::ReadFloatControl(), before);
    TestFaultRecovery_vx(env, "exception");
    EXPECT_EQ(talora::ReadFloatControl(), before);
    env.Taken();
}

TEST(FrameTest, WithoutCheckingNullIsNotReported)
{
    TestEnviron env;
    const checking_vx level = ArgumentChecking_vx(CHECK_NOTHING, env);
    EXPECT_EQ(GetNetName_bn(nullptr), nullptr);
    ArgumentChecking_vx(level, env);
    EXPECT_EQ(env.Taken(), 0);
}

// One net shared in the modes that allow it; the mode changes meanwhile.
TEST(FrameTest, ThreadsShareANet)
{
    TestEnviron env;
    net_bn* net = NewNet_bn("shared", env);
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            for (int k = 0; !stop; ++k) {
                const std::string title = std::to_string(i) + std::string(k % 50, 'x');
                SetNetTitle_bn(net, title.c_str());
                if (k % 7 == 0) GetNetName_bn(nullptr);
                if (k % 70 == 0) ClearErrors_vx(env, INTERNAL_SEVERITY);
            }
            EXPECT_NE(GetError_vx(env, NULL_SEVERITY, 5104, nullptr), reinterpret_cast<report_vx*>(1));
        });
    for (int i = 0; i < 30; ++i) ControlConcurrency_vx(env, "mode", i % 2 ? "1" : "2");
    stop = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(ControlConcurrency_vx(env, "mode", ""), 1);
    EXPECT_EQ(env.Taken(), 0);
}

TEST(FrameTest, ANetDeletedWhileOthersUseIt)
{
    TestEnviron env;
    for (int round = 0; round < 20; ++round) {
        net_bn* net = NewNet_bn("short", env);
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
            threads.emplace_back([&] {
                while (SetNetTitle_bn(net, "t"), GetError_vx(env, ERROR_SEVERITY, 0, nullptr) == nullptr) {
                }
                EXPECT_EQ(ErrorNumber_vx(GetError_vx(env, ERROR_SEVERITY, 0, nullptr)), -5143);
            });
        DeleteNet_bn(net);
        for (std::thread& thread : threads) thread.join();
    }
}

}  // namespace
