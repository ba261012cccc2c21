// Checks of foreign nets: names, sizes, sums of rows, cycles.
#include "Foreign/ForeignCheck.h"

#include <algorithm>
#include <unordered_set>

namespace talora {

namespace {

// A printed row may miss 1 by half of the fourth decimal per state, and by no less than this.
constexpr double kPrintedRow = 1e-4;
constexpr double kPrintedEntry = 5e-5;
// Below the precision of a float: such rows are left alone, so that what was written is read as it was.
constexpr double kExactRow = 2e-7;
// A tiny negative entry is what subtraction left of a zero.
constexpr double kNoise = 1e-9;

constexpr double kFreeEntries = 1 << 22;
constexpr double kFreeStates = 10000;

// No state twice, and none at all only for utilities.
void CheckStates(const ForeignSource& source, const ForeignNode& node)
{
    std::unordered_set<std::string_view> seen;
    for (const std::string& state : node.states)
        if (!seen.insert(state).second)
            FailAt<7008>(source.PlaceAt(node.at), Shown(node.name).c_str(), Shown(state).c_str());
    if (node.states.empty() && node.kind != ForeignKind::UTILITY)
        FailAt<7040>(source.PlaceAt(node.at), Shown(node.name).c_str());
}

// No link twice (with the same delay), and none from a utility.
void CheckParents(const ForeignSource& source, const ForeignNet& net, const ForeignNode& node)
{
    std::unordered_set<std::string> seen;
    for (size_t i = 0; i < node.parents.size(); ++i) {
        const ForeignNode& parent = net.nodes[size_t(node.parents[i])];
        const size_t at = node.table_at != std::string_view::npos ? node.table_at : node.at;
        const std::string delay = node.delays.empty() ? "" : node.delays[i];
        if (!seen.insert(std::to_string(node.parents[i]) + "," + delay).second)
            FailAt<7011>(source.PlaceAt(at), Shown(node.name).c_str(), Shown(parent.name).c_str());
        if (parent.kind == ForeignKind::UTILITY)
            FailAt<7041>(source.PlaceAt(at), Shown(parent.name).c_str(), Shown(node.name).c_str());
    }
}

// Takes nodes without parents left away (Kahn 1962); what stays has a cycle in it or below it.
void CheckCycles(const ForeignSource& source, const ForeignNet& net)
{
    std::vector<size_t> waiting(net.nodes.size(), 0);
    std::vector<std::vector<size_t>> children(net.nodes.size());
    const auto counts = [](const ForeignNode& node, size_t i) {
        return node.delays.empty() || node.delays[i].empty();
    };
    for (size_t child = 0; child < net.nodes.size(); ++child)
        for (size_t i = 0; i < net.nodes[child].parents.size(); ++i)
            if (counts(net.nodes[child], i)) {
                ++waiting[child];
                children[size_t(net.nodes[child].parents[i])].push_back(child);
            }
    std::vector<size_t> free;
    for (size_t i = 0; i < waiting.size(); ++i)
        if (waiting[i] == 0) free.push_back(i);
    for (size_t done = 0; done < free.size(); ++done)
        for (const size_t child : children[free[done]])
            if (--waiting[child] == 0) free.push_back(child);
    if (free.size() == net.nodes.size()) return;
    // From parent to waiting parent, until a node comes again: that one is on the cycle.
    size_t at = size_t(std::find_if(waiting.begin(), waiting.end(), [](size_t w) { return w > 0; }) -
                       waiting.begin());
    std::vector<char> seen(net.nodes.size(), 0);
    while (!seen[at]) {
        seen[at] = 1;
        const ForeignNode& node = net.nodes[at];
        for (size_t i = 0; i < node.parents.size(); ++i)
            if (counts(node, i) && waiting[size_t(node.parents[i])] > 0) {
                at = size_t(node.parents[i]);
                break;
            }
    }
    // Of the cycle the node that stands first in the file is named.
    size_t first = at, next = at;
    do {
        const ForeignNode& node = net.nodes[next];
        for (size_t i = 0; i < node.parents.size(); ++i)
            if (counts(node, i) && waiting[size_t(node.parents[i])] > 0 && seen[size_t(node.parents[i])]) {
                next = size_t(node.parents[i]);
                break;
            }
        first = std::min(first, next);
    } while (next != at);
    const ForeignNode& node = net.nodes[first];
    const size_t place = node.table_at != std::string_view::npos ? node.table_at : node.at;
    FailAt<7019>(source.PlaceAt(place), Shown(node.name).c_str());
}

// The entries of one table, row by row.
class TableChecker {
public:
    TableChecker(const ForeignSource& source, const ForeignNet& net, ForeignNode& node)
        : source_(source), net_(net), node_(node)
    {}

