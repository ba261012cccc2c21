// BNet: a net, what it consists of, its compiling, findings and files.
#include <algorithm>
#include <cmath>
#include <tuple>

#include "Core.h"

using namespace py::literals;

namespace talora_py {

namespace {

// ---- Properties of one kind ----

using GetText = const char* (*)(const net_bn*);
using SetText = void (*)(net_bn*, const char*);
void DefText(NetClass& cls, const char* name, GetText get, SetText set, const char* doc)
{
    cls.def_property(
        name, [get](const NetPtr& net) { return Run(net, [&] { return Text(get(net->handle)); }); },
        [set](const NetPtr& net, const OptionalText& text) {
            Run(net, [&] { set(net->handle, OrNull(text)); });
        },
        doc);
}

using GetNumber = int (*)(const net_bn*);
using SetFlag = void (*)(net_bn*, bool_vx);
void DefFlag(NetClass& cls, const char* name, GetNumber get, SetFlag set, const char* doc)
{
    cls.def_property(
        name, [get](const NetPtr& net) { return Run(net, [&] { return get(net->handle) != 0; }); },
        [set](const NetPtr& net, bool on) {
            Run(
                net, [&] { set(net->handle, on); }, LONG_JOB);
        },
        doc);
}

// A number that may take long to find.
using FindingsFigure = double (*)(net_bn*);
void DefFindingsFigure(NetClass& cls, const char* name, FindingsFigure get, const char* doc)
{
    cls.def_property_readonly(
        name,
        [get](const NetPtr& net) {
            return Run(
                net,
                [&] { return ToPython(IsCompiledNow(net->handle) ? get(net->handle) : GetUndefDbl_vx()); },
                LONG_JOB);
        },
        doc);
}

template <class Get>
void DefReal(NetClass& cls, const char* name, Get get, const char* doc)
{
    cls.def_property_readonly(
        name,
        [get](const NetPtr& net) {
            return Run(
                net, [&] { return ToPython(get(net->handle)); }, LONG_JOB);
        },
        doc);
}

// ---- User fields ----

py::object GetUserField(const NetPtr& net, const Text& name)
{
    const auto value = Run(net, [&]() -> std::optional<std::string> {
        int length = 0;
        const char* bytes = GetNetUserField_bn(net->handle, name.c_str(), &length, 0);
        if (bytes == nullptr) return std::nullopt;
        return std::string(bytes, size_t(length));
    });
    return value ? py::object(py::bytes(*value)) : py::none();
}

void SetUserField(const NetPtr& net, const Text& name, const std::optional<std::string>& value)
{
    Run(net, [&] {
        SetNetUserField_bn(net->handle, name.c_str(), value ? value->data() : nullptr,
                           value ? int(value->size()) : 0, 0);
    });
}

py::object NthUserField(const NetPtr& net, int index)
{
    const auto field = Run(net, [&]() -> std::optional<std::pair<std::string, std::string>> {
        const char *name = nullptr, *value = nullptr;
        int length = 0;
        GetNetNthUserField_bn(net->handle, index, &name, &value, &length, 0);
        if (name == nullptr) return std::nullopt;
        return std::make_pair(std::string(name), std::string(value, size_t(length)));
    });
    if (!field) return py::none();
    return py::make_tuple(Text(field->first), py::bytes(field->second));
}

void BindProperties(NetClass& cls)
{
    DefText(cls, "Name", GetNetName_bn, SetNetName_bn, "The name of the net.");
    DefText(cls, "Title", GetNetTitle_bn, SetNetTitle_bn, "A title for display.");
    DefText(cls, "Comment", GetNetComment_bn, SetNetComment_bn, "A comment of any length.");
    DefText(cls, "Author", GetNetAuthor_bn, SetNetAuthor_bn, "Who made the net.");
    cls.def_property(
        "LastChange",
        [](const NetPtr& net) {
            return Run(net, [&] {
                uint32_t when = 0;
                Text who = GetNetLastChange_bn(net->handle, &when);
                return std::make_pair(who, when);
            });
        },
        [](const NetPtr& net, const std::pair<Text, uint32_t>& change) {
            Run(net, [&] { SetNetLastChange_bn(net->handle, change.first.c_str(), change.second); });
        },
        "Who changed the net last, and when: (who, seconds since 1970 or 0).");
    cls.def_property(
        "AutoUpdate",
        [](const NetPtr& net) { return Run(net, [&] { return GetNetAutoUpdate_bn(net->handle); }); },
        [](const NetPtr& net, int mode) {
            Run(
                net, [&] { SetNetAutoUpdate_bn(net->handle, mode); }, LONG_JOB);
        },
        "Whether beliefs are brought up to date after each finding: 0 or BELIEF_UPDATE (True does as well).");
    DefFlag(cls, "AutoCompile", GetNetAutoCompile_bn, SetNetAutoCompile_bn,
            "Whether the net is compiled when it is read from a file.");
    cls.def_property(
        "NumDimensions",
        [](const NetPtr& net) { return Run(net, [&] { return GetNetNumDimensions_bn(net->handle); }); },
        [](const NetPtr& net, int count) { Run(net, [&] { SetNetNumDimensions_bn(net->handle, count); }); },
        "Number of time dimensions of a net with time delays.");
    DefIndexed(cls, "UserField", GetUserField, SetUserField,
               "Fields of your own that are kept with the net and in its files, by name: bytes, or None if "
               "there\nis none of that name. Setting takes bytes, str, or None, which removes the field.");
    DefIndexed(cls, "NthUserField", NthUserField,
               "User fields by index: (name, bytes), None behind the last.");
    cls.def_property(
        "UserData",
        [](const NetPtr& net) {
            const auto found = net->user_data.find(0);
            return found == net->user_data.end() ? py::object(py::none()) : found->second;
        },
        [](const NetPtr& net, const py::object& data) { net->user_data[0] = data; },
        "An object of your own; goes with the net. Do not keep the net itself in it.");
    cls.def_property(
        "Password", nullptr,
        [](const NetPtr& net, const OptionalText& password) {
            Run(net, [&] { SetNetPassword_bn(net->handle, OrNull(password)); });
        },
        "Password that the net is encrypted with when it is written to a .tala file; it can be set, not "
        "read.\nNone removes it.");
    cls.def_property_readonly(
        "HasPassword",
        [](const NetPtr& net) { return Run(net, [&] { return HasNetPassword_bn(net->handle) != 0; }); },
        "Whether a password is set.");
    cls.def_property(
        "RandomGenerator", [](const NetPtr& net) { return net->generator; },
        [](const NetPtr& net, const GeneratorPtr& generator) {
            Run(net, [&] { SetNetRandomGen_bn(net->handle, generator ? generator->handle : nullptr); });
            net->generator = generator;
        },
        "The generator that random cases and sampled tables of the net draw from; None: the Application's.");
}

// ---- Life ----

NetPtr CopyNet(const NetPtr& net, const OptionalText& name, const OptionalText& options)
{
    return AdoptNet(net->app, Run(
                                  net,
                                  [&] {
                                      const std::string given =
                                          name ? name->bytes : GetNetName_bn(net->handle);
                                      return CopyNet_bn(net->handle, given.c_str(), nullptr, OrNull(options));
                                  },
                                  LONG_JOB));
}

py::list WriteNet(const NetPtr& net, const py::object& target, const OptionalText& password,
                  const OptionalText& format, bool strict)
{
    const StreamPtr stream = StreamArg(net->app, target);
    Run(
        net,
        [&] {
            std::lock_guard lock(stream->lock);
            if (password) SetStreamPassword_vx(stream->handle, password->c_str());
            WriteNetAs_bn(net->handle, stream->handle, OrNull(format), strict ? "strict" : nullptr);
        },
        LONG_JOB);
    return StreamLosses(stream);
}

void BindLife(NetClass& cls)
{
    cls.def("Delete", &Net::Delete,
            "Deletes the net with its nodes and frees their memory. Objects that refer to it stay, but using "
            "them\nraises DeletedError. Without this a net goes when nothing refers to it or its nodes.");
    cls.def("__enter__", [](const NetPtr& net) { return net; });
    cls.def("__exit__", [](const NetPtr& net, const py::args&) { net->Delete(); });
    cls.def("Copy", CopyNet, "name"_a = py::none(), "options"_a = py::none(),
            "A copy of the net.\n\noptions: words out of 'no_nodes', 'no_links', 'no_tables', 'no_visual', "
            "'no_window'.");
    constexpr const char* kWrite =
        "Writes the net to a path or a Streamer: in the format that the extension of its name shows, or in the\n"
        "one that is named. A password encrypts a binary file (.tala). A file is replaced as a whole or not at all."
        "\n\nstrict: fail, with nothing written, where answers would change.\nReturns what was lost, as "
        "Streamer.Losses.";
    for (const char* name : {"Write", "write"})
        cls.def(name, WriteNet, "target"_a, "password"_a = py::none(), "format"_a = py::none(),
                "strict"_a = false, kWrite);
    cls.def_property_readonly(
        "Environ", [](const NetPtr& net) { return net->app; }, "The Application that the net is in.");
    cls.def_property_readonly(
        "_is_deleted", [](const NetPtr& net) { return net->handle == nullptr || net->app->env == nullptr; });
}

// ---- Nodes ----

std::vector<Node> AllNodes(const NetPtr& net)
{
    return Run(net, [&] { return MarkNodes(net, GetNetNodes2_bn(net->handle, nullptr)); });
}

py::object FindNode(const NetPtr& net, const Text& name)
{
    const Node node = Run(net, [&] {
        node_bn* handle = name.bytes.empty() ? nullptr : GetNodeNamed_bn(name.c_str(), net->handle);
        return handle ? MarkNode(net, handle) : Node();
    });
    return node.handle ? py::cast(node) : py::none();
}

Node NewNode(const NetPtr& net, const Text& name, const py::object& states)
{
    std::string names;
    int count = 0;
    const bool by_name = !py::isinstance<py::int_>(states) && !PyIndex_Check(states.ptr());
    if (!by_name) {
        count = states.cast<int>();
    } else if (py::isinstance<py::str>(states)) {
        names = states.cast<Text>().bytes;
        count = int(std::count(names.begin(), names.end(), ',')) + 1;
    } else {
        for (const py::handle state : states) names += (count++ ? "," : "") + state.cast<Text>().bytes;
    }
    return Run(net, [&] {
        node_bn* handle = NewNode_bn(name.c_str(), count, net->handle);
        if (handle == nullptr) return Node();
        if (!names.empty()) SetNodeStateNames_bn(handle, names.c_str());
        if (!names.empty() && *GetNodeStateName_bn(handle, 0) == '\0') {  // refused: no half a node stays
            DeleteNode_bn(handle);
            return Node();
        }
        return MarkNode(net, handle);
    });
}

py::object CopyNodes(const NetPtr& net, const py::object& which, const OptionalText& options)
{
    const std::vector<Node> nodes = NodesArg(which, net);
    const NetPtr from = NetOf(nodes, "CopyNodes");
    auto copy = [&] {
        const TempList list(from, nodes);
        nodelist_bn* copies = CopyNodes_bn(list, net->handle, OrNull(options));
        std::vector<Node> result = MarkNodes(net, copies);
        DeleteNodeList_bn(copies);
        return result;
    };
    if (from == net) return ToNodeList(Run(net, copy));
    // Two nets: their locks in order of address, as in the engine.
    Net& first = std::less<Net*>()(from.get(), net.get()) ? *from : *net;
    Net& second = &first == from.get() ? *net : *from;
    return ToNodeList(RunIn(*net->app, SHORT_JOB, [&] {
        NetUse use_first(first);
        AppUse use_other(*second.app);
        NetUse use_second(second);
        return copy();
    }));
}

void BindNetNodes(NetClass& cls)
{
    cls.def_property_readonly(
        "Nodes", [](const NetPtr& net) { return ToNodeList(AllNodes(net)); },
        "All nodes, in the order in which they were made: a BNodes of its own, which does not change with the "
        "net.");
    DefIndexed(cls, "Node", FindNode,
               "The node of that name; None if there is none. net['Name'] raises KeyError.");
    cls.def(
        "NewNode", NewNode, "name"_a, "states"_a = 0,
        "Makes a nature node.\n\n"
        "states: names, in a list or separated by commas; or how many, without names; 0 makes a continuous\n"
        "node.");
    cls.def("CopyNodes", CopyNodes, "nodes"_a, "options"_a = py::none(),
            "Copies nodes of this or another net into this one, and the links between them.\n\n"
            "options: words out of 'no_links', 'no_tables'. Gives the new nodes in the same order.");
    cls.def("__getitem__", [](const NetPtr& net, const Text& name) {
        const py::object node = FindNode(net, name);
        if (node.is_none()) throw py::key_error(name.bytes);
        return node;
    });
    cls.def("__contains__", [](const NetPtr& net, const py::object& which) {
        if (!py::isinstance<Node>(which))
            return py::isinstance<py::str>(which) && !FindNode(net, which.cast<Text>()).is_none();
        const Node node = which.cast<Node>();
        return node.net == net && Run(net, [&] {
                   return GetNodeUserData_bn(node.handle) == reinterpret_cast<void*>(node.mark);
               });
    });
    cls.def("__len__", [](const NetPtr& net) {
        return Run(net, [&] { return LengthNodeList_bn(GetNetNodes2_bn(net->handle, nullptr)); });
    });
    cls.def("__iter__", [](const NetPtr& net) { return py::iter(py::cast(AllNodes(net))); });
    cls.def("__bool__", [](const NetPtr&) { return true; });
}

void BindNodesets(NetClass& cls)
{
    cls.def(
        "NewNodeset",
        [](const NetPtr& net, const Text& name) {
            Run(net, [&] { NewNodeset_bn(name.c_str(), net->handle); });
        },
        "name"_a, "Makes an empty node set.");
    cls.def(
        "DeleteNodeset",
        [](const NetPtr& net, const Text& name) {
            Run(net, [&] { DeleteNodeset_bn(name.c_str(), net->handle); });
        },
        "name"_a, "Deletes a node set; its nodes stay.");
    cls.def(
        "RenameNodeset",
        [](const NetPtr& net, const Text& name, const Text& new_name) {
            Run(net, [&] { RenameNodeset_bn(name.c_str(), new_name.c_str(), net->handle); });
        },
        "name"_a, "new_name"_a, "Gives a node set another name.");
    DefIndexed(
        cls, "Nodeset",
        [](const NetPtr& net, int index) {
            return Run(net, [&]() -> OptionalText {
                const char* name = GetNthNodeset_bn(net->handle, index);
                return name ? OptionalText(name) : std::nullopt;
            });
        },
        "The name of a node set by index; None behind the last.");
    DefIndexed(
        cls, "NodesetNodes",
        [](const NetPtr& net, const Text& name) {
            return ToNodeList(Run(net, [&] {
                nodelist_bn* list = GetNodesetNodes_bn(name.c_str(), net->handle);
                std::vector<Node> nodes = MarkNodes(net, list);
                DeleteNodeList_bn(list);
                return nodes;
            }));
        },
        "The nodes of a node set, in the order in which they were added.");
}

// ---- Compiling ----

void BindCompiling(NetClass& cls)
{
    cls.def(
        "Compile",
        [](const NetPtr& net) {
            Run(
                net, [&] { CompileNet_bn(net->handle); }, LONG_JOB);
        },
        "Builds the junction tree. Asking for beliefs does so too, if need be.");
    cls.def(
        "OptimizeElimOrder",
        [](const NetPtr& net, double seconds) {
            Run(
                net, [&] { OptimizeNetElimOrder_bn(net->handle, seconds, nullptr); }, LONG_JOB);
        },
        "seconds"_a, "Searches for a better elimination order for so long at most, stores it and compiles.");
    cls.def(
        "Uncompile", [](const NetPtr& net) { Run(net, [&] { UncompileNet_bn(net->handle); }); },
        "Discards the junction tree.");
    cls.def_property_readonly(
        "Compiled",
        [](const NetPtr& net) { return Run(net, [&] { return IsNetCompiled_bn(net->handle) != 0; }); },
        "Whether there is a junction tree.");
    cls.def_property(
        "ElimOrder",
        [](const NetPtr& net) -> py::object {
            const auto order = Run(net, [&]() -> std::optional<std::vector<Node>> {
                const nodelist_bn* list = GetNetElimOrder_bn(net->handle);
                if (list == nullptr) return std::nullopt;
                return MarkNodes(net, list);
            });
            return order ? ToNodeList(*order) : py::none();
        },
        [](const NetPtr& net, const py::object& order) {
            const std::vector<Node> nodes = order.is_none() ? std::vector<Node>() : NodesArg(order, net);
            Run(net, [&] {
                if (order.is_none()) {
                    SetNetElimOrder_bn(net->handle, nullptr);
                    return;
                }
                const TempList list(net, nodes);
                SetNetElimOrder_bn(net->handle, list);
            });
        },
        "The stored elimination order, every nature and decision node once; None if there is none, and to "
        "remove it.");
    DefReal(cls, "ElimCost", GetNetElimCost_bn,
            "The sum over the elimination order of the table sizes; nan without one.");
    cls.def(
        "SizeCompiled",
        [](const NetPtr& net, int method) {
            return Run(net, [&] { return SizeCompiledNet_bn(net->handle, method); });
        },
        "method"_a = 0, "Table entries of the junction tree under the present findings.");
    cls.def_property_readonly(
        "CompiledNetSizes",
        [](const NetPtr& net) {
            return Run(net, [&] {
                double cliques = 0, with_separators = 0, under_findings = 0;
                GetCompiledNetSizes_bn(net->handle, &cliques, &with_separators, &under_findings);
                return std::make_tuple(cliques, with_separators, under_findings);
            });
        },
        "Table entries of the junction tree: (cliques, with separators, under the present findings).");
    cls.def(
        "ReportJunctionTree",
        [](const NetPtr& net) { return Run(net, [&] { return Text(ReportJunctionTree_bn(net->handle)); }); },
        "The junction tree as a table in text.");
    cls.def_property_readonly(
        "NumCliques",
        [](const NetPtr& net) { return Run(net, [&] { return GetNetNumCliques_bn(net->handle); }); },
        "How many cliques the junction tree has; clique 0 is the root.");
}

void BindCliques(NetClass& cls)
{
    DefIndexed(
        cls, "CliqueNodes",
        [](const NetPtr& net, int clique) {
            return ToNodeList(
                Run(net, [&] { return MarkNodes(net, GetCliqueNodes_bn(net->handle, clique)); }));
        },
        "The nodes of a clique, in elimination order.");
    DefIndexed(
        cls, "CliqueNumNeighbors",
        [](const NetPtr& net, int clique) {
            return Run(net, [&] { return GetCliqueNumNeighbors_bn(net->handle, clique); });
        },
        "How many neighbours a clique has in the tree.");
    DefIndexed(
        cls, "CliqueNeighbor",
        [](const NetPtr& net, int clique, int index) {
            return Run(net, [&] { return GetCliqueNeighbor_bn(net->handle, clique, index); });
        },
        "The number of a clique's neighbour: net.CliqueNeighbor[clique, index].");
    DefIndexed(
        cls, "CliqueSize",
        [](const NetPtr& net, int clique) {
            return Run(net, [&] { return GetCliqueSize_bn(net->handle, clique); });
        },
        "Table entries of a clique.");
}

// ---- Findings and what follows from them ----

py::tuple MostProbable(const NetPtr& net, int nth)
{
    auto [log_probability, states] = Run(
        net,
        [&] {
            const nodelist_bn* nodes = GetNetNodes2_bn(net->handle, nullptr);
            std::vector<int> setting(size_t(std::max(LengthNodeList_bn(nodes), 0)) + 1, UNDEF_STATE);
            const double logarithm = MostProbableConfig_bn(net->handle, setting.data(), nth);
            setting.pop_back();
            return std::make_pair(ToPython(logarithm), setting);
        },
        LONG_JOB);
    return py::make_tuple(AllNodes(net), states, log_probability);
}

void BindFindings(NetClass& cls)
{
    cls.def(
        "RetractFindings", [](const NetPtr& net) { Run(net, [&] { RetractNetFindings_bn(net->handle); }); },
        "Takes all findings back.");
    DefFindingsFigure(cls, "FindingsProbability", FindingsProbability_bn,
                      "Probability of all findings: 1 without any, 0 if they contradict one another.");
    DefFindingsFigure(
        cls, "LogFindingsProbability", LogFindingsProbability_bn,
        "The natural logarithm of the probability of all findings, which does not underflow; -inf where it "
        "is 0.");
    cls.def(
        "UpdateBeliefs",
        [](const NetPtr& net) {
            Run(
                net,
                [&] {
                    if (IsCompiledNow(net->handle)) UpdateNetBeliefs_bn(net->handle);
                },
                LONG_JOB);
        },
        "Brings all beliefs up to date now.");
    DefFlag(cls, "MostProbable", GetNetMostProbable_bn, SetNetMostProbable_bn,
            "Whether updating finds the most probable configuration instead of beliefs.");
    cls.def(
        "ReportMostProbable",
        [](const NetPtr& net) {
            return Run(
                net, [&] { return Text(ReportMostProbable_bn(net->handle)); }, LONG_JOB);
        },
        "How probable the most probable configuration is, as text; sets BNode.MostProbableState of each "
        "node.\nThe net must be in the mode MostProbable.");
    cls.def("_most_probable", MostProbable, "nth"_a);
    cls.def(
        "_enter_all",
        [](const NetPtr& net, const std::vector<std::pair<Node, int>>& states) {
            Run(
                net,
                [&] {
                    for (const auto& [node, state] : states) {
                        CheckNode(node);
                        EnterFinding_bn(node.handle, state);
                    }
                },
                LONG_JOB);
        },
        "states"_a);
}

// ---- Undo ----

using NthText = const char* (*)(const net_bn*, int);
void DefHistory(NetClass& cls, const char* name, NthText get, const char* doc)
{
    DefIndexed(
        cls, name,
        [get](const NetPtr& net, int index) {
            return Run(net, [&]() -> OptionalText {
                const char* text = get(net->handle, index);
                return text ? OptionalText(text) : std::nullopt;
            });
        },
        doc);
}

void BindUndo(NetClass& cls)
{
    cls.def_property(
        "NumUndos",
        [](const NetPtr& net) {
            return Run(net, [&] {
                double memory = 0;
                const int count = GetNetNumUndos_bn(net->handle, &memory);
                return std::make_pair(count, memory);
            });
        },
        [](const NetPtr& net, const py::object& limits) {
            const bool both = py::isinstance<py::tuple>(limits);
            const auto [count, memory] =
                both ? limits.cast<std::pair<int, double>>() : std::make_pair(limits.cast<int>(), -1.0);
            Run(net, [&, c = count, m = memory] { SetNetNumUndos_bn(net->handle, c, m, nullptr); });
        },
        "How much history is kept: (steps at most, bytes at most); both 0: none. Setting takes the number of "
        "steps\nalone, too.");
    DefFlag(cls, "Undoing", GetNetUndoing_bn, SetNetUndoing_bn,
            "Turns undoing on or off, with its limits as they are.");
    cls.def(
        "Undo",
        [](const NetPtr& net) { return Run(net, [&] { return UndoNetLastOper_vx(net->handle, -1) != 0; }); },
        "Undoes the last step; False if there was none.");
    cls.def(
        "Redo",
        [](const NetPtr& net) { return Run(net, [&] { return RedoNetOper_vx(net->handle, -1) != 0; }); },
        "Redoes the step undone last; False if there was none.");
    DefHistory(cls, "NthUndo", GetNetNthUndo_bn,
               "What undoing would undo, 0 the next step; None behind the oldest.");
    DefHistory(cls, "NthRedo", GetNetNthRedo_bn,
               "What redoing would do again, 0 the next step; None if nothing.");
    DefReal(cls, "UndoMemory", GetNetUndoMemory_bn, "Bytes that the kept steps take.");
    cls.def(
        "OpenUndoGroup",
        [](const NetPtr& net, const OptionalText& description) {
            Run(net, [&] { OpenNetUndoGroup_bn(net->handle, OrNull(description)); });
        },
        "description"_a = py::none(), "What is done until CloseUndoGroup is one step.");
    cls.def(
        "CloseUndoGroup", [](const NetPtr& net) { Run(net, [&] { CloseNetUndoGroup_bn(net->handle); }); },
        "Ends the group that was opened last.");
    cls.def(
        "AbortUndoGroup", [](const NetPtr& net) { Run(net, [&] { AbortNetUndoGroup_bn(net->handle); }); },
        "Takes back what was done since the outermost group was opened; it must be closed nevertheless.");
    cls.def_property_readonly(
        "UndoGroup",
        [](const NetPtr& net) { return Run(net, [&] { return GetNetUndoGroup_bn(net->handle); }); },
        "NO_UNDO_GROUP, OPEN_UNDO_GROUP or ABORTED_UNDO_GROUP.");
}

}  // namespace

NetClass DeclareNets(py::module_& module)
{
    return NetClass(
        module, "BNet",
        "A Bayesian belief network or decision network.\n\n"
        "Made by Application.NewBNet and ReadBNet. net['Name'] is a node, `in`, len and iteration are "
        "about\nits nodes. It goes when nothing refers to it or its nodes any more, or with Delete().");
}

void BindNets(NetClass& cls)
{
    BindLife(cls);
    BindProperties(cls);
    BindNetNodes(cls);
    BindNodesets(cls);
    BindCompiling(cls);
    BindCliques(cls);
    BindFindings(cls);
    BindUndo(cls);
    BindNodeLists(cls);
}

}  // namespace talora_py
