// The search for an elimination order that is proven to be best.
#include "BN/Order/OptimizeOrderExact.h"

#include <algorithm>
#include <bit>
#include <unordered_map>

#include "BN/Model/TableSize.h"

namespace talora {

namespace {

using Set = uint64_t;  // of variables of the core
constexpr int kMaxCore = 64;
constexpr size_t kStatesBetweenChecks = 1024;

template <typename Body>
void ForEach(Set set, Body body)
{
    for (; set != 0; set &= set - 1) body(std::countr_zero(set));
}

Set Bit(int v)
{
    return Set{1} << v;
}

// The neighbours of variables that are eliminated and hang together: a clique of what remains, and one that
// has been counted, as part of a larger.
using Ends = std::vector<std::vector<int>>;

// Eliminates variables whose neighbours are all joined for as long as there are any.
class Preprocessing {
public:
    Preprocessing(const ModelGraph& graph, const Adjacency& moral_graph)
        : graph_(graph), around_(moral_graph), is_gone_(moral_graph.size())
    {
        std::vector<int> open(around_.size());
        for (size_t v = 0; v < open.size(); ++v) open[v] = int(open.size() - 1 - v);
        while (!open.empty()) {
            const int v = open.back();
            open.pop_back();
            if (is_gone_[size_t(v)] || !IsSimplicial(v)) continue;
            Eliminate(v);
            open.insert(open.end(), around_[size_t(v)].begin(), around_[size_t(v)].end());
        }
        for (int v = 0; v < int(around_.size()); ++v)
            if (!is_gone_[size_t(v)]) core.push_back(v);
    }

    std::vector<int> order;
    double size = 0;        // sum of the cliques made
    Ends ends;              // of what is eliminated
    std::vector<int> core;  // what remains
    const std::vector<int>& Neighbours(int v) const { return around_[size_t(v)]; }

private:
    bool IsSimplicial(int v) const
    {
        const std::vector<int>& list = around_[size_t(v)];
        for (size_t i = 0; i < list.size(); ++i)
            for (size_t k = i + 1; k < list.size(); ++k)
                if (!std::binary_search(around_[size_t(list[i])].begin(), around_[size_t(list[i])].end(),
                                        list[k]))
                    return false;
        return true;
    }

    void Eliminate(int v)
    {
        const std::vector<int>& list = around_[size_t(v)];
        const auto ends_at = [&](const std::vector<int>& end) {
            return std::binary_search(end.begin(), end.end(), v);
        };
        const bool is_counted = std::any_of(ends.begin(), ends.end(), [&](const std::vector<int>& end) {
            return end.size() == list.size() + 1 && ends_at(end);
        });
        if (!is_counted)
            size += MultiplySize(TableSize(graph_, list), graph_.variables[size_t(v)].num_states);
        ends.erase(std::remove_if(ends.begin(), ends.end(), ends_at), ends.end());
        ends.push_back(list);
        for (int w : list) {
            std::vector<int>& other = around_[size_t(w)];
            other.erase(std::lower_bound(other.begin(), other.end(), v));
        }
        order.push_back(v);
        is_gone_[size_t(v)] = 1;
    }

    const ModelGraph& graph_;
    Adjacency around_;  // what remains; of those that are gone: when they went
    std::vector<char> is_gone_;
};

class CoreSearch {
public:
    CoreSearch(const ModelGraph& graph, const Preprocessing& done, double bound) : bound_(bound)
    {
        std::vector<int> number(graph.variables.size(), -1);
        for (int v : done.core) {
            number[size_t(v)] = num_variables_++;
            states_.push_back(graph.variables[size_t(v)].num_states);
        }
        const auto as_set = [&](const std::vector<int>& list) {
            Set set = 0;
            for (int v : list) set |= Bit(number[size_t(v)]);
            return set;
        };
        for (int v : done.core) links_.push_back(as_set(done.Neighbours(v)));
        for (const std::vector<int>& end : done.ends) first_ends_.push_back(as_set(end));
        everything_ = num_variables_ == kMaxCore ? ~Set{0} : Bit(num_variables_) - 1;
    }

