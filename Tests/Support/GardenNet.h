// A small net for tests through the interface: Rain -> Wet <- Sprinkler, Wet -> Depth, which is discretised
// and has an open end.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "Support/TestEnviron.h"

constexpr int kEverything =
    BELIEF_SENSV | ENTROPY_SENSV | REAL_SENSV | NODEVAR_SENSV | RATIO_SENSV | VARIANCE_SENSV | RANGE_SENSV;

class GardenTest : public testing::Test {
protected:
    void SetUp() override
    {
        net_ = NewNet_bn("Garden", env_);
        rain_ = Add("Rain", {}, {0.2f, 0.8f});
        sprinkler_ = Add("Sprinkler", {}, {0.4f, 0.6f});
        wet_ = Add("Wet", {rain_, sprinkler_}, {1, 0, 0.9f, 0.1f, 0.8f, 0.2f, 0, 1});
        depth_ = NewNode_bn("Depth_of_the_puddles_here", 0, net_);
        AddLink_bn(wet_, depth_);
        SetDepthLevels({0, 1, 3, GetInfinityDbl_vx()});
        const prob_bn probs[] = {0.2f, 0.5f, 0.3f, 0.9f, 0.1f, 0};
        SetNodeTable_bn(depth_, probs, 6);
    }

    void SetDepthLevels(const std::vector<level_bn>& levels) { SetNodeLevels_bn(depth_, 3, levels.data()); }

    node_bn* Add(const char* name, std::vector<node_bn*> parents, std::vector<prob_bn> table)
    {
        node_bn* node = NewNode_bn(name, 2, net_);
        SetNodeStateNames_bn(node, "yes,no");
        for (node_bn* parent : parents) AddLink_bn(parent, node);
        SetNodeTable_bn(node, table.data(), int64_t(table.size()));
        return node;
    }

    sensv_bn* Measurer(const node_bn* query, int what_find = kEverything)
    {
        return NewSensvToFinding_bn(query, GetNetNodes2_bn(net_, nullptr), what_find);
    }

    TestEnviron env_;
    net_bn* net_ = nullptr;
    node_bn *rain_ = nullptr, *sprinkler_ = nullptr, *wet_ = nullptr, *depth_ = nullptr;
};
