// Findings: how they are checked, combined and stored, and what measurements say of the states of a node.
#include "BN/Inference/BnFindings.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <numbers>

#include "BN/Inference/BnUpdating.h"
#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnEdit.h"
#include "BN/Model/BnProbs.h"
#include "BN/Model/Likelihood.h"
#include "Basic/Error.h"

namespace talora {

namespace {

// Whether new findings are checked against the model: the beliefs must be had for that.
bool ChecksModel(const Net& net)
{
    return net.auto_update != 0 || net.env->check_findings;
}

// Current beliefs for a check, or null where there are none to check against.
const float* BeliefsForCheck(Node& node)
{
    if (!ChecksModel(*node.net) || !node.net->compiled || node.kind != NATURE_NODE) return nullptr;
    return GetBeliefs(node);
}

void StoreFinding(Node& node, NodeFinding finding, const char* what)
{
    Change(node, node.finding, std::move(finding), REFINDS, what);
    AutoUpdate(*node.net);
}

bool HoldsLikelihood(const Node& node)
{
    return node.kind == NATURE_NODE || node.kind == DISCONNECTED_NODE;
}

// What kind of finding is being entered, for messages: "can't enter <what> for node 'x', because ...".
struct Entry {
    const char* what;
};
constexpr Entry kNegative = {"a negative finding"};
constexpr Entry kLikelihood = {"a likelihood finding"};
constexpr Entry kCalibration = {"a calibration finding"};
constexpr Entry kGaussian = {"a Gaussian finding"};
constexpr Entry kInterval = {"an interval finding"};

// Multiplies a likelihood into what the node holds, after all checks.
void CombineLikelihood(Node& node, const TableVector<float>& likelihood, const Entry& entry)
{
    if (!HoldsLikelihood(node)) Fail<6030>(entry.what, node.name.c_str(), KindTerm(node.kind));
    const NodeFinding& old = node.finding;
    if (old.state >= 0 && likelihood[old.state] == 0)
        FailWith<3311>(INCONSISTENT_FINDING_CND, entry.what, node.name.c_str(),
                       StateWord(node, old.state).c_str());
    NodeFinding combined = old;
    if (!MultiplyIn(combined, likelihood.data(), int(likelihood.size())))
        FailWith<3312>(INCONSISTENT_FINDING_CND, entry.what, node.name.c_str());
    if (const float* beliefs = BeliefsForCheck(node)) {
        bool believed = false;
        for (size_t state = 0; state < likelihood.size(); ++state)
            believed |= beliefs[state] > 0 && likelihood[state] > 0;
        if (!believed) FailWith<3303>(INCONSISTENT_FINDING_CND, entry.what, node.name.c_str());
    }
    StoreFinding(node, std::move(combined), "enter likelihood finding");
}

// A continuous node must be discretised before it can hold a finding over states.
void NeedStates(const Node& node, const Entry& entry)
{
    if (!HasStates(node)) Fail<6031>(entry.what, node.name.c_str());
}

// ---- Steps of entering a positive finding ----

bool IsNoOp(const NodeFinding& finding, int state, FindingMode mode)
{
    if (mode == FindingMode::STRICT) return state == UNDEF_STATE || state == finding.state;
    return state == finding.state && IsUndef(finding.value) && finding.likelihood.empty();
}

void CheckRange(const Node& node, int state)
{
    const int num_states = NumStates(node);
    if (num_states == 0 && state != UNDEF_STATE) Fail<3316>();
    if (state >= num_states && state != UNDEF_STATE) Fail<3300>(state, num_states - 1);
    if (state < 0 && state != UNDEF_STATE) Fail<3301>(state, UNDEF_STATE);
}

void CheckAgainstOwnFindings(const Node& node, int state)
{
    const NodeFinding& old = node.finding;
    if (old.state >= 0 && old.state != state)
        FailWith<3310>(INCONSISTENT_FINDING_CND, StateWord(node, state).c_str(),
                       StateWord(node, old.state).c_str());
    if (IsRuledOut(old, state)) FailWith<3313>(INCONSISTENT_FINDING_CND, StateWord(node, state).c_str());
}

void CheckAgainstModel(Node& node, int state, FindingMode mode)
{
    if (node.kind != DECISION_NODE && node.links.empty()) {
        TableVector<float> scratch;
        const float* probs = EffectiveProbs(node, scratch);
        if (probs != nullptr && probs[state] == 0)
            FailWith<3315>(INCONSISTENT_FINDING_CND, StateWord(node, state).c_str());
    }
    if (mode == FindingMode::STRICT || node.finding.state < 0) {
        const int calculated = StateFromParents(node);
        if (calculated >= 0 && calculated != state)
            FailWith<3319>(INCONSISTENT_FINDING_CND, StateWord(node, state).c_str(),
                           StateWord(node, calculated).c_str());
    }
    if (mode == FindingMode::REPLACE && !node.finding.IsEmpty()) return;  // its own finding may explain the 0
    const float* beliefs = BeliefsForCheck(node);
    if (beliefs != nullptr && beliefs[state] == 0)
        FailWith<3302>(INCONSISTENT_FINDING_CND, StateWord(node, state).c_str());
}

// ---- Likelihoods of measurements ----

bool IsOrdinary(double value)
{
    return std::abs(value) < InfinityDbl() && !IsUndef(value);
}

// Lower and upper end of each state of a discretised node.  Ends that are infinite are cut to the width of
// the widest bounded interval (1 if there is none), but not before from and to, which a measurement concerns.
struct Interval {
    double low, high;
};
std::vector<Interval> BoundedIntervals(const Node& node, double from, double to)
{
    const std::vector<double>& levels = node.states.levels;
    double widest = 0;
    for (size_t i = 0; i + 1 < levels.size(); ++i)
        if (std::abs(levels[i]) != InfinityDbl() && std::abs(levels[i + 1]) != InfinityDbl())
            widest = std::max(widest, std::abs(levels[i + 1] - levels[i]));
    if (widest == 0) widest = 1;
    std::vector<Interval> intervals;
    for (size_t i = 0; i + 1 < levels.size(); ++i) {
        Interval interval = {std::min(levels[i], levels[i + 1]), std::max(levels[i], levels[i + 1])};
        const bool open_below = interval.low == -InfinityDbl(), open_above = interval.high == InfinityDbl();
        if (open_below && open_above)
            interval = {-widest / 2, widest / 2};
        else if (open_below)
            interval.low = interval.high - widest;
        else if (open_above)
            interval.high = interval.low + widest;
        if (open_below && IsOrdinary(from)) interval.low = std::min(interval.low, from);
        if (open_above && IsOrdinary(to)) interval.high = std::max(interval.high, to);
        intervals.push_back(interval);
    }
    return intervals;
}

constexpr double kLogRootTwoPi = 0.91893853320467274178;

// exp(x^2 / 2) times the probability that a standard normal variable is above x, for x not below 0.
double ScaledUpperTail(double x)
{
    if (x < 25) return 0.5 * std::erfc(x / std::numbers::sqrt2) * std::exp(0.5 * x * x);
    // The asymptotic series; from here on its error is below 1e-10.
    const double r = 1 / (x * x);
    return (1 - r * (1 - r * (3 - r * (15 - r * 105)))) / x * std::exp(-kLogRootTwoPi);
}

// A normal distribution.  Densities are relative to that at a reference, by differences of the places, which
// are exact where those of squares are not.
struct Normal {
    double mean, std_dev;

