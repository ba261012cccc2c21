// Findings in extreme amounts and places: products of many likelihoods, measurements far from all states,
// constants, delayed links.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "Support/TestEnviron.h"

namespace {

class FindingRangeTest : public testing::Test {
protected:
    node_bn* Add(const char* name, int num_states, std::vector<node_bn*> parents, std::vector<prob_bn> table)
    {
        node_bn* node = NewNode_bn(name, num_states, net_);
        for (node_bn* parent : parents) AddLink_bn(parent, node);
        if (!table.empty()) SetNodeTable_bn(node, table.data(), int64_t(table.size()));
        return node;
    }
    // A node with thresholds and an even table.
    node_bn* Measured(const char* name, std::vector<level_bn> thresholds)
    {
        node_bn* node = NewNode_bn(name, 0, net_);
        const int num_states = int(thresholds.size()) - 1;
        SetNodeLevels_bn(node, num_states, thresholds.data());
        const std::vector<prob_bn> even(size_t(num_states), 1.0f / float(num_states));
        SetNodeProbs_bn(node, nullptr, even.data());
        return node;
    }
    double Belief(node_bn* node, int state)
    {
        const prob_bn* beliefs = GetNodeBeliefs_bn(node);
        return beliefs ? double(beliefs[state]) : -1;
    }

