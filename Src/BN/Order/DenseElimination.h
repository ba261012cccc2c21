// Randomised greedy elimination of small graphs, held as rows of bits: the inner loop of the search
// for good elimination orders.
//
// A problem has free variables, to be eliminated, and fixed ones, which all stay and are numbered
// after the free.  It may be a whole net, or the piece of one that remains when everything that
// an order eliminates before the piece is gone; then the fixed variables are those that remain
// around the piece in the end.
//
// Kjaerulff (1990), Triangulation of graphs: algorithms giving small total state space.
// Cano & Moral (1994), Heuristic algorithms for the triangulation of graphs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace talora {

// Small and seeded, so that a search can be repeated exactly.
// Steele, Lea & Flood (2014), Fast splittable pseudorandom number generators.
class SearchRandom {
public:
    explicit SearchRandom(uint64_t seed) : state_(seed) {}
    uint64_t Next()
    {
        uint64_t z = state_ += 0x9E3779B97F4A7C15u;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
        return z ^ (z >> 31);
    }
    int Below(int n) { return static_cast<int>(((Next() >> 32) * static_cast<uint64_t>(n)) >> 32); }
    double Fraction() { return static_cast<double>(Next() >> 11) * 0x1p-53; }

private:
    uint64_t state_;
};

// What a variable is judged by; a variable whose neighbours are all joined always goes first.
enum class EliminationScore { kTableSize, kTableSizeOverStates, kFill, kWeightedFill };
constexpr int kNumEliminationScores = 4;

constexpr int kMaxDenseVariables = 4096;

class DenseProblem {
public:
    // Starts a problem anew: all variables unconnected.
    void Reset(int num_free, int num_variables);
    void SetStates(int v, int num_states) { states_[v] = num_states; }
    void Join(int a, int b);
    // Joins all members.  With num_members of an eliminated neighbour set, a free variable whose
    // candidate is this very set makes no new clique.
    void JoinEliminated(const std::vector<int>& members);
    void JoinFixed();

    int NumFree() const { return num_free_; }

private:
    friend class DenseSearch;
    uint64_t* Row(int v) { return &rows_[static_cast<size_t>(v) * words_]; }

    int num_free_ = 0;
    int num_variables_ = 0;
    int words_ = 0;
    std::vector<uint64_t> rows_;  // neighbours of each variable
    std::vector<int> states_;     // by variable
    std::vector<uint64_t> eliminated_sets_;
};

// One greedy elimination of a problem; keeps its work space between runs.
class DenseSearch {
public:
    // Eliminates the free variables of the problem.  noise blurs the scores by up to that share.
    // False: given up, because the cliques would take `bound` or more, or for too much work.
    bool Run(const DenseProblem& problem, EliminationScore score, double noise, double bound,
             uint64_t max_work, SearchRandom& random);

    // After a run that was not given up:
    const std::vector<int>& Order() const { return order_; }
    double TotalSize() const { return total_size_; }           // of the cliques that are new
    double SizeAt(int step) const { return sizes_at_[step]; }  // of the candidate
    bool IsNewAt(int step) const { return is_new_at_[step]; }
    // The remaining neighbours at that step, appended.
    void AppendNeighboursAt(int step, std::vector<int>& neighbours) const;

    uint64_t Work() const { return work_; }  // words touched so far, in all runs

private:
    const uint64_t* Row(int v) const { return &rows_[static_cast<size_t>(v) * words_]; }
    uint64_t* Row(int v) { return &rows_[static_cast<size_t>(v) * words_]; }
    int CountBits(const uint64_t* set) const;
    void Rate(int v);
    double SaturatedSize(int v) const;
    double WeightOfMissing(int a, const uint64_t* missing) const;
    int Choose();
    bool Absorb(int v);
    void Eliminate(int v);

    const DenseProblem* problem_ = nullptr;
    SearchRandom* random_ = nullptr;
    EliminationScore score_ = EliminationScore::kFill;
    double noise_ = 0;
    int words_ = 0;
    uint64_t work_ = 0;

    std::vector<uint64_t> rows_;  // remaining neighbours
    std::vector<int> remaining_;  // free variables still there
    std::vector<int> place_;      // of a free variable in remaining_, or -1
    std::vector<int> fill_;       // pairs of neighbours that are not joined
    std::vector<double> sizes_;   // of the candidate
    std::vector<double> scores_;
    std::vector<int> simplicial_;    // candidates for fill_ 0, some out of date
    std::vector<uint64_t> pending_;  // neighbour sets none of whose members is eliminated
    std::vector<uint64_t> affected_;

    std::vector<int> order_;
    std::vector<double> sizes_at_;
    std::vector<char> is_new_at_;
    std::vector<uint64_t> neighbours_at_;
    double total_size_ = 0;
};

}  // namespace talora
