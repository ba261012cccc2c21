// The cases of iterative learning: read once, kept packed where they fit, and expected counts from them.
#include "BN/Learning/LearnData.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <numeric>

#include "BN/CaseRuns/CaseInference.h"
#include "BN/Inference/BnCompile.h"
#include "BN/Inference/BnUpdating.h"
#include "BN/Model/BnProbs.h"
#include "Basic/Environ.h"
#include "Basic/Error.h"
#include "Basic/RandomNum.h"

namespace talora {

namespace {

// ---- Different cases, packed ----

// Each row is the states of all members plus 1 (0: not known), 1 or 4 bytes each, with its weight.
class RowStore {
public:
    void Start(int num_entries, int most_states)
    {
        entry_bytes_ = most_states < 255 ? 1 : 4;
        num_entries_ = num_entries;
        row_bytes_ = (size_t(num_entries) * size_t(entry_bytes_) + 7) / 8 * 8;
        scratch_.assign(row_bytes_, 0);
    }
    size_t Size() const { return weights_.size(); }
    double Weight(size_t row) const { return weights_[row]; }
    double Bytes() const
    {
        return double(rows_.size()) + double(weights_.size() * sizeof(double)) +
               double(slots_.size() * sizeof(uint32_t));
    }
    void Clear()
    {
        rows_ = {};
        weights_ = {};
        slots_ = {};
    }
    // A row that is there already only gets heavier.
    void Add(const CaseBlock& block, int row, double weight)
    {
        Pack(block, row);
        if ((weights_.size() + 1) * 2 > slots_.size()) Grow();
        const uint32_t slot = FindSlot(scratch_.data());
        if (slots_[slot] != 0) {
            weights_[slots_[slot] - 1] += weight;
            return;
        }
        rows_.insert(rows_.end(), scratch_.begin(), scratch_.end());
        weights_.push_back(weight);
        slots_[slot] = uint32_t(weights_.size());
    }
    // states[variables[i]] = the state of entry i, -1 if not known
    void Unpack(size_t row, const std::vector<int>& variables, int32_t* states) const
    {
        const unsigned char* const from = rows_.data() + row * row_bytes_;
        for (int i = 0; i < num_entries_; ++i) states[variables[size_t(i)]] = Entry(from, i) - 1;
    }
    // Rows that begin alike next to each other.
    std::vector<uint32_t> SortedRows() const
    {
        std::vector<uint32_t> order(weights_.size());
        std::iota(order.begin(), order.end(), 0u);
        std::sort(order.begin(), order.end(), [this](uint32_t a, uint32_t b) {
            return memcmp(rows_.data() + a * row_bytes_, rows_.data() + b * row_bytes_, row_bytes_) < 0;
        });
        return order;
    }

private:
    int32_t Entry(const unsigned char* row, int i) const
    {
        if (entry_bytes_ == 1) return row[i];
        int32_t entry;
        memcpy(&entry, row + size_t(i) * sizeof entry, sizeof entry);
        return entry;
    }
    void Pack(const CaseBlock& block, int row)
    {
        for (int i = 0; i < num_entries_; ++i) {
            const int32_t entry = std::max(-1, block.states[size_t(i)][size_t(row)]) + 1;
            if (entry_bytes_ == 1)
                scratch_[size_t(i)] = static_cast<unsigned char>(entry);
            else
                memcpy(scratch_.data() + size_t(i) * sizeof entry, &entry, sizeof entry);
        }
    }
    uint32_t FindSlot(const unsigned char* row) const
    {
        uint64_t hash = 0;
        for (size_t at = 0; at < row_bytes_; at += sizeof(uint64_t)) {
            uint64_t word;
            memcpy(&word, row + at, sizeof word);
            hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
            hash ^= hash >> 29;
        }
        const auto mask = uint32_t(slots_.size() - 1);
        uint32_t slot = uint32_t(hash >> 16) & mask;
        while (slots_[slot] != 0 &&
               memcmp(rows_.data() + size_t(slots_[slot] - 1) * row_bytes_, row, row_bytes_) != 0)
            slot = (slot + 1) & mask;
        return slot;
    }
    void Grow()
    {
        const size_t wanted = std::max<size_t>(1024, slots_.size() * 2);
        slots_.clear();
        slots_.resize(wanted, 0);
        for (size_t row = 0; row < weights_.size(); ++row)
            slots_[FindSlot(rows_.data() + row * row_bytes_)] = uint32_t(row + 1);
    }

