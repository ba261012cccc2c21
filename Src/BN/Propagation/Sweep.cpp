// Makes plans of sweeps: blocks, loops, and the order of products and sums.
#include "BN/Propagation/Sweep.h"

#include <algorithm>
#include <bit>

namespace talora {

namespace {

constexpr int kUsualBlock = 2304;    // entries: a few buffers of them fit the first-level cache
constexpr int kLargestBlock = 8192;  // where the usual size would leave a very small block
constexpr int kSmallBlock = 256;
constexpr int kSmallestFused = 256;
constexpr int kShortRun = 16;  // shorter runs are spread out through a map first
constexpr int kSingleAdditions = 256;
constexpr int kNoBuffer = -1;

// How a table lies to the block and the loops.
struct Layout {
    SweepShape shape = SweepShape::kScalar;
    int run = 1;
    int part = 1;   // entries that belong to a block
    int level = 0;  // innermost loop that moves the part
    int64_t map = -1;
    int64_t size = 1;
    uint64_t covered = 0;    // axes
    const int64_t* strides;  // per axis, 0 where the table does not cover it
    // Short runs: the innermost axes, all covered, make a row, so that runs are rows.
    int spread = 0;        // entries of the part spread out; 0: not needed
    int row = 1;           // entries of a row
    int from = 1;          // entries of the part that make a row
    int64_t row_map = -1;  // per entry of a row, its place among them
};

}  // namespace

class SweepBuilder::Work {
public:
    SweepPlan Build(std::span<const int> sizes, std::span<const SweepScope> factors,
                    std::span<const SweepScope> outputs, std::pmr::memory_resource* memory)
    {
        Reset(sizes, factors, outputs);
        ChooseBlock();
        for (const SweepScope& factor : factors_) LayOut(factor);
        for (const SweepScope& output : outputs_) {
            LayOut(output);
            if (layouts_.back().shape == SweepShape::kRunsIn) InvertMap(layouts_.back());
        }
        OrderLoops();
        WriteLoops();
        WriteOutputs();
        WriteOps();
        return Copied(memory);
    }

private:
    void Reset(std::span<const int> sizes, std::span<const SweepScope> factors,
               std::span<const SweepScope> outputs)
    {
        sizes_ = sizes;
        factors_ = factors;
        outputs_ = outputs;
        plan_.num_buffers = 0;
        plan_.num_steps = 1;
        plan_.loop_sizes.clear();
        plan_.deltas.clear();
        plan_.ops.clear();
        plan_.maps.clear();
        plan_.folds.clear();
        plan_.outputs.clear();
        layouts_.clear();
        strides_.assign((factors.size() + outputs.size()) * sizes.size(), 0);
        loops_.clear();
        free_.clear();
    }

    SweepPlan Copied(std::pmr::memory_resource* memory) const
    {
        SweepPlan copy(memory);
        copy = plan_;  // lists keep their memory resource
        return copy;
    }

    void ChooseBlock()
    {
        first_inner_ = int(sizes_.size());
        int64_t block = 1;
        while (first_inner_ > 0) {
            const int64_t larger = block * sizes_[size_t(first_inner_) - 1];
            const bool fits = larger <= kUsualBlock || (block < kSmallBlock && larger <= kLargestBlock);
            if (!fits && block > 1) break;
            block = larger;
            --first_inner_;
        }
        plan_.block = int(block);
        plan_.num_factors = int(factors_.size());
        plan_.num_outputs = int(outputs_.size());
    }

    void LayOut(const SweepScope& scope)
    {
        int64_t* strides = strides_.data() + layouts_.size() * sizes_.size();
        Layout& layout = layouts_.emplace_back();
        layout.covered = scope.axes;
        layout.strides = strides;
        for (size_t axis = sizes_.size(); axis-- > 0;) {
            if (!Covers(layout, axis)) continue;
            strides[axis] = layout.size;
            layout.size *= sizes_[axis];
            if (int(axis) >= first_inner_) layout.part = int(layout.size);
        }
        ChooseShape(layout);
    }