    // The most by which a row that was scaled missed 1; 0 if none was.
    double Run()
    {
        const size_t width = node_.Width();
        CheckTableSize(source_, net_, node_, node_.table.size(), TableAt());
        for (size_t at = 0; at < node_.table.size(); at += width) CheckRow(at, width);
        return worst_;
    }
    bool HadWeights() const { return had_weights_; }

private:
    size_t TableAt() const { return node_.table_at != std::string_view::npos ? node_.table_at : node_.at; }
    FilePlace PlaceOfEntry(size_t entry) const
    {
        const size_t row = entry / node_.Width();
        if (row < node_.rows_at.size() && node_.rows_at[row] != std::string_view::npos)
            return source_.PlaceAt(node_.rows_at[row]);
        if (net_.find_entry && node_.table_at != std::string_view::npos)
            return source_.PlaceAt(net_.find_entry(source_.text, node_.table_at, entry));
        return source_.PlaceAt(TableAt());
    }

    // Complete, no negative entries, and the sum 1 but for what printing rounded.
    void CheckRow(size_t at, size_t width)
    {
        double* const row = node_.table.data() + at;
        double sum = 0;
        for (size_t i = 0; i < width; ++i) {
            if (std::isnan(row[i])) FailAt<7020>(source_.PlaceAt(TableAt()), Name(), Config(at).c_str());
            if (node_.kind == ForeignKind::UTILITY) {
                if (!std::isfinite(row[i])) FailAt<7018>(PlaceOfEntry(at + i), Name(), row[i]);
                continue;
            }
            if (row[i] < 0 && row[i] >= -kNoise) row[i] = 0;
            if (row[i] < 0 || !std::isfinite(row[i])) FailAt<7018>(PlaceOfEntry(at + i), Name(), row[i]);
            sum += row[i];
        }
        if (node_.kind == ForeignKind::UTILITY) return;
        const double miss = std::abs(sum - 1);
        if (miss <= kExactRow) return;
        if (sum == 0) FailAt<7017>(PlaceOfEntry(at), Name(), Config(at).c_str());
        if (miss > std::max(kPrintedRow, kPrintedEntry * double(width))) {
            if (FitsOtherOrder()) FailAt<7016>(PlaceOfEntry(at), Name(), Config(at).c_str(), sum);
            if (!net_.scales_rows) FailAt<7015>(PlaceOfEntry(at), Name(), Config(at).c_str(), sum);
            had_weights_ = true;
        } else {
            worst_ = std::max(worst_, miss);
        }
        for (size_t i = 0; i < width; ++i) row[i] /= sum;
    }

    // Whether every row would sum to 1 if the node's own states varied slowest.
    bool FitsOtherOrder() const
    {
        const size_t width = node_.Width(), num_rows = node_.table.size() / width;
        if (num_rows < 2 || !node_.rows_at.empty()) return false;
        for (size_t row = 0; row < num_rows; ++row) {
            double sum = 0;
            for (size_t i = 0; i < width; ++i) sum += node_.table[i * num_rows + row];
            if (std::abs(sum - 1) > std::max(kPrintedRow, kPrintedEntry * double(width))) return false;
        }
        return true;
    }

    const char* Name()
    {
        shown_ = Shown(node_.name);
        return shown_.c_str();
    }
    // The states of the parents in the row of an entry: " (P=yes, Q=no)".
    std::string Config(size_t at) const
    {
        size_t row = at / node_.Width();
        std::string text;
        for (size_t i = node_.parents.size(); i-- > 0;) {
            const ForeignNode& parent = net_.nodes[size_t(node_.parents[i])];
            const size_t n = parent.states.size();
            text =
                Shown(parent.name) + "=" + Shown(parent.states[row % n]) + (text.empty() ? "" : ", ") + text;
            row /= n;
        }
        return text.empty() ? text : " (" + text + ")";
    }

