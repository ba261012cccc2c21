// One case of a file as findings of a net, with nodes made for columns that the net lacks.
#include "VarVal/CaseFindings.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "BN/Inference/BnUpdating.h"
#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnEdit.h"
#include "Basic/Error.h"
#include "Basic/Names.h"
#include "Basic/Parser.h"
#include "Basic/Progress.h"
#include "VarVal/CaseFile.h"
#include "VarVal/CaseValues.h"
#include "VarVal/CaseWrite.h"

namespace talora {

namespace {

bool IsMissing(std::string_view text, const environ_vx& env)
{
    return text.empty() || text == "*" || (text.size() == 1 && text[0] == env.missing_char);
}

bool IsSpecial(const CaseFileHeader& header, int column)
{
    return column == header.id_column || column == header.freq_column;
}

// How many entries a line has must agree with the header.
void SplitChecked(LineSplitter& splitter, const CaseLine& line, const CaseFileHeader& header, CasePlace place)
{
    const int wanted = static_cast<int>(header.columns.size());
    const int count = splitter.Split(line, wanted);
    if (count == wanted) return;
    place.character = splitter.Character(std::clamp(count, 1, wanted) - 1);
    FailWrongCount(count, wanted, place);
}

}  // namespace

// ---- Nodes from columns ----

namespace {

constexpr size_t kMostNewStates = 1000;
constexpr double kMostNumberedStates = 20;

// What the cases say of a column that is to become a node.
struct ColumnSurvey {
    int column = 0;
    std::vector<std::string> words;
    std::unordered_set<std::string> seen;
    bool has_words = false;  // something that is no number
    bool is_whole = true;    // all numbers are whole and not negative
    double greatest = -1;
};

void Survey(ColumnSurvey& survey, std::string_view text, const environ_vx& env)
{
    if (IsMissing(text, env) || text[0] == '{') return;
    double number = 0;
    const bool is_number_of_state = text[0] == '#';
    if (is_number_of_state) text.remove_prefix(1);
    if (ParseReal(text, number)) {
        survey.is_whole &= number >= 0 && number == std::floor(number);
        survey.greatest = std::max(survey.greatest, number);
    } else {
        survey.has_words = true;
    }
    if (survey.words.size() < kMostNewStates && survey.seen.emplace(text).second)
        survey.words.emplace_back(text);
}

void MakeNodeOf(Net& net, const std::string& name, const ColumnSurvey& survey, std::vector<Node*>& added)
{
    std::string reason;
    if (CheckNarrowName(name, false, &reason) != 0) {
        Warn<6536>(name.c_str(), reason.c_str());
        return;
    }
    if (!survey.has_words) {
        const bool is_numbered =
            survey.is_whole && survey.greatest >= 0 && survey.greatest < kMostNumberedStates;
        added.push_back(AddNode(net, name, is_numbered ? static_cast<int>(survey.greatest) + 1 : 0));
        return;
    }
    Node* node = AddNode(net, name, static_cast<int>(survey.words.size()));
    added.push_back(node);
    std::vector<std::string> names;
    std::unordered_set<std::string> used;
    std::unordered_map<std::string, int> last_number;  // of each name that several words come to
    for (const std::string& word : survey.words) {
        const std::string stem = RepairName(word);
        std::string state = stem;
        int& number = last_number.emplace(stem, 1).first->second;
        while (!used.insert(state).second) {
            const std::string ending = "_" + std::to_string(++number);
            state = stem.substr(0, static_cast<size_t>(kMaxNameLength) - ending.size()) + ending;
        }
        names.push_back(state);
    }
    SetStateNames(*node, names);
    // The words of the file that are no legal names stay as titles, by which they are found; numbers among
    // them as levels, since a number is the number of a state else.
    std::vector<StateText> texts = node->states.texts;
    std::vector<double> levels(names.size(), UndefDbl());
    bool has_levels = false;
    for (size_t i = 0; i < names.size(); ++i) {
        if (names[i] != survey.words[i]) texts[i].title = survey.words[i];
        double value = 0;
        if (!ParseReal(survey.words[i], value)) continue;
        levels[i] = value;
        has_levels = true;
    }
    Change(*node, node->states.texts, std::move(texts), NO_EFFECT, "title states");
    if (has_levels) SetLevels(*node, static_cast<int>(levels.size()), levels.data());
}

}  // namespace

std::vector<Node*> AddNodesOfColumns(Net& net, const CaseSource& source, const std::vector<int>& columns)
{
    CheckMemory(double(columns.size()) * sizeof(Node), "to add all the >-node-s from file '%s'",
                source.name.c_str());
    CaseFileReader reader(source, net.env->case_delimiter, false);
    const CaseFileHeader& header = reader.Header();
    std::vector<ColumnSurvey> surveys;
    for (const int column : columns) surveys.emplace_back().column = column;
    LineSplitter splitter(header.delimiter);
    Progress progress("reading case file");
    int64_t number = 0;
    for (CaseLine line; reader.Next(line);) {
        SplitChecked(splitter, line, header, reader.PlaceOf(line, ++number, 1));
        for (ColumnSurvey& survey : surveys) Survey(survey, splitter.Entry(survey.column), *net.env);
        if (number % 4096 == 0 && !progress.Step(double(reader.BytesTaken()) / double(reader.Size() + 1)))
            FailCasesHalted(number, double(reader.BytesTaken()) / double(reader.Size() + 1));
    }
    std::vector<Node*> added;
    for (const ColumnSurvey& survey : surveys)
        MakeNodeOf(net, header.columns[static_cast<size_t>(survey.column)], survey, added);
    return added;
}

// ---- One case into findings ----

namespace {

bool IsWanted(const std::string& column, const std::string& file, AddMode mode)
{
    if (mode != AddMode::ASK) return mode != AddMode::NEVER;
    const std::string question = "Add node '" + column + "' from case file '" + file + "'?";
    return AskQuestion(question.c_str(), "Yes,No", "No") == 0;
}

// Adds nodes for the columns that are none yet, as the mode has it; those left are reported.
std::vector<Node*> AddMissingNodes(Stream& file, Net& net, const CaseFileHeader& header, AddMode mode)
{
    std::vector<int> columns;
    std::string unknown;
    std::unordered_set<std::string_view> seen;
    for (int i = 0; i < static_cast<int>(header.columns.size()); ++i) {
        const std::string& name = header.columns[static_cast<size_t>(i)];
        if (IsSpecial(header, i) || FindNode(net, name) != nullptr || !seen.insert(name).second) continue;
        if (IsWanted(name, file.name, mode))
            columns.push_back(i);
        else if (unknown.size() < kMessageBytes)
            unknown += (unknown.empty() ? "" : ", ") + name;
    }
    if (!unknown.empty() && file.next_case <= 0)  // once, not for every case
        WarnAt<6522>(RecordPlace(file.name), file.name.c_str(), net.name.c_str(), unknown.c_str());
    if (columns.empty()) return {};
    CaseSource source;
    source.name = file.name;
    source.in_memory = file.in_memory;
    source.contents = file.contents;
    std::vector<Node*> added = AddNodesOfColumns(net, source, columns);
    if (mode == AddMode::TELL)
        for (const Node* node : added)
            RaiseWith<6537>({.place = RecordPlace(file.name)}, node->name.c_str(), file.name.c_str());
    return added;
}

// Reported once for all cases of a file.
void WarnOfRepeatedColumns(const Stream& file, const Net& net, const CaseFileHeader& header)
{
    std::vector<char> seen(net.nodes.nodes.size());
    for (int i = 0; i < static_cast<int>(header.columns.size()); ++i) {
        const Node* node = FindNode(net, header.columns[static_cast<size_t>(i)]);
        if (node == nullptr || IsSpecial(header, i)) continue;
        if (std::exchange(seen[static_cast<size_t>(node->index)], 1))
            WarnAt<6521>(RecordPlace(file.name), node->name.c_str(), file.name.c_str());
    }
}

// For messages that do not name the place themselves.
FilePlace PlaceForReport(const CasePlace& place)
{
    FilePlace reported = RecordPlace(place);
    reported.in_text = false;
    return reported;
}

NodeFinding FindingOf(const Node& node, const CaseEntry& entry, const CasePlace& place)
{
    NodeFinding finding;
    finding.state = entry.state >= 0 ? entry.state : -1;
    finding.value = entry.value;
    finding.likelihood.assign(entry.weights.begin(), entry.weights.end());
    if (entry.kind != EntryKind::MISSING && entry.kind != EntryKind::MISFIT &&
        (node.kind == UTILITY_NODE || IsDocumentation(node)))
        FailAt<6034>(PlaceForReport(place), KindTerm(node.kind), node.name.c_str());
    if (entry.kind == EntryKind::LIKELIHOOD && node.kind != NATURE_NODE && node.kind != DISCONNECTED_NODE)
        FailAt<6538>(PlaceForReport(place), KindTerm(node.kind), node.name.c_str());
    return finding;
}

// A position is valid only if a line begins there.
void CheckLineBegins(const Stream& file, int64_t position)
{
    ByteSource bytes(file);
    bytes.GoTo(position - 1);
    char before = '\n';
    bytes.Read(&before, 1);
    if (before != '\n' && before != '\r' && before != '/')
        FailAt<6539>(RecordPlace(file.name), static_cast<long long>(position), file.name.c_str());
}

class CaseFindingsReader {
public:
    CaseFindingsReader(Net& net, const CaseFileReader& reader, const CaseLine& line)
        : net_(net),
          reader_(reader),
          line_(line),
          values_(*net.env),
          splitter_(reader.Header().delimiter),
          place_(reader.PlaceOf(line, 0, 1))
    {}

