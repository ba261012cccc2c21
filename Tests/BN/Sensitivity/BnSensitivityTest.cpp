// Sensitivity to findings against going through all configurations, and what it refuses.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "Support/GardenNet.h"
#include "Support/RandomNet.h"

namespace {

using talora::Enumerate;
using talora::Findings;
using talora::RandomModel;

// P(s, t) of two variables given the findings, by going through everything.
std::vector<std::vector<double>> JointOf(const RandomModel& model, const Findings& findings, int query,
                                         int varying)
{
    std::vector<std::vector<double>> joint;
    const double total = Enumerate(model, findings).total;
    for (int s = 0; s < model.NumStates(query); ++s) {
        Findings with = findings;
        if (with.positive[size_t(query)] < 0) with.positive[size_t(query)] = s;
        const talora::Enumeration found = Enumerate(model, with);
        joint.push_back(found.beliefs[size_t(varying)]);
        const bool possible = with.positive[size_t(query)] == s && found.total > 0;
        for (double& p : joint.back()) p = possible ? p * found.total / total : 0;
    }
    return joint;
}

struct Measures {
    double info = 0, belief_variance = 0, mean_amount = 0, mean_variance = 0, mean_least = 1e9,
           mean_most = -1e9;
    std::vector<double> amount, variance, least, most, ratio;  // per state of the query node
};

// Straight from the definitions.
Measures MeasuresOf(const std::vector<std::vector<double>>& joint, const std::vector<double>& values)
{
    const size_t num_query = joint.size(), num_varying = joint[0].size();
    std::vector<double> of_query(num_query), of_varying(num_varying);
    double mean = 0;
    for (size_t s = 0; s < num_query; ++s)
        for (size_t t = 0; t < num_varying; ++t) {
            of_query[s] += joint[s][t];
            of_varying[t] += joint[s][t];
            mean += joint[s][t] * values[s];
        }
    Measures m;
    m.amount.assign(num_query, 0);
    m.variance = m.amount;
    m.least.assign(num_query, 1e9);
    m.most.assign(num_query, -1e9);
    for (size_t t = 0; t < num_varying; ++t) {
        if (of_varying[t] == 0) continue;
        double mean_after = 0;
        for (size_t s = 0; s < num_query; ++s) {
            const double after = joint[s][t] / of_varying[t], change = after - of_query[s];
            if (joint[s][t] > 0) m.info += joint[s][t] * std::log2(after / of_query[s]);
            m.belief_variance += joint[s][t] * change * change;
            m.amount[s] += of_varying[t] * std::abs(change);
            m.variance[s] += of_varying[t] * change * change;
            m.least[s] = std::min(m.least[s], change);
            m.most[s] = std::max(m.most[s], change);
            mean_after += after * values[s];
        }
        m.mean_amount += of_varying[t] * std::abs(mean_after - mean);
        m.mean_variance += of_varying[t] * (mean_after - mean) * (mean_after - mean);
        m.mean_least = std::min(m.mean_least, mean_after - mean);
        m.mean_most = std::max(m.mean_most, mean_after - mean);
    }
    for (size_t s = 0; s < num_query; ++s) {
        const double smallest = of_query[s] + m.least[s], largest = of_query[s] + m.most[s];
        m.ratio.push_back(of_query[s] == 0 ? 1 : smallest < 1e-12 ? HUGE_VAL : largest / smallest);
    }
    return m;
}

constexpr double kTolerance = 2e-6;  // float beliefs

void ExpectMeasures(sensv_bn* sensv, const node_bn* node, const Measures& expected)
{
    EXPECT_NEAR(GetMutualInfo_bn(sensv, node), expected.info, kTolerance);
    EXPECT_NEAR(GetVarianceOfBeliefs_bn(sensv, node), expected.belief_variance, kTolerance);
    EXPECT_NEAR(GetVarianceOfReal_bn(sensv, node), expected.mean_variance, 10 * kTolerance);
    double variance = 0, least = 0, most = 0;
    EXPECT_NEAR(GetMeanChange_bn(sensv, node, &variance, &least, &most), expected.mean_amount,
                5 * kTolerance);
    EXPECT_NEAR(variance, expected.mean_variance, 10 * kTolerance);
    EXPECT_NEAR(least, expected.mean_least, 5 * kTolerance);
    EXPECT_NEAR(most, expected.mean_most, 5 * kTolerance);
    for (int s = 0; s < int(expected.amount.size()); ++s) {
        const size_t i = size_t(s);
        EXPECT_NEAR(GetBeliefChange_bn(sensv, node, s, &variance, &least, &most), expected.amount[i],
                    kTolerance);
        EXPECT_NEAR(variance, expected.variance[i], kTolerance);
        EXPECT_NEAR(least, expected.least[i], kTolerance);
        EXPECT_NEAR(most, expected.most[i], kTolerance);
        const double ratio = GetSensitivityRatio_bn(sensv, node, s);
        if (expected.ratio[i] == HUGE_VAL)
            EXPECT_EQ(ratio, GetInfinityDbl_vx());
        else
            EXPECT_NEAR(ratio / expected.ratio[i], 1, 1e-4);
    }
}

std::vector<double> AllBeliefs(const std::vector<node_bn*>& nodes)
{
    std::vector<double> all;
    for (node_bn* node : nodes) {
        const prob_bn* beliefs = GetNodeBeliefs_bn(node);
        all.insert(all.end(), beliefs, beliefs + GetNodeNumberStates_bn(node));
    }
    return all;
}

// A state that is possible beside the findings there are.
int PossibleState(std::mt19937& random, const RandomModel& model, const Findings& findings, int v)
{
    const std::vector<double> beliefs = Enumerate(model, findings).beliefs[size_t(v)];
    int state = 0;
    do state = int(random() % beliefs.size());
    while (beliefs[size_t(state)] < 1e-3);
    return state;
}

// A positive finding at one node and a likelihood at another, which may be the query node or vary.
Findings RandomFindings(std::mt19937& random, const RandomModel& model, const std::vector<node_bn*>& nodes)
{
    Findings findings(model.size());
    const int observed = int(random() % unsigned(model.size()));
    if (random() % 3 != 0) {
        const int state = PossibleState(random, model, findings, observed);
        findings.positive[size_t(observed)] = state;
        EnterFinding_bn(nodes[size_t(observed)], state);
    }
    const int weighted = int(random() % unsigned(model.size()));
    if (weighted != observed && random() % 3 != 0) {
        std::vector<float>& weights = findings.likelihood[size_t(weighted)];
        for (int s = 0; s < model.NumStates(weighted); ++s)
            weights.push_back(0.1f + float(random() % 10) / 10);
        EnterNodeLikelihood_bn(nodes[size_t(weighted)], weights.data());
    }
    return findings;
}

TEST(BnSensitivityTest, EveryMeasureAsByEnumeration)
{
    TestEnviron env;
    for (unsigned seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const RandomModel model = talora::MakeModel(random, 6, 3, 3, false);
        net_bn* net = NewNet_bn("random", env);
        const std::vector<node_bn*> nodes = BuildNet(net, model);
        const Findings findings = RandomFindings(random, model, nodes);
        const int query = int(random() % 6);
        std::vector<double> values;
        for (int s = 0; s < model.NumStates(query); ++s) values.push_back(0.5 * s * s - 1);
        SetNodeLevels_bn(nodes[size_t(query)], model.NumStates(query), values.data());
        // Either compiled by the measurer, or updated before.
        std::vector<double> before;
        if (seed % 2 == 0) {
            CompileNet_bn(net);
            UpdateNetBeliefs_bn(net);
            before = AllBeliefs(nodes);
        }
        sensv_bn* sensv =
            NewSensvToFinding_bn(nodes[size_t(query)], GetNetNodes2_bn(net, nullptr), kEverything);
        for (int v = 0; v < 6; ++v) {
            SCOPED_TRACE("query " + std::to_string(query) + " varying " + std::to_string(v));
            const auto joint = JointOf(model, findings, query, v);
            // With itself, a finding settles the query node.
            auto with = joint;
            if (v == query) {
                const auto belief = Enumerate(model, findings).beliefs[size_t(v)];
                with.assign(belief.size(), std::vector<double>(belief.size()));
                for (size_t s = 0; s < belief.size(); ++s) with[s][s] = belief[s];
            }
            ExpectMeasures(sensv, nodes[size_t(v)], MeasuresOf(with, values));
        }
        for (int v = 0; v < 6; ++v)
            EXPECT_EQ(GetNodeFinding_bn(nodes[size_t(v)]),
                      findings.positive[size_t(v)] >= 0 ? findings.positive[size_t(v)] : int(UNDEF_STATE));
        if (seed % 2 == 0) {
            EXPECT_EQ(AllBeliefs(nodes), before);
        }
        DeleteNet_bn(net);
    }
}

class SensitivityRulesTest : public GardenTest {};

TEST_F(SensitivityRulesTest, MeasuresThatWereNotAskedFor)
{
    double out = 0;
    const level_bn levels[] = {1, 0};
    SetNodeLevels_bn(wet_, 2, levels);
    const struct {
        const char* label;
        int flags;  // all but the one that is missing
        std::function<double(sensv_bn*)> read;
        int error;
        const char* flag_named;
    } kCases[] = {
        {"information", 0, [&](auto* s) { return GetMutualInfo_bn(s, rain_); }, 2520, "(ENTROPY_SENSV)"},
        {"belief variance", 0, [&](auto* s) { return GetVarianceOfBeliefs_bn(s, rain_); }, 2521,
         "(NODEVAR_SENSV)"},
        {"ratio", 0, [&](auto* s) { return GetSensitivityRatio_bn(s, rain_, 0); }, 2522, "(RATIO_SENSV)"},
        {"belief change", VARIANCE_SENSV | RANGE_SENSV,
         [&](auto* s) { return GetBeliefChange_bn(s, rain_, 0, &out, &out, &out); }, 2523, "(BELIEF_SENSV)"},
        {"its variance", BELIEF_SENSV | RANGE_SENSV,
         [&](auto* s) { return GetBeliefChange_bn(s, rain_, 0, &out, &out, &out); }, 2524,
         "(VARIANCE_SENSV)"},
        {"its range", BELIEF_SENSV | VARIANCE_SENSV,
         [&](auto* s) { return GetBeliefChange_bn(s, rain_, 0, nullptr, &out, nullptr); }, 2525,
         "(RANGE_SENSV)"},
        {"mean change", VARIANCE_SENSV | RANGE_SENSV,
         [&](auto* s) { return GetMeanChange_bn(s, rain_, &out, &out, &out); }, 2526, "(REAL_SENSV)"},
        {"its variance", REAL_SENSV | RANGE_SENSV,
         [&](auto* s) { return GetMeanChange_bn(s, rain_, &out, nullptr, nullptr); }, 2527,
         "(VARIANCE_SENSV)"},
        {"its range", REAL_SENSV | VARIANCE_SENSV,
         [&](auto* s) { return GetMeanChange_bn(s, rain_, nullptr, nullptr, &out); }, 2528, "(RANGE_SENSV)"},
        {"real variance", VARIANCE_SENSV, [&](auto* s) { return GetVarianceOfReal_bn(s, rain_); }, 6788,
         "(REAL_SENSV)"},
        {"real variance", REAL_SENSV, [&](auto* s) { return GetVarianceOfReal_bn(s, rain_); }, 6789,
         "(VARIANCE_SENSV)"},
        {"amounts alone", BELIEF_SENSV,
         [&](auto* s) { return GetBeliefChange_bn(s, rain_, 0, nullptr, nullptr, nullptr); }, 0, ""},
        {"amounts alone", REAL_SENSV,
         [&](auto* s) { return GetMeanChange_bn(s, rain_, nullptr, nullptr, nullptr); }, 0, ""},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.label);
        sensv_bn* sensv = Measurer(wet_, c.flags);
        const double result = c.read(sensv);
        EXPECT_EQ(env_.Taken(), c.error);
        EXPECT_NE(env_.Message().find(c.flag_named), std::string::npos) << env_.Message();
        EXPECT_EQ(result == GetUndefDbl_vx(), c.error != 0);
    }
}

