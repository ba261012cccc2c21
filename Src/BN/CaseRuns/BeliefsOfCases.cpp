// Findings in as a matrix of states, beliefs out as a matrix.
#include "BN/CaseRuns/BeliefsOfCases.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "BN/CaseRuns/CaseInference.h"
#include "BN/Inference/BnCompile.h"
#include "BN/Inference/BnUpdating.h"
#include "Basic/Error.h"
#include "Basic/Progress.h"

namespace talora {

namespace {

// From so many cases on it pays to lay out the tables for sixteen at a time.
constexpr int kManyCases = 48;

class CaseMatrix {
public:
    CaseMatrix(Net& net, std::span<Node* const> known, const int* states, int num_cases,
               std::span<Node* const> asked, float* beliefs, double* log_probabilities)
        : net_(net),
          compiled_(*net.compiled),
          states_(states),
          num_cases_(num_cases),
          beliefs_(beliefs),
          log_probabilities_(log_probabilities)
    {
        for (const Node* node : known) known_.push_back(VariableOf(*node));
        for (const Node* node : asked) {
            asked_.push_back(VariableOf(*node));
            row_size_ += size_t(NumStates(*node));
        }
        CheckStates(known);
    }

    void Run()
    {
        if (num_cases_ >= kManyCases && BatchPropagation::Suits(compiled_.propagation_graph, compiled_.tree))
            RunTogether();
        else
            RunEach();
    }

private:
    int VariableOf(const Node& node) const
    {
        const int variable = compiled_.variable_of[size_t(node.index)];
        if (variable < 0 || !HasStates(node)) Fail<6880>(node.name.c_str());
        return variable;
    }

    void CheckStates(std::span<Node* const> known) const
    {
        for (int c = 0; c < num_cases_; ++c)
            for (size_t k = 0; k < known.size(); ++k) {
                const int state = StateOf(c, k), most = NumStates(*known[k]) - 1;
                if (state > most) Fail<7400>(state, known[k]->name.c_str(), c, most);
            }
    }

    // By variable.  A node that is listed twice has the state that stands last.
    void ReadCase(int c, int32_t* states) const
    {
        std::fill_n(states, compiled_.nodes.size(), -1);
        for (size_t k = 0; k < known_.size(); ++k)
            if (const int state = StateOf(c, k); state >= 0) states[known_[k]] = state;
    }

    int StateOf(int c, size_t k) const { return states_[size_t(c) * known_.size() + k]; }
    bool IsAnyKnown(int c) const
    {
        for (size_t k = 0; k < known_.size(); ++k)
            if (StateOf(c, k) >= 0) return true;
        return false;
    }

    template <class Read>
    void Keep(int c, double log_probability, Read read)
    {
        // Without findings it is 0 without rounding.
        if (log_probabilities_ != nullptr)
            log_probabilities_[c] = std::isinf(log_probability) || IsAnyKnown(c) ? log_probability : 0;
        float* place = beliefs_ + size_t(c) * row_size_;
        if (std::isinf(log_probability)) {
            std::fill_n(place, row_size_, std::numeric_limits<float>::quiet_NaN());
            return;
        }
        for (int v : asked_) {
            read(v, place);
            place += NumStates(*compiled_.nodes[size_t(v)]);
        }
    }

    void RunTogether()
    {
        CaseInference inference(net_, {asked_, {}});
        const int width = inference.Width();
        std::vector<int32_t> states(size_t(width) * compiled_.nodes.size());
        std::vector<CaseFindings> cases;
        for (int first = 0; first < num_cases_; first += width) {
            if (IsHalted()) FailWith<6582>(ABORTED_CND, net_.name.c_str());
            const int count = std::min(width, num_cases_ - first);
            cases.clear();
            for (int k = 0; k < count; ++k) {
                int32_t* row = states.data() + size_t(k) * compiled_.nodes.size();
                ReadCase(first + k, row);
                cases.push_back({row, {}});
            }
            inference.Run(cases);
            for (int k = 0; k < count; ++k)
                Keep(first + k, inference.LogProbability(k),
                     [&](int v, float* belief) { inference.Belief(k, v, belief); });
        }
    }

    void RunEach()
    {
        Propagation& propagation = CasePropagation(net_);
        std::vector<int32_t> states(compiled_.nodes.size());
        for (int c = 0; c < num_cases_; ++c) {
            ReadCase(c, states.data());
            for (size_t v = 0; v < states.size(); ++v) propagation.SetPositive(int(v), states[v]);
            const UpdateStatus status =
                asked_.size() == 1 ? propagation.UpdateFor(asked_[0]) : propagation.Update();
            if (status == UpdateStatus::kHalted) FailWith<6582>(ABORTED_CND, net_.name.c_str());
            Keep(c, propagation.LogProbability(),
                 [&](int v, float* belief) { propagation.Belief(v, belief); });
        }
    }

    Net& net_;
    const CompiledNet& compiled_;
    std::vector<int> known_, asked_;  // variables
    const int* states_;
    int num_cases_;
    float* beliefs_;
    double* log_probabilities_;
    size_t row_size_ = 0;
};

}  // namespace

void BeliefsOfCases(Net& net, std::span<Node* const> known, const int* states, int num_cases,
                    std::span<Node* const> asked, float* beliefs, double* log_probabilities)
{
    if (!net.compiled) CompileNet(net);
    CaseMatrix(net, known, states, num_cases, asked, beliefs, log_probabilities).Run();
}

}  // namespace talora
