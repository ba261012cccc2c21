// Application: an environment, its settings, its handlers and what is made in it.
#include <algorithm>

#include "Core.h"

using namespace py::literals;

namespace talora_py {

namespace {

// ---- Handlers: the engine calls them without the interpreter lock ----

bool_vx OnProgress(environ_vx*, const char* title, double fraction, void* data)
{
    App& app = *static_cast<App*>(data);
    const py::gil_scoped_acquire acquired;
    bool go_on = true;
    try {
        if (IsMainThread() && PyErr_CheckSignals() != 0) throw py::error_already_set();
        const py::object handler = app.progress;
        if (handler && !handler.is_none()) {
            const py::object answer = handler(Text(title), fraction);
            go_on = answer.is_none() || answer.cast<bool>();
        }
    } catch (py::error_already_set& error) {
        error.restore();
        KeepHandlerException();
        go_on = false;
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_TypeError, error.what());
        KeepHandlerException();
        go_on = false;
    }
    return go_on;
}

std::vector<std::string> SplitAnswers(const std::string& answers)
{
    std::vector<std::string> words(1);
    for (const char c : answers)
        if (c == ',')
            words.emplace_back();
        else
            words.back() += c;
    return words;
}

int OnQuestion(environ_vx*, const char* question, const char* answers, const char* deflt, void* data)
{
    App& app = *static_cast<App*>(data);
    const py::gil_scoped_acquire acquired;
    try {
        const std::vector<std::string> words = SplitAnswers(answers ? answers : "");
        py::list choices;
        for (const std::string& word : words) choices.append(py::cast(Text(word)));
        const py::object answer = app.question(Text(question), choices, Text(deflt));
        if (answer.is_none()) return -1;
        if (!py::isinstance<py::str>(answer)) return answer.cast<int>();
        const auto found = std::find(words.begin(), words.end(), answer.cast<Text>().bytes);
        if (found != words.end()) return int(found - words.begin());
        throw std::invalid_argument("the question handler gave an answer that is not among those offered");
    } catch (py::error_already_set& error) {
        error.restore();
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_ValueError, error.what());
    }
    KeepHandlerException();
    return -1;
}

int OnMessage(environ_vx*, const char* text, const report_vx* report, void* data)
{
    constexpr int kAbort = -4, kPrinted = 1;
    App& app = *static_cast<App*>(data);
    const py::gil_scoped_acquire acquired;
    try {
        const int severity = report ? ErrorSeverity_vx(report) : int(NULL_SEVERITY);
        const int number = report ? ErrorNumber_vx(report) : 0;
        const py::object shown = app.message(Text(text), number, severity);
        return shown.is_none() ? kPrinted : shown.cast<int>();
    } catch (py::error_already_set& error) {
        error.restore();
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_TypeError, error.what());
    }
    KeepHandlerException();
    return kAbort;
}

bool_vx OnPassword(environ_vx*, const char* question, char* password, int size, void* data)
{
    App& app = *static_cast<App*>(data);
    const py::gil_scoped_acquire acquired;
    try {
        const py::object answer = app.password(Text(question));
        if (answer.is_none()) return 0;
        const Text given = answer.cast<Text>();
        if (int(given.bytes.size()) >= size) throw std::invalid_argument("the password is too long");
        std::copy(given.bytes.begin(), given.bytes.end(), password);
        password[given.bytes.size()] = '\0';
        return 1;
    } catch (py::error_already_set& error) {
        error.restore();
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_ValueError, error.what());
    }
    KeepHandlerException();
    return 0;
}

py::object OrNone(const py::object& handler)
{
    return handler ? handler : py::none();
}

// ---- Making things ----

AppPtr MakeApp(const OptionalText& name, const OptionalText& location)
{
    auto app = std::make_shared<App>(name, location);
    SetProgressHandler_vx(app->env, OnProgress, app.get());
    app->progress = FromPackage("talora._progress", "Meter")();
    return app;
}

NetPtr NewNet(const AppPtr& app, const Text& name)
{
    return AdoptNet(app, Run(app, [&] { return NewNet_bn(name.c_str(), app->env); }));
}

