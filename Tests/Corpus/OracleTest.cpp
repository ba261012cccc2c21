// Every net of the corpus against independent results in double precision: elimination order, sizes,
// beliefs and the probability of findings, under every kind of findings.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "Talora.h"

namespace {

using nlohmann::json;

std::string CorpusPath(const std::string& name)
{
    const char* corpus = std::getenv("TALORA_CORPUS");
    return corpus ? std::string(corpus) + "/" + name : std::string();
}

// Rounding of float tables; both figures are the product's promise.
constexpr double kBeliefTolerance = 1e-5;
constexpr double kLogProbTolerance = 1e-5;

class OracleTest : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override
    {
        if (!std::getenv("TALORA_CORPUS")) GTEST_SKIP() << "TALORA_CORPUS is not set: corpus not compared";
        env_ = NewTaloraEnviron_vx(nullptr, nullptr);
        ASSERT_GE(InitTalora2_bn(env_, nullptr), 0);
    }
    void TearDown() override
    {
        if (env_) CloseTalora_bn(env_, nullptr);
    }

    json Oracle(const std::string& kind)
    {
        std::ifstream file(CorpusPath("oracles/" + std::string(GetParam()) + "." + kind + ".json"));
        return file ? json::parse(file) : json();
    }

    net_bn* Read(const std::string& path)
    {
        stream_vx* stream = NewFileStream_vx(CorpusPath(path).c_str(), env_, nullptr);
        net_bn* net = ReadNet_bn(stream, NO_VISUAL_INFO);
        DeleteStream_vx(stream);
        if (net == nullptr) ADD_FAILURE() << ListErrors_vx(env_, 1, 5);
        return net;
    }

    environ_vx* env_ = nullptr;
};

node_bn* NodeOf(net_bn* net, const std::string& name)
{
    node_bn* node = GetNodeNamed_bn(name.c_str(), net);
    EXPECT_NE(node, nullptr) << name;
    return node;
}

void EnterAll(net_bn* net, const json& query)
{
    for (const auto& [name, state] : query["findings"].items()) {
        node_bn* node = NodeOf(net, name);
        EnterFinding_bn(node, GetStateNamed_bn(state.get<std::string>().c_str(), node));
    }
    for (const auto& [name, weights] : query["likelihood"].items())
        EnterNodeLikelihood_bn(NodeOf(net, name), weights.get<std::vector<float>>().data());
    for (const auto& [name, states] : query["not"].items())
        for (const auto& state : states) {
            node_bn* node = NodeOf(net, name);
            EnterFindingNot_bn(node, GetStateNamed_bn(state.get<std::string>().c_str(), node));
        }
}

double LargestBeliefError(net_bn* net, const json& beliefs)
{
    double largest = 0;
    for (const auto& [name, expected] : beliefs.items()) {
        const prob_bn* found = GetNodeBeliefs_bn(NodeOf(net, name));
        if (found == nullptr) return INFINITY;
        for (size_t state = 0; state < expected.size(); ++state)
            largest = std::max(largest, std::abs(found[state] - expected[state].get<double>()));
    }
    return largest;
}

