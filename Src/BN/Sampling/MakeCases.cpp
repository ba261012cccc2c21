// Random cases: choice of the method, cases as findings and as files, and files of every case.
#include "BN/Sampling/MakeCases.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <numeric>
#include <optional>

#include "BN/Inference/BnUpdating.h"
#include "BN/Model/BnEdit.h"
#include "BN/Sampling/SampleForward.h"
#include "BN/Sampling/SampleTree.h"
#include "Basic/Error.h"
#include "Basic/Progress.h"
#include "Basic/Text.h"
#include "VarVal/CaseWrite.h"

namespace talora {

namespace {

// When the user is asked whether to go on: after this many tries, this share of which was rejected.
constexpr int64_t kTriesBeforeAsking = 1000;
constexpr double kManyRejected = 0.9;
constexpr double kLinesBeforeAsking = 1e6;

// Findings of decisions and constants fix their state and reject nothing.
bool HasRelevantFindings(const Net& net)
{
    return std::any_of(net.nodes.nodes.begin(), net.nodes.nodes.end(), [](const Node* node) {
        return !node->finding.IsEmpty() && node->kind == NATURE_NODE;
    });
}

// Without findings nothing is rejected, so the tree is not worth its compiling; nodes without states can only
// be drawn forward.
int ChooseMethod(std::span<Node* const> nodes)
{
    const bool all_have_states =
        std::all_of(nodes.begin(), nodes.end(), [](const Node* node) { return HasStates(*node); });
    if (nodes.empty() || !all_have_states || !HasRelevantFindings(*nodes[0]->net)) return FORWARD_SAMPLING;
    return TREE_SAMPLING;
}

// Every failure on the way becomes one number, with the reason as its text.
[[noreturn]] void FailToSimulate(const Unwind& unwind)
{
    const std::string reason = MessageOf(*unwind.record);
    const uint32_t conditions = unwind.record->conditions & (INCONSISTENT_FINDING_CND | ABORTED_CND);
    FailWith<6660>(conditions, reason.c_str());
}

}  // namespace

RandomSource RandomSourceOf(const Net& net)
{
    if (randgen_vx* own = net.random_gen) return {&own->state, nullptr};
    return {&net.env->random, &RandomLock()};
}

// ---- The sampler ----

struct CaseSampler::Engine {
    std::optional<ForwardSampler> forward;
    std::optional<TreeSampler> tree;
    double max_tries = 1;
    int64_t num_tries = 0, num_rejected = 0;
    bool asked = false;

