// Every allocation of every scenario fails, once and from then on: a record or success, nothing lost.
#include <algorithm>
#include <cstdio>
#include <iterator>

#include "Basic/Handle.h"
#include "CountedMemory.h"
#include "FaultTest.h"

namespace faults {
namespace {

constexpr int kOutOfMemory = -5622;
constexpr int kOthers[] = {-3406, -6849, -6407};  // say what the memory was for: compressing, a table

struct Tally {
    int64_t failed = 0;  // allocations
    int64_t runs = 0;
};
Tally tally;

// Compiling finds an order, which is a result rather than an edit.
std::string WithoutOrder(std::string text)
{
    const size_t order = text.find("\tElimOrder");
    if (order != std::string::npos) text.erase(order, text.find('\n', order) + 1 - order);
    return text;
}

// The first lines in which two texts differ.
std::string Difference(const std::string& before, const std::string& after)
{
    if (before == after) return "";
    size_t at = 0;
    while (before[at] == after[at]) ++at;
    const size_t from = at == 0 ? 0 : before.rfind('\n', at - 1) + 1;
    return "was " + before.substr(from, 100) + "\nis " + after.substr(from, 100);
}

class MemoryFaults : public FaultTest {
protected:
    static void SetUpTestSuite() { UseUpPools(); }
    static void TearDownTestSuite()
    {
        printf("%lld allocations failed in %lld runs\n", static_cast<long long>(tally.failed),
               static_cast<long long>(tally.runs));
    }

    // Records of handles are used again only after many others, so the pools grow until then.
    static void UseUpPools()
    {
        World w;
        OpenWorld(w, "");
        nodelist_bn* none = NewNodeList2_bn(0, w.net);
        for (int i = 0; i < 1100; ++i) {
            DeleteNode_bn(NewNode_bn("A", 2, w.net));
            DeleteNodeList_bn(NewNodeList2_bn(1, w.net));
            DeleteNet_bn(NewNet_bn("B", w.env));
            DeleteStream_vx(NewMemoryStream_vx("s", w.env, nullptr));
            DeleteCaseset_cs(NewCaseset_cs("c", w.env));
            DeleteLearner_bn(NewLearner_bn(1, w.env));
            DeleteNetTester_bn(NewNetTester_bn(w.All(), none, -1));
            DeleteSensvToFinding_bn(NewSensvToFinding_bn(w.Node("Rain"), w.All(), ENTROPY_SENSV));
            NewError_vx(w.env, 1, WARNING_SEVERITY, "used up");
            ClearErrors_vx(w.env, INTERNAL_SEVERITY);
            CloseTalora_bn(NewTaloraEnviron_vx("e", nullptr), nullptr);
            ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
        }
        CloseWorld(w);
    }

    void Open(World& w, const Scenario& scenario, bool with_history)
    {
        if (scenario.flags & FILES) Empty();
        w.folder = folder_;
        if (scenario.flags & NO_WORLD) return;
        OpenWorld(w, folder_);
        if (scenario.prepare) scenario.prepare(w);
        if (with_history) SetNetNumUndos_bn(w.net, 20, 0, nullptr);
        EXPECT_TRUE(NoErrors(w.env)) << ErrorMessage_vx(GetError_vx(w.env, ERROR_SEVERITY, 0, nullptr));
        ClearErrors_vx(w.env, INTERNAL_SEVERITY);
    }

    // One record, of the number for it.
    void CheckRecords(const World& w, const Scenario& scenario)
    {
        int errors = 0;
        for (report_vx* e = GetError_vx(w.env, ERROR_SEVERITY, 0, nullptr); e;
             e = GetError_vx(w.env, ERROR_SEVERITY, 0, e)) {
            ++errors;
            if (ErrorNumber_vx(e) != kOutOfMemory && (scenario.flags & FAILS)) continue;
            const bool other = std::find(kOthers, std::end(kOthers), ErrorNumber_vx(e)) != std::end(kOthers);
            EXPECT_TRUE(ErrorNumber_vx(e) == kOutOfMemory || other) << ErrorMessage_vx(e);
            EXPECT_TRUE(ErrorCategory_vx(MEMORY_CONDITION, e));
        }
        EXPECT_EQ(errors, 1);
    }

