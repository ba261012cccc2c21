// Forward sampling: nodes drawn parents first, from tables and equations; cases against the findings
// rejected.
#include "BN/Sampling/SampleForward.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "BN/Equations/EqnToTable.h"
#include "BN/Inference/BnUpdating.h"
#include "BN/Model/BnProbs.h"
#include "BN/Propagation/PotTable0.h"
#include "Basic/Error.h"
#include "Basic/Memory.h"
#include "Basic/Text.h"
#include "Misc/Equations/EqnBuiltin.h"
#include "Misc/Equations/EqnCheck.h"
#include "Misc/Equations/EqnCompile.h"

namespace talora {

namespace {

// Larger tables are not prepared: few of their rows are ever needed.
constexpr double kMostPrepared = 4000000;
constexpr int kLongestLinearSearch = 16;

enum class DrawKind : uint8_t { FIXED, UNIFORM, ROW, REAL_TABLE, EQUATION };

// What drawing from a node's equation needs.
struct EquationParts {
    Equation eqn;
    EqnProgram program;
    EqnScratch scratch;
    EqnReason failure;
    std::vector<double> values, stack, arguments;
    std::vector<int> parents;  // places of the variables from 1 on

    explicit EquationParts(Equation&& parsed)
        : eqn(std::move(parsed)), program(CompileEquation(eqn)), scratch(eqn)
    {
        values.resize(eqn.variables.size());
        stack.resize(program.stack_size);
        arguments.resize(size_t(eqn.Root().num_children) + 1);
    }
};

struct ParentPlace {
    int place;
    int64_t stride;  // in rows
};

// One node in the order of drawing.
struct Drawn {
    const Node* node = nullptr;
    DrawKind kind = DrawKind::ROW;
    bool needs_value = false;  // a child's equation wants a number
    int num_states = 0;
    int required = -1;                   // the state entered
    double required_value = UndefDbl();  // of a node without states
    const float* likelihood = nullptr;
    float greatest = 1;  // entry of the likelihood
    std::vector<ParentPlace> parents;
    const float* probs = nullptr;
    TableVector<float> made;         // probs, where the node's own table has another form
    TableVector<double> cumulative;  // of every row; all 0 for a row that cannot be
    std::unique_ptr<EquationParts> equation;
};

bool IsLikelihoodUseful(const Node& node)
{
    const NodeFinding& finding = node.finding;
    return finding.state < 0 && !finding.likelihood.empty();
}

// The cumulative sums of a row, the last possible state and those behind it at exactly 1.
void SumRow(const float* row, int num_states, float* probs, double* cumulative)
{
    ReadRow(row, num_states, probs);
    double sum = 0;
    int last = -1;
    for (int s = 0; s < num_states; ++s) {
        if (probs[s] > 0) last = s;
        cumulative[s] = sum += std::max(0.0f, probs[s]);
    }
    if (last < 0) return;
    for (int s = 0; s < last; ++s) cumulative[s] /= sum;
    std::fill(cumulative + last, cumulative + num_states, 1.0);
}

// The first state whose sum is above u; u is below 1, which is the last sum.
int Search(const double* cumulative, int num_states, double u)
{
    if (num_states > kLongestLinearSearch)
        return static_cast<int>(std::upper_bound(cumulative, cumulative + num_states, u) - cumulative);
    int state = 0;
    while (u >= cumulative[state]) ++state;
    return state;
}

// Whether a continuous node's values come from its equation.
bool DrawsFromEquation(const Node& node)
{
    return !IsDiscrete(node) && !node.equation.empty() && node.kind != DECISION_NODE &&
           node.kind != CONSTANT_NODE;
}

}  // namespace

struct ForwardSampler::Engine {
    std::vector<Drawn> order;
    std::vector<int> states;  // by place in the order
    std::vector<double> values;
    std::vector<int> listed;  // place of each listed node
    std::vector<int> place;   // by node index, -1 for nodes that are not drawn
    std::vector<float> row_probs;
    std::vector<double> row_sums;

    void FindOrder(const Net& net, std::span<Node* const> nodes);
    void Prepare(Drawn& drawn, bool prepare_tables);
    void PrepareEquation(Drawn& drawn);
    void PrepareTable(Drawn& drawn, bool prepare_tables);

