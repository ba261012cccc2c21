// BNet: what works on some of its nodes together; BNodes (in _nodes.py) passes itself to these.
#include <algorithm>
#include <climits>
#include <string>
#include <tuple>

#include "Core.h"

using namespace py::literals;

namespace talora_py {

namespace {

py::tuple QueryBeliefs(const NetPtr& net, const std::vector<Node>& nodes, bool with_probability)
{
    auto [vectors, log_probability] = Run(
        net,
        [&] {
            const TempList list(net, nodes);
            double logarithm = GetUndefDbl_vx();
            const prob_bn* at = QueryBeliefs_bn(list, with_probability ? &logarithm : nullptr);
            std::vector<std::vector<float>> beliefs;
            for (size_t i = 0; at && i < nodes.size(); ++i) {
                const int count = GetNodeNumberStates_bn(nodes[i].handle);
                beliefs.emplace_back(at, at + count);
                at += count;
            }
            return std::make_pair(std::move(beliefs), ToPython(logarithm));
        },
        LONG_JOB);
    py::list arrays;
    for (std::vector<float>& beliefs : vectors) arrays.append(ToArray(std::move(beliefs)));
    return py::make_tuple(arrays, log_probability);
}

using StateArray = py::array_t<int, py::array::c_style | py::array::forcecast>;

py::tuple BeliefsOfCases(const NetPtr& net, const std::vector<Node>& known, const StateArray& states,
                         const std::vector<Node>& asked)
{
    if (states.ndim() != 2 || states.shape(1) != py::ssize_t(known.size()))
        throw py::value_error("states must be of shape (cases, " + std::to_string(known.size()) + ")");
    const py::ssize_t num_cases = states.shape(0);
    if (num_cases > INT_MAX) throw py::value_error("too many cases for one call");
    const int* const numbers = states.data();
    auto [beliefs, log_probabilities, row] = Run(
        net,
        [&] {
            const TempList known_list(net, known), asked_list(net, asked);
            size_t entries = 0;
            for (const Node& node : asked)
                entries += size_t(std::max(0, GetNodeNumberStates_bn(node.handle)));
            std::vector<float> all(size_t(num_cases) * entries);
            std::vector<double> logarithms(static_cast<size_t>(num_cases));
            GetBeliefsOfCases_bn(known_list, numbers, int(num_cases), asked_list, all.data(),
                                 logarithms.data());
            return std::make_tuple(std::move(all), std::move(logarithms), entries);
        },
        LONG_JOB);
    return py::make_tuple(ToArray(std::move(beliefs), {num_cases, py::ssize_t(row)}),
                          ToArray(std::move(log_probabilities), {num_cases}));
}

py::tuple MostProbableSetting(const NetPtr& net, const std::vector<Node>& nodes, int nth)
{
    auto [log_probability, states] = Run(
        net,
        [&] {
            const TempList list(net, nodes);
            std::vector<int> setting(nodes.size() + 1, UNDEF_STATE);
            const double logarithm = MostProbableSetting_bn(list, setting.data(), nth);
            setting.pop_back();
            return std::make_pair(ToPython(logarithm), setting);
        },
        LONG_JOB);
    return py::make_tuple(nodes, states, log_probability);
}

// ---- Random cases ----

void GenerateRandomCase(const NetPtr& net, const py::object& which, int method, double max_tries)
{
    const std::vector<Node> nodes = NodesArg(which, net);
    Run(
        net,
        [&] {
            const TempList list(net, nodes);
            GenerateRandomCase_bn(list, method, max_tries);
        },
        LONG_JOB);
}

double WriteRandomCases(const NetPtr& net, const py::object& target, double num_cases,
                        const py::object& which, int method, double max_tries, double percent_missing)
{
    const std::vector<Node> nodes = NodesArg(which, net);
    const StreamPtr stream = StreamArg(net->app, target);
    return Run(
        net,
        [&] {
            std::lock_guard lock(stream->lock);
            const TempList list(net, nodes);
            return WriteRandomCases_bn(list, stream->handle, num_cases, method, max_tries, percent_missing);
        },
        LONG_JOB);
}

double WriteEveryCase(const NetPtr& net, const py::object& target, const py::object& which)
{
    const std::vector<Node> nodes = NodesArg(which, net);
    const StreamPtr stream = StreamArg(net->app, target);
    return Run(
        net,
        [&] {
            std::lock_guard lock(stream->lock);
            const TempList list(net, nodes);
            return WriteEveryCase_bn(list, stream->handle);
        },
        LONG_JOB);
}

// ---- Findings in case files ----

double WriteFindings(const NetPtr& net, const py::object& target, const py::object& which, int64_t id,
                     double frequency)
{
    const std::vector<Node> nodes = NodesArg(which, net);
    const StreamPtr stream = StreamArg(net->app, target);
    return Run(
        net,
        [&] {
            std::lock_guard lock(stream->lock);
            const TempList list(net, nodes);
            return WriteNetFindings_bn(list, stream->handle, id, frequency);
        },
        LONG_JOB);
}

py::object ReadFindings(const NetPtr& net, const py::object& source, double position, const py::object& which,
                        int add)
{
    const std::vector<Node> nodes = NodesArg(which, net);
    const StreamPtr stream = StreamArg(net->app, source);
    int64_t id = -1;
    double frequency = 1;
    const bool found = Run(
        net,
        [&] {
            std::lock_guard lock(stream->lock);
            const TempList list(net, nodes);
            return ReadNetFindings2_bn(&position, stream->handle, add, list, &id, &frequency) != 0;
        },
        LONG_JOB);
    if (!found) return py::none();
    return FromPackage("talora._nodes", "CaseRead")(position, id, frequency);
}

// ---- Counting ----

void ReviseByFindings(const NetPtr& net, const std::vector<Node>& nodes, double degree)
{
    Run(
        net,
        [&] {
            const TempList list(net, nodes);
            ReviseCPTsByFindings_bn(list, degree);
        },
        LONG_JOB);
}

void ReviseByCaseFile(const NetPtr& net, const std::vector<Node>& nodes, const py::object& source,
                      double degree)
{
    const StreamPtr stream = StreamArg(net->app, source);
    Run(
        net,
        [&] {
            std::lock_guard lock(stream->lock);
            const TempList list(net, nodes);
            ReviseCPTsByCaseFile_bn(list, stream->handle, degree);
        },
        LONG_JOB);
}

}  // namespace

void BindNodeLists(NetClass& cls)
{
    cls.def("_query_beliefs", QueryBeliefs, "nodes"_a, "log_probability"_a);
    cls.def("_beliefs_of_cases", BeliefsOfCases, "known"_a, "states"_a, "asked"_a);
    cls.def("_most_probable_setting", MostProbableSetting, "nodes"_a, "nth"_a);
    cls.def("_revise_by_findings", ReviseByFindings, "nodes"_a, "degree"_a);
    cls.def("_revise_by_case_file", ReviseByCaseFile, "nodes"_a, "source"_a, "degree"_a);
    cls.def("_nodes_arg", [](const NetPtr& net, const py::object& nodes) { return NodesArg(nodes, net); });
    cls.def(
        "GenerateRandomCase", GenerateRandomCase, "nodes"_a = py::none(), "method"_a = int(AUTO_SAMPLING),
        "max_tries"_a = 1e6,
        "Draws a case from the distribution of the net given its findings, and enters it as findings of the\n"
        "nodes (all of them unless said otherwise). Retract the findings before the next independent case.\n\n"
        "method: AUTO_SAMPLING, FORWARD_SAMPLING or TREE_SAMPLING; max_tries: of forward sampling.");
    cls.def("WriteRandomCases", WriteRandomCases, "target"_a, "num_cases"_a, "nodes"_a = py::none(),
            "method"_a = int(AUTO_SAMPLING), "max_tries"_a = 1e6, "percent_missing"_a = 0.0,
            "Writes random cases to a case file; gives how many. So many percent of entries are left out.");
    cls.def("WriteEveryCase", WriteEveryCase, "target"_a, "nodes"_a = py::none(),
            "Writes every combination of states with its probability as its frequency; gives how many.");
    cls.def("WriteFindings", WriteFindings, "target"_a, "nodes"_a = py::none(), "id"_a = -1,
            "frequency"_a = -1.0,
            "Appends the findings to a case file as one case; gives its position in the file.");
    cls.def(
        "ReadFindings", ReadFindings, "source"_a, "position"_a = NEXT_CASE_POSN, "nodes"_a = py::none(),
        "add"_a = int(DONT_ADD_NEW),
        "Reads one case of a case file into findings: by default the next one of a Streamer. Findings that "
        "the\nnodes had go. Gives a CaseRead (position, id, frequency), None when no case is left.\n\n"
        "add: what to do about columns that are no node: DONT_ADD_NEW, QUERY_ADD_NEW, PRINT_AND_ADD_NEW,\n"
        "QUIETLY_ADD_NEW.");
}

}  // namespace talora_py