    static bool Covers(const Layout& layout, size_t axis) { return layout.covered >> axis & 1; }

    // Looks at the innermost axes that are alike (all covered, or none).
    void ChooseShape(Layout& layout)
    {
        const int num_axes = int(sizes_.size());
        int axis = num_axes;
        const bool covered = num_axes > 0 && Covers(layout, size_t(num_axes) - 1);
        while (axis > first_inner_ && Covers(layout, size_t(axis) - 1) == covered)
            layout.run *= sizes_[size_t(--axis)];
        if (layout.part == 1) {
            layout.shape = SweepShape::kScalar;
        } else if (axis == first_inner_) {
            layout.shape = SweepShape::kFull;
        } else if (layout.run < kShortRun) {
            Spread(layout);
        } else if (covered && layout.part == layout.run) {
            layout.shape = SweepShape::kTail;
        } else {
            layout.shape = covered ? SweepShape::kRunsIn : SweepShape::kRunsOut;
            layout.map = WriteMap(layout.strides, first_inner_, layout.run);
        }
    }

    // Makes the innermost axes, enough for a row, covered; the rest of the block then has long runs.
    void Spread(Layout& layout)
    {
        int axis = int(sizes_.size());
        int row = 1;
        while (axis > first_inner_ && row < kSweepPadding) row *= sizes_[size_t(--axis)];
        int64_t strides[kMostSweepAxes] = {};  // in the part spread out
        int64_t size = 1;
        for (size_t k = sizes_.size(); int(k) > first_inner_;) {
            --k;
            if (!Covers(layout, k) && int(k) < axis) continue;
            strides[k] = size;
            size *= sizes_[k];
        }
        layout.spread = int(size);
        layout.run = row;
        layout.shape = size == plan_.block ? SweepShape::kFull
                       : size == row       ? SweepShape::kTail
                                           : SweepShape::kRunsIn;
        if (layout.shape == SweepShape::kRunsIn) layout.map = WriteMap(strides, first_inner_, row);
        layout.row = row;
        for (size_t k = size_t(axis); k < sizes_.size(); ++k)
            if (Covers(layout, k)) layout.from *= sizes_[k];
        layout.row_map = WriteMap(layout.strides, axis, 1);
        plan_.maps.resize(plan_.maps.size() + kSweepPadding);
    }

    // For each run of the entries over the axes from `first`, its place by the strides.  A run is all entries
    // over the innermost axes.
    int64_t WriteMap(const int64_t* strides, int first, int run)
    {
        const int64_t start = int64_t(plan_.maps.size());
        size_t end = sizes_.size();  // of the axes outside a run
        for (int64_t inside = 1; inside < run;) inside *= sizes_[--end];
        size_t count = 1;
        for (size_t axis = end; int(axis) > first;) count *= size_t(sizes_[--axis]);
        plan_.maps.resize(size_t(start) + count);
        uint16_t* map = plan_.maps.data() + start;
        map[0] = 0;
        count = 1;
        for (size_t axis = end; int(axis) > first;) {
            --axis;
            for (int state = 1; state < sizes_[axis]; ++state)
                for (size_t k = 0; k < count; ++k)
                    map[size_t(state) * count + k] = uint16_t(map[k] + state * strides[axis]);
            count *= size_t(sizes_[axis]);
        }
        return start;
    }

    // For a sum: in place of the place of each run of the block, per run of the sum the runs of the block.
    void InvertMap(Layout& layout)
    {
        uint16_t* map = plan_.maps.data() + layout.map;
        const int runs = plan_.block / layout.run;
        const int of_sum = (layout.spread > 0 ? layout.spread : layout.part) / layout.run;
        places_.assign(map, map + runs);
        next_.assign(size_t(of_sum), 0);
        for (int k = 0; k < of_sum; ++k) next_[size_t(k)] = k * (runs / of_sum);
        for (int k = 0; k < runs; ++k)
            map[next_[size_t(places_[size_t(k)] / layout.run)]++] = uint16_t(k * layout.run);
    }

