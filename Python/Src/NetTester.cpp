// NetTester: how well a net predicts some of its nodes.
#include <cmath>
#include <tuple>

#include "Cases.h"
#include "Core.h"

using namespace py::literals;

namespace talora_py {

namespace {

// Goes with its net, so the net is kept; after BNet.Delete its handle is recognised as gone.
struct Tester {
    NetPtr net;
    tester_bn* handle = nullptr;
    ~Tester()
    {
        FreeHandle(*net->app, [&] {
            std::lock_guard lock(net->lock);
            if (net->handle != nullptr) DeleteNetTester_bn(handle);
        });
    }
};
using TesterPtr = std::shared_ptr<Tester>;
using TesterClass = py::class_<Tester, TesterPtr>;

TesterPtr MakeTester(const py::object& test_nodes, const py::object& unobserved)
{
    const std::vector<Node> nodes = NodesArg(test_nodes, nullptr);
    const NetPtr net = NetOf(nodes, "NetTester");
    const std::vector<Node> hidden = unobserved.is_none() ? std::vector<Node>() : NodesArg(unobserved, net);
    auto tester = std::make_shared<Tester>();
    tester->net = net;
    tester->handle = Run(net, [&] {
        const TempList test_list(net, nodes), hidden_list(net, hidden);
        return NewNetTester_bn(test_list, hidden_list, -1);
    });
    return tester;
}

template <class Body>
auto RunTester(const TesterPtr& tester, Body&& body, Length length = SHORT_JOB)
{
    return Run(
        tester->net, [&] { return body(tester->handle); }, length);
}

// A body on the tester and one of its nodes, which is the only one unless it is named.
template <class Body>
auto RunTest(const TesterPtr& tester, const py::object& which, Body&& body)
{
    const Node node = which.is_none() ? Node() : NodeArg(which, tester->net);
    return Run(tester->net, [&] {
        node_bn* handle = node.handle;
        if (handle) {
            CheckNode(node);
        } else {
            handle = GetTestNode_bn(tester->handle, 0);
            if (GetTestNode_bn(tester->handle, 1) != nullptr)
                throw std::invalid_argument("several nodes are under test: say which");
        }
        return body(tester->handle, handle);
    });
}

void TestWithCases(const TesterPtr& tester, const py::object& source)
{
    const CasesetPtr cases = CasesArg(tester->net->app, source);
    RunTester(
        tester,
        [&](tester_bn* handle) {
            std::shared_lock reading(cases->sources_lock);
            TestWithCaseset_bn(handle, cases->handle);
        },
        LONG_JOB);
}

// ---- Bins ----

void SetBins(const TesterPtr& tester, const py::object& node, int scheme, const std::vector<double>& edges)
{
    RunTest(tester, node, [&](tester_bn* test, node_bn* handle) {
        SetTestBins_bn(test, handle, scheme, edges.empty() ? nullptr : edges.data(), int(edges.size()));
    });
}

py::array BinEdges(const TesterPtr& tester, const py::object& node)
{
    auto edges = RunTest(tester, node, [](tester_bn* test, node_bn* handle) {
        std::vector<double> lower_and_upper;
        const int count = GetTestNumBins_bn(test, handle);
        for (int bin = 0; bin < count; ++bin) {
            double upper = 0;
            lower_and_upper.push_back(GetTestBinEdges_bn(test, handle, bin, &upper));
            lower_and_upper.push_back(upper);
        }
        return lower_and_upper;
    });
    const py::ssize_t bins = py::ssize_t(edges.size() / 2);
    return ToArray(std::move(edges), {bins, 2});
}

void BindBins(TesterClass& cls)
{
    cls.def(
        "SetBins", SetBins, "node"_a = py::none(), "scheme"_a = int(GIVEN_TEST_BINS),
        "edges"_a = std::vector<double>(),
        "How beliefs in a node are sorted for calibration and cutoffs, before the first case:\n"
        "FINE_TEST_BINS, TENTHS_TEST_BINS, TAILS_TEST_BINS, or GIVEN_TEST_BINS with rising edges from 0 to 1.");
    cls.def(
        "BinScheme",
        [](const TesterPtr& self, const py::object& node) {
            return RunTest(self, node, GetTestBinScheme_bn);
        },
        "node"_a = py::none(), "The scheme of bins of a node.");
    cls.def(
        "NumberBins",
        [](const TesterPtr& self, const py::object& node) { return RunTest(self, node, GetTestNumBins_bn); },
        "node"_a = py::none(), "How many bins there are.");
    cls.def("BinEdges", BinEdges, "node"_a = py::none(),
            "Where each bin begins and ends: shape (bins, 2), float64.");
}

// ---- Figures ----

using Figure = double (*)(const tester_bn*, const node_bn*);
void DefFigure(TesterClass& cls, const char* name, Figure figure, const char* doc)
{
    cls.def(
        name,
        [figure](const TesterPtr& self, const py::object& which) {
            return RunTest(self, which,
                           [&](tester_bn* test, node_bn* node) { return ToPython(figure(test, node)); });
        },
        "node"_a = py::none(), doc);
}

py::array Confusion(const TesterPtr& tester, const py::object& which)
{
    auto weights = RunTest(tester, which, [](tester_bn* test, node_bn* node) {
        std::vector<double> matrix;
        const int states = GetNodeNumberStates_bn(node);
        for (int actual = 0; actual < states; ++actual)
            for (int predicted = 0; predicted < states; ++predicted)
                matrix.push_back(GetTestConfusion_bn(test, node, predicted, actual));
        return matrix;
    });
    const py::ssize_t states = py::ssize_t(std::lround(std::sqrt(double(weights.size()))));
    return ToArray(std::move(weights), {states, states});
}

py::array Calibration(const TesterPtr& tester, const StateArg& state, const py::object& which)
{
    auto weights = RunTest(tester, which, [&](tester_bn* test, node_bn* node) {
        std::vector<double> rows;
        const int number = ResolveState(node, state), bins = GetTestNumBins_bn(test, node);
        for (int bin = 0; bin < bins; ++bin) {
            double actual = 0;
            rows.push_back(GetTestCalibration_bn(test, node, number, bin, &actual));
            rows.push_back(actual);
        }
        return rows;
    });
    const py::ssize_t bins = py::ssize_t(weights.size() / 2);
    return ToArray(std::move(weights), {bins, 2});
}

py::array RocPoints(const TesterPtr& tester, const StateArg& state, const py::object& which)
{
    auto points = RunTest(tester, which, [&](tester_bn* test, node_bn* node) {
        std::vector<double> rows;
        double cutoff = 0, false_rate = 0, true_rate = 0;
        const int number = ResolveState(node, state);
        for (int i = 0; GetTestRocPoint_bn(test, node, number, i, &cutoff, &false_rate, &true_rate); ++i)
            rows.insert(rows.end(), {ToPython(cutoff), false_rate, true_rate});
        return rows;
    });
    const py::ssize_t count = py::ssize_t(points.size() / 3);
    return ToArray(std::move(points), {count, 3});
}

void BindFigures(TesterClass& cls)
{
    DefFigure(
        cls, "ErrorRate", GetTestErrorRate_bn,
        "Share of cases in which the state with the highest belief was not the actual one; nan without any.");
    DefFigure(cls, "LogLoss", GetTestLogLoss_bn,
              "Average of -ln of the belief in the actual state; may be inf.");
    DefFigure(cls, "QuadraticLoss", GetTestQuadraticLoss_bn,
              "Quadratic (Brier) loss: 0 at best, 2 at worst.");
    DefFigure(cls, "SphericalPayoff", GetTestSphericalPayoff_bn, "Spherical payoff: 1 at best, 0 at worst.");
    cls.def(
        "NumberCases",
        [](const TesterPtr& self, const py::object& which) {
            return RunTest(self, which, [](tester_bn* test, node_bn* node) {
                double all = 0, impossible = 0;
                const double known = GetTestNumCases_bn(test, node, &all, &impossible);
                return std::make_tuple(known, all, impossible);
            });
        },
        "node"_a = py::none(),
        "Weights of cases: (those with a state of the node, all, those left out because they are impossible).");
    cls.def(
        "Confusion", Confusion, "node"_a = py::none(),
        "Weights of cases by actual (rows) and predicted state (columns): shape (states, states), float64.");
    cls.def(
        "Calibration", Calibration, "state"_a, "node"_a = py::none(),
        "For each bin, the weight of the cases whose belief in a state was in it, and of those among them in\n"
        "which the state was the actual one: shape (bins, 2), float64.");
    cls.def(
        "Surprise",
        [](const TesterPtr& self, const StateArg& state, double limit, const py::object& which) {
            return RunTest(self, which, [&](tester_bn* test, node_bn* node) {
                double surprised = 0;
                const double extreme =
                    GetTestSurprise_bn(test, node, ResolveState(node, state), limit, &surprised);
                return std::make_pair(extreme, surprised);
            });
        },
        "state"_a, "limit"_a, "node"_a = py::none(),
        "Weight of the cases whose belief in a state was at most 0.01 or 0.1, or at least 0.9 or 0.99 (the "
        "limit),\nand of those among them in which it misled.");
    cls.def(
        "StateMeasure",
        [](const TesterPtr& self, const StateArg& state, const Text& measure, double cutoff,
           const py::object& which) {
            return RunTest(self, which, [&](tester_bn* test, node_bn* node) {
                return ToPython(GetTestStateMeasure_bn(test, node, ResolveState(node, state), measure.c_str(),
                                                       FromPython(cutoff)));
            });
        },
        "state"_a, "measure"_a, "cutoff"_a = std::numeric_limits<double>::quiet_NaN(), "node"_a = py::none(),
        "A measure of one state against all others, for example 'sensitivity', 'specificity', 'precision',\n"
        "'area_under_ROC', 'Gini_score'. cutoff: positive means a belief from there on; without one, that the "
        "state\nwas predicted.");
    cls.def("RocPoints", RocPoints, "state"_a, "node"_a = py::none(),
            "The ROC curve: (cutoff, false positive rate, true positive rate) from (0, 0) to (1, 1), shape "
            "(points,\n3), float64; empty unless there are cases of both kinds.");
    cls.def(
        "RealMeasure",
        [](const TesterPtr& self, const Text& measure, const py::object& which) {
            return RunTest(self, which, [&](tester_bn* test, node_bn* node) {
                return ToPython(GetTestRealMeasure_bn(test, node, measure.c_str()));
            });
        },
        "measure"_a, "node"_a = py::none(),
        "A measure of a discretised node's real value, for example 'mean_absolute_error', 'rms_error'.");
}

std::vector<Node> TestNodes(const TesterPtr& tester, node_bn* (*nth)(const tester_bn*, int))
{
    return RunTester(tester, [&](tester_bn* handle) {
        std::vector<Node> nodes;
        for (int i = 0; node_bn* node = nth(handle, i); ++i) nodes.push_back(MarkNode(tester->net, node));
        return nodes;
    });
}

}  // namespace

void BindNetTester(py::module_& module)
{
    TesterClass cls(
        module, "NetTester",
        "Shows cases to a net without what they say of the nodes under test, and compares.\n\n"
        "nodes: under test, of one net; unobserved: further nodes whose findings are never entered.\n"
        "Where only one node is under test, the functions need no node argument.");
    cls.def(py::init(&MakeTester), "nodes"_a, "unobserved"_a = py::none());
    cls.def(
        "TestWithCaseset", TestWithCases, "cases"_a,
        "Runs cases (a Caseset, a DataFrame, a path) and adds to what there is. Cases that are impossible "
        "are\nleft out with a warning.");
    cls.def(
        "Clear", [](const TesterPtr& self) { RunTester(self, ClearNetTest_bn); }, "Forgets all cases.");
    cls.def_property_readonly(
        "TestNodes", [](const TesterPtr& self) { return ToNodeList(TestNodes(self, GetTestNode_bn)); },
        "The nodes under test.");
    cls.def_property_readonly(
        "UnobservedNodes",
        [](const TesterPtr& self) { return ToNodeList(TestNodes(self, GetTestUnobservedNode_bn)); },
        "Further nodes whose findings are never entered.");
    cls.def(
        "Report",
        [](const TesterPtr& self, const py::object& which) {
            const Node node = which.is_none() ? Node() : NodeArg(which, self->net);
            return RunTester(self, [&](tester_bn* test) {
                if (node.handle) CheckNode(node);
                return Text(ReportNetTest_bn(test, node.handle));
            });
        },
        "node"_a = py::none(), "All figures as text, of one node or of all.");
    BindBins(cls);
    BindFigures(cls);
    cls.def("__repr__", [](const TesterPtr& self) {
        std::string names;
        for (const Node& node : TestNodes(self, GetTestNode_bn))
            names += (names.empty() ? "" : ", ") +
                     Run(node, [](node_bn* handle) { return std::string(GetNodeName_bn(handle)); });
        return "<NetTester of " + names + ">";
    });
}

}  // namespace talora_py
