// Propagation as callers see it: small trees as a whole, others and what is too improbable by messages.
#include "BN/Propagation/Propagate.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "BN/Propagation/SmallTree.h"
#include "BN/Propagation/TreePropagation.h"
#include "Basic/Progress.h"

namespace talora {

namespace {

// Trees of messages up to this many entries keep observed variables in their tables.
constexpr double kMostStaying = 16384;

}  // namespace

struct Propagation::Parts {
    const ModelGraph* graph;
    const JunctionTree* tree;
    TableSource table;
    double small_tree;
    bool maximise = false;

    // Where there is a small tree it answers when it can; what is known stands here, and the messages are
    // made when they are first needed.
    std::unique_ptr<SmallTree> small;
    std::vector<int> positive;
    std::vector<Likelihood> likelihoods;
    std::unique_ptr<TreePropagation> messages;
    bool by_messages = false;  // the last update
    bool is_updated = false;
    bool is_impossible = false;

    int NumStates(int v) const { return graph->variables[size_t(v)].num_states; }

    TreePropagation& Messages()
    {
        if (!messages) {
            messages =
                std::make_unique<TreePropagation>(*graph, *tree, table, std::min(small_tree, kMostStaying));
            if (maximise) messages->SetMaximise(true);
        }
        return *messages;
    }

    // What is known, told to the messages.
    TreePropagation& MessagesInStep()
    {
        TreePropagation& all = Messages();
        for (int v = 0; small && v < int(positive.size()); ++v) {
            const std::vector<float>& given = likelihoods[size_t(v)].given;
            all.SetPositive(v, positive[size_t(v)]);
            all.SetLikelihood(v, given.empty() ? nullptr : given.data());
        }
        return all;
    }

    // The small tree has it as weights.
    void TellSmall(int v)
    {
        is_updated = false;
        const std::vector<float>& scaled = likelihoods[size_t(v)].scaled;
        const int state = positive[size_t(v)];
        if (state < 0) {
            small->SetWeights(v, scaled.empty() ? nullptr : scaled.data());
            return;
        }
        std::vector<float>& weights = state_weights;
        weights.assign(size_t(std::max(1, NumStates(v))), 0.0f);
        weights[size_t(state)] = scaled.empty() ? 1 : scaled[size_t(state)];
        small->SetWeights(v, weights.data());
    }
    std::vector<float> state_weights;

    // True: the small tree has the answer, or knows that there is none.
    bool UpdateSmall()
    {
        if (!small || maximise) return false;
        const SmallTree::Status status = small->Update();
        by_messages = status == SmallTree::Status::kTooImprobable;
        is_impossible = status == SmallTree::Status::kImpossible;
        is_updated = status == SmallTree::Status::kUpdated;
        return !by_messages;
    }

    UpdateStatus StatusOfSmall() const
    {
        return is_impossible ? UpdateStatus::kInconsistent : UpdateStatus::kUpdated;
    }

