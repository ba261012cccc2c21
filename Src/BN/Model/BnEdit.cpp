// The primitives of editing: exchange one part of a record, then bring into step what depends on it.
#include "BN/Model/BnEdit.h"

#include <algorithm>

#include "BN/Model/BnNotices.h"
#include "Basic/Error.h"

namespace talora {

namespace {

// An order that compiling found goes with the structure it was found for; one that was set stays.
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

// The entry of the index is taken out under the old name and put back under the new one, without memory.
void BeforeChange(Net& net, Node* node, unsigned effects) noexcept
{
    if ((effects & RENAMES_NODE) == 0) return;
    net.index_slot = net.node_index.extract(node->name);
    net.next_copy.clear();
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

// 1. Out of the children lists of parents that go. 2. To the end of those of parents that are new. `places`
// keeps where the node stood, for RelinkBack.
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
    for (const Link& link : node.links)
        if (!IsDelayed(link)) CheckRanks(*link.parent, node);
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
    for (const Link& link : node.links)
        if (!IsDelayed(link)) CheckRanks(*link.parent, node);
}

void InsertLink(Node& node, size_t index, Link&& link, size_t place) noexcept
{
    Node& parent = *link.parent;
    std::vector<Node*>& children = parent.children.nodes;
    if (!IsDelayed(link)) CheckRanks(parent, node);
    children.insert(children.begin() + std::min(place, children.size()), &node);
    node.parents.nodes.insert(node.parents.nodes.begin() + index, &parent);
    node.links.insert(node.links.begin() + index, std::move(link));
}

size_t EraseLink(Node& node, size_t index) noexcept
{
    const size_t place = RemoveChild(*node.parents.nodes[index], &node);
    node.parents.nodes.erase(node.parents.nodes.begin() + index);
    node.links.erase(node.links.begin() + index);
    return place;
}

// A node that was taken out comes back to its old place, with its handle alive again.
void PutIn(Node& node, Net::NodeIndex::node_type&& slot) noexcept
{
    Net& net = *node.net;
    std::vector<Node*>& nodes = net.nodes.nodes;
    node.header.SetTag(NODE_TYPE);
    node.parents.header.SetTag(NODELIST_TYPE);
    node.children.header.SetTag(NODELIST_TYPE);
    slot.key() = node.name;
    net.node_index.insert(std::move(slot));
    if (node.rank == 0) node.rank = ++net.last_rank;
    nodes.insert(nodes.begin() + node.index, &node);
    for (size_t i = node.index + 1; i < nodes.size(); ++i) nodes[i]->index = int(i);
}

Net::NodeIndex::node_type TakeOut(Node& node) noexcept
{
    Net& net = *node.net;
    std::vector<Node*>& nodes = net.nodes.nodes;
    Net::NodeIndex::node_type slot = net.node_index.extract(node.name);
    net.next_copy.clear();
    nodes.erase(nodes.begin() + node.index);
    for (size_t i = node.index; i < nodes.size(); ++i) nodes[i]->index = int(i);
    node.header.SetTag(NODE_TYPE | kDeletedFlag);
    node.parents.header.SetTag(DELETED_TYPE);
    node.children.header.SetTag(DELETED_TYPE);
    return slot;
}

// In doubling steps: a net built link by link takes linear time.
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
    RecordOrDo<LinksRecord>(net, &node, what, node, std::move(links), effects);
}

namespace {

// The rows whose entries are others, and `values` for each of them.
// A change to the values that are there already is none, and leaves no step of undo.
template <class T>
void ChangeRows(Node& node, TableVector<T> NodeTables::*table, std::span<const int64_t> rows, const T* values,
                int64_t count, unsigned effects, const char* what)
{
    const T* const entries = (node.tables.*table).data();
    if (rows.size() == 1) {  // as most edits are
        const int64_t first = rows[0] * count;
        if (!std::equal(values, values + count, entries + first))
            ChangeRuns(node, table, std::span(&first, 1), count, std::vector<T>(values, values + count),
                       effects, what);
        return;
    }
    std::vector<int64_t> firsts;
    for (const int64_t row : rows)
        if (!std::equal(values, values + count, entries + row * count)) firsts.push_back(row * count);
    if (firsts.empty()) return;
    std::vector<T> all;
    all.reserve(firsts.size() * size_t(count));
    for (size_t i = 0; i < firsts.size(); ++i) all.insert(all.end(), values, values + count);
    ChangeRuns(node, table, firsts, count, std::move(all), effects, what);
}

}  // namespace

void ChangeProbs(Node& node, std::span<const int64_t> rows, const float* values, const char* what)
{
    ChangeRows(node, &NodeTables::probs, rows, values, NumStates(node), RETABLES, what);
}

void ChangeExperience(Node& node, std::span<const int64_t> rows, double value, const char* what)
{
    ChangeRows(node, &NodeTables::experience, rows, &value, 1, NO_EFFECT, what);
}

void ChangeFuncState(Node& node, std::span<const int64_t> rows, int32_t state, const char* what)
{
    ChangeRows(node, &NodeTables::func_states, rows, &state, 1, RETABLES, what);
}

void ChangeFuncReal(Node& node, std::span<const int64_t> rows, double value, const char* what)
{
    ChangeRows(node, &NodeTables::func_reals, rows, &value, 1, RETABLES, what);
}

void AddLinkAtEnd(Node& node, Link link, const char* what)
{
    const auto grow = [](auto& list) {
        if (list.size() == list.capacity()) list.reserve(2 * list.size() + 4);
    };
    grow(node.links);
    grow(node.parents.nodes);
    grow(link.parent->children.nodes);
    RecordOrDo<LinkRecord>(*node.net, &node, what, node, node.links.size(), std::move(link), true,
                           unsigned(RELINKS | RESTRUCTURES));
}

void RemoveLinkAt(Node& node, size_t index, const char* what)
{
    RecordOrDo<LinkRecord>(*node.net, &node, what, node, index, Link(), false,
                           unsigned(RELINKS | RESTRUCTURES));
}

void JoinSet(Net& net, size_t set, Node& node, const char* what)
{
    NodeSet& joined = net.node_sets[set];
    if (joined.nodes.size() == joined.nodes.capacity()) joined.nodes.reserve(2 * joined.nodes.size() + 4);
    if (IsInSet(joined, node)) return;
    joined.members.insert(&node);
    RecordOrDo<MemberRecord>(net, &node, what, net, set, joined.nodes.size(), node, true);
}

// The place is searched from both ends, as members mostly leave in the order in which they joined, or in the
// opposite one.
void LeaveSet(Net& net, size_t set, Node& node, const char* what)
{
    if (!IsInSet(net.node_sets[set], node)) return;
    const std::vector<Node*>& nodes = net.node_sets[set].nodes;
    size_t first = 0, last = nodes.size() - 1;
    while (nodes[first] != &node && nodes[last] != &node) {
        ++first;
        --last;
    }
    RecordOrDo<MemberRecord>(net, &node, what, net, set, nodes[first] == &node ? first : last, node, false);
}

Node* InsertNode(Net& net, std::string_view name, const char* what)
{
    std::vector<Node*>& nodes = net.nodes.nodes;
    if (nodes.capacity() == nodes.size()) nodes.reserve(2 * nodes.size() + 16);
    // More room than is asked for: to reserve room for one more each time would make the index anew each
    // time.
    if (float(nodes.size() + 1) > net.node_index.max_load_factor() * float(net.node_index.bucket_count()))
        net.node_index.reserve(2 * nodes.size() + 16);
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

void ChangeElimOrder(Net& net, bool has_order, bool is_found, std::vector<Node*> nodes, unsigned effects,
                     const char* what)
{
    if (net.has_elim_order == has_order && net.elim_order_found == is_found && net.elim_order.nodes == nodes)
        return;
    RecordOrDo<ElimOrderRecord>(net, nullptr, what, net, has_order, is_found, std::move(nodes), effects);
}

}  // namespace talora