    // Adds up, from the inside, the axes of a row that the sum does not cover.
    void WriteFolds(const Layout& layout, SweepOutput& output)
    {
        output.first_fold = int(plan_.folds.size());
        int count = layout.spread, run = 1;
        size_t axis = sizes_.size();
        for (int row = 1; row < layout.row;) {
            int terms = 1;
            for (; row < layout.row && layout.strides[axis - 1] == 0; row *= sizes_[axis])
                terms *= sizes_[--axis];
            for (const int step : {2, 3})  // neighbours are quickly added up by twos and threes
                for (; run == 1 && terms % step == 0; terms /= step, count /= step)
                    plan_.folds.push_back({step, run, count});
            if (terms > 1) plan_.folds.push_back({terms, run, count});
            count /= terms;
            for (; row < layout.row && layout.strides[axis - 1] != 0; row *= sizes_[axis])
                run *= sizes_[--axis];
        }
        output.end_fold = int(plan_.folds.size());
    }

    // What it costs, in units of one pass over a block, when a table moves to another part.
    double MoveCost(size_t table) const
    {
        const Layout& layout = layouts_[table];
        if (table >= factors_.size()) return 6.0 * layout.part / plan_.block;
        return 1 + 3.0 * layout.spread / plan_.block;
    }

    // Innermost the loop that spares most moves, then the next among the tables that are still.
    void OrderLoops()
    {
        uint64_t axes = first_inner_ < 64 ? (uint64_t{1} << first_inner_) - 1 : ~uint64_t{0};
        moves_.assign(layouts_.size(), 0);
        while (axes != 0) {
            size_t best = size_t(std::bit_width(axes)) - 1;
            double best_saving = 0;
            for (size_t axis = best + 1; axis-- > 0;) {
                if ((axes >> axis & 1) == 0) continue;
                double saving = 0;
                for (size_t t = 0; t < layouts_.size(); ++t)
                    if (!moves_[t] && !Covers(layouts_[t], axis)) saving += MoveCost(t);
                saving *= 1 - 1.0 / sizes_[axis];
                if (saving > best_saving) best_saving = saving, best = axis;
            }
            for (size_t t = 0; t < layouts_.size(); ++t) moves_[t] |= Covers(layouts_[t], best);
            loops_.push_back(int(best));
            axes &= ~(uint64_t{1} << best);
        }
        std::reverse(loops_.begin(), loops_.end());
        for (Layout& layout : layouts_)
            for (size_t l = 0; l < loops_.size(); ++l)
                if (layout.strides[size_t(loops_[l])] != 0) layout.level = int(l) + 1;
    }

    void WriteLoops()
    {
        for (int axis : loops_) {
            plan_.loop_sizes.push_back(sizes_[size_t(axis)]);
            plan_.num_steps *= sizes_[size_t(axis)];
        }
        plan_.deltas.resize(loops_.size() * layouts_.size());
        for (size_t t = 0; t < layouts_.size(); ++t) {
            int64_t rewind = 0;  // of the loops further in
            for (size_t l = loops_.size(); l-- > 0;) {
                const int64_t stride = layouts_[t].strides[size_t(loops_[l])];
                plan_.deltas[l * layouts_.size() + t] = stride - rewind;
                rewind += stride * (plan_.loop_sizes[l] - 1);
            }
        }
    }

    // Additions in single precision that one block makes to an entry of an output.
    int AdditionsPerBlock(const Layout& layout) const
    {
        const int per_entry = plan_.block / (layout.spread > 0 ? layout.spread : layout.part);
        switch (layout.shape) {
            case SweepShape::kScalar:
                return per_entry / 16 + 5;
            case SweepShape::kRunsOut:
                return per_entry / 16 + 5 * (per_entry / layout.run);
            case SweepShape::kTail:
                return per_entry / 4 + 1;
            default:
                return per_entry;
        }
    }

