#include "BN/Propagation/PotTable0.h"

#include <gtest/gtest.h>

#include "Support/RandomModel.h"

namespace talora {

namespace {

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
