// Writing case files: a header line and one line per case.
//
// All writers of cases (case sets, findings of a net, random cases) use these.  The delimiter and the
// missing-data character are those of the environment.  A file on disk is replaced as a whole when it is
// committed, or stays as it was; appending one case touches nothing but the end of the file.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "BN/Model/Bnet.h"
#include "Basic/Stream.h"

namespace talora {

// The signs that a case file is written with.
struct CaseSigns {
    char delimiter = '\t';
    char missing = '*';  // 0 or a blank only with commas: nothing at all is written then
};

constexpr int64_t kNoCaseId = -1;
CaseSigns SignsOf(const environ_vx& env);

// ---- Pieces of text ----
void AppendMissing(std::string& out, const CaseSigns& signs);
// Name of the state, or its number ("#3" where a plain number would mean something else); missing if
// negative.
void AppendState(std::string& out, const Node& node, int state, const CaseSigns& signs);
void AppendCaseValue(std::string& out, double value, const CaseSigns& signs);  // undefined: missing
// "{w1;w2;...}"
void AppendLikelihood(std::string& out, std::span<const float> weights);
// What is known of the node: value, state or likelihood.
void AppendFinding(std::string& out, const Node& node, const CaseSigns& signs);
// An entry as it is read elsewhere, in quotes where it needs them.
void AppendEntry(std::string& out, std::string_view text, const CaseSigns& signs);

class CaseWriter {
public:
    // Writes the header: version, a line with IDnum and NumCases if wanted, and the names of the nodes.
    // @param nodes  outlive the writer and keep their states
    CaseWriter(Stream& file, std::span<Node* const> nodes, bool with_id, bool with_freq);
    // The same for columns that are no nodes; for WriteEntries only.
    CaseWriter(Stream& file, std::span<const std::string> columns, bool with_id, bool with_freq);

    // One case.
    // @param states  per node; negative: not known, or a value
    // @param values  per node, for continuous nodes, the undefined number where not known; may be null
    // @param id, freq  ignored when there is no such column; kNoCaseId is written as missing
    void Write(const int* states, const double* values, int64_t id, double freq);
    // The same with ready entries (AppendState and so on), one per column.
    void WriteEntries(std::span<const std::string> entries, int64_t id, double freq);

    void Commit();

    const CaseSigns& Signs() const { return signs_; }
    // Where the next case will begin, in bytes from the beginning.
    int64_t Position() const { return num_written_ + static_cast<int64_t>(text_.size()); }

private:
    void WriteHeader(std::span<const std::string> columns);
    void Begin(int64_t id, double freq);
    void Separate();
    void End();

    Stream& file_;
    ByteSink sink_;
    CaseSigns signs_;
    std::vector<Node*> nodes_;
    bool with_id_, with_freq_;
    std::vector<std::vector<std::string>> words_;  // per node: its states as they are written
    std::string text_;                             // not handed to the sink yet
    int64_t num_written_ = 0;                      // bytes handed to it
    bool row_began_ = false;
    size_t row_begin_ = 0;  // in text_
};

// Appends the findings of the nodes as one case.  A file that is not there yet, or is empty, gets a header
// first, with IDnum and NumCases columns unless id is kNoCaseId and freq is kNoFreq.  Otherwise the columns
// are those of the file, and what has no column there cannot be written (6529, 6530, 6531).
// @return the position of the case
constexpr double kNoFreq = -1;
int64_t AppendFindings(Stream& file, std::span<Node* const> nodes, int64_t id, double freq);

}  // namespace talora
