// Tables from equations: exact, integrated over intervals, or sampled.
#include "BN/Equations/EqnToTable.h"

#include <algorithm>
#include <atomic>

#include "BN/Model/BnEdit.h"
#include "BN/Model/BnProbs.h"
#include "Basic/MemoryAllowance.h"
#include "Basic/Progress.h"
#include "Basic/RandomNum.h"
#include "Basic/Text.h"
#include "Misc/Equations/EqnBuiltin.h"
#include "Misc/Equations/EqnCheck.h"
#include "Misc/Equations/EqnCompile.h"

namespace talora {

namespace {

constexpr double kSmallestNegative = -2e-6;  // rounding of a sum of probabilities; below is a mistake
constexpr double kRoundingStep = 1e-5;       // of a cell that has become too large for its increments
constexpr double kLevelRatio = 0.99999999;   // a computed value is a level when it is this near

enum class Target { PROBS, STATES, REALS };

// What is done about rows for which an equation gives only zeros.
enum ZeroRowChoice { UNIFORM_ROWS, ALWAYS_UNIFORM, IMPOSSIBLE_ROWS, ALWAYS_IMPOSSIBLE, NOT_CHOSEN };
std::atomic<int> remembered_choice{NOT_CHOSEN};  // for the rest of the run, all nodes

// How values are drawn in one interval.
struct IntervalDraw {
    enum { UNIFORM, ABOVE, BELOW, BOTH } kind = UNIFORM;
    double from = 0;   // lower end, or the finite end of a tail
    double width = 0;  // or scale of the tail
};

struct Interval {
    double low, high;
};

// The library's infinities and undefined number as those of IEEE 754, with which equations are evaluated.
double ToIeee(double value)
{
    if (IsUndef(value)) return kUndefinedEqn;
    if (value >= InfinityDbl()) return std::numeric_limits<double>::infinity();
    if (value <= -InfinityDbl()) return -std::numeric_limits<double>::infinity();
    return value;
}

double FromIeee(double value)
{
    return std::isinf(value) ? std::copysign(InfinityDbl(), value) : value;
}

// A node as equations see it: states, their names, levels.
EqnVariable MakeVariable(const Node& node, const std::string& name)
{
    EqnVariable variable;
    variable.name = name;
    variable.discrete = IsDiscrete(node);
    variable.num_states = NumStates(node);
    if (HasStateNames(node))
        for (const StateText& text : node.states.texts) variable.state_names.push_back(text.name);
    for (const double level : node.states.levels) variable.levels.push_back(ToIeee(level));
    return variable;
}

// One conversion.
struct Builder {
    Node& node;
    Equation eqn;
    EqnProgram program;
    EqnScratch scratch;
    Target target = Target::PROBS;
    int num_samples = 1;
    bool sampled = false;
    bool integrable = false;
    bool sums_states = false;  // deterministic, counted into a CPT

    std::vector<int> links;                        // of the equation's variables from 1 on
    std::vector<double> values;                    // of the equation's variables
    std::vector<int> states;                       // of the parents
    std::vector<int> drawn;                        // variables whose values are drawn
    std::vector<std::vector<IntervalDraw>> draws;  // by variable, for its states
    std::vector<double> stack;
    std::vector<double> arguments;  // of an integrable distribution
    EqnReason failure;

    RandomState* random = nullptr;
    RecursiveLock* random_lock = nullptr;  // null for a net's own generator
    NodeTables tables;
    mutable std::vector<std::pair<double, int>> levels;  // of a discrete output, sorted, with their states

