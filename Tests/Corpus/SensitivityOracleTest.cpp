// Sensitivity to findings in nets of the corpus against independent results in double precision.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "Support/TestEnviron.h"

namespace {

using nlohmann::json;

class SensitivityOracleTest : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override
    {
        if (!std::getenv("TALORA_CORPUS")) GTEST_SKIP() << "TALORA_CORPUS is not set: corpus not compared";
    }
    static std::string Path(const std::string& name)
    {
        return std::string(std::getenv("TALORA_CORPUS")) + "/" + name;
    }
    json Oracle(const std::string& name)
    {
        std::ifstream file(Path("oracles/" + name));
        return json::parse(file);
    }
    net_bn* Read(const std::string& name)
    {
        stream_vx* stream = NewFileStream_vx(Path("nets/" + name).c_str(), env_, nullptr);
        net_bn* net = ReadNet_bn(stream, NO_VISUAL_INFO);
        DeleteStream_vx(stream);
        SetNetAutoUpdate_bn(net, 0);
        return net;
    }
    static void Enter(net_bn* net, const json& findings)
    {
        RetractNetFindings_bn(net);
        for (const auto& [name, state] : findings.items()) {
            node_bn* node = GetNodeNamed_bn(name.c_str(), net);
            EnterFinding_bn(node, GetStateNamed_bn(state.get<std::string>().c_str(), node));
        }
    }

    TestEnviron env_;
};

constexpr double kTolerance = 5e-7;

TEST_P(SensitivityOracleTest, Beliefs)
{
    net_bn* net = Read(std::string(GetParam()) + ".dne");
    double largest = 0;
    const auto compare = [&](double found, const json& expected) {
        const double error = std::abs(found - expected.get<double>());
        largest = std::max(largest, error);
        EXPECT_LE(error, kTolerance) << found << " against " << expected;
    };
    const json oracle = Oracle(std::string(GetParam()) + ".sensitivity.json");
    for (const json& query : oracle["queries"]) {
        Enter(net, query["findings"]);
        const node_bn* node = GetNodeNamed_bn(query["query"].get<std::string>().c_str(), net);
        sensv_bn* sensv =
            NewSensvToFinding_bn(node, GetNetNodes2_bn(net, nullptr),
                                 ENTROPY_SENSV | NODEVAR_SENSV | BELIEF_SENSV | VARIANCE_SENSV | RANGE_SENSV);
        compare(GetMutualInfo_bn(sensv, node), query["entropy_bits"]);
        compare(GetVarianceOfBeliefs_bn(sensv, node), query["belief_variance"]);
        const prob_bn* beliefs = GetNodeBeliefs_bn(const_cast<node_bn*>(node));
        for (const auto& [name, expected] : query["nodes"].items()) {
            SCOPED_TRACE(query["query"].get<std::string>() + " and " + name);
            const node_bn* varying = GetNodeNamed_bn(name.c_str(), net);
            compare(GetMutualInfo_bn(sensv, varying), expected["mutual_info_bits"]);
            compare(GetVarianceOfBeliefs_bn(sensv, varying), expected["belief_variance_reduction"]);
            for (int state = 0; state < GetNodeNumberStates_bn(node); ++state) {
                double variance = 0, least = 0, greatest = 0;
                GetBeliefChange_bn(sensv, varying, state, &variance, &least, &greatest);
                const json& range = expected["range_min_max_rms"][size_t(state)];
                compare(beliefs[state] + least, range[0]);
                compare(beliefs[state] + greatest, range[1]);
                compare(std::sqrt(variance), range[2]);
            }
        }
        DeleteSensvToFinding_bn(sensv);
    }
    printf("%s: %zu queries, within %.2g\n", GetParam(), oracle["queries"].size(), largest);
}

INSTANTIATE_TEST_SUITE_P(Nets, SensitivityOracleTest,
                         testing::Values("asia", "child", "insurance", "alarm", "hailfinder", "hepar2",
                                         "win95pts"),
                         [](const auto& row) { return std::string(row.param); });

class RealValueOracleTest : public SensitivityOracleTest {};

TEST_P(RealValueOracleTest, RealValues)
{
    net_bn* net = Read(std::string("forms/") + GetParam() + ".dne");
    const json oracle = Oracle(std::string(GetParam()) + ".json");
    ASSERT_FALSE(oracle["sensitivity"].empty());
    for (const json& query : oracle["sensitivity"]) {
        Enter(net, query.value("findings", json::object()));
        const node_bn* node = GetNodeNamed_bn(query["query"].get<std::string>().c_str(), net);
        sensv_bn* sensv =
            NewSensvToFinding_bn(node, GetNetNodes2_bn(net, nullptr), REAL_SENSV | VARIANCE_SENSV);
        const double variance = query["variance"].get<double>();
        EXPECT_NEAR(GetVarianceOfReal_bn(sensv, node), variance, kTolerance * std::max(1.0, variance));
        for (const auto& [name, expected] : query["nodes"].items()) {
            SCOPED_TRACE(query["query"].get<std::string>() + " and " + name);
            EXPECT_NEAR(GetVarianceOfReal_bn(sensv, GetNodeNamed_bn(name.c_str(), net)),
                        expected["variance_of_real_reduction"].get<double>(),
                        kTolerance * std::max(1.0, variance));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Nets, RealValueOracleTest, testing::Values("alarm_values"));

}  // namespace
