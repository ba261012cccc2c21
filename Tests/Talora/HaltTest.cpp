// Every long job with the halt flag set before it begins: it ends with a record or with what it has, nothing
// is left half done, and the same job then gives what it gives on a net where nothing was halted.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "Support/TestEnviron.h"

namespace {

constexpr int kNodes = 7;

// A net whose nodes have up to two parents each, a finding, and what jobs need besides.
struct Work {
    explicit Work(environ_vx* e)
        : env(e), net(NewNet_bn("Work", e)), out(NewMemoryStream_vx("out.cas", e, nullptr))
    {
        for (int i = 0; i < kNodes; ++i) {
            const int num_states = 2 + i % 2;
            nodes.push_back(NewNode_bn(("N" + std::to_string(i)).c_str(), num_states, net));
            for (int j = std::max(0, i - 2); j < i; ++j) AddLink_bn(nodes[size_t(j)], nodes[size_t(i)]);
            std::vector<prob_bn> table(size_t(SizeNodeTable_bn(nodes.back())));
            for (size_t at = 0; at < table.size(); at += size_t(num_states)) {
                table[at] = 1.0f / float(at + 3);
                for (int s = 1; s < num_states; ++s)
                    table[at + size_t(s)] = (1 - table[at]) / float(num_states - 1);
            }
            SetNodeTable_bn(nodes.back(), table.data(), int64_t(table.size()));
        }
        EnterFinding_bn(nodes.back(), 1);
        all = GetNetNodes2_bn(net, nullptr);
        SetNetRandomGen_bn(net, NewRandomGenerator_vx("7", env, nullptr));
    }
    ~Work()
    {
        DeleteNet_bn(net);
        DeleteStream_vx(out);
    }
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

    nodelist_bn* List(std::vector<int> which)
    {
        nodelist_bn* list = NewNodeList2_bn(0, net);
        for (int i : which) AddNodeToList_bn(nodes[size_t(i)], list, -1);
        return list;
    }
    caseset_cs* Cases()
    {
        std::string text = "N0\tN1\tN2\tN3\n";
        for (int k = 0; k < 40; ++k)
            text += "#" + std::to_string(k % 2) + "\t" + (k % 5 ? "#" + std::to_string(k % 3) : "*") + "\t#" +
                    std::to_string(k / 3 % 2) + "\t*\n";
        caseset_cs* cases = NewCaseset_cs("c", env);
        AddFileToCaseset_cs(cases, NewStreamOf(env, "in.cas", text), 1, nullptr);
        return cases;
    }
    double Learn(int method)
    {
        LearnCPTs_bn(NewLearner_bn(method, env), List({0, 1, 2}), Cases(), 1);
        double sum = 0;
        const state_bn parents[] = {1, 1};
        for (int i : {0, 1, 2})
            if (const prob_bn* row = GetNodeProbs_bn(nodes[size_t(i)], parents)) sum += (i + 1) * row[0];
        return sum;
    }
    double Length()
    {
        int64_t length = -1;
        GetStreamContents_vx(out, &length);
        return double(length);
    }
    // A vector's first entry, -1 for none.
    static double First(const prob_bn* vector) { return vector ? vector[0] : -1; }