    int entry_bytes_ = 1, num_entries_ = 0;
    size_t row_bytes_ = 0;
    TableVector<unsigned char> rows_;
    TableVector<double> weights_;
    TableVector<uint32_t> slots_;  // row + 1, 0 for free
    std::vector<unsigned char> scratch_;
};

// A case that gives some nodes by weights.
struct SoftRow {
    std::vector<int32_t> states;  // by variable
    std::vector<CaseFindings::Weights> weights;
    std::vector<std::vector<float>> numbers;  // that the weights point to
    double weight = 0;
};

// ---- Tables ----

// The table of a node with every entry in place: what is missing shares what the row leaves over, a row that
// cannot occur is all zeros.  Uniform without a table.
TableVector<float> CompleteTable(const LearnedFamily& family)
{
    const int num_states = family.num_states;
    TableVector<float> scratch;
    const float* const probs = EffectiveProbs(*family.node, scratch);
    TableVector<float> table(size_t(family.Size()), 1.0f / float(num_states));
    if (probs == nullptr) return table;
    for (int64_t row = 0; row < family.num_rows; ++row) {
        const float* const from = probs + row * num_states;
        float* const to = table.data() + row * num_states;
        double sum = 0;
        int missing = 0;
        for (int s = 0; s < num_states; ++s) {
            if (from[s] == MissingProb())
                ++missing;
            else if (!IsMarker(from[s]))
                sum += double(from[s]);
        }
        const double share = missing > 0 ? std::max(0.0, 1 - sum) / missing : 0;
        for (int s = 0; s < num_states; ++s)
            to[s] = from[s] == MissingProb() ? float(share) : IsMarker(from[s]) ? 0 : from[s];
    }
    return table;
}

bool IsKnownParent(const Node& parent)
{
    return IsInTree(parent) || (parent.kind == CONSTANT_NODE && ConstantState(parent) >= 0);
}

std::vector<Node*> TreeNodes(const Net& net)
{
    std::vector<Node*> nodes;
    for (Node* node : net.nodes.nodes)
        if (IsInTree(*node) && HasStates(*node)) nodes.push_back(node);
    return nodes;
}

// Nodes with states that the tree holds, with all their parents.
std::vector<Node*> LearnableInTree(std::span<Node* const> nodes)
{
    std::vector<Node*> learned = LearnableNodes(nodes);
    std::erase_if(learned, [](const Node* node) {
        return !std::all_of(node->links.begin(), node->links.end(),
                            [](const Link& link) { return IsKnownParent(*link.parent); });
    });
    if (learned.empty()) Fail<6589>();
    return learned;
}

}  // namespace

struct LearnData::Engine {
    Net& net;
    double degree = 1, most_bytes = 0;
    std::vector<Node*> learned;
    std::vector<Node*> members;  // columns of the reader: the nodes of the tree that have states
    std::vector<int> variables;  // by column
    int num_variables = 0;
    CaseReader reader;
    std::vector<LearnedFamily> families;    // learned first, then those that are not
    std::vector<int> family_variables;      // of the learned
    std::vector<TableVector<float>> fixed;  // tables of those that are not learned

    std::vector<FamilyCounter> whole_cases;     // by family: complete cases
    std::vector<FamilyCounter> whole_families;  // by learned family: of the other cases
    bool counts_whole_cases = false;            // every table of the tree is of a family above
    std::vector<char> is_told;                  // by column, by some case
    RowStore rows;
    std::vector<SoftRow> soft_rows;
    double soft_bytes = 0;
    bool is_kept = true;
    std::vector<uint32_t> order;  // of the rows; empty: as they came
    int64_t num_cases = 0;

    std::unique_ptr<CaseInference> counting, measuring;

    // The cases handed to inference together.
    std::vector<int32_t> states;
    std::vector<CaseFindings> batch;
    std::vector<double> weights, family_weights;

    // A running evaluation.
    CaseInference* inference = nullptr;
    std::vector<Counts>* counts = nullptr;
    double log_likelihood = 0;
    bool has_impossible = false;

    Engine(Net& of, std::span<Node* const> nodes, const Caseset& cases, double times, double most)
        : net(of),
          degree(times),
          most_bytes(std::min(most, MemoryAvailable() / 4)),
          learned(LearnableInTree(nodes)),
          members(TreeNodes(of)),
          reader(cases, members)
    {
        MakeFamilies();
        MakeInference();
        Gather();
    }

