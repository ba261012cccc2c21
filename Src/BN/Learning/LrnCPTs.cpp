// Learning by counting: families, counts of their configurations, and tables from counts.
#include "BN/Learning/LrnCPTs.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <utility>

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
constexpr double kDoubleRounding = 0x1p-44;  // of a count that was kept

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

// A count that is a whole number within single precision.
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

void CheckCaseWeight(double weight)
{
    if (!(std::fabs(weight) <= kMostCases)) Fail<7302>(weight, kMostCases);
}

void CheckTotal(const Node& node, double total)
{
    if (!(total <= kMostCases)) Fail<7303>(node.name.c_str(), total, kMostCases);
}

namespace {

// To the 15 digits that a decimal number keeps on its way through a double, so that adding and taking away
// what is no binary fraction leads back to the number that was there.
double Rounded15(double value)
{
    if (!(value > 0) || value >= 1e15 || value < 1e-7) return value;
    const double scale = std::pow(10, 14 - int(std::floor(std::log10(value))));
    return std::round(value * scale) / scale;
}

// Counts of a row: each exact, and their total, which is kept apart as the probabilities that a row began
// with need not add up to 1 to the last digit.
struct RowOfCounts {
    ExactSum* counts;
    ExactSum* total;
};

constexpr int kSumDoubles = sizeof(ExactSum) / sizeof(double);

// How a row stands in NodeTables::counts: the sums of the states and the total.
int64_t KeptDoubles(int num_states)
{
    return (int64_t(num_states) + 1) * kSumDoubles;
}

double ShownTotal(const ExactSum& total)
{
    return Rounded15(total.high);
}

// One row of the counts of a node with experience.
// @param probs  the row of the table, null for none
// @return whether they are as exact as when they were learned
bool ReadRow(const NodeTables& tables, int64_t row, int num_states, const float* probs, RowOfCounts to)
{
    const double experience = tables.experience[size_t(row)];
    *to.total = {experience, 0};
    std::fill(to.counts, to.counts + num_states, ExactSum{});
    if (!(experience > 0)) return true;
    if (!tables.counts.empty() && probs != nullptr) {
        const double* const kept = tables.counts.data() + row * KeptDoubles(num_states);
        const double* const total = kept + num_states * kSumDoubles;
        bool explains = experience == ShownTotal({total[0], total[1]});
        for (int s = 0; s < num_states; ++s)
            explains &= probs[s] == float(kept[s * kSumDoubles] / experience);
        if (explains) {
            for (int s = 0; s < num_states; ++s)
                to.counts[s] = {kept[s * kSumDoubles], kept[s * kSumDoubles + 1]};
            *to.total = {total[0], total[1]};
            return true;
        }
    }
    for (int s = 0; s < num_states; ++s) {
        const double prob = probs == nullptr ? 1.0 / num_states : double(probs[s]);
        if (prob > 0) to.counts[s] = {WholeIfExplained(prob * experience), 0};
    }
    return false;
}

void WriteRow(RowOfCounts from, int num_states, float* probs, double* experience)
{
    const bool has_counts = std::any_of(from.counts, from.counts + num_states,
                                        [](const ExactSum& count) { return count.high > 0; });
    if (!has_counts || !(from.total->high > 0)) *from.total = {};
    *experience = ShownTotal(*from.total);
    for (int s = 0; s < num_states; ++s)
        probs[s] = *experience > 0 ? float(from.counts[s].high / *experience) : 1.0f / float(num_states);
}

// Whether a row of tables gives its counts back without their being kept.
bool Explains(RowOfCounts row, int num_states, const float* probs, double experience)
{
    if (row.total->high != experience || row.total->low != 0) return false;
    for (int s = 0; s < num_states; ++s)
        if (WholeIfExplained(double(probs[s]) * experience) != row.counts[s].high || row.counts[s].low != 0)
            return false;
    return true;
}

void KeepRow(RowOfCounts row, int num_states, double* kept)
{
    for (int s = 0; s <= num_states; ++s) {
        const ExactSum& sum = s < num_states ? row.counts[s] : *row.total;
        kept[s * kSumDoubles] = sum.high;
        kept[s * kSumDoubles + 1] = sum.low;
    }
}

// The tables of a node before counting: a table and its experience.
NodeTables TablesToCount(const Node& node, const LearnedFamily& family)
{
    CheckMemory(double(family.Size()) * sizeof(float) + double(family.num_rows) * sizeof(double),
                "to learn the >-CPTable of >-node '%s'", node.name.c_str());
    NodeTables tables;
    TableVector<float> scratch;
    const float* const probs = node.tables.experience.empty() ? nullptr : EffectiveProbs(node, scratch);
    if (probs != nullptr)
        tables.probs.assign(probs, probs + family.Size());
    else
        tables.probs.assign(size_t(family.Size()), 1.0f / float(family.num_states));
    tables.experience = node.tables.experience;
    tables.experience.resize(size_t(family.num_rows), 0.0);
    tables.counts = node.tables.counts;
    return tables;
}

// Puts new counts of a row into tables; those that the row would not give back are kept.
void ReviseRow(NodeTables& tables, const LearnedFamily& family, int64_t row, RowOfCounts counts)
{
    CheckTotal(*family.node, counts.total->high);
    const int num_states = family.num_states;
    float* const probs = tables.probs.data() + row * num_states;
    double* const experience = &tables.experience[size_t(row)];
    WriteRow(counts, num_states, probs, experience);
    if (tables.counts.empty() && Explains(counts, num_states, probs, *experience)) return;
    if (tables.counts.empty()) {
        const double size = double(family.num_rows) * double(KeptDoubles(num_states));
        CheckMemory(size * sizeof(double), "to learn the >-CPTable of >-node '%s'",
                    family.node->name.c_str());
        tables.counts.assign(size_t(size), 0.0);
    }
    KeepRow(counts, num_states, tables.counts.data() + row * KeptDoubles(num_states));
}

}  // namespace