NetPtr ReadNet(const AppPtr& app, const py::object& source, int control, const OptionalText& password)
{
    const StreamPtr stream = StreamArg(app, source);
    net_bn* net = Run(
        app,
        [&] {
            std::lock_guard lock(stream->lock);
            if (password) SetStreamPassword_vx(stream->handle, password->c_str());
            return ReadNet_bn(stream->handle, control);
        },
        LONG_JOB);
    return AdoptNet(app, net);
}

// The nets that are there, in the order in which they were made.
std::vector<NetPtr> LiveNets(const AppPtr& app)
{
    return Run(app, [&] {
        std::vector<NetPtr> nets;
        std::lock_guard lock_nets(app->nets_lock);
        for (int i = 0; net_bn* handle = GetNthNet_bn(i, app->env); ++i) {
            const auto found = app->nets.find(handle);
            if (found == app->nets.end()) continue;
            if (NetPtr net = found->second.lock()) nets.push_back(std::move(net));
        }
        return nets;
    });
}

NetPtr GetNet(const AppPtr& app, const py::object& which)
{
    const std::vector<NetPtr> nets = LiveNets(app);
    if (py::isinstance<py::str>(which)) {
        const Text name = which.cast<Text>();
        for (const NetPtr& net : nets)
            if (Run(net, [&] { return GetNetName_bn(net->handle) == name.bytes; })) return net;
        return nullptr;
    }
    const int index = which.cast<int>();
    return index >= 0 && index < int(nets.size()) ? nets[size_t(index)] : nullptr;
}

double CalcFormula(const AppPtr& app, const Text& formula, const std::map<std::string, double>& values)
{
    std::vector<const char*> names;
    std::vector<double> numbers;
    for (const auto& [name, value] : values) {
        names.push_back(name.c_str());
        numbers.push_back(FromPython(value));
    }
    return Run(app, [&] {
        return ToPython(CalcFormula_bn(app->env, formula.c_str(), names.data(), numbers.data(),
                                       int(names.size()), nullptr));
    });
}

// ---- Settings ----

std::string CharName(int character)
{
    return character > 0 ? std::string(1, char(character)) : std::string();
}

int CharArg(const Text& text)
{
    if (text.bytes.size() > 1) throw std::invalid_argument("one character is wanted, or none");
    return text.bytes.empty() ? 0 : text.bytes[0];
}

void BindMaking(AppClass& cls)
{
    cls.def("NewBNet", NewNet, "name"_a = "Untitled",
            "Makes a net without nodes.\n\nErrors: TaloraError 5118 for a name that is not legal.");
    cls.def("ReadBNet", ReadNet, "source"_a, "control"_a = int(NO_WINDOW), "password"_a = py::none(),
            "Reads a net from a file.\n\n"
            "source: a path, bytes with the contents of a file, or a Streamer; text (.dne) and binary\n"
            "(.tala) files are recognised by their contents.\n"
            "password: of an encrypted file.\n"
            "What had to be skipped is given as warnings (TaloraWarning) with file and line.");
    cls.def("GetBNet", GetNet, "which"_a,
            "The net of that index (from 0, in the order in which they were made) or of that name; None if\n"
            "there is none.");
    cls.def_property_readonly(
        "BNets", LiveNets,
        "The nets that are there, in the order in which they were made. A net is there as long as something "
        "in\nPython refers to it, or to one of its nodes.");
    cls.def(
        "NewStream", [](const AppPtr& app, const py::object& path) { return StreamArg(app, path); }, "path"_a,
        "A Streamer for a file on disk; nothing is opened yet.");
    cls.def(
        "NewMemoryStream",
        [](const AppPtr& app, const OptionalText& name) { return NewMemoryStream(app, name); },
        "name"_a = py::none(),
        "A Streamer whose contents live in memory. Its name's extension gives the type when it is written.");
    cls.def("CalcFormula", CalcFormula, "formula"_a, "values"_a = std::map<std::string, double>(),
            "The value of a formula in the language of equations; nan where it is undefined.\n\n"
            "values: numbers for the names in it, for example {\"x\": 2.5}.");
    cls.def_property_readonly(
        "EquationReference",
        [](const AppPtr& app) { return Run(app, [&] { return Text(GetEquationReference_bn(app->env)); }); },
        "The operators, functions, distributions, constants and units of equations, as Markdown.");
}

