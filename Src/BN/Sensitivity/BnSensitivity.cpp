// Sensitivity to findings: P (t | s) for every state of the query node, and the measures computed from it.
#include "BN/Sensitivity/BnSensitivity.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "BN/Inference/BnCompile.h"
#include "BN/Inference/BnUpdating.h"
#include "BN/Model/BnBasicOps1.h"
#include "Basic/Error.h"
#include "Basic/Progress.h"

namespace talora {

namespace {

constexpr double kLog2E = 1.4426950408889634;
constexpr int kAllFlags =
    BELIEF_SENSV | ENTROPY_SENSV | REAL_SENSV | NODEVAR_SENSV | RATIO_SENSV | VARIANCE_SENSV | RANGE_SENSV;

HandlePool<sensv_bn, SENSV_TYPE>& Measurers()
{
    static auto* pool = new HandlePool<sensv_bn, SENSV_TYPE>;
    return *pool;
}

double Log2(double x)
{
    return std::log(x) * kLog2E;
}

bool Asks(const Sensv& sensv, int flag)
{
    return (sensv.what_find & flag) != 0;
}

const char* QueryName(const Sensv& sensv)
{
    return sensv.query ? sensv.query->name.c_str() : "";
}

// ---- Computing P (t | s) ----

// Whether findings at the node can change beliefs in another node.
bool IsOpen(const Node* node)
{
    return node != nullptr && IsLive(node, NODE_TYPE) && IsInTree(*node) && HasStates(*node) &&
           node->finding.state < 0;
}

// Scales to a sum of 1, in doubles: float beliefs miss it by some 1e-7, which would drown small measures.
void Normalize(std::vector<double>& probs)
{
    const double sum = std::accumulate(probs.begin(), probs.end(), 0.0);
    if (sum <= 0) return;
    for (double& prob : probs) prob /= sum;
}

std::vector<double> CurrentBeliefs(Node& query)
{
    const float* beliefs = GetBeliefs(query);
    if (beliefs == nullptr) Fail<6784>(query.name.c_str());
    std::vector<double> copy(beliefs, beliefs + NumStates(query));
    Normalize(copy);
    return copy;
}

using GivenTables = std::vector<TableVector<float>>;

// The room for all tables is checked at once, before the first propagation.
GivenTables MakeTables(const Sensv& sensv)
{
    const int num_query = NumStates(*sensv.query);
    double bytes = 0;
    for (const Node* node : sensv.varying.nodes)
        if (IsOpen(node) && node != sensv.query)
            bytes += double(NumStates(*node)) * num_query * sizeof(float);
    CheckMemory(bytes, "to find the sensitivity of >-node '%s' (see >-LimitMemoryUsage_vx)",
                QueryName(sensv));
    GivenTables given(sensv.varying.nodes.size());
    for (size_t i = 0; i < given.size(); ++i) {
        const Node* node = sensv.varying.nodes[i];
        if (IsOpen(node) && node != sensv.query) given[i].resize(size_t(NumStates(*node)) * num_query);
    }
    return given;
}

[[noreturn]] void FailHalted(const Sensv& sensv)
{
    FailWith<6793>(ABORTED_CND, QueryName(sensv));
}

// The beliefs of all varying nodes under the state that is being tried.
void ReadBeliefs(const Sensv& sensv, int state, GivenTables& given)
{
    Progress progress("sensv_infers");
    for (size_t i = 0; i < given.size(); ++i) {
        if (i % 256 == 255 && IsHalted()) FailHalted(sensv);
        if (given[i].empty()) continue;
        const Node& node = *sensv.varying.nodes[i];
        BeliefOf(node, given[i].data() + size_t(state) * NumStates(node));
    }
    if (!progress.Step(1)) FailHalted(sensv);
}

// A progress handler may call the interface.
void CheckUnchanged(const Sensv& sensv, uint64_t count)
{
    const Net& net = *sensv.net;
    if (net.update_count == count && net.compiled && net.compiled->propagation) return;
    Fail<6794>(net.name.c_str(), QueryName(sensv));
}

// Tries each state of the query node that is possible; one that turns out not to be gets belief 0.
void TryStates(const Sensv& sensv, std::vector<double>& beliefs, GivenTables& given)
{
    const uint64_t count = sensv.net->update_count;
    Progress progress("sensv_poss_infers");
    for (int state = 0; state < int(beliefs.size()); ++state) {
        if (!progress.Step(double(state) / double(beliefs.size()))) FailHalted(sensv);
        CheckUnchanged(sensv, count);
        if (beliefs[state] == 0) continue;
        if (TryState(*sensv.query, state))
            ReadBeliefs(sensv, state, given);
        else
            beliefs[state] = 0;
        CheckUnchanged(sensv, count);
    }
    Normalize(beliefs);
}

// 1. Nothing counts as computed until all is.
void Recompute(Sensv& sensv)
{
    Net& net = *sensv.net;
    sensv.is_computed = false;
    sensv.entropy = sensv.belief_variance = UndefDbl();
    if (net.most_probable) Fail<6795>(net.name.c_str());
    if (!net.compiled) CompileNet(net);
    // 2. The beliefs as they are now, P (s).
    std::vector<double> beliefs = CurrentBeliefs(*sensv.query);
    const uint64_t count = net.update_count;
    GivenTables given = MakeTables(sensv);
    const bool has_tables =
        std::any_of(given.begin(), given.end(), [](auto& table) { return !table.empty(); });
    // 3. Each state of the query node in turn as a finding gives the row P (t | s) of every varying node;
    // then the beliefs are brought back.
    if (IsOpen(sensv.query) && has_tables) {
        TryStates(sensv, beliefs, given);
        UpdateBeliefs(net);
    } else {
        given.assign(given.size(), {});
    }
    sensv.beliefs = std::move(beliefs);
    sensv.given = std::move(given);
    sensv.computed_at = count;
    sensv.is_computed = true;
}

// ---- The joint distribution of the query node and a varying node ----

struct Joint {
    int num_query = 0, num_varying = 0;
    std::vector<double> query;    // P(s)
    std::vector<double> varying;  // P(t)
    std::vector<double> given;    // P(t | s), one row per s

