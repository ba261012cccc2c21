// Sums of products of tables in doubles, or in numbers with exponents of their own.
#include "BN/Propagation/WideSweep.h"

#include <algorithm>
#include <bit>
#include <type_traits>

#include "BN/Propagation/Sweep.h"

namespace talora {

namespace {

// Products of so many floats of normal form are doubles of normal form.
constexpr size_t kMostFloatsInDouble = 8;
constexpr int64_t kPollSteps = 1 << 20;
constexpr double kDifference = 1e-9;

bool IsZero(double number)
{
    return number == 0;
}
bool IsZero(const WideNumber& number)
{
    return number.IsZero();
}

// A depth-first walk over the configurations, an axis per level, those of the output first: so the entries
// that are not asked for are left out as a whole.  A factor is multiplied in at its last axis, so a product
// of 0 ends all configurations that begin with it.
template <class Number>
class Walk {
public:
    Walk(std::span<const int> sizes, std::span<const WideFactor> factors, const WideOutput& output,
         bool maximise, const std::function<bool()>& go_on)
        : kept_from_(output.kept_from), maximise_(maximise), asked_(output.asked), go_on_(go_on)
    {
        levels_.resize(sizes.size());
        for (const bool in_output : {true, false})
            for (size_t axis = 0; axis < sizes.size(); ++axis) {
                if ((output.axes >> axis & 1) != in_output) continue;
                level_of_.resize(sizes.size());
                level_of_[axis] = sizes_.size();
                sizes_.push_back(sizes[axis]);
            }
        output_levels_ = size_t(std::popcount(output.axes));
        int64_t count = 1;
        AddStrides(output.axes, &count, nullptr);
        full_.resize(size_t(count));
        kept_.resize(size_t(count));
        first_ = One();
        for (size_t f = 0; f < factors.size(); ++f) {
            if (int(f) == output.excluded) continue;
            const int last = std::bit_width(factors[f].axes) - 1;
            if (last < 0)
                first_ = Times(first_, Entry(factors[f], 0));
            else
                AddStrides(factors[f].axes, nullptr, &factors[f]);
        }
        places_.assign(size_t(num_tables_), 0);
    }

    bool Run(WideSums& sums)
    {
        if (!IsZero(first_)) Visit(0, first_);
        sums.lost = false;
        sums.entries.clear();
        for (size_t i = 0; i < full_.size(); ++i) {
            sums.lost |= IsLost(full_[i], kept_[i]);
            sums.entries.push_back(Wide(full_[i]));
        }
        return !halted_;
    }

private:
    struct Step {
        int table;  // in places_
        int64_t stride;
        const WideFactor* complete;  // multiplied in here, or null
    };

    static Number One()
    {
        if constexpr (std::is_same_v<Number, double>)
            return 1;
        else
            return MakeWide(1);
    }
    static Number Entry(const WideFactor& factor, int64_t place)
    {
        if constexpr (std::is_same_v<Number, double>)
            return double(factor.entries[place]);
        else
            return factor.wide ? factor.wide[place] : MakeWide(double(factor.entries[place]));
    }
    static Number Times(const Number& a, const Number& b) { return a * b; }
    static WideNumber Wide(double number) { return MakeWide(number); }
    static WideNumber Wide(const WideNumber& number) { return number; }

    bool IsKept(const Number& product) const
    {
        if constexpr (std::is_same_v<Number, double>)
            return product >= kept_from_;
        else
            return !(product < wide_kept_from_);
    }
    static bool IsLost(const Number& full, const Number& kept)
    {
        if constexpr (std::is_same_v<Number, double>)
            return kept < full * (1 - kDifference);
        else
            return kept < full * MakeWide(1 - kDifference);
    }

    // Table 0 is the output.
    void AddStrides(uint64_t axes, int64_t* count, const WideFactor* factor)
    {
        size_t deepest = 0;
        for (uint64_t rest = axes; rest != 0; rest &= rest - 1)
            deepest = std::max(deepest, level_of_[size_t(std::countr_zero(rest))]);
        int64_t stride = 1;
        for (uint64_t rest = axes; rest != 0; rest &= ~std::bit_floor(rest)) {
            const size_t level = level_of_[size_t(std::bit_width(rest)) - 1];
            levels_[level].push_back({num_tables_, stride, level == deepest ? factor : nullptr});
            stride *= sizes_[level];
        }
        if (count != nullptr) *count = stride;
        ++num_tables_;
    }

    void Visit(size_t level, const Number& product)
    {
        if (level == output_levels_ && !asked_.empty() && !asked_[size_t(places_[0])]) return;
        if (level == levels_.size()) {
            Add(full_[size_t(places_[0])], product);
            if (IsKept(product)) Add(kept_[size_t(places_[0])], product);
            return;
        }
        const std::vector<Step>& steps = levels_[level];
        for (int state = 0; state < sizes_[level] && !halted_; ++state) {
            Number longer = product;
            for (const Step& step : steps)
                if (step.complete != nullptr && !IsZero(longer))
                    longer = Times(longer, Entry(*step.complete, places_[size_t(step.table)]));
            if (!IsZero(longer)) Visit(level + 1, longer);
            for (const Step& step : steps) places_[size_t(step.table)] += step.stride;
            if (++steps_ % kPollSteps == 0 && !go_on_()) halted_ = true;
        }
        for (const Step& step : steps) places_[size_t(step.table)] -= step.stride * sizes_[level];
    }

    void Add(Number& sum, const Number& term) const
    {
        sum = !maximise_ ? sum + term : sum < term ? term : sum;
    }

    std::vector<int> sizes_;        // per level
    std::vector<size_t> level_of_;  // per axis
    size_t output_levels_ = 0;
    double kept_from_;
    WideNumber wide_kept_from_ = MakeWide(kept_from_);
    bool maximise_;
    std::span<const char> asked_;
    const std::function<bool()>& go_on_;
    std::vector<std::vector<Step>> levels_;
    std::vector<int64_t> places_;  // per table
    int num_tables_ = 0;
    std::vector<Number> full_, kept_;
    Number first_{};
    int64_t steps_ = 0;
    bool halted_ = false;
};

}  // namespace

bool RunWideSweep(std::span<const int> sizes, std::span<const WideFactor> factors, const WideOutput& output,
                  bool maximise, const std::function<bool()>& go_on, WideSums& sums)
{
    const bool is_double =
        factors.size() <= kMostFloatsInDouble &&
        std::all_of(factors.begin(), factors.end(), [](const WideFactor& f) { return f.wide == nullptr; });
    if (is_double) return Walk<double>(sizes, factors, output, maximise, go_on).Run(sums);
    return Walk<WideNumber>(sizes, factors, output, maximise, go_on).Run(sums);
}

}  // namespace talora
