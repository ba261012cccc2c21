// Sequences of calls from bytes: up to 200 calls of any interface functions on a net that is at hand, about
// one argument in ten a handle that is NULL, deleted or foreign, indices and texts of the hostile kind among
// the others.  After each call every net is valid; a call that failed has left everything as it was; in the
// end undoing takes every net back and redoing forth again, and beliefs equal enumeration.
//
// The functions and their arguments come from the list of interface functions; how an argument is made
// follows from its type.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <limits>
#include <map>
#include <string>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "BN/Model/BnProbs.h"
#include "BN/Model/Bnet.h"
#include "Basic/Environ.h"
#include "Basic/Memory.h"
#include "Fuzz/Harness.h"

namespace {

using fuzz::Check;

constexpr int kMostCalls = 200;
constexpr size_t kMostNodes = 300;  // copying doubles them
constexpr size_t kMostNets = 20;
constexpr int kArrayLength = 4096;  // of arrays handed over
constexpr int kMostLength = 600;    // said of them
constexpr double kMostCells = 4096;

// ---- Functions left out, with the reason ----

const char* const kLeftOut[] = {
    "NewTaloraEnviron_vx",       // the life of environments: every input has its own
    "InitTalora2_bn",            //
    "CloseTalora_bn",            //
    "LimitMemoryUsage_vx",       // the conditions under which inputs are run
    "ArgumentChecking_vx",       //
    "SetProgressHandler_vx",     //
    "SetReproducibleRandom_vx",  //
    "SetMaxKeyIterations_vx",    //
    "ControlConcurrency_vx",     //
    "TestFaultRecovery_vx",      // raises internal errors when told to
    "SetStreamPassword_vx",      // deriving a key takes long
    "SetStreamEncryption_vx",    //
    "SetNetPassword_bn",         //
    "NewFileStream_vx",          // files and databases are outside
    "NewDatabaseManager_cs",     //
};

// ---- What arguments are made of ----

const char kNetText[] =
    "// ~->[DNET-1]->~\nbnet Read {\n"
    "node a { kind = NATURE; discrete = TRUE; states = (no, yes); parents = (); probs = (0.25, 0.75); };\n"
    "node b { kind = NATURE; discrete = TRUE; states = (s0, s1, s2); parents = (a);\n"
    "  probs = ((0.5, 0.25, 0.25), (0, 0.5, 0.5)); };\n};\n";

const char kCaseText[] = "IDnum\ta\tb\tc\tNumCases\n1\tno\ts0\t*\t1\n2\tyes\ts2\ts1\t2.5\n3\t*\ts1\ts0\t1\n";

const std::string_view kTexts[] = {
    "a",
    "b",
    "c",
    "d",
    "e",
    "f",
    "g",
    "no",
    "yes",
    "s0",
    "s1",
    "s2",
    "x, y",
    "p,q,r",
    "m.dne",
    "m.tala",
    "m.cas",
    "set1",
    "set2",
    "1",
    "0.5",
    "1,2",
    "0",
    "no_tables",
    "no_links",
    "no_nodes",
    "no_visual",
    "no_window",
    "dont_return_list",
    "SkipMisfits",
    "multi_line",
    "jsonl",
    "whole",
    "simple",
    "AES",
    "Blowfish",
    "name",
    "title",
    "decision",
    "nature,constant",
    "english",
    "sensitivity",
    "f1",
    "precision",
    "auc",
    "c (a, b) = a",
    "P (b | a) = a == yes ? 0.3 : 0.1",
    "P (d | c) = NormalDist (d, c, 2)",
    "c = if (b == s0, 1, select (a, 3, 4))",
    "P (a |) = BinomialDist (a, 5, 0.5)",
    "1 + 2 * x ^ 3",
    "P (c | a, b) = PoissonDist (c, 3)",
    "NOMINAL",
    "RATIO",
    "DETERMIN",
    "CHANCE",
    "",
    "1x",
    "a b",
    "a,a",
    "\xFF\xFE",
    "\x01\x1b[31m",
    "%s%n%d",
    "\"quoted\\",
    "/# unended",
    "\xC3(\xFF",
    "_",
    "NULL",
};

const int kInts[] = {-1, -2, -3, -4,  -5,  -7,  INT_MIN, INT_MAX, 8,
                     16, 31, 64, 100, 256, 512, 1000,    65536,   1 << 24};

const double kReals[] = {0,
                         1,
                         0.5,
                         -1,
                         100,
                         1e300,
                         -1e300,
                         1e-320,
                         9007199254740991.0,
                         -0.0,
                         1e10,
                         2.5,
                         std::numeric_limits<double>::infinity(),
                         std::numeric_limits<double>::quiet_NaN()};

alignas(64) char foreign_bytes[1024] = "bytes of somebody else";

// ---- One input ----

// What a failed call must leave as it was.
struct Snapshot {
    std::string text;
    std::vector<talora::NodeFinding> findings;
    bool operator==(const Snapshot&) const = default;
};

class Session;

struct Function {
    const char* name;
    const char* arguments;
    void (*call)(Session& session);
};

fuzz::ComputingClock::time_point halt_at;
bool was_halted = false;

bool_vx GoOn(environ_vx*, const char*, double, void*)
{
    if (fuzz::ComputingClock::now() < halt_at) return 1;
    was_halted = true;
    return 0;
}

// The kind of a handle's type, as in the list of functions; 0 for other types.
template <class T>
constexpr char kLetter = 0;
template <>
constexpr char kLetter<environ_vx> = 'e';
template <>
constexpr char kLetter<net_bn> = 'N';
template <>
constexpr char kLetter<node_bn> = 'n';
template <>
constexpr char kLetter<nodelist_bn> = 'l';
template <>
constexpr char kLetter<stream_vx> = 's';
template <>
constexpr char kLetter<report_vx> = 'r';
template <>
constexpr char kLetter<randgen_vx> = 'g';
template <>
constexpr char kLetter<caseset_cs> = 'c';
template <>
constexpr char kLetter<dbmgr_cs> = 'b';
template <>
constexpr char kLetter<learner_bn> = 'L';
template <>
constexpr char kLetter<tester_bn> = 'T';
template <>
constexpr char kLetter<sensv_bn> = 'S';

class Session {
public:
    Session(const uint8_t* data, size_t size)
        : bytes_(data, size), is_traced_(getenv("CALLS_TRACE") != nullptr)
    {
        halt_at = fuzz::ComputingClock::now() + std::chrono::milliseconds(fuzz::kHaltMilliseconds);
        was_halted = false;
        env_ = NewTaloraEnviron_vx("calls", nullptr);
        InitTalora2_bn(env_, nullptr);
        LimitMemoryUsage_vx(double(fuzz::kMemoryLimit), env_);
        ArgumentChecking_vx(CHECK_OBJECTS, env_);
        SetReproducibleRandom_vx(env_, 1);
        SetProgressHandler_vx(env_, GoOn, nullptr);
        SetReportLimit_vx(env_, 1000);
        SetRepeatMode_vx(env_, 0);
        env_->max_key_iterations = 100;
        Start();
    }
    ~Session()
    {
        Check(CloseTalora_bn(env_, nullptr) >= 0, "the environment can be closed");
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    }

