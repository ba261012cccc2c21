#include "BN/Propagation/PotTable0.h"

#include <gtest/gtest.h>

#include "Support/RandomModel.h"

namespace talora {

namespace {

Potential Make(std::vector<float> entries, double scale = 1)
{
    Potential potential;
    potential.variables = {0};
    potential.num_states = {int(entries.size())};
    potential.entries.assign(entries.begin(), entries.end());
    potential.scale = scale;
    return potential;
}

std::vector<float> Entries(const Potential& potential)
{
    return {potential.entries.begin(), potential.entries.end()};
}

TEST(PotTable0, ScaleMovesBetweenEntriesAndFactor)
{
    const float missing = MissingProb(), impossible = ImpossibleProb();
    Potential potential = Make({8, 0, missing, impossible}, 0.5);
    SetScale(potential, 2);
    EXPECT_EQ(Entries(potential), (std::vector<float>{2, 0, missing, impossible}));
    SetScale(potential, 2);
    EXPECT_EQ(Entries(potential), (std::vector<float>{2, 0, missing, impossible}));
    EXPECT_EQ(Normalize(potential), 4);
    EXPECT_EQ(potential.entries[0] * potential.scale, 1);
    Potential zero = Make({0, 0});
    EXPECT_EQ(Normalize(zero), 0);
    EXPECT_EQ(zero.scale, 1);
}

TEST(PotTable0, Division)
{
    const float impossible = ImpossibleProb();
    struct Row {
        const char* label;
        std::vector<float> dividend, divisor, quotient;
        double scale;  // of the result; the dividend has 3, the divisor 1.5
    };
    const Row rows[] = {
        {"entry by entry", {6, 8}, {2, 4}, {3, 2}, 2},
        {"by zero", {6, 8}, {0, 4}, {0, 2}, 2},
        {"markers", {6, impossible, impossible}, {impossible, 4, 0}, {impossible, impossible, 0}, 2},
        {"number", {6, 8, impossible}, {2}, {3, 4, impossible}, 2},
        {"number zero", {6, 8}, {0}, {6, 8}, 2},
    };
    for (const Row& row : rows) {
        Potential result = Make(row.dividend, 3);
        Potential divisor = Make(row.divisor, 1.5);
        if (row.divisor.size() == 1) divisor.variables.clear(), divisor.num_states.clear();
        Divide(result, divisor);
        EXPECT_EQ(Entries(result), row.quotient) << row.label;
        EXPECT_EQ(result.scale, row.scale) << row.label;
    }
    // A small factor with large entries: the entries come back to 1.
    Potential large = Make({3e10f, 1e10f}, 0.5);
    Divide(large, Make({1, 1}, 1));
    EXPECT_FLOAT_EQ(large.entries[0], 0.75f);
    EXPECT_NEAR(large.scale, 2e10, 1e4);
}

TEST(PotTable0, ProductsAndSumsKeepTheirRange)
{
    const int ab[] = {0, 1}, sizes[] = {2, 3}, b[] = {1};
    Potential product = MakePotential(ab, sizes);
    for (int i = 0; i < 6; ++i) product.entries[size_t(i)] = float(i + 1);
    Potential factor = MakePotential(b, std::span(sizes).last(1));
    for (int s = 0; s < 3; ++s) factor.entries[size_t(s)] = 1e-30f * float(s);
    for (int round = 0; round < 3; ++round) MultiplyBy(product, factor);
    const Potential sums = SumOnto(product, b);
    for (int s = 0; s < 3; ++s)
        EXPECT_NEAR(sums.entries[size_t(s)] * sums.scale / 1e-90, (2 * s + 5) * s * s * s, 1e-3);
}

TEST(PotTable0, RowsAsInferenceReadsThem)
{
    const float missing = MissingProb(), impossible = ImpossibleProb();
    struct Row {
        const char* label;
        std::vector<float> row, probs;
    };
    const Row rows[] = {
        {"complete", {0.25f, 0.75f, 0}, {0.25f, 0.75f, 0}},
        {"one missing", {0.25f, missing, 0}, {0.25f, 0.75f, 0}},
        {"two missing", {0.5f, missing, missing}, {0.5f, 0.25f, 0.25f}},
        {"nothing left over", {0.5f, missing, 0.75f}, {0.5f, 0, 0.75f}},
        {"all missing", {missing, missing, missing, missing}, {0.25f, 0.25f, 0.25f, 0.25f}},
        {"impossible", {impossible, impossible}, {0, 0}},
        {"zeros", {0, 0}, {0, 0}},
    };
    for (const Row& row : rows) {
        std::vector<float> probs(row.row.size());
        ReadRow(row.row.data(), int(probs.size()), probs.data());
        EXPECT_EQ(probs, row.probs) << row.label;
    }
}

// Every entry of a family's table stands where its configuration says, whichever parts are observed.
TEST(PotTable0, FamiliesAreCutAndLaidOut)
{
    std::mt19937 random(9);
    for (int round = 0; round < 300; ++round) {
        const RandomModel model = MakeModel(random, 5, 4, 4, true);
        const int v = int(random() % 5);
        std::vector<int> positive(5, -1), rank = {0, 1, 2, 3, 4};
        std::shuffle(rank.begin(), rank.end(), random);
        for (int k = 0; k < 5; ++k)
            if (random() % 3 == 0) positive[size_t(k)] = int(random() % unsigned(model.NumStates(k)));
        const float* table = model.Source()(v);
        const FamilyRequest request{&model.graph, v, table, nullptr, positive, rank};
        const std::vector<int> scope = FamilyScope(request);
        int64_t count = 1;
        for (int s : scope) count *= model.NumStates(s);
        std::vector<float> entries(size_t(count), -1.0f);
        WriteFamily(request, entries.data());
        for (int64_t i = 0; i < count; ++i) {
            std::vector<int> state(positive);
            int64_t rest = i;
            for (size_t k = scope.size(); k-- > 0; rest /= model.NumStates(scope[k]))
                state[size_t(scope[k])] = int(rest % model.NumStates(scope[k]));
            int64_t row = 0;
            for (int p : model.graph.variables[size_t(v)].parents)
                row = row * model.NumStates(p) + std::max(0, state[size_t(p)]);
            const int n = model.NumStates(v);
            EXPECT_FLOAT_EQ(entries[size_t(i)], float(EntryProb(table == nullptr ? nullptr : table + row * n,
                                                                n, std::max(0, state[size_t(v)]))));
        }
    }
}

}  // namespace

}  // namespace talora