    TestEnviron env_;
    net_bn* net_ = NewNet_bn("net", env_);
};

TEST_F(FindingRangeTest, ProductsOfLikelihoodsKeepTheirRange)
{
    const struct {
        const char* label;
        float reading[2], answer[2];  // entered so many times, then the other so many
        int num_readings, num_answers;
        double log_odds, log_probability;  // of state 0 to state 1, and of the findings
    } rows[] = {
        {"sixty", {0.1f, 0.09f}, {1, 1}, 60, 0, 60 * std::log(0.1 / 0.09), 0},
        {"a million", {0.1f, 0.09f}, {1, 1}, 1000000, 0, 1e5, 1000000 * std::log(0.1)},
        {"a million taken back", {0.1f, 0.09f}, {0.09f, 0.1f}, 300000, 300000, 0, 300000 * std::log(0.009)},
        {"large", {3e38f, 1e38f}, {1, 1}, 20, 0, 20 * std::log(3), 20 * std::log(3e38)},
        {"large and small", {3e38f, 1e38f}, {2e-38f, 2e-38f}, 40, 40, 40 * std::log(3), 40 * std::log(6)},
        {"smallest", {1e-37f, 2e-37f}, {1, 1}, 3, 0, -3 * std::log(2), 3 * std::log(2e-37)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        node_bn* node = Add("x", 2, {}, {0.5f, 0.5f});
        for (int i = 0; i < row.num_readings; ++i) EnterNodeLikelihood_bn(node, row.reading);
        for (int i = 0; i < row.num_answers; ++i) EnterNodeLikelihood_bn(node, row.answer);
        CompileNet_bn(net_);
        const double first = Belief(node, 0), expected = 1 / (1 + std::exp(-row.log_odds));
        EXPECT_NEAR(first, expected, 1e-5 * expected);
        EXPECT_NEAR(first + Belief(node, 1), 1, 1e-6);
        if (row.log_probability != 0) {
            // Within the sum over the two states, which is at most their number times the largest.
            EXPECT_NEAR(LogFindingsProbability_bn(net_), row.log_probability,
                        1e-6 * std::abs(row.log_probability) + 1);
        }
        for (const int state : {0, 1}) {
            const prob_bn* stored = GetNodeLikelihood_bn(node);
            EXPECT_TRUE(stored != nullptr && std::isfinite(stored[state]));
        }
        EXPECT_EQ(env_.Taken(), 0) << env_.Message();
        DeleteNode_bn(node);
    }
}

TEST_F(FindingRangeTest, MeasurementsFarAwayReachTheNearestState)
{
    const double infinity = GetInfinityDbl_vx();
    const struct {
        const char* label;
        std::vector<level_bn> thresholds;
        double mean, std_dev;
        int state;        // that takes all, or
        double log_odds;  // of state 0 to state 1
    } rows[] = {
        {"far below", {0, 1, 2}, -1e6, 1, 0, 0},
        {"far above", {0, 1, 2}, 1e6, 1, 1, 0},
        {"farther than squares reach", {0, 1, 2}, -1e200, 1e-3, 0, 0},
        {"below, falling thresholds", {2, 1, 0}, -100, 1, 1, 0},
        {"in an open interval", {-infinity, 0, 1}, -1e6, 1, 0, 0},
        // Tails beyond 38 deviations: their masses are below the range of doubles.
        {"in the tail", {0, 0.001, 0.002}, -50, 1, -1, 50 * 0.001 + 0.001 * 0.001},
        {"in the middle", {-1, 0, 1}, 0, 1, -1, 0},
        {"sharp, on the threshold", {-1, 0, 1}, 0, 1e-9, -1, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        node_bn* node = Measured("x", row.thresholds);
        EnterGaussianFinding_bn(node, row.mean, row.std_dev);
        CompileNet_bn(net_);
        if (row.state >= 0)
            EXPECT_EQ(Belief(node, row.state), 1);
        else
            EXPECT_NEAR(std::log(Belief(node, 0) / Belief(node, 1)), row.log_odds, 1e-5);
        EXPECT_EQ(env_.Taken(), 0) << env_.Message();
        DeleteNode_bn(node);
    }
}

TEST_F(FindingRangeTest, PointsLieWhereValuesLie)
{
    const double infinity = GetInfinityDbl_vx();
    for (const std::vector<level_bn>& thresholds :
         {std::vector<level_bn>{0, 1, 2}, {2, 1, 0}, {-infinity, 0, 1, infinity}})
        for (const double point : {-7.0, 0.0, 0.5, 1.0, 2.0, 9.0}) {
            SCOPED_TRACE(point);
            node_bn *by_value = Measured("v", thresholds), *by_interval = Measured("i", thresholds);
            EnterNodeValue_bn(by_value, point);
            const bool is_refused = env_.Taken() != 0;
            EnterIntervalFinding_bn(by_interval, point, point);
            EXPECT_EQ(env_.Taken() != 0, is_refused);
            CompileNet_bn(net_);
            for (int state = 0; !is_refused && state < GetNodeNumberStates_bn(by_value); ++state)
                EXPECT_EQ(Belief(by_value, state), Belief(by_interval, state));
            DeleteNode_bn(by_value);
            DeleteNode_bn(by_interval);
        }
}

TEST_F(FindingRangeTest, AnAddedStateWithMissingEntriesHasNoBelief)
{
    node_bn* node = Add("x", 2, {}, {0.3f, 0.7f});
    AddNodeStates_bn(node, -1, nullptr, 1, GetUndefDbl_vx());
    CompileNet_bn(net_);
    EXPECT_EQ(Belief(node, 2), 0);
}

// X -> Y with constant X: whatever the table of Y, and whenever it came.
TEST_F(FindingRangeTest, ConstantsNeedAValueInEveryOrder)
{
    const auto function = [](node_bn* y) {
        for (state_bn state : {0, 1}) SetNodeFuncState_bn(y, &state, 1 - state);
    };
    const auto table = [](node_bn* y) {
        const prob_bn probs[] = {0, 1, 1, 0};
        SetNodeTable_bn(y, probs, 4);
    };
    for (const auto& give : {std::function<void(node_bn*)>(function), std::function<void(node_bn*)>(table)})
        for (const bool comes_late : {false, true}) {
            SCOPED_TRACE(comes_late);
            node_bn* x = Add("x", 2, {}, {});
            SetNodeKind_bn(x, CONSTANT_NODE);
            node_bn* y = Add("y", 2, {x}, {});
            if (comes_late) CompileNet_bn(net_);
            give(y);
            if (!comes_late) CompileNet_bn(net_);
            GetNodeBeliefs_bn(y);
            EXPECT_NE(GetError_vx(env_, ERROR_SEVERITY, -6003, nullptr), nullptr);
            env_.Taken();
            EnterFinding_bn(x, 1);
            CompileNet_bn(net_);
            EXPECT_EQ(Belief(y, 0), 1);
            // The tree stays; the value comes and goes.
            RetractNodeFindings_bn(x);
            EXPECT_EQ(Belief(y, 0), -1);
            EXPECT_EQ(env_.Taken(), 6003);
            EnterFinding_bn(x, 0);
            EXPECT_EQ(Belief(y, 0), 0);
            EXPECT_EQ(env_.Taken(), 0) << env_.Message();
            DeleteNode_bn(y);
            DeleteNode_bn(x);
        }
}

TEST_F(FindingRangeTest, ValuesAgreeWithTheFunctionOfKnownParents)
{
    node_bn *a = Add("a", 2, {}, {0.5f, 0.5f}), *r = NewNode_bn("r", 0, net_);
    AddLink_bn(a, r);
    for (const state_bn state : {0, 1}) SetNodeFuncReal_bn(r, &state, 2.5 * state);
    SetFindingChecking_vx(env_, 1);
    EnterNodeValue_bn(r, 2.5);
    EXPECT_EQ(env_.Taken(), 0) << "the parent is not known";
    RetractNodeFindings_bn(r);
    EnterFinding_bn(a, 0);
    EnterNodeValue_bn(r, 2.5);
    EXPECT_EQ(env_.Taken(), 3307);
    EnterNodeValue_bn(r, 0);
    EXPECT_EQ(env_.Taken(), 0) << env_.Message();
    SetFindingChecking_vx(env_, 0);
}

TEST_F(FindingRangeTest, CyclesThroughDelaysEnd)
{
    SetNetNumDimensions_bn(net_, 1);
    node_bn *a = Add("a", 2, {}, {}), *b = Add("b", 2, {a}, {});
    const state_bn same[] = {0, 1};
    for (const state_bn& state : same) SetNodeFuncState_bn(b, &state, state);
    AddLink_bn(b, a);
    EXPECT_EQ(env_.Taken(), 6101);
    node_bn* before = Add("before", 2, {}, {});
    AddLink_bn(before, a);
    SetNodeInputDelay_bn(a, 0, "1");
    SwitchNodeParent_bn(0, a, b);
    for (const state_bn& state : same) SetNodeFuncState_bn(a, &state, state);
    ASSERT_EQ(env_.Taken(), 0) << env_.Message();
    SetFindingChecking_vx(env_, 1);
    EnterFinding_bn(b, 1);
    SetFindingChecking_vx(env_, 0);
    EXPECT_EQ(env_.Taken(), 0) << env_.Message();
    CompileNet_bn(net_);
    EXPECT_NE(GetError_vx(env_, WARNING_SEVERITY, -7200, nullptr), nullptr);
    EXPECT_EQ(env_.Taken(), 6001);
}

}  // namespace
