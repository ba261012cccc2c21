// Case sets: an ordered list of sources of cases, and the reading of them block by block.
//
// A case set belongs to its environment.  It keeps what it needs of each source (a path, or a copy of
// the bytes), so the streams that it was made from may be deleted.
//
// Whoever learns, tests or scores makes a CaseReader for the nodes of interest and takes the cases in
// blocks.  Memory does not grow with the number of cases.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "BN/Model/Bnet.h"
#include "Basic/Handle.h"
#include "Basic/Memory.h"

namespace talora {

struct CaseSource {
    std::string name;  // path, or the name of the memory stream, for messages
    bool in_memory = false;
    std::string contents;        // of a source in memory
    double degree = 1;           // each of its cases counts so many times
    bool skips_misfits = false;  // a case with a value that does not fit is left out whole
    bool is_temporary = false;   // the file is the case set's own, and goes with it
};

}  // namespace talora

struct caseset_cs {
    talora::HandleHeader header;
    environ_vx* env = nullptr;
    std::string name;
    std::vector<talora::CaseSource> sources;
};

namespace talora {

using Caseset = caseset_cs;

Caseset* NewCaseset(environ_vx& env, std::string_view name);
void DeleteCaseset(Caseset* cases) noexcept;
void DeleteCasesets(environ_vx& env) noexcept;  // all of an environment
void AddFileToCaseset(Caseset& cases, const stream_vx& file, double degree, bool skips_misfits);

// What a case says of a node other than a state: a weight per state.
struct CaseLikelihood {
    int row = 0;
    int column = 0;
    std::vector<float> weights;
};

// Consecutive cases of one source, column by column: columns[i][row] is about nodes[i] of the reader.
struct CaseBlock {
    int num_cases = 0;
    std::vector<std::vector<int32_t>> states;  // state, or UNDEF_STATE where it is not known
    // Values of nodes that are continuous, the undefined number where not known; empty for the others.
    std::vector<std::vector<double>> values;
    std::vector<CaseLikelihood> likelihoods;  // by row, then column; nearly always empty
    std::vector<double> weights;              // NumCases times the degree of the source
    std::vector<int64_t> ids;                 // IDnum, -1 where there is none
    std::vector<int64_t> case_numbers;        // in the source, from 1
    std::vector<int64_t> lines;               // in the file, from 1
    std::vector<int64_t> positions;           // byte at which the case begins
};

// Reads all cases of a case set for some nodes of one net.  Nodes without a column are never known.
//
// Where a question handler is set, making a reader goes through all cases once and asks every question they
// raise; answers may add states or expand bounds.  So make the reader before sizing anything by the numbers
// of states: from then on reading does not change the net.
class CaseReader {
public:
    // @param nodes  of one net, each once, or none at all; the set, the net and the nodes outlive the reader
    CaseReader(const Caseset& cases, std::span<Node* const> nodes);
    ~CaseReader();
    CaseReader(const CaseReader&) = delete;
    CaseReader& operator=(const CaseReader&) = delete;

    // Takes up to some thousands of cases, never of two sources.  False at the end of the last source.
    // Values that do not fit are handled as the user or the defaults decide.
    bool Next(CaseBlock& block);

    // From the first case again; the answers to questions asked before still hold.
    void Rewind();

    bool HasColumn(int node) const;    // in the source of the last block
    double Fraction() const;           // of all bytes, for progress
    const CaseSource& Source() const;  // of the last block

    // The place of a case for messages: "case 3 on line 5 (char 41) of file 'x.cas'".
    std::string Place(const CaseBlock& block, int row) const;

private:
    struct Engine;
    std::unique_ptr<Engine> engine_;
};

}  // namespace talora
