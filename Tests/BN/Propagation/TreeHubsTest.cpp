#include "BN/Propagation/TreeHubs.h"

#include <gtest/gtest.h>

#include <set>

#include "Support/RandomModel.h"

namespace talora {

namespace {

std::set<int> Set(std::span<const int> list)
{
    return {list.begin(), list.end()};
}

// Causes that all hang together, and effects of a few of them each.
RandomModel ManyEffects(std::mt19937& random, int causes, int effects)
{
    RandomModel model;
    model.graph.variables.resize(size_t(causes + effects));
    model.tables.resize(model.graph.variables.size());
    for (int v = 0; v < model.size(); ++v) {
        model.graph.variables[size_t(v)].num_states = 2;
        std::vector<int>& parents = model.graph.variables[size_t(v)].parents;
        for (int parent = 0; parent < std::min(v, causes); ++parent)
            if (v < causes || random() % unsigned(causes) < 2) parents.push_back(parent);
        FillTable(model, random, v, false);
    }
    return model;
}

// A junction tree of the same cliques: separators are what two cliques share, and every variable is
// found in a connected part.
void ExpectSameTree(const JunctionTree& tree, const HubTree& hubs)
{
    const JunctionTree& with = hubs.tree;
    std::vector<int> tops(tree.home.size());  // per variable: cliques that hold it, but not their mates
    int next_origin = 0;
    for (int i = 0; i < with.num_cliques(); ++i) {
        const std::set<int> members = Set(with.members[i]);
        const int origin = hubs.origin[size_t(i)], mate = with.mate[size_t(i)];
        ASSERT_LT(mate, i);
        const std::set<int> above = mate < 0 ? std::set<int>() : Set(with.members[mate]);
        std::set<int> shared;
        for (int v : members) above.count(v) ? void(shared.insert(v)) : void(++tops[size_t(v)]);
        EXPECT_EQ(Set(with.separators[i]), shared);
        EXPECT_TRUE(mate < 0 || Set(with.children[mate]).count(i));
        if (origin == next_origin) {  // hubs come after their clique
            ++next_origin;
            EXPECT_EQ(members, Set(tree.members[origin]));
            EXPECT_EQ(Set(with.homed[i]), Set(tree.homed[origin]));
            for (int v : with.homed[i]) EXPECT_EQ(with.home[size_t(v)], i);
        } else {
            EXPECT_LT(with.clique_sizes[size_t(i)] * 4, tree.clique_sizes[size_t(origin)] + 1);
            EXPECT_TRUE(with.homed[i].empty());
        }
    }
    EXPECT_EQ(next_origin, tree.num_cliques());
    for (int count : tops) EXPECT_EQ(count, 1);
}

TEST(TreeHubs, TreeStaysAJunctionTreeAndBeliefsTheSame)
{
    for (unsigned seed = 0; seed < 6; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const RandomModel model = ManyEffects(random, 11, 7);
        const JunctionTree tree = TreeOf(model.graph);
        const HubTree hubs = AddHubs(model.graph, tree);
        ASSERT_GT(hubs.tree.num_cliques(), tree.num_cliques());
        ExpectSameTree(tree, hubs);

        Findings findings(model.size());
        findings.positive[size_t(random() % 18)] = 1;
        const Enumeration expected = Enumerate(model, findings);
        Propagation propagation(model.graph, tree, model.Source());
        for (int v = 0; v < model.size(); ++v) propagation.SetPositive(v, findings.positive[size_t(v)]);
        if (expected.total == 0) continue;
        ASSERT_EQ(propagation.Update(), UpdateStatus::kUpdated);
        for (int v = 0; v < model.size(); ++v) {
            float belief[2];
            propagation.Belief(v, belief);
            EXPECT_NEAR(belief[1], expected.beliefs[size_t(v)][1], 1e-5) << v;
        }
    }
}

TEST(TreeHubs, SmallTreesAreLeftAlone)
{
    std::mt19937 random(1);
    const RandomModel model = ManyEffects(random, 5, 7);
    EXPECT_EQ(AddHubs(model.graph, TreeOf(model.graph)).tree.num_cliques(), 0);
}

// Thousands of effects of the same causes: found in linear time, and told apart on small tables.
TEST(TreeHubs, ThousandsOfEffects)
{
    std::mt19937 random(2);
    const RandomModel model = ManyEffects(random, 11, 5000);
    const JunctionTree tree = TreeOf(model.graph);
    const HubTree hubs = AddHubs(model.graph, tree);
    ExpectSameTree(tree, hubs);
}

}  // namespace

}  // namespace talora
