// Puts hubs between large cliques and the children that share few variables with them.
#include "BN/Propagation/TreeHubs.h"

#include <algorithm>
#include <bit>

namespace talora {

namespace {

constexpr double kSmallestClique = 2048;  // entries, below which messages cost more than entries
constexpr double kLargestShare = 0.25;    // of a clique's entries that a hub may have
constexpr size_t kMostMembers = 64;
constexpr size_t kTogether = 32;  // children that are looked at in pairs

// What takes part at a clique: a child, or a hub with parts of its own.
struct Part {
    uint64_t members = 0;    // of the clique, that are shared
    int child = -1;          // or -1: a hub
    std::vector<int> parts;  // of a hub
};

// The parts at one large clique; those that are in no hub are joined to the clique itself.
class Grouping {
public:
    Grouping(const ModelGraph& graph, const JunctionTree& tree, int clique)
        : graph_(graph), tree_(tree), members_(tree.members[clique])
    {
        const double limit = tree.clique_sizes[size_t(clique)] * kLargestShare;
        std::vector<int> some;
        for (int child : tree.children[clique]) {
            parts.push_back({MaskOf(child), child, {}});
            some.push_back(int(parts.size()) - 1);
            if (some.size() < kTogether && child != tree.children[clique].back()) continue;
            while (JoinTwo(some, limit)) {
            }
            top.insert(top.end(), some.begin(), some.end());
            some.clear();
        }
    }

    std::vector<Part> parts;
    std::vector<int> top;

private:
    uint64_t MaskOf(int child) const
    {
        uint64_t mask = 0;
        for (int v : tree_.separators[child])
            mask |= uint64_t{1} << (std::find(members_.begin(), members_.end(), v) - members_.begin());
        return mask;
    }

    double SizeOf(uint64_t mask) const
    {
        double size = 1;
        for (; mask != 0; mask &= mask - 1)
            size *= graph_.variables[size_t(members_[size_t(std::countr_zero(mask))])].num_states;
        return size;
    }

    // Puts the two that are smallest together into one hub.  False: none is small enough.
    bool JoinTwo(std::vector<int>& some, double limit)
    {
        size_t best_a = 0, best_b = 0;
        double best = limit;
        for (size_t a = 0; a < some.size(); ++a)
            for (size_t b = a + 1; b < some.size(); ++b) {
                const double size = SizeOf(parts[size_t(some[a])].members | parts[size_t(some[b])].members);
                if (size < best) best = size, best_a = a, best_b = b;
            }
        if (best_a == best_b) return false;
        const int second = some[best_b];
        some.erase(some.begin() + ptrdiff_t(best_b));
        some[best_a] = Joined(some[best_a], second);
        return true;
    }

    int Joined(int a, int b)
    {
        const uint64_t both = parts[size_t(a)].members | parts[size_t(b)].members;
        for (const auto& [hub, other] : {std::pair(a, b), std::pair(b, a)}) {
            if (parts[size_t(hub)].child >= 0 || parts[size_t(hub)].members != both) continue;
            parts[size_t(hub)].parts.push_back(other);
            return hub;
        }
        parts.push_back({both, -1, {a, b}});
        return int(parts.size()) - 1;
    }

    const ModelGraph& graph_;
    const JunctionTree& tree_;
    std::span<const int> members_;
};

class Rebuilder {
public:
    Rebuilder(const ModelGraph& graph, const JunctionTree& tree) : graph_(graph), old_(tree) {}

    // False: no hub pays.
    bool Run(HubTree& result)
    {
        new_mate_.assign(size_t(old_.num_cliques()), -1);
        new_index_.assign(size_t(old_.num_cliques()), -1);
        for (int i = 0; i < old_.num_cliques(); ++i) {
            const int mate = old_.mate[size_t(i)];
            if (mate >= 0 && new_mate_[size_t(i)] < 0) new_mate_[size_t(i)] = new_index_[size_t(mate)];
            new_index_[size_t(i)] = Add(i, old_.members[i], old_.separators[i], new_mate_[size_t(i)]);
            for (int v : old_.homed[i]) tree_.homed.items.push_back(v);
            tree_.homed.EndList();
            const bool pays = old_.children[i].size() > 1 && old_.members[i].size() <= kMostMembers &&
                              old_.clique_sizes[size_t(i)] >= kSmallestClique;
            if (pays) AddHubsOf(i);
        }
        if (tree_.num_cliques() == old_.num_cliques()) return false;
        Finish();
        result.tree = std::move(tree_);
        result.origin = std::move(origin_);
        return true;
    }

private:
    double SizeOf(std::span<const int> variables) const
    {
        double size = 1;
        for (int v : variables) size *= graph_.variables[size_t(v)].num_states;
        return size;
    }