    void MakeFamilies()
    {
        for (Node* node : learned) families.push_back(FamilyIn(*node, members));
        counts_whole_cases = true;
        for (Node* node : net.nodes.nodes) {
            if (!IsInTree(*node)) continue;
            const bool is_learned = std::find(learned.begin(), learned.end(), node) != learned.end();
            if (is_learned || (node->kind == DECISION_NODE && HasStates(*node))) continue;
            const bool is_simple = LearnableNodes({&node, 1}).size() == 1 &&
                                   std::all_of(node->links.begin(), node->links.end(),
                                               [](const Link& link) { return IsKnownParent(*link.parent); });
            if (!is_simple) {
                counts_whole_cases = false;
                continue;
            }
            families.push_back(FamilyIn(*node, members));
            fixed.push_back(CompleteTable(families.back()));
        }
    }

    void MakeInference()
    {
        if (!net.compiled) CompileNet(net);
        const CompiledNet& compiled = *net.compiled;
        num_variables = int(compiled.nodes.size());
        int most_states = 0;
        for (const Node* node : members) {
            variables.push_back(compiled.variable_of[size_t(node->index)]);
            most_states = std::max(most_states, NumStates(*node));
        }
        for (const Node* node : learned)
            family_variables.push_back(compiled.variable_of[size_t(node->index)]);
        counting = std::make_unique<CaseInference>(net, CaseResults{{}, family_variables});
        measuring = std::make_unique<CaseInference>(net, CaseResults{});
        const auto width = size_t(counting->Width());
        states.assign(width * size_t(num_variables), -1);
        batch.reserve(width);
        rows.Start(int(members.size()), most_states);
    }

    // ---- Reading ----

    void Gather()
    {
        Progress progress("incorporating cases");
        for (size_t f = 0; f < families.size(); ++f) {
            whole_cases.emplace_back(families[f]);
            if (f < learned.size()) whole_families.emplace_back(families[f]);
        }
        is_told.assign(members.size(), 0);
        CaseBlock block;
        while (reader.Next(block)) {
            num_cases += block.num_cases;
            TakeBlock(block);
            if (!progress.Step(reader.Fraction())) FailWith<6590>(ABORTED_CND);
        }
        if (counting->Width() == 1 && is_kept) order = rows.SortedRows();
    }

    // incomplete[row] is negative for incomplete cases
    void FindIncomplete(const CaseBlock& block, std::vector<int32_t>& incomplete)
    {
        incomplete.assign(size_t(block.num_cases), counts_whole_cases ? 0 : -1);
        for (size_t column = 0; column < members.size(); ++column) {
            const int32_t* const known = block.states[column].data();
            int32_t all = -1;
            for (int row = 0; row < block.num_cases; ++row) {
                incomplete[size_t(row)] |= known[row];
                all &= known[row];
            }
            if (all >= 0) is_told[column] = 1;
        }
        for (const CaseLikelihood& soft : block.likelihoods) is_told[size_t(soft.column)] = 1;
    }

    void TakeBlock(const CaseBlock& block)
    {
        std::vector<int32_t> incomplete;
        FindIncomplete(block, incomplete);
        std::vector<double> times;
        const bool plain = degree == 1 && std::all_of(block.weights.begin(), block.weights.end(),
                                                      [](double weight) { return weight == 1; });
        if (!plain)
            for (double weight : block.weights) {
                times.push_back(degree * weight);
                CheckCaseWeight(times.back());
            }
        const double* const given = plain ? nullptr : times.data();
        for (FamilyCounter& counter : whole_cases) counter.Add(block, given, incomplete.data());
        for (int32_t& skip : incomplete) skip = ~skip;
        for (FamilyCounter& counter : whole_families) counter.Add(block, given, incomplete.data());
        if (is_kept) KeepRows(block, incomplete);
    }

    // Those that are not skipped.
    void KeepRows(const CaseBlock& block, const std::vector<int32_t>& skip)
    {
        VisitRows(block, skip, [&](int row, double weight, std::span<const CaseLikelihood> soft) {
            if (soft.empty())
                rows.Add(block, row, weight);
            else
                KeepSoftRow(block, row, weight, soft);
        });
        if (rows.Bytes() + soft_bytes <= most_bytes) return;
        is_kept = false;
        rows.Clear();
        soft_rows = {};
    }

