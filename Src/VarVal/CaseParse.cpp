// Reading the cases of a set in blocks: entries are looked up in a table per column, and understood only
// once.
#include "VarVal/CaseParse.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Basic/Error.h"
#include "Basic/MultiThread.h"
#include "Basic/Parser.h"
#include "Basic/Progress.h"
#include "VarVal/CaseFile.h"
#include "VarVal/CaseValues.h"
#include "VarVal/Caseset.h"

namespace talora {

// ---- Tables of entries ----

void EntryTable::Clear()
{
    slots_.assign(16, Slot());
    mask_ = slots_.size() - 1;
    shift_ = 64 - 4;
    used_ = 0;
    texts_.clear();
}

// Half full at most, so that looking up an entry takes a probe or two.
void EntryTable::Grow()
{
    std::vector<Slot> old(slots_.size() * 2);
    old.swap(slots_);
    mask_ = slots_.size() - 1;
    --shift_;
    for (const Slot& slot : old) {
        if (slot.key.length == kFree) continue;
        size_t at = SlotOf(slot.key);
        while (slots_[at & mask_].key.length != kFree) ++at;
        slots_[at & mask_] = slot;
    }
}

// Texts of up to 16 bytes are their own key; of longer ones the rest is compared in `texts_`.
void EntryTable::Insert(std::string_view text, int state)
{
    std::string padded(text);
    padded.resize(text.size() + 8);
    const std::string_view copy(padded.data(), text.size());
    if (Find(copy) != kNotFound) return;
    if (++used_ * 2 > slots_.size()) Grow();
    const Key key = KeyOf(copy);
    size_t at = SlotOf(key);
    while (slots_[at & mask_].key.length != kFree) ++at;
    slots_[at & mask_] = {key, state, static_cast<uint32_t>(texts_.size())};
    if (text.size() > 16) texts_ += text;
}

// ---- The reader ----

namespace {

// Spellings that are remembered for a column besides its names, whatever the file holds, and how long each
// may be.
constexpr size_t kMostSpellings = 1000;
constexpr size_t kLongestSpelling = 256;
constexpr int kMostCases = 4096;  // in a block
constexpr int kFewestCases = 64;
constexpr int64_t kCellsPerBlock = 1 << 19;

// A column of the file that is about a node of the reader.
struct UsedColumn {
    int column;  // of the file
    int node;    // of the reader
    EntryTable entries;
    size_t num_sure = 0;  // entries that are there from the beginning
};

}  // namespace

struct CaseReader::Engine {
    const Caseset& cases;
    std::vector<Node*> nodes;
    CaseValues values;
    std::vector<char> has_warned;  // of each source: what is odd about it as a whole
    int64_t total_bytes = 0;

    size_t source = 0;                     // the one that is read
    std::unique_ptr<CaseFileReader> file;  // null: not opened yet
    LineSplitter splitter{'\t'};
    std::vector<UsedColumn> columns;
    std::vector<char> has_column;
    int64_t cases_of_source = 0, cases_of_all = 0;
    int64_t bytes_of_sources = 0;  // of those that are finished

    size_t block_source = 0;
    bool block_from_database = false;
    std::vector<char> block_has_column;