    bool DrawNode(size_t at, RandomState& random);
    bool DrawState(size_t at, RandomState& random);
    double EquationValue(Drawn& drawn, RandomState& random);
    double InverseCumulative(Drawn& drawn, double u);
    void StoreValue(size_t at, double value);
    std::string ParentText(const Drawn& drawn) const;
    int64_t RowOf(const Drawn& drawn) const;
    bool Agrees(size_t at, RandomState& random) const;
};

// ---- Preparation ----

namespace {

// Marks a set of nodes and their ancestors.
void MarkAncestors(std::vector<const Node*> open, std::vector<char>& marked)
{
    for (const Node* node : open) marked[node->index] = 1;
    while (!open.empty()) {
        const Node* node = open.back();
        open.pop_back();
        for (const Link& link : node->links) {
            if (marked[link.parent->index]) continue;
            marked[link.parent->index] = 1;
            open.push_back(link.parent);
        }
    }
}

// Drawing needs every parent before its child: what delays reach back to is not there.
void CheckOrder(const std::vector<Drawn>& order, const std::vector<int>& place)
{
    const Node* in_cycle = nullptr;
    for (size_t i = 0; i < order.size(); ++i)
        for (const Link& link : order[i].node->links) {
            if (IsDelayed(link)) Fail<6663>(order[i].node->name.c_str());
            if (place[link.parent->index] >= static_cast<int>(i)) in_cycle = order[i].node;
        }
    if (in_cycle) Fail<6662>();
}

}  // namespace

// Nodes that findings depend on come first, so that a case is rejected before the others are drawn.
void ForwardSampler::Engine::FindOrder(const Net& net, std::span<Node* const> nodes)
{
    const size_t size = net.nodes.nodes.size();
    std::vector<char> before_findings(size), needed(size);
    std::vector<const Node*> found;
    for (const Node* node : net.nodes.nodes)
        if (!node->finding.IsEmpty() && !IsDocumentation(*node) && node->kind != DISCONNECTED_NODE)
            found.push_back(node);
    MarkAncestors(found, before_findings);
    MarkAncestors({nodes.begin(), nodes.end()}, needed);
    place.assign(size, -1);
    const std::vector<Node*> all = TopologicalOrder(net);
    for (const bool first : {true, false})
        for (const Node* node : all) {
            if (first ? !before_findings[node->index] : before_findings[node->index] || !needed[node->index])
                continue;
            place[node->index] = static_cast<int>(order.size());
            order.emplace_back().node = node;
        }
    CheckOrder(order, place);
}

void ForwardSampler::Engine::PrepareEquation(Drawn& drawn)
{
    const Node& node = *drawn.node;
    auto parts = std::make_unique<EquationParts>(NodeEquation(node));
    if (parts->eqn.probabilistic && !IsIntegrable(parts->eqn)) {
        // There is only a density to look at: the table made from it has to do.
        if (!HasStates(node)) Fail<6665>(node.name.c_str());
        return;
    }
    for (size_t i = 1; i < parts->eqn.variables.size(); ++i) {
        const Node& parent = *node.links[parts->eqn.sources[i] - 1].parent;
        const int at = place[parent.index];
        parts->parents.push_back(at);
        if (!IsDiscrete(parent)) order[at].needs_value = true;
    }
    drawn.kind = DrawKind::EQUATION;
    drawn.equation = std::move(parts);
}

// For many cases the rows of a table are summed up once, unless it is too large.
void ForwardSampler::Engine::PrepareTable(Drawn& drawn, bool prepare_tables)
{
    const Node& node = *drawn.node;
    if (!node.tables.func_reals.empty() && node.tables.probs.empty()) {
        drawn.kind = DrawKind::REAL_TABLE;
        return;
    }
    drawn.probs = EffectiveProbs(node, drawn.made);
    if (drawn.probs == nullptr || drawn.num_states == 0) Fail<6661>(node.name.c_str());
    if (!prepare_tables || TableEntries(node) > kMostPrepared) return;
    drawn.cumulative.resize(static_cast<size_t>(TableEntries(node)));
    for (size_t at = 0; at < drawn.cumulative.size(); at += drawn.num_states)
        SumRow(drawn.probs + at, drawn.num_states, row_probs.data(), drawn.cumulative.data() + at);
}

// 1. Nodes that are not drawn, or have no table. 2. What the findings require. 3. Parents with their strides.
// 4. Equation or table.
void ForwardSampler::Engine::Prepare(Drawn& drawn, bool prepare_tables)
{
    const Node& node = *drawn.node;
    drawn.num_states = NumStates(node);
    row_probs.resize(std::max(row_probs.size(), static_cast<size_t>(drawn.num_states)));
    row_sums.resize(row_probs.size());
    if (node.kind == CONSTANT_NODE || (node.kind == DECISION_NODE && node.finding.state >= 0)) {
        drawn.kind = DrawKind::FIXED;
        return;
    }
    if (node.kind == DECISION_NODE || node.kind == DISCONNECTED_NODE) {
        drawn.kind = DrawKind::UNIFORM;
        return;
    }
    drawn.required = node.finding.state;
    if (!HasStates(node)) drawn.required_value = node.finding.value;
    if (IsLikelihoodUseful(node)) {
        drawn.likelihood = node.finding.likelihood.data();
        drawn.greatest = *std::max_element(drawn.likelihood, drawn.likelihood + drawn.num_states);
    }
    int64_t stride = 1;
    for (size_t i = node.links.size(); i-- > 0;) {
        const Node& parent = *node.links[i].parent;
        drawn.parents.push_back({place[parent.index], stride});
        stride *= std::max(1, NumStates(parent));
    }
    if (DrawsFromEquation(node)) PrepareEquation(drawn);
    if (drawn.kind != DrawKind::EQUATION) PrepareTable(drawn, prepare_tables);
}

// ---- Drawing ----

int64_t ForwardSampler::Engine::RowOf(const Drawn& drawn) const
{
    int64_t row = 0;
    for (const ParentPlace& parent : drawn.parents) row += parent.stride * states[parent.place];
    return row;
}

// A row that cannot be draws nothing: the case is as impossible as one that contradicts a finding.
bool ForwardSampler::Engine::DrawState(size_t at, RandomState& random)
{
    Drawn& drawn = order[at];
    const int64_t first = RowOf(drawn) * drawn.num_states;
    const double* sums = row_sums.data();
    if (drawn.cumulative.empty())
        SumRow(drawn.probs + first, drawn.num_states, row_probs.data(), row_sums.data());
    else
        sums = drawn.cumulative.data() + first;
    if (sums[drawn.num_states - 1] == 0) return false;
    states[at] = Search(sums, drawn.num_states, NextUniform(random));
    if (drawn.needs_value) values[at] = DrawInInterval(*drawn.node, states[at], random);
    return true;
}

std::string ForwardSampler::Engine::ParentText(const Drawn& drawn) const
{
    std::string text;
    for (const Link& link : drawn.node->links) {
        const int at = place[link.parent->index];
        text += (text.empty() ? "" : ", ") + link.parent->name + "=";
        text += IsUndef(values[at]) ? StateWord(*link.parent, states[at]) : FormatReal15(values[at]);
    }
    return text.empty() ? "none" : text;
}

// A real value must fall in one of the states, if there are any.
void ForwardSampler::Engine::StoreValue(size_t at, double value)
{
    const Drawn& drawn = order[at];
    values[at] = value;
    if (drawn.num_states == 0) return;
    states[at] = std::isfinite(value) ? StateOfValue(*drawn.node, value) : UNDEF_STATE;
    if (states[at] < 0) Fail<6664>(drawn.node->name.c_str(), value, ParentText(drawn).c_str());
}

// Where the cumulative function of the distribution reaches u: brackets by doubling, then bisects until
// neighbouring numbers are left or the bracket is as fine as single steps of the function.
double ForwardSampler::Engine::InverseCumulative(Drawn& drawn, double u)
{
    EquationParts& parts = *drawn.equation;
    const Expr& call = parts.eqn.Root();
    EqnReason reason;
    const auto below = [&](double x) {
        const double prob = call.function->interval(parts.arguments.data(), call.num_children,
                                                    -std::numeric_limits<double>::infinity(), x, reason);
        if (std::isnan(prob))
            Fail<6666>(drawn.node->name.c_str(), reason.IsSet() ? reason.text : "it is undefined",
                       ParentText(drawn).c_str());
        return prob;
    };
    double low = -1, high = 1;
    while (low > -1e300 && below(low) > u) low *= 4;
    while (high < 1e300 && below(high) <= u) high *= 4;
    while (true) {
        const double middle = low + (high - low) / 2;
        if (!(middle > low && middle < high)) break;
        (below(middle) <= u ? low : high) = middle;
    }
    return low;  // intervals are open above, so `low` is where a step of the function stands
}

// A deterministic equation is evaluated; of a distribution the parameters are, and its cumulative function is
// inverted at a uniform number.
double ForwardSampler::Engine::EquationValue(Drawn& drawn, RandomState& random)
{
    EquationParts& parts = *drawn.equation;
    for (size_t i = 1; i < parts.values.size(); ++i) {
        const int at = parts.parents[i - 1];
        const double value = values[at];
        parts.values[i] = IsDiscrete(*order[at].node) ? states[at] : IsUndef(value) ? kUndefinedEqn : value;
    }
    double value = kUndefinedEqn;
    if (!parts.eqn.probabilistic) {
        value = Run(parts.program, parts.values.data(), parts.stack.data(), parts.failure);
    } else if (EvaluateParameters(parts.eqn, parts.values.data(), parts.arguments.data(), parts.scratch)) {
        return InverseCumulative(drawn, NextUniform(random));
    } else {
        parts.failure = parts.scratch.failure;
    }
    if (std::isnan(value))
        Fail<6666>(drawn.node->name.c_str(), parts.failure.IsSet() ? parts.failure.text : "it is undefined",
                   ParentText(drawn).c_str());
    return value;
}

bool ForwardSampler::Engine::DrawNode(size_t at, RandomState& random)
{
    Drawn& drawn = order[at];
    switch (drawn.kind) {
        case DrawKind::ROW:
            return DrawState(at, random);
        case DrawKind::FIXED:
            return true;  // stored once
        case DrawKind::UNIFORM:
            if (drawn.num_states > 0) states[at] = static_cast<int>(NextUniform(random) * drawn.num_states);
            return true;
        case DrawKind::REAL_TABLE:
            if (drawn.node->tables.func_reals[RowOf(drawn)] == ImpossibleDbl()) return false;
            StoreValue(at, drawn.node->tables.func_reals[RowOf(drawn)]);
            return true;
        case DrawKind::EQUATION:
            StoreValue(at, EquationValue(drawn, random));
            return true;
    }
    return true;
}

// A likelihood accepts a state with its weight over the greatest one.
bool ForwardSampler::Engine::Agrees(size_t at, RandomState& random) const
{
    const Drawn& drawn = order[at];
    if (drawn.required >= 0 && states[at] != drawn.required) return false;
    if (!IsUndef(drawn.required_value) && values[at] != drawn.required_value) return false;
    return drawn.likelihood == nullptr || NextUniform(random) * drawn.greatest < drawn.likelihood[states[at]];
}

ForwardSampler::ForwardSampler(std::span<Node* const> nodes, bool prepare_tables)
    : engine_(std::make_unique<Engine>())
{
    Engine& e = *engine_;
    if (nodes.empty()) return;
    e.FindOrder(*nodes[0]->net, nodes);
    e.states.assign(e.order.size(), UNDEF_STATE);
    e.values.assign(e.order.size(), UndefDbl());
    for (Drawn& drawn : e.order) e.Prepare(drawn, prepare_tables);
    for (size_t at = 0; at < e.order.size(); ++at) {
        const Drawn& drawn = e.order[at];
        if (drawn.kind != DrawKind::FIXED) continue;
        e.states[at] = ConstantState(*drawn.node) < 0 ? UNDEF_STATE : ConstantState(*drawn.node);
        e.values[at] = drawn.node->finding.value;
        if (e.states[at] < 0 && drawn.num_states > 0) Fail<6661>(drawn.node->name.c_str());
    }
    for (const Node* node : nodes) e.listed.push_back(e.place[node->index]);
}

ForwardSampler::~ForwardSampler() = default;

// A try ends at the first node that contradicts a finding.
bool ForwardSampler::Try(RandomState& random)
{
    Engine& e = *engine_;
    for (size_t at = 0; at < e.order.size(); ++at)
        if (!e.DrawNode(at, random) || !e.Agrees(at, random)) return false;
    return true;
}

int ForwardSampler::State(size_t i) const
{
    return engine_->states[engine_->listed[i]];
}

double ForwardSampler::Value(size_t i) const
{
    return engine_->values[engine_->listed[i]];
}

}  // namespace talora