    void Run()
    {
        for (int k = 0; k < kMostCalls && !bytes_.AtEnd() && !was_halted; ++k) OneCall();
        if (was_halted) return;
        CheckBeliefs();
        CheckUndo();
    }

    template <class R, class... A>
    void Call(R (*function)(A...))
    {
        place_ = 0;
        std::tuple<A...> arguments{NextArgument<A>()...};  // in order
        if (is_traced_) fprintf(stderr, ")\n");
        if constexpr (std::is_pointer_v<R>) {
            Keep(std::apply(function, arguments));
        } else {
            std::apply(function, arguments);
        }
    }

private:
    void Start();
    void OneCall();
    void AfterCall(const Function& function, bool failed);
    void CheckBeliefs();
    void CheckUndo();
    void CompareBeliefs(net_bn* net);
    bool TooLarge() const;

    std::map<net_bn*, Snapshot> TakeAll();
    Snapshot Take(net_bn* net);
    void KeepHistory(net_bn* net);

    template <class A>
    A NextArgument()
    {
        return Argument<A>(place_++);
    }
    template <class A>
    A Argument(size_t place);
    template <class T>
    T* Handle();
    template <class T>
    T* Array();
    template <class I>
    I Integer(size_t place);
    double Real();
    const char* Text();
    std::vector<void*> Live(char letter) const;

