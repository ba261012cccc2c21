// Conjugate-gradient ascent of the log likelihood, with a line search by bracketing and by the method of
// Brent.
#include "BN/Learning/LR_GradientAscent.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <numeric>

#include "BN/Learning/LearnData.h"
#include "Basic/Error.h"

namespace talora {

// ---- Search along a line ----

namespace {

constexpr int kMostBracketPoints = 60;
constexpr int kMostBrentPoints = 100;
constexpr double kGolden = 0.3819660112501051;  // of the larger part of a golden section
constexpr double kGrowth = 2.618033988749895;
constexpr double kLineTolerance = 1e-2;  // relative
constexpr double kSmallestStep = 1e-9;   // of the first step

struct Bracket {
    LinePoint low, middle, high;  // middle is the lowest of the three
};

// 1. Steps back until the function is below its start. 2. Steps forth until it rises again.
LineStatus FindBracket(const LineFunction& function, double value, double step, Bracket* bracket)
{
    int points = 0;
    bracket->low = {0, value};
    LinePoint& middle = bracket->middle;
    LinePoint& high = bracket->high;
    middle.place = step;
    if (!function(middle.place, &middle.value)) return LineStatus::HALTED;
    bool has_high = false;
    while (!(middle.value < value)) {
        if (middle.place < step * kSmallestStep) return LineStatus::FLAT;
        if (++points > kMostBracketPoints) return LineStatus::BRACKET_LIMIT;
        high = middle;
        has_high = true;
        middle.place /= 1 + kGrowth;
        if (!function(middle.place, &middle.value)) return LineStatus::HALTED;
    }
    while (!has_high) {
        if (++points > kMostBracketPoints) return LineStatus::BRACKET_LIMIT;
        high.place = middle.place * kGrowth;
        if (!function(high.place, &high.value)) return LineStatus::HALTED;
        has_high = !(high.value < middle.value);
        if (has_high) break;
        bracket->low = middle;
        middle = high;
    }
    return LineStatus::FOUND;
}

// Where the next point goes: the vertex of the parabola through the three lowest points when that is inside
// and converges, else a golden section of the larger part.
struct BrentState {
    double a, b;
    LinePoint x, w, v;  // lowest, second lowest, the one before
    double step = 0, step_before = 0;

    // Brent (1973), chapter 5: p / q is the step to the vertex; it is taken if it is inside and less than
    // half the step before the last.
    double NextStep(double tolerance)
    {
        const double middle = 0.5 * (a + b);
        if (std::fabs(step_before) > tolerance) {
            const double r = (x.place - w.place) * (x.value - v.value);
            double q = (x.place - v.place) * (x.value - w.value);
            double p = (x.place - v.place) * q - (x.place - w.place) * r;
            q = 2 * (q - r);
            if (q > 0) p = -p;
            q = std::fabs(q);
            const double before = step_before;
            step_before = step;
            if (std::fabs(p) < std::fabs(0.5 * q * before) && p > q * (a - x.place) &&
                p < q * (b - x.place)) {
                step = p / q;
                const double u = x.place + step;
                if (u - a < 2 * tolerance || b - u < 2 * tolerance)
                    step = std::copysign(tolerance, middle - x.place);
                return step;
            }
        }
        step_before = x.place >= middle ? a - x.place : b - x.place;
        return step = kGolden * step_before;
    }

