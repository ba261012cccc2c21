#include "BN/BnCarry.h"

#include <algorithm>

#include "BN/BnProbs.h"
#include "BN/TableSize.h"
#include "Basic/Error.h"

namespace talora {

namespace {

// new[i0, i1, ...] = old[sum of old_state_d(i_d) x stride_d], or fill where one of the states is new.
// Loop order: an odometer over the leading dimensions, the last one in the inner loop.
template <class T>
TableVector<T> Gather(const TableVector<T>& old, const std::vector<CarriedDim>& dims, T fill)
{
    int64_t size = 1;
    for (const CarriedDim& dim : dims) size *= dim.count;
    TableVector<T> gathered;
    if (size == 0) return gathered;
    gathered.reserve(size);

    // Offset of each state of each dimension in the old table, -1 for a new state.
    std::vector<std::vector<int64_t>> offsets;
    for (const CarriedDim& dim : dims) {
        std::vector<int64_t>& of_states = offsets.emplace_back(dim.count);
        for (int state = 0; state < dim.count; ++state) {
            const int old_state = dim.old_state.empty() ? state : dim.old_state[state];
            of_states[state] = old_state < 0 ? -1 : dim.old_row_stride * old_state;
        }
    }
    const std::vector<int64_t> single = {0};
    const std::vector<int64_t>& inner = offsets.empty() ? single : offsets.back();
    const int num_outer = std::max(0, int(dims.size()) - 1);
    std::vector<int> at(num_outer, 0);
    for (;;) {
        int64_t base = 0;
        bool is_new = false;
        for (int d = 0; d < num_outer; ++d) {
            is_new |= offsets[d][at[d]] < 0;
            base += offsets[d][at[d]];
        }
        for (const int64_t offset : inner)
            gathered.push_back(is_new || offset < 0 ? fill : old[base + offset]);
        int d = num_outer - 1;
        while (d >= 0 && ++at[d] == dims[d].count) at[d--] = 0;
        if (d < 0) break;
    }
    return gathered;
}

// Function states follow the renumbering of the node's own states.
void RenumberStates(TableVector<int32_t>& states, const TableCarry& carry)
{
    if (carry.own.old_state.empty()) return;
    std::vector<int> new_state(carry.old_num_states, UNDEF_STATE);
    for (int state = 0; state < carry.own.count; ++state)
        if (carry.own.old_state[state] >= 0) new_state[carry.own.old_state[state]] = state;
    for (int32_t& state : states)
        if (state >= 0) state = new_state[state];
}

void CheckNewSize(const Node& node, const TableCarry& carry)
{
    double rows = 1;
    for (const CarriedDim& dim : carry.parents) rows = MultiplySize(rows, dim.count);
    const NodeTables& tables = node.tables;
    const double entries = tables.probs.empty() ? rows : MultiplySize(rows, carry.own.count);
    if (entries > kMaxTableEntries)
        Fail(
            3615,
            "can't create >-CPTable for >-node '%s', because the >-CPTable would be too large (%g), due to too many parent >-node-s",
            node.name.c_str(), entries);
    double bytes = 0;
    if (!tables.probs.empty()) bytes += entries * sizeof(float);
    if (!tables.func_states.empty()) bytes += rows * sizeof(int32_t);
    if (!tables.func_reals.empty()) bytes += rows * sizeof(double);
    if (!tables.experience.empty()) bytes += rows * sizeof(double);
    CheckMemory(bytes, "to build table for >-node '%s' (see >-LimitMemoryUsage_vx)", node.name.c_str());
}

}  // namespace

std::vector<int64_t> RowStrides(const Node& node)
{
    std::vector<int64_t> strides(node.links.size());
    int64_t stride = 1;
    for (size_t i = node.links.size(); i-- > 0;) {
        strides[i] = stride;
        stride *= NumStates(*node.links[i].parent);
    }
    return strides;
}

TableCarry IdentityCarry(const Node& node)
{
    TableCarry carry;
    // A node without tables may have any number of parents, whose product need not be a number.
    const NodeTables& tables = node.tables;
    const bool has_tables = !tables.probs.empty() || !tables.func_states.empty() ||
                            !tables.func_reals.empty() || !tables.experience.empty();
    const std::vector<int64_t> strides =
        has_tables ? RowStrides(node) : std::vector<int64_t>(node.links.size(), 0);
    for (size_t i = 0; i < node.links.size(); ++i)
        carry.parents.push_back({NumStates(*node.links[i].parent), strides[i], {}});
    carry.own.count = carry.old_num_states = NumStates(node);
    return carry;
}

NodeTables CarryTables(const Node& node, const TableCarry& carry)
{
    const NodeTables& old = node.tables;
    NodeTables carried;
    if (old.probs.empty() && old.func_states.empty() && old.func_reals.empty() && old.experience.empty())
        return carried;
    CheckNewSize(node, carry);
    if (!old.probs.empty()) {
        std::vector<CarriedDim> dims = carry.parents;
        for (CarriedDim& dim : dims) dim.old_row_stride *= carry.old_num_states;
        dims.push_back(carry.own);
        dims.back().old_row_stride = 1;
        carried.probs = Gather(old.probs, dims, carry.fill);
    }
    if (!old.func_states.empty()) {
        carried.func_states = Gather(old.func_states, carry.parents, int32_t(UNDEF_STATE));
        RenumberStates(carried.func_states, carry);
    }
    if (!old.func_reals.empty()) carried.func_reals = Gather(old.func_reals, carry.parents, UndefDbl());
    if (!old.experience.empty()) carried.experience = Gather(old.experience, carry.parents, 0.0);
    return carried;
}

}  // namespace talora