TEST_F(SensitivityRulesTest, Creation)
{
    node_bn* elsewhere = NewNode_bn("Elsewhere", 2, NewNet_bn("other", env_));
    EXPECT_EQ(Measurer(elsewhere), nullptr);
    EXPECT_EQ(env_.Taken(), 6782);
    EXPECT_EQ(env_.Message(), "target node Elsewhere is in different net from wiggle nodes (eg, Rain)");
    EXPECT_EQ(Measurer(rain_, 32), nullptr);
    EXPECT_EQ(env_.Taken(), 6790);
    sensv_bn* sensv = NewSensvToFinding_bn(rain_, NewNodeList2_bn(0, net_), ENTROPY_SENSV);
    EXPECT_EQ(GetSensvQueryNode_bn(sensv), rain_);
    EXPECT_EQ(GetSensvWhatFound_bn(sensv), ENTROPY_SENSV);
    EXPECT_EQ(LengthNodeList_bn(GetSensvVaryingNodes_bn(sensv)), 0);
    EXPECT_GT(GetMutualInfo_bn(sensv, rain_), 0.7);  // the query node is always there
    GetMutualInfo_bn(sensv, wet_);
    EXPECT_EQ(env_.Taken(), 6787);
}

// Nodes without influence measure 0, those that have no states nothing at all.
TEST_F(SensitivityRulesTest, NodesWithoutInfluence)
{
    node_bn* constant = Add("Constant", {}, {1, 0});
    SetNodeKind_bn(constant, CONSTANT_NODE);
    node_bn* single = NewNode_bn("Single", 1, net_);
    node_bn* apart = Add("Apart", {}, {0.3f, 0.7f});
    node_bn* utility = NewNode_bn("Utility", 0, net_);
    SetNodeKind_bn(utility, UTILITY_NODE);
    node_bn* open = NewNode_bn("Open", 0, net_);
    EnterFinding_bn(sprinkler_, 1);
    const level_bn levels[] = {1, 0};
    SetNodeLevels_bn(wet_, 2, levels);
    sensv_bn* sensv = Measurer(wet_);
    for (const node_bn* node : {constant, single, apart, sprinkler_}) {
        SCOPED_TRACE(GetNodeName_bn(node));
        EXPECT_NEAR(GetMutualInfo_bn(sensv, node), 0, 1e-12);
        EXPECT_NEAR(GetVarianceOfBeliefs_bn(sensv, node), 0, 1e-12);
        EXPECT_NEAR(GetVarianceOfReal_bn(sensv, node), 0, 1e-12);
        EXPECT_NEAR(GetSensitivityRatio_bn(sensv, node, 0), 1, 1e-6);
    }
    for (const node_bn* node : {utility, open}) {
        SCOPED_TRACE(GetNodeName_bn(node));
        EXPECT_EQ(GetMutualInfo_bn(sensv, node), GetUndefDbl_vx());
        EXPECT_EQ(GetBeliefChange_bn(sensv, node, 0, nullptr, nullptr, nullptr), GetUndefDbl_vx());
        EXPECT_EQ(GetVarianceOfReal_bn(sensv, node), GetUndefDbl_vx());
    }
    for (node_bn* query : {single, sprinkler_}) {
        sensv_bn* settled = Measurer(query);
        EXPECT_EQ(GetMutualInfo_bn(settled, query), 0);
        EXPECT_EQ(GetVarianceOfBeliefs_bn(settled, query), 0);
        EXPECT_EQ(GetMutualInfo_bn(settled, wet_), 0);
    }
    GetMutualInfo_bn(Measurer(open), wet_);
    EXPECT_EQ(env_.Taken(), 6784);
    EXPECT_EQ(env_.Message(), "node 'Open' must have discretization intervals for this operation");
    GetSensitivityRatio_bn(sensv, rain_, 2);
    EXPECT_EQ(env_.Taken(), 6122);
}

