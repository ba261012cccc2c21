// Arithmetic on foreign nets: sizes of tables, their orders, noisy maxima.
#include "Foreign/ForeignNet.h"

#include <algorithm>

#include "BN/Model/TableSize.h"

namespace talora {

namespace {

// Goes through all configurations of the parents in our order, and says with each where its row stands in a
// table in which parent i has the stride strides[i].
template <class Visit>
void ForEachRow(const ForeignNet& net, const ForeignNode& node, const std::vector<size_t>& strides,
                size_t num_rows, Visit&& visit)
{
    std::vector<size_t> state(node.parents.size(), 0);
    size_t there = 0;
    for (size_t row = 0; row < num_rows; ++row) {
        visit(row, there);
        for (size_t i = node.parents.size(); i-- > 0;) {
            there += strides[i];
            if (++state[i] < net.nodes[size_t(node.parents[i])].states.size()) break;
            there -= strides[i] * state[i];
            state[i] = 0;
        }
    }
}

// Strides of the parents and of the own states in another order.
struct Layout {
    std::vector<size_t> strides;
    size_t own;
};

Layout LayoutOf(const ForeignNet& net, const ForeignNode& node, EntryOrder order, size_t num_rows)
{
    Layout layout{std::vector<size_t>(node.parents.size()), 1};
    const auto count = [&](size_t i) { return net.nodes[size_t(node.parents[i])].states.size(); };
    if (order == EntryOrder::OWN_SLOWEST) {
        size_t stride = 1;
        for (size_t i = node.parents.size(); i-- > 0; stride *= count(i)) layout.strides[i] = stride;
        layout.own = num_rows;
    } else {
        size_t stride = node.Width();
        for (size_t i = 0; i < node.parents.size(); stride *= count(i), ++i) layout.strides[i] = stride;
    }
    return layout;
}

}  // namespace

double NumRows(const ForeignNet& net, const ForeignNode& node)
{
    double rows = 1;
    for (const int parent : node.parents)
        rows = MultiplySize(rows, static_cast<int>(net.nodes[size_t(parent)].states.size()));
    return rows;
}

void AddLoss(std::vector<Loss>& losses, LossSeverity severity, std::string_view what, std::string_view node,
             std::string_view instead)
{
    const auto same = [&](const Loss& loss) { return loss.what == what && loss.severity == severity; };
    auto found = std::find_if(losses.begin(), losses.end(), same);
    if (found == losses.end())
        found = losses.insert(found, Loss{severity, std::string(what), {}, std::string(instead)});
    // Nodes are added one after the other, so a second mention of one follows the first.
    if (!node.empty() && (found->nodes.empty() || found->nodes.back() != node))
        found->nodes.emplace_back(node);
}

size_t NoisyMaxSize(const ForeignNet& net, const ForeignNode& node)
{
    size_t rows = 1;
    for (const int parent : node.parents) rows += net.nodes[size_t(parent)].states.size();
    return rows * node.states.size();
}

// The largest of independent contributions is at most k when each is: the cumulative distributions of the
// contributions multiply (Diez 1993; Srinivas 1993).  With the first state strongest the same holds from the
// other end.
TableVector<double> ExpandNoisyMax(const ForeignNet& net, const ForeignNode& node)
{
    const size_t n = node.states.size();
    const auto num_rows = static_cast<size_t>(NumRows(net, node));
    // 1. Cumulative rows, from the weakest state on.
    std::vector<double> cumulative = node.noisy.rows;
    const auto at = [&](size_t row, size_t k) -> double& {
        return cumulative[row * n + (node.noisy.first_is_strongest ? n - 1 - k : k)];
    };
    for (size_t row = 0; row < cumulative.size() / n; ++row)
        for (size_t k = 1; k < n; ++k) at(row, k) += at(row, k - 1);
    // 2. For each configuration their product, and its differences.
    std::vector<size_t> first_row(node.parents.size()), state(node.parents.size(), 0);
    size_t leak = 0;
    for (size_t i = 0; i < node.parents.size(); ++i) {
        first_row[i] = leak;
        leak += net.nodes[size_t(node.parents[i])].states.size();
    }
    TableVector<double> table(num_rows * n);
    for (size_t row = 0; row < num_rows; ++row) {
        double below = 0;
        for (size_t k = 0; k < n; ++k) {
            double product = k + 1 < n ? at(leak, k) : 1.0;
            for (size_t i = 0; i < state.size() && k + 1 < n; ++i) product *= at(first_row[i] + state[i], k);
            table[row * n + (node.noisy.first_is_strongest ? n - 1 - k : k)] = std::max(0.0, product - below);
            below = product;
        }
        for (size_t i = state.size(); i-- > 0;) {
            if (++state[i] < net.nodes[size_t(node.parents[i])].states.size()) break;
            state[i] = 0;
        }
    }
    return table;
}

TableVector<double> InOurOrder(const ForeignNet& net, const ForeignNode& node, TableVector<double> table,
                               EntryOrder order)
{
    const size_t width = node.Width(), num_rows = width ? table.size() / width : 0;
    if (node.parents.empty()) return table;
    const Layout from = LayoutOf(net, node, order, num_rows);
    TableVector<double> ours(table.size());
    ForEachRow(net, node, from.strides, num_rows, [&](size_t row, size_t there) {
        for (size_t k = 0; k < width; ++k) ours[row * width + k] = table[there + k * from.own];
    });
    return ours;
}

TableVector<double> InOrder(const ForeignNet& net, const ForeignNode& node, EntryOrder order)
{
    const size_t width = node.Width(), num_rows = width ? node.table.size() / width : 0;
    if (node.parents.empty()) return node.table;
    const Layout to = LayoutOf(net, node, order, num_rows);
    TableVector<double> theirs(node.table.size());
    ForEachRow(net, node, to.strides, num_rows, [&](size_t row, size_t there) {
        for (size_t k = 0; k < width; ++k) theirs[there + k * to.own] = node.table[row * width + k];
    });
    return theirs;
}

}  // namespace talora
