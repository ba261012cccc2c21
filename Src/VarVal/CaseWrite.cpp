// Cases as lines of case files: entries as readers take them, whole files, one case appended.
#include "VarVal/CaseWrite.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "Basic/Error.h"
#include "Basic/Text.h"
#include "VarVal/CaseFile.h"

namespace talora {

namespace {

constexpr size_t kFlushBytes = 1 << 20;
constexpr char kHeaderLine[] = "// ~->[CASE-1]->~\n\n";

// A line with nothing to see would be skipped when it is read: its one entry is put in quotes.
void ShowEmptyLine(std::string& text, size_t begin)
{
    if (text.find_first_not_of(' ', begin) == std::string::npos) text += "\"\"";
}

// Readers drop these at the ends of entries.
bool IsDropped(char c)
{
    return static_cast<unsigned char>(c) <= ' ';
}

[[noreturn]] void FailNeedsCommas(std::string_view text, const CaseSigns& signs)
{
    Fail<6532>(std::string(text).c_str(), signs.delimiter == ' ' ? "a space" : "a tab");
}

// Whether a reader takes an entry without quotes for what it is: without a delimiter, blanks at its ends that
// get lost, or what begins a comment.
bool IsPlainEntry(std::string_view text, const CaseSigns& signs)
{
    if (text.empty()) return signs.delimiter != ' ';
    if (IsDropped(text.front()) || IsDropped(text.back())) return false;
    const bool is_split = text.find(signs.delimiter) != std::string_view::npos ||
                          (signs.delimiter == ' ' && text.find('\t') != std::string_view::npos);
    return !is_split && FindCaseComment(text, signs.delimiter) == std::string_view::npos;
}

std::vector<std::string> NamesOf(std::span<Node* const> nodes)
{
    std::vector<std::string> names;
    for (const Node* node : nodes) names.push_back(node->name);
    return names;
}

}  // namespace

CaseSigns SignsOf(const environ_vx& env)
{
    return {env.case_delimiter, env.missing_char};
}

// ---- Entries ----

void AppendMissing(std::string& out, const CaseSigns& signs)
{
    if (signs.delimiter != ',' && (signs.missing == 0 || signs.missing == ' '))
        out += '*';  // an empty entry would get lost
    else if (signs.missing != 0)
        out += signs.missing;
}

// The name, or the number where that cannot be mistaken for a value.
void AppendState(std::string& out, const Node& node, int state, const CaseSigns& signs)
{
    if (state < 0) {
        AppendMissing(out, signs);
    } else if (!StateName(node, state).empty()) {
        out += StateName(node, state);
    } else {
        // A plain number would be a value, or a level.
        if (!IsDiscrete(node) || !node.states.levels.empty()) out += '#';
        out += std::to_string(state);
    }
}

void AppendCaseValue(std::string& out, double value, const CaseSigns& signs)
{
    if (IsUndef(value))
        AppendMissing(out, signs);
    else
        out += FormatShortest(value);
}

void AppendLikelihood(std::string& out, std::span<const float> weights)
{
    out += '{';
    for (size_t state = 0; state < weights.size(); ++state) {
        if (state > 0) out += ';';
        out += FormatShortest(weights[state]);
    }
    out += '}';
}

// The most specific form: the value of a continuous node, a likelihood, or the state.
void AppendFinding(std::string& out, const Node& node, const CaseSigns& signs)
{
    const NodeFinding& finding = node.finding;
    if (!IsDiscrete(node) && !IsUndef(finding.value))
        AppendCaseValue(out, finding.value, signs);
    else if (finding.state < 0 && !finding.likelihood.empty())
        AppendLikelihood(out, finding.likelihood);
    else
        AppendState(out, node, finding.state, signs);
}

// With commas anything can be written, in quotes; with other delimiters only what needs none.
void AppendEntry(std::string& out, std::string_view text, const CaseSigns& signs)
{
    if (signs.delimiter == ',') {
        const bool is_plain = !text.empty() && !IsDropped(text.front()) && !IsDropped(text.back()) &&
                              text.find_first_of(",\"\t ") == std::string_view::npos &&
                              text.find("//") == std::string_view::npos &&
                              text.find("/*") == std::string_view::npos;
        if (is_plain) {
            out += text;
            return;
        }
        out += '"';
        for (const char c : text) out.append(c == '"' ? 2 : 1, c);
        out += '"';
        return;
    }
    if (!IsPlainEntry(text, signs)) FailNeedsCommas(text, signs);
    out += text;
}

// ---- Whole files ----

// States are worded once, not in every row.
CaseWriter::CaseWriter(Stream& file, std::span<Node* const> nodes, bool with_id, bool with_freq)
    : CaseWriter(file, NamesOf(nodes), with_id, with_freq)
{
    nodes_.assign(nodes.begin(), nodes.end());
    for (const Node* node : nodes_) {
        std::vector<std::string>& words = words_.emplace_back(static_cast<size_t>(NumStates(*node)));
        for (size_t state = 0; state < words.size(); ++state)
            AppendState(words[state], *node, static_cast<int>(state), signs_);
    }
}

CaseWriter::CaseWriter(Stream& file, std::span<const std::string> columns, bool with_id, bool with_freq)
    : file_(file), sink_(file), signs_(SignsOf(*file.env)), with_id_(with_id), with_freq_(with_freq)
{
    WriteHeader(columns);
}

void CaseWriter::WriteHeader(std::span<const std::string> columns)
{
    text_ = kHeaderLine;
    const auto add = [&](std::string_view name) {
        Separate();
        AppendEntry(text_, name, signs_);
    };
    if (with_id_) add(kIdColumn);
    if (with_freq_) add(kFreqColumn);
    for (const std::string& column : columns)
        add(IsSpecialColumn(column) ? kNodeColumnMark + column : column);
    // Readers find out the delimiter from this line.
    const std::string_view line = std::string_view(text_).substr(sizeof kHeaderLine - 1);
    if (ShownDelimiter(line, signs_.delimiter) != signs_.delimiter)
        for (const std::string& column : columns)
            if (column.find_first_of(", \"") != std::string::npos) FailNeedsCommas(column, signs_);
    End();
}

void CaseWriter::Separate()
{
    if (row_began_)
        text_ += signs_.delimiter;
    else
        row_begin_ = text_.size();
    row_began_ = true;
}

void CaseWriter::Begin(int64_t id, double freq)
{
    if (with_id_) {
        Separate();
        if (id < 0)
            AppendMissing(text_, signs_);
        else
            text_ += std::to_string(id);
    }
    if (with_freq_) {
        Separate();
        text_ += FormatShortest(freq);
    }
}

void CaseWriter::End()
{
    ShowEmptyLine(text_, row_begin_);
    text_ += '\n';
    row_began_ = false;
    if (text_.size() < kFlushBytes) return;
    sink_.Write(text_);
    num_written_ += static_cast<int64_t>(text_.size());
    text_.clear();
}

void CaseWriter::Write(const int* states, const double* values, int64_t id, double freq)
{
    Begin(id, freq);
    for (size_t i = 0; i < nodes_.size(); ++i) {
        Separate();
        if (values != nullptr && !IsDiscrete(*nodes_[i]) && !IsUndef(values[i]))
            AppendCaseValue(text_, values[i], signs_);
        else if (states[i] < 0)
            AppendMissing(text_, signs_);
        else
            text_ += words_[i][static_cast<size_t>(states[i])];
    }
    End();
}

void CaseWriter::WriteEntries(std::span<const std::string> entries, int64_t id, double freq)
{
    Begin(id, freq);
    for (const std::string& entry : entries) {
        Separate();
        text_ += entry;
    }
    End();
}

void CaseWriter::Commit()
{
    sink_.Write(text_);
    text_.clear();
    sink_.Commit();
    file_.next_case = 0;
}

// ---- Appending one case ----

namespace {

// Size of what is there already: 0 for nothing.
int64_t SizeOf(const Stream& file)
{
    if (file.in_memory) return static_cast<int64_t>(file.contents.size());
    struct stat info;
    return ::stat(file.name.c_str(), &info) == 0 ? info.st_size : 0;
}

int OpenToWrite(const Stream& file, int flags)
{
    int handle;
    do {
        handle = file_ops.open(file.name.c_str(), O_WRONLY | O_CLOEXEC | flags, 0);
    } while (handle < 0 && errno == EINTR);
    return handle;
}

// False if an error was reported.  A call that was interrupted has closed the file all the same.
bool CloseFile(int handle)
{
    return file_ops.close(handle) == 0 || errno == EINTR;
}

// Cuts a file to the size that it had before an attempt to append, and fails.
[[noreturn]] void FailAppending(const Stream& file, int64_t size)
{
    const int reason = errno;
    const int handle = OpenToWrite(file, 0);
    bool taken_back = handle >= 0 && file_ops.ftruncate(handle, size) == 0;
    if (handle >= 0 && !CloseFile(handle)) taken_back = false;
    if (!taken_back && SizeOf(file) != size) Warn<6534>(file.name.c_str());
    FailWith<6533>(FILE_CND, file.name.c_str(), reason);
}

// Adds bytes to the end of a file, in one call where the system takes them so.  They are there for every
// process then, but not synced: losing power may cost the cases that were appended last.
void AppendBytes(Stream& file, std::string_view bytes, int64_t size)
{
    if (file.in_memory) {
        file.contents += bytes;
        return;
    }
    const int handle = OpenToWrite(file, O_APPEND);
    if (handle < 0) FailAppending(file, size);
    while (!bytes.empty()) {
        const ssize_t count = file_ops.write(handle, bytes.data(), bytes.size());
        if (count > 0) {
            bytes.remove_prefix(static_cast<size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            const int reason = errno;
            file_ops.close(handle);
            errno = reason;
            FailAppending(file, size);
        }
    }
    if (!CloseFile(handle)) FailAppending(file, size);
}

char LastByte(const Stream& file, int64_t size)
{
    ByteSource bytes(file);
    bytes.GoTo(size - 1);
    char last = '\n';
    bytes.Read(&last, 1);
    return last;
}

int64_t WriteFirstCase(Stream& file, std::span<Node* const> nodes, int64_t id, double freq)
{
    CaseWriter writer(file, nodes, id != kNoCaseId, freq != kNoFreq);
    std::vector<std::string> entries;
    for (const Node* node : nodes) AppendFinding(entries.emplace_back(), *node, writer.Signs());
    const int64_t position = writer.Position();
    writer.WriteEntries(entries, id, freq);
    writer.Commit();
    return position;
}

// The case as a line for a file that has columns already.
// 1. Numbers that the file has no column for are errors.
std::string LineFor(const Stream& file, const CaseFileHeader& header, std::span<Node* const> nodes,
                    int64_t id, double freq)
{
    if (id != kNoCaseId && header.id_column < 0) Fail<6529>(file.name.c_str());
    if (freq != kNoFreq && header.freq_column < 0) Fail<6530>(file.name.c_str());
    // 2. An entry for each column of the file, from the node of that name.
    const CaseSigns signs{header.delimiter, file.env->missing_char};
    std::unordered_map<std::string_view, Node*> node_of;
    for (Node* node : nodes) node_of.emplace(node->name, node);
    std::string line;
    for (int i = 0; i < static_cast<int>(header.columns.size()); ++i) {
        if (i > 0) line += signs.delimiter;
        const auto found = node_of.find(header.columns[static_cast<size_t>(i)]);
        if (i == header.id_column) {
            if (id == kNoCaseId)
                AppendMissing(line, signs);
            else
                line += std::to_string(id);
        } else if (i == header.freq_column) {
            line += FormatShortest(freq == kNoFreq ? 1 : freq);
        } else if (found != node_of.end()) {
            AppendFinding(line, *found->second, signs);
            node_of.erase(found);
        } else {
            AppendMissing(line, signs);
        }
    }
    // 3. A finding that no column takes would be lost.
    for (const auto& [name, node] : node_of)
        if (!node->finding.IsEmpty()) Fail<6531>(node->name.c_str(), file.name.c_str());
    ShowEmptyLine(line, 0);
    return line + "\n";
}

}  // namespace

int64_t AppendFindings(Stream& file, std::span<Node* const> nodes, int64_t id, double freq)
{
    const int64_t size = SizeOf(file);
    if (size == 0) return WriteFirstCase(file, nodes, id, freq);
    const CaseFileReader reader(file, file.env->case_delimiter, true, kSmallCaseBlockBytes);
    std::string text = LineFor(file, reader.Header(), nodes, id, freq);
    int64_t position = size;
    const char last = LastByte(file, size);
    if (last != '\n' && last != '\r') {
        Warn<6535>(file.name.c_str());
        text.insert(0, 1, '\n');
        ++position;
    }
    AppendBytes(file, text, size);
    return position;
}

}  // namespace talora