    FoundCase Read(const std::vector<Node*>& nodes);

private:
    struct NewFinding {
        Node* node;
        NodeFinding finding;
    };
    CaseEntry ReadEntry(Node& node, int column);

    Net& net_;
    const CaseFileReader& reader_;
    const CaseLine& line_;
    CaseValues values_;
    LineSplitter splitter_;
    CasePlace place_;
};

CaseEntry CaseFindingsReader::ReadEntry(Node& node, int column)
{
    place_.character = splitter_.Character(column);
    try {
        return values_.Read(node, splitter_.Entry(column), place_);
    } catch (const HaltedReading&) {
        FailCasesHalted(0, double(line_.position) / double(std::max<int64_t>(reader_.Size(), 1)));
    }
}

FoundCase CaseFindingsReader::Read(const std::vector<Node*>& nodes)
{
    const CaseFileHeader& header = reader_.Header();
    SplitChecked(splitter_, line_, header, place_);
    FoundCase found;
    found.position = line_.position;
    std::vector<char> wanted(net_.nodes.nodes.size());
    for (const Node* node : nodes) wanted[static_cast<size_t>(node->index)] = 1;
    std::vector<NewFinding> findings;
    for (int column = 0; column < static_cast<int>(header.columns.size()); ++column) {
        place_.character = splitter_.Character(column);
        const std::string_view text = splitter_.Entry(column);
        if (column == header.freq_column) found.freq = ReadCaseWeight(text, place_);
        if (column == header.id_column) found.id = ReadCaseId(text, net_.env->missing_char, place_);
        if (IsSpecial(header, column)) continue;
        Node* node = FindNode(net_, header.columns[static_cast<size_t>(column)]);
        // A node wanted is taken from its first column.
        if (node == nullptr || !std::exchange(wanted[static_cast<size_t>(node->index)], 0)) continue;
        NodeFinding finding = FindingOf(*node, ReadEntry(*node, column), place_);
        if (node->kind == CONSTANT_NODE && finding.IsEmpty()) continue;  // a constant keeps its value
        findings.push_back({node, std::move(finding)});
    }
    DescribeStep(net_, "read a case");
    for (NewFinding& each : findings)
        Change(*each.node, each.node->finding, std::move(each.finding), REFINDS, "read a case");
    AutoUpdate(net_, FailedUpdate::kTakesAllBack);  // a case is entered as a whole
    return found;
}

}  // namespace

FoundCase ReadFindings(Stream& file, Net& net, std::vector<Node*> nodes, int64_t position, AddMode mode)
{
    if (position == kNextCase) {
        position = file.next_case;
        if (position > 0) mode = AddMode::NEVER;  // what is missing was dealt with at the case before
        position = std::abs(position);
    }
    if (position == 0) file.next_case = 0;
    // Of the case that follows the one read last the line is known, so that a message need not count.
    const int64_t line_number = position == std::abs(file.next_case) ? file.next_case_line : 0;
    CaseFileReader reader(file, net.env->case_delimiter, position == 0, kSmallCaseBlockBytes);
    std::vector<Node*> added;
    try {
        added = AddMissingNodes(file, net, reader.Header(), mode);
    } catch (const Unwind& failure) {
        // The whole file was looked through; the next call reads without the nodes that it cannot give.
        if (!HasCondition(*failure.record, ABORTED_CND)) file.next_case = reader.FirstCase();
        throw;
    }
    nodes.insert(nodes.end(), added.begin(), added.end());
    if (file.next_case == 0) WarnOfRepeatedColumns(file, net, reader.Header());
    const bool from_begin = position <= reader.FirstCase();
    if (!from_begin) {
        if (position >= reader.Size()) return FoundCase();
        CheckLineBegins(file, position);
        reader.GoTo(position, line_number);
    }
    CaseLine line;
    if (!reader.Next(line)) return FoundCase();
    CaseFindingsReader findings(net, reader, line);
    try {
        const FoundCase found = findings.Read(nodes);
        file.next_case = reader.BytesTaken();
        file.next_case_line = reader.NextLineNumber();
        return found;
    } catch (const Unwind& failure) {
        // The net is as it was, but reading on comes to the next case and not to this one forever.  The
        // place is negative while nodes that went again with this case are still to be added.
        if (HasCondition(*failure.record, ABORTED_CND)) throw;
        file.next_case = added.empty() ? reader.BytesTaken() : -reader.BytesTaken();
        file.next_case_line = reader.NextLineNumber();
        throw;
    }
}

int64_t FindCase(const Stream& file, int64_t number)
{
    CaseFileReader reader(file, file.env->case_delimiter, false);
    Progress progress("reading case file");
    CaseLine line;
    for (int64_t at = 1; reader.Next(line); ++at) {
        if (at == number) return line.position;
        const double fraction = double(reader.BytesTaken()) / double(reader.Size() + 1);
        if (at % 65536 == 0 && !progress.Step(std::min(fraction, 1.0))) FailCasesHalted(at, fraction);
    }
    return -1;
}

// ---- Whole sets ----

namespace {

// The columns of all files together.
struct UnitedColumns {
    std::vector<std::string> names;
    bool with_id = false, with_freq = false;
};

UnitedColumns UniteColumns(const Caseset& cases)
{
    UnitedColumns united;
    std::unordered_set<std::string> seen;
    for (const CaseSource& source : cases.sources) {
        const CaseFileReader reader(source, cases.env->case_delimiter, true);
        const CaseFileHeader& header = reader.Header();
        united.with_id |= header.id_column >= 0;
        united.with_freq |= header.freq_column >= 0 || source.degree != 1;
        for (int i = 0; i < static_cast<int>(header.columns.size()); ++i) {
            const std::string& name = header.columns[static_cast<size_t>(i)];
            // A column without a name is nothing that could be read again.
            if (IsSpecial(header, i) || name.empty()) continue;
            if (seen.insert(name).second) united.names.push_back(name);
        }
    }
    return united;
}

class CasesetWriter {
public:
    CasesetWriter(const Caseset& cases, Stream& file, const UnitedColumns& columns)
        : env_(*cases.env),
          columns_(columns),
          writer_(file, columns.names, columns.with_id, columns.with_freq)
    {
        AppendMissing(missing_, writer_.Signs());
        for (const CaseSource& source : cases.sources) size_ += double(SourceSize(source));
    }
    void WriteSource(const CaseSource& source);
    void Commit() { writer_.Commit(); }

private:
    std::vector<int> PlacesOf(const CaseFileHeader& header) const;
    void SetEntry(std::string& entry, std::string_view text) const;

