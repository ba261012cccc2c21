#include "BN/Learning/LrnCPTs.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "BN/Inference/BnUpdating.h"
#include "BN/Learning/LR_EMAlgo.h"
#include "BN/Learning/LR_GradientAscent.h"
#include "BN/Model/BnEdit.h"
#include "BN/Model/BnProbs.h"
#include "Basic/Error.h"
#include "Basic/Progress.h"
#include "Basic/Text.h"

namespace talora {

namespace {

constexpr double kUnlearnTolerance = 2e-6;   // a count may come out so far below 0
constexpr double kSingleRounding = 0x1p-23;  // of a count that comes from a table

int FixedState(const Node& node)
{
    return node.kind == CONSTANT_NODE ? ConstantState(node) : -1;
}

bool CanLearn(const Node& node)
{
    if (node.kind != NATURE_NODE || !HasStates(node)) return false;
    return std::all_of(node.links.begin(), node.links.end(),
                       [](const Link& link) { return HasStates(*link.parent); });
}

// A count that is a whole number as far as single-precision tables can tell.
double WholeIfExplained(double count)
{
    const double whole = std::round(count);
    return std::fabs(count - whole) <= count * kSingleRounding ? whole : count;
}

}  // namespace

// ---- Families ----

std::vector<Node*> LearnableNodes(std::span<Node* const> nodes)
{
    std::vector<Node*> learned;
    if (nodes.empty()) return learned;
    std::vector<char> seen(nodes[0]->net->nodes.nodes.size());
    for (Node* node : nodes)
        if (CanLearn(*node) && !std::exchange(seen[size_t(node->index)], 1)) learned.push_back(node);
    return learned;
}

std::vector<Node*> FamilyMembers(std::span<Node* const> learned)
{
    std::vector<Node*> members;
    if (learned.empty()) return members;
    std::vector<char> seen(learned[0]->net->nodes.nodes.size());
    const auto add = [&](Node* node) {
        if (FixedState(*node) < 0 && !std::exchange(seen[size_t(node->index)], 1)) members.push_back(node);
    };
    for (Node* node : learned) {
        add(node);
        for (const Link& link : node->links) add(link.parent);
    }
    return members;
}

LearnedFamily FamilyIn(Node& node, std::span<Node* const> members)
{
    LearnedFamily family;
    family.node = &node;
    family.num_states = NumStates(node);
    family.num_rows = int64_t(NumRows(node));
    const double entries = TableEntries(node);
    if (entries > kMaxTableEntries) Fail<6583>(node.name.c_str(), entries);
    const auto add = [&](const Node& member, int64_t stride) {
        const int fixed = FixedState(member);
        if (fixed >= 0) {
            family.base += stride * fixed;
            return;
        }
        const auto found = std::find(members.begin(), members.end(), &member);
        TALORA_CHECK(found != members.end());
        family.columns.push_back(int(found - members.begin()));
        family.strides.push_back(stride);
    };
    int64_t stride = int64_t(entries);
    for (const Link& link : node.links) {
        stride /= NumStates(*link.parent);
        add(*link.parent, stride);
    }
    add(node, 1);
    return family;
}

// ---- Counts and tables ----

Counts CountsOf(const Node& node, const LearnedFamily& family)
{
    CheckMemory(double(family.Size()) * sizeof(double), "to learn the >-CPTable of >-node '%s'",
                node.name.c_str());
    Counts counts(size_t(family.Size()), 0.0);
    const auto& experience = node.tables.experience;
    if (experience.empty()) return counts;
    TableVector<float> scratch;
    const float* const probs = EffectiveProbs(node, scratch);
    for (int64_t row = 0; row < family.num_rows; ++row) {
        if (!(experience[size_t(row)] > 0)) continue;
        for (int state = 0; state < family.num_states; ++state) {
            const int64_t at = row * family.num_states + state;
            const double prob = probs == nullptr ? 1.0 / family.num_states : double(probs[at]);
            if (prob > 0) counts[size_t(at)] = WholeIfExplained(prob * experience[size_t(row)]);
        }
    }
    return counts;
}

NodeTables TablesFromCounts(const LearnedFamily& family, const Counts& counts)
{
    NodeTables tables;
    tables.probs.resize(counts.size());
    tables.experience.resize(size_t(family.num_rows));
    const int num_states = family.num_states;
    for (int64_t row = 0; row < family.num_rows; ++row) {
        const double* const from = counts.data() + row * num_states;
        float* const to = tables.probs.data() + row * num_states;
        const double sum = std::accumulate(from, from + num_states, 0.0);
        for (int state = 0; state < num_states; ++state)
            to[state] = sum > 0 ? float(from[state] / sum) : 1.0f / float(num_states);
        tables.experience[size_t(row)] = sum;
    }
    return tables;
}

NodeTables ShrunkTables(const LearnedFamily& family, const Counts& counts)
{
    NodeTables tables = TablesFromCounts(family, counts);
    const int num_states = family.num_states;
    std::vector<double> marginal(size_t(num_states), 0.0);
    for (size_t at = 0; at < counts.size(); ++at) marginal[at % size_t(num_states)] += counts[at];
    const double total = std::accumulate(marginal.begin(), marginal.end(), 0.0);
    for (double& share : marginal) share = total > 0 ? share / total : 1.0 / num_states;
    const double added = num_states;
    for (size_t at = 0; at < counts.size(); ++at) {
        const double row_sum = tables.experience[at / size_t(num_states)];
        tables.probs[at] =
            float((counts[at] + added * marginal[at % size_t(num_states)]) / (row_sum + added));
    }
    return tables;
}

void StoreTables(std::vector<LearnedTables> learned, const char* what)
{
    for (LearnedTables& one : learned)
        Change(*one.node, one.node->tables, std::move(one.tables), RETABLES, what);
}

// ---- Counting complete cases ----

namespace {

constexpr int kCopies = 4;
constexpr int64_t kSmallTable = 1024;
constexpr int64_t kMostInWhole = int64_t{1} << 31;
constexpr int kChunk = 1024;

// places[i] = the cell of case first + i, or `outside` where a member is not known.  Straight loops over one
// column at a time, for vector instructions.
void FindPlaces(const LearnedFamily& family, const CaseBlock& block, int first, int count,
                const int32_t* skip, int32_t* __restrict places)
{
    int32_t unknown[kChunk];
    for (int i = 0; i < count; ++i) {
        places[i] = int32_t(family.base);
        unknown[i] = skip != nullptr ? skip[first + i] : 0;
    }
    for (size_t member = 0; member < family.columns.size(); ++member) {
        const int32_t* const states = block.states[size_t(family.columns[member])].data() + first;
        const auto stride = int32_t(family.strides[member]);
        for (int i = 0; i < count; ++i) {
            unknown[i] |= states[i];
            places[i] += states[i] * stride;
        }
    }
    const auto outside = int32_t(family.Size());
    for (int i = 0; i < count; ++i) places[i] = unknown[i] < 0 ? outside : places[i];
}

}  // namespace

FamilyCounter::FamilyCounter(const LearnedFamily& family) : family_(family)
{
    CheckMemory(double(family.Size()) * (sizeof(double) + sizeof(uint32_t)),
                "to learn the >-CPTable of >-node '%s'", family.node->name.c_str());
    counts_.assign(size_t(family.Size()), 0.0);
    whole_.assign(size_t(family.Size() + 1) * (family.Size() < kSmallTable ? kCopies : 1), 0);
}

void FamilyCounter::Flush()
{
    const size_t size = counts_.size();
    for (size_t copy = 0; copy < whole_.size(); copy += size + 1) {
        for (size_t at = 0; at < size; ++at) {
            counts_[at] += whole_[copy + at];
            num_counted_ += whole_[copy + at];
        }
    }
    std::fill(whole_.begin(), whole_.end(), 0);
    in_whole_ = 0;
}

void FamilyCounter::Add(const CaseBlock& block, const double* weights, const int32_t* skip)
{
    int32_t places[kChunk];
    const size_t size = counts_.size();
    const size_t step = whole_.size() > size + 1 ? size + 1 : 0;
    if (in_whole_ + block.num_cases > kMostInWhole) Flush();
    for (int first = 0; first < block.num_cases; first += kChunk) {
        const int count = std::min(kChunk, block.num_cases - first);
        FindPlaces(family_, block, first, count, skip, places);
        if (weights != nullptr) {
            for (int i = 0; i < count; ++i) {
                if (size_t(places[i]) == size) continue;
                counts_[size_t(places[i])] += weights[first + i];
                ++num_counted_;
            }
            continue;
        }
        uint32_t* const whole = whole_.data();
        int i = 0;
        for (; i + kCopies <= count; i += kCopies)
            for (int copy = 0; copy < kCopies; ++copy)
                ++whole[size_t(copy) * step + size_t(places[i + copy])];
        for (; i < count; ++i) ++whole[places[i]];
    }
    if (weights == nullptr) in_whole_ += block.num_cases;
}

const Counts& FamilyCounter::Total()
{
    Flush();
    return counts_;
}

// ---- Revising counts ----

namespace {

// What a message says of the case that could not be unlearned.
struct UnlearnPlace {
    int64_t case_number = 0;
    const char* file = nullptr;
};

[[noreturn]] void FailUnlearning(const Node& node, double degree, const UnlearnPlace& place)
{
    if (place.file == nullptr) Fail<6584>(degree, node.name.c_str());
    Fail<6585>(degree, node.name.c_str(), static_cast<long long>(place.case_number), place.file);
}

// Adds to one count, which never goes below 0.  A difference of rounding is none.
void AddToCount(double& count, double weight, const Node& node, double degree, const UnlearnPlace& place)
{
    const double sum = count + weight;
    if (sum < -std::max(kUnlearnTolerance, count * kSingleRounding)) FailUnlearning(node, degree, place);
    count = sum < (weight < 0 ? count * kSingleRounding : 0) ? 0 : sum;
}

// What one case tells of the members of a family: a state, weights, or nothing.
struct FamilyCase {
    std::vector<int> states;            // by member; negative: see weights
    std::vector<const float*> weights;  // by member; null where nothing is known
};

// Whether the case tells all members.
bool TellsAll(const FamilyCase& known)
{
    for (size_t i = 0; i < known.states.size(); ++i)
        if (known.states[i] < 0 && known.weights[i] == nullptr) return false;
    return true;
}

// The configurations that the case leaves possible, each with its share of 1.  Members known by weights run
// through their states like the digits of a number.
template <class Visit>
void ShareOut(const LearnedFamily& family, std::span<const int> num_states, const FamilyCase& known,
              Visit visit)
{
    const size_t n = known.states.size();
    double total = 1;
    int64_t configurations = 1;
    for (size_t i = 0; i < n; ++i) {
        if (known.states[i] >= 0) continue;
        double sum = 0;
        for (int s = 0; s < num_states[i]; ++s) sum += double(known.weights[i][s]);
        total *= sum;
        configurations *= num_states[i];
    }
    if (!(total > 0)) return;
    for (int64_t configuration = 0; configuration < configurations; ++configuration) {
        int64_t at = family.base, rest = configuration;
        double share = 1;
        for (size_t i = 0; i < n; ++i) {
            int state = known.states[i];
            if (state < 0) {
                state = int(rest % num_states[i]);
                rest /= num_states[i];
                share *= double(known.weights[i][state]);
            }
            at += family.strides[i] * state;
        }
        if (share > 0) visit(at, share / total);
    }
}

std::vector<int> StateCounts(const LearnedFamily& family, std::span<Node* const> members)
{
    std::vector<int> counts;
    for (int column : family.columns) counts.push_back(NumStates(*members[size_t(column)]));
    return counts;
}

// One family while cases are counted.
struct CountedFamily {
    LearnedFamily family;
    std::vector<int> num_states;  // by member
    Counts counts;
    FamilyCounter counter;
    bool has_columns = false;  // some source tells of all members
    int64_t num_counted = 0;   // cases that did not go through the counter
};

// The counting of a case set.
struct CountingJob {
    std::vector<Node*> members;
    std::vector<CountedFamily> families;
    double degree = 1;
    FamilyCase known;
    std::vector<const CaseLikelihood*> soft;  // by column, of the case at hand

