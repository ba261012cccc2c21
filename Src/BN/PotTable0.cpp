#include "BN/PotTable0.h"

#include <algorithm>
#include <cmath>

#include "Basic/Error.h"

namespace talora {

namespace {

constexpr double kLargeSum = 1e10;
constexpr float kSmallEntry = 1e-15f;  // largest entry below this: little of the float range is left
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
    const float share = float(std::max(0.0, 1 - known) / num_missing);
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

void WriteFamily(const FamilyRequest& request, float* entries)
{
    const ModelGraph& graph = *request.graph;
    const ModelGraph::Variable& own = graph.variables[size_t(request.variable)];
    const std::vector<int> scope = FamilyScope(request);
    std::vector<int> scope_states;
    for (int v : scope) scope_states.push_back(graph.variables[size_t(v)].num_states);

    // The free parents are walked through; those cut down fix where in the table the walk begins.
    std::vector<int> free_parents, free_states;
    std::vector<int64_t> row_strides;
    int64_t first_row = 0, stride = own.num_states;
    for (size_t k = own.parents.size(); k-- > 0;) {
        const int parent = own.parents[k], states = graph.variables[size_t(parent)].num_states;
        const int state = request.cut[size_t(parent)];
        if (state >= 0) {
            first_row += state * stride;
        } else if (states > 1) {
            free_parents.push_back(parent);
            free_states.push_back(states);
            row_strides.push_back(stride);
        }
        stride *= states;
    }
    const std::vector<int64_t> target_strides = StridesIn(free_parents, scope, scope_states);
    const int64_t own_stride = StridesIn(std::span(&request.variable, 1), scope, scope_states)[0];

    if (own.num_states == 0) {  // says nothing
        int64_t count = 1;
        for (int n : scope_states) count *= n;
        std::fill_n(entries, count, 1.0f);
        return;
    }
    const int own_cut = request.cut[size_t(request.variable)];
    std::vector<float> probs(size_t(std::max(1, own.num_states)));
    std::vector<int> state(free_parents.size());
    int64_t row = first_row;
    ForEachEntry(free_states, target_strides, [&](int64_t, int64_t place) {
        ReadRow(request.table == nullptr ? nullptr : request.table + row, own.num_states, probs.data());
        for (int s = 0; s < own.num_states; ++s) {
            if (own_cut >= 0 && s != own_cut) continue;
            const float weight = request.likelihood == nullptr ? 1.0f : request.likelihood[s];
            entries[place + s * own_stride] = probs[size_t(s)] * weight;
        }
        for (size_t k = free_parents.size(); k-- > 0;) {
            row += row_strides[k];
            if (++state[k] < free_states[k]) break;
            row -= row_strides[k] * free_states[k];
            state[k] = 0;
        }
    });
}

}  // namespace talora