    double LogProbabilityOfSmall() const
    {
        double log = std::log(small->Mass());
        for (size_t v = 0; v < positive.size(); ++v) {
            log += likelihoods[v].exponent * std::log(2.0);
            // A decision without a choice counts as drawn uniformly.
            if (graph->variables[v].is_decision && positive[v] < 0)
                log -= std::log(double(std::max(1, NumStates(int(v)))));
        }
        return log;
    }
};

// For the length of an update somebody is told of it.
class Telling {
public:
    Telling(TreePropagation& messages, Progress* progress) : messages_(messages)
    {
        messages_.progress = progress;
        messages_.is_rising = true;
    }
    ~Telling() { messages_.progress = nullptr; }
    Telling(const Telling&) = delete;
    Telling& operator=(const Telling&) = delete;

private:
    TreePropagation& messages_;
};

Propagation::Propagation(const ModelGraph& graph, const JunctionTree& tree, TableSource table,
                         double small_tree)
    : parts_(std::make_unique<Parts>(Parts{&graph, &tree, std::move(table), small_tree}))
{
    if (!SmallTree::Suits(tree, small_tree)) {
        parts_->Messages();
        parts_->by_messages = true;
        return;
    }
    parts_->small = std::make_unique<SmallTree>(graph, tree, parts_->table);
    parts_->positive.assign(graph.variables.size(), -1);
    parts_->likelihoods.resize(graph.variables.size());
}

Propagation::~Propagation() = default;
Propagation::Propagation(Propagation&&) noexcept = default;
Propagation& Propagation::operator=(Propagation&&) noexcept = default;

// ---- What is known. ----

void Propagation::SetPositive(int variable, int state)
{
    if (!parts_->small) return parts_->messages->SetPositive(variable, state);
    int& current = parts_->positive[size_t(variable)];
    if (state == current) return;
    current = state;
    parts_->TellSmall(variable);
}

void Propagation::SetLikelihood(int variable, const float* likelihood)
{
    if (!parts_->small) return parts_->messages->SetLikelihood(variable, likelihood);
    if (parts_->likelihoods[size_t(variable)].Take(likelihood, parts_->NumStates(variable)))
        parts_->TellSmall(variable);
}

void Propagation::TableChanged(int variable)
{
    parts_->is_updated = false;
    if (parts_->small) parts_->small->TableChanged(variable);
    if (parts_->messages) parts_->messages->ChangeTable(variable);
}

void Propagation::ClearFindings()
{
    for (int v = 0; v < int(parts_->graph->variables.size()); ++v) {
        SetPositive(v, -1);
        SetLikelihood(v, nullptr);
    }
}

void Propagation::SetMaximise(bool maximise)
{
    if (parts_->maximise == maximise) return;
    parts_->maximise = maximise;
    parts_->is_updated = false;
    if (parts_->messages) parts_->messages->SetMaximise(maximise);
}

void Propagation::Forget()
{
    parts_->is_updated = false;
    if (parts_->small) parts_->small->Forget();
    if (parts_->messages) parts_->messages->Forget();
}

// ---- Updating. ----

UpdateStatus Propagation::Update(Progress* progress)
{
    if (parts_->UpdateSmall()) return parts_->StatusOfSmall();
    TreePropagation& messages = parts_->MessagesInStep();
    const Telling telling(messages, progress);
    parts_->by_messages = true;
    const UpdateStatus status = messages.Update();
    parts_->is_updated = status == UpdateStatus::kUpdated;
    return status;
}

UpdateStatus Propagation::UpdateFor(int variable, Progress* progress)
{
    if (parts_->UpdateSmall()) return parts_->StatusOfSmall();
    TreePropagation& messages = parts_->MessagesInStep();
    const Telling telling(messages, progress);
    parts_->by_messages = true;
    return messages.UpdateFor(variable);
}

bool Propagation::IsUpdated() const
{
    return parts_->small ? parts_->is_updated : parts_->messages->updated;
}

// ---- Results. ----

double Propagation::LogProbability() const
{
    const bool is_impossible =
        parts_->by_messages ? parts_->messages->vanished_at >= 0 : parts_->is_impossible;
    if (is_impossible) return -std::numeric_limits<double>::infinity();
    return parts_->by_messages ? parts_->messages->log_prob : parts_->LogProbabilityOfSmall();
}

double Propagation::Probability() const
{
    return std::exp(LogProbability());
}

void Propagation::Belief(int variable, float* belief) const
{
    if (parts_->by_messages) return parts_->messages->Belief(variable, belief);
    const int state = parts_->positive[size_t(variable)], num_states = parts_->NumStates(variable);
    if (state < 0 && num_states > 1) return parts_->small->Belief(variable, belief);
    for (int s = 0; s < num_states; ++s) belief[s] = s == std::max(state, 0);
}

bool Propagation::JointBelief(std::span<const int> variables, float* joint) const
{
    if (parts_->by_messages) return parts_->messages->JointBelief(variables, joint);
    const JunctionTree& tree = *parts_->tree;
    int best = -1;
    for (int i = 0; i < tree.num_cliques(); ++i) {
        const std::span<const int> members = tree.members[i];
        const bool holds = std::all_of(variables.begin(), variables.end(), [&](int v) {
            return std::find(members.begin(), members.end(), v) != members.end();
        });
        if (holds && (best < 0 || tree.clique_sizes[size_t(i)] < tree.clique_sizes[size_t(best)])) best = i;
    }
    if (best < 0 || variables.empty()) return false;
    parts_->small->JointBelief(best, variables, joint);
    return true;
}

double Propagation::Bytes() const
{
    return (parts_->small ? parts_->small->Bytes() : 0) + (parts_->messages ? parts_->messages->Bytes() : 0);
}

bool Propagation::HoldsAllTables() const
{
    return parts_->small != nullptr;
}

Propagation::Counters Propagation::counters() const
{
    Counters counters = parts_->messages ? parts_->messages->counts : Counters();
    if (parts_->small) {
        counters.messages += parts_->small->counters().messages;
        counters.entries += parts_->small->counters().entries;
    }
    return counters;
}

}  // namespace talora