    environ_vx* env;
    net_bn* net;
    stream_vx* out;
    std::vector<node_bn*> nodes;
    const nodelist_bn* all;
};

struct Job {
    const char* label;
    double (*run)(Work& w);  // what came of it
};

const Job kJobs[] = {
    {"compile", [](Work& w) { return CompileNet_bn(w.net), double(GetNetNumCliques_bn(w.net)); }},
    {"optimise",
     [](Work& w) { return OptimizeNetElimOrder_bn(w.net, 0.01, nullptr), GetNetElimCost_bn(w.net); }},
    {"update", [](Work& w) { return CompileNet_bn(w.net), Work::First(GetNodeBeliefs_bn(w.nodes[0])); }},
    {"probability of findings", [](Work& w) { return CompileNet_bn(w.net), FindingsProbability_bn(w.net); }},
    {"query one", [](Work& w) { return Work::First(QueryBeliefs_bn(w.List({0}), nullptr)); }},
    {"query four",
     [](Work& w) {
         return Work::First(QueryBeliefs_bn(w.List({0, 1, 2, 3}), nullptr));
     }},
    {"second configuration",
     [](Work& w) {
         state_bn setting[kNodes];
         return MostProbableConfig_bn(w.net, setting, 1);
     }},
    {"third setting",
     [](Work& w) {
         state_bn setting[2];
         return MostProbableSetting_bn(w.List({1, 3}), setting, 2);
     }},
    {"most probable mode",
     [](Work& w) {
         CompileNet_bn(w.net), SetNetMostProbable_bn(w.net, 1);
         const char* report = ReportMostProbable_bn(w.net);
         return report ? double(strlen(report)) : -1;
     }},
    {"sensitivity",
     [](Work& w) {
         CompileNet_bn(w.net);
         return GetMutualInfo_bn(NewSensvToFinding_bn(w.nodes[0], w.all, ENTROPY_SENSV), w.nodes[3]);
     }},
    {"learn by counting", [](Work& w) { return w.Learn(1); }},
    {"learn by expectation", [](Work& w) { return w.Learn(3); }},
    {"learn by gradient", [](Work& w) { return w.Learn(4); }},
    {"test",
     [](Work& w) {
         CompileNet_bn(w.net);
         tester_bn* tester = NewNetTester_bn(w.List({2}), w.List({}), -1);
         TestWithCaseset_bn(tester, w.Cases());
         return GetTestLogLoss_bn(tester, w.nodes[2]);
     }},
    {"beliefs of cases", [](Work& w) { return WriteCaseBeliefs_bn(w.Cases(), w.List({3}), w.out, nullptr); }},
    {"random case",
     [](Work& w) {
         return double(GenerateRandomCase_bn(w.List({0, 1}), FORWARD_SAMPLING, 100));
     }},
    {"random case of the tree",
     [](Work& w) {
         return CompileNet_bn(w.net), double(GenerateRandomCase_bn(w.List({0, 1}), TREE_SAMPLING, 100));
     }},
    {"random cases",
     [](Work& w) { return WriteRandomCases_bn(w.all, w.out, 500, FORWARD_SAMPLING, 100, 10); }},
    {"every case",
     [](Work& w) {
         return CompileNet_bn(w.net), WriteEveryCase_bn(w.List({0, 1, 2}), w.out);
     }},
    {"count cases", [](Work& w) { return double(CountCasesetCases_cs(w.Cases(), nullptr)); }},
    {"write cases", [](Work& w) { return WriteCaseset_cs(w.Cases(), w.out, nullptr), w.Length(); }},
    {"write the net", [](Work& w) { return WriteNet_bn(w.net, w.out), w.Length(); }},
    {"read a net",
     [](Work& w) {
         const char* const text =
             "// ~->[DNET-1]->~\nbnet n {\nAutoCompile = TRUE;\nnode a {numstates = 2;};\n};\n";
         net_bn* net = ReadNet_bn(NewStreamOf(w.env, "in.dne", text), NO_WINDOW);
         const double compiled = net ? IsNetCompiled_bn(net) : -1;
         DeleteNet_bn(net);
         return compiled;
     }},
    {"equation",
     [](Work& w) {
         SetNodeEquation_bn(w.nodes[1], "P (N1 | N0) = N1 == 0 ? 0.25 : 0.5");
         EquationToTable_bn(w.nodes[1], 100, 0, 0);
         const state_bn parent[] = {0};
         return Work::First(GetNodeProbs_bn(w.nodes[1], parent));
     }},
};

TEST(HaltTest, JobsThatWereHaltedCanBeDoneAgain)
{
    TestEnviron env;
    const checking_vx level = ArgumentChecking_vx(CHECK_OBJECTS, env);
    for (const Job& job : kJobs) {
        SCOPED_TRACE(job.label);
        double expected = 0;
        {
            Work fresh(env);
            env.Taken();
            expected = job.run(fresh);
            EXPECT_EQ(env.Taken(), 0) << env.Message();
        }
        Work work(env);
        env.Taken();
        SetHaltFlag_vx(env, 1);
        job.run(work);
        SetHaltFlag_vx(env, 0);
        EXPECT_EQ(env.Taken(INTERNAL_SEVERITY), 0) << env.Message();
        GetNetName_bn(work.net);  // checks the whole of it
        EXPECT_EQ(env.Taken(), 0) << env.Message();
        EXPECT_EQ(job.run(work), expected);
        EXPECT_EQ(env.Taken(), 0) << env.Message();
    }
    ArgumentChecking_vx(level, env);
}

// However many are asked for: minutes of samples of one row are cut short.
TEST(HaltTest, ARowIsMadeOfTheSamplesThatThereAre)
{
    TestEnviron env;
    net_bn* net = NewNet_bn("n", env);
    const level_bn thresholds[] = {0, 2};
    node_bn* above = NewNode_bn("a", 0, net);
    SetNodeLevels_bn(above, 1, thresholds);
    const state_bn row[] = {0};
    for (const char* equation : {"x (a) = a > 1.5", "P (x | a) = x ? a / 8 : 1 - a / 8"}) {
        SCOPED_TRACE(equation);
        node_bn* x = NewNode_bn("x", 2, net);
        SetNodeStateNames_bn(x, "false,true");
        AddLink_bn(above, x);
        SetNodeEquation_bn(x, equation);
        SetHaltFlag_vx(env, 1);
        EquationToTable_bn(x, 1 << 30, 1, 0);
        SetHaltFlag_vx(env, 0);
        const double count = GetNodeExperience_bn(x, row);
        EXPECT_GT(count, 10000);
        EXPECT_LT(count, 100000);
        const prob_bn* probs = GetNodeProbs_bn(x, row);
        ASSERT_NE(probs, nullptr);
        EXPECT_NEAR(probs[0], equation[0] == 'x' ? 0.75 : 0.875, 0.02);
        DeleteNode_bn(x);
    }
    DeleteNet_bn(net);
}

}  // namespace
