// Error records through the interface: which are kept, which are shown, and how.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Support/TestEnviron.h"

namespace {

struct Shown {
    std::vector<std::string> texts;
    int answer = 3;
    static int Handler(environ_vx*, const char* text, const report_vx*, void* data)
    {
        Shown& shown = *static_cast<Shown*>(data);
        shown.texts.push_back(text);
        return shown.answer;
    }
};

TEST(ErrorsApiTest, ListedNewestFirstAndFiltered)
{
    TestEnviron env;
    NewError_vx(env, 70001, WARNING_SEVERITY, "first");
    report_vx* second = NewError_vx(env, -70002, NOTICE_SEVERITY, "second %s >-Bnet");
    NewError_vx(env, 70001, REPORT_SEVERITY, "third");
    std::vector<std::string> texts;
    for (report_vx* r = GetError_vx(env, NULL_SEVERITY, 0, nullptr); r;
         r = GetError_vx(env, NULL_SEVERITY, 0, r))
        texts.push_back(ErrorMessage_vx(r));
    EXPECT_EQ(texts, (std::vector<std::string>{"third", "second %s >-Bnet", "first"}));
    EXPECT_EQ(GetError_vx(env, NULL_SEVERITY, 70002, nullptr), second);
    const std::string list = ListErrors_vx(env, 0, 2);
    EXPECT_NE(list.find("warning 70001 - t "), std::string::npos) << list;
    EXPECT_EQ(list.find("third"), std::string::npos) << "only so many, the oldest first";
    EXPECT_EQ(ErrorNumber_vx(second), -70002);
    EXPECT_TRUE(ErrorCategory_vx(FRONT_END_CONDITION, second));
    EXPECT_STREQ(ErrorMessage_vx(GetError_vx(env, NOTICE_SEVERITY, -70001, nullptr)), "first");
    ClearError_vx(second);
    EXPECT_EQ(ErrorNumber_vx(second), -1) << "a cleared record is known to be gone";
    EXPECT_EQ(env.Taken(), 5148);
    NewError_vx(env, 1, WARNING_SEVERITY, "w");
    NewError_vx(env, 2, ERROR_SEVERITY, "e");
    ClearErrors_vx(env, WARNING_SEVERITY);
    EXPECT_EQ(GetError_vx(env, NULL_SEVERITY, 1, nullptr), nullptr);
    EXPECT_EQ(env.Taken(), 2);
}

TEST(ErrorsApiTest, RecordsOfAnEnvironment)
{
    TestEnviron env;
    NewError_vx(env, 1, WARNING_SEVERITY, "of this thread");
    {
        TestEnviron inner;
        NewError_vx(inner, 3, WARNING_SEVERITY, "of the inner environment");
        EXPECT_EQ(GetError_vx(env, NULL_SEVERITY, 3, nullptr), nullptr);
    }
    EXPECT_EQ(GetError_vx(nullptr, NULL_SEVERITY, 3, nullptr), nullptr) << "goes with its environment";
    env.Taken();
}

TEST(ErrorsApiTest, RepeatModes)
{
    const struct {
        int mode;
        int answer;
        std::vector<std::string> shown;
    } rows[] = {
        {0, 3, {}},
        {1, 3, {"NewError_vx: a"}},
        {1, 1, {"NewError_vx: a", "NewError_vx: b", "NewError_vx: c"}},
        {2, 3, {"NewError_vx: a", "NewError_vx: More warnings of the form: b"}},
        {3, 3, {"NewError_vx: a", "NewError_vx: b", "NewError_vx: c"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.mode);
        TestEnviron env;
        Shown shown;
        shown.answer = row.answer;
        SetMessageHandler_vx(env, &Shown::Handler, &shown);
        const int before = SetRepeatMode_vx(env, row.mode);
        report_vx* first = nullptr;
        for (const char* text : {"a", "b", "c"}) {
            report_vx* record = NewError_vx(env, 5, WARNING_SEVERITY, text);
            if (!first) first = record;
        }
        EXPECT_EQ(shown.texts, row.shown);
        EXPECT_EQ(ErrorDisposition_vx(first), row.mode == 0 ? 0 : row.answer);
        SetRepeatMode_vx(env, before);
    }
}

TEST(ErrorsApiTest, LimitAndAbort)
{
    TestEnviron env;
    Shown shown;
    shown.answer = -4;
    SetMessageHandler_vx(env, &Shown::Handler, &shown);
    SetReportLimit_vx(env, 1);
    report_vx* record = NewError_vx(env, 6, WARNING_SEVERITY, "shown");
    EXPECT_TRUE(ErrorCategory_vx(ABORTED_CONDITION, record));
    EXPECT_EQ(ErrorDisposition_vx(record), 0);
    record = NewError_vx(env, 7, WARNING_SEVERITY, "kept only");
    EXPECT_FALSE(ErrorCategory_vx(ABORTED_CONDITION, record));
    EXPECT_EQ(shown.texts.size(), 1u);
    PrintToMessagesWindow_vx(env, "plain");
    EXPECT_EQ(shown.texts.back(), "plain");
}

TEST(ErrorsApiTest, MessagesInEachFlavor)
{
    TestEnviron env;
    const std::pair<const char*, const char*> rows[] = {{"programming", "NULL passed for net_bn"},
                                                        {"interface", "NULL passed for Bayes net"},
                                                        {"automation", "NULL passed for BNet"},
                                                        {"managed", "NULL passed for net_bn"}};
    for (const auto& [flavor, message] : rows) {
        SetMessageFlavor_vx(env, flavor);
        EXPECT_EQ(GetNetName_bn(nullptr), nullptr);
        EXPECT_EQ(env.Taken(), 5104);
        EXPECT_EQ(env.Message(), message);
    }
}

}  // namespace