    void Reject(double tries_for_case);
};

// Counts a rejected case, and stops at the limit of tries, at a halt, or when the user cancels.
void CaseSampler::Engine::Reject(double tries_for_case)
{
    ++num_rejected;
    if (tries_for_case >= max_tries) FailWith<6669>(INCONSISTENT_FINDING_CND, tries_for_case);
    if (num_tries % 256 == 0 && IsHalted()) FailWith<6670>(ABORTED_CND);
    if (asked || num_tries < kTriesBeforeAsking ||
        static_cast<double>(num_rejected) < kManyRejected * static_cast<double>(num_tries))
        return;
    asked = true;
    if (AskQuestion("Many cases are being rejected.  Cancel operation?", "Yes,No", "No") == 0)
        FailWith<6671>(ABORTED_CND);
}

// Under a method that was chosen for the caller, rejection has no limit of its own: the halt flag and the
// question end it.
CaseSampler::CaseSampler(std::span<Node* const> nodes, const SamplingOptions& options)
    : engine_(std::make_unique<Engine>())
{
    int method = options.method;
    if (method != AUTO_SAMPLING && method != FORWARD_SAMPLING && method != TREE_SAMPLING) Fail<6672>(method);
    if (method == FORWARD_SAMPLING && !(options.max_tries >= 1 && options.max_tries <= INT_MAX))
        Fail<6673>(options.max_tries);
    engine_->max_tries = method == FORWARD_SAMPLING ? std::floor(options.max_tries) : INT_MAX;
    if (method == AUTO_SAMPLING) method = ChooseMethod(nodes);
    try {
        if (method == FORWARD_SAMPLING)
            engine_->forward.emplace(nodes, !options.for_one_case);
        else
            engine_->tree.emplace(nodes);
    } catch (const Unwind& unwind) {
        FailToSimulate(unwind);
    }
}

CaseSampler::~CaseSampler() = default;

// The generator's lock is held for one try at a time, so other threads may draw between.
void CaseSampler::Draw(const RandomSource& random)
{
    Engine& e = *engine_;
    if (e.tree) {
        const RandomScope guard(random.lock);
        e.tree->Draw(*random.state);
        ++e.num_tries;
        return;
    }
    try {
        for (int64_t tries = 1;; ++tries) {
            bool accepted = false;
            {
                const RandomScope guard(random.lock);
                accepted = e.forward->Try(*random.state);
            }
            ++e.num_tries;
            if (accepted) return;
            e.Reject(double(tries));
        }
    } catch (const Unwind& unwind) {
        FailToSimulate(unwind);
    }
}

int CaseSampler::State(size_t i) const
{
    return engine_->forward ? engine_->forward->State(i) : engine_->tree->State(i);
}

double CaseSampler::Value(size_t i) const
{
    return engine_->forward ? engine_->forward->Value(i) : UndefDbl();
}

int64_t CaseSampler::NumTries() const
{
    return engine_->num_tries;
}

int64_t CaseSampler::NumRejected() const
{
    return engine_->num_rejected;
}

// ---- One case as findings ----

namespace {

void ReportAcceptance(const CaseSampler& sampler, int64_t least_rejected)
{
    if (sampler.NumRejected() < least_rejected) return;
    const double accepted = static_cast<double>(sampler.NumTries() - sampler.NumRejected());
    Notice<6674>(100 * accepted / static_cast<double>(sampler.NumTries()));
}

// Nodes of one net, each once, no notes.
void CheckNodes(std::span<Node* const> nodes)
{
    std::vector<char> listed;
    for (const Node* node : nodes) {
        if (node->net != nodes[0]->net) Fail<6675>(node->name.c_str());
        listed.resize(node->net->nodes.nodes.size());
        if (listed[node->index]) Fail<6676>(node->name.c_str());
        listed[node->index] = 1;
        if (IsDocumentation(*node)) Fail<6677>(node->name.c_str());
    }
}

}  // namespace

// Draws first and enters all findings afterwards: a failure leaves them as they were.
void GenerateRandomCase(std::span<Node* const> nodes, int method, double max_tries)
{
    CheckNodes(nodes);
    CaseSampler sampler(nodes, {method, max_tries, true});
    if (nodes.empty()) return;
    Net& net = *nodes[0]->net;
    sampler.Draw(RandomSourceOf(net));
    ReportAcceptance(sampler, static_cast<int64_t>(kManyRejected * kTriesBeforeAsking));
    for (size_t i = 0; i < nodes.size(); ++i) {
        Node& node = *nodes[i];
        if (node.kind == UTILITY_NODE) continue;  // takes no findings
        NodeFinding finding = node.finding;
        if (finding.state != sampler.State(i) || IsUndef(finding.value)) finding.value = sampler.Value(i);
        finding.state = sampler.State(i) < 0 ? -1 : sampler.State(i);
        Change(node, node.finding, std::move(finding), REFINDS, "enter random case");
    }
    AutoUpdate(net);
}

// ---- Files of cases ----

namespace {

// The last case of a sampler, without the entries that are to go missing.
class DrawnCaseWriter {
public:
    DrawnCaseWriter(std::span<Node* const> nodes, Stream& file)
        : rows_(file, nodes, false, false), states_(nodes.size()), values_(nodes.size())
    {}
    void Write(const CaseSampler& sampler, std::span<const char> missing)
    {
        for (size_t i = 0; i < states_.size(); ++i) {
            values_[i] = missing[i] ? UndefDbl() : sampler.Value(i);
            states_[i] = missing[i] ? UNDEF_STATE : sampler.State(i);
        }
        rows_.Write(states_.data(), values_.data(), kNoCaseId, 1);
    }
    void Commit() { rows_.Commit(); }

private:
    CaseWriter rows_;
    std::vector<int> states_;
    std::vector<double> values_;
};

}  // namespace

int64_t WriteRandomCases(std::span<Node* const> nodes, Stream& file, int64_t num_cases, int method,
                         double max_tries, double percent_missing)
{
    CheckNodes(nodes);
    if (nodes.empty()) Fail<6678>();
    if (!(percent_missing >= 0 && percent_missing <= 100)) Fail<6680>(percent_missing);
    CaseSampler sampler(nodes, {method, max_tries, false});
    const RandomSource random = RandomSourceOf(*nodes[0]->net);
    DrawnCaseWriter rows(nodes, file);
    Progress progress("generating random cases");
    std::vector<char> missing(nodes.size());
    int64_t written = 0;
    while (written < num_cases) {
        sampler.Draw(random);
        if (percent_missing > 0) {
            const RandomScope guard(random.lock);
            for (char& is_missing : missing) is_missing = 100 * NextUniform(*random.state) < percent_missing;
        }
        rows.Write(sampler, missing);
        ++written;
        if (written % 1024 == 0 &&
            !progress.Step(static_cast<double>(written) / static_cast<double>(num_cases)))
            break;
    }
    rows.Commit();
    ReportAcceptance(sampler, 1);
    return written;
}

// ---- Every case ----

namespace {

int FixedState(const Node& node)
{
    return node.kind == CONSTANT_NODE ? ConstantState(node) : node.finding.state;
}

// Walks through all combinations of states, the last node fastest, by the chain rule: the beliefs of each
// node, given the states of those before it, times the probability of these.
class CaseLister {
public:
    explicit CaseLister(std::span<Node* const> nodes);
    ~CaseLister();  // gives the propagation the net's findings back
    CaseLister(const CaseLister&) = delete;
    CaseLister& operator=(const CaseLister&) = delete;

