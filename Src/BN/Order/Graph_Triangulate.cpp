// Moral graphs, greedy elimination orders, and the cliques that an order gives.
#include "BN/Order/Graph_Triangulate.h"

#include <algorithm>
#include <bit>
#include <tuple>

#include "BN/Model/TableSize.h"
#include "BN/Order/IndexedHeap.h"
#include "Basic/Error.h"
#include "Basic/Memory.h"
#include "Basic/MultiThread.h"

namespace talora {

namespace {

constexpr double kExactLimit = 9007199254740992.0;  // 2^53: whole doubles below it are exact

// Twos that saturate a table size: more variables of two or more states need no multiplying.
constexpr int kSaturatingVariables = 1024;

// Joining k parents takes k * k entries: a file of some kilobytes can ask for more than there is.
void CheckMoralGraphMemory(const ModelGraph& graph)
{
    double entries = 0;
    auto count = [&](const std::vector<int>& parents) {
        double k = static_cast<double>(parents.size());
        entries += k * (k + 1);
    };
    for (const ModelGraph::Variable& variable : graph.variables) count(variable.parents);
    for (const std::vector<int>& parents : graph.utility_parents) count(parents);
    CheckMemory(entries * sizeof(int), "to join the parents of each >-node");
}

void JoinAll(const std::vector<int>& clique, Adjacency& neighbours)
{
    for (int a : clique)
        for (int b : clique)
            if (a != b) neighbours[a].push_back(b);
}

// The graph that is left over while variables are eliminated, with the table size of every
// candidate clique.  Neighbour lists are sorted and keep eliminated entries until these are half of
// the list, so that a hub with very many neighbours is not rewritten at every step.
class EliminationGraph {
public:
    EliminationGraph(const ModelGraph& graph);

    int Degree(int v) const { return degree_[v]; }
    double CandidateSize(int v) const { return size_[v]; }
    std::vector<int> Neighbours(int v) const;

    // Takes v, with these neighbours, out of the graph and joins them with each other.
    void Eliminate(int v, const std::vector<int>& neighbours, bool is_clique);

private:
    bool IsGone(int v) const { return degree_[v] < 0; }
    int States(int v) const { return graph_.variables[v].num_states; }
    void AddNeighbour(int v, int neighbour);
    void LoseNeighbour(int v, int neighbour);
    void FindMissing(int v, const std::vector<int>& clique);
    void MergeMissing(int v);
    double RecountSize(int v) const;
    void UpdateSize(int v, double exact_size);