TEST_P(OracleTest, BeliefsAndProbability)
{
    const json oracle = Oracle("beliefs");
    net_bn* net = Read("nets/" + std::string(GetParam()) + ".dne");
    ASSERT_NE(net, nullptr);
    SetNetAutoUpdate_bn(net, 0);
    CompileNet_bn(net);
    double belief_error = 0, log_error = 0;
    int num_queries = 0;
    for (const json& query : oracle["queries"]) {
        SCOPED_TRACE(query["id"].get<std::string>());
        RetractNetFindings_bn(net);
        EnterAll(net, query);
        ++num_queries;
        if (query.contains("impossible") && query["impossible"].get<bool>()) {
            EXPECT_EQ(FindingsProbability_bn(net), 0.0);
            EXPECT_NE(GetError_vx(env_, ERROR_SEVERITY, 0, nullptr), nullptr);
            ClearErrors_vx(env_, INTERNAL_SEVERITY);
            continue;
        }
        const double expected = query["log_prob"].get<double>();
        const double found = LogFindingsProbability_bn(net);
        const double error = std::abs(found - expected) / std::max(1.0, std::abs(expected));
        log_error = std::max(log_error, error);
        EXPECT_LE(error, kLogProbTolerance) << found << " against " << expected;
        const double largest = LargestBeliefError(net, query["beliefs"]);
        belief_error = std::max(belief_error, largest);
        EXPECT_LE(largest, kBeliefTolerance);
        if (query.contains("table_size_under_findings")) {
            EXPECT_EQ(SizeCompiledNet_bn(net, 0), query["table_size_under_findings"].get<double>());
        }
        ASSERT_EQ(GetError_vx(env_, ERROR_SEVERITY, 0, nullptr), nullptr) << ListErrors_vx(env_, 1, 5);
    }
    std::printf("    %-12s %3d queries, largest error: beliefs %.1e, log-probability %.1e\n", GetParam(),
                num_queries, belief_error, log_error);
}

// The cliques of a tree as sets of names: they do not depend on how the tree is joined.
std::set<std::set<std::string>> CliquesOf(net_bn* net)
{
    std::set<std::set<std::string>> cliques;
    for (int i = 0; i < GetNetNumCliques_bn(net); ++i) {
        std::set<std::string> members;
        const nodelist_bn* nodes = GetCliqueNodes_bn(net, i);
        for (int k = 0; k < LengthNodeList_bn(nodes); ++k)
            members.insert(GetNodeName_bn(NthNode_bn(nodes, k)));
        cliques.insert(members);
    }
    return cliques;
}

TEST_P(OracleTest, OrderAndSizes)
{
    const json oracle = Oracle("elimination");
    if (oracle.is_null()) GTEST_SKIP() << "no elimination oracle for " << GetParam();
    net_bn* net = Read("nets/" + std::string(GetParam()) + ".dne");
    ASSERT_NE(net, nullptr);
    SetNetAutoUpdate_bn(net, 0);
    CompileNet_bn(net);
    std::vector<std::string> order;
    const nodelist_bn* stored = GetNetElimOrder_bn(net);
    for (int i = 0; i < LengthNodeList_bn(stored); ++i)
        order.push_back(GetNodeName_bn(NthNode_bn(stored, i)));
    EXPECT_EQ(order, oracle["order"].get<std::vector<std::string>>());

    double cliques = 0, with_separators = 0;
    GetCompiledNetSizes_bn(net, &cliques, &with_separators, nullptr);
    EXPECT_EQ(GetNetNumCliques_bn(net), oracle["num_cliques"].get<int>());
    EXPECT_EQ(cliques, oracle["sum_clique_sizes"].get<double>());
    EXPECT_EQ(with_separators, oracle["total_table_size"].get<double>());
    std::set<std::set<std::string>> expected;
    for (const json& clique : oracle["cliques"]) {
        const auto members = clique["members"].get<std::vector<std::string>>();
        expected.insert(std::set<std::string>(members.begin(), members.end()));
    }
    EXPECT_EQ(CliquesOf(net), expected);
    for (const auto& [name, size] : oracle["home_size"].items())
        EXPECT_EQ(GetCliqueSize_bn(net, GetNodeHomeClique_bn(NodeOf(net, name))), size.get<double>()) << name;
    EXPECT_EQ(GetError_vx(env_, WARNING_SEVERITY, 0, nullptr), nullptr) << ListErrors_vx(env_, 1, 5);
}

