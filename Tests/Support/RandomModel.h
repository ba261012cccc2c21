// Small random models with tables, and their beliefs by going through all configurations in doubles.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "BN/Order/Graph_Triangulate.h"
#include "BN/Order/Junction.h"
#include "BN/Propagation/Propagate.h"
#include "Basic/Memory.h"

namespace talora {

struct RandomModel {
    ModelGraph graph;
    std::vector<std::vector<float>> tables;

    TableSource Source() const
    {
        return [this](int v) { return tables[size_t(v)].empty() ? nullptr : tables[size_t(v)].data(); };
    }
    int NumStates(int v) const { return graph.variables[size_t(v)].num_states; }
    int size() const { return int(graph.variables.size()); }
};

struct Findings {
    std::vector<int> positive;
    std::vector<std::vector<float>> likelihood;

    explicit Findings(int size) : positive(size_t(size), -1), likelihood(static_cast<size_t>(size)) {}
};

inline JunctionTree TreeOf(const ModelGraph& graph, bool has_decisions = false)
{
    std::vector<int> nodes;
    for (int v = 0; v < int(graph.variables.size()); ++v) nodes.push_back(v);
    return JoinTree(graph, Triangulate(graph, FindGreedyOrder(graph, nodes, nullptr).order), has_decisions);
}

// A row: ordinary, with a certain state, with zeros, or (with odd rows) missing in part or as a
// whole, impossible, or all zero.
inline void FillRow(std::mt19937& random, float* row, int n, bool odd_rows)
{
    std::exponential_distribution<float> weight;
    const int kind = int(random() % (odd_rows ? 14 : 8));
    float sum = 0;
    for (int s = 0; s < n; ++s) {
        row[s] = kind == 0 ? 0 : kind == 1 && random() % 2 ? 0 : weight(random) + 0.01f;
        sum += row[s];
    }
    if (kind == 0 || sum == 0) row[random() % unsigned(n)] = sum = 1;
    for (int s = 0; s < n; ++s) row[s] /= sum;
    if (kind == 9) std::fill_n(row, n, MissingProb());
    if (kind == 10) row[random() % unsigned(n)] = MissingProb();
    if (kind == 11 && random() % 4 == 0) std::fill_n(row, n, ImpossibleProb());
    if (kind == 12 && random() % 4 == 0) std::fill_n(row, n, 0.0f);
}

inline void FillTable(RandomModel& model, std::mt19937& random, int v, bool odd_rows)
{
    int64_t count = model.NumStates(v);
    for (int p : model.graph.variables[size_t(v)].parents) count *= model.NumStates(p);
    std::vector<float>& table = model.tables[size_t(v)];
    table.resize(size_t(count));
    for (int64_t row = 0; row < count; row += model.NumStates(v))
        FillRow(random, table.data() + row, model.NumStates(v), odd_rows);
}

inline RandomModel MakeModel(std::mt19937& random, int size, int most_states, int most_parents, bool odd_rows)
{
    RandomModel model;
    model.graph.variables.resize(size_t(size));
    model.tables.resize(size_t(size));
    std::vector<int> place(static_cast<size_t>(size));  // variables need not come after their parents
    for (int v = 0; v < size; ++v) place[size_t(v)] = v;
    std::shuffle(place.begin(), place.end(), random);
    for (int k = 0; k < size; ++k) {
        ModelGraph::Variable& variable = model.graph.variables[size_t(place[size_t(k)])];
        variable.num_states = 1 + int(random() % unsigned(most_states));
        std::vector<int> earlier(place.begin(), place.begin() + k);
        std::shuffle(earlier.begin(), earlier.end(), random);
        earlier.resize(std::min(size_t(k), size_t(random() % unsigned(most_parents + 1))));
        variable.parents = earlier;
    }
    for (int v = 0; v < size; ++v)
        if (!odd_rows || random() % 8 != 0) FillTable(model, random, v, odd_rows);
    return model;
}

// Probability of one row entry as inference should read it.
inline double EntryProb(const float* row, int n, int state)
{
    if (row == nullptr) return 1.0 / n;
    double known = 0;
    int missing = 0;
    for (int s = 0; s < n; ++s) {
        if (row[s] == ImpossibleProb()) return 0;
        row[s] == MissingProb() ? void(++missing) : void(known += double(row[s]));
    }
    if (row[state] == MissingProb()) return std::max(0.0, 1 - known) / missing;
    return std::abs(row[state]) < std::numeric_limits<float>::min() ? 0 : double(row[state]);
}

inline double LocalProb(const RandomModel& model, const Findings& findings, const std::vector<int>& state,
                        int v)
{
    const int s = state[size_t(v)], n = model.NumStates(v);
    if (findings.positive[size_t(v)] >= 0 && findings.positive[size_t(v)] != s) return 0;
    int64_t row = 0;
    for (int p : model.graph.variables[size_t(v)].parents) row = row * model.NumStates(p) + state[size_t(p)];
    const std::vector<float>& table = model.tables[size_t(v)];
    const double prob = EntryProb(table.empty() ? nullptr : table.data() + row * n, n, s);
    const std::vector<float>& likelihood = findings.likelihood[size_t(v)];
    return likelihood.empty() ? prob : prob * double(likelihood[size_t(s)]);
}

inline double JointProb(const RandomModel& model, const Findings& findings, const std::vector<int>& state)
{
    double product = 1;
    for (int v = 0; v < model.size() && product > 0; ++v) product *= LocalProb(model, findings, state, v);
    return product;
}

// Calls visit (state, product) for each configuration that the model and the findings leave possible.
// Parents take their states before their children, so what is impossible is cut off at once.
template <class Visit>
void ForEachConfiguration(const RandomModel& model, const Findings& findings, Visit&& visit)
{
    std::vector<int> order;
    std::vector<char> is_listed(size_t(model.size()));
    while (int(order.size()) < model.size())
        for (int v = 0; v < model.size(); ++v) {
            const std::vector<int>& parents = model.graph.variables[size_t(v)].parents;
            if (is_listed[size_t(v)] ||
                !std::all_of(parents.begin(), parents.end(), [&](int p) { return is_listed[size_t(p)]; }))
                continue;
            is_listed[size_t(v)] = 1;
            order.push_back(v);
        }
    std::vector<int> state(order.size());
    const auto go_on = [&](const auto& self, size_t k, double product) -> void {
        if (k == order.size()) return visit(state, product);
        int& s = state[size_t(order[k])];
        for (s = 0; s < model.NumStates(order[k]); ++s)
            if (const double prob = LocalProb(model, findings, state, order[k]); prob > 0)
                self(self, k + 1, product * prob);
    };
    go_on(go_on, 0, 1);
}

struct Enumeration {
    double total = 0;
    std::vector<std::vector<double>> beliefs;
};

inline Enumeration Enumerate(const RandomModel& model, const Findings& findings)
{
    Enumeration result;
    for (int v = 0; v < model.size(); ++v) result.beliefs.emplace_back(size_t(model.NumStates(v)));
    ForEachConfiguration(model, findings, [&](const std::vector<int>& state, double product) {
        result.total += product;
        for (size_t v = 0; v < state.size(); ++v) result.beliefs[v][size_t(state[v])] += product;
    });
    for (auto& belief : result.beliefs)
        for (double& b : belief) b /= result.total;
    return result;
}

}  // namespace talora
