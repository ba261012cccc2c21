// Plans of sweeps against plain products and sums in double, for random cliques.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory_resource>
#include <random>
#include <vector>

#include "BN/Propagation/Sweep.h"

namespace talora {
namespace {

std::vector<int> AxesOf(const SweepScope& scope)
{
    std::vector<int> axes;
    for (int axis = 0; axis < kMostSweepAxes; ++axis)
        if (scope.axes >> axis & 1) axes.push_back(axis);
    return axes;
}

struct Clique {
    std::vector<int> sizes;
    std::vector<SweepScope> factors, outputs;
    std::vector<std::vector<float>> tables;

    int64_t SizeOf(const SweepScope& scope) const
    {
        int64_t size = 1;
        for (int axis : AxesOf(scope)) size *= sizes[size_t(axis)];
        return size;
    }
};

SweepScope DrawScope(std::mt19937& random, int num_axes, unsigned one_of)
{
    SweepScope scope;
    for (int axis = 0; axis < num_axes; ++axis)
        if (random() % one_of == 0) scope.axes |= uint64_t{1} << axis;
    return scope;
}

Clique DrawClique(std::mt19937& random, double most_entries)
{
    Clique clique;
    double entries = 1;
    const unsigned most_states = 2 + random() % 8;
    for (int left = 1 + int(random() % 12); left > 0; --left) {
        const int size = 2 + int(random() % most_states);  // variables of one state take no part
        if (entries * size > most_entries) continue;
        clique.sizes.push_back(size);
        entries *= size;
    }
    const int num_axes = int(clique.sizes.size());
    for (int left = 1 + int(random() % 4); left > 0; --left) {
        clique.factors.push_back(DrawScope(random, num_axes, 1 + random() % 3));
        std::vector<float> table(size_t(clique.SizeOf(clique.factors.back())));
        for (float& entry : table) entry = float(random() % 1024 + 1) / 1024;
        table.resize(table.size() + kSweepPadding);
        clique.tables.push_back(table);
    }
    for (int left = 1 + int(random() % 4); left > 0; --left) {
        clique.outputs.push_back(DrawScope(random, num_axes, 1 + random() % 4));
        const int excluded = int(random() % 6) - 1;  // each is left out by one output at most
        const bool is_free = std::none_of(clique.outputs.begin(), clique.outputs.end(),
                                          [&](const SweepScope& o) { return o.excluded == excluded; });
        if (excluded >= 0 && excluded < int(clique.factors.size()) && is_free)
            clique.outputs.back().excluded = excluded;
    }
    return clique;
}

int64_t PlaceOf(const Clique& clique, const SweepScope& scope, const std::vector<int>& state)
{
    int64_t place = 0;
    for (int axis : AxesOf(scope)) place = place * clique.sizes[size_t(axis)] + state[size_t(axis)];
    return place;
}

std::vector<double> Plain(const Clique& clique, const SweepScope& output)
{
    std::vector<double> sums(size_t(clique.SizeOf(output)));
    std::vector<int> state(clique.sizes.size());
    for (;;) {
        double product = 1;
        for (size_t f = 0; f < clique.factors.size(); ++f)
            if (int(f) != output.excluded)
                product *= double(clique.tables[f][size_t(PlaceOf(clique, clique.factors[f], state))]);
        sums[size_t(PlaceOf(clique, output, state))] += product;
        size_t axis = state.size();
        while (axis > 0 && ++state[axis - 1] == clique.sizes[axis - 1]) state[--axis] = 0;
        if (axis == 0) return sums;
    }
}

TEST(SweepTest, RandomCliquesMatchPlainSums)
{
    SweepBuilder builder;
    for (unsigned round = 0; round < 1000 && !testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE(round);
        std::mt19937 random(round);
        const Clique clique = DrawClique(random, round % 10 == 0 ? 60000 : 6000);
        const SweepPlan plan =
            builder.Build(clique.sizes, clique.factors, clique.outputs, std::pmr::get_default_resource());
        std::vector<const float*> tables;
        for (const auto& table : clique.tables) tables.push_back(table.data());
        std::vector<char> wanted(clique.outputs.size(), 1);
        if (round % 3 == 0)
            for (char& w : wanted) w = random() % 2;
        SweepScratch scratch;
        ASSERT_TRUE(RunSweep(plan, tables, wanted, 1, scratch));
        for (size_t o = 0; o < clique.outputs.size(); ++o) {
            if (!wanted[o]) continue;
            const std::vector<double> expected = Plain(clique, clique.outputs[o]);
            for (size_t i = 0; i < expected.size(); ++i)
                ASSERT_NEAR(double(scratch.output[o][i]), expected[i], 1e-5 * expected[i])
                    << "output " << o << " entry " << i;
        }
    }
}

}  // namespace
}  // namespace talora