    // Calls visit (row, weight, likelihoods) for the cases of a block that are not skipped.
    template <class Visit>
    void VisitRows(const CaseBlock& block, const std::vector<int32_t>& skip, Visit visit)
    {
        size_t next = 0;
        const auto& all = block.likelihoods;
        for (int row = 0; row < block.num_cases; ++row) {
            const size_t first = next;
            while (next < all.size() && all[next].row == row) ++next;
            const double weight = degree * block.weights[size_t(row)];
            if (skip[size_t(row)] >= 0 && weight != 0)
                visit(row, weight, std::span(all.data() + first, next - first));
        }
    }

    void StatesOf(const CaseBlock& block, int row, int32_t* to) const
    {
        std::fill(to, to + num_variables, -1);
        for (size_t column = 0; column < members.size(); ++column)
            to[variables[column]] = std::max(-1, block.states[column][size_t(row)]);
    }

    void KeepSoftRow(const CaseBlock& block, int row, double weight, std::span<const CaseLikelihood> soft)
    {
        SoftRow& kept = soft_rows.emplace_back();
        kept.weight = weight;
        kept.states.resize(size_t(num_variables));
        StatesOf(block, row, kept.states.data());
        for (const CaseLikelihood& one : soft) {
            const int variable = variables[size_t(one.column)];
            if (kept.states[size_t(variable)] >= 0) continue;
            kept.numbers.push_back(one.weights);
            kept.weights.push_back({variable, kept.numbers.back().data()});
            soft_bytes += double(one.weights.size() * sizeof(float) + sizeof one);
        }
        soft_bytes += double(kept.states.size() * sizeof(int32_t) + sizeof kept);
    }

    // ---- Evaluating ----

    void Start(const TableSet& tables, std::vector<Counts>* wanted)
    {
        counts = wanted;
        inference = wanted ? counting.get() : measuring.get();
        log_likelihood = 0;
        has_impossible = false;
        batch.clear();
        weights.clear();
        for (size_t f = 0; f < learned.size(); ++f)
            inference->UseTable(family_variables[f], tables[f].data());
        if (counts == nullptr) return;
        counts->resize(learned.size());
        for (size_t f = 0; f < learned.size(); ++f) {
            Counts& sum = (*counts)[f];
            sum = whole_cases[f].Total();
            const Counts& others = whole_families[f].Total();
            for (size_t at = 0; at < sum.size(); ++at) sum[at] += others[at];
        }
    }

    void MeasureWholeCases(const TableSet& tables)
    {
        for (size_t f = 0; f < families.size(); ++f) {
            const Counts& seen = whole_cases[f].Total();
            const TableVector<float>& table = f < learned.size() ? tables[f] : fixed[f - learned.size()];
            for (size_t at = 0; at < seen.size(); ++at) {
                if (!(seen[at] > 0)) continue;
                if (table[at] > 0)
                    log_likelihood += seen[at] * std::log(double(table[at]));
                else
                    has_impossible = true;
            }
        }
    }

    int32_t* NextStates() { return states.data() + batch.size() * size_t(num_variables); }

    void Put(const int32_t* known, std::span<const CaseFindings::Weights> soft, double weight)
    {
        batch.push_back({known, soft});
        weights.push_back(weight);
        if (int(batch.size()) == inference->Width()) RunBatch();
    }

    bool TellsFamily(const LearnedFamily& family, const int32_t* known) const
    {
        int32_t all = 0;
        for (int column : family.columns) all |= known[variables[size_t(column)]];
        return all >= 0;
    }

    void RunBatch()
    {
        if (batch.empty()) return;
        inference->Run(batch);
        for (size_t k = 0; k < batch.size(); ++k) {
            const double log_prob = inference->LogProbability(int(k));
            if (std::isinf(log_prob))
                has_impossible = true;
            else
                log_likelihood += weights[k] * log_prob;
        }
        if (counts != nullptr && !has_impossible) AddExpected();
        batch.clear();
        weights.clear();
    }

    void AddExpected()
    {
        family_weights.resize(batch.size());
        for (size_t f = 0; f < learned.size(); ++f) {
            bool any = false;
            for (size_t k = 0; k < batch.size(); ++k) {
                const bool is_counted = TellsFamily(families[f], batch[k].states);
                family_weights[k] = is_counted ? 0 : weights[k];
                any |= !is_counted;
            }
            if (any) inference->AddFamilyCounts(family_variables[f], family_weights, (*counts)[f].data());
        }
    }