    double Given(int s, int t) const { return given[size_t(s) * num_varying + t]; }
    double Both(int s, int t) const { return query[s] * Given(s, t); }
    double Posterior(int s, int t) const { return Both(s, t) / varying[t]; }
};

// A finding at the query node itself leaves one state: the identity.
Joint WithItself(const Sensv& sensv)
{
    Joint joint;
    joint.num_query = joint.num_varying = int(sensv.beliefs.size());
    joint.query = joint.varying = sensv.beliefs;
    joint.given.assign(size_t(joint.num_query) * joint.num_query, 0.0);
    for (int s = 0; s < joint.num_query; ++s) joint.given[size_t(s) * joint.num_query + s] = 1;
    return joint;
}

// P(t) is the mean of the P(t | s), rather than what was read, so that the measures of independent nodes are
// 0 but for the rounding of doubles, and none is negative.
Joint WithOther(const Sensv& sensv, const TableVector<float>& given)
{
    Joint joint;
    joint.query = sensv.beliefs;
    joint.num_query = int(joint.query.size());
    joint.num_varying = given.empty() ? 1 : int(given.size()) / joint.num_query;
    joint.varying.assign(joint.num_varying, 0.0);
    for (int s = 0; s < joint.num_query; ++s) {
        std::vector<double> row(joint.num_varying, 0.0);
        if (given.empty())
            row[0] = 1;
        else if (joint.query[s] > 0)
            row.assign(given.begin() + int64_t(s) * joint.num_varying,
                       given.begin() + int64_t(s + 1) * joint.num_varying);
        Normalize(row);
        for (int t = 0; t < joint.num_varying; ++t) joint.varying[t] += joint.query[s] * row[t];
        joint.given.insert(joint.given.end(), row.begin(), row.end());
    }
    return joint;
}

// Brings the results up to date.  False if the node has no states, so that measures are undefined.
bool FindJoint(Sensv& sensv, const Node& varying, Joint& joint)
{
    BringUpToDate(sensv);
    if (&varying == sensv.query) {
        joint = WithItself(sensv);
        return true;
    }
    const auto found = sensv.place.find(&varying);
    if (found == sensv.place.end()) Fail<6787>(varying.name.c_str(), QueryName(sensv));
    if (!HasStates(varying)) return false;
    joint = WithOther(sensv, sensv.given[found->second]);
    return true;
}

// What findings make of a figure whose value is `value (t)` after finding t.
template <class Value>
FindingEffect EffectOn(const Joint& joint, double now, Value&& value)
{
    FindingEffect effect;
    bool is_first = true;
    for (int t = 0; t < joint.num_varying; ++t) {
        if (joint.varying[t] == 0) continue;
        const double change = value(t) - now;
        effect.amount += joint.varying[t] * std::abs(change);
        effect.variance += joint.varying[t] * change * change;
        effect.least = is_first ? change : std::min(effect.least, change);
        effect.greatest = is_first ? change : std::max(effect.greatest, change);
        is_first = false;
    }
    return effect;
}

FindingEffect UndefinedEffect()
{
    return {UndefDbl(), UndefDbl(), UndefDbl(), UndefDbl()};
}

// ---- Real values ----

bool IsInfinite(double value)
{
    return std::abs(value) >= InfinityDbl();
}

// An end of an interval, with the bound in place of an infinite one.
double EndOf(const Sensv& sensv, double level)
{
    if (!IsInfinite(level)) return level;
    const double bound = level < 0 ? sensv.lower_bound : sensv.upper_bound;
    if (IsUndef(bound)) Fail<6785>(QueryName(sensv));
    return bound;
}

// x (s) of each state of the query node.
std::vector<double> RealValues(const Sensv& sensv)
{
    const Node& query = *sensv.query;
    if (!HasRealValues(query)) Fail<6786>(query.name.c_str());
    std::vector<double> values;
    const std::vector<double>& levels = query.states.levels;
    for (int state = 0; state < NumStates(query); ++state)
        values.push_back(IsDiscrete(query)
                             ? levels[state]
                             : EndOf(sensv, levels[state]) / 2 + EndOf(sensv, levels[state + 1]) / 2);
    return values;
}

double MeanOf(const std::vector<double>& probs, const std::vector<double>& values)
{
    return std::inner_product(probs.begin(), probs.end(), values.begin(), 0.0);
}

// The mean after finding t is the sum of x (s) P (s | t).
FindingEffect EffectOnMean(Sensv& sensv, const Node& varying)
{
    Joint joint;
    if (!FindJoint(sensv, varying, joint)) return UndefinedEffect();
    const std::vector<double> values = RealValues(sensv);
    return EffectOn(joint, MeanOf(joint.query, values), [&](int t) {
        double mean = 0;
        for (int s = 0; s < joint.num_query; ++s) mean += values[s] * joint.Posterior(s, t);
        return mean;
    });
}

// Called when a node is deleted; its handle must not be followed again.
void ForgetNode(Sensv& sensv, const Node* node) noexcept
{
    if (sensv.query == node) sensv.query = nullptr;
    if (sensv.place.erase(node) == 0) return;
    for (Node*& varying : sensv.varying.nodes)
        if (varying == node) varying = nullptr;
}

}  // namespace

// ---- The record ----

// The net keeps the measurer in its list, and reports nodes that go.
Sensv* NewSensv(Node& query, const std::vector<Node*>& varying, int what_find)
{
    Net& net = *query.net;
    for (const Node* node : varying)
        if (node->net != &net) Fail<6782>(query.name.c_str(), node->name.c_str());
    if (what_find & ~kAllFlags) Fail<6790>(what_find, what_find & ~kAllFlags);
    Sensv* sensv = Measurers().New(net.header.Lock());
    try {
        sensv->net = &net;
        sensv->query = &query;
        sensv->what_find = what_find;
        sensv->varying.env = net.env;
        sensv->varying.owned = true;
        sensv->varying.nodes = varying;
        for (size_t i = 0; i < varying.size(); ++i) sensv->place.try_emplace(varying[i], int(i));
        Enlist(net, {sensv, [](void* object) noexcept { DeleteSensv(static_cast<Sensv*>(object)); },
                     [](void* object, const Node* node) noexcept {
                         ForgetNode(*static_cast<Sensv*>(object), node);
                     }});
    } catch (...) {
        Measurers().Release(sensv);
        throw;
    }
    sensv->varying.header.SetLock(net.header.Lock());
    sensv->varying.header.SetTag(NODELIST_TYPE);
    return sensv;
}

// Callers may still hold the list of varying nodes, whose header has to stay readable.
void DeleteSensv(Sensv* sensv) noexcept
{
    Withdraw(*sensv->net, sensv);
    sensv->varying.header.SetTag(DELETED_TYPE);
    Measurers().Release(sensv);
    KeepReadable(sensv->varying.header);
}

// Bounds stand for infinite ends, so they lie outside of all finite ones.
void SetRealBounds(Sensv& sensv, double lower, double upper)
{
    BringUpToDate(sensv);
    const std::vector<double>& levels = sensv.query->states.levels;
    for (double level : levels) {
        if (IsInfinite(level)) continue;
        if (!IsUndef(lower) && !(lower < level)) Fail<6791>(QueryName(sensv), lower, level);
        if (!IsUndef(upper) && !(upper > level)) Fail<6792>(QueryName(sensv), upper, level);
    }
    sensv.lower_bound = lower;
    sensv.upper_bound = upper;
}

void BringUpToDate(Sensv& sensv)
{
    if (sensv.query == nullptr || !IsLive(sensv.query, NODE_TYPE)) Fail<6783>();
    if (!sensv.is_computed || sensv.computed_at != sensv.net->update_count) Recompute(sensv);
}

// ---- Measures ----

namespace {

void NeedEntropy(const Sensv& sensv)
{
    if (!Asks(sensv, ENTROPY_SENSV)) Fail<2520>(QueryName(sensv));
}

void NeedBeliefVariance(const Sensv& sensv)
{
    if (!Asks(sensv, NODEVAR_SENSV)) Fail<2521>(QueryName(sensv));
}

}  // namespace

// H (S) = - sum of p log2 p.
double QueryEntropy(Sensv& sensv)
{
    NeedEntropy(sensv);
    BringUpToDate(sensv);
    if (!IsUndef(sensv.entropy)) return sensv.entropy;
    sensv.entropy = 0;
    for (double p : sensv.beliefs)
        if (p > 0) sensv.entropy -= p * Log2(p);
    sensv.entropy = std::max(sensv.entropy, 0.0);
    return sensv.entropy;
}

// The sum over states of p (1 - p)^2.
double QueryBeliefVariance(Sensv& sensv)
{
    NeedBeliefVariance(sensv);
    BringUpToDate(sensv);
    if (!IsUndef(sensv.belief_variance)) return sensv.belief_variance;
    sensv.belief_variance = 0;
    for (double p : sensv.beliefs) sensv.belief_variance += p * (1 - p) * (1 - p);
    return sensv.belief_variance;
}

// I (S; T) = sum of P (s, t) log2 (P (t | s) / P (t)) (Shannon 1948).
double MutualInfo(Sensv& sensv, const Node& varying)
{
    NeedEntropy(sensv);
    Joint joint;
    if (!FindJoint(sensv, varying, joint)) return UndefDbl();
    if (&varying == sensv.query) return QueryEntropy(sensv);
    double info = 0;
    for (int s = 0; s < joint.num_query; ++s)
        for (int t = 0; t < joint.num_varying; ++t)
            if (joint.Both(s, t) > 0) info += joint.Both(s, t) * Log2(joint.Given(s, t) / joint.varying[t]);
    return std::max(info, 0.0);
}

// The sum of P (s, t) (P (s | t) - P (s))^2.
double BeliefVarianceReduction(Sensv& sensv, const Node& varying)
{
    NeedBeliefVariance(sensv);
    Joint joint;
    if (!FindJoint(sensv, varying, joint)) return UndefDbl();
    if (&varying == sensv.query) return QueryBeliefVariance(sensv);
    double reduction = 0;
    for (int s = 0; s < joint.num_query; ++s)
        for (int t = 0; t < joint.num_varying; ++t) {
            if (joint.Both(s, t) == 0) continue;
            const double change = joint.Posterior(s, t) - joint.query[s];
            reduction += joint.Both(s, t) * change * change;
        }
    return reduction;
}

// The greatest posterior over the smallest; infinite where some finding excludes the state.
double SensitivityRatio(Sensv& sensv, const Node& varying, int state)
{
    if (!Asks(sensv, RATIO_SENSV)) Fail<2522>(QueryName(sensv));
    Joint joint;
    const bool exists = FindJoint(sensv, varying, joint);
    CheckState(*sensv.query, state);
    if (!exists) return UndefDbl();
    const double now = joint.query[state];
    if (now == 0) return 1;
    const FindingEffect effect = EffectOn(joint, 0, [&](int t) { return joint.Posterior(state, t); });
    return effect.least == 0 ? InfinityDbl() : effect.greatest / effect.least;
}

FindingEffect BeliefChange(Sensv& sensv, const Node& varying, int state, unsigned parts)
{
    if (!Asks(sensv, BELIEF_SENSV)) Fail<2523>(QueryName(sensv));
    if ((parts & VARIANCE_PART) && !Asks(sensv, VARIANCE_SENSV)) Fail<2524>(QueryName(sensv));
    if ((parts & RANGE_PART) && !Asks(sensv, RANGE_SENSV)) Fail<2525>(QueryName(sensv));
    Joint joint;
    const bool exists = FindJoint(sensv, varying, joint);
    CheckState(*sensv.query, state);
    if (!exists) return UndefinedEffect();
    return EffectOn(joint, joint.query[state], [&](int t) { return joint.Posterior(state, t); });
}

FindingEffect RealChange(Sensv& sensv, const Node& varying, unsigned parts)
{
    if (!Asks(sensv, REAL_SENSV)) Fail<2526>(QueryName(sensv));
    if ((parts & VARIANCE_PART) && !Asks(sensv, VARIANCE_SENSV)) Fail<2527>(QueryName(sensv));
    if ((parts & RANGE_PART) && !Asks(sensv, RANGE_SENSV)) Fail<2528>(QueryName(sensv));
    return EffectOnMean(sensv, varying);
}

double RealVarianceReduction(Sensv& sensv, const Node& varying)
{
    if (!Asks(sensv, REAL_SENSV)) Fail<6788>(QueryName(sensv));
    if (!Asks(sensv, VARIANCE_SENSV)) Fail<6789>(QueryName(sensv));
    return EffectOnMean(sensv, varying).variance;
}

bool HasRealValues(const Node& node)
{
    const std::vector<double>& levels = node.states.levels;
    const size_t wanted = size_t(NumStates(node)) + (IsDiscrete(node) ? 0 : 1);
    if (!HasStates(node) || levels.size() != wanted) return false;
    return std::none_of(levels.begin(), levels.end(), [&](double level) {
        return IsUndef(level) || (IsDiscrete(node) && IsInfinite(level));
    });
}

double QueryMean(Sensv& sensv)
{
    BringUpToDate(sensv);
    return MeanOf(sensv.beliefs, RealValues(sensv));
}

}  // namespace talora