    const environ_vx& env_;
    const UnitedColumns& columns_;
    CaseWriter writer_;
    std::string missing_;
    Progress progress_{"writing case file"};
    int64_t num_cases_ = 0;
    double done_ = 0, size_ = 1;
};

// For each column of the file its place among all; -1 for special ones and repetitions.
std::vector<int> CasesetWriter::PlacesOf(const CaseFileHeader& header) const
{
    std::unordered_map<std::string_view, int> place_of;
    for (size_t i = 0; i < columns_.names.size(); ++i)
        place_of.emplace(columns_.names[i], static_cast<int>(i));
    std::vector<int> places;
    for (int i = 0; i < static_cast<int>(header.columns.size()); ++i) {
        const auto found = place_of.find(header.columns[static_cast<size_t>(i)]);
        const bool is_written = !IsSpecial(header, i) && found != place_of.end();
        places.push_back(is_written ? std::exchange(found->second, -1) : -1);
    }
    return places;
}

void CasesetWriter::SetEntry(std::string& entry, std::string_view text) const
{
    if (IsMissing(text, env_)) {
        entry = missing_;
        return;
    }
    entry.clear();
    AppendEntry(entry, text, writer_.Signs());
}

void CasesetWriter::WriteSource(const CaseSource& source)
{
    CaseFileReader reader(source, env_.case_delimiter, false);
    const CaseFileHeader& header = reader.Header();
    const std::vector<int> places = PlacesOf(header);
    std::vector<std::string> entries(columns_.names.size(), missing_);
    LineSplitter splitter(header.delimiter);
    int64_t number = 0;
    for (CaseLine line; reader.Next(line);) {
        CasePlace place = reader.PlaceOf(line, ++number, 1);
        SplitChecked(splitter, line, header, place);
        double freq = source.degree;
        int64_t id = kNoCaseId;
        for (int i = 0; i < static_cast<int>(places.size()); ++i) {
            const std::string_view text = splitter.Entry(i);
            place.character = splitter.Character(i);
            if (i == header.freq_column)
                freq *= ReadCaseWeight(text, place);
            else if (i == header.id_column)
                id = ReadCaseId(text, env_.missing_char, place);
            else if (places[static_cast<size_t>(i)] >= 0)
                SetEntry(entries[static_cast<size_t>(places[static_cast<size_t>(i)])], text);
        }
        writer_.WriteEntries(entries, id, freq);
        const double fraction = std::min(1.0, (done_ + double(reader.BytesTaken())) / size_);
        if (++num_cases_ % 1024 == 0 && !progress_.Step(fraction)) FailCasesHalted(num_cases_, fraction);
    }
    done_ += double(reader.BytesTaken());
}

}  // namespace

void WriteCaseset(const Caseset& cases, Stream& file)
{
    const UnitedColumns columns = UniteColumns(cases);
    if (columns.names.empty() && !columns.with_id && !columns.with_freq) Fail<6540>(cases.name.c_str());
    CasesetWriter writer(cases, file, columns);
    for (const CaseSource& source : cases.sources) writer.WriteSource(source);
    writer.Commit();
}

CasesetSize MeasureCaseset(const Caseset& cases)
{
    CasesetSize size;
    Progress progress("reading case file");
    CaseReader reader(cases, {});
    for (CaseBlock block; reader.Next(block);) {
        size.num_cases += block.num_cases;
        for (const double weight : block.weights) size.total_weight += weight;
        if (!progress.Step(reader.Fraction())) FailCasesHalted(size.num_cases, reader.Fraction());
    }
    return size;
}

}  // namespace talora