    const ModelGraph& graph_;
    Adjacency neighbours_;
    std::vector<int> degree_;       // -1: eliminated
    std::vector<int> num_several_;  // neighbours with two or more states
    std::vector<int> num_empty_;    // neighbours without states
    std::vector<double> size_;
    size_t num_entries_ = 0;  // of all lists
    size_t entries_of_next_check_ = size_t{1} << 24;
    std::vector<int> missing_, merged_;  // work space
};

EliminationGraph::EliminationGraph(const ModelGraph& graph) : graph_(graph), neighbours_(MoralGraph(graph))
{
    size_t n = neighbours_.size();
    degree_.resize(n);
    num_several_.resize(n);
    num_empty_.resize(n);
    size_.resize(n);
    for (size_t v = 0; v < n; ++v) {
        num_entries_ += neighbours_[v].size();
        for (int w : neighbours_[v]) AddNeighbour(static_cast<int>(v), w);
        size_[v] = RecountSize(static_cast<int>(v));
    }
}

std::vector<int> EliminationGraph::Neighbours(int v) const
{
    std::vector<int> remaining;
    remaining.reserve(degree_[v]);
    for (int w : neighbours_[v])
        if (!IsGone(w)) remaining.push_back(w);
    return remaining;
}

void EliminationGraph::AddNeighbour(int v, int neighbour)
{
    ++degree_[v];
    num_several_[v] += States(neighbour) > 1;
    num_empty_[v] += States(neighbour) <= 0;
}

void EliminationGraph::LoseNeighbour(int v, int neighbour)
{
    --degree_[v];
    num_several_[v] -= States(neighbour) > 1;
    num_empty_[v] -= States(neighbour) <= 0;
}

// Collects the members of a clique that v is not joined with.
void EliminationGraph::FindMissing(int v, const std::vector<int>& clique)
{
    missing_.clear();
    const std::vector<int>& list = neighbours_[v];
    bool search_each = clique.size() * 16 < list.size();
    auto at = list.begin();
    for (int w : clique) {
        at = search_each ? std::lower_bound(at, list.end(), w)
                         : std::find_if(at, list.end(), [w](int x) { return x >= w; });
        if ((at == list.end() || *at != w) && w != v) missing_.push_back(w);
    }
}

// Joins v with the missing ones and drops the eliminated on the way.
void EliminationGraph::MergeMissing(int v)
{
    std::vector<int>& list = neighbours_[v];
    merged_.clear();
    auto next = missing_.begin();
    for (int w : list) {
        if (IsGone(w)) continue;
        while (next != missing_.end() && *next < w) merged_.push_back(*next++);
        merged_.push_back(w);
    }
    merged_.insert(merged_.end(), next, missing_.end());
    num_entries_ = num_entries_ + merged_.size() - list.size();
    list.assign(merged_.begin(), merged_.end());
    if (num_entries_ < entries_of_next_check_) return;
    entries_of_next_check_ = 2 * num_entries_;
    CheckMemory(static_cast<double>(num_entries_) * sizeof(int), "to find an elimination order");
}

double EliminationGraph::RecountSize(int v) const
{
    if (num_empty_[v] > 0) return 0.0;
    if (num_several_[v] >= kSaturatingVariables) return MultiplySize(kMaxTableSize, States(v));
    double size = MultiplySize(1.0, States(v));
    for (int w : neighbours_[v])
        if (!IsGone(w)) size = MultiplySize(size, States(w));
    return size;
}

// Takes a size found by dividing and multiplying when every step of that was exact.
void EliminationGraph::UpdateSize(int v, double exact_size)
{
    size_[v] = exact_size > 0 && exact_size < kExactLimit ? exact_size : RecountSize(v);
}

void EliminationGraph::Eliminate(int v, const std::vector<int>& neighbours, bool is_clique)
{
    degree_[v] = -1;
    for (int a : neighbours) {
        bool was_exact = size_[a] > 0 && size_[a] < kExactLimit;
        double size = was_exact ? size_[a] / States(v) : 0.0;
        LoseNeighbour(a, v);
        missing_.clear();
        if (!is_clique) FindMissing(a, neighbours);
        for (int b : missing_) {
            AddNeighbour(a, b);
            size = MultiplySize(size, States(b));
        }
        if (!missing_.empty() || neighbours_[a].size() > 2 * static_cast<size_t>(degree_[a]) + 8)
            MergeMissing(a);
        UpdateSize(a, size);
    }
    num_entries_ -= neighbours_[v].size();
    std::vector<int>().swap(neighbours_[v]);
}

// The neighbour sets of eliminated variables, as long as all their members remain.  Each is a
// clique of the remaining graph, so a variable in one that has more members than the variable has
// neighbours makes no new clique.
class RecordedSets {
public:
    explicit RecordedSets(size_t num_variables) : sets_of_(num_variables) {}

    // Members of the largest set that v is in; 0 for none.
    int LargestSetOf(int v)
    {
        std::vector<Set>& heap = sets_of_[v];
        while (!heap.empty() && is_dropped_[heap.front().id]) {
            std::pop_heap(heap.begin(), heap.end());
            heap.pop_back();
        }
        return heap.empty() ? 0 : heap.front().num_members;
    }

    void Record(const std::vector<int>& members)
    {
        Set set = {static_cast<int>(members.size()), static_cast<int>(is_dropped_.size())};
        is_dropped_.push_back(false);
        for (int v : members) {
            // A variable never asks for more than the largest, but that one may go first.
            sets_of_[v].push_back(set);
            std::push_heap(sets_of_[v].begin(), sets_of_[v].end());
        }
    }