    void WriteOutputs()
    {
        for (size_t o = 0; o < outputs_.size(); ++o) {
            const Layout& layout = layouts_[factors_.size() + o];
            int64_t still = 1, moving = 1;  // blocks in a row with the same part; all others
            for (int l = 0; l < int(loops_.size()); ++l)
                (l < layout.level ? moving : still) *= plan_.loop_sizes[size_t(l)];
            const int64_t most = std::max(1, kSingleAdditions / AdditionsPerBlock(layout));
            SweepOutput output;
            output.size = layout.size;
            output.level = layout.level;
            output.part = layout.part;
            output.wide = moving * layout.part != layout.size || still > most;
            output.flush_blocks = int(std::min(most, still));
            if (layout.spread > 0) {
                output.block_sum = layout.spread;
                WriteFolds(layout, output);
            } else if (output.wide) {
                output.block_sum = layout.part;
            }
            plan_.outputs.push_back(output);
        }
    }

    // ---- The products. ----

    struct Buffer {
        int number = kNoBuffer;
        int level = 0;
        bool is_part = false;  // shows a part of a factor, which must not be written
    };

    int InnermostLevel() const { return int(loops_.size()); }

    Buffer NewBuffer(int level)
    {
        if (level == InnermostLevel() && !free_.empty()) {
            const int number = free_.back();
            free_.pop_back();
            return {number, level, false};
        }
        return {plan_.num_buffers++, level, false};
    }

    // Contents that outlive a step must stay, so only buffers that are made new at every step go back.
    void Release(const Buffer& buffer)
    {
        if (buffer.number != kNoBuffer && buffer.level == InnermostLevel()) free_.push_back(buffer.number);
    }

    void Emit(SweepAction action, int table, const Buffer& source, const Buffer& target, int first, int end)
    {
        SweepOp op{};
        op.action = action;
        op.level = int16_t(action == SweepAction::kReduce ? InnermostLevel() : target.level);
        op.source = source.number;
        op.target = target.number;
        op.spread = kNoBuffer;
        op.table = table;
        op.first_output = first;
        op.end_output = end;
        op.not_for = -1;
        if (source.number != kNoBuffer && op.level > source.level) kept_.push_back(source.number);
        if (action != SweepAction::kOnes) {
            const Layout& layout = layouts_[size_t(table)];
            op.shape = layout.shape;
            op.run = layout.run;
            op.count = layout.spread > 0 ? layout.spread : layout.part;
            op.map = std::max<int64_t>(0, layout.map);
        }
        plan_.ops.push_back(op);
    }

    static void SetRows(SweepOp& op, const Layout& layout)
    {
        op.run = layout.row;
        op.from = layout.from;
        op.map = layout.row_map;
    }

    // A factor spread out is kept until its part moves.  It need not be there at all for the output that
    // leaves it out.
    int SpreadOut(int factor)
    {
        const Layout& layout = layouts_[size_t(factor)];
        int& number = spread_[size_t(factor)];
        if (layout.spread == 0 || number != kNoBuffer) return number;
        number = plan_.num_buffers++;
        Emit(SweepAction::kSpread, factor, {}, {number, layout.level, false}, 0, int(outputs_.size()));
        SetRows(plan_.ops.back(), layout);
        for (int o = 0; o < int(outputs_.size()); ++o)
            if (outputs_[size_t(o)].excluded == factor) plan_.ops.back().not_for = o;
        return number;
    }

    // Runs that are no multiple of what kernels work on at once spill over into the next run.
    static bool CanMultiplyInPlace(const Layout& layout, bool in_rows)
    {
        if (in_rows) return layout.row % kSweepPadding == 0;
        return layout.shape < SweepShape::kTail || layout.run % kSweepPadding == 0;
    }

    // A factor that is spread over the whole block at every step, and only used once, needs no buffer.
    bool GoesInRows(const Layout& layout) const
    {
        return layout.spread == plan_.block && layout.level == InnermostLevel() && outputs_.size() == 1;
    }

    // Whether something reads the buffer that runs more often than what makes it: it must stay as it is.
    bool IsKept(const Buffer& buffer) const
    {
        return std::find(kept_.begin(), kept_.end(), buffer.number) != kept_.end();
    }

