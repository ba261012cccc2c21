// BNode: a node, its states, links, findings and beliefs.
#include <algorithm>

#include "Core.h"

using namespace py::literals;

namespace talora_py {

namespace {

// ---- Properties of one kind ----

using GetText = const char* (*)(const node_bn*);
using SetText = void (*)(node_bn*, const char*);
void DefText(NodeClass& cls, const char* name, GetText get, SetText set, const char* doc)
{
    cls.def_property(
        name, [get](const Node& self) { return Run(self, [&](node_bn* node) { return Text(get(node)); }); },
        [set](const Node& self, const OptionalText& text) {
            Run(self, [&](node_bn* node) { set(node, OrNull(text)); });
        },
        doc);
}

using GetStateText = const char* (*)(const node_bn*, state_bn);
using SetStateText = void (*)(node_bn*, state_bn, const char*);
void DefStateText(NodeClass& cls, const char* name, GetStateText get, SetStateText set, const char* doc)
{
    DefIndexed(
        cls, name,
        [get](const Node& self, const StateArg& state) {
            return Run(self, [&](node_bn* node) { return Text(get(node, ResolveState(node, state))); });
        },
        [set](const Node& self, const StateArg& state, const OptionalText& text) {
            Run(self, [&](node_bn* node) { set(node, ResolveState(node, state), OrNull(text)); });
        },
        doc);
}

using GetFlag = bool_vx (*)(const node_bn*);
void DefFlag(NodeClass& cls, const char* name, GetFlag get, const char* doc)
{
    cls.def_property_readonly(
        name, [get](const Node& self) { return Run(self, [&](node_bn* node) { return get(node) != 0; }); },
        doc);
}

// ---- User fields ----

py::object GetUserField(const Node& self, const Text& name)
{
    const auto value = Run(self, [&](node_bn* node) -> std::optional<std::string> {
        int length = 0;
        const char* bytes = GetNodeUserField_bn(node, name.c_str(), &length, 0);
        if (bytes == nullptr) return std::nullopt;
        return std::string(bytes, size_t(length));
    });
    return value ? py::object(py::bytes(*value)) : py::none();
}

void SetUserField(const Node& self, const Text& name, const std::optional<std::string>& value)
{
    Run(self, [&](node_bn* node) {
        SetNodeUserField_bn(node, name.c_str(), value ? value->data() : nullptr,
                            value ? int(value->size()) : 0, 0);
    });
}

py::object NthUserField(const Node& self, int index)
{
    const auto field = Run(self, [&](node_bn* node) -> std::optional<std::pair<std::string, std::string>> {
        const char *name = nullptr, *value = nullptr;
        int length = 0;
        GetNodeNthUserField_bn(node, index, &name, &value, &length, 0);
        if (name == nullptr) return std::nullopt;
        return std::make_pair(std::string(name), std::string(value, size_t(length)));
    });
    if (!field) return py::none();
    return py::make_tuple(Text(field->first), py::bytes(field->second));
}

void BindProperties(NodeClass& cls)
{
    DefText(cls, "Name", GetNodeName_bn, SetNodeName_bn, "The name of the node, unique in its net.");
    DefText(cls, "Title", GetNodeTitle_bn, SetNodeTitle_bn, "A title for display.");
    DefText(cls, "Comment", GetNodeComment_bn, SetNodeComment_bn, "A comment of any length.");
    DefText(cls, "Units", GetNodeUnits_bn, SetNodeUnits_bn, "The units of a continuous node.");
    DefText(cls, "Author", GetNodeAuthor_bn, SetNodeAuthor_bn, "Who made the node.");
    DefText(
        cls, "Measure", GetNodeMeasure_bn, SetNodeMeasure_bn,
        "Level of measurement: 'UNKNOWN_MEASURE', 'NOMINAL', 'PROXIMAL', 'ORDINAL', 'INTERVAL', 'RATIO'.");
    DefText(cls, "Relation", GetNodeRelation_bn, SetNodeRelation_bn,
            "Relation to the parents: 'INVERTABLE', 'DETERMIN', 'CHANCE', 'UNKNOWN_CHANCE'.");
    DefText(cls, "Equation", GetNodeEquation_bn, SetNodeEquation_bn,
            "The equation: 'x (a, b) = ...' for the value, 'P (x | a, b) = ...' for the probability; '' for "
            "none.");
    DefText(cls, "Persistance", GetNodePersistance_bn, SetNodePersistance_bn,
            "How the node persists over time.");
    cls.def_property(
        "Kind", [](const Node& self) { return Run(self, GetNodeKind_bn); },
        [](const Node& self, int kind) { Run(self, [&](node_bn* node) { SetNodeKind_bn(node, kind); }); },
        "NATURE_NODE, CONSTANT_NODE, DECISION_NODE, UTILITY_NODE, DISCONNECTED_NODE or ADVERSARY_NODE.");
    cls.def_property_readonly(
        "Type", [](const Node& self) { return Run(self, GetNodeType_bn); },
        "DISCRETE_TYPE or CONTINUOUS_TYPE.");
    cls.def_property(
        "LastChange",
        [](const Node& self) {
            return Run(self, [](node_bn* node) {
                uint32_t when = 0;
                Text who = GetNodeLastChange_bn(node, &when);
                return std::make_pair(who, when);
            });
        },
        [](const Node& self, const std::pair<Text, uint32_t>& change) {
            Run(self,
                [&](node_bn* node) { SetNodeLastChange_bn(node, change.first.c_str(), change.second); });
        },
        "Who changed the node last, and when: (who, seconds since 1970 or 0).");
    DefIndexed(cls, "UserField", GetUserField, SetUserField,
               "Fields of your own that are kept with the node and in files, by name: bytes or None.");
    DefIndexed(cls, "NthUserField", NthUserField,
               "User fields by index: (name, bytes), None behind the last.");
    cls.def_property(
        "UserData",
        [](const Node& self) {
            Run(self, [](node_bn*) {});
            const auto found = self.net->user_data.find(self.mark);
            return found == self.net->user_data.end() ? py::object(py::none()) : found->second;
        },
        [](const Node& self, const py::object& data) {
            Run(self, [](node_bn*) {});
            self.net->user_data[self.mark] = data;
        },
        "An object of your own; goes with the net. Do not keep the node or its net in it.");
}

// ---- States ----

using LabelOf = int (*)(const node_bn*, state_bn, const char*, char*, int);

Text Label(const node_bn* node, int state, const OptionalText& options, LabelOf label_of)
{
    std::string label(size_t(std::max(label_of(node, state, OrNull(options), nullptr, 0), 0)) + 1, '\0');
    label_of(node, state, OrNull(options), label.data(), int(label.size()));
    label.pop_back();
    return label;
}

int LabelOfNode(const node_bn* node, state_bn, const char* options, char* label, int size)
{
    return GetNodeLabel_bn(node, options, label, size);
}

// Names of all states, "#" and the number for one without a name.
std::vector<Text> StateNames(const Node& self)
{
    return Run(self, [](node_bn* node) {
        std::vector<Text> names;
        const int count = GetNodeNumberStates_bn(node);
        for (int i = 0; i < count; ++i) {
            const char* name = GetNodeStateName_bn(node, i);
            names.emplace_back(*name ? std::string(name) : "#" + std::to_string(i));
        }
        return names;
    });
}

void SetStateNames(const Node& self, const py::object& states)
{
    std::string names;
    if (py::isinstance<py::str>(states)) {
        names = states.cast<Text>().bytes;
    } else if (!states.is_none()) {
        bool first = true;
        for (const py::handle state : states) {
            names += (first ? "" : ",") + state.cast<Text>().bytes;
            first = false;
        }
    }
    Run(self, [&](node_bn* node) {
        if (names.empty())
            RemoveNodeStateNames_bn(node, EVERY_STATE);
        else
            SetNodeStateNames_bn(node, names.c_str());
    });
}

void SetStateName(node_bn* node, state_bn state, const char* name)
{
    if (name == nullptr || *name == '\0')
        RemoveNodeStateNames_bn(node, state);
    else
        SetNodeStateName_bn(node, state, name);
}

void AddStates(const Node& self, int first, const OptionalText& names, int count, double cpt_fill)
{
    if (names && count == 0) count = int(std::count(names->bytes.begin(), names->bytes.end(), ',')) + 1;
    Run(self,
        [&](node_bn* node) { AddNodeStates_bn(node, first, OrNull(names), count, FromPython(cpt_fill)); });
}

void BindStates(NodeClass& cls)
{
    cls.def_property_readonly(
        "NumberStates", [](const Node& self) { return Run(self, GetNodeNumberStates_bn); },
        "How many states the node has; 0 for a continuous one that is not discretised.");
    cls.def("__len__", [](const Node& self) { return std::max(Run(self, GetNodeNumberStates_bn), 0); });
    cls.def("__bool__", [](const Node&) { return true; });
    cls.def_property("StateNames", StateNames, SetStateNames,
                     "Names of all states, '#0' and so on for those without. Setting takes a list, or names "
                     "separated\nby commas; None removes them.");
    DefStateText(cls, "StateName", GetNodeStateName_bn, SetStateName,
                 "The name of a state, '' if it has none; None removes it.");
    DefStateText(cls, "StateTitle", GetNodeStateTitle_bn, SetNodeStateTitle_bn, "The title of a state.");
    DefStateText(cls, "StateComment", GetNodeStateComment_bn, SetNodeStateComment_bn,
                 "The comment of a state.");
    cls.def(
        "Label",
        [](const Node& self, const OptionalText& options) {
            return Run(self, [&](node_bn* node) { return Label(node, 0, options, LabelOfNode); });
        },
        "options"_a = py::none(),
        "The title, or the name where there is none; 'multi_line' keeps line breaks.");
    cls.def(
        "StateLabel",
        [](const Node& self, const StateArg& state, const OptionalText& options) {
            return Run(self, [&](node_bn* node) {
                return Label(node, ResolveState(node, state), options, GetNodeStateLabel_bn);
            });
        },
        "state"_a, "options"_a = py::none(),
        "A label of a state for display: title, name, interval, or '#' and its number.");
    cls.def(
        "GetState",
        [](const Node& self, const Text& name) {
            return Run(self, [&](node_bn* node) { return GetStateNamed_bn(name.c_str(), node); });
        },
        "name"_a, "The number of the state of that name, UNDEF_STATE if there is none.");
    DefIndexed(
        cls, "StateValue",
        [](const Node& self, const StateArg& state) {
            return Run(self, [&](node_bn* node) {
                return ToPython(GetNodeStateValue_bn(node, ResolveState(node, state)));
            });
        },
        "The number that a state stands for; nan without levels.");
    cls.def("AddStates", AddStates, "first_state"_a = -1, "names"_a = py::none(), "count"_a = 0,
            "cpt_fill"_a = std::numeric_limits<double>::quiet_NaN(),
            "Adds states at a position, -1 the end: names separated by commas, or so many without names.\n"
            "cpt_fill: what tables get for them; nan: missing, 0: zero.");
    cls.def(
        "RemoveState",
        [](const Node& self, const StateArg& state) {
            Run(self, [&](node_bn* node) { RemoveNodeState_bn(node, ResolveState(node, state)); });
        },
        "state"_a, "Removes a state; tables lose its entries.");
    cls.def(
        "ReorderStates",
        [](const Node& self, const std::vector<StateArg>& order) {
            Run(self, [&](node_bn* node) {
                std::vector<int> numbers;
                for (const StateArg& state : order) numbers.push_back(ResolveState(node, state));
                if (int(numbers.size()) != GetNodeNumberStates_bn(node))
                    throw std::invalid_argument("the new order must hold every state once");
                ReorderNodeStates_bn(node, numbers.data());
            });
        },
        "order"_a, "Puts the states in another order: for each place the present state that comes there.");
}

void BindLevels(NodeClass& cls)
{
    cls.def_property(
        "Levels",
        [](const Node& self) -> py::object {
            auto levels = Run(self, [](node_bn* node) {
                const level_bn* first = GetNodeLevels_bn(node);
                std::vector<double> values;
                for (int i = 0; first && i < GetNodeNumberLevels_bn(node); ++i)
                    values.push_back(ToPython(first[i]));
                return values;
            });
            return levels.empty() ? py::object(py::none()) : ToArray(std::move(levels));
        },
        [](const Node& self, const py::object& levels) {
            const auto values = levels.is_none() ? std::vector<double>() : levels.cast<std::vector<double>>();
            Run(self, [&](node_bn* node) {
                std::vector<double> numbers;
                for (const double value : values) numbers.push_back(FromPython(value));
                const bool discrete = GetNodeType_bn(node) == DISCRETE_TYPE;
                const bool range = !discrete && values.size() == 2 && GetNodeNumberStates_bn(node) == 0;
                const int count = int(values.size()) - (discrete ? 0 : range ? 2 : 1);
                SetNodeLevels_bn(node, std::max(count, 0), numbers.empty() ? nullptr : numbers.data());
            });
        },
        "Thresholds of a continuous node, one more than states; or the values of a discrete node's states: "
        "an\narray of float64, None if there are none. Two values for a continuous node without states are "
        "its\nrange; SetLevels says how many states are meant.");
    cls.def(
        "SetLevels",
        [](const Node& self, int num_states, const DoubleArray& levels) {
            std::vector<double> numbers(levels.data(), levels.data() + levels.size());
            for (double& number : numbers) number = FromPython(number);
            Run(self, [&](node_bn* node) {
                const bool discrete = GetNodeType_bn(node) == DISCRETE_TYPE;
                const int64_t wanted = discrete ? num_states : num_states == 0 ? 2 : int64_t(num_states) + 1;
                if (num_states < 0 || int64_t(numbers.size()) != wanted)
                    throw std::invalid_argument(std::to_string(wanted) + " levels are wanted");
                SetNodeLevels_bn(node, num_states, numbers.data());
            });
        },
        "num_states"_a, "levels"_a,
        "Discretises a continuous node into so many states (one threshold more), or gives its range (0 states, "
        "2\nvalues), or gives a discrete node's states their values.");
    cls.def_property_readonly(
        "NumberLevels", [](const Node& self) { return Run(self, GetNodeNumberLevels_bn); },
        "How many levels there are.");
}

// ---- Links ----

using GetNodes = const nodelist_bn* (*)(const node_bn*);
void DefNodes(NodeClass& cls, const char* name, GetNodes get, const char* doc)
{
    cls.def_property_readonly(
        name,
        [get](const Node& self) {
            return ToNodeList(Run(self, [&](node_bn* node) { return MarkNodes(self.net, get(node)); }));
        },
        doc);
}

// A link by its index or by the parent that it comes from.
struct LinkArg {
    int index = -1;
    Node parent;
};

LinkArg LinkOf(const Node& self, const py::object& link)
{
    if (!py::isinstance<py::str>(link) && !py::isinstance<Node>(link)) return {link.cast<int>(), {}};
    return {-1, NodeArg(link, self.net)};
}

int ResolveLink(const node_bn* node, const LinkArg& link)
{
    if (link.parent.handle == nullptr) return link.index;
    CheckNode(link.parent);
    const int index = IndexOfNodeInList_bn(link.parent.handle, GetNodeParents_bn(node), 0);
    if (index < 0)
        throw std::invalid_argument("'" + std::string(GetNodeName_bn(link.parent.handle)) +
                                    "' is no parent of '" + GetNodeName_bn(node) + "'");
    return index;
}

int AddLink(const Node& self, const py::object& from)
{
    const Node parent = NodeArg(from, self.net);
    return Run(self, [&](node_bn* child) {
        CheckNode(parent);
        return AddLink_bn(parent.handle, child);
    });
}

void SwitchParent(const Node& self, const py::object& which, const py::object& to)
{
    const LinkArg link = LinkOf(self, which);
    const Node parent = to.is_none() ? Node() : NodeArg(to, self.net);
    Run(self, [&](node_bn* node) {
        if (parent.handle) CheckNode(parent);
        SwitchNodeParent_bn(ResolveLink(node, link), node, parent.handle);
    });
}

using GetLinkText = const char* (*)(const node_bn*, int);
using SetLinkText = void (*)(node_bn*, int, const char*);
void DefLinkText(NodeClass& cls, const char* name, GetLinkText get, SetLinkText set, const char* doc)
{
    DefIndexed(
        cls, name,
        [get](const Node& self, const py::object& which) {
            const LinkArg link = LinkOf(self, which);
            return Run(self, [&](node_bn* node) { return Text(get(node, ResolveLink(node, link))); });
        },
        [set](const Node& self, const py::object& which, const OptionalText& text) {
            const LinkArg link = LinkOf(self, which);
            Run(self, [&](node_bn* node) { set(node, ResolveLink(node, link), OrNull(text)); });
        },
        doc);
}

void BindLinks(NodeClass& cls)
{
    DefNodes(cls, "Parents", GetNodeParents_bn, "The parents, in order.");
    DefNodes(cls, "Children", GetNodeChildren_bn, "The children, in the order in which they were linked.");
    cls.def("AddLink", AddLink, "parent"_a,
            "Makes another node the last parent of this one; gives the index of the link.\n"
            "The tables of this node are repeated for each state of the parent.");
    cls.def(
        "DeleteLink",
        [](const Node& self, const py::object& which) {
            const LinkArg link = LinkOf(self, which);
            Run(self, [&](node_bn* node) { DeleteLink_bn(ResolveLink(node, link), node); });
        },
        "parent"_a, "Removes the link from a parent: its index, itself or its name.");
    cls.def("SwitchParent", SwitchParent, "parent"_a, "new_parent"_a,
            "Replaces a parent; None disconnects the link.");
    cls.def(
        "IsLinkDisconnected",
        [](const Node& self, const py::object& which) {
            const LinkArg link = LinkOf(self, which);
            return Run(self, [&](node_bn* node) {
                return IsLinkDisconnected_bn(ResolveLink(node, link), node) != 0;
            });
        },
        "parent"_a, "Whether the link has been disconnected.");
    cls.def(
        "ReconnectLinks", [](const Node& self) { return Run(self, ReconnectNodeLinks_bn); },
        "Connects disconnected links to the nodes they came from, by name; gives how many.");
    cls.def(
        "IsAncestor",
        [](const Node& self, const py::object& other) {
            const Node node = NodeArg(other, self.net);
            return Run(self, [&](node_bn* handle) {
                CheckNode(node);
                return IsNodeAncestor_bn(handle, node.handle) != 0;
            });
        },
        "descendent"_a, "Whether there is a directed path from this node to another.");
    DefLinkText(cls, "InputName", GetNodeInputName_bn, SetNodeInputName_bn,
                "The name that a link has in the node's equation.");
    DefLinkText(cls, "InputDelay", GetNodeInputDelay_bn, SetNodeInputDelay_bn, "The time delay of a link.");
}

// ---- Node sets, life ----

void BindLife(NodeClass& cls)
{
    cls.def(
        "AddToNodeset",
        [](const Node& self, const Text& name) {
            Run(self, [&](node_bn* node) { AddNodeToNodeset_bn(node, name.c_str()); });
        },
        "nodeset"_a, "Adds the node to a set, making it if it is new.");
    cls.def(
        "RemoveFromNodeset",
        [](const Node& self, const Text& name) {
            Run(self, [&](node_bn* node) { RemoveNodeFromNodeset_bn(node, name.c_str()); });
        },
        "nodeset"_a, "Takes the node out of a set.");
    cls.def(
        "IsInNodeset",
        [](const Node& self, const Text& name) {
            return Run(self, [&](node_bn* node) { return IsNodeInNodeset_bn(node, name.c_str()) != 0; });
        },
        "nodeset"_a, "Whether the node is in a set.");
    cls.def(
        "Delete", [](const Node& self) { Run(self, DeleteNode_bn); },
        "Removes the node and its links from the net. Using it afterwards raises DeletedError.");
    cls.def_property_readonly(
        "BNet", [](const Node& self) { return self.net; }, "The net of the node.");
    cls.def("__eq__", [](const Node& self, const py::object& other) -> py::object {
        if (!py::isinstance<Node>(other)) return py::reinterpret_borrow<py::object>(Py_NotImplemented);
        return py::bool_(self == other.cast<Node>());
    });
    cls.def("__hash__", [](const Node& self) { return std::hash<uintptr_t>()(self.mark); });
    cls.def_property_readonly("_is_deleted", [](const Node& self) {
        try {
            return Run(self.net,
                       [&] { return GetNodeUserData_bn(self.handle) != reinterpret_cast<void*>(self.mark); });
        } catch (py::error_already_set& error) {
            return true;
        } catch (const std::runtime_error&) {
            return true;
        }
    });
}

// ---- Findings and beliefs ----

using EnterNumbers = void (*)(node_bn*, const prob_bn*);
void DefEnterNumbers(NodeClass& cls, const char* name, EnterNumbers enter, const char* doc)
{
    cls.def(
        name,
        [enter](const Node& self, const FloatArray& numbers) {
            const float* first = numbers.data();
            const py::ssize_t size = numbers.size();
            Run(
                self,
                [&](node_bn* node) {
                    if (size != GetNodeNumberStates_bn(node))
                        throw std::invalid_argument("one number for each state is wanted");
                    enter(node, first);
                },
                LONG_JOB);
        },
        "numbers"_a, doc);
}

using EnterState = void (*)(node_bn*, state_bn);
void DefEnterState(NodeClass& cls, const char* name, EnterState enter, const char* doc)
{
    cls.def(
        name,
        [enter](const Node& self, const StateArg& state) {
            Run(
                self, [&](node_bn* node) { enter(node, ResolveState(node, state)); }, LONG_JOB);
        },
        "state"_a, doc);
}

using EnterPair = void (*)(node_bn*, double, double);
void EnterTwo(const Node& self, EnterPair enter, double first, double second)
{
    Run(
        self, [&](node_bn* node) { enter(node, FromPython(first), FromPython(second)); }, LONG_JOB);
}

// Enters one finding in place of those that the node has, as one step for other threads; where it is refused
// the node keeps what it had.
void ReplaceFinding(const Node& self, const std::optional<StateArg>& state,
                    const std::optional<double>& value, const std::optional<FloatArray>& likelihood)
{
    const float* weights = likelihood ? likelihood->data() : nullptr;
    const py::ssize_t count = likelihood ? likelihood->size() : 0;
    Run(
        self,
        [&](node_bn* node) {
            if (likelihood && count != GetNodeNumberStates_bn(node))
                throw std::invalid_argument("one number for each state is wanted");
            const int new_state = state ? ResolveState(node, *state) : UNDEF_STATE;
            const int old_state = GetNodeFinding_bn(node);
            const double old_value = GetNodeValueEntered_bn(node);
            std::vector<float> old_weights;
            if (HasNodeFinding_bn(node) && old_state < 0 && old_value == GetUndefDbl_vx())
                old_weights.assign(GetNodeLikelihood_bn(node),
                                   GetNodeLikelihood_bn(node) + GetNodeNumberStates_bn(node));
            environ_vx* env = self.net->app->env;
            const report_vx* before = GetError_vx(env, ERROR_SEVERITY, 0, nullptr);
            RetractNodeFindings_bn(node);
            if (state) EnterFinding_bn(node, new_state);
            if (value) EnterNodeValue_bn(node, FromPython(*value));
            if (likelihood) EnterNodeLikelihood_bn(node, weights);
            if (GetError_vx(env, ERROR_SEVERITY, 0, nullptr) == before) return;
            if (old_value != GetUndefDbl_vx())
                EnterNodeValue_bn(node, old_value);
            else if (old_state >= 0)
                EnterFinding_bn(node, old_state);
            else if (!old_weights.empty())
                EnterNodeLikelihood_bn(node, old_weights.data());
        },
        LONG_JOB);
}

void BindFindings(NodeClass& cls)
{
    cls.def("_replace_finding", ReplaceFinding, "state"_a = py::none(), "value"_a = py::none(),
            "likelihood"_a = py::none());
    DefEnterState(
        cls, "EnterFinding", EnterFinding_bn,
        "Enters that the node is in a state (a name or a number).\n\nErrors: TaloraError 3300 to 3319 if "
        "it contradicts what is entered already.");
    DefEnterState(cls, "EnterFindingNot", EnterFindingNot_bn, "Enters that the node is not in a state.");
    DefEnterNumbers(
        cls, "EnterLikelihood", EnterNodeLikelihood_bn,
        "Enters how probable the observation is in each state: shape (states,); only ratios matter.");
    DefEnterNumbers(cls, "EnterCalibration", EnterNodeCalibration_bn,
                    "Enters what the beliefs of the node are to become: shape (states,), sum 1.");
    cls.def(
        "EnterValue",
        [](const Node& self, double value) {
            Run(
                self, [&](node_bn* node) { EnterNodeValue_bn(node, FromPython(value)); }, LONG_JOB);
        },
        "value"_a,
        "Enters a real value: of a discretised node the state whose interval holds it, of a discrete one the "
        "state\nwith exactly that level.");
    cls.def(
        "EnterGaussianFinding",
        [](const Node& self, double mean, double std_dev) {
            EnterTwo(self, EnterGaussianFinding_bn, mean, std_dev);
        },
        "mean"_a, "std_dev"_a,
        "Enters a measurement of a discretised node with a normally distributed error.");
    cls.def(
        "EnterIntervalFinding",
        [](const Node& self, double low, double high) { EnterTwo(self, EnterIntervalFinding_bn, low, high); },
        "low"_a, "high"_a, "Enters that the value of a discretised node lies between two values.");
    cls.def(
        "RetractFindings", [](const Node& self) { Run(self, RetractNodeFindings_bn, LONG_JOB); },
        "Takes the findings of the node back.");
    cls.def_property_readonly(
        "Finding", [](const Node& self) { return Run(self, GetNodeFinding_bn); },
        "The number of the state entered; UNDEF_STATE if none, or if the finding is a likelihood.");
    DefFlag(cls, "HasFinding", HasNodeFinding_bn, "Whether the node has a finding of any kind.");
    cls.def_property_readonly(
        "ValueEntered",
        [](const Node& self) {
            return Run(self, [](node_bn* node) { return ToPython(GetNodeValueEntered_bn(node)); });
        },
        "The real value entered, nan if none.");
}

// Copies a vector of one number per state.
template <class Get>
py::object StateVector(const Node& self, Get get, Length length)
{
    const auto numbers = Run(
        self,
        [&](node_bn* node) -> std::optional<std::vector<float>> {
            const prob_bn* first = get(node);
            if (first == nullptr) return std::nullopt;
            return std::vector<float>(first, first + GetNodeNumberStates_bn(node));
        },
        length);
    return numbers ? py::object(ToArray(*numbers)) : py::none();
}

const prob_bn* CompiledBeliefs(node_bn* node)
{
    return IsCompiledNow(GetNodeNet_bn(node)) ? GetNodeBeliefs_bn(node) : nullptr;
}

void BindBeliefs(NodeClass& cls)
{
    cls.def_property_readonly(
        "Likelihood", [](const Node& self) { return StateVector(self, GetNodeLikelihood_bn, SHORT_JOB); },
        "The likelihood that the findings amount to, all 1 without a finding: shape (states,), float32, a "
        "copy.\nNone for a node without states.");
    cls.def_property_readonly(
        "Beliefs", [](const Node& self) { return StateVector(self, CompiledBeliefs, LONG_JOB); },
        "The beliefs, after compiling and updating if need be: shape (states,), float32, sum 1; a copy.\n\n"
        "Errors: TaloraError 2364 for a node that is not a nature, decision or disconnected node.");
    cls.def_property_readonly(
        "ExpectedValue",
        [](const Node& self) {
            return Run(
                self,
                [](node_bn* node) {
                    double deviation = GetUndefDbl_vx(), mean = deviation;
                    if (IsCompiledNow(GetNodeNet_bn(node))) mean = GetNodeExpectedValue_bn(node, &deviation);
                    return std::make_pair(ToPython(mean), ToPython(deviation));
                },
                LONG_JOB);
        },
        "Mean and standard deviation of the node's number under its beliefs; nan without levels.");
    DefFlag(cls, "IsBeliefUpdated", IsBeliefUpdated_bn,
            "Whether the beliefs are up to date; does not update.");
    cls.def_property_readonly(
        "MostProbableState", [](const Node& self) { return Run(self, GetNodeMostProbableState_bn); },
        "The node's state in the configuration that BNet.ReportMostProbable found last, or UNDEF_STATE.");
    cls.def_property_readonly(
        "HomeClique", [](const Node& self) { return Run(self, GetNodeHomeClique_bn); },
        "The clique of the junction tree that holds the node's table, -1 if none.");
}

}  // namespace

NodeClass DeclareNodes(py::module_& module)
{
    return NodeClass(module, "BNode",
                     "A node of a net. It keeps its net alive; when the net or the node is deleted, using it "
                     "raises\nDeletedError. Two BNode are equal if they are the same node.");
}

void BindNodes(NodeClass& cls)
{
    BindLife(cls);
    BindProperties(cls);
    BindStates(cls);
    BindLevels(cls);
    BindLinks(cls);
    BindFindings(cls);
    BindBeliefs(cls);
    BindNodeTables(cls);
}

}  // namespace talora_py