TEST_F(SensitivityRulesTest, RealValues)
{
    sensv_bn* sensv = Measurer(depth_);
    EXPECT_GT(GetMutualInfo_bn(sensv, rain_), 0);  // needs no values
    EXPECT_EQ(GetVarianceOfReal_bn(sensv, rain_), GetUndefDbl_vx());
    EXPECT_EQ(env_.Taken(), 6785);
    EXPECT_EQ(
        env_.Message(),
        "cant calculate error-based sensitivities (mean or variance) for node 'Depth_of_the_puddles_here', because it contains +/- INFINITY for a range endpoint");
    SetSensvRealBounds_bn(sensv, GetUndefDbl_vx(), 2);
    EXPECT_EQ(env_.Taken(), 6792);
    SetSensvRealBounds_bn(sensv, 0.5, GetUndefDbl_vx());
    EXPECT_EQ(env_.Taken(), 6791);
    SetSensvRealBounds_bn(sensv, GetUndefDbl_vx(), 9);
    double lower = 0, upper = 0;
    GetSensvRealBounds_bn(sensv, &lower, &upper);
    EXPECT_EQ(lower, GetUndefDbl_vx());
    EXPECT_EQ(upper, 9);
    // The values are 0.5, 2 and 6, so the means 2.9 (wet) and 0.65.
    const double wet = 0.2 * (0.4 + 0.6 * 0.9) + 0.8 * 0.4 * 0.8;
    EXPECT_NEAR(GetVarianceOfReal_bn(sensv, wet_), wet * (1 - wet) * 2.25 * 2.25, 1e-5);
    GetVarianceOfReal_bn(Measurer(wet_), rain_);
    EXPECT_EQ(env_.Taken(), 6786);
    // States without numbers are an error only when a measure of numbers is asked for.
    EXPECT_GT(GetVarianceOfBeliefs_bn(Measurer(wet_), rain_), 0);
}

