// Parts of propagation that stand alone: what is stale, which cliques wait, and the plans of sweeps.
#pragma once

#include <bit>
#include <cstdint>
#include <memory>
#include <memory_resource>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "BN/Propagation/Sweep.h"

namespace talora {

// Where what a clique knows comes from, besides its children's numbers.
enum Source : int { kFromMate = -1, kFromModel = -2, kFromNone = -3 };

// When the inputs of a clique last changed.  It is enough to keep the newest change, where it came
// from, and the newest that came from elsewhere.
struct Inputs {
    int64_t newest = 0;
    int64_t newest_elsewhere = -1;
    int source = kFromModel;

    void Change(int from, int64_t now)
    {
        if (from != source) {
            newest_elsewhere = newest;
            source = from;
        }
        newest = now;
    }
    int64_t NewestExcept(int from) const { return from == source ? newest_elsewhere : newest; }
};

// A set of cliques that is walked in either order while it changes.
class CliqueSet {
public:
    explicit CliqueSet(int size) : words_((size_t(size) + 63) / 64) {}
    void Insert(int i) { words_[size_t(i) / 64] |= uint64_t{1} << (i % 64); }
    void Erase(int i) { words_[size_t(i) / 64] &= ~(uint64_t{1} << (i % 64)); }

    // The largest member below `end`, or the smallest from `first`; -1 if there is none.
    int Below(int end) const
    {
        if (end <= 0) return -1;
        size_t w = size_t(end - 1) / 64;
        uint64_t word = words_[w] & (~uint64_t{0} >> (63 - (end - 1) % 64));
        while (word == 0) {
            if (w-- == 0) return -1;
            word = words_[w];
        }
        return int(w * 64) + 63 - std::countl_zero(word);
    }
    int From(int first) const
    {
        size_t w = size_t(first) / 64;
        if (w >= words_.size()) return -1;
        uint64_t word = words_[w] & (~uint64_t{0} << (first % 64));
        while (word == 0) {
            if (++w == words_.size()) return -1;
            word = words_[w];
        }
        return int(w * 64) + std::countr_zero(word);
    }

private:
    std::vector<uint64_t> words_;
};

constexpr size_t kMostPlans = 50000;

struct KeyHash {
    size_t operator()(const std::pmr::vector<int>& key) const
    {
        return std::hash<std::string_view>()(
            {reinterpret_cast<const char*>(key.data()), key.size() * sizeof(int)});
    }
};

// Plans by what they are for: cliques of the same form share one.
class PlanStore {
public:
    const SweepPlan* Find(std::span<const int> sizes, std::span<const SweepScope> factors,
                          std::span<const SweepScope> outputs)
    {
        key_.clear();
        key_.push_back(int(sizes.size()));
        key_.insert(key_.end(), sizes.begin(), sizes.end());
        key_.push_back(int(factors.size()));
        for (const SweepScope& scope : factors) AddAxes(scope);
        for (const SweepScope& scope : outputs) {
            AddAxes(scope);
            key_.push_back(scope.excluded);
        }
        const auto place = plans_->find(key_);
        if (place != plans_->end()) return &place->second;
        return &plans_->emplace(key_, builder_.Build(sizes, factors, outputs, memory_.get())).first->second;
    }

    bool IsFull() const { return plans_->size() > kMostPlans; }
    void Clear()
    {
        plans_.reset();
        memory_->release();
        plans_ = std::make_unique<Plans>(memory_.get());
    }

private:
    void AddAxes(const SweepScope& scope)
    {
        key_.push_back(int(uint32_t(scope.axes)));
        key_.push_back(int(uint32_t(scope.axes >> 32)));
    }

    using Plans = std::pmr::unordered_map<std::pmr::vector<int>, SweepPlan, KeyHash>;
    SweepBuilder builder_;
    std::unique_ptr<std::pmr::monotonic_buffer_resource> memory_ =
        std::make_unique<std::pmr::monotonic_buffer_resource>();
    std::unique_ptr<Plans> plans_ = std::make_unique<Plans>(memory_.get());
    std::pmr::vector<int> key_;
};

}  // namespace talora