// The best configuration, the value of the second, and beliefs in the mode that finds the best.
TEST_P(OracleTest, MostProbableConfigurations)
{
    const json oracle = Oracle("mpe");
    net_bn* net = Read("nets/" + std::string(GetParam()) + ".dne");
    ASSERT_NE(net, nullptr);
    SetNetAutoUpdate_bn(net, 0);
    CompileNet_bn(net);
    const nodelist_bn* nodes = GetNetNodes2_bn(net, nullptr);
    std::vector<state_bn> best(size_t(LengthNodeList_bn(nodes)));
    for (const json& query : oracle["queries"]) {
        SCOPED_TRACE(query["id"].get<std::string>());
        SetNetMostProbable_bn(net, 0);
        RetractNetFindings_bn(net);
        EnterAll(net, query);
        const double log_max = query["log_max"], runner_up = query["runner_up_ratio"];
        const double tolerance = kLogProbTolerance * std::max(1.0, std::abs(log_max));
        EXPECT_NEAR(MostProbableConfig_bn(net, best.data(), 0), log_max, tolerance);
        if (query["unique"].get<bool>() && runner_up < 1 - 1e-5)
            for (int i = 0; i < int(best.size()); ++i) {
                const node_bn* node = NthNode_bn(nodes, i);
                EXPECT_EQ(GetNodeStateName_bn(node, best[size_t(i)]), query["config"][GetNodeName_bn(node)]);
            }
        SetNetMostProbable_bn(net, 1);
        double error = 0;
        for (const auto& [name, expected] : query["max_beliefs"].items()) {
            const prob_bn* beliefs = GetNodeBeliefs_bn(NodeOf(net, name));
            ASSERT_NE(beliefs, nullptr);
            for (size_t s = 0; s < expected.size(); ++s)
                error = std::max(error, std::abs(double(beliefs[s]) - expected[s].get<double>()));
        }
        EXPECT_LE(error, kBeliefTolerance);
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, OracleTest,
                         testing::Values("asia", "cancer", "earthquake", "survey", "sachs", "child",
                                         "insurance", "alarm", "hailfinder", "win95pts", "hepar2", "andes",
                                         "pathfinder", "water", "pigs", "munin1"),
                         [](const auto& row) { return std::string(row.param); });

// State values: means and deviations of discrete nodes with levels and of discretised nodes.
TEST(ExpectedValueOracleTest, MeansAndDeviations)
{
    if (!std::getenv("TALORA_CORPUS")) GTEST_SKIP() << "TALORA_CORPUS is not set: corpus not compared";
    environ_vx* env = NewTaloraEnviron_vx(nullptr, nullptr);
    ASSERT_GE(InitTalora2_bn(env, nullptr), 0);
    std::ifstream file(CorpusPath("oracles/alarm_values.json"));
    const json oracle = json::parse(file);
    stream_vx* stream = NewFileStream_vx(CorpusPath("nets/forms/alarm_values.dne").c_str(), env, nullptr);
    net_bn* net = ReadNet_bn(stream, NO_VISUAL_INFO);
    ASSERT_NE(net, nullptr) << ListErrors_vx(env, 1, 5);
    CompileNet_bn(net);
    for (const auto& [name, values] : oracle["state_values"].items())
        for (size_t state = 0; state < values.size(); ++state)
            EXPECT_NEAR(GetNodeStateValue_bn(NodeOf(net, name), int(state)), values[state].get<double>(),
                        1e-9)
                << name;
    for (const json& query : oracle["expected"]) {
        RetractNetFindings_bn(net);
        for (const auto& [name, state] : query["findings"].items()) {
            node_bn* node = NodeOf(net, name);
            EnterFinding_bn(node, GetStateNamed_bn(state.get<std::string>().c_str(), node));
        }
        for (const auto& [name, pair] : query["mean_and_deviation"].items()) {
            double deviation = 0;
            const double mean = GetNodeExpectedValue_bn(NodeOf(net, name), &deviation);
            const double scale = std::max({1.0, std::abs(pair[0].get<double>()), pair[1].get<double>()});
            EXPECT_NEAR(mean, pair[0].get<double>(), 1e-5 * scale) << name;
            EXPECT_NEAR(deviation, pair[1].get<double>(), 1e-4 * scale) << name;
        }
    }
    EXPECT_EQ(GetError_vx(env, ERROR_SEVERITY, 0, nullptr), nullptr) << ListErrors_vx(env, 1, 5);
    CloseTalora_bn(env, nullptr);
}

}  // namespace
