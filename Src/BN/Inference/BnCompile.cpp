// Compiling a net: checks, the graph, the order, the tree, and what is reported on them.
#include "BN/Inference/BnCompile.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <numeric>

#include "BN/Equations/EqnToTable.h"
#include "BN/Model/BnEdit.h"
#include "BN/Model/BnElimOrder.h"
#include "BN/Model/BnProbs.h"
#include "BN/Order/Graph_Triangulate.h"
#include "BN/Order/OptimizeOrder.h"
#include "BN/Propagation/TreeTables.h"
#include "Basic/Error.h"
#include "Basic/FloatMode.h"
#include "Basic/Memory.h"
#include "Basic/Progress.h"
#include "Basic/Text.h"

namespace talora {

namespace {

constexpr int kSamplesToRebuild = 1000;        // per row of a table that has to be sampled
constexpr double kQuestionTableBytes = 256e6;  // more and the user is asked

[[noreturn]] void FailHalted(const Net& net)
{
    FailWith<6000>(ABORTED_CND, net.name.c_str());
}

void CheckHalt(const Net& net)
{
    if (IsHalted()) FailHalted(net);
}

// ---- The graph ----

// Whether b can be reached from a along links of any kind.
bool IsReached(const Node& a, const Node& b)
{
    std::vector<char> seen(a.net->nodes.nodes.size(), 0);
    std::vector<const Node*> waiting = {&a};
    while (!waiting.empty()) {
        const Node* const node = waiting.back();
        waiting.pop_back();
        if (node == &b) return true;
        for (const Node* child : node->children.nodes) {
            if (seen[size_t(child->index)]) continue;
            seen[size_t(child->index)] = 1;
            waiting.push_back(child);
        }
    }
    return false;
}

// A net with delayed links, the first of them at this node, can't be compiled; names a cycle through one, if
// there is one.
[[noreturn]] void FailDelayed(const Net& net, const Node& first)
{
    constexpr int kMostSearches = 64;  // of links, each through the net
    const Node* child = nullptr;
    const Link* in_cycle = nullptr;
    int num_searches = 0;
    for (const Node* node : net.nodes.nodes)
        for (const Link& link : node->links) {
            if (in_cycle != nullptr || !IsDelayed(link) || num_searches++ >= kMostSearches) continue;
            if (!IsReached(*node, *link.parent)) continue;
            in_cycle = &link;
            child = node;
        }
    if (in_cycle != nullptr) Warn<7200>(in_cycle->parent->name.c_str(), child->name.c_str());
    Fail<6001>(net.name.c_str(), first.name.c_str());
}

// No delays, no parents that cannot take part, constants with a known state where a table depends on them.
void CheckCompilable(const Net& net)
{
    for (const Node* node : net.nodes.nodes) {
        if (IsDocumentation(*node) || node->kind == DISCONNECTED_NODE) continue;
        for (const Link& link : node->links) {
            const Node& parent = *link.parent;
            if (IsDelayed(link)) FailDelayed(net, *node);
            if (!IsInTree(parent) && parent.kind != CONSTANT_NODE)
                Fail<6002>(net.name.c_str(), parent.name.c_str(), node->name.c_str());
        }
        CheckConstantParents(*node);
    }
}

// Places of the names in byte order, compared over the longest length that a name may have.
std::vector<int> NameRanks(const std::vector<Node*>& nodes)
{
    std::vector<int> by_name(nodes.size());
    std::iota(by_name.begin(), by_name.end(), 0);
    std::stable_sort(by_name.begin(), by_name.end(), [&](int a, int b) {
        return strncmp(nodes[a]->name.c_str(), nodes[b]->name.c_str(), 30) < 0;
    });
    std::vector<int> ranks(nodes.size());
    for (size_t place = 0; place < by_name.size(); ++place) ranks[by_name[place]] = int(place);
    return ranks;
}

std::vector<int> TreeParents(const Node& node, const std::vector<int>& variable_of)
{
    std::vector<int> parents;
    for (const Link& link : node.links)
        if (variable_of[link.parent->index] >= 0) parents.push_back(variable_of[link.parent->index]);
    return parents;
}

// Numbers the nodes that take part and lists their parents.
void BuildGraph(const Net& net, CompiledNet& compiled)
{
    compiled.variable_of.assign(net.nodes.nodes.size(), -1);
    for (Node* node : net.nodes.nodes) {
        if (node->kind == UTILITY_NODE) compiled.utilities.push_back(node);
        if (std::any_of(node->links.begin(), node->links.end(),
                        [](const Link& link) { return link.parent->kind == CONSTANT_NODE; }))
            compiled.below_constants.push_back(node);
        if (!IsInTree(*node)) continue;
        compiled.variable_of[node->index] = int(compiled.nodes.size());
        compiled.nodes.push_back(node);
        if (node->kind == DECISION_NODE) compiled.has_decisions = true;
    }
    const std::vector<int> ranks = NameRanks(compiled.nodes);
    for (size_t variable = 0; variable < compiled.nodes.size(); ++variable) {
        const Node& node = *compiled.nodes[variable];
        compiled.graph.variables.push_back({NumStates(node), node.kind == DECISION_NODE,
                                            TreeParents(node, compiled.variable_of), ranks[variable]});
    }
    for (const Node* node : compiled.utilities)
        compiled.graph.utility_parents.push_back(TreeParents(*node, compiled.variable_of));
    if (!compiled.utilities.empty()) compiled.has_decisions = true;
    compiled.propagation_graph = compiled.graph;
    for (ModelGraph::Variable& variable : compiled.propagation_graph.variables)
        variable.num_states = std::max(variable.num_states, 1);
}

// ---- The order ----

std::vector<int> OrderAsNumbers(const CompiledNet& compiled, const std::vector<Node*>& order)
{
    std::vector<int> numbers;
    numbers.reserve(order.size());
    for (const Node* node : order) numbers.push_back(compiled.variable_of[node->index]);
    return numbers;
}

void StoreFoundOrder(Net& net, const CompiledNet& compiled, const std::vector<int>& order)
{
    std::vector<Node*> nodes;
    nodes.reserve(order.size());
    for (int variable : order) nodes.push_back(compiled.nodes[variable]);
    StoreElimOrder(net, nodes, true, "optimize elimination order");
}

// Stores the order that the tree of the net was made from.  Storing one discards the tree, which therefore
// steps aside.
void StoreOrderOfTree(Net& net, const std::vector<int>& order)
{
    std::unique_ptr<CompiledNet, CompiledNetDeleter> compiled = std::move(net.compiled);
    StoreFoundOrder(net, *compiled, order);
    net.compiled = std::move(compiled);
}

// @param most_cost  of an order that is of use, in table entries
std::vector<int> FindOrder(const Net& net, const CompiledNet& compiled, double most_cost)
{
    std::vector<int> all(compiled.nodes.size());
    std::iota(all.begin(), all.end(), 0);
    if (all.size() < 2) return all;
    Progress progress("finding elimination order");
    GreedySearchResult found = FindGreedyOrder(compiled.graph, all, &progress, most_cost);
    if (found.is_too_costly) Fail<6010>();
    if (found.order.empty()) FailHalted(net);
    return found.order;
}

// ---- Checks at the end of compiling ----

bool IsComplete(const Node& node)
{
    bool complete = false;
    return HasTable(node, &complete) && complete;
}

// Whether a function gives the node a value that none of its states has.
bool HasStrayValue(const Node& node)
{
    const auto& reals = node.tables.func_reals;
    return node.tables.probs.empty() && node.tables.func_states.empty() && HasStates(node) &&
           std::any_of(reals.begin(), reals.end(),
                       [&](double value) { return !IsUndef(value) && StateOfValue(node, value) < 0; });
}

// One warning of each kind, naming the last such node.
void WarnOfTables(const CompiledNet& compiled)
{
    const Node *without = nullptr, *incomplete = nullptr, *utility = nullptr, *stray = nullptr;
    for (const Node* node : compiled.nodes) {
        if (node->kind != NATURE_NODE || IsComplete(*node)) continue;
        (HasTable(*node, nullptr) ? incomplete : without) = node;
    }
    for (const Node* node : compiled.nodes)
        if (node->kind == NATURE_NODE && HasStrayValue(*node)) stray = node;
    for (const Node* node : compiled.utilities)
        if (!IsComplete(*node)) utility = node;
    if (without) Warn<6005>(without->name.c_str());
    if (incomplete) Warn<6006>(incomplete->name.c_str());
    if (stray) Warn<7203>(stray->name.c_str());
    if (utility) Warn<6007>(utility->name.c_str());
}

std::string BytesInWords(double bytes)
{
    const char* unit = bytes >= 1e9 ? "GB" : bytes >= 1e6 ? "MB" : "KB";
    return FormatReal15(std::round(bytes / (bytes >= 1e9   ? 1e7
                                            : bytes >= 1e6 ? 1e4
                                                           : 10)) /
                        100) +
           " " + unit;
}

// Trees too large to be updated may still be looked at: a warning.
void CheckMemoryFor(Net& net, const TreeSizes& sizes)
{
    const double bytes = sizes.under_findings * sizeof(float);
    if (bytes > kMaxTreeBytes) {
        Warn<6008>();
        return;
    }
    if (!CheckTableMemory(net, sizes)) FailHalted(net);
}

bool HasStaleTable(const Node& node)
{
    return node.eqn_dirty == EqnDirty::DIRTY && !node.equation.empty();
}

// Tables that were built from an equation and may no longer match it are built again if the user wants so.
void AskAboutStaleTables(Net& net)
{
    const std::vector<Node*>& nodes = net.nodes.nodes;
    const auto stale =
        std::find_if(nodes.begin(), nodes.end(), [](const Node* node) { return HasStaleTable(*node); });
    if (stale == nodes.end()) return;
    const std::string question =
        Phrase("The tables for some >-node(s) (e.g. %s) may not match their equation.  >-cr-Rebuild them?",
               (*stale)->name.c_str());
    const int answer = AskQuestion(question.c_str(), "Yes,Not Now,Ignore any Discrepency,Cancel", "Not Now");
    if (answer == 3) FailWith<6000>(ABORTED_CND, net.name.c_str());
    if (answer != 0) return;
    for (Node* node : nodes)
        if (HasStaleTable(*node)) EquationToTable(*node, kSamplesToRebuild, false, false);
}

void ReportCompiled(const Net& net, const TreeSizes& sizes)
{
    if (!net.env->message_handler.IsSet()) return;
    const int num_cliques = net.compiled->tree.num_cliques();
    if (sizes.under_findings == sizes.with_separators)
        Raise<6009>(num_cliques, sizes.with_separators);
    else
        Raise<6009, 1>(num_cliques, sizes.with_separators, sizes.under_findings);
}

// Shows the user what the best order so far will take, under a heading the first time.
void ShowRequirements(environ_vx& env, double entries, bool is_first)
{
    if (!env.message_handler.IsSet()) return;
    constexpr double kSecondsPerEntry = 3e-9;  // of a full update of a large net, measured
    const double seconds = entries * kSecondsPerEntry;
    std::string text;
    if (is_first)
        text = "\nCompiling...  Press Ctrl + Left Mouse Button when below values are satisfactory.\n\n";
    text += "Max Required:" + Phrase("  Memory = %-10s", BytesInWords(entries * sizeof(float)).c_str());
    if (seconds < 1)
        text += Phrase("  Time = %d ms", int(std::ceil(seconds * 1000)));
    else if (seconds < 3600)
        text += Phrase("  Time = %.2f sec (with sufficient RAM)", seconds);
    else
        text += Phrase("  Time = %.5g hour (with sufficient RAM)", seconds / 3600);
    PrintMessage(text);
}

std::vector<int> PositiveFindings(const CompiledNet& compiled)
{
    std::vector<int> positive;
    positive.reserve(compiled.nodes.size());
    for (const Node* node : compiled.nodes) positive.push_back(node->finding.state);
    return positive;
}

// Makes the tree of an order and gives it to the net; on failure the net is left without a tree.
void BuildTree(Net& net, std::unique_ptr<CompiledNet, CompiledNetDeleter> compiled,
               const std::vector<int>& order)
{
    const Triangulation triangulation = Triangulate(compiled->graph, order);
    CheckHalt(net);
    compiled->tree = JoinTree(compiled->graph, triangulation, compiled->has_decisions);
    compiled->stale_findings.reserve(compiled->nodes.size());
    compiled->finding_is_stale.assign(compiled->nodes.size(), 0);
    CheckHalt(net);
    net.compiled = std::move(compiled);
    net.update_count = NewUpdateCount();
    try {
        const TreeSizes sizes = SizesOf(net);
        CheckMemoryFor(net, sizes);
        ReportCompiled(net, sizes);
        WarnOfTables(*net.compiled);
    } catch (...) {
        DiscardTree(net);
        throw;
    }
}

}  // namespace

double ElimOrderCost(Net& net)
{
    CheckElimOrder(net);
    if (!net.has_elim_order) return UndefDbl();
    CompiledNet graph;
    BuildGraph(net, graph);
    return CostOfOrder(graph.graph, OrderAsNumbers(graph, net.elim_order.nodes));
}

void DescribeModel(const Net& net, CompiledNet& compiled)
{
    CheckCompilable(net);
    BuildGraph(net, compiled);
}

namespace {

// Does nothing for a compiled net.
// @param most_cost  of an elimination order that is of use, in table entries
void CompileUpTo(Net& net, double most_cost)
{
    if (net.compiled) return;
    // 1. What stands against compiling, and tables that may be rebuilt first.
    CheckCompilable(net);
    AskAboutStaleTables(net);
    CheckHalt(net);
    // 2. The graph, and an order that still fits it or a new one.
    std::unique_ptr<CompiledNet, CompiledNetDeleter> compiled(new CompiledNet);
    BuildGraph(net, *compiled);
    CheckElimOrder(net);
    const bool is_found = !net.has_elim_order && compiled->nodes.size() >= 2;
    const std::vector<int> order = net.has_elim_order ? OrderAsNumbers(*compiled, net.elim_order.nodes)
                                                      : FindOrder(net, *compiled, most_cost);
    // 3. The tree.
    BuildTree(net, std::move(compiled), order);
    if (!is_found) return;
    const DerivedResults derived(net);
    StoreOrderOfTree(net, order);
}

}  // namespace

void CompileNet(Net& net)
{
    CompileUpTo(net, std::numeric_limits<double>::infinity());
}

// A net whose tables will be far too large is read without its tree: finding the order of large cliques takes
// long, and whoever wants it can still compile.
void CompileAfterReading(Net& net)
{
    constexpr double kMostCost = 1000 * kMaxTreeBytes / sizeof(float);
    try {
        CompileUpTo(net, kMostCost);
    } catch (const Unwind& failure) {
        if (failure.record != nullptr) SetSeverity(*failure.record, WARNING_SEV);
        ThisThread().failed = false;
    } catch (const OutOfMemory& failure) {
        Warn<5680>(failure.message);
    } catch (const std::bad_alloc&) {
        Warn<5680>("not enough memory");
    }
}

void OptimizeElimOrder(Net& net, double seconds)
{
    CheckCompilable(net);
    for (const Node* node : net.nodes.nodes)
        if (node->kind == DECISION_NODE) Fail<6017>(net.name.c_str());
    CompiledNet graph;
    BuildGraph(net, graph);
    CheckElimOrder(net);
    // The search begins with the stored order, so that the result is never worse.
    if (graph.nodes.size() >= 2) {
        std::vector<int> stored;
        if (net.has_elim_order) stored = OrderAsNumbers(graph, net.elim_order.nodes);
        Progress progress("Compiling optimally");
        OptimizeLimits limits;
        limits.seconds = seconds;
        bool is_first = true;
        const auto show = [&](double entries) {
            ShowRequirements(*net.env, entries, is_first);
            is_first = false;
        };
        OptimizeResult found =
            FindOptimizedOrder(graph.graph, net.has_elim_order ? &stored : nullptr, limits, &progress, show);
        if (found.order.empty()) FailHalted(net);
        StoreFoundOrder(net, graph, found.order);
    }
    CompileNet(net);
}

bool CheckTableMemory(Net& net, const TreeSizes& sizes)
{
    CompiledNet& compiled = *net.compiled;
    const double bytes = sizes.under_findings * sizeof(float);
    // 1. The limit.
    CheckTreeTables(sizes.under_findings, net.name);
    // 2. The user, once for what is needed.
    if (bytes > kQuestionTableBytes && bytes > compiled.bytes_agreed && !net.env->always_try_large) {
        const std::string question =
            Phrase("Do you want to continue compiling/updating even though the tables will require %s?",
                   BytesInWords(bytes).c_str());
        const int answer = AskQuestion(question.c_str(), "Yes,Always Try,No", "Yes");
        if (answer == 2) return false;
        if (answer == 1) net.env->always_try_large = true;
        compiled.bytes_agreed = bytes;
    }
    // 3. What would be needed without the findings, where that is another matter.
    const double full = sizes.with_separators * sizeof(float);
    if (!compiled.has_told_full_need && bytes < full &&
        (full > kQuestionTableBytes || full > MemoryAvailable())) {
        compiled.has_told_full_need = true;
        Notice<7201>(BytesInWords(full).c_str());
    }
    return true;
}

const CompiledNet& NeedCompiled(const Net& net)
{
    if (!net.compiled) Fail<6018>(net.name.c_str());
    return *net.compiled;
}

TreeSizes SizesOf(const Net& net)
{
    const CompiledNet& compiled = NeedCompiled(net);
    TreeSizes sizes;
    for (double size : compiled.tree.clique_sizes) sizes.cliques += size;
    sizes.with_separators = compiled.tree.total_size;
    sizes.under_findings = TotalSize(compiled.graph, compiled.tree, PositiveFindings(compiled));
    return sizes;
}

// A line per clique: neighbours, size and members aligned in columns, then the sums.
std::string JunctionTreeReport(const Net& net)
{
    const CompiledNet& compiled = NeedCompiled(net);
    std::string report = "Clique  [Joined To]      Size   Member nodes (* means home)\n";
    for (int clique = 0; clique < compiled.tree.num_cliques(); ++clique) {
        std::string joined = "[";
        for (int other : JoinedTo(compiled.tree, clique)) {
            if (joined.size() > 1) joined += ' ';
            joined += std::to_string(other);
        }
        report += Format("%6d  ", clique);
        report += joined + "]";
        const std::string size = FormatReal15(compiled.tree.clique_sizes[clique]);
        const size_t used = joined.size() + 1 + size.size();
        report.append(used < 21 ? 21 - used : 1, ' ');
        report += size + "  ";
        for (int member : compiled.tree.members[clique]) {
            report += compiled.tree.home[member] == clique ? " *" : " ";
            report += compiled.nodes[member]->name;
        }
        report += '\n';
    }
    const TreeSizes sizes = SizesOf(net);
    report += "Sum of clique sizes = " + FormatReal15(sizes.cliques);
    report += "  (with sepsets = " + FormatReal15(sizes.with_separators) + ")\n";
    report += "(considering current findings = " + FormatReal15(sizes.under_findings) + ")\n";
    return report;
}

}  // namespace talora