    double Distance(double at) const { return std::abs(at - mean) / std_dev; }
    double LogRatio(double at, double reference) const
    {
        if (at == reference) return 0;
        return -0.5 * ((at - reference) / std_dev) * ((at - mean + (reference - mean)) / std_dev);
    }
    double Nearest(const Interval& interval) const { return std::clamp(mean, interval.low, interval.high); }
    // Log of the mean density over an interval, against the density at the reference.
    double LogMean(const Interval& interval, double reference) const;
};

double Normal::LogMean(const Interval& interval, double reference) const
{
    const double width = (interval.high - interval.low) / std_dev;
    const double middle = interval.low + 0.5 * (interval.high - interval.low);
    const double distance = Distance(middle);
    // 1. A narrow interval: the density in its middle, with the second term of its series.
    if (!(width * std::max(1.0, distance) >= 1e-3)) {
        const double rise = distance * width;
        return LogRatio(middle, reference) - kLogRootTwoPi + std::log1p((rise * rise - width * width) / 24);
    }
    // 2. One that holds the mean: both sides of it.
    if (interval.low < mean && mean < interval.high) {
        const auto side = [&](double end) { return std::erf(Distance(end) / std::numbers::sqrt2); };
        return LogRatio(mean, reference) + std::log(0.5 * (side(interval.low) + side(interval.high)) / width);
    }
    // 3. Otherwise the difference of two tails, the nearer one taken out.
    const bool is_above = mean <= interval.low;
    const double near = is_above ? interval.low : interval.high;
    const double far = is_above ? interval.high : interval.low;
    const double tail = ScaledUpperTail(Distance(near));
    const double ratio = std::exp(LogRatio(far, near)) * ScaledUpperTail(Distance(far)) / tail;
    return LogRatio(near, reference) + std::log(tail) + std::log1p(-ratio) - std::log(width);
}

void NeedLevels(const Node& node, const Entry& entry)
{
    if (node.states.levels.empty()) Fail<6032>(entry.what, node.name.c_str());
}

// One weight per state, scaled so that the largest is 1.
TableVector<float> ScaledLikelihood(const Node& node, const std::vector<double>& weights, const Entry& entry)
{
    const double largest = weights.empty() ? 0 : *std::max_element(weights.begin(), weights.end());
    if (!(largest > 0)) Fail<6033>(entry.what, node.name.c_str());
    TableVector<float> likelihood;
    for (double weight : weights) likelihood.push_back(float(weight / largest));
    return likelihood;
}

// The value that a function gives for the parents' states as they are known; undefined if one is not.
double ValueFromParents(const Node& node)
{
    if (node.tables.func_reals.empty()) return UndefDbl();
    std::vector<int> states;
    for (const Link& link : node.links) {
        const Node& parent = *link.parent;
        const int state = parent.kind == CONSTANT_NODE ? ConstantState(parent)
                          : parent.finding.state >= 0  ? parent.finding.state
                                                       : StateFromParents(parent);
        if (state < 0 || IsDelayed(link)) return UndefDbl();
        states.push_back(state);
    }
    return node.tables.func_reals[size_t(RowOf(node, states.data()))];
}

// A new value against the value that stands, and against that of a function.
void CheckValueAgainstOwn(const Node& node, double value)
{
    const NodeFinding& old = node.finding;
    if (!IsUndef(old.value) && old.value != value)
        FailWith<3306>(INCONSISTENT_FINDING_CND, value, node.name.c_str(), old.value);
    if (!node.links.empty() && !ChecksModel(*node.net)) return;
    const double calculated = ValueFromParents(node);
    if (!IsUndef(calculated) && calculated != value)
        FailWith<3307>(INCONSISTENT_FINDING_CND, value, node.name.c_str(), calculated);
}

void CheckValueState(Node& node, double value, int state)
{
    const NodeFinding& old = node.finding;
    if ((old.state >= 0 && old.state != state) || IsRuledOut(old, state))
        FailWith<3320>(INCONSISTENT_FINDING_CND, value, node.name.c_str());
    const float* beliefs = BeliefsForCheck(node);
    if (beliefs != nullptr && beliefs[state] == 0)
        FailWith<3381>(INCONSISTENT_FINDING_CND, value, node.name.c_str());
}

}  // namespace

void EnterFinding(Node& node, int state, FindingMode mode)
{
    if (IsNoOp(node.finding, state, mode)) return;
    CheckRange(node, state);
    if (state == UNDEF_STATE) {
        NodeFinding finding;
        StoreFinding(node, std::move(finding), "retract finding");
        return;
    }
    if (node.kind == UTILITY_NODE || IsDocumentation(node))
        Fail<6034>(KindTerm(node.kind), node.name.c_str());
    if (mode == FindingMode::STRICT) CheckAgainstOwnFindings(node, state);
    if (ChecksModel(*node.net)) CheckAgainstModel(node, state, mode);
    NodeFinding finding;
    if (mode == FindingMode::STRICT) finding = node.finding;
    finding.state = state;
    if (node.net->undo->NeedsText())
        DescribeStep(*node.net, "enter finding %s = %s", node.name.c_str(), StateWord(node, state).c_str());
    StoreFinding(node, std::move(finding), "enter finding");
}

void EnterFindingNot(Node& node, int state)
{
    const int num_states = NumStates(node);
    if (num_states == 1) Fail<6035>(node.name.c_str());
    TableVector<float> likelihood(num_states, 1.0f);
    likelihood[state] = 0;
    if (IsRuledOut(node.finding, state)) return;
    CombineLikelihood(node, likelihood, kNegative);
}

void EnterLikelihood(Node& node, const float* likelihood)
{
    NeedStates(node, kLikelihood);
    TableVector<float> weights(likelihood, likelihood + NumStates(node));
    bool possible = false;
    for (size_t state = 0; state < weights.size(); ++state) {
        if (!(weights[state] >= 0) || weights[state] >= InfinityFlt())
            Fail<6036>(node.name.c_str(), StateWord(node, int(state)).c_str(), weights[state]);
        possible |= weights[state] > 0;
    }
    if (!possible) FailWith<3382>(INCONSISTENT_FINDING_CND, node.name.c_str());
    CombineLikelihood(node, weights, kLikelihood);
}

void EnterValue(Node& node, double value)
{
    if (!IsOrdinary(value)) Fail<6037>(value, node.name.c_str());
    if (node.kind == UTILITY_NODE || IsDocumentation(node))
        Fail<6034>(KindTerm(node.kind), node.name.c_str());
    NodeFinding finding = node.finding;
    if (value == finding.value) return;
    CheckValueAgainstOwn(node, value);
    if (HasStates(node)) {
        if (node.states.levels.empty()) Fail<6038>(value, node.name.c_str());
        const int state = StateOfValue(node, value);
        if (state < 0) Fail<6039>(value, node.name.c_str());
        CheckValueState(node, value, state);
        finding.state = state;
    } else if (node.states.levels.size() == 2 &&
               (value < std::min(node.states.levels[0], node.states.levels[1]) ||
                value > std::max(node.states.levels[0], node.states.levels[1]))) {
        Fail<6039>(value, node.name.c_str());
    }
    finding.value = value;
    DescribeStep(*node.net, "enter finding %s = %g", node.name.c_str(), value);
    StoreFinding(node, std::move(finding), "enter value");
}

// The likelihood that turns the present beliefs b into the wanted ones w is w / b (Jeffrey's rule,
// carried out as virtual evidence; Pearl 1988, section 2.3.3).
void EnterCalibration(Node& node, const float* wanted)
{
    NeedStates(node, kCalibration);
    const int num_states = NumStates(node);
    const uint32_t problems = CheckProbs(wanted, num_states);
    if (problems != 0) Fail<6040>(node.name.c_str(), DescribeProbs(problems, false).c_str());
    if (!HoldsLikelihood(node)) Fail<6030>(kCalibration.what, node.name.c_str(), KindTerm(node.kind));
    const float* beliefs = GetBeliefs(node);
    std::vector<double> weights(num_states);
    for (int state = 0; state < num_states; ++state) {
        if (beliefs[state] == 0 && wanted[state] > 0)
            FailWith<3303>(INCONSISTENT_FINDING_CND, kCalibration.what, node.name.c_str());
        weights[state] = beliefs[state] > 0 ? double(wanted[state]) / beliefs[state] : 0;
    }
    CombineLikelihood(node, ScaledLikelihood(node, weights, kCalibration), kCalibration);
}

void EnterGaussian(Node& node, double mean, double std_dev)
{
    NeedStates(node, kGaussian);
    NeedLevels(node, kGaussian);
    if (!IsOrdinary(mean) || !IsOrdinary(std_dev) || std_dev <= 0)
        Fail<6041>(node.name.c_str(), mean, std_dev);
    const Normal normal{mean, std_dev};
    std::vector<Interval> intervals;
    if (IsDiscrete(node))
        for (const double level : node.states.levels) intervals.push_back({level, level});
    else
        intervals = BoundedIntervals(node, mean, mean);
    // Against the state that lies nearest none is lost however far away the measurement is.
    double reference = normal.Nearest(intervals.front());
    for (const Interval& interval : intervals)
        if (normal.Distance(normal.Nearest(interval)) < normal.Distance(reference))
            reference = normal.Nearest(interval);
    std::vector<double> weights;
    for (const Interval& interval : intervals) weights.push_back(normal.LogMean(interval, reference));
    const double largest = *std::max_element(weights.begin(), weights.end());
    for (double& weight : weights) weight = std::exp(weight - largest);
    CombineLikelihood(node, ScaledLikelihood(node, weights, kGaussian), kGaussian);
}

void EnterInterval(Node& node, double low, double high)
{
    NeedStates(node, kInterval);
    NeedLevels(node, kInterval);
    if (IsUndef(low) || IsUndef(high) || !(low <= high)) Fail<6042>(node.name.c_str(), low, high);
    std::vector<double> weights;
    if (low == high && IsOrdinary(low)) {
        // A value known exactly: the state that it would have as a value.
        const int holder = StateOfValue(node, low);
        for (int state = 0; state < NumStates(node); ++state) weights.push_back(state == holder);
    } else if (IsDiscrete(node)) {
        for (double level : node.states.levels) weights.push_back(low <= level && level <= high ? 1 : 0);
    } else {
        for (const Interval& interval : BoundedIntervals(node, low, high)) {
            const double width = interval.high - interval.low;
            const double overlap = std::min(high, interval.high) - std::max(low, interval.low);
            weights.push_back(width > 0 && overlap > 0 ? overlap / width : 0);
        }
    }
    CombineLikelihood(node, ScaledLikelihood(node, weights, kInterval), kInterval);
}

void RetractFindings(Node& node)
{
    if (!node.finding.IsEmpty()) StoreFinding(node, NodeFinding(), "retract findings");
}

void RetractFindings(Net& net)
{
    DescribeStep(net, "retract all findings");
    for (Node* node : net.nodes.nodes)
        if (!node->finding.IsEmpty())
            Change(*node, node->finding, NodeFinding(), REFINDS, "retract findings");
    AutoUpdate(net);
}

void CombinedLikelihood(const Node& node, float* likelihood)
{
    const NodeFinding& finding = node.finding;
    for (int state = 0; state < NumStates(node); ++state) {
        const float weight = finding.likelihood.empty() ? 1.0f : finding.likelihood[state];
        likelihood[state] = finding.state >= 0 && finding.state != state ? 0.0f : weight;
    }
}

// The parents' states are findings, or forced in turn; nodes are evaluated deepest first from an explicit
// stack, so that long chains of deterministic nodes do no harm.
int StateFromParents(const Node& node)
{
    if (node.links.empty()) return -1;
    std::unordered_map<const Node*, int> known;
    std::vector<const Node*> stack = {&node};
    while (!stack.empty()) {
        const Node& top = *stack.back();
        const bool forced = &top == &node || top.finding.state < 0;
        if (!forced || known.count(&top)) {
            known.try_emplace(&top, top.finding.state);
            stack.pop_back();
            continue;
        }
        // What a delayed link brings comes from another time.
        if (top.links.empty() || std::any_of(top.links.begin(), top.links.end(), IsDelayed) ||
            !IsDeterministic(top)) {
            known[&top] = top.kind == CONSTANT_NODE ? ConstantState(top) : -1;
            stack.pop_back();
            continue;
        }
        const size_t waiting = stack.size();
        std::vector<int> states;
        for (const Link& link : top.links) {
            const auto found = known.find(link.parent);
            if (found == known.end())
                stack.push_back(link.parent);
            else
                states.push_back(found->second);
        }
        if (stack.size() > waiting) continue;
        int forced_state = -1;
        if (std::find(states.begin(), states.end(), -1) == states.end()) {
            TableVector<float> scratch;
            const float* row = EffectiveProbs(top, scratch) + RowOf(top, states.data()) * NumStates(top);
            const float* certain = std::find(row, row + NumStates(top), 1.0f);
            if (certain != row + NumStates(top)) forced_state = int(certain - row);
        }
        known[&top] = forced_state;
        stack.pop_back();
    }
    return known[&node];
}

}  // namespace talora