    // The interval shrinks to the side of the lower point; x, w and v stay the lowest three.
    void Take(const LinePoint& u)
    {
        if (u.value <= x.value) {
            (u.place >= x.place ? a : b) = x.place;
            v = w;
            w = x;
            x = u;
            return;
        }
        (u.place < x.place ? a : b) = u.place;
        if (u.value <= w.value || w.place == x.place) {
            v = w;
            w = u;
        } else if (u.value <= v.value || v.place == x.place || v.place == w.place) {
            v = u;
        }
    }
};

}  // namespace

// A bracket first, then points until the interval is as small as the tolerance.
LineStatus MinimizeAlongLine(const LineFunction& function, double value, double step, LinePoint* lowest)
{
    *lowest = {0, value};
    Bracket bracket;
    const LineStatus status = FindBracket(function, value, step, &bracket);
    if (status != LineStatus::FOUND) return status;
    BrentState s{bracket.low.place, bracket.high.place, bracket.middle, bracket.middle, bracket.middle};
    *lowest = bracket.middle;
    for (int points = 0; points < kMostBrentPoints; ++points) {
        const double middle = 0.5 * (s.a + s.b);
        const double tolerance = kLineTolerance * std::fabs(s.x.place) + DBL_MIN;
        if (std::fabs(s.x.place - middle) <= 2 * tolerance - 0.5 * (s.b - s.a)) return LineStatus::FOUND;
        const double d = s.NextStep(tolerance);
        LinePoint u{s.x.place + (std::fabs(d) >= tolerance ? d : std::copysign(tolerance, d)), 0};
        if (!function(u.place, &u.value)) return LineStatus::HALTED;
        s.Take(u);
        *lowest = s.x;
    }
    return LineStatus::BRENT_LIMIT;
}

// ---- Ascent ----

namespace {

using Vector = std::vector<Counts>;  // a number per entry of each learned table

double Dot(const Vector& a, const Vector& b)
{
    double sum = 0;
    for (size_t f = 0; f < a.size(); ++f)
        sum += std::inner_product(a[f].begin(), a[f].end(), b[f].begin(), 0.0);
    return sum;
}

// Tables with logarithms moved by place x direction.
TableSet Moved(const LearnData& data, const TableSet& tables, const Vector& direction, double place)
{
    TableSet moved = tables;
    std::vector<double> row_probs;
    for (size_t f = 0; f < tables.size(); ++f) {
        const LearnedFamily& family = data.Families()[f];
        const int n = family.num_states;
        row_probs.resize(size_t(n));
        for (int64_t first = 0; first < family.Size(); first += n) {
            const double* const d = direction[f].data() + first;
            float* const to = moved[f].data() + first;
            const double most = *std::max_element(d, d + n);
            if (most == 0 && *std::min_element(d, d + n) == 0) continue;
            double sum = 0;
            for (int s = 0; s < n; ++s)
                sum += row_probs[size_t(s)] = double(to[s]) * std::exp(place * (d[s] - most));
            if (!(sum > 0)) continue;
            for (int s = 0; s < n; ++s)
                if (to[s] > 0) to[s] = std::max(float(row_probs[size_t(s)] / sum), FLT_MIN);
        }
    }
    return moved;
}

struct Ascent {
    LearnData& data;
    Progress& progress;
    std::vector<Counts> prior;
    double fraction = 0;

    TableSet tables;
    std::vector<Counts> counts;  // expected, with the prior
    Vector gradient, direction;
    double minus_log_likelihood = 0, objective = 0;
    double largest_count = 0;
    double last_step = 0;  // times the length of its direction

    // The tables become the present ones.  False if halted, and then they do not.
    bool MoveTo(TableSet next)
    {
        std::vector<Counts> next_counts;
        double next_likelihood = 0;
        if (!data.Evaluate(next, &next_counts, &next_likelihood, progress, fraction)) return false;
        tables = std::move(next);
        counts = std::move(next_counts);
        minus_log_likelihood = next_likelihood;
        objective = minus_log_likelihood + MinusLogPrior(tables, prior);
        FindGradient();
        return true;
    }

    // The derivative of the log likelihood by each logarithm: the count expected, less what its row would
    // give.
    void FindGradient()
    {
        gradient = counts;
        largest_count = 0;
        for (size_t f = 0; f < tables.size(); ++f) {
            const int n = data.Families()[f].num_states;
            for (size_t first = 0; first < tables[f].size(); first += size_t(n)) {
                double sum = 0, mass = 0;
                for (size_t at = first; at < first + size_t(n); ++at) {
                    sum += counts[f][at] += prior[f][at];
                    mass += double(tables[f][at]);
                }
                largest_count = std::max(largest_count, sum);
                for (size_t at = first; at < first + size_t(n); ++at)
                    gradient[f][at] = mass > 0 ? counts[f][at] - sum * double(tables[f][at]) / mass : 0;
            }
        }
    }

