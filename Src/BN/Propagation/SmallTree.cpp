// Propagation through a small junction tree: layout, the way to the root, and beliefs on demand.
#include "BN/Propagation/SmallTree.h"

#include <algorithm>
#include <cmath>

#include "BN/Propagation/PotTable0.h"
#include "Basic/Error.h"
#include "Basic/FloatMode.h"
#include "Basic/KernelSet.h"

namespace talora {

namespace {

// Some 2^18 entries, each short of 2^-126, are less than a ten-millionth of that.
constexpr double kLeastMass = 0x1p-84;
constexpr int kShortRun = 4;  // shorter runs go entry by entry

const SmallKernels& ChosenKernels()
{
#if defined(__x86_64__)
    if (ChosenKernelSet() == KernelSet::kAvx512) return kAvx512SmallKernels;
    if (ChosenKernelSet() == KernelSet::kAvx2) return kAvx2SmallKernels;
#endif
    return kPlainSmallKernels;
}

}  // namespace

bool SmallTree::Suits(const JunctionTree& tree, double most_entries)
{
    return tree.num_cliques() > 0 && tree.total_size <= std::min(most_entries, kMostEntries);
}

SmallTree::SmallTree(const ModelGraph& graph, const JunctionTree& tree, TableSource table)
    : graph_(&graph), tree_(&tree), table_(std::move(table)), kernels_(&ChosenKernels())
{
    cliques_.resize(size_t(tree.num_cliques()));
    LayOut();
    PlaceWeights();
    PlaceBeliefs();
    PlaceTables();
    for (size_t v = 0; v < graph.variables.size(); ++v)
        if (tree.home[v] < 0) excess_of_decisions_ += std::log2(double(StatesOf(int(v))));
}

// ---- What is worked out with the tree. ----

int SmallTree::StatesOf(int variable) const
{
    return std::max(1, graph_->variables[size_t(variable)].num_states);
}

int SmallTree::SizeOf(std::span<const int> variables) const
{
    int64_t size = 1;
    for (int v : variables) size *= StatesOf(v);
    TALORA_CHECK(double(size) <= kMostEntries);
    return int(size);
}

// A clique's own members come first and then its separator, in the order of its mate: so the separator is the
// last axes here, and there in as long runs as can be.
void SmallTree::LayOut()
{
    for (int i = 0; i < tree_->num_cliques(); ++i) {
        std::vector<int> own, shared;
        const std::span<const int> separator = tree_->separators[i];
        const auto is_shared = [&](int v) {
            return std::find(separator.begin(), separator.end(), v) != separator.end();
        };
        for (int v : tree_->members[i])
            if (!is_shared(v)) own.push_back(v);
        if (i > 0)
            for (int v : members_[size_t(tree_->mate[size_t(i)])])
                if (is_shared(v)) shared.push_back(v);
        Clique& clique = cliques_[size_t(i)];
        clique.num_rows = SizeOf(own);
        clique.run = SizeOf(shared);
        own.insert(own.end(), shared.begin(), shared.end());
        clique.size = SizeOf(own);
        members_.push_back(std::move(own));
        separators_.push_back(std::move(shared));
        if (i == 0) continue;
        const int mate = tree_->mate[size_t(i)];
        clique.in_mate = SpreadOf(separators_.back(), members_[size_t(mate)]);
        cliques_[size_t(mate)].children.push_back({i, clique.in_mate});
    }
}

// `variables` are in the order in which they stand in `within`.
SmallSpread SmallTree::SpreadOf(std::span<const int> variables, std::span<const int> within)
{
    // 1. Strides in the smaller table, and the last axes that are all in it, or all not.
    std::vector<int> strides(within.size(), 0);
    int stride = 1, last_in = 1, last_out = 1;
    bool only_in = true, only_out = true;
    for (size_t k = within.size(); k-- > 0;) {
        const int states = StatesOf(within[k]);
        const bool is_in = std::find(variables.begin(), variables.end(), within[k]) != variables.end();
        if (is_in) {
            strides[k] = stride;
            stride *= states;
        }
        if (states > 1) (is_in ? only_out : only_in) = false;
        if (only_in) last_in *= states;
        if (only_out) last_out *= states;
    }
    SmallSpread spread;
    spread.size = stride;
    spread.run = last_in;
    if (last_in == stride) return spread;
    // 2. Per entry of the larger table its place in the smaller one, and the other way round.
    const int count = SizeOf(within);
    std::vector<uint16_t> places;
    places.reserve(size_t(count));
    std::vector<int> state(within.size(), 0);
    for (int entry = 0, place = 0; entry < count; ++entry) {
        places.push_back(uint16_t(place));
        for (size_t k = within.size(); k-- > 0;) {
            place += strides[k];
            if (++state[k] < StatesOf(within[k])) break;
            place -= strides[k] * state[k];
            state[k] = 0;
        }
    }
    const size_t each = places.size() / size_t(stride);
    std::vector<uint16_t> from(places.size());
    std::vector<size_t> end(static_cast<size_t>(stride));
    for (size_t s = 0; s < end.size(); ++s) end[s] = s * each;
    for (size_t entry = 0; entry < places.size(); ++entry) from[end[places[entry]]++] = uint16_t(entry);
    spread.from = int(places_.size());
    places_.insert(places_.end(), from.begin(), from.end());
    // 3. In runs where they are long enough.
    spread.shape = last_in >= kShortRun    ? SmallShape::kRuns
                   : last_out >= kShortRun ? SmallShape::kRepeats
                                           : SmallShape::kEntries;
    spread.run = std::max(last_in, last_out);
    if (spread.shape == SmallShape::kEntries) spread.run = 1;
    spread.places = int(places_.size());
    for (int entry = 0; entry < count; entry += spread.run) places_.push_back(places[size_t(entry)]);
    return spread;
}

void SmallTree::PlaceWeights()
{
    const size_t num_variables = graph_->variables.size();
    is_known_.assign(num_variables, 0);
    weights_clique_.assign(num_variables, -1);
    for (size_t i = 0; i < cliques_.size(); ++i)
        for (int v : members_[i]) {
            int& best = weights_clique_[size_t(v)];
            if (best < 0 || cliques_[i].size < cliques_[size_t(best)].size) best = int(i);
        }
    for (int v = 0; v < int(num_variables); ++v) {
        const size_t i = size_t(weights_clique_[size_t(v)]);
        cliques_[i].weights.push_back({v, SpreadOf(std::span(&v, 1), members_[i])});
    }
}

// A belief comes from the smallest table that holds the variable: a separator, or the rows of its only
// clique.
void SmallTree::PlaceBeliefs()
{
    for (int v = 0; v < int(graph_->variables.size()); ++v) {
        int separator = -1;
        const auto holds = [&](const std::vector<int>& list) {
            return std::find(list.begin(), list.end(), v) != list.end();
        };
        for (size_t i = 1; i < cliques_.size(); ++i)
            if (holds(separators_[i]) && (separator < 0 || cliques_[i].run < cliques_[size_t(separator)].run))
                separator = int(i);
        if (separator >= 0) {
            beliefs_.push_back(
                {Source::kSeparator, separator, SpreadOf(std::span(&v, 1), separators_[size_t(separator)])});
            continue;
        }
        const int clique = weights_clique_[size_t(v)];
        const std::span<const int> members = members_[size_t(clique)];
        const std::span<const int> own = members.first(members.size() - separators_[size_t(clique)].size());
        beliefs_.push_back({Source::kRows, clique, SpreadOf(std::span(&v, 1), own)});
    }
}

void SmallTree::PlaceTables()
{
    // 1. Every table is asked for, first to add up the room and then to take its place.
    size_t used = 0;
    const auto visit = [&](auto take) {
        for (Clique& c : cliques_) {
            const bool is_root = &c == cliques_.data();
            for (float** table : {&c.potential, &c.prior, &c.product}) take(*table, c.size);
            for (float** table : {&c.prior_up, &c.up}) take(*table, c.run);
            if (is_root) continue;
            for (float** table : {&c.above, &c.quotient}) take(*table, c.run);
            take(c.rows, c.num_rows);
            if (!c.children.empty()) take(c.entries, c.size);
        }
        for (size_t v = 0; v < weights_.size(); ++v) take(weights_[v], StatesOf(int(v)));
    };
    weights_.resize(graph_->variables.size());
    visit([&](float*&, int size) { used += size_t(size); });
    arena_ = TableVector<float>(used);
    float* place = arena_.data();
    visit([&](float*& table, int size) {
        table = place;
        place += size;
    });
}

// ---- What is known. ----

// The cliques from there to the root follow in the next update.
void SmallTree::SetWeights(int variable, const float* weights)
{
    const size_t v = size_t(variable);
    if (weights == nullptr && !is_known_[v]) return;
    is_known_[v] = weights != nullptr;
    if (weights != nullptr) std::copy_n(weights, StatesOf(variable), weights_[v]);
    cliques_[size_t(weights_clique_[v])].is_stale = true;
}

void SmallTree::TableChanged(int variable)
{
    const int home = tree_->home[size_t(variable)];
    if (home < 0) return;
    cliques_[size_t(home)].potential_is_stale = true;
    for (int i = home; i >= 0; i = tree_->mate[size_t(i)]) cliques_[size_t(i)].prior_is_stale = true;
    cliques_[size_t(home)].is_stale = true;
}

void SmallTree::Forget()
{
    for (Clique& clique : cliques_) clique.is_stale = clique.prior_is_stale = true;
}

// ---- Towards the root. ----

// The product of the tables that have their home here, and by how much a row of theirs may exceed 1 (only
// where a net's own tables do not sum to 1: then the limit of what is too improbable moves up with it).
void SmallTree::FillPotential(int i)
{
    Clique& clique = cliques_[size_t(i)];
    std::fill_n(clique.potential, clique.size, 1.0f);
    clique.excess = 0;
    const std::vector<int> cut(graph_->variables.size(), -1);
    std::vector<int> rank(graph_->variables.size(), 0);
    for (size_t k = 0; k < members_[size_t(i)].size(); ++k) rank[size_t(members_[size_t(i)][k])] = int(k);
    for (int v : tree_->homed[i]) {
        const FamilyRequest request{graph_, v, table_(v), nullptr, cut, rank};
        const std::vector<int> scope = FamilyScope(request);
        std::vector<float> factor(size_t(SizeOf(scope)));
        WriteFamily(request, factor.data());
        const size_t num_places = places_.size();
        const SmallSpread spread = SpreadOf(scope, members_[size_t(i)]);
        kernels_->multiply(clique.potential, clique.potential, clique.size, spread, places_.data(),
                           factor.data());
        places_.resize(num_places);
        // Sums over the variable, by its parents.
        std::vector<double> sums(factor.size());
        int stride = 1;
        for (size_t k = scope.size(); k-- > 0 && scope[k] != v;) stride *= StatesOf(scope[k]);
        const size_t block = size_t(stride) * size_t(StatesOf(v));
        for (size_t e = 0; e < factor.size(); ++e)
            sums[e / block * size_t(stride) + e % size_t(stride)] += double(factor[e]);
        const double most = *std::max_element(sums.begin(), sums.end());
        if (most > 1.001) clique.excess += std::log2(most);
    }
    clique.potential_is_stale = false;
}

void SmallTree::FillPrior(int i)
{
    Clique& clique = cliques_[size_t(i)];
    if (clique.potential_is_stale) FillPotential(i);
    const float* product = clique.potential;
    for (const Factor& child : clique.children) {
        kernels_->multiply(clique.prior, product, clique.size, child.spread, places_.data(),
                           cliques_[size_t(child.table)].prior_up);
        product = clique.prior;
    }
    if (clique.children.empty()) std::copy_n(clique.potential, clique.size, clique.prior);
    const SmallSpread tail = {SmallShape::kTail, clique.run, clique.run, 0, 0};
    kernels_->sum_onto(clique.prior_up, clique.prior, clique.size, tail, places_.data());
    clique.prior_is_stale = false;
    clique.prior_has_flushed = UnderflowWatch::Seen();
}

const float* SmallTree::SentBy(int i) const
{
    const Clique& clique = cliques_[size_t(i)];
    return clique.has_findings ? clique.up : clique.prior_up;
}

const float* SmallTree::ProductOf(int i) const
{
    const Clique& clique = cliques_[size_t(i)];
    return clique.has_findings ? clique.product : clique.prior;
}

// First the sums of the children, then the weights: where no child has findings, the table without findings
// is what the former come to.
void SmallTree::Collect(int i)
{
    Clique& clique = cliques_[size_t(i)];
    const float* product = clique.prior;
    bool has_findings = false;
    for (const Factor& child : clique.children) has_findings |= cliques_[size_t(child.table)].has_findings;
    if (has_findings) {
        product = clique.potential;
        for (const Factor& child : clique.children) {
            kernels_->multiply(clique.product, product, clique.size, child.spread, places_.data(),
                               SentBy(child.table));
            product = clique.product;
        }
    }
    for (const Factor& factor : clique.weights) {
        if (!is_known_[size_t(factor.table)]) continue;
        kernels_->multiply(clique.product, product, clique.size, factor.spread, places_.data(),
                           weights_[size_t(factor.table)]);
        product = clique.product;
    }
    clique.has_findings = product == clique.product;
    if (clique.has_findings) {
        const SmallSpread tail = {SmallShape::kTail, clique.run, clique.run, 0, 0};
        kernels_->sum_onto(clique.up, clique.product, clique.size, tail, places_.data());
    }
    clique.is_stale = false;
    clique.has_flushed = clique.prior_has_flushed || UnderflowWatch::Seen();
    ++counters_.messages;
    counters_.entries += clique.size;
}

// Every clique comes after its mate, so from the last to the first each has what its children send.  What was
// flushed is asked of the processor clique by clique, as tables stay from one update to the next.
SmallTree::Status SmallTree::Update()
{
    const DenormalsOff mode;
    UnderflowWatch::Seen();  // what came before is of no concern
    double excess = excess_of_decisions_;
    bool has_changed = false, has_flushed = false;
    for (int i = int(cliques_.size()); i-- > 0;) {
        Clique& clique = cliques_[size_t(i)];
        if (clique.prior_is_stale) FillPrior(i);
        excess += clique.excess;
        if (clique.is_stale) {
            Collect(i);
            has_changed = true;
            if (i > 0) cliques_[size_t(tree_->mate[size_t(i)])].is_stale = true;
        }
        has_flushed |= clique.has_flushed;
    }
    update_ += has_changed;
    mass_ = double(SentBy(0)[0]);
    if (mass_ >= std::ldexp(kLeastMass, int(std::ceil(excess)))) return Status::kUpdated;
    return mass_ == 0 && !has_flushed ? Status::kImpossible : Status::kTooImprobable;
}

// ---- Outwards. ----

const float* SmallTree::Above(int i)
{
    Clique& clique = cliques_[size_t(i)];
    if (clique.above_at != update_) {
        const int mate = tree_->mate[size_t(i)];
        kernels_->sum_onto(clique.above, Entries(mate), cliques_[size_t(mate)].size, clique.in_mate,
                           places_.data());
        clique.above_at = update_;
        ++counters_.messages;
    }
    return clique.above;
}

// As many floats as the separator has, however large the cliques: the only division there is, made from
// tables of the same update, so nothing drifts.
const float* SmallTree::Quotient(int i)
{
    Clique& clique = cliques_[size_t(i)];
    if (clique.quotient_at != update_) {
        kernels_->divide(clique.quotient, Above(i), SentBy(i), clique.run);
        clique.quotient_at = update_;
    }
    return clique.quotient;
}

const float* SmallTree::Entries(int i)
{
    if (i == 0) return ProductOf(0);
    Clique& clique = cliques_[size_t(i)];
    if (clique.entries_at != update_) {
        const SmallSpread tail = {SmallShape::kTail, clique.run, clique.run, 0, 0};
        kernels_->multiply(clique.entries, ProductOf(i), clique.size, tail, places_.data(), Quotient(i));
        clique.entries_at = update_;
        counters_.entries += clique.size;
    }
    return clique.entries;
}

// Where just the members that a clique shares with no other are asked for, its entries are not written.
const float* SmallTree::Rows(int i)
{
    if (i == 0) return ProductOf(0);
    Clique& clique = cliques_[size_t(i)];
    if (clique.rows_at != update_) {
        kernels_->sum_rows(clique.rows, ProductOf(i), clique.num_rows, clique.run, Quotient(i));
        clique.rows_at = update_;
    }
    return clique.rows;
}

void SmallTree::Belief(int variable, float* belief)
{
    const DenormalsOff mode;
    const BeliefSource& source = beliefs_[size_t(variable)];
    const Clique& clique = cliques_[size_t(source.clique)];
    const bool in_separator = source.source == Source::kSeparator;
    const float* table = in_separator ? Above(source.clique) : Rows(source.clique);
    kernels_->sum_onto(belief, table, in_separator ? clique.run : clique.num_rows, source.spread,
                       places_.data());
    float total = 0;
    const int num_states = StatesOf(variable);
    for (int s = 0; s < num_states; ++s) total += belief[s];
    for (int s = 0; s < num_states; ++s) belief[s] /= total;
}

void SmallTree::JointBelief(int i, std::span<const int> variables, float* joint)
{
    const DenormalsOff mode;
    // A clique without children has no room for its entries; they are formed on the way.
    const Clique& clique = cliques_[size_t(i)];
    const float* product = ProductOf(i);
    const float* quotient = i > 0 ? Quotient(i) : nullptr;
    const std::vector<int>& members = members_[size_t(i)];
    std::vector<int> strides(members.size(), 0), state(members.size(), 0);
    for (size_t k = 0; k < members.size(); ++k) {
        const auto found = std::find(variables.begin(), variables.end(), members[k]);
        if (found != variables.end())
            strides[k] = SizeOf(variables.subspan(size_t(found - variables.begin()) + 1));
    }
    std::vector<double> sums(size_t(SizeOf(variables)));
    double total = 0;
    for (int entry = 0, place = 0, column = 0; entry < clique.size; ++entry) {
        const double number = double(product[entry]) * (quotient == nullptr ? 1 : double(quotient[column]));
        if (++column == clique.run) column = 0;
        sums[size_t(place)] += number;
        total += number;
        for (size_t k = members.size(); k-- > 0;) {
            place += strides[k];
            if (++state[k] < StatesOf(members[k])) break;
            place -= strides[k] * state[k];
            state[k] = 0;
        }
    }
    for (size_t s = 0; s < sums.size(); ++s) joint[s] = float(sums[s] / total);
}

}  // namespace talora
