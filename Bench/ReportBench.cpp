// All that the speed of inference is judged by, at a glance: three tables, printed when the benchmarks end.
//
//     TALORA_CORPUS=folder-with-nets build/talora_bench --benchmark_filter=Report
//
// "Report/andes" alone gives the rows of that net.  A star marks a figure that misses its goal, which stands
// behind it in parentheses.  Every figure is the least of several runs; for sets of findings the mean over
// the sets of the least of three.
#include <malloc.h>

#include <cstdio>
#include <utility>

#include "BN/Propagation/PropagateBatch.h"
#include "BN/Propagation/TargetedQuery.h"
#include "Basic/FloatMode.h"
#include "BenchTree.h"
#include "Talora.h"

namespace {

using namespace talora;
using namespace talora::bench;

constexpr double kSecondsPerFigure = 0.3;
constexpr int kMostRuns = 200;

// What is to be reached; 0: nothing is set.
struct Goals {
    const char* net;
    double update;  // U, with findings on a tenth of the variables
    double order;   // sum of clique sizes
    bool is_small;  // judged by the time per message and belief
};

constexpr Goals kGoals[] = {
    {"alarm", 0, 0, true},        {"hailfinder", 0, 0, true},      {"win95pts", 0, 0, true},
    {"hepar2", 0, 0, true},       {"insurance", 0, 23.9e3, false}, {"andes", 15, 264e3, false},
    {"pathfinder", 25, 0, false}, {"water", 10, 3.36e6, false},    {"mildew_like", 10, 0, false},
    {"munin_like", 20, 0, false}, {"pigs", 15, 690e3, false},      {"pedigree_700", 12, 27.3e6, false},
    {"munin1", 12, 129e6, false},
};
constexpr double kOneBeliefGoal = 0.1, kCompileGoal = 3, kMemoryGoal = 1.2, kBatchGoal = 8;
// A third of what the quickest other programs take per message and belief.
constexpr double kPerGoal = 80e-9, kGreedyGoal = 5e-3;

struct Row {
    Goals goals;
    double entries, unit;
    double full, findings, one_more, one_belief, compile;  // seconds
    double per_piece;                                      // the same with findings, per message and belief
    double memory;                                         // share of the tables
    double one_by_one = 0, together = 0;                   // seconds per case
    double query, query_again;                             // seconds
    double greedy_sum, greedy_seconds, sum_after_1, sum_after_10;
    int num_variables;
};

template <class Run>
double LeastSeconds(Run run)
{
    double least = 1e9, spent = 0;
    for (int i = 0; i < kMostRuns && (i < 3 || spent < kSecondsPerFigure); ++i) {
        const double seconds = run();
        least = std::min(least, seconds);
        spent += seconds;
    }
    return least;
}

template <class Job>
double Seconds(Job job)
{
    const Stopwatch watch;
    job();
    return watch.Seconds();
}

// The mean over several rounds, each `prepare`d anew, of the least of three runs, each after `restore`.
template <class Prepare, class Restore, class Job>
double MeanSeconds(Prepare prepare, Restore restore, Job job)
{
    double sum = 0;
    int rounds = 0;
    const Stopwatch watch;
    for (; rounds < kMostRuns && (rounds < 3 || watch.Seconds() < 3 * kSecondsPerFigure); ++rounds) {
        prepare();
        double least = 1e9;
        for (int i = 0; i < 3; ++i) {
            restore();
            least = std::min(least, Seconds(job));
        }
        sum += least;
    }
    return sum / rounds;
}

void MeasureUpdates(BenchTree& net, Row& row)
{
    Propagation& propagation = *net.propagation;
    const auto update = [&] {
        propagation.Update();
        ReadAllBeliefs(net);
    };
    row.full = LeastSeconds([&] {
        propagation.Forget();
        return Seconds(update);
    });
    std::mt19937 random(7);
    std::vector<std::pair<int, int>> findings;
    const auto clear = [&] {
        propagation.ClearFindings();
        propagation.Update();
    };
    row.findings = MeanSeconds([&] { findings = FindingsOnATenth(net, random); }, clear,
                               [&] {
                                   for (auto [v, s] : findings) propagation.SetPositive(v, s);
                                   update();
                               });
    int changed = 0, likely = 0, asked = 0;
    const auto choose = [&] {
        clear();
        changed = int(random() % unsigned(net.Size()));
        asked = int(random() % unsigned(net.Size()));
        likely = LikelyState(net, changed);
    };
    const auto enter = [&] { propagation.SetPositive(changed, likely); };
    row.one_more = MeanSeconds(choose, clear, [&] {
        enter();
        update();
    });
    row.one_belief = MeanSeconds(choose, clear, [&] {
        enter();
        propagation.UpdateFor(asked);
        propagation.Belief(asked, net.belief.data());
    });
    clear();
}

double BytesAllocated()
{
    const struct mallinfo2 info = mallinfo2();
    return double(info.uordblks) + double(info.hblkhd);
}

// All that propagation holds after an update: messages, potentials, plans.
void MeasureMemory(BenchTree& net, Row& row)
{
    const double before = BytesAllocated();
    Propagation propagation(net.graph, net.tree, net.Source());
    propagation.Update();
    row.memory = (BytesAllocated() - before) / (4 * net.tree.total_size);
}

// Order, tree, and what the first update takes beyond a later one: tables and plans.
void MeasureCompile(BenchTree& net, Row& row)
{
    const auto greedy = [&] { return FindGreedyOrder(net.graph, NetOrder(net.graph), nullptr); };
    row.greedy_seconds = LeastSeconds([&] { return Seconds([&] { benchmark::DoNotOptimize(greedy()); }); });
    const double join = LeastSeconds([&] {
        return Seconds([&] {
            benchmark::DoNotOptimize(
                JoinTree(net.graph, Triangulate(net.graph, net.triangulation.order), false));
        });
    });
    const double first = LeastSeconds(
        [&] { return Seconds([&] { Propagation(net.graph, net.tree, net.Source()).Update(); }); });
    const double later = LeastSeconds([&] {
        net.propagation->Forget();
        return Seconds([&] { net.propagation->Update(); });
    });
    row.compile = row.greedy_seconds + join + std::max(0.0, first - later);
}

void MeasureCases(BenchTree& net, Row& row)
{
    constexpr int kCases = BatchPropagation::kCases;
    if (!BatchPropagation::Suits(net.graph, net.tree)) return;
    const DenormalsOff mode;
    const CaseResults wanted = {NetOrder(net.graph), {}};
    BatchPropagation batch(net.graph, net.tree, net.Source(), wanted);
    std::mt19937 random(9);
    std::vector<std::vector<int32_t>> states(kCases, std::vector<int32_t>(size_t(net.Size()), -1));
    std::vector<CaseFindings> cases(kCases);
    for (size_t k = 0; k < kCases; ++k) {
        for (auto [v, s] : FindingsOnATenth(net, random)) states[k][size_t(v)] = s;
        cases[k].states = states[k].data();
    }
    row.together = LeastSeconds([&] {
                       return Seconds([&] {
                           batch.Run(cases);
                           for (int k = 0; k < kCases; ++k)
                               for (int v : wanted.beliefs) batch.Belief(k, v, net.belief.data());
                       });
                   }) /
                   kCases;
    row.one_by_one = LeastSeconds([&] {
                         return Seconds([&] {
                             for (const CaseFindings& findings : cases) {
                                 for (int v : wanted.beliefs)
                                     net.propagation->SetPositive(v, findings.states[v]);
                                 net.propagation->Update();
                                 ReadAllBeliefs(net);
                             }
                         });
                     }) /
                     kCases;
    net.propagation->ClearFindings();
}

// Gives one of the variables observed another state, one that the others leave possible.
void ChangeOne(BenchTree& net, TargetedQuery& query, std::mt19937& random, ModelFindings& findings)
{
    std::vector<int> observed;
    for (int v = 0; v < net.Size(); ++v)
        if (findings.positive[size_t(v)] >= 0) observed.push_back(v);
    if (observed.empty()) return;
    const int changed[] = {observed[random() % observed.size()]};
    const int old = std::exchange(findings.positive[size_t(changed[0])], -1);
    query.Ask(changed, findings, false);
    query.Belief(0, net.belief.data());
    net.belief[size_t(old)] = 0;
    findings.positive[size_t(changed[0])] = old;
    const auto best = std::max_element(net.belief.begin(), net.belief.begin() + net.NumStates(changed[0]));
    if (*best > 0) findings.positive[size_t(changed[0])] = int(best - net.belief.begin());
}

// One variable asked with findings on a tenth: as the first question about these variables, and with another
// state of one that is observed.
void MeasureQuery(BenchTree& net, Row& row)
{
    std::mt19937 random(10);
    ModelFindings none, findings;
    none.positive.assign(size_t(net.Size()), -1);
    none.likelihoods.assign(size_t(net.Size()), nullptr);
    int rounds = 0;
    const Stopwatch watch;
    for (; rounds < kMostRuns && (rounds < 3 || watch.Seconds() < 3 * kSecondsPerFigure); ++rounds) {
        findings = none;
        for (auto [v, s] : FindingsOnATenth(net, random)) findings.positive[size_t(v)] = s;
        const int target[] = {int(random() % unsigned(net.Size()))};
        findings.positive[size_t(target[0])] = -1;
        double first = 1e9, again = 1e9;
        for (int i = 0; i < 3; ++i) {
            TargetedQuery query(net.graph, net.Source());
            query.Ask(target, none, false);  // looks at all tables once
            first = std::min(first, Seconds([&] { query.Ask(target, findings, false); }));
            ModelFindings changed = findings;
            ChangeOne(net, query, random, changed);
            again = std::min(again, Seconds([&] { query.Ask(target, changed, false); }));
        }
        row.query += first;
        row.query_again += again;
    }
    row.query /= rounds;
    row.query_again /= rounds;
}

void MeasureOrders(BenchTree& net, Row& row)
{
    for (double* sum : {&row.sum_after_1, &row.sum_after_10}) {
        OptimizeLimits limits;
        limits.seconds = sum == &row.sum_after_1 ? 1 : 10;
        const OptimizeResult result = FindOptimizedOrder(net.graph, nullptr, limits, nullptr);
        row.greedy_sum = result.first_size;
        *sum = result.total_size;
        if (sum == &row.sum_after_10) net.triangulation = Triangulate(net.graph, result.order);
    }
}

double SecondsOfEmptyCall()
{
    environ_vx* env = NewTaloraEnviron_vx(nullptr, nullptr);
    InitTalora2_bn(env, nullptr);
    net_bn* net = NewNet_bn("Empty", env);
    const nodelist_bn* list = GetNetNodes2_bn(net, nullptr);
    constexpr int kCalls = 1000;
    const double seconds = LeastSeconds([&] {
        return Seconds([&] {
            for (int i = 0; i < kCalls; ++i) benchmark::DoNotOptimize(LengthNodeList_bn(list));
        });
    });
    CloseTalora_bn(env, nullptr);
    return seconds / kCalls;
}

// ---- Printing. ----

// A figure, with its goal if there is one, and a star where it misses that.
std::string Figure(const char* format, double value, double goal = 0, bool is_least = false)
{
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    std::string figure = text;
    if (goal <= 0) return figure;
    std::snprintf(text, sizeof text, format, goal);
    return figure + " (" + text + ")" + ((is_least ? value < goal : value > goal) ? " *" : "");
}

void PrintRow(std::initializer_list<std::string> cells)
{
    for (const std::string& cell : cells) std::printf("| %s ", cell.c_str());
    std::printf("|\n");
}

class Report {
public:
    void Add(const Row& row) { rows_.push_back(row); }
    ~Report()
    {
        if (rows_.empty()) return;
        PrintUpdates();
        PrintSmall();
        PrintOrders();
    }

private:
    void PrintUpdates() const
    {
        std::printf("\nUpdates, all beliefs read; in U unless it says otherwise; (goal), * missed\n\n");
        PrintRow({"net", "entries", "U, us", "no findings", "a tenth observed", "one finding more",
                  "one changed, one read / full", "compile / full", "memory / tables", "one node asked",
                  "asked with another finding"});
        PrintRow({"---", "---", "---", "---", "---", "---", "---", "---", "---", "---", "---"});
        for (const Row& row : rows_)
            PrintRow({row.goals.net, Figure("%.3g", row.entries), Figure("%.3g", 1e6 * row.unit),
                      Figure("%.1f", row.full / row.unit),
                      Figure("%.1f", row.findings / row.unit, row.goals.update),
                      Figure("%.1f", row.one_more / row.unit),
                      Figure("%.3f", row.one_belief / row.full, row.num_variables > 100 ? kOneBeliefGoal : 0),
                      Figure("%.1f", row.compile / row.full, kCompileGoal),
                      Figure("%.2f", row.memory, kMemoryGoal), Figure("%.1f", row.query / row.unit),
                      Figure("%.1f", row.query_again / row.unit)});
    }

