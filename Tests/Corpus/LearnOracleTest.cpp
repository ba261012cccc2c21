// Learning from the case files of the corpus against independent counts and expectation maximisation in
// double precision.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Support/TestEnviron.h"

namespace {

using nlohmann::json;

constexpr double kTolerance = 1e-5;  // relative

std::string CorpusPath(const std::string& name)
{
    const char* corpus = std::getenv("TALORA_CORPUS");
    return corpus ? std::string(corpus) + "/" + name : std::string();
}

json Oracle(const std::string& name)
{
    std::ifstream file(CorpusPath("oracles/" + name + ".json"));
    return file ? json::parse(file) : json();
}

net_bn* ReadNet(environ_vx* env, const std::string& name)
{
    stream_vx* stream = NewFileStream_vx(CorpusPath("nets/" + name + ".dne").c_str(), env, nullptr);
    net_bn* net = ReadNet_bn(stream, NO_VISUAL_INFO);
    DeleteStream_vx(stream);
    return net;
}

std::vector<double> Flat(const json& table)
{
    if (!table.is_array()) return {table.get<double>()};
    std::vector<double> all;
    for (const json& part : table)
        for (double number : Flat(part)) all.push_back(number);
    return all;
}

// A net without tables and cases, ready to learn from.
struct Setting {
    TestEnviron env;
    net_bn* net = nullptr;
    caseset_cs* cases = nullptr;
    learner_bn* learner = nullptr;

    Setting(int method, const std::string& net_name, const std::string& case_file)
    {
        net = ReadNet(env, net_name);
        const nodelist_bn* nodes = GetNetNodes2_bn(net, nullptr);
        for (int i = 0; i < LengthNodeList_bn(nodes); ++i) DeleteNodeTables_bn(NthNode_bn(nodes, i));
        cases = NewCaseset_cs("", env);
        stream_vx* file = NewFileStream_vx(CorpusPath("cases/" + case_file).c_str(), env, nullptr);
        AddFileToCaseset_cs(cases, file, 1, nullptr);
        learner = NewLearner_bn(method, env);
    }
    void Learn() { LearnCPTs_bn(learner, GetNetNodes2_bn(net, nullptr), cases, 1); }
};

class LearnOracleTest : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override
    {
        if (!std::getenv("TALORA_CORPUS")) GTEST_SKIP() << "TALORA_CORPUS is not set: corpus not compared";
    }
};
class CountingOracle : public LearnOracleTest {};
class ExpectationOracle : public LearnOracleTest {};

TEST_P(CountingOracle, CountsAreThoseOfTheCases)
{
    const json oracle = Oracle(std::string(GetParam()) + ".counts");
    const std::string net_name = oracle["net"].get<std::string>();
    const std::string file = net_name == "mushroom" ? "mushroom_empty" : net_name;
    Setting s(1, file, oracle["cases"]);
    s.Learn();
    EXPECT_EQ(GetLearnerNumCases_bn(s.learner), oracle["num_cases"].get<int64_t>());
    for (const auto& [name, family] : oracle["families"].items()) {
        SCOPED_TRACE(name);
        const node_bn* node = GetNodeNamed_bn(name.c_str(), s.net);
        const std::vector<double> counts = Flat(family["counts"]);
        int64_t num_entries = 0;
        const prob_bn* probs = GetNodeTable_bn(node, &num_entries);
        ASSERT_EQ(num_entries, int64_t(counts.size()));
        const int num_states = GetNodeNumberStates_bn(node);
        std::vector<state_bn> parents(LengthNodeList_bn(GetNodeParents_bn(node)) + 1);
        for (size_t row = 0; row < counts.size(); row += num_states) {
            double sum = 0;
            for (int s2 = 0; s2 < num_states; ++s2) sum += counts[row + s2];
            size_t rest = row / num_states;
            for (int i = int(parents.size()) - 2; i >= 0; --i) {
                const int n = GetNodeNumberStates_bn(NthNode_bn(GetNodeParents_bn(node), i));
                parents[i] = state_bn(rest % n);
                rest /= n;
            }
            ASSERT_NEAR(GetNodeExperience_bn(node, parents.data()), sum, 1e-9 * (1 + sum));
            for (int s2 = 0; s2 < num_states; ++s2)
                ASSERT_NEAR(probs[row + s2], sum > 0 ? counts[row + s2] / sum : 1.0 / num_states, 1e-7);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, CountingOracle,
                         testing::Values("asia_10k", "asia_1k_numbers", "asia_200_extra", "asia_2k_missing",
                                         "alarm_20k", "alarm_2k_test", "child_5k_weighted",
                                         "insurance_2k_missing", "insurance_20k_missing", "mushroom"));

TEST_P(ExpectationOracle, LikelihoodOfEachIteration)
{
    const json oracle = Oracle(std::string(GetParam()) + ".em");
    const json counts = Oracle(std::string(GetParam()) + ".counts");
    const std::string net_name = counts["net"].get<std::string>();
    Setting s(3, net_name == "mushroom" ? "mushroom_empty" : net_name, oracle["cases"]);
    std::vector<double> expected = oracle["log_likelihood"];
    if (oracle["cases"] == "insurance_20k_missing.cas") expected.resize(3);  // they are many
    SetLearnerMaxIters_bn(s.learner, int(expected.size()) - 1);
    SetLearnerMaxTol_bn(s.learner, 0);
    s.Learn();
    ASSERT_EQ(GetLearnerNumIterations_bn(s.learner), int(expected.size()));
    for (size_t i = 0; i < expected.size(); ++i) {
        const double found = GetLearnerIteration_bn(s.learner, int(i), nullptr);
        EXPECT_NEAR(found, -expected[i], kTolerance * std::fabs(expected[i])) << i;
    }
    if (!oracle.contains("tables_after_last_step") ||
        GetLearnerNumIterations_bn(s.learner) <= oracle["steps_done"])
        return;
    for (const auto& [name, table] : oracle["tables_after_last_step"].items()) {
        const prob_bn* probs = GetNodeTable_bn(GetNodeNamed_bn(name.c_str(), s.net), nullptr);
        const std::vector<double> numbers = Flat(table);
        for (size_t at = 0; at < numbers.size(); ++at)
            EXPECT_NEAR(probs[at], numbers[at], 1e-4) << name << " " << at;
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, ExpectationOracle,
                         testing::Values("asia_2k_missing", "insurance_2k_missing", "insurance_20k_missing",
                                         "mushroom"));

}  // namespace