    // The product of a buffer and a factor; the buffer's own place may be used when it is not needed.
    Buffer Multiply(const Buffer& source, int factor, bool keep_source, int first, int end)
    {
        const Layout& layout = layouts_[size_t(factor)];
        const int level = std::max(source.level, layout.level);
        const bool in_rows = GoesInRows(layout);
        const int spread = in_rows ? kNoBuffer : SpreadOut(factor);
        Buffer target;
        if (source.number == kNoBuffer) {
            target = NewBuffer(level);
            target.is_part = layout.shape == SweepShape::kFull && !in_rows;
            const SweepAction start = target.is_part ? SweepAction::kPoint : SweepAction::kExpand;
            Emit(start, factor, source, target, first, end);
        } else {
            const bool in_place = !keep_source && source.level == level && !source.is_part &&
                                  !IsKept(source) && CanMultiplyInPlace(layout, in_rows);
            target = in_place ? source : NewBuffer(level);
            Emit(SweepAction::kMultiply, factor, source, target, first, end);
            if (!in_place && !keep_source) Release(source);
        }
        SweepOp& op = plan_.ops.back();
        op.spread = spread;
        if (in_rows) {
            op.shape = SweepShape::kRows;
            SetRows(op, layout);
        }
        return target;
    }

    void Reduce(int output, Buffer source, bool last_use)
    {
        if (source.number == kNoBuffer) {
            source = NewBuffer(0);
            Emit(SweepAction::kOnes, 0, {}, source, output, output + 1);
        }
        Emit(SweepAction::kReduce, int(factors_.size()) + output, source, {}, output, output + 1);
        if (last_use && plan_.ops.size() > 1 && plan_.block >= kSmallestFused) FuseLast();
    }

    static bool HasRuns(const SweepOp& op)
    {
        return op.shape == SweepShape::kFull || op.shape == SweepShape::kTail ||
               op.shape == SweepShape::kRunsIn;
    }

    // Makes one of the product and the sum that were written last, if the product is formed for it alone.
    void FuseLast()
    {
        const SweepOp product = plan_.ops[plan_.ops.size() - 2], sum = plan_.ops.back();
        const SweepOutput& output = plan_.outputs[size_t(sum.table) - factors_.size()];
        const bool is_its_own = product.action == SweepAction::kMultiply && product.target == sum.source &&
                                product.level == InnermostLevel() &&
                                product.first_output == sum.first_output &&
                                product.end_output == sum.end_output;
        const bool is_only_folded =
            plan_.num_steps == 1 && sum.shape == SweepShape::kFull && output.first_fold < output.end_fold;
        const int run = std::min(product.run, sum.run);
        if (!is_its_own || is_only_folded || !HasRuns(product) || !HasRuns(sum) ||
            run % kSweepPadding != 0)  // parts of vectors eat up what is gained
            return;
        SweepOp both = sum;
        both.action = SweepAction::kReduceProduct;
        both.source = product.source;
        both.spread = product.spread;
        both.factor = product.table;
        both.run = run;
        both.from = plan_.block / sum.count;
        both.map = WritePairs(product, sum, run);
        plan_.ops.pop_back();
        plan_.ops.back() = both;
    }

    // Per run of the sum the runs of the block that go into it, each with its place in the factor.
    int64_t WritePairs(const SweepOp& product, const SweepOp& sum, int run)
    {
        const int64_t start = int64_t(plan_.maps.size());
        const int each = plan_.block / sum.count;
        plan_.maps.reserve(plan_.maps.size() + 2 * size_t(plan_.block / run));
        for (int place = 0; place < sum.count; place += run)
            for (int k = 0; k < each; ++k) {
                int from = place + k * sum.count;  // of one part, or the whole block
                if (sum.shape == SweepShape::kRunsIn)
                    from = plan_.maps[size_t(sum.map + place / sum.run * each + k)] + place % sum.run;
                int of_factor = from;
                if (product.shape != SweepShape::kFull) of_factor %= product.run;
                if (product.shape == SweepShape::kRunsIn)
                    of_factor += plan_.maps[size_t(product.map + from / product.run)];
                plan_.maps.push_back(uint16_t(from));
                plan_.maps.push_back(uint16_t(of_factor));
            }
        return start;
    }