    // Every object of the environment passes the highest level of checking.
    void CheckConsistent(const World& w)
    {
        const checking_vx before = ArgumentChecking_vx(CHECK_OBJECTS, w.env);
        for (int i = 0; net_bn* net = GetNthNet_bn(i, w.env); ++i) {
            GetNetName_bn(net);
            GetNetElimCost_bn(net);
        }
        ArgumentChecking_vx(before, w.env);
        report_vx* e = GetError_vx(w.env, ERROR_SEVERITY, 0, nullptr);
        EXPECT_EQ(e, nullptr) << (e ? ErrorMessage_vx(e) : "");
        ClearErrors_vx(w.env, INTERNAL_SEVERITY);
    }

    void CheckNet(World& w, const Scenario& scenario, const std::string& before, bool done, bool with_history)
    {
        CheckConsistent(w);
        if (done && scenario.check) {
            EXPECT_TRUE(scenario.check(w));
        }
        if (done && with_history) {
            while (UndoNetLastOper_vx(w.net, -1)) {
            }
        }
        if (!done || with_history) {
            EXPECT_EQ(Difference(before, WithoutOrder(TextOf(w.net))), "");
        }
    }

    // @return whether an allocation failed, so that there may be more to fail
    bool RunOnce(const Scenario& scenario, bool with_history, int64_t n, Repeat repeat)
    {
        World w;
        Open(w, scenario, with_history);
        const std::string before = w.net ? WithoutOrder(TextOf(w.net)) : "";
        FailAllocation(n, repeat);
        const bool done = scenario.act(w);
        const int64_t failed = EndFailing();
        tally.failed += failed;
        ++tally.runs;
        if (!done) CheckRecords(w, scenario);
        EXPECT_TRUE(failed > 0 || done || (scenario.flags & FAILS)) << "fails without a fault";
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
        if (w.net) CheckNet(w, scenario, before, done, with_history);
        CloseWorld(w);
        return failed > 0;
    }

    void Run(const Scenario& scenario, bool with_history, Repeat repeat)
    {
        SCOPED_TRACE(std::string(scenario.label) + (with_history ? ", with history" : "") +
                     (repeat == Repeat::ONCE ? ", once" : ", from then on"));
        for (int i = 0; i < 3; ++i) RunOnce(scenario, with_history, INT64_MAX, repeat);
        // All of them in the long variant; otherwise the first ones and a share of the others.
        const int64_t dense = IsLong() ? INT64_MAX : 200;
        for (int64_t n = 1;; n += n < dense ? 1 : 1 + n / 12) {
            const int64_t blocks = LiveBlocks(), handles = talora::num_live_handles;
            const uint64_t mark = MarkBlocks();
            const bool more = RunOnce(scenario, with_history, n, repeat);
            if (const int64_t left = LiveBlocks() - blocks; left != 0) {
                ADD_FAILURE() << left << " blocks were left behind\n" << DescribeBlocksSince(mark);
            }
            EXPECT_EQ(talora::num_live_handles, handles) << "lost handles";
            if (HasFailure()) {
                ADD_FAILURE() << "with allocation " << n;
                break;
            }
            if (!more) break;
        }
    }
};

class EveryAllocation : public MemoryFaults, public testing::WithParamInterface<Scenario> {};

TEST_P(EveryAllocation, GivesARecordAndLosesNothing)
{
    const Scenario& scenario = GetParam();
    for (const Repeat repeat : {Repeat::ONCE, Repeat::FROM_THEN_ON}) {
        Run(scenario, false, repeat);
        if (scenario.flags & CHANGES) Run(scenario, true, repeat);
    }
}

INSTANTIATE_TEST_SUITE_P(All, EveryAllocation, testing::ValuesIn(AllScenarios()), [](const auto& row) {
    std::string name;
    for (const char c : std::string(row.param.label)) name += isalnum(c) ? c : '_';
    return name;
});

}  // namespace
}  // namespace faults