Counts CountsOf(const Node& node, const LearnedFamily& family)
{
    CheckMemory(double(family.Size()) * sizeof(double), "to learn the >-CPTable of >-node '%s'",
                node.name.c_str());
    Counts counts(size_t(family.Size()), 0.0);
    if (node.tables.experience.empty()) return counts;
    TableVector<float> scratch;
    const float* const probs = EffectiveProbs(node, scratch);
    const int num_states = family.num_states;
    std::vector<ExactSum> sums(size_t(num_states) + 1);
    for (int64_t row = 0; row < family.num_rows; ++row) {
        ReadRow(node.tables, row, num_states, probs ? probs + row * num_states : nullptr,
                {sums.data(), &sums.back()});
        for (int s = 0; s < num_states; ++s) counts[size_t(row * num_states + s)] = sums[size_t(s)].high;
    }
    return counts;
}

namespace {

// Leans the rows towards the marginal counts; the experience, which counts cases alone, stays.
void Shrink(NodeTables& tables, const LearnedFamily& family, const TableVector<ExactSum>& counts)
{
    const int num_states = family.num_states;
    std::vector<double> marginal(size_t(num_states), 0.0);
    for (size_t at = 0; at < counts.size(); ++at) marginal[at % size_t(num_states)] += counts[at].high;
    const double total = std::accumulate(marginal.begin(), marginal.end(), 0.0);
    for (double& share : marginal) share = total > 0 ? share / total : 1.0 / num_states;
    const double added = num_states;
    for (size_t at = 0; at < counts.size(); ++at) {
        const double row_sum = tables.experience[at / size_t(num_states)];
        tables.probs[at] =
            float((counts[at].high + added * marginal[at % size_t(num_states)]) / (row_sum + added));
    }
    tables.counts = {};
}

}  // namespace

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
// @param rounding  of the count, relative
void AddToCount(ExactSum& count, double weight, double rounding, const Node& node, double degree,
                const UnlearnPlace& place)
{
    const double before = count.high;
    ExactSum sum = count;
    sum.Add(weight);
    if (sum.high < -std::max(kUnlearnTolerance, before * rounding)) FailUnlearning(node, degree, place);
    count = sum.high < (weight < 0 ? before * rounding : 0) ? ExactSum{} : sum;
}

// What one case has for the members of a family: a state, weights, or nothing.
struct FamilyCase {
    std::vector<int> states;            // by member; negative: see weights
    std::vector<const float*> weights;  // by member; null where nothing is known
};