    bool Run(size_t max_states, const std::function<bool()>& may_go_on)
    {
        best_.reserve(std::min(max_states, size_t{1} << 16));
        best_[0] = {0, -1};
        std::vector<Set> layer = {0}, next;
        size_t num_seen = 0;
        for (int step = 0; step < num_variables_; ++step) {
            next.clear();
            for (Set eliminated : layer) {
                if (++num_seen > max_states || (num_seen % kStatesBetweenChecks == 0 && !may_go_on()))
                    return false;
                Expand(eliminated, next);
            }
            layer.swap(next);
        }
        return true;
    }

    // By number in the core; empty if no order stays below the bound.
    std::vector<int> BestOrder() const
    {
        std::vector<int> order;
        if (best_.find(everything_) == best_.end()) return order;
        for (Set set = everything_; set != 0; set &= ~Bit(order.back())) order.push_back(best_.at(set).last);
        std::reverse(order.begin(), order.end());
        return order;
    }

private:
    struct Way {
        double size;  // of the cliques made
        int last;     // eliminated
    };

    double SizeOf(Set set) const
    {
        double size = 1;
        ForEach(set, [&](int v) { size = MultiplySize(size, states_[size_t(v)]); });
        return size;
    }

    // What remains when a set is eliminated: the neighbours of each, and the ends.
    void FindRemaining(Set eliminated)
    {
        ends_.clear();
        for (Set end : first_ends_)
            if ((end & eliminated) == 0 && end != 0) ends_.push_back(end);
        const size_t num_untouched = ends_.size();
        for (Set rest = eliminated; rest != 0;) {
            Set part = Bit(std::countr_zero(rest)), around = 0;
            for (Set fresh = part; fresh != 0;) {
                Set reached = 0;
                ForEach(fresh, [&](int v) { reached |= links_[size_t(v)]; });
                around |= reached;
                fresh = reached & eliminated & ~part;
                part |= fresh;
            }
            ends_.push_back(around & ~eliminated);
            rest &= ~part;
        }
        remaining_ = everything_ & ~eliminated;
        ForEach(remaining_, [&](int v) { around_[v] = links_[size_t(v)] & remaining_; });
        for (size_t e = num_untouched; e < ends_.size(); ++e)
            ForEach(ends_[e], [&](int v) { around_[v] |= ends_[e] & ~Bit(v); });
    }

    bool IsSimplicial(int v) const
    {
        bool is_simplicial = true;
        ForEach(around_[v], [&](int w) { is_simplicial &= (around_[v] & ~Bit(w) & ~around_[w]) == 0; });
        return is_simplicial;
    }

    bool IsCounted(Set clique) const
    {
        return std::any_of(ends_.begin(), ends_.end(), [&](Set end) { return (clique & ~end) == 0; });
    }

    void Expand(Set eliminated, std::vector<Set>& next)
    {
        const double so_far = best_.at(eliminated).size;
        FindRemaining(eliminated);
        Set choices = remaining_;
        ForEach(remaining_, [&](int v) {
            if (choices == remaining_ && IsSimplicial(v)) choices = Bit(v);
        });
        if (choices == remaining_ && so_far + RestAtLeast() >= bound_) return;
        ForEach(choices, [&](int v) {
            const Set clique = around_[v] | Bit(v);
            const double size = so_far + (IsCounted(clique) ? 0 : SizeOf(clique));
            if (size >= bound_) return;
            const auto [found, is_new] = best_.try_emplace(eliminated | Bit(v), Way{size, v});
            if (is_new)
                next.push_back(found->first);
            else if (size < found->second.size)
                found->second = {size, v};
        });
    }

    // The sum of the cliques still to come is at least this.
    double RestAtLeast() { return std::max(LargestAtLeast(), SumAtLeast()); }

