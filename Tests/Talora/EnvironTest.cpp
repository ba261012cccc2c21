// Environments through the interface: their life, settings, and what is refused.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Support/TestEnviron.h"

namespace {

TEST(EnvironTest, Life)
{
    char mesg[MESG_LEN_vx];
    environ_vx* outer = GetDefaultEnviron_vx();
    environ_vx* env = NewTaloraEnviron_vx("life", "");
    EXPECT_EQ(GetDefaultEnviron_vx(), env);
    EXPECT_EQ(NewNet_bn("early", env), nullptr);
    EXPECT_STREQ(ErrorMessage_vx(GetError_vx(env, ERROR_SEVERITY, 0, nullptr)),
                 "This function was called before Talora finished initialization, or while it was closing");
    EXPECT_GE(InitTalora2_bn(env, mesg), 0);
    EXPECT_EQ(std::string(mesg).rfind("Talora 6.01, ", 0), 0u) << mesg;
    EXPECT_LT(InitTalora2_bn(env, mesg), 0);
    EXPECT_STREQ(mesg, "Talora environment already initialized");

    net_bn* net = NewNet_bn("kept", env);
    EXPECT_GE(CloseTalora_bn(env, mesg), 0);
    EXPECT_EQ(GetDefaultEnviron_vx(), outer);
    EXPECT_EQ(GetNetName_bn(net), nullptr) << "a net of a closed environment is known to be gone";
    EXPECT_LT(InitTalora2_bn(env, mesg), 0);
    EXPECT_STREQ(
        mesg,
        "Attempt to initialize Talora environment (which was closed), without first calling NewTaloraEnviron_vx");
    EXPECT_LT(CloseTalora_bn(env, mesg), 0);
    EXPECT_STREQ(mesg, "Attempt to close Talora with an ill formed environ_vx.\n");
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
}

TEST(EnvironTest, AtMost64)
{
    std::vector<environ_vx*> open;
    while (open.size() < 100) {
        environ_vx* env = NewTaloraEnviron_vx(nullptr, nullptr);
        if (env == nullptr) break;
        open.push_back(env);
    }
    EXPECT_EQ(open.size(), 64u);
    EXPECT_NE(GetError_vx(nullptr, INTERNAL_SEVERITY, 0, nullptr), nullptr);
    for (environ_vx* env : open) CloseTalora_bn(env, nullptr);
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
}

TEST(EnvironTest, WithoutAnEnvironment)
{
    EXPECT_EQ(ArgumentChecking_vx(CHECK_QUERY, nullptr), -1);
    const report_vx* error = GetError_vx(nullptr, ERROR_SEVERITY, 0, nullptr);
    ASSERT_NE(error, nullptr);
    EXPECT_STREQ(ErrorMessage_vx(error),
                 "memory system (or environment) is uninitialized or has been closed");
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
}

TEST(EnvironTest, RefusedSettingsChangeNothing)
{
    TestEnviron env;
    struct Row {
        std::function<void()> call;
        int number;
        const char* message;
    };
    const Row rows[] = {
        {[&] { ArgumentChecking_vx(checking_vx(0), env); }, 5529,
         "argument 'setting' is 0, but it should be -1 or between 1 and 4 inclusive"},
        {[&] { ArgumentChecking_vx(checking_vx(5), env); }, 5529,
         "argument 'setting' is 5, but it should be -1 or between 1 and 4 inclusive"},
        {[&] { UserAllowed_vx(env, 0); }, 5530,
         "argument 'setting' is 0, but it should be -1 or between 1 and 4 inclusive"},
        {[&] { LimitMemoryUsage_vx(199999, env); }, 5620,
         "argument 'max_mem' is 199999 bytes, but it must be 200000 or greater (or -1 to just query) with this version of Talora"},
        {[&] { SetAppWindowPosition_vx(env, 32001, 0, 0, 0, ""); }, 5633,
         "argument 'left' is 32001, but it should be between 0 and 32000 inclusive (or -1)"},
        {[&] { SetAppWindowPosition_vx(env, 1, 2, -2, 0, ""); }, 5633,
         "argument 'width' is -2, but it should be between 0 and 32000 inclusive (or -1)"},
        {[&] { ControlConcurrency_vx(env, "speed", "1"); }, 5637,
         "in argument 'command', 'speed' is not known (it should be \"mode\")"},
        {[&] { ControlConcurrency_vx(env, "mode", "3"); }, 5638,
         "in argument 'value', '3' should be \"0\", \"1\" or \"2\" (or empty to query)"},
    };
    const checking_vx level = ArgumentChecking_vx(CHECK_QUERY, env);
    const double limit = LimitMemoryUsage_vx(-1, env);
    for (const Row& row : rows) {
        row.call();
        EXPECT_EQ(env.Taken(), row.number);
        EXPECT_EQ(env.Message(), row.message);
    }
    EXPECT_EQ(ArgumentChecking_vx(CHECK_QUERY, env), level);
    EXPECT_EQ(LimitMemoryUsage_vx(-1, env), limit);
    EXPECT_EQ(ControlConcurrency_vx(env, "mode", nullptr), 1);
    EXPECT_EQ(UserAllowed_vx(env, -1), 4);
    int left = 0;
    EXPECT_STREQ(GetAppWindowPosition_vx(env, &left, nullptr, nullptr, nullptr), "Regular");
    EXPECT_EQ(left, -1);
}

TEST(EnvironTest, SettingsReturnTheOneBefore)
{
    TestEnviron env;
    const checking_vx level = ArgumentChecking_vx(CHECK_OBJECTS, env);
    EXPECT_EQ(ArgumentChecking_vx(level, nullptr), CHECK_OBJECTS);
    const double limit = LimitMemoryUsage_vx(200000, env);
    EXPECT_EQ(LimitMemoryUsage_vx(limit, env), 200000);
    EXPECT_EQ(ControlConcurrency_vx(env, "mode", "2"), 1);
    EXPECT_EQ(ControlConcurrency_vx(env, "mode", "1"), 2);
    EXPECT_EQ(SetRepeatMode_vx(env, 3), 2);
    EXPECT_EQ(SetRepeatMode_vx(env, 2), 3);
    EXPECT_EQ(GetInfinityDbl_vx(), 1.7958972376246913e308);
    EXPECT_EQ(GetUndefDbl_vx(), -1.794104925012291e308);
    const char* version = nullptr;
    EXPECT_EQ(GetTaloraVersion_bn(env, &version), 601);
    EXPECT_EQ(std::string(version).rfind("Talora 6.01, ", 0), 0u);
}

TEST(EnvironTest, ALimitBelowWhatIsInUseIsRaised)
{
    TestEnviron env;
    net_bn* net = NewNet_bn("big", env);
    node_bn* node = NewNode_bn("Wide", 200000, net);
    const std::vector<prob_bn> probs(200000, 1.0f / 200000);
    SetNodeProbs_bn(node, nullptr, probs.data());
    const double in_use = GetMemoryUsage_vx(env);
    ASSERT_GE(in_use, 800000);
    const double before = LimitMemoryUsage_vx(300000, env);
    EXPECT_EQ(env.Taken(NOTICE_SEVERITY), 5636);
    EXPECT_EQ(LimitMemoryUsage_vx(before, env), in_use + 100000);
}

TEST(EnvironTest, RemoteEnvironmentsAreRefused)
{
    environ_vx* env = NewTaloraEnviron_vx("far", "remote");
    ASSERT_GE(InitTalora2_bn(env, nullptr), 0);
    EXPECT_EQ(NewNet_bn("n", env), nullptr);
    const report_vx* error = GetError_vx(env, ERROR_SEVERITY, 0, nullptr);
    ASSERT_NE(error, nullptr);
    EXPECT_STREQ(
        ErrorMessage_vx(error),
        "this function doesn't support remote use, but the environ_vx passed is remote (see the locn argument of NewTaloraEnviron_vx)");
    CloseTalora_bn(env, nullptr);
}

}  // namespace
