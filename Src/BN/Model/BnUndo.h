// Records of the history of a net: one class per elementary edit of BnEdit.h.
//
// A record holds what the net does not hold at the moment: the new value before the edit, the old one after
// it.  Doing, undoing and redoing are the same exchange, with the same effects, so nothing is copied and
// a handle that comes back is the same handle.  A node that is out of the net belongs to its record.
//
// An exchange that discards results of the old state (the junction tree, an order that the compiler found)
// keeps them too and puts them back with that state.  Tables of potentials are not kept: they are
// filled again from the model when beliefs are needed.
//
// None of this needs memory once the record is made: lists and index keep the room they once had.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "BN/Model/Bnet.h"
#include "Basic/Undo.h"

namespace talora {

enum UndoCode {
    UNDO_FIELD = 1,
    UNDO_LINKS,
    UNDO_ROWS,
    UNDO_NODE_IN,
    UNDO_NODE_OUT,
    UNDO_ELIM_ORDER,
    UNDO_ELEMENT,
    UNDO_LINK,
    UNDO_MEMBER
};

// Whether changes are to be made through records: always within a call of the interface, which takes them
// back when it fails, but for nets that the call itself has made.
inline bool IsRecording(const Net& net)
{
    return net.undo->IsRecording();
}

// Describes the running operation for the user ("rename node A to B").  The first text of a step stays;
// costs nothing when undo is off.
void DescribeStep(Net& net, const char* format, ...) TALORA_PRINTF(2, 3);

// While it lives, changes are results of the last step rather than steps of their own: an order that is
// found when a net is compiled must neither be an edit nor end what can be redone.
class DerivedResults {
public:
    explicit DerivedResults(Net& net) : list_(*net.undo) { list_.Derive(true); }
    ~DerivedResults() { list_.Derive(false); }
    DerivedResults(const DerivedResults&) = delete;
    DerivedResults& operator=(const DerivedResults&) = delete;

private:
    UndoList& list_;
};

// ---- Memory of a value beyond its own size ----

template <class T>
requires std::is_trivially_copyable_v<T> size_t HeapBytes(const T&)
noexcept
{
    return 0;
}
inline size_t HeapBytes(const std::string& text) noexcept
{
    constexpr size_t kInPlace = 15;
    return text.capacity() > kInPlace ? text.capacity() + 1 : 0;
}
size_t HeapBytes(const StateText& text) noexcept;
size_t HeapBytes(const Link& link) noexcept;
size_t HeapBytes(const UserField& field) noexcept;
size_t HeapBytes(const NodeSet& set) noexcept;
size_t HeapBytes(const NodeTables& tables) noexcept;
size_t HeapBytes(const NodeFinding& finding) noexcept;
size_t HeapBytes(const NodeStates& states) noexcept;
size_t HeapBytes(const Description& text) noexcept;
size_t HeapBytes(const Node& node) noexcept;
template <class T, class Allocator>
size_t HeapBytes(const std::vector<T, Allocator>& values) noexcept
{
    size_t total = values.capacity() * sizeof(T);  // NOLINT(bugprone-sizeof-expression): pointers count, too
    if constexpr (!std::is_trivially_copyable_v<T>)
        for (const T& value : values) total += HeapBytes(value);
    return total;
}

// Exchanges two texts, one of them a field of the net.  Threads that look for a net read its name with only
// the environment's list held.
void ExchangeText(Net& net, std::string& field, std::string& other) noexcept;

// ---- Records ----

// What all edits of a net have in common: the effects, and the results put aside.
class EditRecord : public UndoRecord {
public:
    EditRecord(Net& net, Node* node, unsigned effects) : net_(net), node_(node), effects_(effects) {}
    void Undo() noexcept final { Run(false); }
    void Redo() noexcept final { Run(true); }

protected:
    virtual void Exchange(bool forwards) noexcept = 0;
    size_t ResultBytes() const noexcept;

    Net& net_;
    Node* const node_;
    const unsigned effects_;

private:
    void Run(bool forwards) noexcept;

