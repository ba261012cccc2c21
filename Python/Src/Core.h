// What the Python classes are made of: records that own the engine's objects, the frame that every call
// runs in, and conversions between Python's values and the engine's.
//
// Ownership.  A record (App, Net, ...) owns one engine object and is shared by the Python objects that
// need it; the last one frees it, children keep their parents.  Nodes come and go with their net, so a Node
// remembers the number it was marked with: a handle whose slot was used again has another number, and the
// engine itself recognises handles of deleted nodes.
//
// Locks.  The interpreter lock is released in every call of the engine, since any of them may wait for
// another thread's job, whose handlers need the interpreter.  What the engine returns is copied under the
// lock of the net before another thread can change it.  Order: interpreter (released), App, Net, engine.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Talora.h"

namespace py = pybind11;

namespace talora_py {

// Text of the engine: UTF-8, bytes that are not are carried through Python's strings unchanged.
struct Text {
    std::string bytes;
    Text() = default;
    Text(std::string text) : bytes(std::move(text)) {}
    Text(const char* text) : bytes(text ? text : "") {}
    const char* c_str() const { return bytes.c_str(); }
};
using OptionalText = std::optional<Text>;
inline const char* OrNull(const OptionalText& text)
{
    return text ? text->c_str() : nullptr;
}

// ---- Error records ----

struct Report {
    int number = 0;
    int severity = 0;
    std::string text, function, file;
    int64_t line = -1;
    int conditions = 0;
    int disposition = 0, fix_status = 0;
    std::vector<Report> sub_reports;
};

// Takes the records that the calling thread got since it was made out of the engine.
class ReportScope {
public:
    explicit ReportScope(environ_vx* env) : env_(env), before_(GetError_vx(env, NULL_SEVERITY, 0, nullptr)) {}
    std::vector<Report> Take();

private:
    environ_vx* env_;
    const report_vx* before_;
};

// Raises the worst error as an exception, gives warnings to Python's warnings and the rest to its log.
void Deliver(const std::vector<Report>& reports);

// ---- Records ----

struct Net;

// How a handler of the engine finds the Python function that was set for it.
struct App : std::enable_shared_from_this<App> {
    environ_vx* env = nullptr;
    std::shared_mutex in_use;  // held shared by every call, and alone while the environment closes
    std::mutex nets_lock;
    std::map<net_bn*, std::weak_ptr<Net>> nets;
    py::object progress, question, message, password, user_data;

    App(const OptionalText& name, const OptionalText& location);
    ~App();
    void Close();
};
using AppPtr = std::shared_ptr<App>;

struct Generator {
    AppPtr app;
    randgen_vx* handle = nullptr;
    std::recursive_mutex lock;
    ~Generator();
};
using GeneratorPtr = std::shared_ptr<Generator>;

struct Net : std::enable_shared_from_this<Net> {
    AppPtr app;
    net_bn* handle = nullptr;
    std::recursive_mutex lock;
    int depth = 0;  // calls that are in it, which a handler may add to
    GeneratorPtr generator;
    std::map<uintptr_t, py::object> user_data;  // of the net (0) and its nodes, by mark

