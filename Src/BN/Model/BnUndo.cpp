// The records of the history of a net, and the memory that they hold.
#include "BN/Model/BnUndo.h"

#include <cstdarg>

#include "BN/Model/BnEdit.h"
#include "BN/Model/BnNotices.h"
#include "Basic/Environ.h"
#include "Basic/Text.h"

namespace talora {

void ExchangeText(Net& net, std::string& field, std::string& other) noexcept
{
    if (&field != &net.name) return field.swap(other);
    const std::lock_guard guard(net.env->mutex);
    field.swap(other);
}

// ---- Memory ----

size_t HeapBytes(const StateText& text) noexcept
{
    return HeapBytes(text.name) + HeapBytes(text.title) + HeapBytes(text.comment);
}

size_t HeapBytes(const Link& link) noexcept
{
    return HeapBytes(link.input_name) + HeapBytes(link.delay);
}

size_t HeapBytes(const UserField& field) noexcept
{
    return HeapBytes(field.name) + HeapBytes(field.value);
}

size_t HeapBytes(const NodeSet& set) noexcept
{
    return HeapBytes(set.name) + HeapBytes(set.nodes) + set.members.size() * 4 * sizeof(void*);
}

size_t HeapBytes(const NodeTables& tables) noexcept
{
    return HeapBytes(tables.probs) + HeapBytes(tables.func_states) + HeapBytes(tables.func_reals) +
           HeapBytes(tables.experience) + HeapBytes(tables.counts);
}

size_t HeapBytes(const NodeFinding& finding) noexcept
{
    return HeapBytes(finding.likelihood) + HeapBytes(finding.product);
}

size_t HeapBytes(const NodeStates& states) noexcept
{
    return HeapBytes(states.texts) + HeapBytes(states.levels);
}

size_t HeapBytes(const Description& text) noexcept
{
    return HeapBytes(text.title) + HeapBytes(text.comment) + HeapBytes(text.author) +
           HeapBytes(text.who_changed) + HeapBytes(text.user_fields) + HeapBytes(text.user_section) +
           HeapBytes(text.user_name) + HeapBytes(text.visual_section) + HeapBytes(text.visual_name);
}

size_t HeapBytes(const Node& node) noexcept
{
    return HeapBytes(node.name) + HeapBytes(node.text) + HeapBytes(node.units) + HeapBytes(node.states) +
           HeapBytes(node.links) + HeapBytes(node.parents.nodes) + HeapBytes(node.children.nodes) +
           HeapBytes(node.tables) + HeapBytes(node.equation) + HeapBytes(node.persist) +
           HeapBytes(node.position) + HeapBytes(node.disconnected_from) + HeapBytes(node.saved_belief) +
           HeapBytes(node.finding) + HeapBytes(node.beliefs) + HeapBytes(node.likelihood);
}

// ---- Edits ----

namespace {

bool DiscardsTree(unsigned effects)
{
    return (effects & (RESTRUCTURES | UNCOMPILES)) != 0;
}

}  // namespace

size_t EditRecord::ResultBytes() const noexcept
{
    return HeapBytes(order_) + (compiled_ ? TreeBytes(*compiled_) : 0);
}

// Results of the state that is left are put aside, so that the effects find none to discard; those of the
// state that is reached are put in place.
void EditRecord::Run(bool forwards) noexcept
{
    const bool exchanges_tree = DiscardsTree(effects_);
    std::unique_ptr<CompiledNet, CompiledNetDeleter> left;
    if (exchanges_tree) left = TakeTree(net_);
    bool left_order = false;
    std::vector<Node*> order;
    if ((effects_ & RESTRUCTURES) && net_.elim_order_found) {
        left_order = true;
        order.swap(net_.elim_order.nodes);
        net_.has_elim_order = net_.elim_order_found = false;
    }
    BeforeChange(net_, node_, effects_);
    Exchange(forwards);
    AfterChange(net_, node_, effects_);
    if (has_order_ && !net_.has_elim_order) {
        net_.has_elim_order = net_.elim_order_found = true;
        net_.elim_order.nodes.swap(order_);
    }
    has_order_ = left_order;
    order_ = std::move(order);
    if (exchanges_tree) {
        std::swap(left, compiled_);
        if (left) net_.compiled = std::move(left);
    }
}

LinksRecord::LinksRecord(Node& node, std::vector<Link>&& links, unsigned effects)
    : EditRecord(*node.net, &node, effects), other_(std::move(links))
{
    places_.reserve(node.links.size());
}

size_t LinksRecord::Bytes() const noexcept
{
    return sizeof *this + HeapBytes(other_) + HeapBytes(places_) + ResultBytes();
}

void LinksRecord::Exchange(bool forwards) noexcept
{
    if (forwards)
        Relink(*node_, other_, &places_);
    else
        RelinkBack(*node_, other_, places_);
}

void LinkRecord::Exchange(bool forwards) noexcept
{
    if (forwards == inserts_) {
        InsertLink(*node_, index_, std::move(link_), place_);
        link_ = {node_->links[index_].parent, "", ""};
    } else {
        link_ = std::move(node_->links[index_]);
        place_ = EraseLink(*node_, index_);
    }
}

void MemberRecord::Exchange(bool forwards) noexcept
{
    NodeSet& set = net_.node_sets[set_];
    if (forwards == joins_) {
        set.nodes.insert(set.nodes.begin() + index_, &member_);
        if (set.members.count(&member_)) return;
        set.members.clear();  // there may be no room for it
        set.is_indexed = false;
    } else {
        set.nodes.erase(set.nodes.begin() + index_);
        set.members.erase(&member_);
    }
}

NodeRecord::NodeRecord(Node& node, Net::NodeIndex::node_type&& slot)
    : EditRecord(*node.net, &node, RESTRUCTURES), inserts_(true), is_out_(true), slot_(std::move(slot))
{}

NodeRecord::NodeRecord(Node& node)
    : EditRecord(*node.net, &node, RESTRUCTURES), inserts_(false), is_out_(false)
{}

NodeRecord::~NodeRecord()
{
    if (is_out_) ReleaseNode(node_);
}

size_t NodeRecord::Bytes() const noexcept
{
    return sizeof *this + (is_out_ ? sizeof(Node) + HeapBytes(*node_) : 0) + ResultBytes();
}

void NodeRecord::Exchange(bool forwards) noexcept
{
    is_out_ = forwards != inserts_;
    if (is_out_)
        slot_ = TakeOut(*node_);
    else
        PutIn(*node_, std::move(slot_));
}

ElimOrderRecord::ElimOrderRecord(Net& net, bool has_order, bool is_found, std::vector<Node*>&& nodes,
                                 unsigned effects)
    : EditRecord(net, nullptr, effects), has_order_(has_order), is_found_(is_found), nodes_(std::move(nodes))
{}

size_t ElimOrderRecord::Bytes() const noexcept
{
    return sizeof *this + HeapBytes(nodes_) + ResultBytes();
}

void ElimOrderRecord::Exchange(bool) noexcept
{
    std::swap(net_.has_elim_order, has_order_);
    std::swap(net_.elim_order_found, is_found_);
    net_.elim_order.nodes.swap(nodes_);
}

// ---- Recording ----

void DescribeStep(Net& net, const char* format, ...)
{
    if (!IsRecording(net) || !net.undo->NeedsText()) return;
    char text[256];
    va_list values;
    va_start(values, format);
    FormatInto(text, sizeof text, format, values);
    va_end(values);
    net.undo->SetText(text);
}

void RecordAndDo(Net& net, const Node* node, std::unique_ptr<UndoRecord> record, const char* what)
{
    std::string text;
    if (net.undo->NeedsText()) {
        text = what;
        if (node != nullptr) text.append(" of ").append(node->name);
    }
    net.undo->Do(std::move(record), std::move(text));
}

}  // namespace talora