    // Variables that are not neighbours of each other, each with some clique around it.  A clique that holds
    // several of these is at least as large as all of them together, since variables have two states or more.
    double SumAtLeast() const
    {
        double sizes[kMaxCore], sum = 0;
        ForEach(remaining_, [&](int v) { sizes[v] = SizeAround(v); });
        for (Set open = remaining_; open != 0;) {
            int best = std::countr_zero(open);
            ForEach(open, [&](int v) {
                if (sizes[v] > sizes[best]) best = v;
            });
            sum += sizes[best];
            open &= ~(around_[best] | Bit(best));
        }
        return sum;
    }

    // A clique around v that has not been counted; 0 if none is found.
    double SizeAround(int v) const
    {
        Set clique = Bit(v);
        for (Set open = around_[v]; open != 0;) {
            int widest = -1;
            ForEach(open, [&](int w) {
                if (widest < 0 || states_[size_t(w)] > states_[size_t(widest)]) widest = w;
            });
            clique |= Bit(widest);
            open &= around_[widest];
        }
        return IsCounted(clique) ? 0 : SizeOf(clique);
    }

    // Some variable is the first to go, with all its neighbours; and joining it with a neighbour, whose
    // states become the fewer of both, makes no clique larger.
    double LargestAtLeast()
    {
        double largest_counted = 0, largest = 0;
        for (Set end : ends_) largest_counted = std::max(largest_counted, SizeOf(end));
        std::copy_n(around_, num_variables_, minor_);
        minor_states_ = states_;
        for (Set left = remaining_; left != 0;) {
            int least = -1;
            double least_size = 0;
            ForEach(left, [&](int v) {
                double size = minor_states_[size_t(v)];
                ForEach(minor_[v], [&](int w) { size *= minor_states_[size_t(w)]; });
                if (least < 0 || size < least_size) least = v, least_size = size;
            });
            largest = std::max(largest, least_size);
            left &= ~Bit(least);
            Contract(least);
        }
        return largest > largest_counted ? largest : 0;
    }

    // Into the neighbour with which it shares fewest neighbours.
    void Contract(int v)
    {
        int into = -1, fewest = kMaxCore + 1;
        ForEach(minor_[v], [&](int w) {
            minor_[w] &= ~Bit(v);
            const int shared = std::popcount(minor_[v] & minor_[w]);
            if (shared < fewest) into = w, fewest = shared;
        });
        if (into < 0) return;
        const Set gained = minor_[v] & ~Bit(into);
        minor_[into] |= gained;
        ForEach(gained, [&](int w) { minor_[w] |= Bit(into); });
        minor_states_[size_t(into)] = std::min(minor_states_[size_t(into)], minor_states_[size_t(v)]);
    }

    const double bound_;
    int num_variables_ = 0;
    std::vector<int> states_;
    std::vector<Set> links_, first_ends_;
    Set everything_ = 0;
    std::unordered_map<Set, Way> best_;  // by set of eliminated variables

    // Of the set that is looked at.
    Set remaining_ = 0;
    Set around_[kMaxCore] = {};
    std::vector<Set> ends_;
    Set minor_[kMaxCore] = {};
    std::vector<int> minor_states_;
};

}  // namespace

ExactSearchResult SearchExactOrder(const ModelGraph& graph, const Adjacency& moral_graph, double bound,
                                   size_t max_states, const std::function<bool()>& may_go_on)
{
    ExactSearchResult result;
    // Sums must be exact, and a clique at least twice as large as one without a variable.
    if (bound >= 0x1p53) return result;
    for (const ModelGraph::Variable& variable : graph.variables)
        if (variable.num_states < 2) return result;
    const Preprocessing done(graph, moral_graph);
    if (done.core.size() > kMaxCore) return result;
    CoreSearch search(graph, done, bound - done.size);
    result.is_complete = search.Run(max_states, may_go_on);
    if (!result.is_complete || bound <= done.size) return result;
    const std::vector<int> core_order = search.BestOrder();
    if (core_order.size() != done.core.size()) return result;
    result.order = done.order;
    for (int v : core_order) result.order.push_back(done.core[size_t(v)]);
    return result;
}

}  // namespace talora