    // The first step has the length of the last one, or about one count's worth in the beginning.
    LineStatus Search(LinePoint* lowest)
    {
        const double length = std::sqrt(Dot(direction, direction));
        const double step = last_step > 0 ? last_step / length : 1 / largest_count;
        const LineFunction function = [this](double place, double* value) {
            const TableSet moved = Moved(data, tables, direction, place);
            if (!data.Evaluate(moved, nullptr, value, progress, fraction)) return false;
            *value += MinusLogPrior(moved, prior);
            return true;
        };
        const LineStatus status = MinimizeAlongLine(function, objective, step, lowest);
        if (status == LineStatus::FOUND) last_step = lowest->place * length;
        return status;
    }
};

int64_t NumFreeParameters(const LearnData& data, size_t num_learned)
{
    int64_t n = 0;
    for (size_t f = 0; f < num_learned; ++f) {
        const LearnedFamily& family = data.Families()[f];
        n += family.num_rows * (family.num_states - 1);
    }
    return n;
}

// beta = g (g - g_old) / g_old^2; below 0, and once per number of parameters, it starts again along the
// gradient.
void TurnDirection(Ascent& a, const Vector& old_gradient, double old_square, bool restarts)
{
    const double square = Dot(a.gradient, a.gradient);
    const double beta = (square - Dot(a.gradient, old_gradient)) / old_square;
    if (restarts || beta < 0) {
        a.direction = a.gradient;
        return;
    }
    for (size_t f = 0; f < a.direction.size(); ++f)
        for (size_t at = 0; at < a.direction[f].size(); ++at)
            a.direction[f][at] = a.gradient[f][at] + beta * a.direction[f][at];
    // Inexact searches may turn it downwards.
    if (Dot(a.direction, a.gradient) <= 0) a.direction = a.gradient;
}

// One iteration: false when it did not come to its end, and learning is over.
bool Climb(Ascent& a, bool restarts, bool* is_halted)
{
    LinePoint lowest;
    const LineStatus status = a.Search(&lowest);
    *is_halted = status == LineStatus::HALTED;
    if (status == LineStatus::BRACKET_LIMIT) Warn<6594>();
    if (status == LineStatus::BRENT_LIMIT) Warn<6595>();
    if (status == LineStatus::FLAT) return true;  // nothing changes any more
    if (status != LineStatus::FOUND) return false;
    const Vector old_gradient = a.gradient;
    const double old_square = Dot(old_gradient, old_gradient);
    if (!a.MoveTo(Moved(a.data, a.tables, a.direction, lowest.place))) {
        *is_halted = true;
        return false;
    }
    TurnDirection(a, old_gradient, old_square, restarts);
    return true;
}

}  // namespace

void LearnByGradient(Learner& learner, std::span<Node* const> nodes, const Caseset& cases, double degree)
{
    if (nodes.empty()) return;
    LearnData data(*nodes[0]->net, nodes, cases, degree);
    learner.num_cases = data.NumCases();
    Progress progress("doing gradient learning");
    PrintIterationHeader("\nDoing Gradient Ascent Learning, hold down <ctrl> + <mouse button> to stop ...\n");
    // 1. Start tables and their gradient.
    Ascent a{data, progress, data.PriorCounts()};
    bool goes_on = a.MoveTo(data.StartTables(learner.random_gen)), is_halted = !goes_on;
    a.direction = a.gradient;
    const int64_t period = std::max<int64_t>(1, NumFreeParameters(data, a.tables.size()));
    LearnIteration known{a.minus_log_likelihood, UndefDbl()};
    if (goes_on) learner.history.push_back(known);
    int num_done = 0;
    for (int i = 0; goes_on && i < learner.max_iters; ++i) {
        // 2. Iterations, until little changes or the gradient is 0.
        a.fraction = double(i) / std::max(1, learner.max_iters);
        PrintIteration(i, known);
        if (!IsUndef(known.change) && known.change < learner.tolerance) break;
        is_halted = !progress.Step(a.fraction);
        if (is_halted) break;
        if (Dot(a.gradient, a.gradient) == 0) {
            PrintMessage("Gradient is zero.\n");
            break;
        }
        const double before = a.minus_log_likelihood;
        goes_on = Climb(a, (i + 1) % period == 0, &is_halted);
        if (!goes_on) break;
        known = {a.minus_log_likelihood, RelativeChange(before, a.minus_log_likelihood)};
        learner.history.push_back(known);
        ++num_done;
    }
    // 3. What was reached is stored, also after a halt.
    if (is_halted) Notice<6593>();
    if (num_done > 0) StoreLearned(data, std::move(a.tables), a.counts);
}

}  // namespace talora
