// Generated nets for the benchmarks, in the shape of three kinds of published ones that are hard in different
// ways: a pedigree (few states, deep entanglement), a crop through a season (few variables, up to a hundred
// states), and an examination of nerves and muscles (a thousand variables, many zeros).
//
// The same nets on every machine: the only randomness is a seeded generator of our own.
#pragma once

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <string>
#include <vector>

#include "BN/Order/DenseElimination.h"
#include "BN/Order/Triangulation.h"

namespace talora::bench {

// A model without names.
struct PlainNet {
    ModelGraph graph;
    std::vector<std::vector<float>> tables;  // parents first, own states last
};

class NetMaker {
public:
    explicit NetMaker(uint64_t seed) : random(seed) {}

    // With a table in which row(states of the parents, probs) fills in what each state weighs.
    template <class Row>
    int Add(int num_states, std::vector<int> parents, Row row)
    {
        const int v = int(net.graph.variables.size());
        int64_t rows = 1;
        for (int parent : parents) rows *= States(parent);
        std::vector<float> table;
        std::vector<int> states(parents.size());
        std::vector<double> probs;
        for (int64_t r = 0; r < rows; ++r) {
            int64_t rest = r;
            for (size_t i = parents.size(); i-- > 0; rest /= States(parents[i]))
                states[i] = int(rest % States(parents[i]));
            probs.assign(size_t(num_states), 0);
            row(states, probs);
            double sum = 0;
            for (double p : probs) sum += p;
            for (double p : probs) table.push_back(float(p / sum));
        }
        net.graph.variables.push_back({num_states, false, std::move(parents), v});
        net.tables.push_back(std::move(table));
        return v;
    }

    // Any distribution per row.
    int AddRandom(int num_states, std::vector<int> parents)
    {
        return Add(num_states, std::move(parents), [&](const auto&, auto& probs) {
            for (double& p : probs) p = 0.05 + random.Fraction() * random.Fraction();
        });
    }

    // Near a weighted mean of the parents, in shares of their largest states; nothing beyond `reach` states.
    int AddBlend(int num_states, std::vector<int> parents, double reach)
    {
        std::vector<double> weights;
        double sum = 0;
        for (size_t i = 0; i < parents.size(); ++i) sum += weights.emplace_back(0.2 + random.Fraction());
        std::vector<int> last;
        for (int parent : parents) last.push_back(std::max(1, States(parent) - 1));
        return Add(num_states, std::move(parents), [&](const auto& states, auto& probs) {
            double mean = 0;
            for (size_t i = 0; i < states.size(); ++i) mean += weights[i] / sum * states[i] / last[i];
            mean *= num_states - 1;
            for (int s = 0; s < num_states; ++s) {
                const double far = std::abs(s - mean) / reach;
                if (far < 1) probs[size_t(s)] = 1 - far * far;
            }
            if (*std::max_element(probs.begin(), probs.end()) <= 0) probs[size_t(std::lround(mean))] = 1;
        });
    }

    int States(int v) const { return net.graph.variables[size_t(v)].num_states; }
    int Size() const { return int(net.graph.variables.size()); }