    bool Next();  // goes on to the next combination; false at the end
    int State(size_t i) const { return columns_[i].state; }
    double Probability() const { return columns_.back().product; }

private:
    struct Column {
        int variable = -1;  // -1: outside the tree, always in one state
        int num_states = 1;
        int fixed = -1;
        int state = -1;
        double product = 1;  // probability of the states up to here
        std::vector<float> beliefs;
        double sum = 1;  // of the beliefs, up to rounding
    };

    void Enter(size_t i);
    void SetState(size_t i, int state);

    Propagation& propagation_;
    std::vector<Column> columns_;
    bool begun_ = false;
};

CaseLister::CaseLister(std::span<Node* const> nodes) : propagation_(*nodes[0]->net->compiled->propagation)
{
    for (const Node* node : nodes) {
        if (!HasStates(*node)) Fail<6681>(node->name.c_str());
        Column& column = columns_.emplace_back();
        column.variable = node->net->compiled->variable_of[node->index];
        column.num_states = NumStates(*node);
        column.fixed = FixedState(*node);
        column.beliefs.resize(static_cast<size_t>(column.num_states));
    }
}

CaseLister::~CaseLister()
{
    for (const Column& column : columns_)
        if (column.variable >= 0) propagation_.SetPositive(column.variable, column.fixed);
}

// Multiplies along the columns, so each line costs only what differs from the line before.
void CaseLister::SetState(size_t i, int state)
{
    Column& column = columns_[i];
    column.state = state;
    const double before = i > 0 ? columns_[i - 1].product : 1;
    column.product = before * column.beliefs[static_cast<size_t>(state)] / column.sum;
    // What has probability 0 is never propagated: there are no beliefs then.
    if (column.variable >= 0 && column.product > 0) propagation_.SetPositive(column.variable, state);
}

// Begins a column with its first state, given the columns before it.
void CaseLister::Enter(size_t i)
{
    Column& column = columns_[i];
    const double before = i > 0 ? columns_[i - 1].product : 1;
    std::fill(column.beliefs.begin(), column.beliefs.end(), 0.0f);
    if (column.fixed >= 0) {
        column.beliefs[static_cast<size_t>(column.fixed)] = 1;
    } else if (column.variable < 0) {
        Fail<6682>();
    } else if (before > 0) {
        propagation_.SetPositive(column.variable, -1);
        const UpdateStatus status = propagation_.UpdateFor(column.variable);
        if (status == UpdateStatus::kHalted) FailWith<6670>(ABORTED_CND);
        if (status == UpdateStatus::kUpdated) propagation_.Belief(column.variable, column.beliefs.data());
    }
    const double sum = std::accumulate(column.beliefs.begin(), column.beliefs.end(), 0.0);
    column.sum = sum > 0 ? sum : 1;
    SetState(i, column.fixed >= 0 ? column.fixed : 0);
}

// Like an odometer: the last column that can move on does so, those behind it begin again, each with beliefs
// that hold under the new states before it.
bool CaseLister::Next()
{
    size_t i = 0;
    if (begun_) {
        for (i = columns_.size();; --i) {
            if (i == 0) return false;
            const Column& column = columns_[i - 1];
            if (column.fixed < 0 && column.state + 1 < column.num_states) break;
            if (column.variable >= 0) propagation_.SetPositive(column.variable, column.fixed);
        }
        SetState(i - 1, columns_[i - 1].state + 1);
    }
    begun_ = true;
    for (; i < columns_.size(); ++i) Enter(i);
    return true;
}

void AskAboutLength(double num_lines)
{
    if (num_lines <= kLinesBeforeAsking) return;
    const std::string question = Format(
        "Do you want to make an exhaustive case file, \nlisting every possible case and its exact frequency of occurance? \n(it would be %g lines long)",
        num_lines);
    if (AskQuestion(question.c_str(), "Yes,No", "Yes") != 0) FailWith<6670>(ABORTED_CND);
}

}  // namespace

double NumPossibleCases(std::span<Node* const> nodes)
{
    double product = 1;
    for (const Node* node : nodes)
        if (FixedState(*node) < 0) product *= NumStates(*node);
    return product;
}

int64_t WriteEveryCase(std::span<Node* const> nodes, Stream& file)
{
    CheckNodes(nodes);
    if (nodes.empty()) Fail<6678>();
    const double num_lines = NumPossibleCases(nodes);
    AskAboutLength(num_lines);
    PrepareTree(*nodes[0]->net);
    CaseLister lister(nodes);
    CaseWriter rows(file, nodes, false, true);
    std::vector<int> states(nodes.size());
    Progress progress("generating every case");
    int64_t written = 0;
    while (lister.Next()) {
        for (size_t i = 0; i < nodes.size(); ++i) states[i] = lister.State(i);
        rows.Write(states.data(), nullptr, kNoCaseId, lister.Probability());
        if (++written % 256 == 0 && !progress.Step(static_cast<double>(written) / num_lines)) break;
    }
    rows.Commit();
    return written;
}

}  // namespace talora
