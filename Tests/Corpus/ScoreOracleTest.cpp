// Tests of nets of the corpus with its case files, against scores computed independently.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "Support/TestEnviron.h"

namespace {

using nlohmann::json;

std::string CorpusPath(const std::string& name)
{
    const char* corpus = std::getenv("TALORA_CORPUS");
    return corpus ? std::string(corpus) + "/" + name : std::string();
}

stream_vx* Open(const std::string& path, environ_vx* env)
{
    return NewFileStream_vx(CorpusPath(path).c_str(), env, nullptr);
}

nodelist_bn* ListOf(net_bn* net, const json& names)
{
    nodelist_bn* list = NewNodeList2_bn(0, net);
    for (const auto& name : names)
        AddNodeToList_bn(GetNodeNamed_bn(name.get<std::string>().c_str(), net), list, -1);
    return list;
}

class ScoreOracleTest : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override
    {
        if (!std::getenv("TALORA_CORPUS")) GTEST_SKIP() << "TALORA_CORPUS is not set: corpus not compared";
        std::ifstream file(CorpusPath("oracles/" + std::string(GetParam()) + ".score.json"));
        oracle_ = json::parse(file);
        net_ = ReadNet_bn(Open("nets/" + oracle_["net"].get<std::string>() + ".dne", env_), NO_VISUAL_INFO);
        ASSERT_NE(net_, nullptr);
        cases_ = NewCaseset_cs("", env_);
        AddFileToCaseset_cs(cases_, Open("cases/" + oracle_["cases"].get<std::string>(), env_), 1, nullptr);
    }

    TestEnviron env_;
    json oracle_;
    net_bn* net_ = nullptr;
    caseset_cs* cases_ = nullptr;
};

// Single precision of the tables moves a score by about so much; a case that is as near as 1e-5 to a limit
// or a tie may be counted on the other side, and the oracle says how many there are.
constexpr double kTolerance = 2e-6;

void ExpectScores(const tester_bn* tester, const node_bn* node, const json& expected)
{
    EXPECT_DOUBLE_EQ(GetTestNumCases_bn(tester, node, nullptr, nullptr), expected["weight"].get<double>());
    EXPECT_NEAR(GetTestErrorRate_bn(tester, node), expected["error_rate"].get<double>(), kTolerance);
    EXPECT_NEAR(GetTestLogLoss_bn(tester, node), expected["log_loss"].get<double>(), kTolerance);
    EXPECT_NEAR(GetTestQuadraticLoss_bn(tester, node), expected["quadratic_loss"].get<double>(), kTolerance);
    EXPECT_NEAR(GetTestSphericalPayoff_bn(tester, node), expected["spherical_payoff"].get<double>(),
                kTolerance);
    ASSERT_EQ(expected["cases_with_two_best_within_1e-5"], 0);
    const auto& confusion = expected["confusion_actual_by_predicted"];
    for (size_t actual = 0; actual < confusion.size(); ++actual)
        for (size_t predicted = 0; predicted < confusion.size(); ++predicted)
            EXPECT_DOUBLE_EQ(GetTestConfusion_bn(tester, node, int(predicted), int(actual)),
                             confusion[actual][predicted].get<double>());
}

void ExpectSurprises(const tester_bn* tester, const node_bn* node, const json& expected)
{
    const double near =
        expected["cases_near_a_surprise_limit"].get<double>() * 10;  // times the largest weight
    for (const auto& [name, limits] : expected["surprise_total_and_wrong"].items())
        for (const auto& [limit, counts] : limits.items()) {
            double surprised = 0;
            const state_bn state = GetStateNamed_bn(name.c_str(), node);
            const double limited =
                GetTestSurprise_bn(tester, node, state, std::stod(limit.substr(3)), &surprised);
            EXPECT_NEAR(limited, counts[0].get<double>(), near) << name << " " << limit;
            EXPECT_NEAR(surprised, counts[1].get<double>(), near) << name << " " << limit;
        }
}

TEST_P(ScoreOracleTest, EveryFigureIsMet)
{
    tester_bn* tester =
        NewNetTester_bn(ListOf(net_, oracle_["test_nodes"]), ListOf(net_, oracle_["unobserved_nodes"]), -1);
    TestWithCaseset_bn(tester, cases_);
    for (const auto& [name, expected] : oracle_["results"].items()) {
        SCOPED_TRACE(name);
        const node_bn* node = GetNodeNamed_bn(name.c_str(), net_);
        ExpectScores(tester, node, expected);
        ExpectSurprises(tester, node, expected);
        // The calibration tables hold every case once per state, and each actual state once.
        double all = 0, hits = 0;
        for (int bin = 0; bin < GetTestNumBins_bn(tester, node); ++bin)
            for (state_bn state = 0; state < GetNodeNumberStates_bn(node); ++state) {
                double hit = 0;
                all += GetTestCalibration_bn(tester, node, state, bin, &hit);
                hits += hit;
            }
        EXPECT_NEAR(all, expected["weight"].get<double>() * GetNodeNumberStates_bn(node), 1e-6);
        EXPECT_NEAR(hits, expected["weight"].get<double>(), 1e-6);
    }
}

// The beliefs that scoring writes are those of the first cases of the oracle.
TEST_P(ScoreOracleTest, ScoredCasesHaveTheirBeliefs)
{
    nodelist_bn* asked = ListOf(net_, oracle_["test_nodes"]);
    const nodelist_bn* unobserved = ListOf(net_, oracle_["unobserved_nodes"]);
    for (int i = 0; i < LengthNodeList_bn(unobserved); ++i)
        AddNodeToList_bn(NthNode_bn(unobserved, i), asked, -1);  // asked for, so not entered
    stream_vx* output = NewMemoryStream_vx("scored", env_, nullptr);
    EXPECT_EQ(WriteCaseBeliefs_bn(cases_, asked, output, "jsonl"), oracle_["num_cases"].get<double>());
    std::istringstream lines(GetStreamContents_vx(output, nullptr));
    std::string text;
    for (size_t row = 0; row < 10 && std::getline(lines, text); ++row) {
        const json line = json::parse(text);
        EXPECT_EQ(line["case"], row + 1);
        for (const auto& [name, expected] : oracle_["results"].items())
            for (size_t state = 0; state < expected["states"].size(); ++state)
                EXPECT_NEAR(line["beliefs"][name][expected["states"][state].get<std::string>()].get<double>(),
                            expected["beliefs_first_10_cases"][row][state].get<double>(), kTolerance);
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, ScoreOracleTest,
                         testing::Values("alarm_2k_test", "child_5k_weighted", "insurance_2k_missing"),
                         [](const auto& test) { return std::string(test.param); });

}  // namespace
