// The anytime search for an elimination order.
#include "BN/Order/OptimizeOrder.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <limits>
#include <numeric>

#include "BN/Model/TableSize.h"
#include "BN/Order/DenseElimination.h"
#include "BN/Order/Graph_Triangulate.h"
#include "BN/Order/OptimizeOrderExact.h"

namespace talora {

namespace {

constexpr double kLargest = std::numeric_limits<double>::max();
constexpr int kMaxPieceVariables = 192;           // free and fixed
constexpr uint64_t kFirstWholeWork = 10'000'000;  // words, some hundredths of a second
constexpr uint64_t kMaxPieceWork = 100'000'000;
constexpr uint64_t kWorkBetweenChecks = 100'000;
// How much scores are blurred: whole runs need guidance, small pieces are best shaken well.
constexpr double kWholeNoises[] = {0, 0.05, 0.2, 0.5, 1};
constexpr double kPieceNoises[] = {3, 10};
// When all orders are looked at, and how many sets of variables that may take: soon, and once more when the
// bound is likely to be tight.
constexpr struct {
    uint64_t after_trials;
    size_t max_states;
} kExactSearches[] = {{256, 10'000}, {16384, 100'000}};

// An order up to exchanges that change nothing: who is eliminated next among the neighbours.
struct EliminationTree {
    Adjacency neighbours;     // by variable: those that remain when it is eliminated
    std::vector<int> parent;  // the first of them to be eliminated, or -1
    std::vector<std::vector<int>> children;
    std::vector<double> size;  // of the candidate clique
    std::vector<char> is_new;  // whether no child's candidate holds it
};

EliminationTree MakeTree(const ModelGraph& graph, const Adjacency& moral_graph, const std::vector<int>& order)
{
    size_t n = graph.variables.size();
    EliminationTree tree = {Adjacency(n), std::vector<int>(n, -1), std::vector<std::vector<int>>(n),
                            std::vector<double>(n), std::vector<char>(n)};
    SymbolicElimination elimination(moral_graph, order);
    while (elimination.Step()) {
        int v = elimination.Variable();
        tree.neighbours[v] = elimination.Neighbours();
        tree.size[v] = MultiplySize(TableSize(graph, tree.neighbours[v]), graph.variables[v].num_states);
        tree.is_new[v] = elimination.Container() < 0;
        if (tree.neighbours[v].empty()) continue;
        tree.parent[v] = tree.neighbours[v].front();
        tree.children[tree.parent[v]].push_back(v);
    }
    return tree;
}

double TotalSize(const EliminationTree& tree)
{
    double total = 0;
    for (size_t v = 0; v < tree.size.size(); ++v)
        if (tree.is_new[v]) total = std::min(total + tree.size[v], kLargest);
    return total;
}

// Children before parents.
std::vector<int> OrderOf(const EliminationTree& tree)
{
    std::vector<int> order;
    order.reserve(tree.parent.size());
    for (size_t v = 0; v < tree.parent.size(); ++v)
        if (tree.parent[v] < 0) order.push_back(static_cast<int>(v));
    for (size_t i = 0; i < order.size(); ++i)
        order.insert(order.end(), tree.children[order[i]].begin(), tree.children[order[i]].end());
    std::reverse(order.begin(), order.end());
    return order;
}

// An order that needs no fill-in if there is one: reversed, each variable is the one with most
// neighbours already numbered.
std::vector<int> MaximumCardinalityOrder(const Adjacency& moral_graph)
{
    size_t n = moral_graph.size();
    std::vector<std::vector<int>> bucket(1);
    std::vector<int> count(n, 0);
    bucket[0].resize(n);
    std::iota(bucket[0].begin(), bucket[0].end(), 0);
    std::vector<int> order;
    for (size_t top = 0; order.size() < n;) {
        if (bucket[top].empty()) {
            --top;
            continue;
        }
        int v = bucket[top].back();
        bucket[top].pop_back();
        if (count[v] != static_cast<int>(top)) continue;
        count[v] = -1;
        order.push_back(v);
        for (int w : moral_graph[v]) {
            if (count[w] < 0) continue;
            size_t new_count = static_cast<size_t>(++count[w]);
            if (new_count == bucket.size()) bucket.emplace_back();
            bucket[new_count].push_back(w);
            top = std::max(top, new_count);
        }
    }
    std::reverse(order.begin(), order.end());
    return order;
}

bool NeedsFill(const EliminationTree& tree, const Adjacency& moral_graph)
{
    size_t ends = 0, links = 0;
    for (const auto& list : moral_graph) ends += list.size();
    for (const auto& list : tree.neighbours) links += list.size();
    return 2 * links != ends;
}

// A connected piece of the elimination tree, and what remains around it when it is gone.
struct Piece {
    std::vector<int> variables;  // free ones, then fixed ones
    int num_free = 0;
    int top = -1;     // the free one eliminated last
    double size = 0;  // of the new candidates of the free ones
};

class OrderSearch {
public:
    OrderSearch(const ModelGraph& graph, const OptimizeLimits& limits, Progress* progress,
                const ImprovementHandler& on_improvement)
        : graph_(graph),
          limits_(limits),
          progress_(progress),
          on_improvement_(on_improvement),
          moral_graph_(MoralGraph(graph)),
          random_(limits.seed),
          local_(graph.variables.size(), -1)
    {}