    void PrintSmall() const
    {
        std::printf("\nSmall nets and many cases; an empty call takes %.0f ns\n\n",
                    1e9 * SecondsOfEmptyCall());
        PrintRow({"net", "per message and belief, ns", "a case by itself, us", "sixteen together, us a case",
                  "ratio"});
        PrintRow({"---", "---", "---", "---", "---"});
        for (const Row& row : rows_)
            if (row.together > 0)
                PrintRow({row.goals.net,
                          Figure("%.0f", 1e9 * row.per_piece, row.goals.is_small ? 1e9 * kPerGoal : 0),
                          Figure("%.2f", 1e6 * row.one_by_one), Figure("%.2f", 1e6 * row.together),
                          Figure("%.1f", row.one_by_one / row.together, row.goals.is_small ? kBatchGoal : 0,
                                 true)});
    }

    void PrintOrders() const
    {
        std::printf("\nOrders: sums of clique sizes\n\n");
        PrintRow({"net", "variables", "greedy", "greedy, ms", "searched 1 s", "searched 10 s"});
        PrintRow({"---", "---", "---", "---", "---", "---"});
        for (const Row& row : rows_)
            PrintRow(
                {row.goals.net, Figure("%.0f", row.num_variables), Figure("%.6g", row.greedy_sum),
                 Figure("%.2f", 1e3 * row.greedy_seconds, row.num_variables < 500 ? 0 : 1e3 * kGreedyGoal),
                 Figure("%.6g", row.sum_after_1), Figure("%.6g", row.sum_after_10, row.goals.order)});
    }

    std::vector<Row> rows_;
};

void MeasureNet(benchmark::State& state, const NetSource& source, const Goals& goals)
{
    static Report report;  // prints when the program ends
    for (auto _ : state) {
        Row row = {};
        row.goals = goals;
        BenchTree net;
        TakeNet(net, source.load());
        MeasureOrders(net, row);
        JoinBenchTree(net);
        row.num_variables = net.Size();
        row.entries = net.tree.total_size;
        row.unit = net.sum_seconds;
        MeasureUpdates(net, row);
        MeasureMemory(net, row);
        MeasureCompile(net, row);
        MeasureCases(net, row);
        MeasureQuery(net, row);
        row.per_piece = row.findings / (2.0 * (net.tree.num_cliques() - 1) + net.Size());
        report.Add(row);
    }
}

const bool kRegistered = [] {
    const std::vector<NetSource> nets = AllNets();
    for (const Goals& goals : kGoals)
        for (const NetSource& source : nets)
            if (source.name == goals.net)
                benchmark::RegisterBenchmark(
                    ("Report/" + source.name).c_str(),
                    [source, goals](auto& state) { MeasureNet(state, source, goals); })
                    ->Iterations(1)
                    ->Unit(benchmark::kSecond);
    return true;
}();

}  // namespace
