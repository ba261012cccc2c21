// Numbers at the ends of what there is: very long chains, very small probabilities, very long sums, tables of
// almost nothing but zeros.  TALORA_LONG_CHAIN says how long the longest chain is.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "Support/TestEnviron.h"

namespace {

std::vector<node_bn*> AddNodes(net_bn* net, int count, int num_states)
{
    std::vector<node_bn*> nodes;
    for (int k = 0; k < count; ++k)
        nodes.push_back(NewNode_bn(("n" + std::to_string(k)).c_str(), num_states, net));
    return nodes;
}

void SetTable(node_bn* node, const std::vector<float>& table)
{
    SetNodeTable_bn(node, table.data(), int64_t(table.size()));
}

// Copies with noise, observed at both ends: the middle is known from the powers of a matrix of two states.
TEST(ExtremeNumbersTest, LongChains)
{
    TestEnviron env;
    const char* const longest = getenv("TALORA_LONG_CHAIN");
    const int length = longest ? atoi(longest) : 10000;
    net_bn* const net = NewNet_bn("chain", env);
    const std::vector<node_bn*> nodes = AddNodes(net, length, 2);
    SetTable(nodes[0], {0.5, 0.5});
    for (size_t k = 1; k < nodes.size(); ++k) {
        AddLink_bn(nodes[k - 1], nodes[k]);
        SetTable(nodes[k], {0.9375, 0.0625, 0.0625, 0.9375});
    }
    CompileNet_bn(net);
    for (size_t k = 0; k < nodes.size(); k += 2) EnterFinding_bn(nodes[k], 0);
    // Two steps lead back with 1/2 (1 + 0.875^2).
    const double back = 0.5 * (1 + 0.875 * 0.875);
    const double expected = std::log(0.5) + double((length - 1) / 2) * std::log(back);
    EXPECT_NEAR(LogFindingsProbability_bn(net), expected, 1e-5 * -expected);
    EXPECT_NEAR(double(GetNodeBeliefs_bn(nodes[size_t(length / 4 * 2 + 1)])[0]), 0.9375 * 0.9375 / back,
                1e-6);
    RetractNetFindings_bn(net);
    EnterFinding_bn(nodes[0], 0);
    EXPECT_NEAR(double(GetNodeBeliefs_bn(nodes[10])[0]), 0.5 * (1 + std::pow(0.875, 10)), 1e-6);
    EXPECT_NEAR(double(GetNodeBeliefs_bn(nodes.back())[0]), 0.5, 1e-5);
    DeleteNet_bn(net);
}

TEST(ExtremeNumbersTest, ThousandsOfImprobableFindings)
{
    TestEnviron env;
    net_bn* const net = NewNet_bn("star", env);
    const std::vector<node_bn*> nodes = AddNodes(net, 2001, 2);
    SetTable(nodes[0], {0.25, 0.75});
    for (size_t k = 1; k < nodes.size(); ++k) {
        AddLink_bn(nodes[0], nodes[k]);
        SetTable(nodes[k], {1e-6f, 1 - 1e-6f, 1e-6f, 1 - 1e-6f});
    }
    CompileNet_bn(net);
    for (size_t k = 1; k < nodes.size(); ++k) EnterFinding_bn(nodes[k], 0);
    const double expected = 2000 * std::log(1e-6);  // -27,631
    EXPECT_NEAR(LogFindingsProbability_bn(net), expected, -1e-5 * expected);
    EXPECT_EQ(FindingsProbability_bn(net), 0) << "below what a double can hold";
    EXPECT_NEAR(double(GetNodeBeliefs_bn(nodes[0])[0]), 0.25, 1e-5);
    DeleteNet_bn(net);
}

// Entries of every size down to the smallest that counts.
TEST(ExtremeNumbersTest, SmallEntries)
{
    TestEnviron env;
    for (int exponent = 0; exponent >= -37; --exponent) {
        SCOPED_TRACE(exponent);
        const float entry = float(0.25 * std::pow(10.0, exponent));
        net_bn* const net = NewNet_bn("small", env);
        const std::vector<node_bn*> nodes = AddNodes(net, 3, 2);
        SetTable(nodes[0], {0.5, 0.5});
        for (size_t k : {1, 2}) {
            AddLink_bn(nodes[0], nodes[k]);
            SetTable(nodes[k], {entry, 1 - entry, 3 * entry, 1 - 3 * entry});
        }
        CompileNet_bn(net);
        // The product of a prior and the smallest entries is below what counts.
        if (exponent >= -36) {
            EXPECT_NEAR(double(GetNodeBeliefs_bn(nodes[1])[0]) / double(entry), 2, 1e-5);
        }
        EnterFinding_bn(nodes[1], 0);
        EXPECT_NEAR(double(GetNodeBeliefs_bn(nodes[0])[0]), 0.25, 1e-5);
        EnterFinding_bn(nodes[2], 0);
        EXPECT_NEAR(double(GetNodeBeliefs_bn(nodes[0])[0]), 0.1, 1e-5);
        EXPECT_NEAR(LogFindingsProbability_bn(net), std::log(5) + 2 * std::log(double(entry)), 1e-3);
        DeleteNet_bn(net);
    }
}

// One table of 2^24 entries: each belief of its node is a sum of half of them.
TEST(ExtremeNumbersTest, LongSums)
{
    TestEnviron env;
    constexpr int kParents = 23;
    net_bn* const net = NewNet_bn("sum", env);
    const std::vector<node_bn*> nodes = AddNodes(net, kParents + 1, 2);
    for (int k = 0; k < kParents; ++k) {
        SetTable(nodes[size_t(k)], {0.5, 0.5});
        AddLink_bn(nodes[size_t(k)], nodes[kParents]);
    }
    std::vector<float> table(size_t{2} << kParents);
    std::mt19937 random(1);
    double sum = 0;
    for (size_t at = 0; at < table.size(); at += 2) {
        table[at] = float(random() % 65537) / 65536;
        table[at + 1] = 1 - table[at];
        sum += double(table[at]);
    }
    SetTable(nodes[kParents], table);
    CompileNet_bn(net);
    const float* const beliefs = GetNodeBeliefs_bn(nodes[kParents]);
    ASSERT_NE(beliefs, nullptr) << env.Taken() << " " << env.Message();
    EXPECT_NEAR(double(beliefs[0]), sum / double(table.size() / 2), 1e-6);
    EXPECT_NEAR(double(GetNodeBeliefs_bn(nodes[3])[1]), 0.5, 1e-6);
    DeleteNet_bn(net);
}

// A clique in which a single configuration is possible.
TEST(ExtremeNumbersTest, OneEntryAmongZeros)
{
    TestEnviron env;
    constexpr int kParents = 7;
    net_bn* const net = NewNet_bn("one", env);
    const std::vector<node_bn*> nodes = AddNodes(net, kParents + 1, 3);
    std::vector<float> table(6561);  // 3^8
    for (int k = 0; k < kParents; ++k) {
        SetTable(nodes[size_t(k)], {0.5, 0.25, 0.25});
        AddLink_bn(nodes[size_t(k)], nodes[kParents]);
    }
    const size_t place = 4000;  // of the row of the one configuration, times 3
    for (size_t at = 0; at < table.size(); at += 3) table[at] = 1;
    table[place / 3 * 3] = 0;
    table[place / 3 * 3 + 2] = 1;
    SetTable(nodes[kParents], table);
    CompileNet_bn(net);
    EnterFinding_bn(nodes[kParents], 2);
    size_t row = place / 3;
    double probability = 1;
    for (int k = kParents - 1; k >= 0; --k, row /= 3) {
        probability *= row % 3 == 0 ? 0.5 : 0.25;
        const float* const beliefs = GetNodeBeliefs_bn(nodes[size_t(k)]);
        for (size_t s = 0; s < 3; ++s) EXPECT_EQ(beliefs[s], s == row % 3 ? 1 : 0) << k;
    }
    EXPECT_NEAR(LogFindingsProbability_bn(net), std::log(probability), 1e-5);
    DeleteNet_bn(net);
}

}  // namespace