    PlainNet net;
    SearchRandom random;
};

// Alleles at two linked loci through generations that marry within a small circle.  Per person and locus: the
// allele from the father and from the mother, which of a parent's two each is (linked from locus to locus),
// and what can be seen of the two.
inline PlainNet PedigreeNet()
{
    constexpr int kAlleles[] = {4, 2};
    constexpr int kFounders = 20, kPersons = 78, kCircle = 4;
    struct Person {
        int allele[2][2];  // by locus; from the father, from the mother
    };
    NetMaker maker(22);
    std::vector<Person> persons;
    const auto pass_on = [](const auto& states, auto& probs) {
        probs[size_t(states[2] ? states[1] : states[0])] = 1;
    };
    const auto linked = [](const auto& states, auto& probs) {
        probs[size_t(states[0])] = 0.9, probs[size_t(1 - states[0])] = 0.1;
    };
    for (int k = 0; k < kPersons; ++k) {
        Person person{};
        int parents[2] = {}, selector[2] = {};
        if (k >= kFounders) {
            const int circle = std::min(k, kCircle);
            parents[0] = k - 1 - maker.random.Below(circle);
            do parents[1] = k - 1 - maker.random.Below(circle);
            while (parents[1] == parents[0]);
        }
        for (int locus = 0; locus < 2; ++locus) {
            for (int side = 0; side < 2; ++side) {
                if (k < kFounders) {
                    person.allele[locus][side] = maker.AddRandom(kAlleles[locus], {});
                    continue;
                }
                selector[side] = locus == 0 ? maker.AddRandom(2, {}) : maker.Add(2, {selector[side]}, linked);
                const int* from = persons[size_t(parents[side])].allele[locus];
                person.allele[locus][side] =
                    maker.Add(kAlleles[locus], {from[0], from[1], selector[side]}, pass_on);
            }
            maker.AddRandom(kAlleles[locus], {person.allele[locus][0], person.allele[locus][1]});
        }
        persons.push_back(person);
    }
    return std::move(maker.net);
}

// A crop and its disease through the four parts of a season.
inline PlainNet CropNet()
{
    NetMaker maker(22);
    int leaves = maker.AddBlend(12, {}, 8), disease = maker.AddBlend(10, {}, 6),
        mass = maker.AddBlend(30, {}, 20);
    for (int part = 0; part < 4; ++part) {
        const int rain = maker.AddRandom(4, {});
        const int warmth = maker.AddRandom(5, {});
        const int climate = maker.AddBlend(11, {rain, leaves}, 4);
        const int spraying = maker.AddRandom(4, {});
        disease = maker.AddBlend(part == 3 ? 22 : 16, {disease, climate, spraying}, 4);
        leaves = maker.AddBlend(part == 3 ? 20 : 14, {leaves, disease}, 4);
        const int growth = maker.AddBlend(part == 3 ? 50 : 22, {leaves, warmth}, 6);
        mass = maker.AddBlend(part == 3 ? 100 : 27, {mass, growth}, 9);
    }
    return std::move(maker.net);
}

// Nerves along which lesions spread, muscles on them, and what a needle finds in each muscle: sums of many
// small contributions, near-deterministic, with up to 21 states.
inline PlainNet MuscleNet()
{
    NetMaker maker(23);
    const int disease = maker.AddRandom(5, {});
    std::vector<int> nerves = {maker.AddRandom(7, {disease})};
    for (int m = 0; maker.Size() < 1000; ++m) {
        if (m % 2 == 1)
            nerves.push_back(
                maker.AddBlend(7, {nerves[size_t(maker.random.Below(int(nerves.size())))], disease}, 3));
        const int nerve = nerves.back();
        const int loss = maker.AddBlend(7, {nerve, disease}, 3);
        const int fibres = maker.AddBlend(8, {loss}, 4);
        const int repair = maker.AddBlend(4, {disease}, 3);
        int effect = maker.AddBlend(7, {loss, repair}, 3);
        for (int side = 0; side < 3 && maker.Size() + 7 <= 1000; ++side) {
            const int size = maker.AddBlend(8, {fibres, effect}, 3);
            const int noise = maker.AddRandom(3, {});
            const int amplitude = maker.AddBlend(21, {size, repair}, 3);
            const int duration = maker.AddBlend(13, {size, noise}, 3);
            effect = maker.AddBlend(7, {effect, duration}, 2);
            maker.AddBlend(9, {amplitude, noise}, 3);
            maker.AddBlend(19, {duration}, 4);
        }
        for (int count = 0; count < 3 && maker.Size() < 1000; ++count) maker.AddBlend(5, {effect, fibres}, 2);
    }
    return std::move(maker.net);
}

}  // namespace talora::bench
