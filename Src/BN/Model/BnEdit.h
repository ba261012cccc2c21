// The primitives through which every change of a net goes.
//
// An operation first computes all new values (which may fail), then applies them with these
// primitives, which do not fail half way: a failed operation leaves the net as it was.  Each
// primitive exchanges a part of a record with a new value and then brings what depends on it
// into step (name index, children lists, junction tree, beliefs).  A change to the value that is
// there already does nothing.  `what` describes the operation for the user ("rename node").
//
// Within a call of the interface each primitive makes a record first and lets it do the change (see
// BnUndo.h), with undo on or off; when that fails for lack of memory, nothing has changed.  What the call
// did before is then taken back by its entry frame, so operations need not clean up after themselves.
#pragma once

#include <utility>

#include "BN/Model/BnUndo.h"
#include "BN/Model/Bnet.h"

namespace talora {

// What depends on the part that is changed.
enum Effect : unsigned {
    NO_EFFECT = 0,
    RENAMES_NODE = 1,  // the net's name index
    RELINKS = 2,       // children lists of old and new parents, the parents list
    RESTRUCTURES = 4,  // the junction tree is discarded, with an order that the compiler found
    RETABLES = 8,      // the node's potential is filled again before the next update
    REFINDS = 16,      // the node's finding changed: beliefs are stale
    UNCOMPILES = 32,   // the junction tree is discarded, the elimination order stays
    REMODES = 64       // beliefs are worked out in another way
};

// Makes room for a new list of links, so that the exchange cannot fail.
void ReserveLinks(Node& node, const std::vector<Link>& links);

// ---- The steps of an edit, for the primitives below and their records ----

// Brackets around one exchange.
void BeforeChange(Net& net, Node* node, unsigned effects) noexcept;
void AfterChange(Net& net, Node* node, unsigned effects) noexcept;

// Exchanges the links of a node.  Its entries in children lists go with the parents that it loses and
// come last with the parents that it gets; with the others they stay.  Remembers in places, unless it is
// null, where the entries that went had stood, in the order of the links.
void Relink(Node& node, std::vector<Link>& links, std::vector<uint32_t>* places) noexcept;
void RelinkBack(Node& node, std::vector<Link>& links, const std::vector<uint32_t>& places) noexcept;
// One link, with the entry of the node in the children list of its parent: at `place`, or at the end if that
// is SIZE_MAX.  EraseLink returns the place.
void InsertLink(Node& node, size_t index, Link&& link, size_t place) noexcept;
size_t EraseLink(Node& node, size_t index) noexcept;
// The node to its place (node.index) among the net's nodes, and out again.
void PutIn(Node& node, Net::NodeIndex::node_type&& slot) noexcept;
Net::NodeIndex::node_type TakeOut(Node& node) noexcept;

// Makes a record and lets it do its change; it stays only while the net records.
template <class Record, class... Args>
void RecordOrDo(Net& net, const Node* node, const char* what, Args&&... args)
{
    if (IsRecording(net))
        return RecordAndDo(net, node, std::make_unique<Record>(std::forward<Args>(args)...), what);
    Record(std::forward<Args>(args)...).Redo();
}

// ---- The primitives ----

void ChangeLinks(Node& node, std::vector<Link> links, unsigned effects, const char* what);

// Gives a field of a net (or node) a new value.
template <class T>
void Change(Net& net, Node* node, T& field, T value, unsigned effects, const char* what)
{
    if (field == value) return;
    if constexpr (std::is_same_v<T, std::vector<Link>>)
        if (effects & RELINKS) return ChangeLinks(*node, std::move(value), effects, what);
    if (IsRecording(net)) {
        RecordAndDo(net, node, std::make_unique<FieldRecord<T>>(net, node, field, std::move(value), effects),
                    what);
        return;
    }
    BeforeChange(net, node, effects);
    if constexpr (std::is_same_v<T, std::string>)
        ExchangeText(net, field, value);
    else
        std::swap(field, value);
    AfterChange(net, node, effects);
}
template <class T>
void Change(Net& net, T& field, T value, unsigned effects, const char* what)
{
    Change(net, nullptr, field, std::move(value), effects, what);
}
template <class T>
void Change(Node& node, T& field, T value, unsigned effects, const char* what)
{
    Change(*node.net, &node, field, std::move(value), effects, what);
}

// One element of a list of a net (or node), which nothing depends on; `value` is not used for erasing.
template <class T>
void ChangeElement(Net& net, Node* node, std::vector<T>& list, ListEdit edit, size_t index, T value,
                   const char* what)
{
    if (edit == ListEdit::kReplace && list[index] == value) return;
    if (edit == ListEdit::kInsert && list.size() == list.capacity()) list.reserve(2 * list.size() + 4);
    RecordOrDo<ElementRecord<T>>(net, node, what, net, node, list, edit, index, std::move(value));
}

// A link comes to, or goes from, the end of the tables' dimensions: a node with tables needs ChangeLinks.
void AddLinkAtEnd(Node& node, Link link, const char* what);
void RemoveLinkAt(Node& node, size_t index, const char* what);

// A node joins a set as its last member, or leaves it.
void JoinSet(Net& net, size_t set, Node& node, const char* what);
void LeaveSet(Net& net, size_t set, Node& node, const char* what);

// Overwrites rows of a table, each with the same entries; rows that hold them already stay as they are.  The
// table exists.
void ChangeProbs(Node& node, std::span<const int64_t> rows, const float* values, const char* what);
void ChangeExperience(Node& node, std::span<const int64_t> rows, double value, const char* what);
void ChangeFuncState(Node& node, std::span<const int64_t> rows, int32_t state, const char* what);
void ChangeFuncReal(Node& node, std::span<const int64_t> rows, double value, const char* what);

// Overwrites runs of `count` entries of one table, each with its own.
template <class T>
void ChangeRuns(Node& node, TableVector<T> NodeTables::*table, std::span<const int64_t> firsts, int64_t count,
                std::vector<T> values, unsigned effects, const char* what)
{
    RecordOrDo<RowsRecord<T>>(*node.net, &node, what, node, table, firsts, count, std::move(values), effects);
}

// A new record at the end of the net's nodes; the name is legal and unused.
Node* InsertNode(Net& net, std::string_view name, const char* what);
// Takes a node without links or children out of the net.  It is released when no record holds it any more.
void RemoveNode(Node& node, const char* what);

// The stored elimination order; is_found: by the compiler, so that a change of structure drops it.
void ChangeElimOrder(Net& net, bool has_order, bool is_found, std::vector<Node*> nodes, unsigned effects,
                     const char* what);

}  // namespace talora
