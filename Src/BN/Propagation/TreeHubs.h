// Hubs: small cliques put between a large one and those of its children that share few variables with
// it.  The messages of the children are then multiplied, and told apart again, on a table over what
// they share, and the large clique is swept for one message in place of several.
//
// The tree with hubs is a junction tree of the same graph: beliefs do not change but for rounding.
#pragma once

#include <vector>

#include "BN/Order/Junction.h"
#include "BN/Order/Triangulation.h"

namespace talora {

struct HubTree {
    JunctionTree tree;        // no cliques: no hub pays, and the tree is best left as it is
    std::vector<int> origin;  // per clique the one of the first tree that it is, or for which it is a hub
};

HubTree AddHubs(const ModelGraph& graph, const JunctionTree& tree);

}  // namespace talora
