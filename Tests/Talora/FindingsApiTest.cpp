// Findings through the interface: which are refused with what, how they combine, and what becomes of beliefs.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "Talora.h"

namespace {

// Rain -> Wet <- Sprinkler, Wet -> Slip; Wet is certain when either parent is; Depth is discretised.
class FindingsApiTest : public testing::Test {
protected:
    void SetUp() override
    {
        env_ = NewTaloraEnviron_vx(nullptr, nullptr);
        ASSERT_GE(InitTalora2_bn(env_, nullptr), 0);
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        net_ = NewNet_bn("Garden", env_);
        rain_ = Add("Rain", {}, {0.2f, 0.8f});
        sprinkler_ = Add("Sprinkler", {}, {0.4f, 0.6f});
        wet_ = Add("Wet", {rain_, sprinkler_}, {1, 0, 1, 0, 1, 0, 0, 1});
        slip_ = Add("Slip", {wet_}, {0.3f, 0.7f, 0.1f, 0.9f});
        depth_ = NewNode_bn("Depth", 0, net_);
        const level_bn thresholds[] = {0, 1, 3, 10};
        SetNodeLevels_bn(depth_, 3, thresholds);
        const prob_bn probs[] = {0.5f, 0.3f, 0.2f};
        SetNodeProbs_bn(depth_, nullptr, probs);
        ASSERT_EQ(LastError(), 0);
    }
    void TearDown() override { CloseTalora_bn(env_, nullptr); }

    node_bn* Add(const char* name, std::vector<node_bn*> parents, std::vector<prob_bn> table)
    {
        node_bn* node = NewNode_bn(name, 2, net_);
        SetNodeStateNames_bn(node, "yes,no");
        for (node_bn* parent : parents) AddLink_bn(parent, node);
        SetNodeTable_bn(node, table.data(), int64_t(table.size()));
        return node;
    }

    // Number of the newest error, 0 for none; all records are then cleared.
    int LastError()
    {
        const report_vx* error = GetError_vx(env_, ERROR_SEVERITY, 0, nullptr);
        const int number = error ? -ErrorNumber_vx(error) : 0;
        last_message_ = error ? ErrorMessage_vx(error) : "";
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        return number;
    }

    double Belief(node_bn* node, int state = 0)
    {
        const prob_bn* beliefs = GetNodeBeliefs_bn(node);
        return beliefs ? beliefs[state] : -1;
    }

