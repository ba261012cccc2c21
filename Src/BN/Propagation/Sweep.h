// Sweeps: the product of several tables over the variables of a clique, summed onto one or more of
// its subsets, without ever writing a table of the size of the clique.
//
// The axes of a clique are its unobserved variables in member order.  The last axes, together a few
// thousand entries at most, form the block: products are formed in block buffers that stay in the
// first-level cache.  The other axes are loops around the block.  A table covers some of the axes, in
// the same order, last fastest; so the part of it that a block needs is contiguous, and how that
// part spreads over the block (its shape) is the same for every block.  All of it is worked out once,
// when the plan is built; running a plan divides, allocates and decides nothing per entry.
//
// Where the covered axes alternate in short runs, a part is first spread out over the innermost few
// axes (or, for sums, the block is first added up over the others), so that what touches the whole
// block still runs over long runs.  The innermost axes make a row of sixteen entries or more; how the
// entries of a table spread over a row is the same for every row, so it is a fixed permutation.  The
// sum is then folded: the axes of the row that it does not cover are added up one after another.
//
// The last product before a sum, if nothing else needs it, is not written but summed as it is formed.
//
// A product is kept as long as none of its factors moves to another part: the loops are ordered so
// that the innermost one touches as few tables as possible.
//
// An output may exclude one factor: the message to a neighbour leaves out the message from it.  The
// products for k such outputs are found by halving: multiply by all factors of the right half, go
// on with the left half, and the other way round.
//
// Sums: at most some 256 additions in single precision, then double.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <memory_resource>
#include <span>
#include <vector>

#include "Basic/Memory.h"

namespace talora {

// How the part of a table that belongs to a block spreads over the block.
enum class SweepShape : uint8_t {
    kScalar,   // one entry for the whole block
    kFull,     // entry by entry
    kTail,     // the same run of entries again and again
    kRunsIn,   // runs of entries, each from its own place
    kRunsOut,  // runs of one and the same entry, each from its own place
    kRows      // rows, each from its own run of entries, all through the same map
};

enum class SweepAction : uint8_t {
    kOnes,          // target = 1
    kSpread,        // target = the table's part, its innermost axes spread out (rows)
    kPoint,         // target is the table's own part (full shape)
    kExpand,        // target = table
    kMultiply,      // target = source * table
    kReduce,        // output += source
    kReduceProduct  // output += source * table, both in runs of the sum
};

struct SweepOp {
    SweepAction action;
    SweepShape shape;
    int16_t level;  // runs when a loop of this depth or further out has moved
    int source;     // buffers
    int target;
    int spread;        // buffer with the table's part spread out, or -1: the table itself
    int table;         // factor, or number of factors + output
    int factor;        // of the sum of a product
    int run;           // length of a run, or of a row
    int from;          // of rows: entries of the part that make a row
    int count;         // entries of the part, or of the part spread out
    int64_t map;       // place in SweepPlan::maps
    int first_output;  // the outputs this serves, so that others can be left out
    int end_output;
    int not_for;  // of a spread: the output that leaves the factor out, or -1
};

struct SweepOutput {
    int64_t size = 1;      // entries
    int level = 0;         // the innermost loop that moves its part
    int part = 1;          // entries that belong to a block
    int block_sum = 0;     // entries that a block is first added up to; 0: straight into the result
    int flush_blocks = 0;  // so many blocks at most go into one block sum
    int first_fold = 0;    // how a block sum is added up to a part; none: it is one
    int end_fold = 0;
    bool wide = false;  // its parts come back, or are long sums: doubles
};

// Adds up axes that lie within a row: of each `terms` runs the entries that stand at the same place.
struct SweepFold {
    int terms;
    int run;
    int count;  // entries before
};

// Kernels work on so many entries at once and may read that much behind the end of a table.
constexpr int kSweepPadding = 16;

// All lists of a plan are as long as they need to be, in memory that the caller provides.
struct SweepPlan {
    explicit SweepPlan(std::pmr::memory_resource* memory)
        : loop_sizes(memory), deltas(memory), ops(memory), maps(memory), folds(memory), outputs(memory)
    {}

    int num_factors = 0;
    int num_outputs = 0;
    int num_buffers = 0;
    int block = 1;                     // entries
    int64_t num_steps = 1;             // blocks
    std::pmr::vector<int> loop_sizes;  // outermost first
    std::pmr::vector<int64_t> deltas;  // per loop and table: how far the table's part moves
    std::pmr::vector<SweepOp> ops;
    std::pmr::vector<uint16_t> maps;  // places, per run or per entry of a row; rows are padded
    std::pmr::vector<SweepFold> folds;
    std::pmr::vector<SweepOutput> outputs;

    int Stride() const
    {
        return (block + 2 * kSweepPadding - 1) / kSweepPadding * kSweepPadding;
    }  // of buffers
};

constexpr int kMostSweepAxes = 64;

struct SweepScope {
    uint64_t axes = 0;  // the bits of those that are covered
    int excluded = -1;  // of an output: factor left out of its product
};

// Makes plans; keeps its working memory from one to the next.
class SweepBuilder {
public:
    SweepBuilder();
    ~SweepBuilder();
    SweepBuilder(SweepBuilder&&) noexcept;

    SweepPlan Build(std::span<const int> sizes, std::span<const SweepScope> factors,
                    std::span<const SweepScope> outputs, std::pmr::memory_resource* memory);

private:
    class Work;
    std::unique_ptr<Work> work_;
};

// Working memory of sweeps, kept from one to the next.
struct SweepScratch {
    TableVector<float> buffers;
    std::vector<const float*> views;  // per buffer where its contents are
    TableVector<float> results;       // all outputs, one after another
    TableVector<double> wide;         // sums of outputs that take part in many blocks
    std::vector<float*> output;       // per output its place in results
    std::vector<double*> wide_output;
    std::vector<int64_t> offsets;  // per table: where its part begins
    struct Sum {
        int64_t offset = 0;
        int count = 0;  // blocks in it
    };
    std::vector<Sum> sums;  // per output: what stands in its block sum
    std::vector<int> indexes;
    // Asked now and then in long sweeps, with the share that is done, whether to go on; not set: the halt
    // flag alone says so.
    std::function<bool(double share)> go_on;
};

// Runs a plan; `factors` are the tables, with kSweepPadding readable floats behind each; `wanted` says which
// outputs are asked for (empty: all). Results stand in scratch.output, as they come, not scaled.  All
// products are multiplied by `boost`. With `maximise` an output gets the largest of the entries that are
// otherwise summed. False: halted.
bool RunSweep(const SweepPlan& plan, std::span<const float* const> factors, std::span<const char> wanted,
              float boost, SweepScratch& scratch, bool maximise = false);

// Scales entries by a power of two so that the largest is in [0.5, 1).  Returns the exponent to be
// added to that of the table, or kVanished if all are 0.
constexpr int kVanished = INT32_MIN;
int ScaleByExponent(float* entries, int64_t count);

}  // namespace talora