    ~Net();
    void Delete();
};
using NetPtr = std::shared_ptr<Net>;

struct Node {
    NetPtr net;
    node_bn* handle = nullptr;
    uintptr_t mark = 0;
    bool operator==(const Node& other) const { return handle == other.handle && mark == other.mark; }
};

struct Stream {
    AppPtr app;
    stream_vx* handle = nullptr;
    std::recursive_mutex lock;
    ~Stream();
};
using StreamPtr = std::shared_ptr<Stream>;

NetPtr AdoptNet(const AppPtr& app, net_bn* handle);

// Within a call, with the net locked: the Node of a handle, and the handle of a Node (checked).
Node MarkNode(const NetPtr& net, node_bn* handle);
std::vector<Node> MarkNodes(const NetPtr& net, const nodelist_bn* list);

// ---- The frame ----

struct DeletedNet : std::runtime_error {
    DeletedNet() : std::runtime_error("the net has been deleted") {}
};
struct DeletedNode : std::runtime_error {
    DeletedNode() : std::runtime_error("the node has been deleted") {}
};
struct ClosedApp : std::runtime_error {
    ClosedApp() : std::runtime_error("the Application has been closed") {}
};

// Keeps the environment from being closed by another thread.
class AppUse {
public:
    explicit AppUse(App& app);
    ~AppUse();
    AppUse(const AppUse&) = delete;
    AppUse& operator=(const AppUse&) = delete;

private:
    App& app_;
    bool first_;
};

class NetUse {
public:
    explicit NetUse(Net& net);
    ~NetUse();
    NetUse(const NetUse&) = delete;
    NetUse& operator=(const NetUse&) = delete;

private:
    Net& net_;
    std::lock_guard<std::recursive_mutex> lock_;
};

// Frees something of an environment's, without the interpreter lock; nothing where it has been closed.
template <class Body>
void FreeHandle(App& app, Body&& body)
{
    auto free_it = [&] {
        try {
            AppUse use(app);
            ReportScope scope(app.env);
            body();
            scope.Take();
        } catch (const ClosedApp&) {
            // It went with the environment.
        }
    };
    if (PyGILState_Check()) {
        const py::gil_scoped_release released;
        free_it();
    } else {
        free_it();
    }
}

// While it lives, Ctrl-C on the main thread sets the halt flag of the environment as well.
class InterruptScope {
public:
    InterruptScope(environ_vx* env, bool enabled);
    ~InterruptScope();
    InterruptScope(const InterruptScope&) = delete;
    InterruptScope& operator=(const InterruptScope&) = delete;

private:
    environ_vx* env_;
    bool enabled_;
    uint64_t count_before_;
};

// Exceptions that handlers raised while the engine called them; rethrown when its call is over.
void KeepHandlerException();
void RethrowHandlerException();
bool IsMainThread();
uint64_t InterruptCount();
// Raises KeyboardInterrupt where a job was interrupted.
void CheckInterrupt(uint64_t count_before);

enum Length { SHORT_JOB, LONG_JOB };

struct NothingReturned {};

// Runs a body without the interpreter lock and delivers what it reported.  The body returns plain values.
template <class Body>
auto RunIn(App& app, Length length, Body&& body)
{
    using R = std::invoke_result_t<Body>;
    using Stored = std::conditional_t<std::is_void_v<R>, NothingReturned, R>;
    std::optional<Stored> result;
    std::vector<Report> reports;
    const uint64_t interrupts = InterruptCount();
    {
        py::gil_scoped_release released;
        AppUse use(app);
        InterruptScope interruptible(app.env, length == LONG_JOB);
        ReportScope scope(app.env);
        try {
            if constexpr (std::is_void_v<R>)
                body(), result.emplace();
            else
                result.emplace(body());
        } catch (...) {
            scope.Take();
            throw;
        }
        reports = scope.Take();
    }
    RethrowHandlerException();
    if (length == LONG_JOB) CheckInterrupt(interrupts);
    Deliver(reports);
    if constexpr (!std::is_void_v<R>) return std::move(*result);
}

template <class Body>
auto Run(const AppPtr& app, Body&& body, Length length = SHORT_JOB)
{
    return RunIn(*app, length, std::forward<Body>(body));
}

template <class Body>
auto Run(const NetPtr& net, Body&& body, Length length = SHORT_JOB)
{
    return RunIn(*net->app, length, [&] {
        NetUse use(*net);
        return body();
    });
}

// Fails with the engine's own record, or as DeletedNode where the slot has been used again.
inline void CheckNode(const Node& node)
{
    if (GetNodeUserData_bn(node.handle) != reinterpret_cast<void*>(node.mark)) throw DeletedNode();
}

// Within a call: whether the net is compiled, if need be just now.  Python's beliefs need no word about it.
inline bool IsCompiledNow(net_bn* net)
{
    if (!IsNetCompiled_bn(net)) CompileNet_bn(net);
    return IsNetCompiled_bn(net);
}

template <class Body>
auto Run(const Node& node, Body&& body, Length length = SHORT_JOB)
{
    return Run(
        node.net,
        [&] {
            CheckNode(node);
            return body(node.handle);
        },
        length);
}

// ---- Arguments ----

// A state by its number or name.
struct StateArg {
    int number = UNDEF_STATE;
    bool by_name = false;
    Text name;
};
// Within a call; throws std::invalid_argument if the node has no such state.
int ResolveState(const node_bn* node, const StateArg& state);

// States of the parents: None, a sequence in their order, or a dict by their names.
struct ParentStates {
    std::vector<StateArg> in_order;
    std::vector<std::pair<Text, StateArg>> by_name;
    bool is_dict = false;
};
ParentStates ParentStatesArg(const py::object& states);
std::vector<int> ResolveParentStates(const node_bn* node, const ParentStates& states);

// Nodes, by themselves or by name in a net; None stands for all nodes of the net where there is one.
std::vector<Node> NodesArg(const py::object& nodes, const NetPtr& net);
Node NodeArg(const py::object& node, const NetPtr& net);
// The net of nodes, which must be of one; throws if there are none.
NetPtr NetOf(const std::vector<Node>& nodes, const char* what);

// A stream, or a path, or bytes (which are read from memory).
// What the last net read from the stream, or written to it, lost: a list of dictionaries.
py::list StreamLosses(const StreamPtr& stream);
StreamPtr StreamArg(const AppPtr& app, const py::object& stream);
StreamPtr NewMemoryStream(const AppPtr& app, const OptionalText& name);

// A list of nodes for the time of a call.
class TempList {
public:
    TempList(const NetPtr& net, const std::vector<Node>& nodes);
    ~TempList() { DeleteNodeList_bn(list_); }
    TempList(const TempList&) = delete;
    TempList& operator=(const TempList&) = delete;
    operator nodelist_bn*() const { return list_; }

private:
    nodelist_bn* list_;
};

// ---- Numbers: what the engine calls undefined and infinite are nan and inf in Python. ----

double ToPython(double value);
double FromPython(double value);
float ProbToPython(float prob);
// A one-dimensional array (or one of the shape given) that owns its numbers.
py::array_t<float> ToArray(std::vector<float> values, std::vector<py::ssize_t> shape = {});
py::array_t<double> ToArray(std::vector<double> values, std::vector<py::ssize_t> shape = {});
using FloatArray = py::array_t<float, py::array::c_style | py::array::forcecast>;
using DoubleArray = py::array_t<double, py::array::c_style | py::array::forcecast>;

// ---- Properties with arguments: obj.Name[key], obj.Name(key), obj.Name[key] = value ----

struct Indexed {
    py::object owner, get, set;
};

template <class Class, class Getter>
void DefIndexed(Class& cls, const char* name, Getter getter, const char* doc)
{
    const py::object get = py::cpp_function(getter, py::is_method(cls), py::name(name));
    cls.def_property_readonly(
        name,
        [get](const py::object& self) {
            return Indexed{self, get, py::none()};
        },
        doc);
}

template <class Class, class Getter, class Setter>
void DefIndexed(Class& cls, const char* name, Getter getter, Setter setter, const char* doc)
{
    const py::object get = py::cpp_function(getter, py::is_method(cls), py::name(name));
    const py::object set = py::cpp_function(setter, py::is_method(cls), py::name(name));
    cls.def_property_readonly(
        name,
        [get, set](const py::object& self) {
            return Indexed{self, get, set};
        },
        doc);
}

// A Python class or function of the package, found at its first use.
py::object FromPackage(const char* module, const char* name);
// Nodes as the package's list class.
py::object ToNodeList(const std::vector<Node>& nodes);

// ---- What each file adds to the module.  Classes that name one another are declared before their functions
// are added, so that signatures show Python's names. ----
using AppClass = py::class_<App, AppPtr>;
using NetClass = py::class_<Net, NetPtr>;
using NodeClass = py::class_<Node>;
AppClass DeclareApplication(py::module_& module);
NetClass DeclareNets(py::module_& module);
NodeClass DeclareNodes(py::module_& module);
void BindApplication(AppClass& cls);
void BindStreamer(py::module_& module);
void BindNets(NetClass& cls);
void BindNodes(NodeClass& cls);
void BindNodeTables(NodeClass& cls);
void BindNodeLists(NetClass& cls);
void BindCases(py::module_& module);
void BindLearner(py::module_& module);
void BindNetTester(py::module_& module);
void BindRandom(py::module_& module);
void BindSensitivity(py::module_& module);

}  // namespace talora_py