    void WriteOps()
    {
        is_excluded_.assign(factors_.size(), 0);
        excluding_.clear();
        whole_.clear();
        for (int o = 0; o < int(outputs_.size()); ++o) {
            const int excluded = outputs_[size_t(o)].excluded;
            (excluded >= 0 ? excluding_ : whole_).push_back(o);
            if (excluded >= 0) is_excluded_[size_t(excluded)] = 1;
        }
        const int all = int(outputs_.size());
        spread_.assign(factors_.size(), kNoBuffer);
        kept_.clear();
        Buffer product;
        FindCommonFactors();
        for (int factor : common_) product = Multiply(product, factor, false, 0, all);
        if (!excluding_.empty()) Halve(0, excluding_.size(), product, whole_.empty());
        if (whole_.empty()) return;
        for (int o : excluding_) product = Multiply(product, outputs_[size_t(o)].excluded, false, 0, all);
        for (int o : whole_) Reduce(o, product, o == whole_.back());
    }

    // Factors that move least come first, so that their product is kept longest.
    void FindCommonFactors()
    {
        const auto goes_before = [&](int a, int b) {
            const Layout &x = layouts_[size_t(a)], &y = layouts_[size_t(b)];
            if (x.level != y.level) return x.level < y.level;
            return (x.shape == SweepShape::kFull) > (y.shape == SweepShape::kFull);
        };
        common_.clear();
        for (int f = 0; f < int(factors_.size()); ++f) {
            if (is_excluded_[size_t(f)]) continue;
            common_.insert(std::upper_bound(common_.begin(), common_.end(), f, goes_before), f);
        }
    }

    // Outputs first .. end, each leaving out its factor; `product` holds all factors not in that range.
    void Halve(size_t first, size_t end, const Buffer& product, bool last_use)
    {
        if (end - first == 1) {
            Reduce(excluding_[first], product, last_use);
            if (last_use) Release(product);
            return;
        }
        const size_t middle = first + (end - first) / 2;
        HalveInto(first, middle, middle, end, product, true);
        HalveInto(middle, end, first, middle, product, !last_use);
    }

    // Multiplies by the factors of [from, to) and goes on with the outputs [first, end).
    void HalveInto(size_t first, size_t end, size_t from, size_t to, Buffer product, bool keep)
    {
        for (size_t k = from; k < to; ++k) {
            const int factor = outputs_[size_t(excluding_[k])].excluded;
            product = Multiply(product, factor, keep, excluding_[first], excluding_[end - 1] + 1);
            keep = false;
        }
        Halve(first, end, product, true);
    }

    std::span<const int> sizes_;
    std::span<const SweepScope> factors_;
    std::span<const SweepScope> outputs_;
    SweepPlan plan_{std::pmr::get_default_resource()};
    std::vector<Layout> layouts_;  // factors, then outputs
    std::vector<int64_t> strides_;
    std::vector<int> loops_;  // axes, outermost loop first
    int first_inner_ = 0;     // first axis of the block
    std::vector<int> free_;
    std::vector<int> spread_;  // per factor the buffer where it is spread out
    std::vector<uint16_t> places_;
    std::vector<int> next_;
    std::vector<char> moves_;        // per table: in a loop chosen so far
    std::vector<char> is_excluded_;  // per factor: by an output
    std::vector<int> excluding_;     // outputs that leave out a factor
    std::vector<int> whole_;         // the others
    std::vector<int> common_;        // factors that no output leaves out
    std::vector<int> kept_;          // buffers that are read in steps in which they are not made anew
};

SweepBuilder::SweepBuilder() : work_(std::make_unique<Work>()) {}
SweepBuilder::~SweepBuilder() = default;
SweepBuilder::SweepBuilder(SweepBuilder&&) noexcept = default;

SweepPlan SweepBuilder::Build(std::span<const int> sizes, std::span<const SweepScope> factors,
                              std::span<const SweepScope> outputs, std::pmr::memory_resource* memory)
{
    return work_->Build(sizes, factors, outputs, memory);
}

}  // namespace talora
