#include "Basic/Error.h"

#include <gtest/gtest.h>

#include <clocale>
#include <thread>

#include "Basic/Environ.h"
#include "Basic/Markup.h"
#include "Basic/Memory.h"
#include "Basic/MultiThread.h"

using namespace talora;

namespace {

class ErrorTest : public testing::Test {
protected:
    void SetUp() override { Clear(); }
    void TearDown() override { Clear(); }
    static void Clear()
    {
        ClearReports(nullptr, INTERNAL_SEV);
        ForgetWarningCounts();
    }
};

TEST_F(ErrorTest, MarkupInTheTermsOfEachFlavor)
{
    struct Row {
        const char* text;
        const char* words[4];  // interface, programming, automation, managed
    };
    const Row rows[] = {
        {"a >-Bnet.", {"a Bayes net.", "a net_bn.", "a BNet.", "a net_bn."}},
        {">-Bnodes", {"nodes", "nodelist_bn", "BNodes", "nodelist_bn"}},
        {">-bool", {"boolean", "bool_vx", "Boolean", "bool"}},
        {"a>-cr-b", {"a\nb", "ab", "ab", "ab"}},
        {">-CPTable-s", {"CPT tables", "CPTables", "CPTables", "CPTables"}},
        {">-nosuchword x", {"nosuchword x", "nosuchword x", "nosuchword x", "nosuchword x"}},
        {"1>-2, 3 >-", {"12, 3 ", "12, 3 ", "12, 3 ", "12, 3 "}},
        {">-NewNet_bn", {"NewNet_bn", "NewNet_bn", "Application.NewBNet", "NewNet_bn"}},
        {">-SetCaseFileDelimChar_vx",
         {"SetCaseFileDelimChar_vx", "SetCaseFileDelimChar_vx", "Application.CaseFileDelimiter",
          "SetCaseFileDelimChar_vx"}},
        {">-GetError_vx", {"GetError_vx", "GetError_vx", "[that retrieves error report]", "GetError_vx"}},
    };
    for (const Row& row : rows)
        for (int flavor = INTERFACE_FLAVOR; flavor <= MANAGED_FLAVOR; ++flavor) {
            EXPECT_EQ(ExpandMarkupIn(Flavor(flavor), row.text), row.words[flavor]) << row.text;
            char cut[6];
            ExpandMarkupInto(Flavor(flavor), row.text, cut, sizeof cut);
            EXPECT_EQ(cut, std::string(row.words[flavor]).substr(0, 5));
        }
}

// What the compiler takes and refuses at a call that raises a message.
TEST_F(ErrorTest, ArgumentsFitTheText)
{
    EXPECT_TRUE(FitsFormat<>("100 %% of it"));
    EXPECT_TRUE((FitsFormat<int, const char*, int, double, char>("%d of '%.40s', %.*f, %c")));
    EXPECT_FALSE((FitsFormat<int, const char*, double, char>("%d of '%.40s', %.*f, %c")));
    EXPECT_TRUE((FitsFormat<int64_t, size_t, long long, unsigned>("%ld %zu %lld %04X")));
    EXPECT_FALSE(FitsFormat<>("%d"));
    EXPECT_FALSE(FitsFormat<int>("none"));
    EXPECT_FALSE(FitsFormat<int>("%s"));
    EXPECT_FALSE(FitsFormat<const char*>("%d"));
    EXPECT_FALSE(FitsFormat<int64_t>("%d"));
    EXPECT_FALSE(FitsFormat<std::string>("%s"));
    EXPECT_FALSE(FitsFormat<int>("%"));
}

TEST_F(ErrorTest, ArgumentsNeverActAsMarkupOrFormat)
{
    EXPECT_EQ(
        Report({.severity = WARNING_SEV, .number = 9001}, "title '%s' of >-Bnet", ">-Bnet %n%s")->message,
        "title '>-Bnet %n%s' of net_bn");
}

TEST_F(ErrorTest, LongMessagesEndWithAWholeCharacter)
{
    for (int lead = 0; lead < 4; ++lead) {
        std::string text(lead, 'x');
        while (text.size() < 600) text += "\xF0\x9F\x98\x80";
        const std::string& message =
            Report({.severity = NOTICE_SEV, .number = 9002}, "%s", text.c_str())->message;
        EXPECT_LE(message.size(), 511u);
        EXPECT_GT(message.size(), 507u);
        EXPECT_EQ((message.size() - lead) % 4, 0u);
    }
}

TEST_F(ErrorTest, NumbersInMessagesIgnoreTheLocale)
{
    const std::string before = setlocale(LC_ALL, nullptr);
    setlocale(LC_ALL, "de_DE.UTF-8");
    EXPECT_EQ(Report({.severity = NOTICE_SEV, .number = 9003}, "%g", 1.5)->message, "1.5");
    setlocale(LC_ALL, before.c_str());
}

TEST_F(ErrorTest, PlacesEndTheMessage)
{
    const FilePlace place = {
        .file = "a.dne", .position = 7, .context = ", while reading field `x` of node 'A'"};
    const report_vx* record =
        Report({.severity = WARNING_SEV, .number = 9004, .place = place}, "bad %s", "thing");
    EXPECT_EQ(record->message, "bad thing, on line 7, in file 'a.dne', while reading field `x` of node 'A'");
    EXPECT_EQ(record->file, "a.dne");
    EXPECT_EQ(record->position, 7);
    EXPECT_TRUE(HasCondition(*record, FILE_CND));
}

TEST_F(ErrorTest, AFloodOfOneFormIsStoredOnce)
{
    for (int i = 0; i < 1000; ++i) Report({.severity = WARNING_SEV, .number = 9005}, "unknown field %d", i);
    Report({.severity = WARNING_SEV, .number = 9006}, "something else");
    EXPECT_EQ(CountReports(), kMaxRepeatedWarnings + 2);
    const report_vx* last = FindReport(nullptr, NULL_SEV, 9005, nullptr);
    EXPECT_EQ(last->message,
              "More warnings of the form: unknown field " + std::to_string(kMaxRepeatedWarnings));
}

TEST_F(ErrorTest, TheOldestBelowErrorGoFirst)
{
    Report({.severity = ERROR_SEV, .number = 9010}, "kept");
    for (int i = 0; i < kMaxRecordsPerThread + 10; ++i)
        Report({.severity = NOTICE_SEV, .number = 9011}, "%d", i);
    EXPECT_EQ(CountReports(), kMaxRecordsPerThread);
    EXPECT_NE(FindReport(nullptr, NULL_SEV, 9010, nullptr), nullptr);
    int told = 0;
    for (const report_vx* r = FindReport(nullptr, NULL_SEV, 5623, nullptr); r;
         r = FindReport(nullptr, NULL_SEV, 5623, r))
        ++told;
    EXPECT_EQ(told, 1);
    for (int i = 0; i < kMaxRecordsPerThread + 10; ++i) Report({.number = 9012}, "%d", i);
    EXPECT_EQ(CountReports(), kMaxRecordsPerThread);
    EXPECT_EQ(FindReport(nullptr, NULL_SEV, 9010, nullptr), nullptr) << "when all are errors the oldest go";
    EXPECT_NE(FindReport(nullptr, NULL_SEV, 5623, nullptr), nullptr) << "but not what tells of it";
}

TEST_F(ErrorTest, ThreadsDoNotSeeOneAnother)
{
    report_vx* mine = Report({.number = 9020}, "mine");
    std::thread([&] {
        EXPECT_EQ(FindReport(nullptr, NULL_SEV, 0, nullptr), nullptr);
        EXPECT_EQ(FindReport(nullptr, NULL_SEV, 0, mine), nullptr);
        ClearReport(mine);
        Report({.number = 9021}, "theirs, left behind");
    }).join();
    EXPECT_EQ(FindReport(nullptr, NULL_SEV, 0, nullptr), mine);
    EXPECT_EQ(FindReport(nullptr, NULL_SEV, 0, mine), nullptr);
}

TEST_F(ErrorTest, OutOfMemoryIsOneStaticRecord)
{
    const auto fail = [](const char* text) {
        try {
            FailOutOfMemory("for %s %g (see >-LimitMemoryUsage_vx)", text, 0.5);
        } catch (const OutOfMemory& out) {
            return ReportOutOfMemory(out.message);
        }
    };
    Report({.number = 9030}, "between");
    report_vx* record = fail("this");
    EXPECT_TRUE(record->header.Tag() & kStaticFlag);
    EXPECT_STREQ(MessageOf(*record), "not enough memory for this 0.5 (see LimitMemoryUsage_vx)");
    EXPECT_TRUE(HasCondition(*record, OUT_OF_MEMORY_CND));
    EXPECT_EQ(fail("that"), record);
    EXPECT_EQ(CountReports(), 2);
    ClearReport(record);
    EXPECT_FALSE(IsLive(record, ERRLOG_TYPE));
    EXPECT_EQ(CountReports(), 1);
}

TEST_F(ErrorTest, FailUnwindsWithItsRecord)
{
    ThisThread().failed = false;
    try {
        throw Unwind{Report({.number = 9040, .conditions = INCONSISTENT_FINDING_CND}, "text")};
    } catch (const Unwind& unwind) {
        EXPECT_EQ(unwind.record->number, -9040);
        EXPECT_EQ(unwind.record->severity, ERROR_SEV);
    }
    EXPECT_TRUE(ThisThread().failed);
    EXPECT_THROW(TALORA_CHECK(1 + 1 == 3), Unwind);
    const report_vx* record = FindReport(nullptr, INTERNAL_SEV, 0, nullptr);
    EXPECT_NE(record->message.find("1 + 1 == 3 (ErrorTest.cpp, line "), std::string::npos) << record->message;
}

TEST_F(ErrorTest, ConditionsByFlagAndByNumber)
{
    report_vx* record = Report({.number = 3302}, "x");
    EXPECT_TRUE(HasCondition(*record, INCONSISTENT_FINDING_CND));
    EXPECT_FALSE(HasCondition(*record, FILE_CND));
    EXPECT_FALSE(HasCondition(*Report({.number = 3304}, "x"), INCONSISTENT_FINDING_CND));
    EXPECT_TRUE(HasCondition(*Report({.number = 1, .conditions = INCONSISTENT_FINDING_CND}, "x"),
                             INCONSISTENT_FINDING_CND));
}

TEST_F(ErrorTest, PrintedByVerbosity)
{
    ThisThread().function = "CompileNet_bn";
    const FilePlace place = {.file = "a.dne", .position = 7};
    report_vx* record = Report({.severity = WARNING_SEV,
                                .number = 12,
                                .conditions = ABORTED_CND,
                                .place = place,
                                .fix = PATCHED_ERR},
                               "text");
    ThisThread().function = nullptr;
    Report({.number = 13, .parent = record}, "inner");
    const std::string t = std::to_string(record->thread_id);
    const std::string message = ": CompileNet_bn: text, on line 7, in file 'a.dne'.";
    const std::string start = "warning    12 - t " + t, where = " in file 'a.dne', position 7";
    EXPECT_EQ(PrintReport(*record, 0), start + message + "\n");
    EXPECT_EQ(record->disposition, PRINTED_ERR);
    EXPECT_EQ(PrintReport(*record, 1), start + where + message + "\n");
    const std::string reason = "  reason 0xa0, printed to Messages window, was patched";
    EXPECT_EQ(PrintReport(*record, 2), start + where + message + reason + "\n");
    EXPECT_EQ(PrintReport(*record, 3), start + where + message + reason + "\n\n");
    const std::string deep = PrintReport(*record, 4);
    EXPECT_NE(deep.find("\n--- Sub Errors ------------------\nerror    13 - t " + t + ": inner."),
              std::string::npos)
        << deep;
    EXPECT_NE(deep.find("---------------------------------\n"), std::string::npos);

    Report({.number = 14}, "second");
    EXPECT_EQ(ListReports(nullptr, 2, 1), start + where + message + reason + "\n...\n\n");
    EXPECT_EQ(ListReports(nullptr, 0, 9), start + message + "\nerror    14 - t " + t + ": second.\n");
}

TEST_F(ErrorTest, SubErrorsGoWithTheirRecord)
{
    report_vx* top = Report({.number = 1}, "top");
    report_vx* sub = Report({.number = 2, .parent = top}, "sub");
    report_vx* deeper = Report({.number = 3, .parent = sub}, "of the same record");
    EXPECT_EQ(CountReports(), 1);
    EXPECT_EQ(sub->newer, deeper);
    ClearReport(sub);
    EXPECT_EQ(top->first_sub, deeper);
    ClearReport(top);
    EXPECT_FALSE(IsLive(deeper, ERRLOG_TYPE));
}

TEST_F(ErrorTest, MemoryIsCountedAgainstTheLimit)
{
    const double limit = MemoryLimit();
    const int64_t before = MemoryInUse();
    {
        TableVector<float> table(1000);
        EXPECT_EQ(MemoryInUse() - before, 4000);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(table.data()) % kTableAlignment, 0u);
        SetMemoryLimit(double(MemoryInUse()) + 1000);
        EXPECT_THROW(TableVector<float>(1000), std::bad_alloc);
        EXPECT_THROW(CheckMemory(1001, "to build table"), OutOfMemory);
        CheckMemory(1000, "to build table");
        EXPECT_EQ(MemoryInUse() - before, 4000) << "a refused block is not counted";
    }
    SetMemoryLimit(limit);
    EXPECT_EQ(MemoryInUse(), before);
}

}  // namespace
