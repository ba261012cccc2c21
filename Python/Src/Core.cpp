// Ownership, the frame of each call, and conversions between values of Python and of the engine.
#include "Core.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cmath>

namespace talora_py {

// ---- Error records ----

namespace {

Report CopyReport(const report_vx* record, int depth)
{
    Report report;
    report.number = ErrorNumber_vx(record);
    report.severity = ErrorSeverity_vx(record);
    report.text = ErrorMessage_vx(record);
    report.function = ErrorFunction_vx(record);
    report.file = ErrorFile_vx(record, &report.line);
    report.disposition = ErrorDisposition_vx(record);
    report.fix_status = ErrorFixStatus_vx(record);
    for (int condition :
         {MEMORY_CONDITION, ABORTED_CONDITION, FRONT_END_CONDITION, FILE_CONDITION, FINDING_CONDITION})
        if (ErrorCategory_vx(condition, record)) report.conditions |= condition;
    constexpr int kDeepest = 8;
    for (int i = 0; depth < kDeepest; ++i) {
        const report_vx* sub = GetNthSubError_vx(record, i);
        if (sub == nullptr) break;
        report.sub_reports.push_back(CopyReport(sub, depth + 1));
    }
    return report;
}

py::dict ToDict(const Report& report)
{
    using namespace py::literals;
    py::list subs;
    for (const Report& sub : report.sub_reports) subs.append(ToDict(sub));
    return py::dict("number"_a = report.number, "severity"_a = report.severity, "text"_a = Text(report.text),
                    "function"_a = Text(report.function), "file"_a = Text(report.file),
                    "line"_a = report.line, "conditions"_a = report.conditions,
                    "disposition"_a = report.disposition, "fix_status"_a = report.fix_status,
                    "sub_errors"_a = subs);
}

}  // namespace

std::vector<Report> ReportScope::Take()
{
    std::vector<Report> reports;
    for (;;) {
        report_vx* newest = GetError_vx(env_, NULL_SEVERITY, 0, nullptr);
        if (newest == nullptr || newest == before_) break;
        reports.push_back(CopyReport(newest, 0));
        ClearError_vx(newest);
        if (GetError_vx(env_, NULL_SEVERITY, 0, nullptr) == newest) break;  // one that stays
    }
    std::reverse(reports.begin(), reports.end());
    return reports;
}

void Deliver(const std::vector<Report>& reports)
{
    if (reports.empty()) return;
    py::list records;
    for (const Report& report : reports) records.append(ToDict(report));
    FromPackage("talora._errors", "deliver")(records);
}

// ---- Exceptions of handlers, interrupts ----

namespace {

thread_local std::unique_ptr<py::error_already_set> handler_exception;

std::atomic<environ_vx*> interruptible_env{nullptr};
std::atomic<uint64_t> interrupt_count{0};
struct sigaction pythons_action;

void OnInterrupt(int number)
{
    if (environ_vx* env = interruptible_env.load()) {
        SetHaltFlag_vx(env, 1);
        interrupt_count.fetch_add(1);
    }
    pythons_action.sa_handler(number);
}

pthread_t main_thread;

}  // namespace

void RememberMainThread()
{
    const py::object ident = py::module_::import("threading").attr("main_thread")().attr("ident");
    main_thread = pthread_t(ident.cast<unsigned long>());
}

bool IsMainThread()
{
    return pthread_equal(pthread_self(), main_thread);
}

uint64_t InterruptCount()
{
    return interrupt_count.load();
}

void KeepHandlerException()
{
    if (PyErr_Occurred() == nullptr) return;
    if (handler_exception)
        PyErr_Clear();  // the first one counts
    else
        handler_exception = std::make_unique<py::error_already_set>();
}

void RethrowHandlerException()
{
    if (!handler_exception) return;
    handler_exception->restore();
    handler_exception.reset();
    throw py::error_already_set();
}

void CheckInterrupt(uint64_t count_before)
{
    if (IsMainThread()) {
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    } else if (InterruptCount() != count_before) {
        PyErr_SetNone(PyExc_KeyboardInterrupt);
        throw py::error_already_set();
    }
}

InterruptScope::InterruptScope(environ_vx* env, bool enabled)
    : env_(env),
      enabled_(enabled && IsMainThread() && interruptible_env.load() == nullptr),
      count_before_(InterruptCount())
{
    if (!enabled_) return;
    struct sigaction present = {};
    sigaction(SIGINT, nullptr, &present);
    const bool is_pythons = !(present.sa_flags & SA_SIGINFO) && present.sa_handler != SIG_DFL &&
                            present.sa_handler != SIG_IGN && present.sa_handler != OnInterrupt;
    if (!is_pythons || GetHaltFlag_vx(env)) {  // a halt flag that was set on purpose stays
        enabled_ = false;
        return;
    }
    pythons_action = present;
    interruptible_env.store(env);
    struct sigaction ours = present;
    ours.sa_handler = OnInterrupt;
    sigaction(SIGINT, &ours, nullptr);
}

InterruptScope::~InterruptScope()
{
    if (!enabled_) return;
    sigaction(SIGINT, &pythons_action, nullptr);
    interruptible_env.store(nullptr);
    if (InterruptCount() != count_before_) SetHaltFlag_vx(env_, 0);  // one that a program has set stays
}

// ---- Being in use ----

namespace {

// The environments that calls of this thread are in, the innermost last: entering one again needs no lock.
thread_local std::vector<const App*> entered;

bool IsIn(const App& app)
{
    return std::find(entered.begin(), entered.end(), &app) != entered.end();
}

}  // namespace

AppUse::AppUse(App& app) : app_(app), first_(!IsIn(app))
{
    if (first_) app_.in_use.lock_shared();
    entered.push_back(&app);
    if (app_.env != nullptr) return;
    entered.pop_back();
    if (first_) app_.in_use.unlock_shared();
    throw ClosedApp();
}

AppUse::~AppUse()
{
    entered.pop_back();
    if (first_) app_.in_use.unlock_shared();
}

NetUse::NetUse(Net& net) : net_(net), lock_(net.lock)
{
    if (net_.handle == nullptr) throw DeletedNet();
    ++net_.depth;
}

NetUse::~NetUse()
{
    --net_.depth;
}

// ---- Records ----

App::App(const OptionalText& name, const OptionalText& location)
{
    py::gil_scoped_release released;
    char words[MESG_LEN_vx] = "";
    environ_vx* made = NewTaloraEnviron_vx(OrNull(name), OrNull(location));
    if (made == nullptr) {
        std::string reason = "no more environments can be opened";
        if (const report_vx* record = GetError_vx(nullptr, ERROR_SEVERITY, 0, nullptr))
            reason = ErrorMessage_vx(record);
        throw std::runtime_error(reason);
    }
    if (InitTalora2_bn(made, words) < 0) {
        CloseTalora_bn(made, nullptr);
        throw std::runtime_error(words);
    }
    SetMessageFlavor_vx(made, "automation");
    SetRepeatMode_vx(made, 3);  // Python's filters say which warnings are repeated
    env = made;
}

void App::Close()
{
    if (IsIn(*this)) throw std::runtime_error("an Application cannot be closed from within a call to it");
    std::unique_lock alone(in_use);
    if (env == nullptr) return;
    CloseTalora_bn(env, nullptr);
    env = nullptr;
}

App::~App()
{
    if (PyGILState_Check()) {
        py::gil_scoped_release released;
        Close();
    } else {
        Close();
        const py::gil_scoped_acquire acquired;
        progress = question = message = password = user_data = py::object();
    }
}

Generator::~Generator()
{
    FreeHandle(*app, [&] { DeleteRandomGen_vx(handle); });
}

Stream::~Stream()
{
    FreeHandle(*app, [&] { DeleteStream_vx(handle); });
}

Net::~Net()
{
    if (handle != nullptr)
        FreeHandle(*app, [&] {
            std::lock_guard lock_nets(app->nets_lock);
            app->nets.erase(handle);
            DeleteNet_bn(handle);
        });
    if (user_data.empty()) return;
    const py::gil_scoped_acquire acquired;
    user_data.clear();
}

void Net::Delete()
{
    std::map<uintptr_t, py::object> dropped;
    {
        py::gil_scoped_release released;
        AppUse use(*app);
        std::lock_guard locked(lock);
        if (depth > 0) throw std::runtime_error("a net cannot be deleted from within a call to it");
        if (handle == nullptr) return;
        std::lock_guard lock_nets(app->nets_lock);
        app->nets.erase(handle);
        DeleteNet_bn(handle);
        handle = nullptr;
    }
    generator.reset();
    std::swap(dropped, user_data);
}

NetPtr AdoptNet(const AppPtr& app, net_bn* handle)
{
    auto net = std::make_shared<Net>();
    net->app = app;
    net->handle = handle;
    std::lock_guard lock_nets(app->nets_lock);
    app->nets[handle] = net;
    return net;
}

Node MarkNode(const NetPtr& net, node_bn* handle)
{
    static std::atomic<uintptr_t> last_mark{0};
    uintptr_t mark = reinterpret_cast<uintptr_t>(GetNodeUserData_bn(handle));
    if (mark == 0) {
        mark = ++last_mark;
        SetNodeUserData_bn(handle, reinterpret_cast<void*>(mark));
    }
    return {net, handle, mark};
}

std::vector<Node> MarkNodes(const NetPtr& net, const nodelist_bn* list)
{
    std::vector<Node> nodes;
    if (list == nullptr) return nodes;
    const int length = LengthNodeList_bn(list);
    nodes.reserve(size_t(std::max(length, 0)));
    for (int i = 0; i < length; ++i)
        if (node_bn* node = NthNode_bn(list, i)) nodes.push_back(MarkNode(net, node));
    return nodes;
}

// ---- Arguments ----

int ResolveState(const node_bn* node, const StateArg& state)
{
    if (!state.by_name) return state.number;
    const int number = GetStateNamed_bn(state.name.c_str(), node);
    if (number != UNDEF_STATE) return number;
    if (state.name.bytes == "*") return EVERY_STATE;
    if (state.name.bytes.size() > 1 && state.name.bytes[0] == '#') {
        int index = -1;
        const char* end = state.name.bytes.data() + state.name.bytes.size();
        const auto [stop, error] = std::from_chars(state.name.bytes.data() + 1, end, index);
        if (error == std::errc() && stop == end) return index;
    }
    std::string names;
    constexpr int kShown = 20;
    const int count = GetNodeNumberStates_bn(node);
    for (int i = 0; i < std::min(count, kShown); ++i) {
        const char* name = GetNodeStateName_bn(node, i);
        names += (i ? ", " : "") + (*name ? std::string(name) : "#" + std::to_string(i));
    }
    if (count > kShown) names += ", ...";
    throw std::invalid_argument("node '" + std::string(GetNodeName_bn(node)) + "' has no state '" +
                                state.name.bytes + "' (it has: " + names + ")");
}

ParentStates ParentStatesArg(const py::object& states)
{
    ParentStates result;
    if (states.is_none()) return result;
    if (py::isinstance<py::dict>(states)) {
        result.is_dict = true;
        for (const auto& [name, state] : states.cast<py::dict>())
            result.by_name.emplace_back(name.cast<Text>(), state.cast<StateArg>());
    } else if (py::isinstance<py::str>(states) || !py::isinstance<py::iterable>(states)) {
        result.in_order.push_back(states.cast<StateArg>());
    } else {
        for (const py::handle state : states) result.in_order.push_back(state.cast<StateArg>());
    }
    return result;
}

std::vector<int> ResolveParentStates(const node_bn* node, const ParentStates& states)
{
    const nodelist_bn* parents = GetNodeParents_bn(node);
    const int count = std::max(LengthNodeList_bn(parents), 0);
    if (!states.is_dict && int(states.in_order.size()) != count)
        throw std::invalid_argument("node '" + std::string(GetNodeName_bn(node)) + "' has " +
                                    std::to_string(count) + " parents, but " +
                                    std::to_string(states.in_order.size()) + " parent states were given");
    std::vector<int> result(size_t(count) + 1, EVERY_STATE);
    for (int i = 0; !states.is_dict && i < count; ++i)
        result[size_t(i)] = ResolveState(NthNode_bn(parents, i), states.in_order[size_t(i)]);
    for (const auto& [name, state] : states.by_name) {
        int at = 0;
        while (at < count && GetNodeName_bn(NthNode_bn(parents, at)) != name.bytes &&
               GetNodeInputName_bn(node, at) != name.bytes)
            ++at;
        if (at == count)
            throw std::invalid_argument("node '" + std::string(GetNodeName_bn(node)) + "' has no parent '" +
                                        name.bytes + "'");
        result[size_t(at)] = ResolveState(NthNode_bn(parents, at), state);
    }
    return result;
}

Node NodeArg(const py::object& node, const NetPtr& net)
{
    if (py::isinstance<Node>(node)) return node.cast<Node>();
    if (!py::isinstance<py::str>(node) || !net)
        throw py::type_error("a BNode" + std::string(net ? " or the name of one" : "") + " is wanted, not " +
                             py::repr(py::type::of(node)).cast<std::string>());
    const Text name = node.cast<Text>();
    const Node found = Run(net, [&] {
        node_bn* handle = name.bytes.empty() ? nullptr : GetNodeNamed_bn(name.c_str(), net->handle);
        return handle ? MarkNode(net, handle) : Node();
    });
    if (found.handle == nullptr) throw py::key_error(name.bytes);
    return found;
}

std::vector<Node> NodesArg(const py::object& nodes, const NetPtr& net)
{
    if (nodes.is_none() && net)
        return Run(net, [&] { return MarkNodes(net, GetNetNodes2_bn(net->handle, nullptr)); });
    std::vector<Node> result;
    if (py::isinstance<Node>(nodes) || py::isinstance<py::str>(nodes)) {
        result.push_back(NodeArg(nodes, net));
        return result;
    }
    for (const py::handle node : nodes)
        if (!node.is_none()) result.push_back(NodeArg(py::reinterpret_borrow<py::object>(node), net));
    return result;
}

NetPtr NetOf(const std::vector<Node>& nodes, const char* what)
{
    if (nodes.empty()) throw std::invalid_argument(std::string(what) + ": no nodes are given");
    for (const Node& node : nodes)
        if (node.net != nodes[0].net)
            throw std::invalid_argument(std::string(what) + ": the nodes are of different nets");
    return nodes[0].net;
}

TempList::TempList(const NetPtr& net, const std::vector<Node>& nodes) : list_(nullptr)
{
    for (const Node& node : nodes) {
        CheckNode(node);
        if (node.net != net) throw std::invalid_argument("a node of another net is among the nodes");
    }
    list_ = NewNodeList2_bn(int(nodes.size()), net->handle);
    for (size_t i = 0; i < nodes.size(); ++i) SetNthNode_bn(list_, int(i), nodes[i].handle);
}

// ---- Numbers ----

double ToPython(double value)
{
    if (value == GetUndefDbl_vx()) return std::numeric_limits<double>::quiet_NaN();
    if (value == GetInfinityDbl_vx()) return std::numeric_limits<double>::infinity();
    if (value == -GetInfinityDbl_vx()) return -std::numeric_limits<double>::infinity();
    return value;
}

double FromPython(double value)
{
    if (std::isnan(value)) return GetUndefDbl_vx();
    if (std::isinf(value)) return value > 0 ? GetInfinityDbl_vx() : -GetInfinityDbl_vx();
    return value;
}

float ProbToPython(float prob)
{
    if (IsMissingProb_bn(prob)) return std::numeric_limits<float>::quiet_NaN();
    return IsImpossibleProb_bn(prob) ? 0.0f : prob;
}

namespace {

template <class T>
py::array_t<T> OwningArray(std::vector<T> values, std::vector<py::ssize_t> shape)
{
    if (shape.empty()) shape.push_back(py::ssize_t(values.size()));
    auto* kept = new std::vector<T>(std::move(values));
    const py::capsule owner(kept, [](void* data) { delete static_cast<std::vector<T>*>(data); });
    return py::array_t<T>(shape, kept->data(), owner);
}

}  // namespace

py::array_t<float> ToArray(std::vector<float> values, std::vector<py::ssize_t> shape)
{
    return OwningArray(std::move(values), std::move(shape));
}
py::array_t<double> ToArray(std::vector<double> values, std::vector<py::ssize_t> shape)
{
    return OwningArray(std::move(values), std::move(shape));
}

// ---- The package ----

py::object FromPackage(const char* module, const char* name)
{
    return py::module_::import(module).attr(name);
}

py::object ToNodeList(const std::vector<Node>& nodes)
{
    py::list list;
    for (const Node& node : nodes) list.append(py::cast(node));
    return FromPackage("talora._nodes", "BNodes")(list);
}

}  // namespace talora_py