namespace pybind11::detail {

template <>
struct type_caster<talora_py::Text> {
    PYBIND11_TYPE_CASTER(talora_py::Text, const_name("str"));
    bool load(handle source, bool)
    {
        if (!source || !PyUnicode_Check(source.ptr())) return false;
        const object bytes =
            reinterpret_steal<object>(PyUnicode_AsEncodedString(source.ptr(), "utf-8", "surrogateescape"));
        if (!bytes) throw error_already_set();
        value.bytes.assign(PyBytes_AS_STRING(bytes.ptr()), size_t(PyBytes_GET_SIZE(bytes.ptr())));
        if (value.bytes.find('\0') != std::string::npos) throw value_error("a zero character in a text");
        return true;
    }
    static handle cast(const talora_py::Text& text, return_value_policy, handle)
    {
        return PyUnicode_DecodeUTF8(text.bytes.data(), Py_ssize_t(text.bytes.size()), "surrogateescape");
    }
};

template <>
struct type_caster<talora_py::StateArg> {
    PYBIND11_TYPE_CASTER(talora_py::StateArg, const_name("Union[int, str]"));
    bool load(handle source, bool convert)
    {
        if (!source || PyBool_Check(source.ptr())) return false;
        if (PyUnicode_Check(source.ptr())) {
            type_caster<talora_py::Text> text;
            if (!text.load(source, convert)) return false;
            value.name = static_cast<talora_py::Text&>(text);
            value.by_name = true;
            return true;
        }
        type_caster<int> number;
        if (!number.load(source, convert)) return false;
        value.number = number;
        value.by_name = false;
        return true;
    }
    static handle cast(const talora_py::StateArg& state, return_value_policy, handle)
    {
        return PyLong_FromLong(state.number);
    }
};

}  // namespace pybind11::detail
