// Beliefs of some nodes for every case of a block, equal cases propagated once.
#include "BN/CaseRuns/CaseBeliefs.h"

#include <algorithm>

#include "BN/CaseRuns/CaseInference.h"
#include "BN/Inference/BnCompile.h"
#include "Basic/Progress.h"

namespace talora {

namespace {

constexpr size_t kCacheBytes = size_t(64) << 20;  // beyond that it begins afresh with the next block
constexpr int32_t kFree = -1;
constexpr size_t kFirstSlots = 1024;

// Multiplication with folding of the high half: keys that differ in one state spread over all slots.
uint64_t HashOf(std::span<const int32_t> key)
{
    uint64_t hash = 0x9E3779B97F4A7C15;
    for (int32_t state : key) {
        hash = (hash ^ uint32_t(state)) * 0xD6E8FEB86659FD93;
        hash ^= hash >> 32;
    }
    return hash;
}

}  // namespace

// Different cases are entries, numbered from 0 since the cache last began afresh.
struct CaseBeliefs::Engine {
    struct Column {
        int read;      // position among the nodes of the reader
        int variable;  // of the compiled net
    };

    std::vector<Column> columns;  // those that are entered
    std::vector<int> asked;       // variables
    std::vector<size_t> start;    // of each asked node's belief; the last is the length of all of them
    std::unique_ptr<CaseInference> inference;
    int num_variables = 0;

    std::vector<int32_t> keys;      // entry x column
    std::vector<float> beliefs;     // entry x all asked nodes
    std::vector<double> log_probs;  // of the findings, by entry
    std::vector<int32_t> slots;     // open addressing over keys: an entry or kFree
    std::vector<int32_t> entry_of;  // by row of the block
    bool is_complete = true;        // every entry has its beliefs

    // The next run.
    std::vector<int32_t> waiting;                // entries
    std::vector<int32_t> states;                 // entry of the run x variable
    std::vector<CaseFindings::Weights> weights;  // of all of them
    std::vector<size_t> first_weight;            // by case of the run

