// Interface functions: links between nodes.
#include <algorithm>
#include <charconv>
#include <cmath>

#include "BN/Equations/EqnRename.h"
#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnEdit.h"
#include "Basic/Names.h"
#include "Talora/APICheck.h"

using namespace talora;

namespace {

// A delay or persistence: numbers separated by commas, one per time dimension.
std::string DelayArgument(const Net& net, const char* argument, const char* delay, bool is_delay)
{
    const std::vector<std::string> entries = SplitNames(TextArgument(delay));
    std::string joined;
    for (const std::string& entry : entries) {
        double value = 0;
        const auto [end, error] = std::from_chars(entry.data(), entry.data() + entry.size(), value);
        if (error != std::errc() || end != entry.data() + entry.size() || !std::isfinite(value))
            Fail<6206>(argument, entry.c_str());
        if (value < 0 && is_delay) Fail<7251>(argument, entry.c_str());
        joined += (joined.empty() ? "" : ", ") + entry;
    }
    if (net.num_dimensions > 0 && !entries.empty() && int(entries.size()) != net.num_dimensions)
        Fail<6207>(argument, int(entries.size()), net.num_dimensions, net.name.c_str());
    return joined;
}

// The links of a node with one of them altered.
template <class Alter>
void AlterLink(Node& node, int index, const char* what, Alter&& alter)
{
    CheckParentIndex(node, index);
    std::vector<Link> links = node.links;
    alter(links[index]);
    std::vector<int> old_index(links.size());
    for (size_t i = 0; i < links.size(); ++i) old_index[i] = int(i);
    ReplaceParents(node, std::move(links), old_index, what);
}

}  // namespace

int AddLink_bn(node_bn* parent, node_bn* child)
{
    return CallApi2(__func__, parent, child, -1, [&] { return AddLink(*parent, *child); });
}

void DeleteLink_bn(int parent_index, node_bn* child)
{
    CallApi(__func__, child, [&] { DeleteLink(*child, parent_index); });
}

// NULL is allowed here, so only one handle may be checked then.
void SwitchNodeParent_bn(int parent_index, node_bn* child, node_bn* new_parent)
{
    if (new_parent == nullptr)
        return CallApi(__func__, child, [&] { SwitchParent(*child, parent_index, nullptr); });
    CallApi2(__func__, child, new_parent, [&] { SwitchParent(*child, parent_index, new_parent); });
}

bool_vx IsLinkDisconnected_bn(int parent_index, const node_bn* child)
{
    return CallApi(__func__, child, 0, [&] {
        CheckParentIndex(*child, parent_index);
        return child->links[parent_index].parent->kind == DISCONNECTED_NODE;
    });
}

int ReconnectNodeLinks_bn(node_bn* child)
{
    return CallApi(__func__, child, -1, [&] { return ReconnectLinks(*child); });
}

const nodelist_bn* GetNodeParents_bn(const node_bn* node)
{
    return CallApi(__func__, node, static_cast<const nodelist_bn*>(nullptr), [&] { return &node->parents; });
}

const nodelist_bn* GetNodeChildren_bn(const node_bn* node)
{
    return CallApi(__func__, node, static_cast<const nodelist_bn*>(nullptr), [&] { return &node->children; });
}

bool_vx IsNodeAncestor_bn(const node_bn* ancestor, const node_bn* descendent)
{
    return CallApi2(__func__, ancestor, descendent, 0, [&] {
        return ancestor->net == descendent->net && IsAncestor(*ancestor->net, *ancestor, *descendent);
    });
}

void SetNodeInputName_bn(node_bn* node, int parent_index, const char* name)
{
    CallApi(__func__, node, [&] {
        CheckParentIndex(*node, parent_index);
        const std::string text = name == nullptr || *name == '\0' ? "" : NameArgument(name, "name");
        for (int i = 0; i < int(node->links.size()); ++i)
            if (!text.empty() && i != parent_index && node->links[i].input_name == text)
                Fail<6208>(text.c_str(), i, node->name.c_str());
        std::vector<Link> links = node->links;
        links[parent_index].input_name = text;
        ReserveLinks(*node, links);
        const EquationsWithNames equations(*node, false);
        Change(*node, node->links, std::move(links), NO_EFFECT, "name link");
        equations.Follow(text.c_str());
    });
}

const char* GetNodeInputName_bn(const node_bn* node, int parent_index)
{
    return CallApi(__func__, node, static_cast<const char*>(nullptr), [&] {
        CheckParentIndex(*node, parent_index);
        return node->links[parent_index].input_name.c_str();
    });
}

void SetNodeInputDelay_bn(node_bn* node, int parent_index, const char* delay)
{
    CallApi(__func__, node, [&] {
        const std::string text = DelayArgument(*node->net, "delay", delay, true);
        AlterLink(*node, parent_index, "set delay of link", [&](Link& link) {
            link.delay = text;
            if (!IsDelayed(link)) link.delay.clear();
        });
    });
}

const char* GetNodeInputDelay_bn(const node_bn* node, int parent_index)
{
    return CallApi(__func__, node, static_cast<const char*>(nullptr), [&] {
        CheckParentIndex(*node, parent_index);
        return node->links[parent_index].delay.c_str();
    });
}

void SetNodePersistance_bn(node_bn* node, const char* persist)
{
    CallApi(__func__, node, [&] {
        Change(*node, node->persist, DelayArgument(*node->net, "persist", persist, false), NO_EFFECT,
               "set persistence");
    });
}

const char* GetNodePersistance_bn(const node_bn* node)
{
    return CallApi(__func__, node, static_cast<const char*>(nullptr), [&] { return node->persist.c_str(); });
}
