// The elimination order stored with a net: checked, set, dropped when it no longer fits.
#include "BN/Model/BnElimOrder.h"

#include "BN/Model/BnEdit.h"
#include "Basic/Error.h"

namespace talora {

int ElimOrderProblem(Net& net, const std::vector<Node*>& order, std::string* phrase)
{
    const uint64_t seen = NewLabel(net);
    for (Node* node : order) {
        if (node == nullptr) {
            *phrase = "contains a NULL";
            return 3556;
        }
        if (node->net != &net)
            *phrase = Phrase("contains a >-node not in the >-net (>-node '%s' of >-net '%s')",
                             node->name.c_str(), node->net->name.c_str());
        else if (node->stamp == seen)
            *phrase = Phrase("contains a duplicate >-node (named '%s')", node->name.c_str());
        else if (node->kind == UTILITY_NODE)
            *phrase = Phrase("contains a >-utility_node (named '%s')", node->name.c_str());
        else if (IsDocumentation(*node))
            *phrase = Phrase("contains a documentation node (named '%s')", node->name.c_str());
        else if (!IsInTree(*node))
            *phrase = Phrase("contains a %s >-node (named '%s')", KindTerm(node->kind), node->name.c_str());
        else {
            node->stamp = seen;
            continue;
        }
        return 3277;
    }
    for (const Node* node : net.nodes.nodes) {
        if (!IsInTree(*node) || node->stamp == seen) continue;
        *phrase = Phrase("is missing a >-node (named '%s')", node->name.c_str());
        return 3277;
    }
    return 0;
}

// Stores an order after checking it; the order that is stored already changes nothing.
void StoreElimOrder(Net& net, const std::vector<Node*>& order, bool is_found, const char* what)
{
    if (net.has_elim_order && net.elim_order.nodes == order) return;
    std::string phrase;
    const int error = ElimOrderProblem(net, order, &phrase);
    if (error == 3556) Fail<3556>(net.name.c_str(), phrase.c_str());
    if (error != 0) Fail<3277>(net.name.c_str(), phrase.c_str());
    ChangeElimOrder(net, true, is_found, order, UNCOMPILES, what);
}

void SetElimOrder(Net& net, const std::vector<Node*>* order)
{
    if (order == nullptr) {
        ChangeElimOrder(net, false, false, {}, UNCOMPILES, "remove elimination order");
        return;
    }
    StoreElimOrder(net, *order, false, "set elimination order");
}

void CheckElimOrder(Net& net)
{
    std::string phrase;
    if (!net.has_elim_order || ElimOrderProblem(net, net.elim_order.nodes, &phrase) == 0) return;
    Warn<6004>(net.name.c_str(), phrase.c_str());
    const DerivedResults derived(net);
    SetElimOrder(net, nullptr);
}

}  // namespace talora