    bool RunKept(Progress& progress, double fraction)
    {
        for (size_t i = 0; i < rows.Size(); ++i) {
            const size_t row = order.empty() ? i : order[i];
            int32_t* const known = NextStates();
            rows.Unpack(row, variables, known);
            Put(known, {}, rows.Weight(row));
            if (batch.empty() && (has_impossible || !progress.Step(fraction))) return has_impossible;
        }
        RunBatch();
        for (const SoftRow& row : soft_rows) {
            Put(row.states.data(), row.weights, row.weight);
            if (!progress.Step(fraction)) return false;
        }
        RunBatch();
        return true;
    }

    bool RunRead(Progress& progress, double fraction)
    {
        CaseBlock block;
        std::vector<int32_t> skip;
        std::vector<std::vector<CaseFindings::Weights>> soft_of(batch.capacity());
        reader.Rewind();
        while (reader.Next(block)) {
            FindIncomplete(block, skip);
            for (int32_t& one : skip) one = ~one;
            VisitRows(block, skip, [&](int row, double weight, std::span<const CaseLikelihood> soft) {
                int32_t* const known = NextStates();
                StatesOf(block, row, known);
                auto& given = soft_of[batch.size()];
                given.clear();
                for (const CaseLikelihood& one : soft)
                    if (known[variables[size_t(one.column)]] < 0)
                        given.push_back({variables[size_t(one.column)], one.weights.data()});
                Put(known, given, weight);
            });
            RunBatch();
            if (has_impossible || !progress.Step(fraction)) return has_impossible;
        }
        return true;
    }

    // Some case is impossible: finds the first one and says which.
    [[noreturn]] void FailImpossible(const TableSet& tables)
    {
        Start(tables, nullptr);
        CaseBlock block;
        reader.Rewind();
        std::vector<CaseFindings::Weights> given;
        while (reader.Next(block)) {
            const std::vector<int32_t> none(size_t(block.num_cases), 0);
            VisitRows(block, none, [&](int row, double, std::span<const CaseLikelihood> soft) {
                given.clear();
                StatesOf(block, row, states.data());
                for (const CaseLikelihood& one : soft)
                    if (states[size_t(variables[size_t(one.column)])] < 0)
                        given.push_back({variables[size_t(one.column)], one.weights.data()});
                const CaseFindings findings{states.data(), given};
                measuring->Run({&findings, 1});
                if (std::isinf(measuring->LogProbability(0))) FailAtCase(block, row);
            });
        }
        FailWith<6591>(INCONSISTENT_FINDING_CND, net.name.c_str());
    }

    [[noreturn]] void FailAtCase(const CaseBlock& block, int row)
    {
        const std::string number = " " + std::to_string(block.case_numbers[size_t(row)]);
        const std::string line = " (file line number " + std::to_string(block.lines[size_t(row)]) + ")";
        const FilePlace place{reader.Source().name.c_str(), kNoPosition, nullptr};
        throw Unwind{RaiseWith<6592>({.conditions = INCONSISTENT_FINDING_CND, .place = place},
                                     net.name.c_str(), number.c_str(), line.c_str())};
    }

