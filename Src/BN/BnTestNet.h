// Net testers: how well a net predicts some of its nodes, measured with cases.
//
// A tester belongs to its net and is deleted with it.
#pragma once

#include <vector>

#include "BN/Bnet.h"
#include "Basic/Handle.h"

struct tester_bn {
    talora::HandleHeader header;
    net_bn* net = nullptr;
    std::vector<node_bn*> test_nodes;
    std::vector<node_bn*> unobserved;  // their findings are never entered
};

namespace talora {

using Tester = tester_bn;

Tester* NewTester(Net& net, std::vector<Node*> test_nodes, std::vector<Node*> unobserved);
void DeleteTester(Tester* tester) noexcept;

}  // namespace talora