    void DropSetsOf(int v)
    {
        for (const Set& set : sets_of_[v]) is_dropped_[set.id] = true;
        std::vector<Set>().swap(sets_of_[v]);
    }

private:
    struct Set {
        int num_members;
        int id;
        bool operator<(const Set& other) const { return num_members < other.num_members; }
    };
    std::vector<std::vector<Set>> sets_of_;  // by variable: heap by size, dropped ones included
    std::vector<bool> is_dropped_;           // by id
};

struct GreedyKey {
    uint32_t group;
    int position;  // in the list of nodes
    double cost;
    bool operator<(const GreedyKey& other) const
    {
        return std::tie(group, cost, position) < std::tie(other.group, other.cost, other.position);
    }
};

// Completes a halted search: the rest in the order of the list.
void AppendRemaining(const std::vector<int>& nodes, GreedySearchResult& result)
{
    std::vector<bool> is_ordered(nodes.size());
    for (int v : result.order) is_ordered[v] = true;
    for (int v : nodes)
        if (!is_ordered[v]) result.order.push_back(v);
}

}  // namespace

namespace {

// One bit for each pair of variables, for graphs with large families: joining k parents sets k rows of bits
// rather than k * k entries.
class JoinedPairs {
public:
    explicit JoinedPairs(size_t n) : num_words_((n + 63) / 64), bits_(n * num_words_), family_(num_words_) {}
    void JoinAll(const std::vector<int>& clique)
    {
        std::fill(family_.begin(), family_.end(), 0);
        for (int v : clique) family_[size_t(v) / 64] |= uint64_t{1} << (v % 64);
        for (int v : clique)
            for (size_t word = 0; word < num_words_; ++word)
                bits_[size_t(v) * num_words_ + word] |= family_[word];
    }
    double NumJoined() const
    {
        double joined = 0;
        for (const uint64_t word : bits_) joined += std::popcount(word);
        return joined;
    }
    std::vector<int> NeighboursOf(int v) const
    {
        std::vector<int> neighbours;
        for (size_t word = 0; word < num_words_; ++word)
            for (uint64_t rest = bits_[size_t(v) * num_words_ + word]; rest != 0; rest &= rest - 1) {
                const int neighbour = int(word * 64) + std::countr_zero(rest);
                if (neighbour != v) neighbours.push_back(neighbour);
            }
        return neighbours;
    }
    static double Words(double n, double members) { return n / 64 * (n + members); }

private:
    const size_t num_words_;
    TableVector<uint64_t> bits_;
    std::vector<uint64_t> family_;
};

// Entries of all lists while families are joined by lists, and members of all families.
struct FamilySizes {
    double pairs = 0, members = 0;
};
FamilySizes SizesOfFamilies(const ModelGraph& graph)
{
    FamilySizes sizes;
    const auto count = [&](double k) {
        sizes.pairs += k * k;
        sizes.members += k;
    };
    for (const ModelGraph::Variable& variable : graph.variables) count(double(variable.parents.size()) + 1);
    for (const std::vector<int>& parents : graph.utility_parents) count(double(parents.size()));
    return sizes;
}

}  // namespace

Adjacency MoralGraph(const ModelGraph& graph)
{
    const size_t n = graph.variables.size();
    Adjacency neighbours(n);
    const FamilySizes sizes = SizesOfFamilies(graph);
    std::vector<int> family;
    const auto family_of = [&](size_t v) -> const std::vector<int>& {
        family = graph.variables[v].parents;
        family.push_back(static_cast<int>(v));
        return family;
    };
    constexpr double kEntriesPerWord = 0.5;  // that cost as much: lists have to be sorted
    if (JoinedPairs::Words(double(n), sizes.members) < kEntriesPerWord * sizes.pairs) {
        CheckMemory(double(n) * double(n) / 8, "to join the parents of each >-node");
        JoinedPairs pairs(n);
        for (size_t v = 0; v < n; ++v) pairs.JoinAll(family_of(v));
        for (const std::vector<int>& parents : graph.utility_parents) pairs.JoinAll(parents);
        CheckMemory(pairs.NumJoined() * sizeof(int), "to join the parents of each >-node");
        for (size_t v = 0; v < n; ++v) neighbours[v] = pairs.NeighboursOf(static_cast<int>(v));
        return neighbours;
    }
    CheckMoralGraphMemory(graph);
    for (size_t v = 0; v < n; ++v) JoinAll(family_of(v), neighbours);
    for (const std::vector<int>& parents : graph.utility_parents) JoinAll(parents, neighbours);
    for (std::vector<int>& list : neighbours) {
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
    }
    return neighbours;
}

std::vector<uint32_t> EliminationGroups(const ModelGraph& graph, const std::vector<int>& nodes)
{
    std::vector<int> decisions;
    for (int v : nodes)
        if (graph.variables[v].is_decision) decisions.push_back(v);
    std::reverse(decisions.begin(), decisions.end());

    std::vector<uint32_t> groups(graph.variables.size(), 0);
    for (size_t i = 0; i < decisions.size(); ++i) {
        groups[decisions[i]] = static_cast<uint32_t>(2 * i + 1);
        for (int parent : graph.variables[decisions[i]].parents)
            groups[parent] = static_cast<uint32_t>(2 * i + 2);
    }
    return groups;
}

GreedySearchResult FindGreedyOrder(const ModelGraph& graph, const std::vector<int>& nodes, Progress* progress,
                                   double most_cost)
{
    GreedySearchResult result;
    if (IsHalted()) {
        result.halted = true;
        return result;
    }
    // 1. Every variable with its group and the size of its candidate clique.
    EliminationGraph remaining(graph);
    RecordedSets recorded(nodes.size());
    std::vector<uint32_t> groups = EliminationGroups(graph, nodes);
    std::vector<int> position(nodes.size());
    IndexedHeap<GreedyKey> queue(static_cast<int>(nodes.size()));
    for (size_t i = 0; i < nodes.size(); ++i) {
        int v = nodes[i];
        position[v] = static_cast<int>(i);
        queue.Set(v, {groups[v], position[v], remaining.CandidateSize(v)});
    }
    result.order.reserve(nodes.size());
    while (!queue.IsEmpty()) {
        // 2. Choose the first of the least cost in the current group.
        int chosen = queue.Smallest();
        result.cost += queue.SmallestKey().cost;
        result.order.push_back(chosen);
        if (result.cost > most_cost) {
            result.is_too_costly = true;
            result.order.clear();
            return result;
        }
        bool is_clique = recorded.LargestSetOf(chosen) > remaining.Degree(chosen);
        queue.Remove(chosen);

        // 3. Eliminate it.
        std::vector<int> neighbours = remaining.Neighbours(chosen);
        recorded.DropSetsOf(chosen);
        if (!neighbours.empty()) recorded.Record(neighbours);
        remaining.Eliminate(chosen, neighbours, is_clique);

        // 4. Only its neighbours changed: the dropped sets lay among them, and so does the fill-in.
        for (int v : neighbours) {
            bool is_covered = remaining.Degree(v) > 0 && recorded.LargestSetOf(v) > remaining.Degree(v);
            queue.Set(v, {groups[v], position[v], is_covered ? 0.0 : remaining.CandidateSize(v)});
        }
        double fraction = static_cast<double>(result.order.size()) / static_cast<double>(nodes.size());
        bool go_on = progress ? progress->Step(fraction) : !IsHalted();
        if (!go_on && !queue.IsEmpty()) {
            result.halted = true;
            break;
        }
    }
    result.num_found = static_cast<int>(result.order.size());
    if (!result.halted) return result;

    AppendRemaining(nodes, result);
    result.cost = CostOfOrder(graph, result.order);
    if (progress && !ThisThread().failed) Warn<3280>(result.num_found);
    return result;
}

SymbolicElimination::SymbolicElimination(const Adjacency& moral_graph, const std::vector<int>& order)
    : moral_graph_(moral_graph),
      order_(order),
      index_(moral_graph.size(), -1),
      remaining_(moral_graph.size()),
      first_child_(moral_graph.size(), -1),
      next_sibling_(moral_graph.size(), -1),
      stamp_(moral_graph.size(), -1)
{
    for (size_t i = 0; i < order.size(); ++i) index_[order[i]] = static_cast<int>(i);
}

bool SymbolicElimination::Step()
{
    if (++step_ >= static_cast<int>(order_.size())) return false;
    int v = variable_ = order_[step_];
    std::vector<int>& later = remaining_[v];
    stamp_[v] = step_;
    auto add = [&](int w) {
        if (index_[w] <= step_ || stamp_[w] == step_) return;
        stamp_[w] = step_;
        later.push_back(w);
    };
    for (int w : moral_graph_[v]) add(w);
    for (int child = first_child_[v]; child >= 0; child = next_sibling_[child])
        for (int w : remaining_[child]) add(w);
    std::sort(later.begin(), later.end(), [this](int a, int b) { return index_[a] < index_[b]; });

    container_ = -1;
    for (int child = first_child_[v]; child >= 0; child = next_sibling_[child]) {
        bool holds = remaining_[child].size() == later.size() + 1;
        if (holds && container_ < 0) container_ = child;
        std::vector<int>().swap(remaining_[child]);
    }
    if (!later.empty()) {
        next_sibling_[v] = first_child_[later.front()];
        first_child_[later.front()] = v;
    }
    return true;
}

double CostOfOrder(const ModelGraph& graph, const std::vector<int>& order)
{
    Adjacency moral_graph = MoralGraph(graph);
    SymbolicElimination elimination(moral_graph, order);
    double cost = 0;
    while (elimination.Step())
        cost += MultiplySize(TableSize(graph, elimination.Neighbours()),
                             graph.variables[elimination.Variable()].num_states);
    return cost;
}

void FailCliquesHalted()
{
    FailWith<6019>(ABORTED_CND);
}

void CliqueWatch::Formed(size_t num_members)
{
    num_members_ += static_cast<int64_t>(num_members);
    if (num_members_ < next_look_) return;
    next_look_ = num_members_ + kBetweenLooks;
    if (IsHalted()) FailCliquesHalted();
}

Triangulation Triangulate(const ModelGraph& graph, const std::vector<int>& order)
{
    // Numbers that are kept for each member: in the clique, the tree, the separator, the clique's place.
    constexpr double kBytesPerMember = 4 * sizeof(int);
    Triangulation result;
    CliqueWatch steps, kept;
    result.order = order;
    Adjacency moral_graph = MoralGraph(graph);
    SymbolicElimination elimination(moral_graph, order);
    // By step, the clique that now stands there; a container hands its clique on to the step of
    // the candidate it absorbs.
    std::vector<std::vector<int>> clique_at(order.size());
    std::vector<int> place(order.size(), -1);  // by variable: step at which its candidate's clique stands
    for (int step = 0; elimination.Step(); ++step) {
        int v = elimination.Variable();
        steps.Formed(elimination.Neighbours().size() + 1);
        result.cost +=
            MultiplySize(TableSize(graph, elimination.Neighbours()), graph.variables[v].num_states);
        place[v] = step;
        if (elimination.Container() >= 0) {
            clique_at[step].swap(clique_at[place[elimination.Container()]]);
            continue;
        }
        kept.Formed(elimination.Neighbours().size() + 1);
        CheckMemory(kBytesPerMember * static_cast<double>(kept.NumMembers()), "for the cliques of the >-net");
        std::vector<int>& clique = clique_at[step];
        clique.reserve(elimination.Neighbours().size() + 1);
        clique.push_back(v);
        clique.insert(clique.end(), elimination.Neighbours().begin(), elimination.Neighbours().end());
    }
    for (std::vector<int>& clique : clique_at)
        if (!clique.empty()) result.cliques.push_back(std::move(clique));
    result.elimination_index = elimination.EliminationIndex();
    return result;
}

}  // namespace talora