    CountingJob(std::span<Node* const> learned, double times) : members(FamilyMembers(learned)), degree(times)
    {
        soft.assign(members.size(), nullptr);
    }
    void MakeFamilies(std::span<Node* const> learned)
    {
        families.reserve(learned.size());
        for (Node* node : learned) {
            const LearnedFamily family = FamilyIn(*node, members);
            families.push_back(
                {family, StateCounts(family, members), CountsOf(*node, family), FamilyCounter(family)});
        }
    }
    void NoteColumns(const CaseReader& reader)
    {
        for (CountedFamily& one : families)
            if (!one.has_columns)
                one.has_columns = std::all_of(one.family.columns.begin(), one.family.columns.end(),
                                              [&](int column) { return reader.HasColumn(column); });
    }
    void Take(const CaseBlock& block, const char* file);
    void TakeOne(const CaseBlock& block, int row, bool only_soft, const char* file);
};

// The case for each family it tells all members of; only_soft: some of them by weights.
void CountingJob::TakeOne(const CaseBlock& block, int row, bool only_soft, const char* file)
{
    const double weight = degree * block.weights[size_t(row)];
    const UnlearnPlace place{block.case_numbers[size_t(row)], file};
    for (CountedFamily& one : families) {
        known.states.clear();
        known.weights.clear();
        bool is_soft = false;
        for (int column : one.family.columns) {
            const int state = block.states[size_t(column)][size_t(row)];
            const CaseLikelihood* const weights = state < 0 ? soft[size_t(column)] : nullptr;
            known.states.push_back(state);
            known.weights.push_back(weights ? weights->weights.data() : nullptr);
            is_soft |= weights != nullptr;
        }
        if ((only_soft && !is_soft) || !TellsAll(known)) continue;
        ShareOut(one.family, one.num_states, known, [&](int64_t at, double share) {
            AddToCount(one.counts[size_t(at)], weight * share, *one.family.node, weight, place);
        });
        ++one.num_counted;
    }
}

void CountingJob::Take(const CaseBlock& block, const char* file)
{
    const bool unlearns = degree < 0;
    if (!unlearns) {
        const bool plain = degree == 1 && std::all_of(block.weights.begin(), block.weights.end(),
                                                      [](double weight) { return weight == 1; });
        std::vector<double> weights;
        if (!plain)
            for (double weight : block.weights) weights.push_back(degree * weight);
        for (CountedFamily& one : families) one.counter.Add(block, plain ? nullptr : weights.data(), nullptr);
    }
    size_t next = 0;
    const auto& all = block.likelihoods;
    for (int row = 0; row < block.num_cases; ++row) {
        const size_t first = next;
        for (; next < all.size() && all[next].row == row; ++next) soft[size_t(all[next].column)] = &all[next];
        if (unlearns || next > first) TakeOne(block, row, !unlearns, file);
        for (size_t i = first; i < next; ++i) soft[size_t(all[i].column)] = nullptr;
        if (!unlearns && next == all.size()) break;
    }
}

void CheckApplied(const std::vector<CountedFamily>& families, int64_t num_cases)
{
    const bool any_columns = std::any_of(families.begin(), families.end(),
                                         [](const CountedFamily& one) { return one.has_columns; });
    if (families.empty() || (num_cases > 0 && !any_columns)) Fail<6586>();
    const bool any_counted = std::any_of(families.begin(), families.end(), [](const CountedFamily& one) {
        return one.num_counted + one.counter.NumCounted() > 0;
    });
    if (!any_counted) Fail<6587>();
}

}  // namespace

int64_t LearnByCounting(std::span<Node* const> nodes, const Caseset& cases, double degree, bool shrinks)
{
    const std::vector<Node*> learned = LearnableNodes(nodes);
    CountingJob job(learned, degree);
    CaseReader reader(cases, job.members);
    job.MakeFamilies(learned);

    // 1. Count.
    int64_t num_cases = 0;
    {
        Progress progress("incorporating cases");
        CaseBlock block;
        while (reader.Next(block)) {
            job.NoteColumns(reader);
            job.Take(block, reader.Source().name.c_str());
            num_cases += block.num_cases;
            const double fraction = reader.Fraction();
            if (progress.Step(fraction) || fraction >= 1) continue;
            PrintMessage(Format("Only %d cases were incorporated before action was halted (%2.0f%%).\n",
                                int(std::min<int64_t>(num_cases, INT32_MAX)), 100 * fraction));
            Notice<6588>(static_cast<long long>(num_cases));
            break;
        }
    }

    // 2. Tables of the nodes that the cases tell something about.
    std::vector<LearnedTables> results;
    for (CountedFamily& one : job.families) {
        const Counts& added = one.counter.Total();
        if (one.num_counted + one.counter.NumCounted() == 0) continue;
        for (size_t at = 0; at < added.size(); ++at) one.counts[at] += added[at];
        results.push_back({one.family.node, shrinks ? ShrunkTables(one.family, one.counts)
                                                    : TablesFromCounts(one.family, one.counts)});
    }
    CheckApplied(job.families, num_cases);
    StoreTables(std::move(results), "learn tables from cases");
    return num_cases;
}

void ReviseByFindings(std::span<Node* const> nodes, double degree)
{
    const std::vector<Node*> learned = LearnableNodes(nodes);
    const std::vector<Node*> members = FamilyMembers(learned);
    std::vector<LearnedTables> results;
    for (Node* node : learned) {
        const LearnedFamily family = FamilyIn(*node, members);
        FamilyCase known;
        for (int column : family.columns) {
            const NodeFinding& finding = members[size_t(column)]->finding;
            known.states.push_back(finding.state);
            known.weights.push_back(finding.likelihood.empty() ? nullptr : finding.likelihood.data());
        }
        if (!TellsAll(known)) continue;
        Counts counts = CountsOf(*node, family);
        ShareOut(family, StateCounts(family, members), known, [&](int64_t at, double share) {
            AddToCount(counts[size_t(at)], degree * share, *node, degree, {});
        });
        results.push_back({node, TablesFromCounts(family, counts)});
    }
    StoreTables(std::move(results), "revise tables by findings");
}

void LearnTables(Learner& learner, std::span<Node* const> nodes, const Caseset& cases, double degree)
{
    learner.history.clear();
    learner.num_cases = 0;
    switch (learner.method) {
        case COUNTING_METHOD:
        case MINDEP_METHOD:
            learner.num_cases = LearnByCounting(nodes, cases, degree, learner.method == MINDEP_METHOD);
            return;
        case EM_METHOD:
            return LearnByExpectation(learner, nodes, cases, degree);
        default:
            return LearnByGradient(learner, nodes, cases, degree);
    }
}

}  // namespace talora
