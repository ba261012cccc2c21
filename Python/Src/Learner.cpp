// Learner: tables from cases.
#include "Cases.h"
#include "Core.h"

using namespace py::literals;

namespace talora_py {

namespace {

struct Learner {
    AppPtr app;
    learner_bn* handle = nullptr;
    std::recursive_mutex lock;
    GeneratorPtr generator;
    int method = 0;
    ~Learner()
    {
        FreeHandle(*app, [&] { DeleteLearner_bn(handle); });
    }
};
using LearnerPtr = std::shared_ptr<Learner>;

constexpr const char* kMethods[] = {"counting", "minimum dependence", "EM", "gradient"};

int MethodArg(const py::object& method)
{
    if (!py::isinstance<py::str>(method)) return method.cast<int>();
    const Text name = method.cast<Text>();
    for (size_t i = 0; i < std::size(kMethods); ++i)
        if (name.bytes == kMethods[i]) return int(i) + 1;
    throw std::invalid_argument("method is 'counting', 'minimum dependence', 'EM' or 'gradient' (or 1 to 4)");
}

LearnerPtr MakeLearner(const AppPtr& app, const py::object& method)
{
    auto learner = std::make_shared<Learner>();
    learner->app = app;
    learner->method = MethodArg(method);
    learner->handle = Run(app, [&] { return NewLearner_bn(learner->method, app->env); });
    return learner;
}

template <class Body>
auto RunLearner(const LearnerPtr& learner, Body&& body)
{
    return Run(learner->app, [&] {
        std::lock_guard lock(learner->lock);
        return body(learner->handle);
    });
}

void LearnCPTs(const LearnerPtr& learner, const py::object& which, const py::object& source, double degree)
{
    const NetPtr given = py::isinstance<Net>(which) ? which.cast<NetPtr>() : nullptr;
    const std::vector<Node> nodes = NodesArg(given ? py::object(py::none()) : which, given);
    const NetPtr net = NetOf(nodes, "LearnCPTs");
    const CasesetPtr cases = CasesArg(learner->app, source);
    Run(
        net,
        [&] {
            std::lock_guard lock(learner->lock);
            std::shared_lock reading(cases->sources_lock);
            const TempList list(net, nodes);
            LearnCPTs_bn(learner->handle, list, cases->handle, degree);
        },
        LONG_JOB);
}

using LearnerClass = py::class_<Learner, LearnerPtr>;

void BindSettings(LearnerClass& cls)
{
    cls.def_property(
        "MaxIterations", [](const LearnerPtr& self) { return RunLearner(self, GetLearnerMaxIters_bn); },
        [](const LearnerPtr& self, int count) {
            RunLearner(self, [&](learner_bn* learner) { SetLearnerMaxIters_bn(learner, count); });
        },
        "The most iterations that EM and gradient make.");
    cls.def_property(
        "MaxTolerance", [](const LearnerPtr& self) { return RunLearner(self, GetLearnerMaxTol_bn); },
        [](const LearnerPtr& self, double share) {
            RunLearner(self, [&](learner_bn* learner) { SetLearnerMaxTol_bn(learner, share); });
        },
        "EM and gradient stop when minus the log likelihood changes by less than this share of itself.");
    cls.def_property(
        "RandomGen", [](const LearnerPtr& self) { return self->generator; },
        [](const LearnerPtr& self, const GeneratorPtr& generator) {
            RunLearner(self, [&](learner_bn* learner) {
                SetLearnerRandomGen_bn(learner, generator ? generator->handle : nullptr);
            });
            self->generator = generator;
        },
        "Random numbers for the starting tables of hidden nodes; None: they start uniform.");
    cls.def_property_readonly(
        "Method", [](const LearnerPtr& self) { return self->method; },
        "1 counting, 2 counting with minimum dependence, 3 EM, 4 gradient ascent.");
}

void BindResults(LearnerClass& cls)
{
    cls.def_property_readonly(
        "NumCases", [](const LearnerPtr& self) { return RunLearner(self, GetLearnerNumCases_bn); },
        "Cases that were read in the learning done last.");
    cls.def_property_readonly(
        "NumIterations", [](const LearnerPtr& self) { return RunLearner(self, GetLearnerNumIterations_bn); },
        "Iterations of the learning done last; 0 for counting.");
    DefIndexed(
        cls, "Iteration",
        [](const LearnerPtr& self, int iteration) {
            return RunLearner(self, [&](learner_bn* learner) {
                double change = GetUndefDbl_vx();
                const double loss = GetLearnerIteration_bn(learner, iteration, &change);
                return std::make_pair(ToPython(loss), ToPython(change));
            });
        },
        "Of an iteration from 0: minus the log likelihood of the cases when it began, and its relative change.");
    cls.def_property_readonly(
        "LogLikelihoods",
        [](const LearnerPtr& self) {
            return ToArray(RunLearner(self, [](learner_bn* learner) {
                std::vector<double> values;
                const int count = GetLearnerNumIterations_bn(learner);
                for (int i = 0; i < count; ++i)
                    values.push_back(-ToPython(GetLearnerIteration_bn(learner, i, nullptr)));
                return values;
            }));
        },
        "The log likelihood of the cases when each iteration began: an array of float64.");
}

}  // namespace

void BindLearner(py::module_& module)
{
    LearnerClass cls(
        module, "Learner",
        "Learns conditional probability tables from cases.\n\n"
        "method: 'counting', 'minimum dependence', 'EM' or 'gradient', or their numbers 1 to 4.");
    cls.def(py::init(&MakeLearner), "app"_a, "method"_a = "counting");
    cls.def("LearnCPTs", LearnCPTs, "nodes"_a, "cases"_a, "degree"_a = 1.0,
            "Learns the tables of nodes.\n\n"
            "nodes: a BNet for all its nodes, or nodes of one net.\n"
            "cases: a Caseset, a pandas DataFrame, or the path of a case file.\n"
            "degree: each case counts so many times.\n"
            "Ctrl-C ends it with what was learned until then, and raises KeyboardInterrupt.");
    BindSettings(cls);
    BindResults(cls);
    cls.def("__repr__", [](const LearnerPtr& self) {
        const bool known = self->method >= 1 && self->method <= int(std::size(kMethods));
        return std::string("<Learner: ") + (known ? kMethods[self->method - 1] : "?") + ">";
    });
    auto application = py::reinterpret_borrow<py::object>(module.attr("Application"));
    application.attr("NewLearner") =
        py::cpp_function(MakeLearner, py::is_method(application), py::name("NewLearner"),
                         "method"_a = "counting", "Makes a Learner.");
}

}  // namespace talora_py