    const EqnVariable& Output() const { return eqn.variables[0]; }
};

// ---- Drawing values ----

Interval BoundsOf(const std::vector<double>& thresholds, int state)
{
    return {std::min(thresholds[state], thresholds[state + 1]),
            std::max(thresholds[state], thresholds[state + 1])};
}

// The width of an interval as scale of a tail beside it: 1 where there is none or it has no width.
double TailScale(const std::vector<double>& thresholds, int state)
{
    if (state < 0 || state + 1 >= static_cast<int>(thresholds.size())) return 1;
    const Interval beside = BoundsOf(thresholds, state);
    const double width = beside.high - beside.low;
    return width > 0 && std::isfinite(width) ? width : 1;
}

// Uniform between finite ends, else an exponential tail with the width of the neighbour as its scale.
IntervalDraw MakeDraw(const std::vector<double>& thresholds, int state)
{
    const Interval bounds = BoundsOf(thresholds, state);
    const bool rising = thresholds.front() <= thresholds.back();
    const int below = rising ? state - 1 : state + 1, above = rising ? state + 1 : state - 1;
    if (std::isfinite(bounds.low) && std::isfinite(bounds.high))
        return {IntervalDraw::UNIFORM, bounds.low, bounds.high - bounds.low};
    if (std::isfinite(bounds.low)) return {IntervalDraw::ABOVE, bounds.low, TailScale(thresholds, below)};
    if (std::isfinite(bounds.high)) return {IntervalDraw::BELOW, bounds.high, TailScale(thresholds, above)};
    return {IntervalDraw::BOTH, 0, 1};
}

// By inversion: u is above 0, so its logarithm is finite.
double Draw(const IntervalDraw& draw, RandomState& random)
{
    const double u = NextPositive(random);
    switch (draw.kind) {
        case IntervalDraw::UNIFORM:
            return draw.from + u * draw.width;
        case IntervalDraw::ABOVE:
            return draw.from - std::log(u) * draw.width;
        case IntervalDraw::BELOW:
            return draw.from + std::log(u) * draw.width;
        case IntervalDraw::BOTH:
            break;
    }
    const double size = -std::log(u);
    return NextWord(random) >> 63 ? size : -size;
}

// ---- Messages about a value ----

// "a=red, b=2.5" of the present values, for messages.
std::string InputText(const Builder& b)
{
    std::string text;
    for (size_t i = 1; i < b.eqn.variables.size(); ++i) {
        const EqnVariable& variable = b.eqn.variables[i];
        const Node& parent = *b.node.links[b.links[i]].parent;
        text += (i > 1 ? ", " : "") + variable.name + "=";
        text +=
            variable.discrete ? StateWord(parent, static_cast<int>(b.values[i])) : FormatReal15(b.values[i]);
    }
    return text;
}

// The value of an equation at present, which must be defined.
double CheckValue(const Builder& b, double value, int state)
{
    const char* const name = b.node.name.c_str();
    if (!std::isnan(value)) return value;
    if (b.failure.IsSet()) {
        if (state < 0) Fail<6415>(b.failure.text, name, InputText(b).c_str());
        Fail<6416>(b.failure.text, name, StateWord(b.node, state).c_str(), InputText(b).c_str());
    }
    Fail<6414>(name, InputText(b).c_str());
}

double RunEquation(Builder& b)
{
    return Run(b.program, b.values.data(), b.stack.data(), b.failure);
}

// The levels of the output in order, each with the first state that has it.  Every row looks one up.
const std::vector<std::pair<double, int>>& SortedLevels(const Builder& b)
{
    const std::vector<double>& levels = b.Output().levels;
    if (!b.levels.empty()) return b.levels;
    for (size_t state = 0; state < levels.size(); ++state)
        if (!std::isnan(levels[state])) b.levels.emplace_back(levels[state], static_cast<int>(state));
    std::sort(b.levels.begin(), b.levels.end());
    const auto same = [](const auto& x, const auto& y) { return x.first == y.first; };
    b.levels.erase(std::unique(b.levels.begin(), b.levels.end(), same), b.levels.end());
    return b.levels;
}

// The first state whose level agrees with a computed value; -1 if none does.
int StateAtLevel(const Builder& b, double value)
{
    const auto& levels = SortedLevels(b);
    const auto agrees = [&](auto level) { return builtin::AgreesWithin(value, level->first, kLevelRatio); };
    int state = -1;
    const auto take = [&](auto level) { state = state < 0 ? level->second : std::min(state, level->second); };
    // Levels that agree stand together on both sides of the value.
    const auto at = std::lower_bound(levels.begin(), levels.end(), std::pair(value, 0));
    for (auto level = at; level != levels.end() && agrees(level); ++level) take(level);
    for (auto level = at; level != levels.begin() && agrees(level - 1); --level) take(level - 1);
    return state;
}

// The state whose level is nearest, the lower of equals; -1 without levels.
int StateNearLevel(const Builder& b, double value)
{
    const auto& levels = SortedLevels(b);
    if (levels.empty() || std::isnan(value)) return -1;
    auto at = std::lower_bound(levels.begin(), levels.end(), std::pair(value, 0));
    if (at == levels.end() || (at != levels.begin() && value - (at - 1)->first <= at->first - value)) --at;
    return at->second;
}

// The state of the node that a value of its deterministic equation stands for.
int StateOfResult(const Builder& b, double value)
{
    const EqnVariable& output = b.Output();
    const char* const name = b.node.name.c_str();
    // 1. Into intervals.
    if (!output.discrete) {
        const int interval = FindInterval(output.levels, value);
        const auto [lowest, highest] = std::minmax_element(output.levels.begin(), output.levels.end());
        if (interval < 0) Fail<6413>(name, value, *lowest, *highest, InputText(b).c_str());
        return interval;
    }
    // 2. Into states that the equation names, true or false, or stands for by their levels.
    if (b.eqn.result == EqnResult::TRUTH) return StateOfTruth(output, value != 0);
    if (b.eqn.result == EqnResult::AS_STATE) return StateNearLevel(b, value);
    // 3. Numbers: a level, or else the number of a state.
    const bool by_level = b.eqn.result == EqnResult::NUMBER && !output.levels.empty();
    const int state = by_level ? StateAtLevel(b, value) : -1;
    if (state >= 0) return state;
    if (by_level || !builtin::IsWhole(value)) Fail<6411>(name, value, InputText(b).c_str());
    if (value < 0 || value >= output.num_states)
        Fail<6412>(name, output.num_states - 1,
                   static_cast<int>(std::clamp(value, -2147483648.0, 2147483647.0)), InputText(b).c_str());
    return static_cast<int>(value);
}

// A tiny negative probability comes from rounding and counts as 0.
double CheckProb(const Builder& b, double prob, int state)
{
    if (prob < 0 && prob >= kSmallestNegative) return 0;
    if (prob < 0)
        Fail<2458>(b.node.name.c_str(), prob, StateWord(b.node, state).c_str(), InputText(b).c_str());
    if (prob > std::numeric_limits<float>::max())
        Fail<2457>(b.node.name.c_str(), prob, StateWord(b.node, state).c_str(), InputText(b).c_str());
    return prob;
}

// ---- One row ----

// Discrete parents give their state, continuous ones that are not drawn are not in the equation.
void SetParents(Builder& b)
{
    for (size_t i = 1; i < b.eqn.variables.size(); ++i) b.values[i] = b.states[b.links[i]];
}

void DrawParents(Builder& b)
{
    for (const int variable : b.drawn)
        b.values[variable] = Draw(b.draws[variable][b.states[b.links[variable]]], *b.random);
}

// Probability of every state from the cumulative function.
void IntegrateRow(Builder& b, double* row)
{
    const Expr& call = b.eqn.Root();
    const FunctionDef& def = *call.function;
    if (!EvaluateParameters(b.eqn, b.values.data(), b.arguments.data(), b.scratch)) {
        b.failure = b.scratch.failure;
        CheckValue(b, kUndefinedEqn, 0);
    }
    const std::vector<double>& thresholds = b.Output().levels;
    for (int state = 0; state < NumStates(b.node); ++state) {
        Interval bounds = BoundsOf(thresholds, state);
        // The topmost interval holds its upper end.
        if (bounds.high == std::max(thresholds.front(), thresholds.back()))
            bounds.high = std::nextafter(bounds.high, std::numeric_limits<double>::infinity());
        EqnReason reason;
        bool defined = true;
        for (int i = 1; i < call.num_children; ++i) defined &= !std::isnan(b.arguments[i]);
        const double prob =
            defined ? def.interval(b.arguments.data(), call.num_children, bounds.low, bounds.high, reason)
                    : kUndefinedEqn;
        if (reason.IsSet()) b.failure.Set("error evaluating function:  %s (%s)", def.name, reason.text);
        row[state] = CheckProb(b, CheckValue(b, prob, state), state);
    }
}

// Of a continuous node the density at a drawn point, times the width of the interval: its mean over samples
// is the integral.
double ProbOfState(Builder& b, int state)
{
    double width = 1;
    b.values[0] = state;
    if (!b.Output().discrete) {
        const IntervalDraw& draw = b.draws[0][state];
        b.values[0] = Draw(draw, *b.random);
        // A table gives probabilities of intervals, anything else a density.
        const Expr& root = b.eqn.Root();
        if (root.kind != ExprKind::CALL || root.function->form != NOISY_TABLE_FORM) width = draw.width;
    }
    return CheckProb(b, CheckValue(b, RunEquation(b), state) * width, state);
}

// Fills the row of an exact probabilistic equation.
void ExactRow(Builder& b, double* probs)
{
    if (b.integrable) return IntegrateRow(b, probs);
    for (int state = 0; state < NumStates(b.node); ++state) probs[state] = ProbOfState(b, state);
}

// Whether the samples of a row end here because a halt was requested: the row is then made of the samples
// so far.
bool EndsAt(int sample)
{
    constexpr int kBetweenLooks = 1 << 14;
    return sample % kBetweenLooks == kBetweenLooks - 1 && IsHalted();
}

// Adds the probabilities of one sample after the other, until a cell is too large to grow.
void SampleProbRow(Builder& b, float* row, std::vector<double>& probs)
{
    const int num_states = NumStates(b.node);
    for (int sample = 0; sample < b.num_samples && !EndsAt(sample); ++sample) {
        DrawParents(b);
        if (b.integrable) IntegrateRow(b, probs.data());
        for (int state = 0; state < num_states; ++state) {
            const double prob = b.integrable ? probs[state] : ProbOfState(b, state);
            if (AddToCell(row[state], prob, *b.random)) continue;
            Warn<2852>(sample, b.num_samples, state, b.node.name.c_str());
            return;
        }
    }
}

void SampleStateRow(Builder& b, float* row)
{
    for (int sample = 0; sample < b.num_samples && !EndsAt(sample); ++sample) {
        DrawParents(b);
        const int state = StateOfResult(b, CheckValue(b, RunEquation(b), -1));
        if (AddToCell(row[state], 1.0, *b.random)) continue;
        Warn<2851>(sample, b.num_samples, b.node.name.c_str());
        return;
    }
}

double MeanOfSamples(Builder& b)
{
    double sum = 0;
    int sample = 0;
    for (; sample < b.num_samples && !EndsAt(sample); ++sample) {
        DrawParents(b);
        sum += CheckValue(b, RunEquation(b), -1);
    }
    const double mean = CheckValue(b, sum / sample, -1);
    const std::vector<double>& levels = b.Output().levels;
    if (HasStates(b.node) && FindInterval(levels, mean) < 0) {
        const auto [lowest, highest] = std::minmax_element(levels.begin(), levels.end());
        Warn<6413, 1>(b.node.name.c_str(), mean, *lowest, *highest, InputText(b).c_str());
    }
    return FromIeee(mean);
}

// What the row holds already as counts, to add to; zeros where it holds nothing.
void StartCounts(const Builder& b, int64_t row_index, float* row)
{
    const int num_states = NumStates(b.node);
    const bool known = std::none_of(row, row + num_states, [](float entry) { return IsMarker(entry); });
    const auto& experience = b.tables.experience;
    const double weight = experience.empty() || IsUndef(experience[row_index]) ? 1.0 : experience[row_index];
    for (int state = 0; state < num_states; ++state)
        row[state] = known ? static_cast<float>(row[state] * weight) : 0.0f;
}

// The one row that the parents' present states select, in the kind of table that was chosen.
void FillRow(Builder& b, int64_t row_index, std::vector<double>& probs)
{
    const RandomScope guard(b.sampled ? b.random_lock : nullptr);
    SetParents(b);
    if (b.target == Target::REALS) {
        b.tables.func_reals[row_index] = MeanOfSamples(b);
    } else if (b.target == Target::STATES) {
        b.tables.func_states[row_index] = StateOfResult(b, CheckValue(b, RunEquation(b), -1));
    } else {
        float* const row = b.tables.probs.data() + row_index * NumStates(b.node);
        if (b.sampled) StartCounts(b, row_index, row);
        if (b.sums_states) {
            SampleStateRow(b, row);
        } else if (b.sampled) {
            SampleProbRow(b, row, probs);
        } else {
            ExactRow(b, probs.data());
            std::transform(probs.begin(), probs.end(), row,
                           [](double prob) { return static_cast<float>(prob); });
        }
    }
}

// Steps the parents' states to the next row, the last parent fastest.
void NextRow(Builder& b)
{
    for (size_t i = b.states.size(); i-- > 0;) {
        if (++b.states[i] < NumStates(*b.node.links[i].parent)) return;
        b.states[i] = 0;
    }
}

// Fills rows until all are done or a halt is requested.  @return how many were filled
int64_t FillRows(Builder& b, int64_t num_rows)
{
    const std::string title = ExpandMarkup("generating >-CPTable for node '") + b.node.name + "'";
    Progress progress(title.c_str());
    std::vector<double> probs(NumStates(b.node));
    for (int64_t row = 0; row < num_rows; ++row) {
        FillRow(b, row, probs);
        NextRow(b);
        if (!progress.Step(static_cast<double>(row + 1) / static_cast<double>(num_rows))) return row + 1;
    }
    return num_rows;
}

// ---- Preparation ----

// Continuous nodes take part by their intervals, so they need some.
void CheckThresholds(const Builder& b)
{
    for (const Link& link : b.node.links)
        if (!IsDiscrete(*link.parent) && !HasStates(*link.parent))
            Fail<2020>(b.node.name.c_str(), link.parent->name.c_str());
    if (b.eqn.probabilistic && !b.Output().discrete && b.Output().num_states == 0)
        Fail<2313>(b.node.name.c_str());
}

// Anything that is drawn makes the table a sampled one.
void PrepareDraws(Builder& b)
{
    b.draws.resize(b.eqn.variables.size());
    for (size_t i = 0; i < b.eqn.variables.size(); ++i) {
        const EqnVariable& variable = b.eqn.variables[i];
        const bool needed = i > 0 || (b.eqn.probabilistic && !b.integrable);
        if (variable.discrete || !needed) continue;
        for (int state = 0; state < variable.num_states; ++state)
            b.draws[i].push_back(MakeDraw(variable.levels, state));
        if (i > 0) b.drawn.push_back(static_cast<int>(i));
        b.sampled = true;
    }
}

// A probabilistic equation gives probabilities. A deterministic one gives values of a continuous node if
// there is one value per row, states where nothing is drawn, and else counts.
void ChooseTarget(Builder& b)
{
    if (!b.sampled) b.num_samples = 1;
    const bool is_real = !b.Output().discrete && (b.num_samples == 1 || b.Output().num_states == 0);
    if (b.eqn.probabilistic)
        b.target = Target::PROBS;
    else
        b.target = is_real ? Target::REALS : b.sampled ? Target::PROBS : Target::STATES;
    b.sums_states = b.target == Target::PROBS && !b.eqn.probabilistic;
}

std::string BytesText(double bytes)
{
    const char* const units[] = {"bytes", "KB", "MB", "GB", "TB", "PB"};
    size_t unit = 0;
    for (; bytes >= 1024 && unit + 1 < std::size(units); ++unit) bytes /= 1024;
    return Format("%.3g %s of memory", bytes, units[unit]);
}

[[noreturn]] void FailTooLarge(const Node& node)
{
    FailWith<6407>(OUT_OF_MEMORY_CND, node.name.c_str());
}

// The user decides about a table that does not fit into the memory limit.  @return whether to go over it;
// without a question handler the limit holds
bool AskForMemory(const Node& node, double bytes)
{
    if (bytes <= MemoryAvailable()) return false;
    if (node.net->env->always_try_large) return true;
    if (!node.net->env->question_handler.IsSet()) return false;
    const std::string question = "Do you want to continue generating the table for node '" + node.name +
                                 "' even though it will require " + BytesText(bytes) + "?";
    const int answer = AskQuestion(question.c_str(), "Yes,Always Try,No", "Yes");
    if (answer == 1) node.net->env->always_try_large = true;
    if (answer == 2) FailTooLarge(node);
    return true;
}

// @return whether memory may be taken over the limit
bool CheckTableSize(const Builder& b)
{
    if (b.target != Target::PROBS) {
        if (NumRows(b.node) > kMaxTableEntries) FailTooLarge(b.node);
        return AskForMemory(b.node,
                            NumRows(b.node) * (b.target == Target::REALS ? sizeof(double) : sizeof(int32_t)));
    }
    try {
        CheckCanHaveTable(b.node);
    } catch (const Unwind&) {
        Fail<2284>(b.node.name.c_str());
    }
    return AskForMemory(b.node, TableEntries(b.node) * sizeof(float));
}

// Keeps a table of the kind wanted where something is to be added to it, else makes an empty one.
template <class T>
void StartTable(TableVector<T>& table, const TableVector<T>& present, bool add, double entries, T empty)
{
    if (add && static_cast<double>(present.size()) == entries)
        table = present;
    else
        table.assign(static_cast<size_t>(entries), empty);
}

// What is to be added to may be a function table, which is then taken as a CPT.
void AllocateTable(Builder& b, bool add)
{
    const double num_rows = NumRows(b.node);
    const NodeTables& present = b.node.tables;
    try {
        if (b.target == Target::REALS)
            return StartTable(b.tables.func_reals, present.func_reals, add, num_rows, UndefDbl());
        if (b.target == Target::STATES)
            return StartTable(b.tables.func_states, present.func_states, add, num_rows,
                              static_cast<int32_t>(UNDEF_STATE));
        TableVector<float> scratch;
        const bool has_function = add && present.probs.empty() && EffectiveProbs(b.node, scratch) != nullptr;
        StartTable(b.tables.probs, has_function ? scratch : present.probs, add, TableEntries(b.node),
                   MissingProb());
        if (add) b.tables.experience = present.experience;
    } catch (const std::bad_alloc&) {
        FailTooLarge(b.node);
    }
}

// ---- Finishing a CPT ----

// Samples that found nothing are no statement, so there the row is uniform; an exact equation that gives
// zeros is one, so the user is asked, once per run if the answer is for all.
ZeroRowChoice ChooseForZeroRows(const Builder& b)
{
    if (b.node.links.empty()) return UNIFORM_ROWS;
    const int remembered = remembered_choice.load();
    if (remembered != NOT_CHOSEN) return static_cast<ZeroRowChoice>(remembered);
    if (b.sampled) return UNIFORM_ROWS;
    const std::string question =
        ExpandMarkup("In equation of >-node ") + b.node.name +
        ExpandMarkup(
            ", there are parent settings (i.e. conditions) for which the equation indicates only probabilities of zero for all the states of that >-node.  Do you want to give each of those conditions a uniform distribution, or indicate each of those conditions are impossible");
    const int answer = AskQuestion(question.c_str(), "Uniform,Always Uniform,Impossible,Always Impossible",
                                   "Always Uniform");
    if (answer == ALWAYS_UNIFORM || answer == ALWAYS_IMPOSSIBLE) remembered_choice = answer;
    return static_cast<ZeroRowChoice>(answer);
}

// Divides rows by their sums; rows that are all zero become uniform or stay.  @return how many were
// made uniform
int64_t NormalizeRows(Builder& b, int64_t num_rows)
{
    const int num_states = NumStates(b.node);
    int64_t num_uniform = 0;
    ZeroRowChoice choice = NOT_CHOSEN;
    for (int64_t row_index = 0; row_index < num_rows; ++row_index) {
        float* const row = b.tables.probs.data() + row_index * num_states;
        double sum = 0;
        for (int state = 0; state < num_states; ++state) sum += row[state];
        if (sum > 0) {
            for (int state = 0; state < num_states; ++state)
                row[state] = static_cast<float>(row[state] / sum);
            continue;
        }
        if (choice == NOT_CHOSEN) choice = ChooseForZeroRows(b);
        if (choice == IMPOSSIBLE_ROWS || choice == ALWAYS_IMPOSSIBLE) continue;
        std::fill(row, row + num_states, static_cast<float>(1.0 / num_states));
        ++num_uniform;
    }
    return num_uniform;
}

// Counts as probabilities, with their sums as experience.  A row without any is uniform if it is the last
// word.
void SetExperiences(Builder& b, int64_t filled, bool fills_empty)
{
    const int num_states = NumStates(b.node);
    if (b.tables.experience.empty())
        b.tables.experience.assign(b.tables.probs.size() / num_states, UndefDbl());
    for (int64_t row = 0; row < filled; ++row) {
        double sum = 0;
        for (int state = 0; state < num_states; ++state) sum += b.tables.probs[row * num_states + state];
        b.tables.experience[row] = sum;
        if (sum <= 0 && !fills_empty) continue;
        for (int state = 0; state < num_states; ++state) {
            float& entry = b.tables.probs[row * num_states + state];
            entry = static_cast<float>(sum > 0 ? entry / sum : 1.0 / num_states);
        }
    }
}

void ReportUniformRows(const Builder& b, int64_t num_uniform, int64_t num_rows)
{
    if (num_uniform == 0) return;
    const char* const why = b.sampled ? "no nonzero probability was discovered by sampling"
                                      : "its equation specified zero for all its states";
    if (!b.node.links.empty()) {
        Notice<6408>(b.node.name.c_str(), static_cast<int>(num_uniform), static_cast<int>(num_rows), why);
        return;
    }
    Raise<3810>(b.node.name.c_str(), why);
}

// Parses and compiles the equation and takes all room that evaluating it needs.
Builder MakeBuilder(Node& node, int num_samples)
{
    Equation eqn = NodeEquation(node);
    EqnProgram program;
    try {
        program = CompileEquation(eqn);
    } catch (const std::bad_alloc&) {
        FailWith<3406>(OUT_OF_MEMORY_CND);
    }
    EqnScratch scratch(eqn);
    Builder b{node, std::move(eqn), std::move(program), std::move(scratch)};
    b.num_samples = num_samples;
    b.integrable = !b.Output().discrete && IsIntegrable(b.eqn);
    b.values.resize(b.eqn.variables.size());
    b.stack.resize(b.program.stack_size);
    b.arguments.resize(size_t(b.eqn.Root().num_children) + 1);
    b.states.resize(node.links.size());
    for (const int source : b.eqn.sources) b.links.push_back(source - 1);
    randgen_vx* const own = node.net->random_gen;
    b.random = own ? &own->state : &node.net->env->random;
    b.random_lock = own ? nullptr : &RandomLock();
    return b;
}

}  // namespace

std::vector<EqnVariable> EquationVariables(const Node& node)
{
    std::vector<EqnVariable> variables = {MakeVariable(node, node.name)};
    for (const Link& link : node.links) {
        const Node* parent = link.parent;
        variables.push_back(MakeVariable(*parent, link.input_name.empty() ? parent->name : link.input_name));
    }
    return variables;
}

Equation NodeEquation(const Node& node)
{
    try {
        return ParseEquation(node.equation, EquationVariables(node), nullptr);
    } catch (const Unwind& failure) {
        const int number = -failure.record->number;
        const std::string why = failure.record->message;
        ClearReport(failure.record);
        throw Unwind{Report({.number = number}, "problem with equation of >-node '%s':  %s",
                            node.name.c_str(), why.c_str())};
    }
}

void SetEquation(Node& node, std::string_view text, int* place)
{
    if (!text.empty()) ParseEquation(text, EquationVariables(node), place);
    if (node.equation == text) return;
    Change(node, node.equation, std::string(text), NO_EFFECT, "set equation");
    Change(node, node.eqn_dirty, text.empty() ? EqnDirty::CLEAN : EqnDirty::DIRTY, NO_EFFECT, "set equation");
}

void EquationToTable(Node& node, int num_samples, bool keep_counts, bool add)
{
    if (node.equation.empty()) return;
    Builder b = MakeBuilder(node, num_samples);
    CheckThresholds(b);
    PrepareDraws(b);
    ChooseTarget(b);
    const MemoryAllowance allowance(CheckTableSize(b));
    AllocateTable(b, add);
    const int64_t num_rows = static_cast<int64_t>(NumRows(node));
    const int64_t filled = FillRows(b, num_rows);
    int64_t num_uniform = 0;
    if (b.target == Target::PROBS) {
        if (keep_counts || (b.sampled && !b.tables.experience.empty()))
            SetExperiences(b, filled, keep_counts);
        if (!keep_counts) num_uniform = NormalizeRows(b, filled);
    }
    Change(node, node.tables, std::move(b.tables), RETABLES, "build table from equation");
    if (filled == num_rows && !IsHalted())
        Change(node, node.eqn_dirty, EqnDirty::CLEAN, NO_EFFECT, "build table from equation");
    ReportUniformRows(b, num_uniform, num_rows);
}

double DrawInInterval(const Node& node, int state, RandomState& random)
{
    std::vector<double> thresholds;
    for (const double level : node.states.levels) thresholds.push_back(ToIeee(level));
    return Draw(MakeDraw(thresholds, state), random);
}

bool AddToCell(float& cell, double increment, RandomState& random)
{
    const float sum = static_cast<float>(cell + increment);
    if (!std::isfinite(sum)) return false;
    if (sum > cell || increment <= 0) {
        cell = sum < 0 && sum >= kSmallestNegative ? 0.0f : sum;
        return true;
    }
    const double step = cell * kRoundingStep;
    if (!(NextUniform(random) * step < increment)) return true;
    const float grown = static_cast<float>(cell + step);
    if (!(grown > cell) || !std::isfinite(grown)) return false;
    cell = grown;
    return true;
}

}  // namespace talora