// Whether the case has all members.
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
    NodeTables tables;            // as they were
    TableVector<ExactSum> counts;
    TableVector<ExactSum> totals;  // by row
    std::vector<char> is_exact;    // by row
    FamilyCounter counter;
    bool has_columns = false;  // some source has columns for all members
    int64_t num_counted = 0;   // cases that did not go through the counter

    RowOfCounts Row(int64_t row) { return {counts.data() + row * family.num_states, &totals[size_t(row)]}; }
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
            families.push_back({family, StateCounts(family, members), {}, {}, {}, {}, FamilyCounter(family)});
            CountedFamily& one = families.back();
            one.tables = TablesToCount(*node, family);
            CheckMemory(double(family.Size() + family.num_rows) * sizeof(ExactSum),
                        "to learn the >-CPTable of >-node '%s'", node->name.c_str());
            one.counts.resize(size_t(family.Size()));
            one.totals.resize(size_t(family.num_rows));
            for (int64_t row = 0; row < family.num_rows; ++row)
                one.is_exact.push_back(ReadRow(one.tables, row, family.num_states,
                                               one.tables.probs.data() + row * family.num_states,
                                               one.Row(row)));
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

// The case for each family that is complete in it; only_soft: some members by weights.
void CountingJob::TakeOne(const CaseBlock& block, int row, bool only_soft, const char* file)
{
    const double weight = degree * block.weights[size_t(row)];
    CheckCaseWeight(weight);
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
            const auto in_row = size_t(at / one.family.num_states);
            const double rounding = one.is_exact[in_row] ? kDoubleRounding : kSingleRounding;
            AddToCount(one.counts[size_t(at)], weight * share, rounding, *one.family.node, weight, place);
            one.totals[in_row].Add(weight * share);
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
            for (double weight : block.weights) {
                weights.push_back(degree * weight);
                CheckCaseWeight(weights.back());
            }
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

// Adds what was counted, and puts the rows that have changed into the tables.
void Revise(CountedFamily& one, const Counts& added, bool shrinks)
{
    const int num_states = one.family.num_states;
    for (int64_t row = 0; row < one.family.num_rows; ++row) {
        const RowOfCounts counts = one.Row(row);
        for (int s = 0; s < num_states; ++s) {
            const double more = added[size_t(row * num_states + s)];
            counts.counts[s].Add(more);
            counts.total->Add(more);
        }
        if (ShownTotal(*counts.total) != one.tables.experience[size_t(row)])
            ReviseRow(one.tables, one.family, row, counts);
    }
    if (shrinks) Shrink(one.tables, one.family, one.counts);
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

    // 2. Tables of the nodes that cases counted for.
    std::vector<LearnedTables> results;
    for (CountedFamily& one : job.families) {
        const Counts& added = one.counter.Total();
        if (one.num_counted + one.counter.NumCounted() == 0) continue;
        Revise(one, added, shrinks);
        results.push_back({one.family.node, std::move(one.tables)});
    }
    CheckApplied(job.families, num_cases);
    StoreTables(std::move(results), "learn tables from cases");
    return num_cases;
}

namespace {

// A row of a table as a case leaves it.
struct RevisedRow {
    std::vector<ExactSum> sums;  // of the states, and the total
    std::vector<float> probs;
    double experience = 0;
    RowOfCounts Counts() { return {sums.data(), &sums.back()}; }
};
using RevisedRows = std::map<int64_t, RevisedRow>;

// The rows that a case touches.
// @param tables  with a table and an experience
RevisedRows ReviseRows(const NodeTables& tables, const LearnedFamily& family,
                       std::span<const int> member_states, const FamilyCase& known, double degree)
{
    const int num_states = family.num_states;
    RevisedRows rows;
    std::map<int64_t, double> rounding;
    ShareOut(family, member_states, known, [&](int64_t at, double share) {
        const int64_t in_row = at / num_states;
        const auto [place, is_new] = rows.try_emplace(in_row);
        RevisedRow& row = place->second;
        if (is_new) {
            row.sums.resize(size_t(num_states) + 1);
            const bool exact =
                ReadRow(tables, in_row, num_states, tables.probs.data() + in_row * num_states, row.Counts());
            rounding[in_row] = exact ? kDoubleRounding : kSingleRounding;
        }
        AddToCount(row.sums[size_t(at % num_states)], degree * share, rounding[in_row], *family.node, degree,
                   {});
        row.sums.back().Add(degree * share);
    });
    for (auto& [in_row, row] : rows) {
        CheckTotal(*family.node, row.sums.back().high);
        row.probs.resize(size_t(num_states));
        WriteRow(row.Counts(), num_states, row.probs.data(), &row.experience);
    }
    return rows;
}

bool AllExplain(RevisedRows& rows)
{
    return std::all_of(rows.begin(), rows.end(), [](auto& each) {
        RevisedRow& row = each.second;
        return Explains(row.Counts(), int(row.probs.size()), row.probs.data(), row.experience);
    });
}

// Some rows of the tables of a node, which has a table and an experience.
void StoreRows(Node& node, RevisedRows& rows, const char* what)
{
    std::vector<int64_t> in_experience, in_table, in_counts;
    std::vector<float> probs;
    std::vector<double> counts, experience;
    const int num_states = NumStates(node);
    const int64_t kept = KeptDoubles(num_states);
    for (auto& [in_row, row] : rows) {
        in_experience.push_back(in_row);
        in_table.push_back(in_row * num_states);
        in_counts.push_back(in_row * kept);
        probs.insert(probs.end(), row.probs.begin(), row.probs.end());
        counts.resize(counts.size() + size_t(kept));
        KeepRow(row.Counts(), num_states, counts.data() + counts.size() - kept);
        experience.push_back(row.experience);
    }
    ChangeRuns(node, &NodeTables::probs, in_table, num_states, std::move(probs), RETABLES, what);
    ChangeRuns(node, &NodeTables::experience, in_experience, 1, std::move(experience), NO_EFFECT, what);
    if (!node.tables.counts.empty())
        ChangeRuns(node, &NodeTables::counts, in_counts, kept, std::move(counts), NO_EFFECT, what);
}

}  // namespace

// What is revised costs as much as the rows that the case touches, but where a node gets its first
// experience, or its first counts that must be kept.
void ReviseByFindings(std::span<Node* const> nodes, double degree)
{
    constexpr const char* kWhat = "revise tables by findings";
    CheckCaseWeight(degree);
    const std::vector<Node*> learned = LearnableNodes(nodes);
    const std::vector<Node*> members = FamilyMembers(learned);
    std::vector<LearnedTables> results;
    std::vector<std::pair<Node*, RevisedRows>> some_rows;

    // 1. The new rows of every node that the findings count for.
    for (Node* node : learned) {
        const LearnedFamily family = FamilyIn(*node, members);
        FamilyCase known;
        for (int column : family.columns) {
            const NodeFinding& finding = members[size_t(column)]->finding;
            known.states.push_back(finding.state);
            known.weights.push_back(finding.likelihood.empty() ? nullptr : finding.likelihood.data());
        }
        if (!TellsAll(known)) continue;
        const std::vector<int> member_states = StateCounts(family, members);
        const NodeTables& present = node->tables;
        const bool has_rows = !present.probs.empty() && !present.experience.empty() &&
                              present.func_states.empty() && present.func_reals.empty();
        NodeTables whole;
        if (!has_rows) whole = TablesToCount(*node, family);
        RevisedRows rows = ReviseRows(has_rows ? present : whole, family, member_states, known, degree);
        if (has_rows && (!present.counts.empty() || AllExplain(rows))) {
            if (!rows.empty()) some_rows.emplace_back(node, std::move(rows));
            continue;
        }
        if (has_rows) whole = TablesToCount(*node, family);
        for (auto& [in_row, row] : rows) ReviseRow(whole, family, in_row, row.Counts());
        results.push_back({node, std::move(whole)});
    }

    // 2. Into the net.
    StoreTables(std::move(results), kWhat);
    for (auto& [node, rows] : some_rows) StoreRows(*node, rows, kWhat);
}

namespace {

void LearnByMethod(Learner& learner, std::span<Node* const> nodes, const Caseset& cases, double degree)
{
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

}  // namespace

// A learner that fails tells of what it learned before.
void LearnTables(Learner& learner, std::span<Node* const> nodes, const Caseset& cases, double degree)
{
    std::vector<LearnIteration> history = std::exchange(learner.history, {});
    const int64_t num_cases = std::exchange(learner.num_cases, 0);
    try {
        LearnByMethod(learner, nodes, cases, degree);
    } catch (...) {
        learner.history = std::move(history);
        learner.num_cases = num_cases;
        throw;
    }
}

}  // namespace talora
