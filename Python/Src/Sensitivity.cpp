// Sensitivity: how much findings elsewhere are expected to change the beliefs of a node.
#include <tuple>

#include "Core.h"

using namespace py::literals;

namespace talora_py {

namespace {

// Goes with its net, as a tester does.
struct Measurer {
    NetPtr net;
    sensv_bn* handle = nullptr;
    ~Measurer()
    {
        FreeHandle(*net->app, [&] {
            std::lock_guard lock(net->lock);
            if (net->handle != nullptr) DeleteSensvToFinding_bn(handle);
        });
    }
};
using MeasurerPtr = std::shared_ptr<Measurer>;
using MeasurerClass = py::class_<Measurer, MeasurerPtr>;

constexpr int kAllMeasures =
    BELIEF_SENSV | ENTROPY_SENSV | REAL_SENSV | NODEVAR_SENSV | RATIO_SENSV | VARIANCE_SENSV | RANGE_SENSV;

MeasurerPtr MakeMeasurer(const Node& query, const py::object& varying, int what_find)
{
    const std::vector<Node> nodes = NodesArg(varying, query.net);
    auto measurer = std::make_shared<Measurer>();
    measurer->net = query.net;
    measurer->handle = Run(query, [&](node_bn* node) {
        const TempList list(query.net, nodes);
        return NewSensvToFinding_bn(node, list, what_find);
    });
    return measurer;
}

template <class Body>
auto RunMeasurer(const MeasurerPtr& measurer, Body&& body, Length length = LONG_JOB)
{
    return Run(
        measurer->net, [&] { return body(measurer->handle); }, length);
}

template <class Body>
auto RunVarying(const MeasurerPtr& measurer, const py::object& which, Body&& body)
{
    const Node node = NodeArg(which, measurer->net);
    return RunMeasurer(measurer, [&](sensv_bn* handle) {
        CheckNode(node);
        return body(handle, node.handle);
    });
}

using Measure = double (*)(sensv_bn*, const node_bn*);
void DefMeasure(MeasurerClass& cls, const char* name, Measure measure, const char* doc)
{
    cls.def(
        name,
        [measure](const MeasurerPtr& self, const py::object& varying) {
            return RunVarying(self, varying,
                              [&](sensv_bn* sensv, node_bn* node) { return ToPython(measure(sensv, node)); });
        },
        "varying"_a, doc);
}

// What a change consists of; parts that were not asked for are nan.
struct Change {
    double expected, variance, least, greatest;
    py::object ToTuple() const
    {
        return FromPackage("talora._nodes", "Change")(expected, variance, least, greatest);
    }
};

template <class Get>
py::object GetChange(const MeasurerPtr& self, const py::object& varying, Get get)
{
    const Change change = RunVarying(self, varying, [&](sensv_bn* sensv, node_bn* node) {
        const int found = GetSensvWhatFound_bn(sensv);
        double variance = GetUndefDbl_vx(), least = variance, greatest = variance;
        const double expected =
            get(sensv, node, found & VARIANCE_SENSV ? &variance : nullptr,
                found & RANGE_SENSV ? &least : nullptr, found & RANGE_SENSV ? &greatest : nullptr);
        return Change{ToPython(expected), ToPython(variance), ToPython(least), ToPython(greatest)};
    });
    return change.ToTuple();
}

py::object BeliefChange(const MeasurerPtr& self, const py::object& varying, const StateArg& state)
{
    return GetChange(self, varying,
                     [&](sensv_bn* sensv, node_bn* node, double* variance, double* least, double* greatest) {
                         const int number = ResolveState(GetSensvQueryNode_bn(sensv), state);
                         return GetBeliefChange_bn(sensv, node, number, variance, least, greatest);
                     });
}

void BindMeasures(MeasurerClass& cls)
{
    DefMeasure(cls, "MutualInfo", GetMutualInfo_bn,
               "Mutual information with the query node in bits; of the query node itself, its entropy.");
    DefMeasure(cls, "VarianceOfReal", GetVarianceOfReal_bn,
               "Expected reduction of the variance of the query node's real value.");
    DefMeasure(cls, "VarianceOfBeliefs", GetVarianceOfBeliefs_bn,
               "Expected reduction of the variance of the query node's beliefs.");
    cls.def(
        "Ratio",
        [](const MeasurerPtr& self, const py::object& varying, const StateArg& state) {
            return RunVarying(self, varying, [&](sensv_bn* sensv, node_bn* node) {
                const int number = ResolveState(GetSensvQueryNode_bn(sensv), state);
                return ToPython(GetSensitivityRatio_bn(sensv, node, number));
            });
        },
        "varying"_a, "state"_a,
        "The largest belief in a state of the query node after a finding divided by the smallest; may be inf.");
    cls.def(
        "BeliefChange", BeliefChange, "varying"_a, "state"_a,
        "How a finding changes the belief in a state of the query node: Change(expected, variance, least,\n"
        "greatest); nan for what was not asked for.");
    cls.def(
        "MeanChange",
        [](const MeasurerPtr& self, const py::object& varying) {
            return GetChange(self, varying, GetMeanChange_bn);
        },
        "varying"_a, "The same for the mean of the query node's real value.");
    cls.def_property(
        "RealBounds",
        [](const MeasurerPtr& self) {
            return RunMeasurer(self, [](sensv_bn* sensv) {
                double lower = 0, upper = 0;
                GetSensvRealBounds_bn(sensv, &lower, &upper);
                return std::make_pair(ToPython(lower), ToPython(upper));
            });
        },
        [](const MeasurerPtr& self, const std::pair<double, double>& bounds) {
            RunMeasurer(self, [&](sensv_bn* sensv) {
                SetSensvRealBounds_bn(sensv, FromPython(bounds.first), FromPython(bounds.second));
            });
        },
        "Bounds (lower, upper) that stand for infinite ends of the query node's intervals; nan for none.");
}

}  // namespace

void BindSensitivity(py::module_& module)
{
    MeasurerClass cls(
        module, "Sensitivity",
        "Measures how much findings at varying nodes are expected to change the beliefs of a query node.\n\n"
        "varying: nodes of the same net, all of them unless said otherwise.\n"
        "what_find: BELIEF_SENSV and so on, added up; all unless said otherwise.\n"
        "The first question finds all measures; they hold until beliefs change.");
    cls.def(py::init(&MakeMeasurer), "query"_a, "varying"_a = py::none(), "what_find"_a = kAllMeasures);
    cls.def_property_readonly(
        "QueryNode",
        [](const MeasurerPtr& self) -> py::object {
            const Node node = RunMeasurer(self, [&](sensv_bn* sensv) {
                node_bn* handle = GetSensvQueryNode_bn(sensv);
                return handle ? MarkNode(self->net, handle) : Node();
            });
            return node.handle ? py::cast(node) : py::none();
        },
        "The node that is asked about; None if it was deleted.");
    cls.def_property_readonly(
        "VaryingNodes",
        [](const MeasurerPtr& self) {
            return ToNodeList(RunMeasurer(
                self, [&](sensv_bn* sensv) { return MarkNodes(self->net, GetSensvVaryingNodes_bn(sensv)); }));
        },
        "The nodes whose findings vary.");
    cls.def_property_readonly(
        "WhatFound", [](const MeasurerPtr& self) { return RunMeasurer(self, GetSensvWhatFound_bn); },
        "Which measures were asked for.");
    BindMeasures(cls);
    cls.def(
        "ReportToNode",
        [](const MeasurerPtr& self, const py::object& varying) {
            return RunVarying(self, varying, [](sensv_bn* sensv, node_bn* node) {
                return Text(ReportSensvToNode_bn(sensv, node));
            });
        },
        "varying"_a, "How findings at one node change the query node, as text.");
    cls.def(
        "ReportToAll",
        [](const MeasurerPtr& self) {
            return RunMeasurer(self, [](sensv_bn* sensv) { return Text(ReportSensvToAll_bn(sensv)); });
        },
        "A row for each varying node, the most informative first.");
    cls.def(
        "ReportHtml",
        [](const MeasurerPtr& self) {
            return RunMeasurer(self, [](sensv_bn* sensv) { return Text(ReportSensvHtml_bn(sensv)); });
        },
        "The same as a table in HTML; a notebook shows it for the object itself.");
    cls.def("_repr_html_", [](const MeasurerPtr& self) {
        return RunMeasurer(self, [](sensv_bn* sensv) { return Text(ReportSensvHtml_bn(sensv)); });
    });
    cls.def("__repr__", [](const MeasurerPtr& self) {
        return Text("<Sensitivity of " +
                    RunMeasurer(self,
                                [](sensv_bn* sensv) {
                                    const node_bn* node = GetSensvQueryNode_bn(sensv);
                                    return std::string(node ? GetNodeName_bn(node) : "a deleted node");
                                }) +
                    ">");
    });
}

}  // namespace talora_py