    const ForeignSource& source_;
    const ForeignNet& net_;
    ForeignNode& node_;
    std::string shown_;
    double worst_ = 0;
    bool had_weights_ = false;
};

}  // namespace

ForeignNode& NodeNames::Add(std::string name, size_t at)
{
    if (!by_name_.emplace(name, static_cast<int>(net_.nodes.size())).second)
        FailAt<7007>(source_.PlaceAt(at), Shown(name).c_str());
    ForeignNode& node = net_.nodes.emplace_back();
    node.name = std::move(name);
    node.at = at;
    return node;
}

int NodeNames::TryFind(std::string_view name) const
{
    const auto found = by_name_.find(std::string(name));
    return found == by_name_.end() ? -1 : found->second;
}

int NodeNames::Find(std::string_view name, size_t at) const
{
    const int index = TryFind(name);
    if (index < 0) FailAt<7010>(source_.PlaceAt(at), Shown(name).c_str());
    return index;
}

ForeignNode& NodeNames::Node(std::string_view name, size_t at)
{
    return net_.nodes[size_t(Find(name, at))];
}

int TryFindState(const ForeignNode& node, std::string_view state)
{
    const auto found = std::find(node.states.begin(), node.states.end(), state);
    return found == node.states.end() ? -1 : static_cast<int>(found - node.states.begin());
}

int FindState(const ForeignSource& source, const ForeignNode& node, std::string_view state, size_t at,
              const ForeignNode* of)
{
    const int index = TryFindState(node, state);
    if (index >= 0) return index;
    FilePlace place = source.PlaceAt(at);
    const std::string context = of ? ", while reading the table of node '" + Shown(of->name) + "'" : "";
    if (of) place.context = context.c_str();
    FailAt<7012>(place, Shown(node.name).c_str(), Shown(state).c_str());
}

void ReserveTable(const ForeignSource& source, ForeignNet& net, ForeignNode& node, size_t at)
{
    const double entries = NumRows(net, node) * double(node.Width());
    net.entries_made += entries;
    if (net.entries_made > kFreeEntries + 2 * double(source.text.size()))
        FailAt<7029>(source.PlaceAt(at), Shown(node.name).c_str(), entries);
    node.table.assign(static_cast<size_t>(entries), kNoNumber);
}

void NumberStates(const ForeignSource& source, ForeignNet& net, ForeignNode& node, std::string_view prefix,
                  double count, int64_t first, size_t at)
{
    net.states_made += std::max(count, 0.0);
    if (!(count >= 1) || net.states_made > kFreeStates + double(source.text.size()))
        FailAt<7042>(source.PlaceAt(at), Shown(node.name).c_str(), count);
    for (int64_t i = 0; i < static_cast<int64_t>(count); ++i)
        node.states.push_back(std::string(prefix) + std::to_string(first + i));
}

void CheckTableSize(const ForeignSource& source, const ForeignNet& net, const ForeignNode& node, size_t found,
                    size_t at)
{
    const double needed = NumRows(net, node) * double(node.Width());
    if (double(found) != needed)
        FailAt<7014>(source.PlaceAt(at), double(found), Shown(node.name).c_str(), needed);
}

void NeedNoTable(const ForeignSource& source, const ForeignNode& node, size_t at)
{
    if (node.table_at != std::string_view::npos) FailAt<7013>(source.PlaceAt(at), Shown(node.name).c_str());
}

RowWriter::RowWriter(const ForeignSource& source, const ForeignNet& net, ForeignNode& node)
    : source_(source), net_(net), node_(node)
{
    node_.rows_at.assign(node_.table.size() / std::max<size_t>(node_.Width(), 1), std::string_view::npos);
}

void RowWriter::NeedWidth(size_t count, size_t at) const
{
    if (count != node_.Width())
        FailAt<7014>(source_.PlaceAt(at), double(count), Shown(node_.name).c_str(), double(node_.Width()));
}

void RowWriter::Put(const std::vector<int>& states, const std::vector<double>& row, size_t at)
{
    NeedWidth(row.size(), at);
    // A row for every state stands for many; repeated without end they would take long.
    if (++num_put_ > 16 * node_.rows_at.size() + 1000)
        FailAt<7013>(source_.PlaceAt(at), Shown(node_.name).c_str());
    const auto every = std::find(states.begin(), states.end(), -1);
    if (every != states.end()) {
        std::vector<int> one = states;
        const size_t i = size_t(every - states.begin());
        const size_t count = net_.nodes[size_t(node_.parents[i])].states.size();
        for (size_t state = 0; state < count; ++state) {
            one[i] = static_cast<int>(state);
            Put(one, row, at);
        }
        return;
    }
    size_t index = 0;
    for (size_t i = 0; i < states.size(); ++i)
        index = index * net_.nodes[size_t(node_.parents[i])].states.size() + size_t(states[i]);
    std::copy(row.begin(), row.end(), node_.table.begin() + std::ptrdiff_t(index * row.size()));
    node_.rows_at[index] = at;
}

void RowWriter::PutDefault(const std::vector<double>& row, size_t at)
{
    NeedWidth(row.size(), at);
    for (size_t index = 0; index < node_.rows_at.size(); ++index) {
        if (node_.rows_at[index] != std::string_view::npos) continue;
        std::copy(row.begin(), row.end(), node_.table.begin() + std::ptrdiff_t(index * row.size()));
        node_.rows_at[index] = at;
    }
}

namespace {

// A message about many nodes names one of them and says how many there are; places cost time to find.
struct Affected {
    const ForeignNode* example = nullptr;
    int count = 0;
    void Add(const ForeignNode& node)
    {
        if (count++ == 0) example = &node;
    }
};

// What a node without a table gets.
void FillTable(const ForeignSource& source, ForeignNet& net, ForeignNode& node)
{
    const bool is_utility = node.kind == ForeignKind::UTILITY;
    AddLoss(net.losses, LossSeverity::ANSWERS, "tables that are not there", node.name,
            "equal probabilities, utilities of 0");
    ReserveTable(source, net, node, node.at);
    std::fill(node.table.begin(), node.table.end(), is_utility ? 0.0 : 1.0 / double(node.Width()));
}

// Levels and experience that do not fit are let go.
void CheckExtras(ForeignNet& net, ForeignNode& node)
{
    const size_t n = node.states.size();
    if (!node.levels.empty() && node.levels.size() != n && node.levels.size() != n + 1) {
        node.levels.clear();
        AddLoss(net.losses, LossSeverity::INFORMATION, "levels", node.name, "left out, as they do not fit");
    }
    if (node.HasLimits() && !std::is_sorted(node.levels.begin(), node.levels.end())) {
        node.levels.clear();
        AddLoss(net.losses, LossSeverity::INFORMATION, "levels", node.name, "left out, as they do not fit");
    }
    if (!node.experience.empty() && double(node.experience.size()) != NumRows(net, node)) {
        node.experience.clear();
        AddLoss(net.losses, LossSeverity::INFORMATION, "experience", node.name,
                "left out, as it does not fit");
    }
}

}  // namespace

void CheckForeignNet(const ForeignSource& source, ForeignNet& net)
{
    for (const ForeignNode& node : net.nodes) CheckStates(source, node);
    for (const ForeignNode& node : net.nodes) CheckParents(source, net, node);
    CheckCycles(source, net);
    double worst = 0;
    Affected scaled, weighted, empty;
    for (ForeignNode& node : net.nodes) {
        CheckExtras(net, node);
        if (node.table.empty() && node.kind == ForeignKind::DECISION) continue;
        if (node.table.empty()) {
            empty.Add(node);
            FillTable(source, net, node);
            continue;
        }
        TableChecker checker(source, net, node);
        const double miss = checker.Run();
        std::vector<size_t>().swap(node.rows_at);
        if (checker.HadWeights()) {
            weighted.Add(node);
            AddLoss(net.losses, LossSeverity::INFORMATION, "weights in rows of tables", node.name,
                    "scaled to sum to 1");
        }
        if (miss == 0) continue;
        worst = std::max(worst, miss);
        scaled.Add(node);
    }
    if (empty.count > 0)
        WarnAt<7032>(source.PlaceAt(empty.example->at), Shown(empty.example->name).c_str(), empty.count);
    if (weighted.count > 0)
        WarnAt<7022>(source.PlaceAt(weighted.example->at), Shown(weighted.example->name).c_str(),
                     weighted.count);
    if (scaled.count > 0) Notice<7021>(source.file, scaled.count, Shown(scaled.example->name).c_str(), worst);
}

}  // namespace talora
