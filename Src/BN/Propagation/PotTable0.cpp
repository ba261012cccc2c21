#include "BN/Propagation/PotTable0.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "Basic/Error.h"

namespace talora {

namespace {

constexpr double kLargeSum = 1e10;
constexpr double kSumTolerance = 2e-6;  // by which rows may differ from a sum of 1
constexpr float kSmallEntry = 1e-15f;   // largest entry below this: little of the float range is left
constexpr float kLargeEntry = 1e15f;

// For each of `variables`, its stride in a table over `scope` with these state counts; 0 if not in it.
std::vector<int64_t> StridesIn(std::span<const int> variables, const std::vector<int>& scope,
                               const std::vector<int>& num_states)
{
    std::vector<int64_t> strides(variables.size());
    int64_t stride = 1;
    for (size_t k = scope.size(); k-- > 0; stride *= num_states[k]) {
        const auto found = std::find(variables.begin(), variables.end(), scope[k]);
        if (found != variables.end()) strides[size_t(found - variables.begin())] = stride;
    }
    return strides;
}

// Calls visit (index, place) for each entry of a table, place moving by the strides.
template <class Visit>
void ForEachEntry(std::span<const int> sizes, std::span<const int64_t> strides, Visit visit)
{
    std::vector<int> state(sizes.size());
    int64_t count = 1;
    for (int size : sizes) count *= size;
    int64_t place = 0;
    for (int64_t i = 0; i < count; ++i) {
        visit(i, place);
        for (size_t k = sizes.size(); k-- > 0;) {
            place += strides[k];
            if (++state[k] < sizes[k]) break;
            place -= strides[k] * sizes[k];
            state[k] = 0;
        }
    }
}

double SumEntries(const Potential& potential)
{
    double sum = 0;
    for (float entry : potential.entries)
        if (!IsMarker(entry)) sum += double(entry);
    return sum;
}

void ScaleEntries(Potential& potential, double factor)
{
    for (float& entry : potential.entries)
        if (entry != 0 && !IsMarker(entry)) entry = float(double(entry) * factor);
}

float Quotient(float dividend, float divisor)
{
    if (divisor == 0) return 0;
    if (divisor == ImpossibleProb() || dividend == ImpossibleProb()) return ImpossibleProb();
    if (divisor == MissingProb() || dividend == MissingProb()) return MissingProb();
    return dividend / divisor;
}

float Product(float a, float b)
{
    if (a == ImpossibleProb() || b == ImpossibleProb()) return ImpossibleProb();
    if (a == MissingProb() || b == MissingProb()) return MissingProb();
    return a * b;
}

}  // namespace

Potential MakePotential(std::span<const int> variables, std::span<const int> num_states)
{
    Potential potential;
    potential.variables.assign(variables.begin(), variables.end());
    potential.num_states.assign(num_states.begin(), num_states.end());
    size_t count = 1;
    for (int n : num_states) count *= size_t(n);
    potential.entries.assign(count, 1.0f);
    return potential;
}

void SetScale(Potential& potential, double scale)
{
    TALORA_CHECK(scale > 0);
    if (scale == potential.scale) return;
    ScaleEntries(potential, potential.scale / scale);
    potential.scale = scale;
}

void FixUnderflow(Potential& potential)
{
    float largest = 0;
    for (float entry : potential.entries)
        if (!IsMarker(entry)) largest = std::max(largest, entry);
    if (largest == 0 || (largest > kSmallEntry && largest < kLargeEntry)) return;
    int exponent;
    std::frexp(largest, &exponent);
    SetScale(potential, std::ldexp(potential.scale, exponent));
}

double Normalize(Potential& potential)
{
    const double total = SumEntries(potential) * potential.scale;
    if (total != 0) potential.scale /= total;
    return total;
}

void Divide(Potential& dividend, const Potential& divisor)
{
    if (divisor.variables.empty()) {
        const float number = divisor.entries[0];
        if (number != 0) ScaleEntries(dividend, 1 / double(number));
    } else {
        TALORA_CHECK(divisor.variables == dividend.variables);
        for (size_t i = 0; i < dividend.entries.size(); ++i)
            dividend.entries[i] = Quotient(dividend.entries[i], divisor.entries[i]);
    }
    dividend.scale /= divisor.scale;
    const double sum = SumEntries(dividend);
    if (dividend.scale < 1 && sum > kLargeSum) {
        ScaleEntries(dividend, 1 / sum);
        dividend.scale *= sum;
    }
    FixUnderflow(dividend);
}

void MultiplyBy(Potential& potential, const Potential& factor)
{
    const std::vector<int64_t> strides = StridesIn(potential.variables, factor.variables, factor.num_states);
    ForEachEntry(potential.num_states, strides, [&](int64_t i, int64_t place) {
        float& entry = potential.entries[size_t(i)];
        entry = Product(entry, factor.entries[size_t(place)]);
    });
    potential.scale *= factor.scale;
    FixUnderflow(potential);
}

Potential SumOnto(const Potential& potential, std::span<const int> variables)
{
    std::vector<int> num_states;
    for (int variable : variables) {
        const auto& all = potential.variables;
        const auto found = std::find(all.begin(), all.end(), variable);
        TALORA_CHECK(found != all.end());
        num_states.push_back(potential.num_states[size_t(found - all.begin())]);
    }
    Potential sums = MakePotential(variables, num_states);
    std::vector<double> totals(sums.entries.size());
    const std::vector<int64_t> strides = StridesIn(potential.variables, sums.variables, num_states);
    ForEachEntry(potential.num_states, strides, [&](int64_t i, int64_t place) {
        const float entry = potential.entries[size_t(i)];
        if (!IsMarker(entry)) totals[size_t(place)] += double(entry);
    });
    std::copy(totals.begin(), totals.end(), sums.entries.begin());
    sums.scale = potential.scale;
    return sums;
}

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
