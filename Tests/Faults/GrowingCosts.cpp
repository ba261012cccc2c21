// Many equal edits: twice as many take twice the memory in all, not four times.
#include <gtest/gtest.h>

#include "../../Bench/GrowingJobs.h"
#include "CountedMemory.h"

namespace faults {
namespace {

// Bytes that n edits take, given back or not, and allocations.
struct Cost {
    int64_t bytes, allocations, errors;
};

Cost CostOf(const growing::Job& job, int n)
{
    growing::Ground ground = growing::Prepared(job, n);
    const int64_t bytes = TotalBytes(), allocations = CountAllocations();
    job.run(ground, n);
    const Cost cost = {TotalBytes() - bytes, CountAllocations() - allocations,
                       GetError_vx(ground.env, ERROR_SEVERITY, 0, nullptr) != nullptr};
    CloseTalora_bn(ground.env, nullptr);
    return cost;
}

class GrowingCosts : public testing::TestWithParam<growing::Job> {};

TEST_P(GrowingCosts, AreProportional)
{
    constexpr int kEdits = 2000;
    constexpr double kMost = 2.6;  // lists that grow by doubling make it a little more than 2
    CostOf(GetParam(), kEdits);    // fills pools that are never given back
    const Cost once = CostOf(GetParam(), kEdits), twice = CostOf(GetParam(), 2 * kEdits);
    EXPECT_EQ(once.errors + twice.errors, 0);
    EXPECT_LT(double(twice.bytes), kMost * double(once.bytes) + 1e6);
    EXPECT_LT(double(twice.allocations), kMost * double(once.allocations) + 1e4);
}

INSTANTIATE_TEST_SUITE_P(All, GrowingCosts, testing::ValuesIn(growing::kJobs), [](const auto& row) {
    std::string name;
    for (const char c : std::string(row.param.label)) name += isalnum(c) ? c : '_';
    return name;
});

}  // namespace
}  // namespace faults