TEST_F(SensitivityRulesTest, ResultsFollowTheNet)
{
    sensv_bn* sensv = Measurer(wet_, ENTROPY_SENSV);
    const double before = GetMutualInfo_bn(sensv, rain_);
    EnterFinding_bn(sprinkler_, 0);
    const double with_finding = GetMutualInfo_bn(sensv, rain_);
    EXPECT_NE(with_finding, before);
    RetractNetFindings_bn(net_);
    EXPECT_EQ(GetMutualInfo_bn(sensv, rain_), before);
    const prob_bn table[] = {0.5f, 0.5f};
    SetNodeTable_bn(rain_, table, 2);
    EXPECT_NE(GetMutualInfo_bn(sensv, rain_), before);
    DeleteNode_bn(sprinkler_);
    EXPECT_GT(GetMutualInfo_bn(sensv, rain_), 0);
    EXPECT_EQ(NthNode_bn(GetSensvVaryingNodes_bn(sensv), 1), nullptr);
    EXPECT_NE(std::string(ReportSensvToAll_bn(sensv)).find("Rain"), std::string::npos);
    DeleteNode_bn(wet_);
    EXPECT_EQ(GetSensvQueryNode_bn(sensv), nullptr);
    GetMutualInfo_bn(sensv, rain_);
    EXPECT_EQ(env_.Taken(), 6783);
    DeleteNet_bn(net_);
    EXPECT_EQ(GetSensvWhatFound_bn(sensv), -1);
    EXPECT_EQ(env_.Taken(), 6781);
}