    OptimizeResult Run(const std::vector<int>& first_order);

private:
    bool MayGoOn();
    bool HasTimeLeft();
    bool TryWithoutFill();
    bool TryExact();
    void TryWhole();
    bool TryPiece();
    void TakeAsCurrent(const std::vector<int>& order);
    void NoteCurrent();
    void SaveBest();

    int ChooseSeed();
    int TakeFromFrontier();
    void GrowPiece(int seed, Piece& piece);
    void PoseProblem(const Piece& piece);
    void Rearrange(const Piece& piece);

    const ModelGraph& graph_;
    const OptimizeLimits& limits_;
    Progress* progress_;
    const ImprovementHandler& on_improvement_;
    const Adjacency moral_graph_;
    SearchRandom random_;
    DenseProblem whole_, problem_;
    DenseSearch whole_search_, piece_search_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();

    EliminationTree current_;
    double current_size_ = 0;
    bool is_best_unsaved_ = false;  // the current tree is better than result_.order
    uint64_t work_of_next_check_ = 0;
    uint64_t trials_since_best_ = 0;
    uint64_t trials_since_restart_ = 0;
    double allowance_ = 0;  // how much worse than the best the current tree may get, as a share
    OptimizeResult result_;

    std::vector<int> local_;  // by variable: number in the piece, or -1
    std::vector<int> frontier_, hanging_, members_;
};

bool OrderSearch::MayGoOn()
{
    if (limits_.trials > 0 && result_.num_trials >= limits_.trials) return false;
    uint64_t work = whole_search_.Work() + piece_search_.Work();
    if (result_.num_trials % 8 != 0 && work < work_of_next_check_) return true;
    work_of_next_check_ = work + kWorkBetweenChecks;
    return HasTimeLeft();
}

bool OrderSearch::HasTimeLeft()
{
    std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start_;
    if (limits_.seconds > 0 && spent.count() >= limits_.seconds) return false;
    double fraction = 0;
    if (limits_.seconds > 0) fraction = spent.count() / limits_.seconds;
    if (limits_.trials > 0)
        fraction =
            std::max(fraction, static_cast<double>(result_.num_trials) / static_cast<double>(limits_.trials));
    bool go_on = progress_ ? progress_->Step(fraction) : !IsHalted();
    result_.halted = !go_on;
    return go_on;
}

void OrderSearch::TakeAsCurrent(const std::vector<int>& order)
{
    SaveBest();
    current_ = MakeTree(graph_, moral_graph_, order);
    current_size_ = TotalSize(current_);
    trials_since_restart_ = 0;
    NoteCurrent();
}

void OrderSearch::NoteCurrent()
{
    if (current_size_ >= result_.total_size) return;
    result_.total_size = current_size_;
    is_best_unsaved_ = true;
    trials_since_best_ = trials_since_restart_ = 0;
    if (on_improvement_) on_improvement_(current_size_);
}

// Before the current tree changes for the worse, and in the end.
void OrderSearch::SaveBest()
{
    if (!is_best_unsaved_) return;
    result_.order = OrderOf(current_);
    is_best_unsaved_ = false;
}

// When the moral graph needs no fill-in, any of its cliques is in some clique of every order.
bool OrderSearch::TryWithoutFill()
{
    std::vector<int> order = MaximumCardinalityOrder(moral_graph_);
    EliminationTree tree = MakeTree(graph_, moral_graph_, order);
    if (NeedsFill(tree, moral_graph_) || TotalSize(tree) > result_.total_size) return false;
    TakeAsCurrent(order);
    return true;
}

// True: there is nothing better than the current tree.
bool OrderSearch::TryExact()
{
    size_t max_states = 0;
    for (const auto& search : kExactSearches)
        if (result_.num_trials == search.after_trials) max_states = search.max_states;
    if (max_states == 0) return false;
    const ExactSearchResult found =
        SearchExactOrder(graph_, moral_graph_, result_.total_size, max_states, [&] { return HasTimeLeft(); });
    if (!found.order.empty()) TakeAsCurrent(found.order);
    return found.is_complete;
}

void OrderSearch::TryWhole()
{
    if (whole_.NumFree() == 0) {
        int n = static_cast<int>(graph_.variables.size());
        whole_.Reset(n, n);
        for (int v = 0; v < n; ++v) {
            whole_.SetStates(v, graph_.variables[v].num_states);
            for (int w : moral_graph_[v]) whole_.Join(v, w);
        }
    }
    auto score = static_cast<EliminationScore>(random_.Below(kNumEliminationScores));
    double noise = kWholeNoises[random_.Below(std::size(kWholeNoises))];
    // A poor start may still lead far, now and then.
    double bound = std::min(kLargest, result_.total_size * (1 + 3 * random_.Fraction()));
    uint64_t max_work = kFirstWholeWork + piece_search_.Work() / 4;
    if (!whole_search_.Run(whole_, score, noise, bound, max_work, random_)) return;
    bool is_stuck = trials_since_restart_ > 20000;
    if (whole_search_.TotalSize() < current_size_ || is_stuck) TakeAsCurrent(whole_search_.Order());
}

// Usually a variable of a large clique.
int OrderSearch::ChooseSeed()
{
    int n = static_cast<int>(graph_.variables.size());
    int best = random_.Below(n);
    for (int rounds = 1 << random_.Below(std::bit_width(static_cast<unsigned>(n))); rounds > 1; --rounds) {
        int other = random_.Below(n);
        if (current_.size[other] > current_.size[best]) best = other;
    }
    return best;
}

// Of two, the one with the larger table: small ones have little to give.
int OrderSearch::TakeFromFrontier()
{
    int choice = random_.Below(static_cast<int>(frontier_.size()));
    int other = random_.Below(static_cast<int>(frontier_.size()));
    if (current_.size[frontier_[other]] > current_.size[frontier_[choice]]) choice = other;
    std::swap(frontier_[choice], frontier_.back());
    int v = frontier_.back();
    frontier_.pop_back();
    return v;
}

// Grows from the seed along the tree, up and down.  The piece stays empty where cliques are so
// large that no table could ever be made.
void OrderSearch::GrowPiece(int seed, Piece& piece)
{
    const int wanted = 3 + random_.Below(random_.Below(3) == 0 ? 40 : 16);
    auto has_room_below = [&](int top) {
        return current_.neighbours[top].size() + piece.variables.size() < kMaxPieceVariables;
    };
    auto add = [&](int v) {
        local_[v] = static_cast<int>(piece.variables.size());
        piece.variables.push_back(v);
        if (current_.is_new[v]) piece.size = std::min(piece.size + current_.size[v], kLargest);
        for (int child : current_.children[v])
            if (local_[child] < 0) frontier_.push_back(child);
    };
    if (!has_room_below(seed)) return;
    frontier_.clear();
    piece.top = seed;
    add(seed);
    while (static_cast<int>(piece.variables.size()) < wanted && has_room_below(piece.top)) {
        int up = current_.parent[piece.top];
        bool can_go_up = up >= 0 && has_room_below(up);
        if (can_go_up && (frontier_.empty() || random_.Below(3) == 0)) {
            piece.top = up;
            add(up);
        } else if (!frontier_.empty()) {
            add(TakeFromFrontier());
        } else {
            break;
        }
    }
    piece.num_free = static_cast<int>(piece.variables.size());
    for (int v : current_.neighbours[piece.top]) {
        local_[v] = static_cast<int>(piece.variables.size());
        piece.variables.push_back(v);
    }
}

// The graph that is left when everything below the piece is eliminated.
void OrderSearch::PoseProblem(const Piece& piece)
{
    problem_.Reset(piece.num_free, static_cast<int>(piece.variables.size()));
    hanging_.clear();
    for (size_t i = 0; i < piece.variables.size(); ++i) {
        int v = piece.variables[i];
        problem_.SetStates(static_cast<int>(i), graph_.variables[v].num_states);
        if (static_cast<int>(i) >= piece.num_free) continue;
        for (int w : moral_graph_[v])
            if (local_[w] >= 0) problem_.Join(static_cast<int>(i), local_[w]);
        for (int child : current_.children[v])
            if (local_[child] < 0) hanging_.push_back(child);
    }
    problem_.JoinFixed();
    for (int child : hanging_) {
        members_.clear();
        for (int w : current_.neighbours[child]) members_.push_back(local_[w]);
        problem_.JoinEliminated(members_);
    }
}

// Puts the order of the last run into the current tree.
void OrderSearch::Rearrange(const Piece& piece)
{
    const std::vector<int>& order = piece_search_.Order();
    const int above = current_.parent[piece.top];
    std::vector<int> step_of(piece.variables.size(), std::numeric_limits<int>::max());
    for (size_t step = 0; step < order.size(); ++step) step_of[order[step]] = static_cast<int>(step);
    auto first_eliminated = [&](const std::vector<int>& list) {
        return *std::min_element(list.begin(), list.end(),
                                 [&](int a, int b) { return step_of[local_[a]] < step_of[local_[b]]; });
    };
    for (int i = 0; i < piece.num_free; ++i) current_.children[piece.variables[i]].clear();
    for (int child : hanging_) {
        current_.parent[child] = first_eliminated(current_.neighbours[child]);
        current_.children[current_.parent[child]].push_back(child);
    }
    for (size_t step = 0; step < order.size(); ++step) {
        int v = piece.variables[order[step]];
        current_.size[v] = piece_search_.SizeAt(static_cast<int>(step));
        current_.is_new[v] = piece_search_.IsNewAt(static_cast<int>(step));
        std::vector<int>& neighbours = current_.neighbours[v];
        neighbours.clear();
        piece_search_.AppendNeighboursAt(static_cast<int>(step), neighbours);
        for (int& w : neighbours) w = piece.variables[w];
        if (step + 1 == order.size()) {
            current_.parent[v] = above;
            if (above >= 0)
                std::replace(current_.children[above].begin(), current_.children[above].end(), piece.top, v);
        } else {
            current_.parent[v] = first_eliminated(neighbours);
            current_.children[current_.parent[v]].push_back(v);
        }
    }
}

// False: there is no piece of a size that can be handled around the seed.
bool OrderSearch::TryPiece()
{
    Piece piece;
    GrowPiece(ChooseSeed(), piece);
    if (piece.variables.empty()) return false;
    PoseProblem(piece);
    double room = std::max(0.0, result_.total_size * (1 + allowance_) - current_size_);
    double bound = std::nextafter(std::min(kLargest, piece.size + room), kLargest);
    auto score = static_cast<EliminationScore>(random_.Below(kNumEliminationScores));
    double noise = kPieceNoises[random_.Below(std::size(kPieceNoises))];
    if (piece_search_.Run(problem_, score, noise, bound, kMaxPieceWork, random_)) {
        if (piece_search_.TotalSize() > piece.size) SaveBest();
        Rearrange(piece);
        current_size_ = std::max(0.0, current_size_ + (piece_search_.TotalSize() - piece.size));
        // Sums that are not exact in doubles must not drift.
        if (current_size_ >= 0x1p53) current_size_ = TotalSize(current_);
        NoteCurrent();
    }
    for (int v : piece.variables) local_[v] = -1;
    return true;
}

OptimizeResult OrderSearch::Run(const std::vector<int>& first_order)
{
    result_.total_size = kLargest;
    result_.order = first_order;
    current_ = MakeTree(graph_, moral_graph_, first_order);
    result_.total_size = result_.first_size = current_size_ = TotalSize(current_);
    if (on_improvement_) on_improvement_(current_size_);
    result_.is_proven = graph_.variables.size() < 2 || TryWithoutFill();
    // Larger nets are only rearranged piece by piece.
    const bool can_try_whole = graph_.variables.size() <= kMaxDenseVariables;
    while (!result_.is_proven && MayGoOn()) {
        ++result_.num_trials;
        ++trials_since_best_;
        ++trials_since_restart_;
        if (TryExact()) {
            result_.is_proven = true;
            break;
        }
        if (trials_since_best_ % 4096 == 0) allowance_ = random_.Fraction() * random_.Fraction() * 0.1;
        bool is_turn_of_whole = can_try_whole && whole_search_.Work() * 4 <= piece_search_.Work();
        if (is_turn_of_whole || (!TryPiece() && can_try_whole)) TryWhole();
    }
    SaveBest();
    return std::move(result_);
}

}  // namespace

OptimizeResult FindOptimizedOrder(const ModelGraph& graph, const std::vector<int>* stored_order,
                                  const OptimizeLimits& limits, Progress* progress,
                                  const ImprovementHandler& on_improvement)
{
    OptimizeResult result;
    std::vector<int> first_order;
    if (stored_order) {
        first_order = *stored_order;
    } else {
        std::vector<int> nodes(graph.variables.size());
        std::iota(nodes.begin(), nodes.end(), 0);
        GreedySearchResult greedy = FindGreedyOrder(graph, nodes, nullptr);
        first_order = std::move(greedy.order);
        result.halted = greedy.halted;
    }
    if (IsHalted()) result.halted = true;
    if (result.halted && first_order.empty()) return result;
    return OrderSearch(graph, limits, progress, on_improvement).Run(first_order);
}

}  // namespace talora