    template <class T>
    void Keep(T* result)
    {
        if constexpr (kLetter<std::remove_const_t<T>> != 0) {
            if (result)
                seen_[kLetter<std::remove_const_t<T>>].push_back(
                    const_cast<void*>(static_cast<const void*>(result)));
        } else {
            (void)result;
        }
    }
    template <class V>
    void Trace(const char* format, V value)
    {
        if (is_traced_) fprintf(stderr, format, value);
    }

    fuzz::Bytes bytes_;
    bool is_traced_;
    environ_vx* env_ = nullptr;
    const Function* current_ = nullptr;
    size_t place_ = 0;         // of the argument being made
    node_bn* node_ = nullptr;  // the first node among the arguments of the call being made
    bool node_is_live_ = false;
    std::map<char, std::vector<void*>> seen_;  // handles got, some of them deleted since
    std::map<net_bn*, Snapshot> state_;        // after the last call
    std::map<net_bn*, Snapshot> base_;         // when the history of a net began
    std::deque<std::vector<char>> storage_;    // what arguments of one call point to
};

const Function kFunctions[] = {
#define TALORA_FUNCTION(name, automation, arguments) {#name, arguments, [](Session& s) { s.Call(&name); }},
#include "Talora/ApiFunctions.inc"
#undef TALORA_FUNCTION
};

bool IsLeftOut(const char* name)
{
    for (const char* other : kLeftOut)
        if (strcmp(name, other) == 0) return true;
    return false;
}

// Functions that are documented to take effect although they complain.
bool DoesSomethingNevertheless(const char* name)
{
    return strcmp(name, "SetNetAutoUpdate_bn") == 0;
}

const std::vector<const Function*>& Functions()
{
    static const std::vector<const Function*> functions = [] {
        std::vector<const Function*> kept;
        for (const Function& function : kFunctions)
            if (!IsLeftOut(function.name)) kept.push_back(&function);
        return kept;
    }();
    return functions;
}

// ---- Arguments ----

std::vector<void*> Session::Live(char letter) const
{
    std::vector<void*> live;
    const auto add = [&](auto& from) { live.insert(live.end(), from.begin(), from.end()); };
    const auto add_dependents = [&](talora::HandleKind kind) {
        for (const net_bn* net : env_->nets)
            for (const talora::NetDependent& dependent : net->dependents)
                if (talora::IsLive(static_cast<const talora::HandleHeader*>(dependent.object), kind))
                    live.push_back(dependent.object);
    };
    switch (letter) {
        case 'e':
            return {env_};
        case 'N':
            add(env_->nets);
            break;
        case 'n':
            for (const net_bn* net : env_->nets) add(net->nodes.nodes);
            break;
        case 'l':
            add(env_->lists);
            for (net_bn* net : env_->nets) {
                live.push_back(&net->nodes);
                if (!net->nodes.nodes.empty()) live.push_back(&net->nodes.nodes.back()->parents);
            }
            break;
        case 's':
            add(env_->streams);
            break;
        case 'r':
            live.push_back(GetError_vx(env_, NULL_SEVERITY, 0, nullptr));
            break;
        case 'g':
            add(env_->random_gens);
            break;
        case 'c':
            add(env_->casesets);
            break;
        case 'L':
            add(env_->learners);
            break;
        case 'T':
            add_dependents(talora::TESTER_TYPE);
            break;
        case 'S':
            add_dependents(talora::SENSV_TYPE);
            break;
    }
    return live;
}

template <class T>
T* Session::Handle()
{
    const uint8_t choice = bytes_.Byte();
    if (choice >= 230) {
        const std::vector<void*>& seen = seen_[kLetter<T>];
        if (choice < 240 || (choice < 248 && seen.empty())) return nullptr;
        if (choice < 248) return static_cast<T*>(seen[choice % seen.size()]);
        // The bytes of an environment are told from others by its place in a list, those of the rest by
        // their first bytes.
        return reinterpret_cast<T*>(foreign_bytes);
    }
    const std::vector<void*> live = Live(kLetter<T>);
    return live.empty() ? nullptr : static_cast<T*>(live[choice % live.size()]);
}

double Session::Real()
{
    const uint8_t choice = bytes_.Byte();
    if (choice < std::size(kReals)) return kReals[choice];
    if (choice == 255) return talora::UndefDbl();
    return (choice - 64) / 16.0;
}

// An integer beside a pointer says how much is there, and does not lie.
template <class I>
I Session::Integer(size_t place)
{
    const uint8_t choice = bytes_.Byte();
    int64_t value = choice % 8;
    if (choice >= 176) value = kInts[choice % std::size(kInts)];
    if (choice >= 248 && sizeof(I) == 8) value = choice % 2 ? INT64_MAX : INT64_MIN;
    const char* const letters = current_->arguments;
    const bool is_length = (place > 0 && letters[place - 1] == 'p') || letters[place + 1] == 'p';
    if (is_length) value = std::min<int64_t>(value, kMostLength);
    if (strcmp(current_->name, "SetNodeTable_bn") == 0 && choice < 128)
        value = node_is_live_ ? int64_t(std::min(SizeNodeTable_bn(node_), double(kArrayLength))) : 0;
    return static_cast<I>(value);
}

const char* Session::Text()
{
    const uint8_t choice = bytes_.Byte();
    std::string text;
    if (choice >= 250) return nullptr;
    if (choice < std::size(kTexts)) {
        text = kTexts[choice];
    } else if (choice < 180) {
        text = kTexts[choice % 16];
    } else if (choice < 190) {
        text.assign(size_t(20 + (choice - 180) * 250), 'n');
    } else if (choice < 195) {
        text = std::string(
            "\xFF\xFE"
            "a\0b\0\xE4\0",
            8);  // wide
    } else {
        const uint32_t length = bytes_.Number(24);
        for (uint32_t k = 0; k < length; ++k) text += char(bytes_.Byte());
    }
    storage_.emplace_back(text.begin(), text.end());
    storage_.back().insert(storage_.back().end(), 2, '\0');
    return storage_.back().data();
}

// Entries for as many states as the node has; ordinary ones, or whatever comes.
void FillProbs(fuzz::Bytes& bytes, float* entries, int num_states)
{
    const uint8_t kind = bytes.Byte();
    static const float odd[] = {
        0, 1, -1, 1e-40f, 1e-38f, 3e38f, NAN, INFINITY, talora::MissingProb(), talora::ImpossibleProb()};
    uint32_t seed = bytes.Byte();
    for (int at = 0; at < kArrayLength; at += num_states) {
        const int n = std::min(num_states, kArrayLength - at);
        float sum = 0;
        for (int s = 0; s < n; ++s) {
            seed = seed * 1664525 + 1013904223;
            entries[at + s] = kind < 64 ? 1 : kind < 128 ? float(seed >> 28) : float(seed >> 30);
            if (kind >= 240) entries[at + s] = odd[(seed >> 24) % std::size(odd)];
            sum += entries[at + s];
        }
        if (kind >= 224) continue;  // as they are
        if (sum == 0) entries[at] = sum = 1;
        for (int s = 0; s < n; ++s) entries[at + s] /= sum;
    }
}

// An array that the function reads, or room that it writes to.
template <class T>
T* Session::Array()
{
    using Entry = std::remove_const_t<T>;
    const uint8_t choice = bytes_.Byte();
    if (choice >= 244) return nullptr;
    if (node_is_live_ && talora::NumStates(*node_) > kArrayLength / 2) return nullptr;
    const size_t room = size_t(kArrayLength) * sizeof(int64_t);
    if constexpr (std::is_same_v<Entry, void>) {
        storage_.emplace_back(room);
        const std::string_view text = choice < 100 ? kNetText : choice < 150 ? kCaseText : bytes_.Rest();
        std::copy_n(text.begin(), std::min(text.size(), room), storage_.back().begin());
        return storage_.back().data();
    } else if constexpr (std::is_same_v<Entry, const char*>) {
        storage_.emplace_back(room);
        Entry* const texts = reinterpret_cast<Entry*>(storage_.back().data());
        for (int k = 0; k < kArrayLength; ++k) texts[k] = k < 4 ? Text() : texts[k % 4];
        return texts;
    } else {
        storage_.emplace_back(room);
        Entry* const entries = reinterpret_cast<Entry*>(storage_.back().data());
        if constexpr (std::is_same_v<T, const float>) {
            FillProbs(bytes_, entries, node_is_live_ ? std::max(1, talora::NumStates(*node_)) : 2);
        } else if constexpr (std::is_same_v<T, const int>) {  // states, one per parent
            const uint32_t pattern = bytes_.Number(65536);
            for (int k = 0; k < kArrayLength; ++k) entries[k] = int(pattern >> (2 * (k % 8)) & 3);
            if (choice >= 220) entries[choice % 4] = kInts[choice % std::size(kInts)];
        } else if constexpr (std::is_same_v<T, const double>) {  // levels, edges, values
            const double first = Real(), step = Real();
            for (int k = 0; k < kArrayLength; ++k) entries[k] = first + step * k;
            if (choice >= 220) entries[choice % 4] = Real();
        } else if constexpr (std::is_same_v<T, double>) {
            entries[0] = Real();  // a position, which is read too
        }
        return entries;
    }
}

template <class A>
A Session::Argument(size_t place)
{
    if constexpr (std::is_pointer_v<A>) {
        using T = std::remove_pointer_t<A>;
        if constexpr (kLetter<std::remove_const_t<T>> != 0) {
            auto* const handle = Handle<std::remove_const_t<T>>();
            if constexpr (std::is_same_v<std::remove_const_t<T>, node_bn>) {
                if (place == strcspn(current_->arguments, "n")) {
                    node_ = handle;
                    node_is_live_ = talora::IsLive(handle, talora::NODE_TYPE);
                }
            }
            Trace(" %p", static_cast<const void*>(handle));
            return handle;
        } else if constexpr (std::is_function_v<T>) {
            return nullptr;
        } else if constexpr (std::is_same_v<A, const char*>) {
            const char* const text = Text();
            Trace(" \"%s\"", text ? text : "(null)");
            return text;
        } else {
            A const array = Array<T>();
            Trace(" [%p]", static_cast<const void*>(array));
            return array;
        }
    } else if constexpr (std::is_floating_point_v<A>) {
        const A value = static_cast<A>(std::is_same_v<A, float> ? std::clamp(Real(), -1e30, 1e30) : Real());
        Trace(" %g", double(value));
        return value;
    } else {
        const A value = Integer<A>(place);
        Trace(" %lld", static_cast<long long>(value));
        return value;
    }
}

// ---- States of nets ----

Snapshot Session::Take(net_bn* net)
{
    Snapshot snapshot;
    stream_vx* const stream = NewMemoryStream_vx("x.dne", env_, nullptr);
    WriteNet_bn(net, stream);
    int64_t length = 0;
    const char* const contents = GetStreamContents_vx(stream, &length);
    snapshot.text.assign(contents ? contents : "", size_t(length));
    DeleteStream_vx(stream);
    if (net->has_elim_order && net->elim_order_found) {  // a result, which comes and goes
        const size_t order = snapshot.text.rfind("\tElimOrder = ");
        if (order != std::string::npos)
            snapshot.text.erase(order, snapshot.text.find(";\n", order) + 2 - order);
    }
    for (const node_bn* node : net->nodes.nodes) snapshot.findings.push_back(node->finding);
    return snapshot;
}

std::map<net_bn*, Snapshot> Session::TakeAll()
{
    std::map<net_bn*, Snapshot> all;
    for (net_bn* net : std::vector<net_bn*>(env_->nets)) all[net] = Take(net);
    return all;
}

// From here on everything done to the net is kept for undoing.
void Session::KeepHistory(net_bn* net)
{
    SetNetNumUndos_bn(net, 0, 0, nullptr);
    SetNetNumUndos_bn(net, 1000000, 0, nullptr);
    base_[net] = Take(net);
}

void Session::Start()
{
    stream_vx* const stream = NewMemoryStream_vx("start.dne", env_, nullptr);
    SetStreamContents_vx(stream, kNetText, sizeof kNetText - 1);
    net_bn* const net = ReadNet_bn(stream, NO_WINDOW);
    Check(net != nullptr, "the net to begin with can be read");
    node_bn* const c = NewNode_bn("c", 2, net);
    SetNodeStateNames_bn(c, "s0, s1");
    for (const char* parent : {"a", "b"}) AddLink_bn(GetNodeNamed_bn(parent, net), c);
    AddLink_bn(c, NewNode_bn("d", 3, net));
    const float even[] = {0.5, 0.5};
    const int every[] = {EVERY_STATE, EVERY_STATE};
    SetNodeProbs_bn(c, every, even);
    AddNodeToList_bn(c, NewNodeList2_bn(1, net), 0);
    DeleteStream_vx(stream);
    stream_vx* const cases = NewMemoryStream_vx("m.cas", env_, nullptr);
    SetStreamContents_vx(cases, kCaseText, sizeof kCaseText - 1);
    Check(GetError_vx(nullptr, ERROR_SEVERITY, 0, nullptr) == nullptr, "the start is in order");
    KeepHistory(net);
    state_ = TakeAll();
}

// ---- Calls ----

bool Session::TooLarge() const
{
    size_t nodes = 0;
    for (const net_bn* net : env_->nets) nodes += net->nodes.nodes.size();
    return nodes > kMostNodes || env_->nets.size() > kMostNets;
}

void Session::OneCall()
{
    const std::vector<const Function*>& functions = Functions();
    const Function& function = *functions[bytes_.Number(uint32_t(functions.size()))];
    const std::string_view name = function.name;
    if (TooLarge() && (name.starts_with("Copy") || name.starts_with("New") || name.starts_with("Read")))
        return;
    current_ = &function;
    node_ = nullptr;
    node_is_live_ = false;
    storage_.clear();
    if (is_traced_) fprintf(stderr, "%s(", function.name);
    function.call(*this);
    const report_vx* const error = GetError_vx(nullptr, ERROR_SEVERITY, 0, nullptr);
    // Records that the function was asked to add are no failures.
    const bool failed = error != nullptr && !ErrorCategory_vx(FRONT_END_CONDITION, error);
    if (failed && is_traced_) fprintf(stderr, "  -> %d %s\n", ErrorNumber_vx(error), ErrorMessage_vx(error));
    AfterCall(function, failed);
}

void Session::AfterCall(const Function& function, bool failed)
{
    if (GetError_vx(nullptr, INTERNAL_SEVERITY, 0, nullptr) && strcmp(function.name, "NewError_vx") != 0)
        Check(false, "no internal error");
    if (failed) ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    SetHaltFlag_vx(env_, 0);
    std::map<net_bn*, Snapshot> now = TakeAll();  // at the highest checking level
    if (was_halted) return;
    const report_vx* const error = GetError_vx(nullptr, ERROR_SEVERITY, 0, nullptr);
    if (error && !ErrorCategory_vx(FRONT_END_CONDITION, error) &&
        !ErrorCategory_vx(MEMORY_CONDITION, error)) {
        fprintf(stderr, "after %s\n", function.name);
        Check(false, "every net is valid and can be written");
    }
    if (failed && now != state_ && !DoesSomethingNevertheless(function.name)) {
        for (const auto& [net, snapshot] : state_)
            if (!now.count(net) || now[net] != snapshot)
                fprintf(stderr, "--- before\n%s\n--- after\n%s\n", snapshot.text.c_str(),
                        now.count(net) ? now[net].text.c_str() : "deleted");
        fprintf(stderr, "by %s\n", function.name);
        Check(false, "a failed call changes nothing");
    }
    std::erase_if(base_, [&](const auto& row) { return !now.count(row.first); });
    const bool sets_undo =
        !strcmp(function.name, "SetNetNumUndos_bn") || !strcmp(function.name, "SetNetUndoing_bn");
    for (const auto& [net, snapshot] : now)
        if (sets_undo || !base_.count(net)) KeepHistory(net);
    if (!strcmp(function.name, "ReadNetFindings2_bn") || !strcmp(function.name, "NewError_vx"))
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    state_ = std::move(now);
}

// ---- Undo ----

void Session::CheckUndo()
{
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    for (net_bn* net : std::vector<net_bn*>(env_->nets)) {
        halt_at = fuzz::ComputingClock::time_point::max();  // this has to come to its end
        for (int k = 0; k < kMostCalls && GetNetUndoGroup_bn(net) != NO_UNDO_GROUP; ++k)
            CloseNetUndoGroup_bn(net);
        while (RedoNetOper_vx(net, -1)) {
        }
        const Snapshot last = Take(net);
        int steps = 0;
        while (UndoNetLastOper_vx(net, -1)) ++steps;
        const Snapshot first = Take(net);
        if (first != base_[net]) {
            fprintf(stderr, "--- at first\n%s\n--- undone\n%s\n", base_[net].text.c_str(),
                    first.text.c_str());
            Check(false, "undoing takes everything back");
        }
        while (RedoNetOper_vx(net, -1)) --steps;
        Check(steps == 0, "as many steps are redone as were undone");
        const Snapshot again = Take(net);
        if (again != last)
            fprintf(stderr, "--- at last\n%s\n--- redone\n%s\n", last.text.c_str(), again.text.c_str());
        Check(again == last, "redoing does everything again");
    }
    Check(GetError_vx(nullptr, ERROR_SEVERITY, 0, nullptr) == nullptr || was_halted, "steps can be undone");
}

// ---- Beliefs ----

bool IsPlain(const net_bn* net)
{
    for (const node_bn* node : net->nodes.nodes) {
        if (node->kind != NATURE_NODE || !talora::HasStates(*node)) return false;
        for (const talora::Link& link : node->links)
            if (talora::IsDelayed(link)) return false;
    }
    return !net->nodes.nodes.empty() && !net->most_probable;
}

double EntryProb(const float* row, int n, int state)
{
    if (row == nullptr) return 1.0 / n;
    double known = 0;
    int missing = 0;
    for (int s = 0; s < n; ++s) {
        if (row[s] == talora::ImpossibleProb()) return 0;
        row[s] == talora::MissingProb() ? void(++missing) : void(known += double(row[s]));
    }
    if (row[state] == talora::MissingProb()) return std::max(0.0, 1 - known) / missing;
    return std::abs(row[state]) < std::numeric_limits<float>::min() ? 0 : double(row[state]);
}

// Goes through all configurations in double.
double Enumerate(const net_bn* net, std::vector<std::vector<double>>& beliefs)
{
    const std::vector<node_bn*>& nodes = net->nodes.nodes;
    std::vector<talora::TableVector<float>> scratch(nodes.size());
    std::vector<const float*> tables, weights;
    for (node_bn* node : nodes) {
        tables.push_back(talora::EffectiveProbs(*node, scratch[size_t(node->index)]));
        weights.push_back(GetNodeLikelihood_bn(node));
        beliefs.emplace_back(size_t(talora::NumStates(*node)));
    }
    std::vector<int> state(nodes.size());
    double total = 0;
    for (;;) {
        double product = 1;
        for (size_t v = 0; v < nodes.size() && product > 0; ++v) {
            int64_t row = 0;
            for (const talora::Link& link : nodes[v]->links)
                row = row * talora::NumStates(*link.parent) + state[size_t(link.parent->index)];
            const int n = talora::NumStates(*nodes[v]);
            product *= EntryProb(tables[v] ? tables[v] + row * n : nullptr, n, state[v]);
            product *= double(weights[v][state[v]]);
        }
        total += product;
        for (size_t v = 0; v < nodes.size(); ++v) beliefs[v][size_t(state[v])] += product;
        size_t v = nodes.size();
        while (v > 0 && ++state[v - 1] == talora::NumStates(*nodes[v - 1])) state[--v] = 0;
        if (v == 0) break;
    }
    return total;
}

void Session::CompareBeliefs(net_bn* net)
{
    std::vector<std::vector<double>> beliefs;
    const double total = Enumerate(net, beliefs);
    const double log_prob = LogFindingsProbability_bn(net);
    const bool failed = GetError_vx(nullptr, ERROR_SEVERITY, 0, nullptr) != nullptr;
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    if (was_halted || (total > 0 && total < 1e-20) || total > 1e20) return;
    if (total == 0) {
        Check(failed || std::isinf(log_prob), "a contradiction is told");
        return;
    }
    if (std::abs(log_prob - std::log(total)) > 1e-5 * std::max(1.0, std::abs(log_prob))) {
        fprintf(stderr, "log P %.9g, should be %.9g\n", log_prob, std::log(total));
        Check(false, "the probability of findings equals enumeration");
    }
    for (node_bn* node : net->nodes.nodes) {
        const prob_bn* const found = GetNodeBeliefs_bn(node);
        Check(found != nullptr, "there are beliefs");
        for (int s = 0; s < talora::NumStates(*node); ++s)
            Check(std::abs(double(found[s]) - beliefs[size_t(node->index)][size_t(s)] / total) < 1e-5,
                  "beliefs equal enumeration");
    }
}

void Session::CheckBeliefs()
{
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    for (net_bn* net : std::vector<net_bn*>(env_->nets)) {
        double cells = 1;
        for (const node_bn* node : net->nodes.nodes) cells *= std::max(1, talora::NumStates(*node));
        if (cells > kMostCells || !IsPlain(net)) continue;
        CompileNet_bn(net);
        const bool is_compiled = IsNetCompiled_bn(net);
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
        if (is_compiled) CompareBeliefs(net);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const int64_t tables_before = talora::MemoryInUse();
    fuzz::ResetPeak();
    {
        Session session(data, size);
        session.Run();
    }
    Check(fuzz::HeapPeak() <= fuzz::kMemoryLimit + fuzz::kMemoryAllowance, "memory stays within the limit");
    Check(talora::MemoryInUse() == tables_before, "no table is left behind");
    return 0;
}