// With undo a deleted node may come back.
TEST_F(SensitivityRulesTest, DeletedNodesComeBack)
{
    SetNetNumUndos_bn(net_, 100, -1, nullptr);
    sensv_bn* sensv = Measurer(wet_, ENTROPY_SENSV);
    const double before = GetMutualInfo_bn(sensv, rain_);
    DeleteNode_bn(wet_);
    GetMutualInfo_bn(sensv, rain_);
    EXPECT_EQ(env_.Taken(), 6783);
    UndoNetLastOper_vx(net_, -1);
    EXPECT_NEAR(GetMutualInfo_bn(sensv, rain_), before, 1e-12);
}

TEST_F(SensitivityRulesTest, FailuresLeaveFindingsAlone)
{
    EnterFinding_bn(rain_, 0);
    SetNetAutoUpdate_bn(net_, 0);
    CompileNet_bn(net_);
    const float belief = GetNodeBeliefs_bn(wet_)[0];
    sensv_bn* sensv = Measurer(wet_, ENTROPY_SENSV);
    SetHaltFlag_vx(env_, 1);
    GetMutualInfo_bn(sensv, sprinkler_);
    SetHaltFlag_vx(env_, 0);
    EXPECT_EQ(env_.Taken(), 6793);
    EXPECT_EQ(GetNodeFinding_bn(rain_), 0);
    EXPECT_EQ(GetNodeFinding_bn(wet_), int(UNDEF_STATE));
    EXPECT_EQ(GetNodeBeliefs_bn(wet_)[0], belief);
    EXPECT_GT(GetMutualInfo_bn(sensv, sprinkler_), 0);
    // Findings that contradict one another.
    RetractNetFindings_bn(net_);
    EnterFinding_bn(rain_, 1);
    EnterFinding_bn(sprinkler_, 1);
    EnterFinding_bn(wet_, 0);
    GetMutualInfo_bn(sensv, depth_);
    EXPECT_EQ(env_.Taken(), 3305);
    EXPECT_EQ(GetNodeFinding_bn(wet_), 0);
}

}  // namespace
