// Randomised greedy elimination of graphs held as rows of bits.
#include "BN/Order/DenseElimination.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "BN/Model/TableSize.h"

namespace talora {

namespace {

constexpr double kLargest = std::numeric_limits<double>::max();
constexpr int kMaxWords = kMaxDenseVariables / 64;

bool HasBit(const uint64_t* set, int v)
{
    return set[v >> 6] >> (v & 63) & 1;
}

void SetBit(uint64_t* set, int v)
{
    set[v >> 6] |= uint64_t{1} << (v & 63);
}

void ClearBit(uint64_t* set, int v)
{
    set[v >> 6] &= ~(uint64_t{1} << (v & 63));
}

template <typename Body>
void ForEachBit(const uint64_t* set, int words, Body body)
{
    for (int i = 0; i < words; ++i)
        for (uint64_t rest = set[i]; rest; rest &= rest - 1) body(i * 64 + std::countr_zero(rest));
}

}  // namespace

void DenseProblem::Reset(int num_free, int num_variables)
{
    num_free_ = num_free;
    num_variables_ = num_variables;
    words_ = std::max(1, (num_variables + 63) / 64);
    rows_.assign(static_cast<size_t>(num_variables) * words_, 0);
    states_.assign(num_variables, 1);
    eliminated_sets_.clear();
}

void DenseProblem::Join(int a, int b)
{
    if (a == b) return;
    SetBit(Row(a), b);
    SetBit(Row(b), a);
}

void DenseProblem::JoinEliminated(const std::vector<int>& members)
{
    size_t at = eliminated_sets_.size();
    eliminated_sets_.resize(at + words_, 0);
    uint64_t* set = &eliminated_sets_[at];
    for (int v : members) SetBit(set, v);
    for (int v : members) {
        for (int i = 0; i < words_; ++i) Row(v)[i] |= set[i];
        ClearBit(Row(v), v);
    }
}

void DenseProblem::JoinFixed()
{
    for (int a = num_free_; a < num_variables_; ++a)
        for (int b = a + 1; b < num_variables_; ++b) Join(a, b);
}

int DenseSearch::CountBits(const uint64_t* set) const
{
    int count = 0;
    for (int i = 0; i < words_; ++i) count += std::popcount(set[i]);
    return count;
}

double DenseSearch::WeightOfMissing(int a, const uint64_t* missing) const
{
    double weight = 0;
    ForEachBit(missing, words_, [&](int b) { weight += problem_->states_[b]; });
    return weight * problem_->states_[a];
}

double DenseSearch::SaturatedSize(int v) const
{
    double size = MultiplySize(1.0, problem_->states_[v]);
    ForEachBit(Row(v), words_, [&](int a) { size = MultiplySize(size, problem_->states_[a]); });
    return size;
}

// Finds fill, table size and score of a free variable afresh.
void DenseSearch::Rate(int v)
{
    const uint64_t* around = Row(v);
    int fill = 0;
    double size = problem_->states_[v], weight = 0;
    uint64_t missing[kMaxWords];
    ForEachBit(around, words_, [&](int a) {
        size *= problem_->states_[a];
        const uint64_t* row = Row(a);
        uint64_t any = 0;
        for (int i = 0; i < words_; ++i) missing[i] = around[i] & ~row[i];
        ClearBit(missing, a);
        for (int i = 0; i < words_; ++i) any |= missing[i];
        work_ += words_;
        if (!any) return;
        fill += CountBits(missing);
        if (score_ == EliminationScore::kWeightedFill) weight += WeightOfMissing(a, missing);
    });
    if (!(size < kMaxTableSize)) size = SaturatedSize(v);
    if (fill == 0) simplicial_.push_back(v);
    fill_[v] = fill;
    sizes_[v] = size;
    double score = 0;
    switch (score_) {
        case EliminationScore::kTableSize:
            score = size;
            break;
        case EliminationScore::kTableSizeOverStates:
            score = size / std::max(1, problem_->states_[v]);
            break;
        case EliminationScore::kFill:
            score = fill + 1e-4 * std::log2(size + 1);
            break;
        case EliminationScore::kWeightedFill:
            score = weight;
            break;
    }
    scores_[v] = noise_ > 0 ? score * (1 + noise_ * random_->Fraction()) : score;
}

// A variable whose neighbours are all joined if there is one, else one with the best score.
int DenseSearch::Choose()
{
    while (!simplicial_.empty()) {
        int v = simplicial_.back();
        simplicial_.pop_back();
        if (place_[v] >= 0 && fill_[v] == 0) return v;
    }
    int best = -1, num_equal = 0;
    for (int v : remaining_) {
        if (best >= 0 && scores_[v] > scores_[best]) continue;
        if (best < 0 || scores_[v] < scores_[best]) {
            best = v;
            num_equal = 1;
        } else if (random_->Below(++num_equal) == 0) {
            best = v;
        }
    }
    work_ += remaining_.size() / 4;
    return best;
}

// Takes out the pending sets that v ends, and tells whether one of them holds the candidate of v.
bool DenseSearch::Absorb(int v)
{
    int candidate_members = CountBits(Row(v)) + 1;
    bool is_absorbed = false;
    for (size_t at = 0; at < pending_.size();) {
        uint64_t* set = &pending_[at];
        if (!HasBit(set, v)) {
            at += words_;
            continue;
        }
        is_absorbed = is_absorbed || CountBits(set) == candidate_members;
        std::copy(pending_.end() - words_, pending_.end(), set);
        pending_.resize(pending_.size() - words_);
    }
    work_ += pending_.size() / words_;
    return is_absorbed;
}

void DenseSearch::Eliminate(int v)
{
    const uint64_t* around = Row(v);
    pending_.insert(pending_.end(), around, around + words_);
    std::copy(around, around + words_, affected_.begin());
    ForEachBit(around, words_, [&](int a) {
        uint64_t* row = Row(a);
        ClearBit(row, v);
        if (fill_[v] == 0) return;
        bool is_joined = false;
        for (int i = 0; i < words_; ++i) {
            uint64_t added = around[i] & ~row[i];
            if (i == a >> 6) added &= ~(uint64_t{1} << (a & 63));
            is_joined = is_joined || added;
            row[i] |= added;
        }
        // Whoever neighbours both ends of a new link has a pair less to join.
        if (is_joined)
            for (int i = 0; i < words_; ++i) affected_[i] |= row[i];
    });
    int last = remaining_.back();
    remaining_[place_[v]] = last;
    place_[last] = place_[v];
    remaining_.pop_back();
    place_[v] = -1;
    ForEachBit(affected_.data(), words_, [&](int a) {
        if (a < problem_->num_free_ && place_[a] >= 0) Rate(a);
    });
}

bool DenseSearch::Run(const DenseProblem& problem, EliminationScore score, double noise, double bound,
                      uint64_t max_work, SearchRandom& random)
{
    const uint64_t work_limit = work_ + max_work;
    problem_ = &problem;
    random_ = &random;
    score_ = score;
    noise_ = noise;
    words_ = problem.words_;
    int n = problem.num_free_;
    rows_ = problem.rows_;
    pending_ = problem.eliminated_sets_;
    affected_.assign(words_, 0);
    remaining_.resize(n);
    place_.resize(n);
    fill_.resize(n);
    sizes_.resize(n);
    scores_.resize(n);
    simplicial_.clear();
    for (int v = 0; v < n; ++v) remaining_[v] = place_[v] = v;
    for (int v = 0; v < n; ++v) Rate(v);

    order_.clear();
    sizes_at_.clear();
    is_new_at_.clear();
    neighbours_at_.clear();
    total_size_ = 0;
    while (!remaining_.empty()) {
        int v = Choose();
        bool is_new = !Absorb(v);
        if (is_new) total_size_ = std::min(total_size_ + sizes_[v], kLargest);
        if (total_size_ >= bound || work_ > work_limit) return false;
        order_.push_back(v);
        sizes_at_.push_back(sizes_[v]);
        is_new_at_.push_back(is_new);
        neighbours_at_.insert(neighbours_at_.end(), Row(v), Row(v) + words_);
        Eliminate(v);
    }
    return true;
}

void DenseSearch::AppendNeighboursAt(int step, std::vector<int>& neighbours) const
{
    ForEachBit(&neighbours_at_[static_cast<size_t>(step) * words_], words_,
               [&](int a) { neighbours.push_back(a); });
}

}  // namespace talora
