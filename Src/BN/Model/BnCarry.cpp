// Gathers tables anew when parents or states change.
#include "BN/Model/BnCarry.h"

#include <algorithm>

#include "BN/Model/BnProbs.h"
#include "BN/Model/TableSize.h"
#include "Basic/Error.h"

namespace talora {

namespace {

// Neighbouring dimensions that keep their states and their places beside each other become one, so that what
// stays together in memory is copied in long runs.
std::vector<CarriedDim> Merged(const std::vector<CarriedDim>& dims)
{
    std::vector<CarriedDim> merged;
    for (const CarriedDim& dim : dims) {
        if (!merged.empty() && merged.back().old_state.empty() && dim.old_state.empty() &&
            merged.back().old_row_stride == dim.count * dim.old_row_stride) {
            merged.back().count *= dim.count;
            merged.back().old_row_stride = dim.old_row_stride;
        } else {
            merged.push_back(dim);
        }
    }
    return merged;
}

constexpr int64_t kNewEntry = -1;

// Where a state of a dimension was in the old table, counted from base.
int64_t OldPlace(const CarriedDim& dim, int64_t base, int64_t state)
{
    const int64_t old_state = dim.old_state.empty() ? state : dim.old_state[state];
    return base == kNewEntry || old_state < 0 ? kNewEntry : base + dim.old_row_stride * old_state;
}

// All entries of the last dimension.
template <class T>
void GatherRun(const TableVector<T>& old, const CarriedDim& dim, int64_t base, T fill,
               TableVector<T>& gathered)
{
    if (base == kNewEntry)
        gathered.insert(gathered.end(), dim.count, fill);
    else if (dim.old_state.empty() && dim.old_row_stride == 1)
        gathered.insert(gathered.end(), old.begin() + base, old.begin() + base + dim.count);
    else if (dim.old_state.empty() && dim.old_row_stride == 0)
        gathered.insert(gathered.end(), dim.count, old[base]);
    else
        for (int64_t state = 0; state < dim.count; ++state) {
            const int64_t place = OldPlace(dim, base, state);
            gathered.push_back(place == kNewEntry ? fill : old[place]);
        }
}

// new[i0, i1, ...] = old[sum of old_state_d(i_d) x stride_d], or fill where one of the states is new.
// Loop order: an odometer over the leading dimensions, the last one as a run.
template <class T>
TableVector<T> Gather(const TableVector<T>& old, const std::vector<CarriedDim>& all_dims, T fill)
{
    int64_t size = 1;
    for (const CarriedDim& dim : all_dims) size *= dim.count;
    TableVector<T> gathered;
    if (size == 0) return gathered;
    gathered.reserve(size);
    std::vector<CarriedDim> dims = Merged(all_dims);
    if (dims.empty()) dims.push_back({1, 0, {}});

    const int num_outer = int(dims.size()) - 1;
    std::vector<int64_t> at(num_outer, 0), base(num_outer + 1, 0);  // base[d]: places before dimension d
    for (int changed = 0;;) {
        for (int d = changed; d < num_outer; ++d) base[d + 1] = OldPlace(dims[d], base[d], at[d]);
        GatherRun(old, dims[num_outer], base[num_outer], fill, gathered);
        changed = num_outer - 1;
        while (changed >= 0 && ++at[changed] == dims[changed].count) at[changed--] = 0;
        if (changed < 0) break;
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

// Of all tables of the node together, before any of them is made.
void CheckNewSize(const Node& node, const TableCarry& carry)
{
    double rows = 1;
    for (const CarriedDim& dim : carry.parents) rows = MultiplySize(rows, dim.count);
    const NodeTables& tables = node.tables;
    const double entries = tables.probs.empty() ? rows : MultiplySize(rows, carry.own.count);
    if (entries > kMaxTableEntries) Fail<3615>(node.name.c_str(), entries);
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

// A CPT has the node's own states as its last dimension; the other tables have one entry per row.
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