    int Add(int origin, std::span<const int> members, std::span<const int> separator, int mate)
    {
        tree_.members.items.insert(tree_.members.items.end(), members.begin(), members.end());
        tree_.members.EndList();
        tree_.separators.items.insert(tree_.separators.items.end(), separator.begin(), separator.end());
        tree_.separators.EndList();
        tree_.mate.push_back(mate);
        tree_.clique_sizes.push_back(SizeOf(members));
        tree_.separator_sizes.push_back(mate < 0 ? 0 : SizeOf(separator));
        origin_.push_back(origin);
        return tree_.num_cliques() - 1;
    }

    // Hubs come after what they are joined to; the children of the clique are told their new mates.
    void AddHubsOf(int clique)
    {
        const Grouping grouping(graph_, old_, clique);
        struct Waiting {
            int part, mate;
        };
        std::vector<Waiting> waiting;
        for (int part : grouping.top) waiting.push_back({part, new_index_[size_t(clique)]});
        std::vector<int> shared;
        for (size_t k = 0; k < waiting.size(); ++k) {
            const auto [number, mate] = waiting[k];
            const Part& part = grouping.parts[size_t(number)];
            if (part.child >= 0) {
                new_mate_[size_t(part.child)] = mate;
                continue;
            }
            shared.clear();
            for (uint64_t mask = part.members; mask != 0; mask &= mask - 1)
                shared.push_back(old_.members[clique][size_t(std::countr_zero(mask))]);
            const int hub = Add(clique, shared, shared, mate);
            tree_.homed.EndList();
            for (int inner : part.parts) waiting.push_back({inner, hub});
        }
    }

    void Finish()
    {
        const size_t count = size_t(tree_.num_cliques());
        std::vector<int>& items = tree_.children.items;
        std::vector<int64_t>& start = tree_.children.start;
        start.assign(count + 1, 0);
        for (int mate : tree_.mate)
            if (mate >= 0) ++start[size_t(mate) + 1];
        for (size_t i = 0; i < count; ++i) start[i + 1] += start[i];
        items.resize(size_t(start[count]));
        std::vector<int64_t> next(start.begin(), start.end() - 1);
        for (size_t i = 0; i < count; ++i)
            if (tree_.mate[i] >= 0) items[size_t(next[size_t(tree_.mate[i])]++)] = int(i);
        const auto renumbered = [&](const std::vector<int>& homes) {
            std::vector<int> renamed(homes);
            for (int& home : renamed)
                if (home >= 0) home = new_index_[size_t(home)];
            return renamed;
        };
        tree_.home = renumbered(old_.home);
        tree_.utility_home = renumbered(old_.utility_home);
        for (size_t i = 0; i < count; ++i)
            tree_.total_size += tree_.clique_sizes[i] + tree_.separator_sizes[i];
    }

    const ModelGraph& graph_;
    const JunctionTree& old_;
    JunctionTree tree_;
    std::vector<int> origin_;
    std::vector<int> new_mate_;   // per old clique: a clique of the new tree
    std::vector<int> new_index_;  // per old clique
};

}  // namespace

HubTree AddHubs(const ModelGraph& graph, const JunctionTree& tree)
{
    HubTree result;
    const bool any_large = std::any_of(tree.clique_sizes.begin(), tree.clique_sizes.end(),
                                       [](double size) { return size >= kSmallestClique; });
    if (any_large) Rebuilder(graph, tree).Run(result);
    return result;
}

}  // namespace talora