    size_t NumEntries() const { return log_probs.size(); }
    void Clear();
    void Grow();
    size_t Find(std::span<const int32_t> key) const;
    void Wait(int32_t entry, std::span<const int32_t> key, std::span<const CaseLikelihood> likelihoods);
    int32_t NewEntry(std::span<const int32_t> key);
    void Run();
};

// 1. The columns that are entered. 2. Where each asked node's belief stands among those of an entry. 3. The
// inference, for which the net is compiled if need be.
CaseBeliefs::CaseBeliefs(Net& net, std::span<Node* const> asked, std::span<Node* const> read,
                         std::vector<char> enters)
    : engine_(new Engine)
{
    Engine& e = *engine_;
    if (!net.compiled) CompileNet(net);
    const CompiledNet& compiled = *net.compiled;
    e.num_variables = int(compiled.nodes.size());
    for (size_t i = 0; i < read.size(); ++i) {
        const int variable = compiled.variable_of[size_t(read[i]->index)];
        if (enters[i] && variable >= 0 && HasStates(*read[i])) e.columns.push_back({int(i), variable});
    }
    e.start.push_back(0);
    for (const Node* node : asked) {
        e.asked.push_back(compiled.variable_of[size_t(node->index)]);
        e.start.push_back(e.start.back() + size_t(NumStates(*node)));
    }
    e.inference = std::make_unique<CaseInference>(net, CaseResults{e.asked, {}});
    e.slots.assign(kFirstSlots, kFree);
}

CaseBeliefs::~CaseBeliefs() = default;

void CaseBeliefs::Engine::Clear()
{
    keys.clear();
    beliefs.clear();
    log_probs.clear();
    waiting.clear();
    weights.clear();
    slots.assign(kFirstSlots, kFree);
}

// The slot of an equal key, or the free one where it would go.
size_t CaseBeliefs::Engine::Find(std::span<const int32_t> key) const
{
    const size_t mask = slots.size() - 1;
    for (size_t slot = HashOf(key) & mask;; slot = (slot + 1) & mask) {
        if (slots[slot] == kFree) return slot;
        if (std::equal(key.begin(), key.end(),
                       keys.begin() + ptrdiff_t(size_t(slots[slot]) * columns.size())))
            return slot;
    }
}

void CaseBeliefs::Engine::Grow()
{
    std::vector<int32_t> old(slots.size() * 2, kFree);
    old.swap(slots);
    for (int32_t entry : old)
        if (entry != kFree) {
            const auto* key = keys.data() + size_t(entry) * columns.size();
            slots[Find({key, columns.size()})] = entry;
        }
}

int32_t CaseBeliefs::Engine::NewEntry(std::span<const int32_t> key)
{
    const auto entry = int32_t(NumEntries());
    keys.insert(keys.end(), key.begin(), key.end());
    beliefs.resize(beliefs.size() + start.back());
    log_probs.push_back(-InfinityDbl());
    return entry;
}

// Puts an entry into the next run, and runs when that is full.
void CaseBeliefs::Engine::Wait(int32_t entry, std::span<const int32_t> key,
                               std::span<const CaseLikelihood> likelihoods)
{
    if (waiting.empty()) states.clear(), weights.clear(), first_weight.assign(1, 0);
    const size_t first = states.size();
    states.resize(first + size_t(num_variables), -1);
    for (size_t i = 0; i < columns.size(); ++i) states[first + size_t(columns[i].variable)] = key[i];
    for (const CaseLikelihood& likelihood : likelihoods)
        for (const Column& column : columns)
            if (column.read == likelihood.column)
                weights.push_back({column.variable, likelihood.weights.data()});
    first_weight.push_back(weights.size());
    waiting.push_back(entry);
    if (int(waiting.size()) == inference->Width()) Run();
}

// Propagates the waiting entries together and keeps their results. Impossible ones keep a belief of zeros.
void CaseBeliefs::Engine::Run()
{
    std::vector<CaseFindings> run(waiting.size());
    const std::span<const CaseFindings::Weights> all(weights);
    for (size_t k = 0; k < run.size(); ++k) {
        run[k].states = states.data() + k * size_t(num_variables);
        run[k].likelihoods = all.subspan(first_weight[k], first_weight[k + 1] - first_weight[k]);
    }
    inference->Run(run);
    for (size_t k = 0; k < run.size(); ++k) {
        const auto entry = size_t(waiting[k]);
        log_probs[entry] = std::max(inference->LogProbability(int(k)), -InfinityDbl());
        if (log_probs[entry] <= -InfinityDbl()) continue;
        for (size_t i = 0; i < asked.size(); ++i)
            inference->Belief(int(k), asked[i], beliefs.data() + entry * start.back() + start[i]);
    }
    waiting.clear();
}

bool CaseBeliefs::Compute(const CaseBlock& block)
{
    Engine& e = *engine_;
    const size_t entry_bytes = e.columns.size() * sizeof(int32_t) + e.start.back() * sizeof(float) + 16;
    // 1. A cache that is full, or whose last block was left in the middle, begins afresh.
    if (!e.is_complete || e.NumEntries() * entry_bytes > kCacheBytes) e.Clear();
    e.is_complete = false;
    e.entry_of.assign(size_t(block.num_cases), kFree);
    // 2. Each row gets its entry: the one of an equal row, or a new one that waits for the next run.
    std::vector<int32_t> key(e.columns.size());
    auto likelihood = block.likelihoods.begin();
    for (int row = 0; row < block.num_cases; ++row) {
        for (size_t i = 0; i < key.size(); ++i) {
            const int32_t state = block.states[size_t(e.columns[i].read)][size_t(row)];
            key[i] = state < 0 ? -1 : state;
        }
        auto end = likelihood;
        while (end != block.likelihoods.end() && end->row == row) ++end;
        if (end != likelihood) {
            // Rare, and different nearly every time: not worth a key of its own.
            e.entry_of[size_t(row)] = e.NewEntry(key);
            e.Wait(e.entry_of[size_t(row)], key, {likelihood, end});
            likelihood = end;
        } else {
            const size_t slot = e.Find(key);
            if (e.slots[slot] == kFree) {
                e.slots[slot] = e.NewEntry(key);
                e.entry_of[size_t(row)] = e.slots[slot];
                if (2 * e.NumEntries() > e.slots.size()) e.Grow();
                e.Wait(e.entry_of[size_t(row)], key, {});
            } else {
                e.entry_of[size_t(row)] = e.slots[slot];
            }
        }
        if (e.waiting.empty() && IsHalted()) return false;
    }
    // 3. The rest is run although there is room for more.
    if (!e.waiting.empty()) e.Run();
    return e.is_complete = true;
}

bool CaseBeliefs::IsPossible(int row) const
{
    return LogProbability(row) > -InfinityDbl();
}

double CaseBeliefs::LogProbability(int row) const
{
    return engine_->log_probs[size_t(engine_->entry_of[size_t(row)])];
}

std::span<const float> CaseBeliefs::Belief(int row, int asked) const
{
    const Engine& e = *engine_;
    const float* all = e.beliefs.data() + size_t(e.entry_of[size_t(row)]) * e.start.back();
    return {all + e.start[size_t(asked)], e.start[size_t(asked) + 1] - e.start[size_t(asked)]};
}

}  // namespace talora