void BindLimits(AppClass& cls)
{
    cls.def_property(
        "ArgumentChecking",
        [](const AppPtr& app) {
            return Run(app, [&] { return ArgumentChecking_vx(CHECK_QUERY, app->env); });
        },
        [](const AppPtr& app, int level) { Run(app, [&] { ArgumentChecking_vx(level, app->env); }); },
        "How thoroughly arguments are checked, 1 to 4, for the whole library.");
    cls.def_property(
        "MemoryUsageLimit",
        [](const AppPtr& app) { return Run(app, [&] { return LimitMemoryUsage_vx(-1, app->env); }); },
        [](const AppPtr& app, double bytes) { Run(app, [&] { LimitMemoryUsage_vx(bytes, app->env); }); },
        "Limit of the memory for tables in bytes, for the whole library.");
    cls.def_property_readonly(
        "MemoryUsage",
        [](const AppPtr& app) { return Run(app, [&] { return GetMemoryUsage_vx(app->env); }); },
        "Bytes that tables take now, in the whole library.");
    cls.def_property(
        "Concurrency",
        [](const AppPtr& app) {
            return Run(app, [&] { return ControlConcurrency_vx(app->env, "mode", nullptr); });
        },
        [](const AppPtr& app, int mode) {
            const std::string value = std::to_string(mode);
            Run(app, [&] { ControlConcurrency_vx(app->env, "mode", value.c_str()); });
        },
        "How calls of several threads are kept apart in the engine: 0 not, 1 a lock per net (the default), 2 "
        "one\nlock for everything.");
    cls.def_property(
        "MaxKeyIterations",
        [](const AppPtr& app) { return Run(app, [&] { return GetMaxKeyIterations_vx(app->env); }); },
        [](const AppPtr& app, int count) { Run(app, [&] { SetMaxKeyIterations_vx(app->env, count); }); },
        "How much work an encrypted file may ask for before its password is known to be right.");
    cls.def_property(
        "UserControl",
        [](const AppPtr& app) { return Run(app, [&] { return UserAllowed_vx(app->env, -1); }); },
        [](const AppPtr& app, int level) { Run(app, [&] { UserAllowed_vx(app->env, level); }); },
        "What the user of a front end may do, 1 to 4, kept for the front end.");
}

// A text setting with its getter and setter.
using GetText = const char* (*)(environ_vx*);
using SetText = void (*)(environ_vx*, const char*);
void DefText(AppClass& cls, const char* name, GetText get, SetText set, const char* doc)
{
    cls.def_property(
        name, [get](const AppPtr& app) { return Run(app, [&] { return Text(get(app->env)); }); },
        [set](const AppPtr& app, const Text& text) { Run(app, [&] { set(app->env, text.c_str()); }); }, doc);
}

using GetFlag = bool_vx (*)(environ_vx*);
using SetFlag = void (*)(environ_vx*, bool_vx);
void DefFlag(AppClass& cls, const char* name, GetFlag get, SetFlag set, const char* doc)
{
    cls.def_property(
        name, [get](const AppPtr& app) { return Run(app, [&] { return get(app->env) != 0; }); },
        [set](const AppPtr& app, bool on) { Run(app, [&] { set(app->env, on); }); }, doc);
}

using SetChar = int (*)(int, environ_vx*);
void DefChar(AppClass& cls, const char* name, SetChar set, const char* doc)
{
    cls.def_property(
        name,
        [set](const AppPtr& app) {
            return Run(app, [&] { return Text(CharName(set(QUERY_CASE_CHAR, app->env))); });
        },
        [set](const AppPtr& app, const Text& text) {
            const int character = CharArg(text);
            Run(app, [&] { set(character, app->env); });
        },
        doc);
}

