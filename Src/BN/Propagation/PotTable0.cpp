// What a row of a conditional probability table means, and tables cut down to findings and laid out anew.
#include "BN/Propagation/PotTable0.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "Basic/Error.h"

namespace talora {

namespace {

constexpr double kSumTolerance = 2e-6;  // by which rows may differ from a sum of 1

}  // namespace

void ReadRow(const float* row, int num_states, float* probs)
{
    int num_missing = 0;
    double known = 0;
    for (int s = 0; s < num_states; ++s) {
        if (row != nullptr && row[s] == ImpossibleProb()) {
            std::fill_n(probs, num_states, 0.0f);
            return;
        }
        const bool missing = row == nullptr || row[s] == MissingProb();
        probs[s] = !missing && row[s] > 0 ? row[s] : 0;
        num_missing += missing;
        known += double(probs[s]);
    }
    if (num_missing == 0) return;
    // What rounding leaves of a row that sums to 1 is no probability.
    const double left = 1 - known;
    const float share = left > kSumTolerance ? float(left / num_missing) : 0;
    for (int s = 0; s < num_states; ++s)
        if (row == nullptr || row[s] == MissingProb()) probs[s] = share;
}

std::vector<int> FamilyScope(const FamilyRequest& request)
{
    const ModelGraph& graph = *request.graph;
    std::vector<int> scope = graph.variables[size_t(request.variable)].parents;
    scope.push_back(request.variable);
    std::erase_if(scope, [&](int v) {
        return graph.variables[size_t(v)].num_states <= 1 || request.cut[size_t(v)] >= 0;
    });
    std::sort(scope.begin(), scope.end(),
              [&](int a, int b) { return request.rank[size_t(a)] < request.rank[size_t(b)]; });
    return scope;
}

namespace {

// Tables of more dimensions than this, of two states at least, exist nowhere.
constexpr size_t kMostAxes = 64;

// A dimension of a family's table as it is written.
struct FamilyAxis {
    int rank;
    int num_states;
    int64_t source;  // strides
    int64_t target;
    int state;
};

// The free parents from the innermost to the outermost, then the own variable if it is free.
struct FamilyWalk {
    FamilyAxis axes[kMostAxes + 1];
    size_t num_parents = 0;
    int64_t first_row = 0;  // where those that are cut down fix the place to begin
    int64_t own_stride = 0;
    int64_t count = 1;  // entries to be written

    explicit FamilyWalk(const FamilyRequest& request)
    {
        const ModelGraph& graph = *request.graph;
        const ModelGraph::Variable& own = graph.variables[size_t(request.variable)];
        int64_t stride = own.num_states;
        for (size_t k = own.parents.size(); k-- > 0;) {
            const size_t parent = size_t(own.parents[k]);
            const int states = graph.variables[parent].num_states, state = request.cut[parent];
            if (state >= 0) {
                first_row += state * stride;
            } else if (states > 1) {
                if (num_parents == kMostAxes) throw std::bad_alloc();
                axes[num_parents++] = {request.rank[parent], states, stride, 0, 0};
            }
            stride *= states;
        }
        size_t num_axes = num_parents;
        const bool own_is_free = own.num_states > 1 && request.cut[size_t(request.variable)] < 0;
        if (own_is_free) axes[num_axes++] = {request.rank[size_t(request.variable)], own.num_states, 1, 0, 0};
        for (size_t i = 0; i < num_axes; ++i) {
            axes[i].target = 1;
            for (size_t j = 0; j < num_axes; ++j)
                if (axes[j].rank > axes[i].rank) axes[i].target *= axes[j].num_states;
            count *= axes[i].num_states;
        }
        if (own_is_free) own_stride = axes[num_parents].target;
    }

    // Goes to the next row; false after the last.
    bool Advance(int64_t& row, int64_t& place)
    {
        for (size_t k = 0; k < num_parents; ++k) {
            FamilyAxis& axis = axes[k];
            row += axis.source;
            place += axis.target;
            if (++axis.state < axis.num_states) return true;
            row -= axis.source * axis.num_states;
            place -= axis.target * axis.num_states;
            axis.state = 0;
        }
        return false;
    }
};

}  // namespace

void WriteFamily(const FamilyRequest& request, float* entries)
{
    FamilyWalk walk(request);
    const int num_states = request.graph->variables[size_t(request.variable)].num_states;
    if (num_states == 0) {  // says nothing
        std::fill_n(entries, walk.count, 1.0f);
        return;
    }
    const int cut = request.cut[size_t(request.variable)];
    const int first = std::max(0, cut), end = cut < 0 ? num_states : cut + 1;
    const float* table = request.table;
    std::vector<float> probs;
    int64_t row = walk.first_row, place = 0;
    do {
        const float* numbers = table == nullptr ? nullptr : table + row;
        if (numbers == nullptr ||
            !std::all_of(numbers, numbers + num_states, [](float p) { return p >= 0; })) {
            probs.resize(size_t(num_states));
            ReadRow(numbers, num_states, probs.data());
            numbers = probs.data();
        }
        float* entry = entries + place;
        for (int s = first; s < end; ++s, entry += walk.own_stride)
            *entry = request.likelihood == nullptr ? numbers[s] : numbers[s] * request.likelihood[s];
    } while (walk.Advance(row, place));
}

}  // namespace talora
