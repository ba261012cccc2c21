// After an error the net is what it was, with undo off as with it on; whatever handlers and callers do.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Support/TestEnviron.h"
#include "Support/Texts.h"

namespace {

stream_vx* FileOf(environ_vx* env, const char* name, const std::string& text)
{
    stream_vx* stream = NewMemoryStream_vx(name, env, nullptr);
    SetStreamContents_vx(stream, text.data(), int64_t(text.size()));
    return stream;
}

nodelist_bn* ListOf(const net_bn* net, const std::vector<node_bn*>& nodes)
{
    nodelist_bn* list = NewNodeList2_bn(int(nodes.size()), net);
    for (size_t i = 0; i < nodes.size(); ++i) SetNthNode_bn(list, int(i), nodes[i]);
    return list;
}

// a -> b, where b is as a; no experience.
struct Pair {
    explicit Pair(environ_vx* env)
    {
        net = NewNet_bn("pair", env);
        a = NewNode_bn("a", 2, net);
        b = NewNode_bn("b", 2, net);
        for (node_bn* node : {a, b}) SetNodeStateNames_bn(node, "yes, no");
        AddLink_bn(a, b);
        const prob_bn even[] = {0.5f, 0.5f}, first[] = {1, 0}, second[] = {0, 1};
        const state_bn rows[] = {0, 1};
        SetNodeProbs_bn(a, nullptr, even);
        SetNodeProbs_bn(b, &rows[0], first);
        SetNodeProbs_bn(b, &rows[1], second);
        both = ListOf(net, {a, b});
    }
    net_bn* net;
    node_bn *a, *b;
    nodelist_bn* both;
};

constexpr const char* kCaseHeader = "// ~->[CASE-1]->~\n\n";

struct FailingCall {
    const char* label;
    int error;
    void (*prepare)(Pair& pair);
    void (*call)(environ_vx* env, Pair& pair);
};

const FailingCall kFailingCalls[] = {
    {"a case adds nodes, and its line is torn", 6524, nullptr,
     [](environ_vx* env, Pair& pair) {
         double position = FIRST_CASE_POSN;
         stream_vx* file = FileOf(env, "new.cas", std::string(kCaseHeader) + "a b colour\nyes yes red\nno\n");
         ReadNetFindings2_bn(&position, file, QUIETLY_ADD_NEW, pair.both, nullptr, nullptr);
     }},
    {"an impossible case, while the net updates", 3305,
     [](Pair& pair) {
         CompileNet_bn(pair.net);
         SetNetAutoUpdate_bn(pair.net, BELIEF_UPDATE);
     },
     [](environ_vx* env, Pair& pair) {
         double position = FIRST_CASE_POSN;
         stream_vx* file = FileOf(env, "impossible.cas", std::string(kCaseHeader) + "a b\nyes no\n");
         ReadNetFindings2_bn(&position, file, DONT_ADD_NEW, pair.both, nullptr, nullptr);
     }},
    {"more is unlearned than was learned, after states were added", 6585, nullptr,
     [](environ_vx* env, Pair& pair) {
         SetQuestionHandler_vx(
             env, [](environ_vx*, const char*, const char*, const char*, void*) { return 0; }, nullptr);
         stream_vx* file = FileOf(env, "states.cas", std::string(kCaseHeader) + "a b\nmaybe yes\n");
         ReviseCPTsByCaseFile_bn(pair.both, file, -1);
         SetQuestionHandler_vx(env, nullptr, nullptr);
     }},
    {"a link to an ancestor", 6101, nullptr, [](environ_vx*, Pair& pair) { AddLink_bn(pair.b, pair.a); }},
};

TEST(TakenBackTest, FailingCallsLeaveTheNetAsItWas)
{
    for (const FailingCall& failing : kFailingCalls)
        for (const bool with_undo : {false, true}) {
            SCOPED_TRACE(std::string(failing.label) + (with_undo ? ", with undo" : ""));
            TestEnviron env;
            Pair pair(env);
            if (with_undo) SetNetNumUndos_bn(pair.net, 10, 0, nullptr);
            if (failing.prepare) failing.prepare(pair);
            const std::string before = TextOf(pair.net);
            const int num_undos = GetNetNthUndo_bn(pair.net, 0) != nullptr;
            failing.call(env, pair);
            EXPECT_EQ(env.Taken(), failing.error);
            EXPECT_EQ(TextOf(pair.net), before);
            EXPECT_EQ(LengthNodeList_bn(GetNetNodes2_bn(pair.net, nullptr)), 2);
            for (node_bn* node : {pair.a, pair.b}) EXPECT_EQ(GetNodeFinding_bn(node), UNDEF_STATE);
            EXPECT_EQ(GetNetNthUndo_bn(pair.net, 0) != nullptr, num_undos);
        }
}

// Whoever reads on comes to the next case.
TEST(TakenBackTest, ABadCaseIsNotReadForEver)
{
    struct {
        const char* label;
        void (*prepare)(Pair& pair);
        int add;
        std::vector<int> errors;
        const char* lines;
        bool adds_node;
    } const files[] = {
        {"impossible ones",
         [](Pair& pair) {
             CompileNet_bn(pair.net);
             SetNetAutoUpdate_bn(pair.net, BELIEF_UPDATE);
         },
         DONT_ADD_NEW,
         {3305, 3305, 0},
         "a b\nyes no\nyes no\nno no\n",
         false},
        {"torn ones, which tell nothing of new nodes",
         [](Pair&) {},
         QUIETLY_ADD_NEW,
         {6524, 6524, 6524, 0},
         "a b c\nyes no\nyes\nno no 1\n",
         false},
        {"a finding that the node can't have; the new node still comes",
         [](Pair& pair) { SetNodeKind_bn(pair.b, UTILITY_NODE); },
         QUIETLY_ADD_NEW,
         {6034, 0},
         "a b c\nyes yes 1\nno * 1\n",
         true},
    };
    for (const auto& given : files) {
        SCOPED_TRACE(given.label);
        TestEnviron env;
        Pair pair(env);
        given.prepare(pair);
        stream_vx* file = FileOf(env, "c.cas", std::string(kCaseHeader) + given.lines);
        double position = FIRST_CASE_POSN;
        for (const int expected : given.errors) {
            ReadNetFindings2_bn(&position, file, given.add, pair.both, nullptr, nullptr);
            EXPECT_EQ(env.Taken(), expected);
            position = NEXT_CASE_POSN;
        }
        EXPECT_EQ(GetNodeFinding_bn(pair.a), 1);
        EXPECT_EQ(GetNodeNamed_bn("c", pair.net) != nullptr, given.adds_node);
        ReadNetFindings2_bn(&position, file, given.add, pair.both, nullptr, nullptr);
        EXPECT_EQ(position, NO_CASE_POSN);
    }
}

TEST(TakenBackTest, ExceptionsOfHandlersGoNoFurther)
{
    TestEnviron env;
    Pair pair(env);
    SetMessageHandler_vx(
        env, [](environ_vx*, const char*, const report_vx*, void*) -> int { throw std::runtime_error("m"); },
        nullptr);
    SetQuestionHandler_vx(
        env,
        [](environ_vx*, const char*, const char*, const char*, void*) -> int {
            throw std::runtime_error("q");
        },
        nullptr);
    SetProgressHandler_vx(
        env, [](environ_vx*, const char*, double, void*) -> bool_vx { throw 5; }, nullptr);
    SetPasswordHandler_vx(
        env, [](environ_vx*, const char*, char*, int, void*) -> bool_vx { throw std::bad_alloc(); }, nullptr);

    const std::string before = TextOf(pair.net);
    NewError_vx(env, 10, WARNING_SEVERITY, "shown");
    EXPECT_NE(GetError_vx(env, WARNING_SEVERITY, 7301, nullptr), nullptr);
    EXPECT_EQ(env.Taken(), 0);
    double position = FIRST_CASE_POSN;
    stream_vx* file = FileOf(env, "q.cas", std::string(kCaseHeader) + "a new\nyes 1\n");
    EXPECT_FALSE(ReadNetFindings2_bn(&position, file, QUERY_ADD_NEW, pair.both, nullptr, nullptr));
    EXPECT_EQ(env.Taken(), 7300);
    WriteRandomCases_bn(pair.both, file, 1e9, FORWARD_SAMPLING, 100, 0);
    EXPECT_EQ(env.Taken(), 7300);
    EXPECT_EQ(TextOf(pair.net), before);
    SetMessageHandler_vx(env, nullptr, nullptr);
    SetProgressHandler_vx(env, nullptr, nullptr);
}

TEST(TakenBackTest, TheLeastNumberOfARecord)
{
    TestEnviron env;
    const report_vx* error = NewError_vx(env, INT_MIN, ERROR_SEVERITY, "least");
    EXPECT_EQ(ErrorNumber_vx(error), INT_MIN);
    EXPECT_NE(std::string(ListErrors_vx(env, 4, 10)).find("2147483648"), std::string::npos);
    EXPECT_FALSE(ErrorCategory_vx(FINDING_CONDITION, error));
    ClearErrors_vx(env, INTERNAL_SEVERITY);
}

// Another thread lists and shows its records while their environment closes.
TEST(TakenBackTest, RecordsOutliveTheirEnvironmentWhereTheyAreListed)
{
    TestEnviron outer;
    for (int i = 0; i < 20; ++i) {
        environ_vx* const env = NewTaloraEnviron_vx("short", nullptr);
        InitTalora2_bn(env, nullptr);
        std::atomic<int> phase{0};
        std::thread other([&] {
            std::vector<const report_vx*> records;
            for (int r = 0; r < 200; ++r)
                records.push_back(NewError_vx(env, 10, WARNING_SEVERITY, "one of many"));
            phase = 1;
            for (int r = 0; r < 20; ++r) ListErrors_vx(nullptr, 4, 1000);
            while (phase < 2) std::this_thread::yield();
            EXPECT_EQ(ErrorMessage_vx(records[0]), nullptr) << "is recognised as deleted";
            ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
        });
        while (phase < 1) std::this_thread::yield();
        CloseTalora_bn(env, nullptr);
        phase = 2;
        other.join();
    }
}

TEST(TakenBackTest, QueriesOfAnUncompiledNetInMostProbableMode)
{
    TestEnviron env;
    Pair pair(env);
    SetNetMostProbable_bn(pair.net, 1);
    SetNetAutoUpdate_bn(pair.net, BELIEF_UPDATE);
    EnterFinding_bn(pair.a, 1);
    const prob_bn* beliefs = QueryBeliefs_bn(pair.both, nullptr);
    ASSERT_NE(beliefs, nullptr);
    const prob_bn expected[] = {0, 1, 0, 1};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(beliefs[i], expected[i]) << i;
}

// A net whose junction tree would take far too much: every job that needs its tables is refused before it
// takes them.
TEST(TakenBackTest, TablesFarTooLargeAreRefusedByEveryJob)
{
    TestEnviron env;
    net_bn* const net = NewNet_bn("grid", env);
    constexpr int kSide = 36;
    const prob_bn rows[] = {0.6f, 0.4f, 0.3f, 0.7f, 0.2f, 0.8f, 0.55f, 0.45f};
    std::vector<node_bn*> nodes;
    for (int i = 0; i < kSide * kSide; ++i) {
        node_bn* const node = NewNode_bn(("g" + std::to_string(i)).c_str(), 2, net);
        if (i % kSide > 0) AddLink_bn(nodes.back(), node);
        if (i >= kSide) AddLink_bn(nodes[size_t(i - kSide)], node);
        const int num_rows = 1 << LengthNodeList_bn(GetNodeParents_bn(node));
        for (int row = 0; row < num_rows; ++row) {
            const state_bn states[] = {num_rows == 4 ? row / 2 : row, row % 2};
            SetNodeProbs_bn(node, states, rows + 2 * row);
        }
        nodes.push_back(node);
    }
    CompileNet_bn(net);
    env.Taken(WARNING_SEVERITY);
    std::string lines = std::string(kCaseHeader) + "g0 g1\n";
    for (const char* line : {"#0 #1\n", "#1 *\n"}) lines += line;
    caseset_cs* const cases = NewCaseset_cs("few", env);
    AddFileToCaseset_cs(cases, FileOf(env, "few.cas", lines), 1, nullptr);
    nodelist_bn* const last = ListOf(net, {nodes.back()});
    std::vector<state_bn> setting(nodes.size());
    const struct {
        const char* label;
        std::function<void()> run;
    } jobs[] = {
        {"beliefs", [&] { GetNodeBeliefs_bn(nodes.back()); }},
        {"query", [&] { QueryBeliefs_bn(last, nullptr); }},
        {"most probable", [&] { MostProbableConfig_bn(net, setting.data(), 0); }},
        {"random cases", [&] { GenerateRandomCase_bn(last, TREE_SAMPLING, 1); }},
        {"test", [&] { TestWithCaseset_bn(NewNetTester_bn(last, NewNodeList2_bn(0, net), -1), cases); }},
        {"sensitivity",
         [&] { GetMutualInfo_bn(NewSensvToFinding_bn(nodes.back(), last, ENTROPY_SENSV), nodes[0]); }},
        {"learning", [&] { LearnCPTs_bn(NewLearner_bn(3, env), last, cases, 1); }},
    };
    for (const auto& job : jobs) {
        SCOPED_TRACE(job.label);
        const double before = GetMemoryUsage_vx(env);
        job.run();
        env.Taken();
        EXPECT_NE(env.Message().find("because the tables would be vastly too large"), std::string::npos)
            << env.Message();
        EXPECT_LT(GetMemoryUsage_vx(env) - before, 1e8);
    }
}

// ---- Learning ----

struct Rows {
    std::vector<float> probs;
    std::vector<double> experience;
    bool operator==(const Rows&) const = default;
};

Rows RowsOf(const node_bn* node)
{
    Rows rows;
    for (const state_bn parent : {0, 1}) {
        const prob_bn* probs = GetNodeProbs_bn(node, &parent);
        rows.probs.insert(rows.probs.end(), probs, probs + 2);
        rows.experience.push_back(GetNodeExperience_bn(node, &parent));
    }
    return rows;
}

// Whatever is learned can be unlearned in any order, and gives the table back.
TEST(TakenBackTest, UnlearningGivesTheTableBack)
{
    for (const double start : {0.0, 1.0, 10.37, 1e6})
        for (const double degree : {1.0, 0.1, 1.0 / 3, 1000.7, 1e-3}) {
            SCOPED_TRACE(std::to_string(start) + " then " + std::to_string(degree));
            TestEnviron env;
            Pair pair(env);
            const state_bn every[] = {EVERY_STATE};
            const prob_bn row[] = {0.3f, 0.7f};
            SetNodeProbs_bn(pair.b, every, row);
            SetNodeExperience_bn(pair.b, every, start);
            nodelist_bn* const learned = ListOf(pair.net, {pair.b});
            const auto revise = [&](int state, double times) {
                RetractNetFindings_bn(pair.net);
                EnterFinding_bn(pair.a, state);
                EnterFinding_bn(pair.b, state ^ 1);
                ReviseCPTsByFindings_bn(learned, times);
            };
            const Rows before = RowsOf(pair.b);
            for (int i = 0; i < 60; ++i) revise(i % 2, degree * (1 + i % 3));
            for (int i = 60; i-- > 0;) revise(i % 2, -degree * (1 + i % 3));
            EXPECT_EQ(env.Taken(), 0) << env.Message();
            const Rows after = RowsOf(pair.b);
            EXPECT_EQ(after.experience, before.experience);
            if (start > 0) {
                EXPECT_EQ(after.probs, before.probs);
            }
        }
}

TEST(TakenBackTest, DegreesAndWeightsAreBounded)
{
    constexpr double kHuge[] = {1e308, 1e200, -1e150};
    for (const double degree : kHuge)
        for (const int method : {1, 3, 4}) {
            SCOPED_TRACE(std::to_string(method) + " " + std::to_string(degree));
            TestEnviron env;
            Pair pair(env);
            learner_bn* learner = NewLearner_bn(method, env);
            caseset_cs* plain = NewCaseset_cs("plain", env);
            AddFileToCaseset_cs(plain, FileOf(env, "plain.cas", std::string(kCaseHeader) + "a b\nyes yes\n"),
                                1, nullptr);
            LearnCPTs_bn(learner, pair.both, plain, 0);
            const int num_iterations = GetLearnerNumIterations_bn(learner);
            CompileNet_bn(pair.net);  // the order that it finds is a result
            const std::string before = TextOf(pair.net);
            EnterFinding_bn(pair.a, 0);
            EnterFinding_bn(pair.b, 0);
            ReviseCPTsByFindings_bn(pair.both, degree);
            EXPECT_EQ(env.Taken(), 7302);
            stream_vx* file =
                FileOf(env, "heavy.cas", std::string(kCaseHeader) + "NumCases a b\n1e200 yes yes\n");
            caseset_cs* cases = NewCaseset_cs("heavy", env);
            AddFileToCaseset_cs(cases, file, 1, nullptr);
            LearnCPTs_bn(learner, pair.both, cases, 1);
            EXPECT_EQ(env.Taken(), 7302);
            EXPECT_EQ(GetLearnerNumCases_bn(learner), 1) << "what it learned before";
            EXPECT_EQ(GetLearnerNumIterations_bn(learner), num_iterations);
            RetractNetFindings_bn(pair.net);
            EXPECT_EQ(TextOf(pair.net), before);
        }
    // Together they come to more.
    TestEnviron env;
    Pair pair(env);
    SetNodeExperience_bn(pair.a, nullptr, 1e300);
    EnterFinding_bn(pair.a, 0);
    ReviseCPTsByFindings_bn(ListOf(pair.net, {pair.a}), 1);
    EXPECT_EQ(env.Taken(), 7303);
    EXPECT_EQ(GetNodeExperience_bn(pair.a, nullptr), 1e300);
}

}  // namespace