    environ_vx* env_ = nullptr;
    net_bn* net_ = nullptr;
    node_bn *rain_ = nullptr, *sprinkler_ = nullptr, *wet_ = nullptr, *slip_ = nullptr, *depth_ = nullptr;
    std::string last_message_;
};

TEST_F(FindingsApiTest, RefusedFindings)
{
    struct Case {
        const char* label;
        int auto_update;
        std::function<void()> before, enter;
        int error;
    };
    const auto enter = [](node_bn* node, int state) { return [=] { EnterFinding_bn(node, state); }; };
    const auto nothing = [] {};
    const std::vector<prob_bn> no_good = {0, 0}, negative = {1, -1}, second_only = {0, 1};
    const Case cases[] = {
        {"same state twice", 0, enter(rain_, 0), enter(rain_, 0), 0},
        {"another state", 0, enter(rain_, 0), enter(rain_, 1), 3310},
        {"state ruled out before", 0, [&] { EnterFindingNot_bn(rain_, 0); }, enter(rain_, 0), 3313},
        {"ruling out the state entered", 0, enter(rain_, 0), [&] { EnterFindingNot_bn(rain_, 0); }, 3311},
        {"ruling out every state", 0, [&] { EnterFindingNot_bn(rain_, 0); },
         [&] { EnterFindingNot_bn(rain_, 1); }, 3312},
        {"likelihood of zeros", 0, nothing, [&] { EnterNodeLikelihood_bn(rain_, no_good.data()); }, 3382},
        {"negative likelihood", 0, nothing, [&] { EnterNodeLikelihood_bn(rain_, negative.data()); }, 6036},
        {"state forced by both parents", BELIEF_UPDATE,
         [&] { EnterFinding_bn(rain_, 0), EnterFinding_bn(sprinkler_, 1); }, enter(wet_, 1), 3319},
        {"belief is 0", BELIEF_UPDATE, enter(wet_, 1), enter(rain_, 0), 3302},
        {"likelihood against the model", BELIEF_UPDATE, [&] { EnterFinding_bn(wet_, 1); },
         [&] { EnterFindingNot_bn(rain_, 1); }, 3303},
        {"not checked without auto-update", 0, enter(wet_, 1), enter(rain_, 0), 0},
        {"value outside the levels", 0, nothing, [&] { EnterNodeValue_bn(depth_, 11); }, 6039},
        {"another value", 0, [&] { EnterNodeValue_bn(depth_, 2); }, [&] { EnterNodeValue_bn(depth_, 2.5); },
         3306},
        {"value in another state", 0, enter(depth_, 0), [&] { EnterNodeValue_bn(depth_, 2); }, 3320},
        {"undefined value", 0, nothing, [&] { EnterNodeValue_bn(depth_, GetUndefDbl_vx()); }, 6037},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        RetractNetFindings_bn(net_);
        SetNetAutoUpdate_bn(net_, c.auto_update);
        CompileNet_bn(net_);
        c.before();
        ASSERT_EQ(LastError(), 0) << last_message_;
        const state_bn rain_before = GetNodeFinding_bn(rain_), wet_before = GetNodeFinding_bn(wet_);
        c.enter();
        EXPECT_EQ(LastError(), c.error) << last_message_;
        if (c.error != 0) {
            EXPECT_EQ(GetNodeFinding_bn(rain_), rain_before);
            EXPECT_EQ(GetNodeFinding_bn(wet_), wet_before);
        }
    }
}

TEST_F(FindingsApiTest, ContradictionFoundOnUpdating)
{
    CompileNet_bn(net_);
    EnterFinding_bn(wet_, 1);
    EnterFinding_bn(rain_, 0);
    ASSERT_EQ(LastError(), 0);
    EXPECT_EQ(FindingsProbability_bn(net_), 0.0);
    const report_vx* error = GetError_vx(env_, ERROR_SEVERITY, 0, nullptr);
    ASSERT_NE(error, nullptr);
    EXPECT_TRUE(ErrorCategory_vx(FINDING_CONDITION, error));
    ClearErrors_vx(env_, INTERNAL_SEVERITY);
    EXPECT_EQ(LogFindingsProbability_bn(net_), -GetInfinityDbl_vx());
    EXPECT_EQ(GetNodeBeliefs_bn(slip_), nullptr);
    EXPECT_EQ(GetNodeFinding_bn(rain_), 0);
    EXPECT_FALSE(IsBeliefUpdated_bn(slip_));
    RetractNodeFindings_bn(rain_);
    EXPECT_NEAR(FindingsProbability_bn(net_), 0.48, 1e-6);
    EXPECT_TRUE(IsBeliefUpdated_bn(slip_));
}

TEST_F(FindingsApiTest, AnImpossibleModelShowsOnUpdating)
{
    const prob_bn nothing[] = {0, 0};
    SetNodeTable_bn(rain_, nothing, 2);
    CompileNet_bn(net_);
    EXPECT_EQ(FindingsProbability_bn(net_), 1) << "without findings, at once";
    EXPECT_EQ(LogFindingsProbability_bn(net_), 0);
    EXPECT_EQ(LastError(), 0);
    EXPECT_EQ(GetNodeBeliefs_bn(slip_), nullptr);
    EXPECT_EQ(LastError(), 2102) << last_message_;
    EnterFinding_bn(sprinkler_, 0);
    EXPECT_EQ(FindingsProbability_bn(net_), 0);
    EXPECT_EQ(LogFindingsProbability_bn(net_), -GetInfinityDbl_vx());
    EXPECT_EQ(LastError(), 2102) << last_message_;
}

TEST_F(FindingsApiTest, FindingsCombine)
{
    CompileNet_bn(net_);
    EXPECT_EQ(FindingsProbability_bn(net_), 1.0);
    const prob_bn hint[] = {0.5f, 0.25f};
    EnterNodeLikelihood_bn(rain_, hint);
    EXPECT_NEAR(FindingsProbability_bn(net_), 0.2 * 0.5 + 0.8 * 0.25, 1e-6);
    EnterNodeLikelihood_bn(rain_, hint);
    EXPECT_NEAR(FindingsProbability_bn(net_), 0.2 * 0.25 + 0.8 * 0.0625, 1e-6);
    EnterFinding_bn(rain_, 1);
    EXPECT_NEAR(FindingsProbability_bn(net_), 0.8 * 0.0625, 1e-6);
    EXPECT_EQ(GetNodeFinding_bn(rain_), 1);
    EXPECT_EQ(GetNodeLikelihood_bn(rain_)[0], 0.0f);
    EXPECT_EQ(GetNodeLikelihood_bn(rain_)[1], 0.0625f);
    EXPECT_EQ(Belief(rain_, 1), 1.0);
    RetractNetFindings_bn(net_);
    EXPECT_FALSE(HasNodeFinding_bn(rain_));
    EXPECT_NEAR(Belief(wet_), 0.52, 1e-6);
    EXPECT_EQ(LastError(), 0) << last_message_;
}

TEST_F(FindingsApiTest, Measurements)
{
    CompileNet_bn(net_);
    EnterNodeValue_bn(depth_, 2);
    EXPECT_EQ(GetNodeFinding_bn(depth_), 1);
    EXPECT_EQ(GetNodeValueEntered_bn(depth_), 2.0);
    RetractNodeFindings_bn(depth_);

    const prob_bn wanted[] = {0.1f, 0.6f, 0.3f};
    EnterNodeCalibration_bn(depth_, wanted);
    for (int state = 0; state < 3; ++state) EXPECT_NEAR(Belief(depth_, state), wanted[state], 1e-6);
    RetractNodeFindings_bn(depth_);

    EnterIntervalFinding_bn(depth_, 0.5, 3);  // half of the first interval, all of the second
    EXPECT_NEAR(Belief(depth_, 0), 0.25 / (0.25 + 0.3), 1e-6);
    EXPECT_EQ(Belief(depth_, 2), 0.0);
    RetractNodeFindings_bn(depth_);

    EnterGaussianFinding_bn(depth_, 2, 0.01);
    EXPECT_NEAR(Belief(depth_, 1), 1, 1e-6);
    RetractNodeFindings_bn(depth_);

    double deviation = 0;
    EXPECT_NEAR(GetNodeExpectedValue_bn(depth_, &deviation), 0.5 * 0.5 + 0.3 * 2 + 0.2 * 6.5, 1e-6);
    EXPECT_NEAR(deviation, std::sqrt(0.5 * 0.25 + 0.3 * 4 + 0.2 * 42.25 - 2.15 * 2.15), 1e-5);
    EXPECT_EQ(GetNodeExpectedValue_bn(rain_, nullptr), GetUndefDbl_vx());
    EXPECT_EQ(LastError(), 0) << last_message_;
}

TEST_F(FindingsApiTest, AutoUpdateSetting)
{
    EXPECT_EQ(SetNetAutoUpdate_bn(net_, 1), 0);
    EXPECT_EQ(SetNetAutoUpdate_bn(net_, BELIEF_UPDATE), BELIEF_UPDATE);
    SetNetAutoUpdate_bn(net_, 2);
    EXPECT_EQ(LastError(), 5241);
    EXPECT_EQ(GetNetAutoUpdate_bn(net_), 0);
    // Without auto-updating a net must be compiled by the caller, with it beliefs can simply be asked for.
    EXPECT_EQ(GetNodeBeliefs_bn(wet_), nullptr);
    EXPECT_EQ(LastError(), 6011);
    SetNetAutoUpdate_bn(net_, BELIEF_UPDATE);
    EXPECT_NEAR(Belief(wet_), 0.52, 1e-6);
    EXPECT_EQ(LastError(), 0) << last_message_;
}

TEST_F(FindingsApiTest, BeliefsFollowTheModel)
{
    CompileNet_bn(net_);
    EXPECT_NEAR(Belief(wet_), 0.52, 1e-6);
    const prob_bn rainy[] = {0.5f, 0.5f};
    SetNodeProbs_bn(rain_, nullptr, rainy);
    EXPECT_TRUE(IsNetCompiled_bn(net_));
    EXPECT_FALSE(IsBeliefUpdated_bn(wet_));
    EXPECT_NEAR(Belief(wet_), 0.7, 1e-6);
    DeleteLink_bn(1, wet_);  // keeps the slice for the sprinkler on
    EXPECT_FALSE(IsNetCompiled_bn(net_));
    CompileNet_bn(net_);
    EXPECT_NEAR(Belief(wet_), 1.0, 1e-6);
    EXPECT_EQ(LastError(), 0) << last_message_;
}

// Lack of memory and a halt end an update with their record, and the next one goes on as if nothing had been.
TEST_F(FindingsApiTest, UpdatesThatDoNotFinish)
{
    std::vector<node_bn*> parents;
    const prob_bn even[] = {0.5f, 0.5f};
    for (int i = 0; i < 18; ++i) {
        parents.push_back(NewNode_bn(("P" + std::to_string(i)).c_str(), 2, net_));
        SetNodeProbs_bn(parents.back(), nullptr, even);
    }
    node_bn* all = NewNode_bn("All", 2, net_);
    for (node_bn* parent : parents) AddLink_bn(parent, all);
    const std::vector<state_bn> every(parents.size(), EVERY_STATE);
    const prob_bn third[] = {0.25f, 0.75f};
    SetNodeProbs_bn(all, every.data(), third);
    CompileNet_bn(net_);
    ASSERT_EQ(LastError(), 0) << last_message_;

    const double limit = LimitMemoryUsage_vx(GetMemoryUsage_vx(env_) + 150000, env_);
    EXPECT_EQ(GetNodeBeliefs_bn(all), nullptr);
    EXPECT_EQ(LastError(), 5622);
    EXPECT_EQ(last_message_, "not enough memory to compile/update net 'Garden' (see LimitMemoryUsage_vx)");
    UncompileNet_bn(net_);
    CompileNet_bn(net_);
    EXPECT_EQ(LastError(), 5622);
    EXPECT_FALSE(IsNetCompiled_bn(net_));
    LimitMemoryUsage_vx(limit, env_);
    CompileNet_bn(net_);

    SetHaltFlag_vx(env_, 1);
    EXPECT_EQ(GetNodeBeliefs_bn(all), nullptr);
    EXPECT_EQ(LastError(), 6013);
    SetHaltFlag_vx(env_, 0);
    EXPECT_NEAR(Belief(all), 0.25, 1e-6);
    EXPECT_EQ(LastError(), 0) << last_message_;
}

TEST_F(FindingsApiTest, OptimisingShowsWhatIsRequired)
{
    net_bn* ring = NewNet_bn("Ring", env_);
    std::vector<node_bn*> nodes;
    for (int i = 0; i < 8; ++i) nodes.push_back(NewNode_bn(("N" + std::to_string(i)).c_str(), 3, ring));
    for (int i = 0; i < 8; ++i) AddLink_bn(nodes[i == 7 ? 0 : i], nodes[i == 7 ? 7 : i + 1]);
    nodelist_bn* poor = NewNodeList2_bn(0, ring);
    for (int i : {1, 3, 5, 7, 0, 2, 4, 6}) AddNodeToList_bn(nodes[i], poor, -1);
    SetNetElimOrder_bn(ring, poor);
    CompileNet_bn(ring);
    double before = 0, after = 0;
    GetCompiledNetSizes_bn(ring, &before, nullptr, nullptr);
    static std::string shown;
    shown.clear();
    SetMessageHandler_vx(
        env_,
        [](environ_vx*, const char* text, const report_vx*, void*) {
            shown += text;
            return 0;
        },
        nullptr);
    OptimizeNetElimOrder_bn(ring, 0.05, nullptr);
    GetCompiledNetSizes_bn(ring, &after, nullptr, nullptr);
    EXPECT_LE(after, before);
    EXPECT_TRUE(shown.starts_with("\nCompiling...")) << shown;
    EXPECT_NE(shown.find("Max Required:  Memory = "), std::string::npos) << shown;
    EXPECT_EQ(LastError(), 0) << last_message_;
}

TEST_F(FindingsApiTest, ElimOrderChecks)
{
    node_bn* value = NewNode_bn("Value", 0, net_);
    SetNodeKind_bn(value, UTILITY_NODE);
    net_bn* other = NewNet_bn("Other", env_);
    node_bn* stranger = NewNode_bn("Stranger", 2, other);
    struct Case {
        const char* label;
        std::vector<node_bn*> order;
        int error;
        const char* text;
    };
    const Case cases[] = {
        {"in order", {slip_, wet_, rain_, sprinkler_, depth_}, 0, ""},
        {"empty entry", {slip_, nullptr}, 3556, "contains a NULL"},
        {"other net",
         {slip_, stranger},
         3277,
         "contains a node not in the net (node 'Stranger' of net 'Other')"},
        {"twice", {slip_, slip_}, 3277, "contains a duplicate node (named 'Slip')"},
        {"utility node", {value, value}, 3277, "contains a utility_node (named 'Value')"},
        {"one left out", {slip_, wet_, rain_, depth_}, 3277, "is missing a node (named 'Sprinkler')"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        nodelist_bn* list = NewNodeList2_bn(int(c.order.size()), net_);
        for (size_t i = 0; i < c.order.size(); ++i) SetNthNode_bn(list, int(i), c.order[i]);
        SetNetElimOrder_bn(net_, list);
        EXPECT_EQ(LastError(), c.error);
        EXPECT_NE(last_message_.find(c.text), std::string::npos) << last_message_;
        EXPECT_EQ(LengthNodeList_bn(GetNetElimOrder_bn(net_)), 5);
        DeleteNodeList_bn(list);
    }
    CompileNet_bn(net_);
    SetNetElimOrder_bn(net_, GetNetElimOrder_bn(net_));
    EXPECT_TRUE(IsNetCompiled_bn(net_));
    SetNetElimOrder_bn(net_, nullptr);
    EXPECT_FALSE(IsNetCompiled_bn(net_));
    EXPECT_EQ(GetNetElimOrder_bn(net_), nullptr);
}

// Questions about a few nodes, without a compiled net, keep up with everything that changes.
TEST_F(FindingsApiTest, QueriesAgreeWithBeliefsWhateverChanges)
{
    const std::vector<std::pair<const char*, std::function<void()>>> steps = {
        {"nothing known", [] {}},
        {"finding", [&] { EnterFinding_bn(slip_, 1); }},
        {"another state of it",
         [&] {
             RetractNodeFindings_bn(slip_);
             EnterFinding_bn(slip_, 0);
         }},
        {"likelihood",
         [&] {
             const prob_bn likelihood[] = {0.3f, 0.9f};
             EnterNodeLikelihood_bn(sprinkler_, likelihood);
         }},
        {"table",
         [&] {
             const prob_bn table[] = {0.6f, 0.4f};
             SetNodeTable_bn(rain_, table, 2);
         }},
        {"node asked for is observed", [&] { EnterFinding_bn(wet_, 0); }},
        {"structure", [&] { DeleteLink_bn(0, slip_); }},
        {"all retracted", [&] { RetractNetFindings_bn(net_); }},
    };
    nodelist_bn* nodes = NewNodeList2_bn(2, net_);
    SetNthNode_bn(nodes, 0, rain_);
    SetNthNode_bn(nodes, 1, wet_);
    for (const auto& [what, change] : steps) {
        SCOPED_TRACE(what);
        change();
        UncompileNet_bn(net_);
        double log_probability = 1;
        const prob_bn* few = QueryBeliefs_bn(nodes, nullptr);
        ASSERT_NE(few, nullptr);
        std::vector<prob_bn> asked(few, few + 4);
        ASSERT_NE(few = QueryBeliefs_bn(nodes, &log_probability), nullptr);
        asked.insert(asked.end(), few, few + 4);
        CompileNet_bn(net_);
        for (size_t k = 0; k < 8; ++k)
            EXPECT_NEAR(asked[k], Belief(k % 4 < 2 ? rain_ : wet_, int(k % 2)), 1e-6) << k;
        EXPECT_NEAR(log_probability, LogFindingsProbability_bn(net_), 1e-6);
        ASSERT_EQ(LastError(), 0) << last_message_;
    }
    EnterFinding_bn(rain_, 0);
    EnterFinding_bn(wet_, 1);
    LastError();
    double log_probability = 1;
    EXPECT_EQ(QueryBeliefs_bn(nodes, &log_probability), nullptr);
    EXPECT_EQ(LastError(), 3305);
    DeleteNodeList_bn(nodes);
}

// A matrix of states against entering each row, few at a time and many (sixteen together); among them cases
// with nothing known, and an impossible one.
TEST_F(FindingsApiTest, BeliefsOfCases)
{
    CompileNet_bn(net_);
    nodelist_bn* known = NewNodeList2_bn(2, net_);
    SetNthNode_bn(known, 0, rain_);
    SetNthNode_bn(known, 1, wet_);
    nodelist_bn* asked = NewNodeList2_bn(2, net_);
    SetNthNode_bn(asked, 0, slip_);
    SetNthNode_bn(asked, 1, rain_);
    for (const int num_cases : {9, 90}) {
        SCOPED_TRACE(num_cases);
        std::vector<state_bn> states;
        for (int c = 0; c < num_cases; ++c) {
            states.push_back(c % 3 - 1);
            states.push_back(c / 3 % 3 - 1);
        }
        std::vector<prob_bn> beliefs(size_t(num_cases) * 4);
        std::vector<double> logs(static_cast<size_t>(num_cases));
        ASSERT_EQ(GetBeliefsOfCases_bn(known, states.data(), num_cases, asked, beliefs.data(), logs.data()),
                  num_cases)
            << last_message_;
        for (int c = 0; c < num_cases; ++c) {
            SCOPED_TRACE(c);
            if (states[size_t(2 * c)] == 0 && states[size_t(2 * c + 1)] == 1) {  // rain, and the grass is dry
                EXPECT_TRUE(std::isinf(logs[size_t(c)]));
                EXPECT_TRUE(std::isnan(beliefs[size_t(4 * c)]));
                continue;
            }
            RetractNetFindings_bn(net_);
            for (int k = 0; k < 2; ++k)
                if (const int state = states[size_t(2 * c + k)]; state >= 0)
                    EnterFinding_bn(k == 0 ? rain_ : wet_, state);
            EXPECT_NEAR(logs[size_t(c)], LogFindingsProbability_bn(net_), 1e-6);
            for (int k = 0; k < 4; ++k)
                EXPECT_NEAR(beliefs[size_t(4 * c + k)], Belief(k < 2 ? slip_ : rain_, k % 2), 1e-6);
        }
    }
    RetractNetFindings_bn(net_);
    const state_bn large[] = {-1, 2};
    prob_bn belief[4];
    EXPECT_EQ(GetBeliefsOfCases_bn(known, large, 1, asked, belief, nullptr), -1);
    EXPECT_EQ(LastError(), 7400);
    EXPECT_EQ(GetBeliefsOfCases_bn(known, large, -1, asked, belief, nullptr), -1);
    EXPECT_EQ(LastError(), 7401);
    EXPECT_EQ(GetBeliefsOfCases_bn(known, large, 1, asked, nullptr, nullptr), -1);
    EXPECT_EQ(LastError(), 7402);
    DeleteNodeList_bn(known);
    DeleteNodeList_bn(asked);
}

// What a handler saw of a long update, from within which it tried to read beliefs.
struct Watched {
    node_bn* node;
    double go_on_until;  // the fraction
    std::vector<double> fractions;
    std::vector<std::string> titles;
    int refused = 0;  // with 5682
    bool seemed_updated = false;
};

bool_vx Watch(environ_vx* env, const char* title, double fraction, void* data)
{
    Watched& w = *static_cast<Watched*>(data);
    w.titles.push_back(title);
    w.fractions.push_back(fraction);
    w.seemed_updated |= IsBeliefUpdated_bn(w.node) != 0;
    EXPECT_EQ(GetNodeBeliefs_bn(w.node), nullptr);
    EXPECT_EQ(FindingsProbability_bn(GetNodeNet_bn(w.node)), -1);
    const report_vx* error = GetError_vx(env, ERROR_SEVERITY, 0, nullptr);
    w.refused += error && ErrorNumber_vx(error) == -5682;
    return fraction < w.go_on_until;
}

TEST_F(FindingsApiTest, LongUpdatesReportAndStopOnRequest)
{
    constexpr int kNodes = 28;  // every two have a child: their clique takes a second or more
    const prob_bn pair[] = {0.75f, 0.25f, 0.5f, 0.5f, 0.5f, 0.5f, 0.25f, 0.75f};
    DeleteNet_bn(net_);
    net_ = NewNet_bn("Pairs", env_);
    std::vector<node_bn*> nodes, children;
    for (int i = 0; i < kNodes; ++i) {
        nodes.push_back(Add(("N" + std::to_string(i)).c_str(), {}, {0.5f, 0.5f}));
        for (int j = 0; j < i; ++j) {
            const std::string name = "C" + std::to_string(i) + "_" + std::to_string(j);
            children.push_back(Add(name.c_str(), {nodes[j], nodes[i]}, {pair, pair + 8}));
        }
    }
    for (node_bn* child : children) EnterFinding_bn(child, 0);
    CompileNet_bn(net_);
    ClearErrors_vx(env_, INTERNAL_SEVERITY);

    Watched watched{nodes[0], 0, {}, {}};
    SetProgressHandler_vx(env_, Watch, &watched);
    UpdateNetBeliefs_bn(net_);
    EXPECT_NE(GetError_vx(env_, ERROR_SEVERITY, 6013, nullptr), nullptr);
    ClearErrors_vx(env_, INTERNAL_SEVERITY);
    ASSERT_EQ(watched.fractions.size(), 2u);
    EXPECT_GE(watched.fractions[0], 0);
    EXPECT_LT(watched.fractions[0], 1);
    EXPECT_EQ(watched.fractions[1], -1);
    EXPECT_EQ(watched.titles, std::vector<std::string>(2, "Operation in progress ..."));
    EXPECT_EQ(watched.refused, 2);
    EXPECT_FALSE(watched.seemed_updated);
    EXPECT_FALSE(IsBeliefUpdated_bn(nodes[0]));

    // It goes on where it was stopped, with less to do: the handler is not asked any more.
    for (int i = 2; i < kNodes; ++i) EnterFinding_bn(nodes[i], 0);
    const double likely = Belief(nodes[0]);
    EXPECT_EQ(LastError(), 0);
    EXPECT_EQ(watched.fractions.size(), 2u);
    SetProgressHandler_vx(env_, nullptr, nullptr);
    UncompileNet_bn(net_);
    CompileNet_bn(net_);
    EXPECT_EQ(Belief(nodes[0]), likely);
    const double one = std::pow(1.5, 26);  // N1 counts the same; both differ by what they share
    EXPECT_NEAR(likely, (0.75 * one * one + 0.5 * one) / (0.75 * one * one + one + 0.25), 1e-6);
    ClearErrors_vx(env_, INTERNAL_SEVERITY);
}

}  // namespace