    bool Evaluate(const TableSet& tables, std::vector<Counts>* wanted, Progress& progress, double fraction)
    {
        Start(tables, wanted);
        MeasureWholeCases(tables);
        bool is_done = true;
        try {
            if (!has_impossible)
                is_done = is_kept ? RunKept(progress, fraction) : RunRead(progress, fraction);
        } catch (const Unwind& unwind) {
            if (!HasCondition(*unwind.record, ABORTED_CND)) throw;
            ThisThread().failed = false;
            ClearReport(unwind.record);
            return false;
        }
        if (has_impossible) FailImpossible(tables);
        return is_done;
    }
};

LearnData::LearnData(Net& net, std::span<Node* const> nodes, const Caseset& cases, double degree,
                     double most_bytes)
    : engine_(std::make_unique<Engine>(net, nodes, cases, degree, most_bytes))
{}

LearnData::~LearnData() = default;

const std::vector<LearnedFamily>& LearnData::Families() const
{
    return engine_->families;
}

int64_t LearnData::NumCases() const
{
    return engine_->num_cases;
}

bool LearnData::IsKept() const
{
    return engine_->is_kept;
}

TableSet LearnData::StartTables(randgen_vx* generator) const
{
    TableSet tables;
    for (size_t f = 0; f < engine_->learned.size(); ++f) {
        const LearnedFamily& family = engine_->families[f];
        TableVector<float>& table = tables.emplace_back(CompleteTable(family));
        TableVector<float> scratch;
        const bool is_hidden = std::any_of(family.columns.begin(), family.columns.end(),
                                           [&](int column) { return !engine_->is_told[size_t(column)]; });
        if (generator == nullptr || !is_hidden || EffectiveProbs(*family.node, scratch) != nullptr) continue;
        for (int64_t row = 0; row < family.num_rows; ++row) {
            float* const at = table.data() + row * family.num_states;
            double sum = 0;
            for (int s = 0; s < family.num_states; ++s)
                sum += double(at[s] = float(0.5 + NextUniform(generator->state)));
            for (int s = 0; s < family.num_states; ++s) at[s] = float(double(at[s]) / sum);
        }
    }
    return tables;
}

std::vector<Counts> LearnData::PriorCounts() const
{
    std::vector<Counts> counts;
    for (size_t f = 0; f < engine_->learned.size(); ++f)
        counts.push_back(CountsOf(*engine_->learned[f], engine_->families[f]));
    for (size_t f = 0; f < counts.size(); ++f)
        CheckTotal(*engine_->learned[f], std::accumulate(counts[f].begin(), counts[f].end(), 0.0));
    return counts;
}

bool LearnData::Evaluate(const TableSet& tables, std::vector<Counts>* counts, double* minus_log_likelihood,
                         Progress& progress, double fraction)
{
    const bool is_done = engine_->Evaluate(tables, counts, progress, fraction);
    *minus_log_likelihood = 0 - engine_->log_likelihood;
    return is_done;
}

// ---- What the methods share ----

double MinusLogPrior(const TableSet& tables, const std::vector<Counts>& prior)
{
    double sum = 0;
    for (size_t f = 0; f < tables.size(); ++f)
        for (size_t at = 0; at < tables[f].size(); ++at)
            if (prior[f][at] > 0) sum -= prior[f][at] * std::log(double(tables[f][at]));
    return sum;
}

void StoreLearned(const LearnData& data, TableSet tables, const std::vector<Counts>& counts)
{
    std::vector<LearnedTables> results;
    for (size_t f = 0; f < tables.size(); ++f) {
        const LearnedFamily& family = data.Families()[f];
        LearnedTables& result = results.emplace_back(LearnedTables{family.node, {}});
        result.tables.experience.resize(size_t(family.num_rows));
        TableVector<float> scratch;
        const float* const old = EffectiveProbs(*family.node, scratch);
        for (int64_t row = 0; row < family.num_rows; ++row) {
            const int64_t first = row * family.num_states;
            const double* const from = counts[f].data() + first;
            const double sum = std::accumulate(from, from + family.num_states, 0.0);
            CheckTotal(*family.node, sum);
            result.tables.experience[size_t(row)] = sum;
            if (!(sum > 0) && old != nullptr)
                std::copy_n(old + first, family.num_states, tables[f].data() + first);
        }
        result.tables.probs = std::move(tables[f]);
    }
    StoreTables(std::move(results), "learn tables from cases");
}

void PrintIterationHeader(const char* banner)
{
    PrintMessage(banner);
    PrintMessage("  Iteration  -Log Likelihood   Change %\n");
}

void PrintIteration(int iteration, const LearnIteration& known)
{
    // "  %9d   %-14g" and "   %.4f", without the locale of C.
    char number[400];
    std::string text = std::to_string(iteration);
    text.insert(0, 2 + (text.size() < 9 ? 9 - text.size() : 0), ' ');
    auto end = std::to_chars(number, number + sizeof number, known.minus_log_likelihood,
                             std::chars_format::general, 6)
                   .ptr;
    std::string likelihood(number, end);
    likelihood.resize(std::max<size_t>(14, likelihood.size()), ' ');
    text += "   " + likelihood;
    if (!IsUndef(known.change)) {
        end = std::to_chars(number, number + sizeof number, 100 * known.change, std::chars_format::fixed, 4)
                  .ptr;
        text += "   " + std::string(number, end);
    }
    PrintMessage(text + "\n");
}

double RelativeChange(double before, double after)
{
    return before == 0 ? 0 : (before - after) / before;
}

}  // namespace talora
