// Equations follow the names of nodes, links and states.
//
// An equation is kept as text, so what it mentions goes by name.  Whoever changes a name reads the equations
// that may use it before and has them written anew afterwards:
//
//   const EquationsWithNames equations(node, true);
//   RenameNode(node, name);
//   equations.Follow(name);
#pragma once

#include <vector>

#include "BN/Model/Bnet.h"
#include "Misc/Equations/EqnParse.h"

namespace talora {

class EquationsWithNames {
public:
    // Those of the node itself and, if wanted, of its children.  One that cannot be read stays as it is.
    EquationsWithNames(Node& node, bool with_children);

    // Puts the present names in the place of those that were read.  An equation that would mean something
    // else with them keeps the old ones, with a warning.
    void Follow(const char* new_name) const;

private:
    struct Reading {
        Node* node;
        Equation eqn;
    };
    std::vector<Reading> readings_;
};

}  // namespace talora