void BindSettings(AppClass& cls)
{
    DefText(cls, "Language", GetLanguage_vx, SetLanguage_vx, "The language of messages.");
    DefText(cls, "MessageFlavor", GetMessageFlavor_vx, SetMessageFlavor_vx,
            "Whose words messages use: 'automation' (here the default), 'programming', 'interface', "
            "'managed'.");
    DefText(cls, "FileCipher", GetFileCipher_vx, SetFileCipher_vx,
            "What files are encrypted with: 'AES' or 'Blowfish'.");
    DefFlag(cls, "HaltFlag", GetHaltFlag_vx, SetHaltFlag_vx,
            "Asks long operations of all threads to stop; stays set until it is set to False.");
    DefFlag(cls, "FindingChecking", GetFindingChecking_vx, SetFindingChecking_vx,
            "Whether findings are checked against the model when they are entered.");
    DefFlag(cls, "InheritInFirstPass", GetInheritInFirstPass_vx, SetInheritInFirstPass_vx,
            "Whether the statements that a node of a file inherits from define nodes come before its own.");
    DefFlag(cls, "ReproducibleRandom", GetReproducibleRandom_vx, SetReproducibleRandom_vx,
            "Whether seeding from the clock counts from 0 instead.");
    DefChar(cls, "CaseFileDelimiter", SetCaseFileDelimChar_vx,
            "The character between entries of case files that are written: ',', ' ' or '\\t'.");
    DefChar(cls, "CaseFileMissingDataSymbol", SetMissingDataChar_vx,
            "The character for 'not known' in case files: '*', '?', '-', ' ' or ''.");
    cls.def_property(
        "AppWindowPosition",
        [](const AppPtr& app) {
            int at[4] = {};
            const Text status = Run(
                app, [&] { return Text(GetAppWindowPosition_vx(app->env, &at[0], &at[1], &at[2], &at[3])); });
            return py::make_tuple(at[0], at[1], at[2], at[3], status);
        },
        [](const AppPtr& app, const std::tuple<int, int, int, int, Text>& position) {
            const auto& [left, top, width, height, status] = position;
            Run(app, [&, l = left, t = top, w = width, h = height, s = status.c_str()] {
                SetAppWindowPosition_vx(app->env, l, t, w, h, s);
            });
        },
        "Where a front end's window should stand: (left, top, width, height, status).");
}

void BindReports(AppClass& cls)
{
    cls.def(
        "PrintToMessagesWindow",
        [](const AppPtr& app, const Text& text) {
            Run(app, [&] { PrintToMessagesWindow_vx(app->env, text.c_str()); });
        },
        "text"_a, "Gives a text to the MessageHandler.");
    cls.def(
        "ReportError",
        [](const AppPtr& app, int number, int severity, const Text& message) {
            Run(app, [&] { NewError_vx(app->env, number, severity, message.c_str()); });
        },
        "number"_a, "severity"_a, "message"_a,
        "Reports something as the engine would: an error (severity 5 and above) is raised as TaloraError, a\n"
        "warning becomes a TaloraWarning.");
    cls.def(
        "ExecuteScript",
        [](const AppPtr& app, const Text& script) {
            return Run(app, [&] { return ExecuteScript_vx(app->env, script.c_str()); });
        },
        "script"_a, "Runs a script of editor commands; the engine refuses every script but an empty one.");
    cls.def(
        "TestFaultRecovery",
        [](const AppPtr& app, const Text& test) {
            Run(app, [&] { TestFaultRecovery_vx(app->env, test.c_str()); });
        },
        "test"_a,
        "Lets 'out of memory', 'exception', 'foreign exception' or 'assertion' happen inside the call.");
    cls.def_property(
        "ReportLimit",
        [](const AppPtr& app) { return Run(app, [&] { return GetReportLimit_vx(app->env); }); },
        [](const AppPtr& app, int limit) { Run(app, [&] { SetReportLimit_vx(app->env, limit); }); },
        "How many reports are shown per thread before they are only kept.");
    cls.def_property(
        "RepeatMode", [](const AppPtr& app) { return Run(app, [&] { return GetRepeatMode_vx(app->env); }); },
        [](const AppPtr& app, int mode) { Run(app, [&] { SetRepeatMode_vx(app->env, mode); }); },
        "What happens to reports that repeat: 3 (here the default) all are given, 2 one 'More ...' line.");
}