    Engine(const Caseset& from, std::span<Node* const> wanted);
    void Settle();
    bool Next(CaseBlock& block);
    void Rewind();
    void Open();
    void Close();
    void MatchColumns(bool warns);
    void FillEntries(UsedColumn& column);
    void Prepare(CaseBlock& block, int most) const;
    void Trim(CaseBlock& block) const;
    bool ReadCase(const CaseLine& line, CaseBlock& block);
    void CheckCount(const CaseLine& line, int count);
    bool ReadEntry(UsedColumn& column, const CaseLine& line, CaseBlock& block);
    void Remember(UsedColumn& column, std::string_view text, const CaseEntry& entry) const;
    CasePlace PlaceOf(const CaseLine& line, int entry) const;
    double Fraction() const;
    [[noreturn]] void FailHalted() const;
};

CaseReader::Engine::Engine(const Caseset& from, std::span<Node* const> wanted)
    : cases(from), nodes(wanted.begin(), wanted.end()), values(*from.env), has_warned(from.sources.size())
{
    has_column.resize(nodes.size());
    block_has_column.resize(nodes.size());
    for (const CaseSource& each : cases.sources) total_bytes += SourceSize(each);
    const environ_vx* env = ThisThread().env;
    if (env != nullptr && env->question_handler.IsSet() && !nodes.empty()) Settle();
}

// Goes through all cases so that every question is asked before callers rely on the numbers of states.
void CaseReader::Engine::Settle()
{
    Progress progress("reading case file");
    CaseBlock block;
    while (Next(block))
        if (!progress.Step(Fraction())) FailHalted();
    values.BeQuiet();
    Rewind();
}

void CaseReader::Engine::Rewind()
{
    file.reset();
    source = 0;
    cases_of_source = cases_of_all = bytes_of_sources = 0;
}

double CaseReader::Engine::Fraction() const
{
    if (total_bytes <= 0) return source >= cases.sources.size() ? 1 : 0;
    const int64_t taken = bytes_of_sources + (file ? file->BytesTaken() : 0);
    return std::min(1.0, double(taken) / double(total_bytes));
}

void CaseReader::Engine::FailHalted() const
{
    FailCasesHalted(cases_of_all, Fraction());
}

// What is odd about a file as a whole is reported when it is opened for the first time only.
void CaseReader::Engine::Open()
{
    const CaseSource& from = cases.sources[source];
    const bool warns = !has_warned[source];
    has_warned[source] = 1;
    file = std::make_unique<CaseFileReader>(from, cases.env->case_delimiter, warns);
    splitter = LineSplitter(file->Header().delimiter);
    cases_of_source = 0;
    values.SkipWholeCases(from.skips_misfits);
    MatchColumns(warns);
}

void CaseReader::Engine::Close()
{
    bytes_of_sources += file->BytesTaken();
    file.reset();
    ++source;
}

// Columns by the names of nodes: each node once, unknown names in one warning, nodes not asked for left out.
void CaseReader::Engine::MatchColumns(bool warns)
{
    columns.clear();
    std::fill(has_column.begin(), has_column.end(), 0);
    if (nodes.empty()) return;
    const Net& net = *nodes[0]->net;
    std::vector<int> place(net.nodes.nodes.size(), -1);  // of each node of the net among the nodes
    for (size_t i = 0; i < nodes.size(); ++i)
        place[static_cast<size_t>(nodes[i]->index)] = static_cast<int>(i);
    std::vector<char> seen(net.nodes.nodes.size());
    std::string unknown;
    const CaseFileHeader& header = file->Header();
    for (int i = 0; i < static_cast<int>(header.columns.size()); ++i) {
        if (i == header.id_column || i == header.freq_column) continue;
        const std::string& name = header.columns[static_cast<size_t>(i)];
        const Node* node = FindNode(net, name);
        if (node == nullptr) {
            if (unknown.size() < kMessageBytes) unknown += (unknown.empty() ? "" : ", ") + name;
            continue;
        }
        const auto index = static_cast<size_t>(node->index);
        if (std::exchange(seen[index], 1)) {
            if (warns) WarnAt<6521>(RecordPlace(file->Name()), name.c_str(), file->Name().c_str());
            continue;
        }
        if (place[index] < 0) continue;
        columns.push_back({i, place[index], EntryTable(), 0});
        has_column[static_cast<size_t>(place[index])] = 1;
    }
    if (warns && !unknown.empty())
        WarnAt<6522>(RecordPlace(file->Name()), file->Name().c_str(), net.name.c_str(), unknown.c_str());
    for (UsedColumn& column : columns) FillEntries(column);
}

// What is sure from the beginning; other spellings follow as they come up.
void CaseReader::Engine::FillEntries(UsedColumn& column)
{
    const Node& node = *nodes[static_cast<size_t>(column.node)];
    column.entries.Clear();
    column.entries.Insert("", UNDEF_STATE);
    column.entries.Insert("*", UNDEF_STATE);
    const char missing = cases.env->missing_char;
    if (missing != 0) column.entries.Insert(std::string_view(&missing, 1), UNDEF_STATE);
    for (int state = 0; state < static_cast<int>(node.states.texts.size()); ++state)
        if (!StateName(node, state).empty()) column.entries.Insert(StateName(node, state), state);
    column.num_sure = column.entries.Count();
}

// ---- Blocks ----

// Room for the most cases of a block; nodes without a column are unknown in all of them.
void CaseReader::Engine::Prepare(CaseBlock& block, int most) const
{
    const auto count = static_cast<size_t>(most);
    block.num_cases = 0;
    block.likelihoods.clear();
    block.states.resize(nodes.size());
    block.values.resize(nodes.size());
    for (size_t i = 0; i < nodes.size(); ++i) {
        if (has_column[i])
            block.states[i].resize(count);
        else
            block.states[i].assign(count, UNDEF_STATE);
        if (IsDiscrete(*nodes[i]))
            block.values[i].clear();
        else
            block.values[i].assign(count, UndefDbl());
    }
    block.weights.resize(count);
    block.ids.resize(count);
    block.case_numbers.resize(count);
    block.lines.resize(count);
    block.positions.resize(count);
}

// To the cases that there are, likelihoods in order of row and column.
void CaseReader::Engine::Trim(CaseBlock& block) const
{
    const auto count = static_cast<size_t>(block.num_cases);
    // Columns of the file come in any order.
    std::sort(block.likelihoods.begin(), block.likelihoods.end(),
              [](const CaseLikelihood& a, const CaseLikelihood& b) {
                  return a.row != b.row ? a.row < b.row : a.column < b.column;
              });
    for (auto& states : block.states) states.resize(count);
    for (auto& values_of_node : block.values)
        if (!values_of_node.empty()) values_of_node.resize(count);
    block.weights.resize(count);
    block.ids.resize(count);
    block.case_numbers.resize(count);
    block.lines.resize(count);
    block.positions.resize(count);
}

// So many cases that a block stays in the cache; blocks end with their source.
bool CaseReader::Engine::Next(CaseBlock& block)
{
    const int64_t cells = static_cast<int64_t>(nodes.size()) + 8;
    const int most = static_cast<int>(std::clamp<int64_t>(kCellsPerBlock / cells, kFewestCases, kMostCases));
    try {
        while (source < cases.sources.size()) {
            if (!file) Open();
            Prepare(block, most);
            CaseLine line;
            while (block.num_cases < most && file->Next(line))
                if (ReadCase(line, block)) ++block.num_cases;
            if (block.num_cases > 0) {
                Trim(block);
                block_source = source;
                block_from_database = file->Header().from_database;
                block_has_column = has_column;
                return true;
            }
            Close();
        }
    } catch (const HaltedReading&) {
        FailHalted();
    }
    Prepare(block, 0);
    return false;
}

CasePlace CaseReader::Engine::PlaceOf(const CaseLine& line, int entry) const
{
    return file->PlaceOf(line, cases_of_source, splitter.Character(entry));
}

// Reads a line into the next row; false if the case is left out.
bool CaseReader::Engine::ReadCase(const CaseLine& line, CaseBlock& block)
{
    ++cases_of_source;
    ++cases_of_all;
    CheckCount(line, splitter.Split(line, static_cast<int>(file->Header().columns.size())));
    const auto row = static_cast<size_t>(block.num_cases);
    bool fits = true;
    for (UsedColumn& column : columns) {
        const std::string_view text = splitter.Entry(column.column);
        const int state = column.entries.Find(text);
        if (state != EntryTable::kNotFound) [[likely]]
            block.states[static_cast<size_t>(column.node)][row] = state;
        else
            fits &= ReadEntry(column, line, block);
    }
    const CaseSource& from = cases.sources[source];
    const CaseFileHeader& header = file->Header();
    block.weights[row] = from.degree;
    if (header.freq_column >= 0)
        block.weights[row] *=
            ReadCaseWeight(splitter.Entry(header.freq_column), PlaceOf(line, header.freq_column));
    block.ids[row] = -1;
    if (header.id_column >= 0)
        block.ids[row] = ReadCaseId(splitter.Entry(header.id_column), cases.env->missing_char,
                                    PlaceOf(line, header.id_column));
    block.case_numbers[row] = cases_of_source;
    block.lines[row] = line.number;
    block.positions[row] = line.position;
    if (fits || !from.skips_misfits) return true;
    for (auto& values_of_node : block.values)
        if (!values_of_node.empty()) values_of_node[row] = UndefDbl();
    while (!block.likelihoods.empty() && block.likelihoods.back().row == block.num_cases)
        block.likelihoods.pop_back();
    return false;
}

void CaseReader::Engine::CheckCount(const CaseLine& line, int count)
{
    const int wanted = static_cast<int>(file->Header().columns.size());
    if (count == wanted) [[likely]]
        return;
    FailWrongCount(count, wanted, PlaceOf(line, std::clamp(count, 1, wanted) - 1));
}

// Only what means the same for every case, and only so many spellings, lest a column of numbers fill the
// table.
void CaseReader::Engine::Remember(UsedColumn& column, std::string_view text, const CaseEntry& entry) const
{
    const bool is_state = entry.kind == EntryKind::STATE;
    const bool is_nothing = entry.kind == EntryKind::MISFIT && !cases.sources[source].skips_misfits;
    if (!entry.always || !(is_state || is_nothing)) return;
    if (column.entries.Count() < column.num_sure + kMostSpellings && text.size() <= kLongestSpelling)
        column.entries.Insert(text, entry.state);
}

// An entry that is not in the table of its column; false if it does not fit.
bool CaseReader::Engine::ReadEntry(UsedColumn& column, const CaseLine& line, CaseBlock& block)
{
    const auto index = static_cast<size_t>(column.node);
    const auto row = static_cast<size_t>(block.num_cases);
    const std::string_view text = splitter.Entry(column.column);
    Node& node = *nodes[index];
    const int changes = values.Changes();
    CaseEntry entry = values.Read(node, text, PlaceOf(line, column.column));
    if (values.Changes() != changes)
        FillEntries(column);
    else
        Remember(column, text, entry);
    block.states[index][row] = entry.state;
    if (!block.values[index].empty()) block.values[index][row] = entry.value;
    if (entry.kind == EntryKind::LIKELIHOOD)
        block.likelihoods.push_back({block.num_cases, column.node, std::move(entry.weights)});
    return entry.kind != EntryKind::MISFIT;
}

// ---- The reader as others see it ----

CaseReader::CaseReader(const Caseset& cases, std::span<Node* const> nodes)
    : engine_(std::make_unique<Engine>(cases, nodes))
{}

CaseReader::~CaseReader() = default;

bool CaseReader::Next(CaseBlock& block)
{
    return engine_->Next(block);
}

void CaseReader::Rewind()
{
    engine_->Rewind();
}

bool CaseReader::HasColumn(int node) const
{
    return engine_->block_has_column[static_cast<size_t>(node)] != 0;
}

double CaseReader::Fraction() const
{
    return engine_->Fraction();
}

const CaseSource& CaseReader::Source() const
{
    return engine_->cases.sources[engine_->block_source];
}

std::string CaseReader::Place(const CaseBlock& block, int row) const
{
    const auto at = static_cast<size_t>(row);
    const CaseBytes bytes(Source());
    return PlaceText({&bytes, block.case_numbers[at], block.lines[at], block.positions[at], 1,
                      engine_->block_from_database});
}

}  // namespace talora
