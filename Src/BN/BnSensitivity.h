// Sensitivity to findings: how much a finding at each of some nodes would be expected to tell of a query
// node.
//
// A measurer belongs to its net and is deleted with it.
#pragma once

#include <vector>

#include "BN/Bnet.h"
#include "Basic/Handle.h"

struct sensv_bn {
    talora::HandleHeader header;
    net_bn* net = nullptr;
    node_bn* query = nullptr;
    std::vector<node_bn*> varying;
    int what_find = 0;  // flags BELIEF_SENSV ...
};

namespace talora {

using Sensv = sensv_bn;

Sensv* NewSensv(Node& query, std::vector<Node*> varying, int what_find);
void DeleteSensv(Sensv* sensv) noexcept;

}  // namespace talora