void BindHandlers(AppClass& cls)
{
    cls.def_property(
        "ProgressHandler", [](const AppPtr& app) { return OrNone(app->progress); },
        [](const AppPtr& app, const py::object& handler) { app->progress = handler; },
        "Called as handler(title, fraction) while a long operation runs, at most ten times a second; the\n"
        "fraction is from 0 to 1, or negative when the operation has ended. False stops the operation, and so\n"
        "does an exception, which is raised when the call returns. Shows a tqdm bar unless it is set; None:\n"
        "nothing is shown.");
    cls.def_property(
        "QuestionHandler", [](const AppPtr& app) { return OrNone(app->question); },
        [](const AppPtr& app, const py::object& handler) {
            app->question = handler;
            const bool set = !handler.is_none();
            Run(app, [&] { SetQuestionHandler_vx(app->env, set ? OnQuestion : nullptr, app.get()); });
        },
        "Called as handler(question, answers, default) when something has to be decided; gives one of the\n"
        "answers, its index, or None for the default. Without a handler the default is taken.");
    cls.def_property(
        "MessageHandler", [](const AppPtr& app) { return OrNone(app->message); },
        [](const AppPtr& app, const py::object& handler) {
            app->message = handler;
            const bool set = !handler.is_none();
            Run(app, [&] { SetMessageHandler_vx(app->env, set ? OnMessage : nullptr, app.get()); });
        },
        "Called as handler(text, number, severity) for every report at once, number and severity 0 for plain\n"
        "text; -4 aborts the operation.");
    cls.def_property(
        "PasswordHandler", [](const AppPtr& app) { return OrNone(app->password); },
        [](const AppPtr& app, const py::object& handler) {
            app->password = handler;
            const bool set = !handler.is_none();
            Run(app, [&] { SetPasswordHandler_vx(app->env, set ? OnPassword : nullptr, app.get()); });
        },
        "Called as handler(question) for the password of an encrypted file; gives it, or None.");
    cls.def_property(
        "UserData", [](const AppPtr& app) { return OrNone(app->user_data); },
        [](const AppPtr& app, const py::object& data) { app->user_data = data; }, "An object of your own.");
}

void BindLife(AppClass& cls)
{
    cls.def(py::init(&MakeApp), "name"_a = py::none(), "location"_a = py::none());
    cls.def(
        "Quit",
        [](const AppPtr& app) {
            py::gil_scoped_release released;
            app->Close();
        },
        "Closes the environment and deletes what is in it. Waits for calls of other threads.");
    cls.def("__enter__", [](const AppPtr& app) { return app; });
    cls.def("__exit__", [](const AppPtr& app, const py::args&) {
        py::gil_scoped_release released;
        app->Close();
    });
    cls.def("__repr__", [](const AppPtr& app) -> std::string {
        if (app->env == nullptr) return "<Application, closed>";
        const size_t count = LiveNets(app).size();
        return "<Application with " + std::to_string(count) + (count == 1 ? " net>" : " nets>");
    });
    cls.def_property_readonly(
        "Version",
        [](const AppPtr& app) { return Run(app, [&] { return GetTaloraVersion_bn(app->env, nullptr); }); },
        "The version as a number: 601 for 6.01.");
    cls.def_property_readonly(
        "VersionText",
        [](const AppPtr& app) {
            return Run(app, [&] {
                const char* text = "";
                GetTaloraVersion_bn(app->env, &text);
                return Text(text);
            });
        },
        "The version as text.");
    cls.def_property_readonly(
        "UndefinedReal", [](const AppPtr&) { return GetUndefDbl_vx(); },
        "The number that the engine and its files use for 'undefined'; in Python it is nan.");
    cls.def_property_readonly(
        "Infinity", [](const AppPtr&) { return GetInfinityDbl_vx(); },
        "The number that the engine and its files use for infinity; in Python it is inf.");
}

}  // namespace

AppClass DeclareApplication(py::module_& module)
{
    return AppClass(
        module, "Application",
        "An environment: its settings, and what is made in it. At most 64 may be open at a time.\n\n"
        "with Application() as app: ... closes it at the end; otherwise it goes with its last net.\n"
        "location: 'remote' for an environment whose objects live elsewhere.");
}

void BindApplication(AppClass& cls)
{
    BindLife(cls);
    BindMaking(cls);
    BindLimits(cls);
    BindSettings(cls);
    BindReports(cls);
    BindHandlers(cls);
}

}  // namespace talora_py