    bool has_order_ = false;  // an order that the compiler found
    std::vector<Node*> order_;
    std::unique_ptr<CompiledNet, CompiledNetDeleter> compiled_;
};

// A field of a net or node.
template <class T>
class FieldRecord final : public EditRecord {
public:
    FieldRecord(Net& net, Node* node, T& field, T&& value, unsigned effects)
        : EditRecord(net, node, effects), field_(field), other_(std::move(value))
    {}
    size_t Bytes() const noexcept override { return sizeof *this + HeapBytes(other_) + ResultBytes(); }
    int Code() const noexcept override { return UNDO_FIELD; }

protected:
    void Exchange(bool) noexcept override
    {
        if constexpr (std::is_same_v<T, std::string>)
            ExchangeText(net_, field_, other_);
        else
            std::swap(field_, other_);
    }

private:
    T& field_;
    T other_;
};

// What happens to one element of a list, read forwards.
enum class ListEdit : uint8_t { kInsert, kErase, kReplace };

// One element of a list of a net or node, so that an edit costs what changes and not the whole list.  There
// is room for an element to insert, see Grown.
template <class T>
class ElementRecord final : public EditRecord {
public:
    ElementRecord(Net& net, Node* node, std::vector<T>& list, ListEdit edit, size_t index, T&& value)
        : EditRecord(net, node, 0), list_(list), edit_(edit), index_(index), other_(std::move(value))
    {}
    size_t Bytes() const noexcept override { return sizeof *this + HeapBytes(other_) + ResultBytes(); }
    int Code() const noexcept override { return UNDO_ELEMENT; }

protected:
    void Exchange(bool forwards) noexcept override
    {
        if (edit_ == ListEdit::kReplace) return std::swap(list_[index_], other_);
        if (forwards == (edit_ == ListEdit::kInsert)) {
            list_.insert(list_.begin() + index_, std::move(other_));
            other_ = T();
        } else {
            other_ = std::move(list_[index_]);
            list_.erase(list_.begin() + index_);
        }
    }

private:
    std::vector<T>& list_;
    const ListEdit edit_;
    const size_t index_;
    T other_;
};

// A node that joins or leaves a node set.
class MemberRecord final : public EditRecord {
public:
    MemberRecord(Net& net, size_t set, size_t index, Node& node, bool joins)
        : EditRecord(net, nullptr, 0), set_(set), index_(index), member_(node), joins_(joins)
    {}
    size_t Bytes() const noexcept override { return sizeof *this + ResultBytes(); }
    int Code() const noexcept override { return UNDO_MEMBER; }

protected:
    void Exchange(bool forwards) noexcept override;

private:
    const size_t set_, index_;  // lists of sets are edited only in between, and back
    Node& member_;
    const bool joins_;
};

// Some runs of entries of a table; the table itself may be replaced by other records in between, so it is
// looked up each time.
template <class T>
class RowsRecord final : public EditRecord {
public:
    using Table = TableVector<T> NodeTables::*;
    // values: for each run `count` entries, one run after the other
    RowsRecord(Node& node, Table table, std::span<const int64_t> firsts, int64_t count,
               std::vector<T>&& values, unsigned effects)
        : EditRecord(*node.net, &node, effects),
          table_(table),
          first_(firsts[0]),
          others_(firsts.begin() + 1, firsts.end()),
          count_(count),
          other_(std::move(values))
    {}
    size_t Bytes() const noexcept override
    {
        return sizeof *this + HeapBytes(others_) + HeapBytes(other_) + ResultBytes();
    }
    int Code() const noexcept override { return UNDO_ROWS; }

protected:
    void Exchange(bool) noexcept override
    {
        auto run = other_.begin();
        const auto exchange = [&](int64_t first) {
            std::swap_ranges(run, run + count_, (node_->tables.*table_).begin() + first);
            run += count_;
        };
        exchange(first_);
        for (const int64_t first : others_) exchange(first);
    }

private:
    const Table table_;
    const int64_t first_;
    const std::vector<int64_t> others_;  // where further runs begin
    const int64_t count_;
    std::vector<T> other_;
};

// The links of a node, with its entries in the children lists of its parents.
class LinksRecord final : public EditRecord {
public:
    LinksRecord(Node& node, std::vector<Link>&& links, unsigned effects);
    size_t Bytes() const noexcept override;
    int Code() const noexcept override { return UNDO_LINKS; }

protected:
    void Exchange(bool forwards) noexcept override;

private:
    std::vector<Link> other_;
    std::vector<uint32_t> places_;  // where the node stood with each parent that lost it
};

// One link of a node, which comes or goes.
class LinkRecord final : public EditRecord {
public:
    LinkRecord(Node& node, size_t index, Link&& link, bool inserts, unsigned effects)
        : EditRecord(*node.net, &node, effects), index_(index), link_(std::move(link)), inserts_(inserts)
    {}
    size_t Bytes() const noexcept override { return sizeof *this + HeapBytes(link_) + ResultBytes(); }
    int Code() const noexcept override { return UNDO_LINK; }

protected:
    void Exchange(bool forwards) noexcept override;

private:
    const size_t index_;
    Link link_;                // its parent stays when it is out
    size_t place_ = SIZE_MAX;  // among the children of the parent; at the end if it never stood there
    const bool inserts_;
};

// A node that is made or deleted, at its place among the net's nodes.
class NodeRecord final : public EditRecord {
public:
    // A new node, not in the net yet, with its entry of the name index.
    NodeRecord(Node& node, Net::NodeIndex::node_type&& slot);
    // A node of the net that is to leave it.
    explicit NodeRecord(Node& node);
    ~NodeRecord() override;
    size_t Bytes() const noexcept override;
    int Code() const noexcept override { return inserts_ ? UNDO_NODE_IN : UNDO_NODE_OUT; }

protected:
    void Exchange(bool forwards) noexcept override;

private:
    const bool inserts_;
    bool is_out_;
    Net::NodeIndex::node_type slot_;
};

class ElimOrderRecord final : public EditRecord {
public:
    ElimOrderRecord(Net& net, bool has_order, bool is_found, std::vector<Node*>&& nodes, unsigned effects);
    size_t Bytes() const noexcept override;
    int Code() const noexcept override { return UNDO_ELIM_ORDER; }

protected:
    void Exchange(bool) noexcept override;

private:
    bool has_order_, is_found_;
    std::vector<Node*> nodes_;
};

// Records a change and makes it.  The text of the step is `what` "of" the node unless it has one.
void RecordAndDo(Net& net, const Node* node, std::unique_ptr<UndoRecord> record, const char* what);

}  // namespace talora
