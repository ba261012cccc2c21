#include "BN/Model/BnEdit.h"

#include <algorithm>

#include "BN/Model/BnNotices.h"
#include "Basic/Error.h"

namespace talora {

namespace {

void ForgetFoundOrder(Net& net) noexcept
{
    if (!net.elim_order_found) return;
    net.has_elim_order = false;
    net.elim_order_found = false;
    net.elim_order.nodes.clear();
}

// Takes the entry of a child out of the list of a parent, searching from the end, as links are mostly undone
// soon after they were made.  @return where it stood
size_t RemoveChild(Node& parent, const Node* child) noexcept
{
    std::vector<Node*>& children = parent.children.nodes;
    size_t place = children.size() - 1;
    while (children[place] != child) --place;
    children.erase(children.begin() + place);
    return place;
}

void FillParents(Node& node) noexcept
{
    node.parents.nodes.clear();
    for (const Link& link : node.links) node.parents.nodes.push_back(link.parent);
}

}  // namespace

void BeforeChange(Net& net, Node* node, unsigned effects) noexcept
{
    if (effects & RENAMES_NODE) net.index_slot = net.node_index.extract(node->name);
}

// Room in the index, the children lists and the parents list was made before (see ReserveLinks), so nothing
// here needs memory.
void AfterChange(Net& net, Node* node, unsigned effects) noexcept
{
    if (effects & RENAMES_NODE) {
        net.index_slot.key() = node->name;
        net.node_index.insert(std::move(net.index_slot));
    }
    if (effects & (RESTRUCTURES | UNCOMPILES)) DiscardTree(net);
    if (effects & RESTRUCTURES) ForgetFoundOrder(net);
    if (effects & RETABLES) TableChanged(*node);
    if (effects & REFINDS) FindingChanged(*node);
    if (effects & REMODES) ModeChanged(net);
    net.changed = true;
}

void Relink(Node& node, std::vector<Link>& links, std::vector<uint32_t>* places) noexcept
{
    const uint64_t stays = NewLabel(*node.net);
    for (const Link& link : links) link.parent->stamp = stays;
    if (places) places->clear();
    for (const Link& link : node.links) {
        if (link.parent->stamp == stays) continue;
        const size_t place = RemoveChild(*link.parent, &node);
        if (places) places->push_back(uint32_t(place));
    }
    const uint64_t had = NewLabel(*node.net);
    for (const Link& link : node.links) link.parent->stamp = had;
    for (const Link& link : links)
        if (link.parent->stamp != had) link.parent->children.nodes.push_back(&node);
    node.links.swap(links);
    FillParents(node);
}

void RelinkBack(Node& node, std::vector<Link>& links, const std::vector<uint32_t>& places) noexcept
{
    const uint64_t stays = NewLabel(*node.net);
    for (const Link& link : links) link.parent->stamp = stays;
    for (const Link& link : node.links)
        if (link.parent->stamp != stays) RemoveChild(*link.parent, &node);
    const uint64_t had = NewLabel(*node.net);
    for (const Link& link : node.links) link.parent->stamp = had;
    size_t next = 0;
    for (const Link& link : links) {
        std::vector<Node*>& children = link.parent->children.nodes;
        if (link.parent->stamp != had) children.insert(children.begin() + places[next++], &node);
    }
    node.links.swap(links);
    FillParents(node);
}

void PutIn(Node& node, Net::NodeIndex::node_type&& slot) noexcept
{
    Net& net = *node.net;
    std::vector<Node*>& nodes = net.nodes.nodes;
    node.header.SetTag(NODE_TYPE);
    node.parents.header.SetTag(NODELIST_TYPE);
    node.children.header.SetTag(NODELIST_TYPE);
    slot.key() = node.name;
    net.node_index.insert(std::move(slot));
    nodes.insert(nodes.begin() + node.index, &node);
    for (size_t i = node.index + 1; i < nodes.size(); ++i) nodes[i]->index = int(i);
}

Net::NodeIndex::node_type TakeOut(Node& node) noexcept
{
    Net& net = *node.net;
    std::vector<Node*>& nodes = net.nodes.nodes;
    Net::NodeIndex::node_type slot = net.node_index.extract(node.name);
    nodes.erase(nodes.begin() + node.index);
    for (size_t i = node.index; i < nodes.size(); ++i) nodes[i]->index = int(i);
    node.header.SetTag(NODE_TYPE | kDeletedFlag);
    node.parents.header.SetTag(DELETED_TYPE);
    node.children.header.SetTag(DELETED_TYPE);
    return slot;
}

void ReserveLinks(Node& node, const std::vector<Link>& links)
{
    const auto grow = [](std::vector<Node*>& list, size_t size) {
        if (list.capacity() < size) list.reserve(std::max(size, 2 * list.capacity()));
    };
    grow(node.parents.nodes, links.size());
    for (const Link& link : links) grow(link.parent->children.nodes, link.parent->children.nodes.size() + 1);
}

void ChangeLinks(Node& node, std::vector<Link> links, unsigned effects, const char* what)
{
    Net& net = *node.net;
    if (IsRecording(net))
        return RecordAndDo(net, &node, std::make_unique<LinksRecord>(node, std::move(links), effects), what);
    Relink(node, links, nullptr);
    AfterChange(net, &node, effects);
}

namespace {

template <class T>
void ChangeRows(Node& node, TableVector<T> NodeTables::*table, int64_t first, const T* values, int64_t count,
                unsigned effects, const char* what)
{
    T* entries = (node.tables.*table).data() + first;
    if (std::equal(values, values + count, entries)) return;
    Net& net = *node.net;
    if (IsRecording(net))
        return RecordAndDo(net, &node,
                           std::make_unique<RowsRecord<T>>(node, table, first, values, count, effects), what);
    std::copy(values, values + count, entries);
    AfterChange(net, &node, effects);
}

}  // namespace

void ChangeProbs(Node& node, int64_t first, const float* values, int64_t count, const char* what)
{
    ChangeRows(node, &NodeTables::probs, first, values, count, RETABLES, what);
}

void ChangeExperience(Node& node, int64_t row, double value, const char* what)
{
    ChangeRows(node, &NodeTables::experience, row, &value, 1, NO_EFFECT, what);
}

void ChangeFuncState(Node& node, int64_t row, int32_t state, const char* what)
{
    ChangeRows(node, &NodeTables::func_states, row, &state, 1, RETABLES, what);
}

void ChangeFuncReal(Node& node, int64_t row, double value, const char* what)
{
    ChangeRows(node, &NodeTables::func_reals, row, &value, 1, RETABLES, what);
}

Node* InsertNode(Net& net, std::string_view name, const char* what)
{
    std::vector<Node*>& nodes = net.nodes.nodes;
    if (nodes.capacity() == nodes.size()) nodes.reserve(2 * nodes.size() + 16);
    net.node_index.reserve(nodes.size() + 1);
    Node* node = NewNodeRecord(net);
    std::unique_ptr<NodeRecord> record;
    try {
        node->name = name;
        node->index = int(nodes.size());
        auto slot = net.node_index.extract(net.node_index.emplace(node->name, node).first);
        if (IsRecording(net))
            record = std::make_unique<NodeRecord>(*node, std::move(slot));
        else
            PutIn(*node, std::move(slot));
    } catch (...) {
        net.node_index.erase(node->name);
        ReleaseNode(node);
        throw;
    }
    if (record)
        RecordAndDo(net, node, std::move(record), what);
    else
        AfterChange(net, node, RESTRUCTURES);
    return node;
}

void RemoveNode(Node& node, const char* what)
{
    Net& net = *node.net;
    if (IsRecording(net)) return RecordAndDo(net, &node, std::make_unique<NodeRecord>(node), what);
    TakeOut(node);
    AfterChange(net, nullptr, RESTRUCTURES);
    ReleaseNode(&node);
}

void DropNewNode(Node& node) noexcept
{
    Net& net = *node.net;
    if (IsRecording(net)) return;
    std::vector<Link> none;
    Relink(node, none, nullptr);
    TakeOut(node);
    AfterChange(net, nullptr, RESTRUCTURES);
    ReleaseNode(&node);
}

void ChangeElimOrder(Net& net, bool has_order, bool is_found, std::vector<Node*> nodes, unsigned effects,
                     const char* what)
{
    if (net.has_elim_order == has_order && net.elim_order_found == is_found && net.elim_order.nodes == nodes)
        return;
    if (IsRecording(net))
        return RecordAndDo(
            net, nullptr,
            std::make_unique<ElimOrderRecord>(net, has_order, is_found, std::move(nodes), effects), what);
    BeforeChange(net, nullptr, effects);
    net.has_elim_order = has_order;
    net.elim_order_found = is_found;
    net.elim_order.nodes = std::move(nodes);
    AfterChange(net, nullptr, effects);
}

}  // namespace talora
