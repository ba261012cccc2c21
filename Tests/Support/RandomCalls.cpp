// Sequences of interface calls made from bytes, and what holds after each.
#include "Support/RandomCalls.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <limits>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "BN/Model/BnProbs.h"
#include "BN/Model/Bnet.h"
#include "Basic/Environ.h"
#include "Basic/Handle.h"
#include "Support/ApiCalls.h"
#include "Support/Bytes.h"
#include "Support/RandomModel.h"
#include "Support/Texts.h"
#include "Talora.h"

namespace talora {

namespace {

constexpr int kHaltMilliseconds = 250;
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
    "TestFaultRecovery_vx",      // raises internal errors on request
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

alignas(64) char foreign_bytes[1024] = "bytes of another program";

// ---- One input ----

// What a failed call must leave as it was.
struct Snapshot {
    std::string text;
    std::vector<NodeFinding> findings;
    bool operator==(const Snapshot&) const = default;
};

int NumUndos(const net_bn* net)
{
    int count = 0;
    while (GetNetNthUndo_bn(net, count) != nullptr) ++count;
    return count;
}

class Session : public ArgumentMaker {
public:
    Session(const uint8_t* data, size_t size, const CallsOptions& options)
        : bytes_(data, size), options_(options), is_traced_(getenv("CALLS_TRACE") != nullptr)
    {
        RestartClock();
        env_ = NewTaloraEnviron_vx("calls", nullptr);
        InitTalora2_bn(env_, nullptr);
        memory_limit_ = LimitMemoryUsage_vx(double(kCallsMemoryLimit), env_);
        checking_ = ArgumentChecking_vx(CHECK_OBJECTS, env_);
        SetReproducibleRandom_vx(env_, 1);
        SetProgressHandler_vx(
            env_,
            [](environ_vx*, const char*, double, void* session) {
                return static_cast<Session*>(session)->GoOn();
            },
            this);
        SetReportLimit_vx(env_, 1000);
        repeat_mode_ = SetRepeatMode_vx(env_, 0);
        env_->max_key_iterations = 100;  // the derivation has tests of its own
        Start();
    }
    ~Session() override
    {
        // These outlive the environment.
        SetRepeatMode_vx(env_, repeat_mode_);
        ArgumentChecking_vx(checking_, env_);
        LimitMemoryUsage_vx(memory_limit_, env_);
        CloseTalora_bn(env_, nullptr);
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    }

    bool Run(const std::vector<const ApiFunction*>& functions)
    {
        for (int k = 0; k < kMostCalls && !bytes_.AtEnd() && !was_halted_; ++k)
            OneCall(*functions[bytes_.Number(uint32_t(functions.size()))]);
        if (was_halted_) return false;
        CheckBeliefs();
        CheckUndo();
        return !was_halted_;
    }

    void* Handle(char letter, size_t place) override;
    const char* Text() override;
    void* Array(ArrayOf entries) override;
    double Real() override;
    int64_t Integer(size_t place, size_t num_bytes) override;
    void Ready() override
    {
        if (is_traced_) fprintf(stderr, ")\n");
    }

private:
    void Start();
    void OneCall(const ApiFunction& function);
    void AfterCall(const ApiFunction& function, bool failed);
    void CheckBeliefs();
    void CheckUndo();
    void CheckSame(const Snapshot& now, const Snapshot& then, const char* promise);
    void CompareBeliefs(net_bn* net);
    bool TooLarge() const;
    void Check(bool holds, const char* promise) const { options_.check(holds, promise); }

    std::map<net_bn*, Snapshot> TakeAll();
    Snapshot Take(net_bn* net);
    void KeepHistory(net_bn* net);

    std::vector<void*> Live(char letter) const;
    void* AnyHandle(char letter);
    const char* AnyText();
    double AnyReal();
    void FillProbs(float* entries, int num_states);

    // Halts count time that the process has computed, so that a busy machine stops nothing early.
    void RestartClock() { halt_at_ = clock() + CLOCKS_PER_SEC / 1000 * kHaltMilliseconds; }
    bool_vx GoOn()
    {
        if (!may_halt_ || clock() < halt_at_) return 1;
        was_halted_ = true;
        return 0;
    }
    template <class V>
    V Traced(const char* format, V value) const
    {
        if (is_traced_) fprintf(stderr, format, value);
        return value;
    }

    Bytes bytes_;
    const CallsOptions options_;
    bool is_traced_;
    clock_t halt_at_ = 0;
    bool may_halt_ = true, was_halted_ = false;
    environ_vx* env_ = nullptr;
    double memory_limit_ = 0;
    checking_vx checking_ = CHECK_VALUES;
    int repeat_mode_ = 0;
    const ApiFunction* current_ = nullptr;
    node_bn* node_ = nullptr;  // the first node among the arguments of the call being made
    bool node_is_live_ = false;
    std::map<char, std::vector<void*>> seen_;           // handles got, some of them deleted since
    std::map<net_bn*, Snapshot> state_;                 // after the last call
    std::map<net_bn*, std::vector<Snapshot>> history_;  // of a net, by the number of steps that can be undone
    std::deque<std::vector<char>> storage_;             // what arguments of one call point to
};

bool IsLeftOut(const char* name)
{
    for (const char* other : kLeftOut)
        if (strcmp(name, other) == 0) return true;
    return false;
}

// Functions that are documented to take effect although they report an error.
bool DoesSomethingNevertheless(const char* name)
{
    return strcmp(name, "SetNetAutoUpdate_bn") == 0;
}

// ---- Arguments ----

std::vector<void*> Session::Live(char letter) const
{
    std::vector<void*> live;
    const auto add = [&](auto& from) { live.insert(live.end(), from.begin(), from.end()); };
    const auto add_dependents = [&](HandleKind kind) {
        for (const net_bn* net : env_->nets)
            for (const NetDependent& dependent : net->dependents)
                if (IsLive(static_cast<const HandleHeader*>(dependent.object), kind))
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
            add_dependents(TESTER_TYPE);
            break;
        case 'S':
            add_dependents(SENSV_TYPE);
            break;
    }
    return live;
}

void* Session::AnyHandle(char letter)
{
    const uint8_t choice = bytes_.Byte();
    if (choice >= 230) {
        const std::vector<void*>& seen = seen_[letter];
        if (choice < 240 || (choice < 248 && seen.empty())) return nullptr;
        if (choice < 248) return seen[choice % seen.size()];
        // The bytes of an environment are recognised by its place in a list, those of the rest by
        // their first bytes.
        return foreign_bytes;
    }
    const std::vector<void*> live = Live(letter);
    return live.empty() ? nullptr : live[choice % live.size()];
}

void* Session::Handle(char letter, size_t place)
{
    void* const handle = AnyHandle(letter);
    if (letter == 'n' && place == strcspn(current_->arguments, "n")) {
        node_ = static_cast<node_bn*>(handle);
        node_is_live_ = IsLive(node_, NODE_TYPE);
    }
    return Traced(" %p", handle);
}

double Session::Real()
{
    return Traced(" %g", AnyReal());
}

double Session::AnyReal()
{
    const uint8_t choice = bytes_.Byte();
    if (choice < std::size(kReals)) return kReals[choice];
    if (choice == 255) return UndefDbl();
    return (choice - 64) / 16.0;
}

// An integer beside a pointer says how much is there, and does not lie.
int64_t Session::Integer(size_t place, size_t num_bytes)
{
    const uint8_t choice = bytes_.Byte();
    int64_t value = choice % 8;
    if (choice >= 176) value = kInts[choice % std::size(kInts)];
    if (choice >= 248 && num_bytes == 8) value = choice % 2 ? INT64_MAX : INT64_MIN;
    const char* const letters = current_->arguments;
    const bool is_length = (place > 0 && letters[place - 1] == 'p') || letters[place + 1] == 'p';
    if (is_length) value = std::min<int64_t>(value, kMostLength);
    if (strcmp(current_->name, "SetNodeTable_bn") == 0 && choice < 128)
        value = node_is_live_ ? int64_t(std::min(SizeNodeTable_bn(node_), double(kArrayLength))) : 0;
    Traced(" %lld", static_cast<long long>(value));
    return value;
}

const char* Session::Text()
{
    const char* const text = AnyText();
    Traced(" \"%s\"", text ? text : "(null)");
    return text;
}

const char* Session::AnyText()
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
void Session::FillProbs(float* entries, int num_states)
{
    const uint8_t kind = bytes_.Byte();
    static const float odd[] = {0,     1,   -1,       1e-40f,        1e-38f,
                                3e38f, NAN, INFINITY, MissingProb(), ImpossibleProb()};
    uint32_t seed = bytes_.Byte();
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
void* Session::Array(ArrayOf entries)
{
    const uint8_t choice = bytes_.Byte();
    if (choice >= 244 || (node_is_live_ && NumStates(*node_) > kArrayLength / 2)) return nullptr;
    constexpr size_t kRoom = kArrayLength * sizeof(int64_t);
    char* const room = storage_.emplace_back(kRoom).data();
    switch (entries) {
        case ArrayOf::BYTES: {
            const std::string_view text = choice < 100 ? kNetText : choice < 150 ? kCaseText : bytes_.Rest();
            std::copy_n(text.begin(), std::min(text.size(), kRoom), room);
            break;
        }
        case ArrayOf::TEXTS: {
            auto* const texts = reinterpret_cast<const char**>(room);
            for (int k = 0; k < kArrayLength; ++k) texts[k] = k < 4 ? Text() : texts[k % 4];
            break;
        }
        case ArrayOf::PROBS:
            FillProbs(reinterpret_cast<float*>(room), node_is_live_ ? std::max(1, NumStates(*node_)) : 2);
            break;
        case ArrayOf::STATES: {  // one per parent
            auto* const states = reinterpret_cast<int*>(room);
            const uint32_t pattern = bytes_.Number(65536);
            for (int k = 0; k < kArrayLength; ++k) states[k] = int(pattern >> (2 * (k % 8)) & 3);
            if (choice >= 220) states[choice % 4] = kInts[choice % std::size(kInts)];
            break;
        }
        case ArrayOf::REALS: {  // levels, edges, values
            auto* const reals = reinterpret_cast<double*>(room);
            const double first = AnyReal(), step = AnyReal();
            for (int k = 0; k < kArrayLength; ++k) reals[k] = first + step * k;
            if (choice >= 220) reals[choice % 4] = AnyReal();
            break;
        }
        case ArrayOf::REAL_TO_WRITE:
            *reinterpret_cast<double*>(room) = AnyReal();  // a position, which is read too
            break;
        case ArrayOf::OTHERS_TO_WRITE:
            break;
    }
    return Traced(" [%p]", static_cast<void*>(room));
}

// ---- States of nets ----

Snapshot Session::Take(net_bn* net)
{
    Snapshot snapshot;
    snapshot.text = TextOf(net);
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
    history_[net] = {Take(net)};
}

void Session::Start()
{
    stream_vx* const stream = NewStreamOf(env_, "start.dne", kNetText);
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
    NewStreamOf(env_, "m.cas", kCaseText);
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

void Session::OneCall(const ApiFunction& function)
{
    const std::string_view name = function.name;
    if (TooLarge() && (name.starts_with("Copy") || name.starts_with("New") || name.starts_with("Read")))
        return;
    current_ = &function;
    node_ = nullptr;
    node_is_live_ = false;
    storage_.clear();
    if (is_traced_) fprintf(stderr, "%s(", function.name);
    const Returned returned = function.call(*this);
    if (returned.letter && returned.pointer)
        seen_[returned.letter].push_back(const_cast<void*>(returned.pointer));
    const report_vx* const error = GetError_vx(nullptr, ERROR_SEVERITY, 0, nullptr);
    // Records that the function was asked to add are no failures.
    const bool failed = error != nullptr && !ErrorCategory_vx(FRONT_END_CONDITION, error);
    if (failed && is_traced_) fprintf(stderr, "  -> %d %s\n", ErrorNumber_vx(error), ErrorMessage_vx(error));
    AfterCall(function, failed);
}

void Session::AfterCall(const ApiFunction& function, bool failed)
{
    if (GetError_vx(nullptr, INTERNAL_SEVERITY, 0, nullptr) && strcmp(function.name, "NewError_vx") != 0)
        Check(false, "no internal error");
    if (failed) ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    SetHaltFlag_vx(env_, 0);
    std::map<net_bn*, Snapshot> now = TakeAll();  // at the highest checking level
    if (was_halted_) return;
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
    std::erase_if(history_, [&](const auto& row) { return !now.count(row.first); });
    const bool sets_undo =
        !strcmp(function.name, "SetNetNumUndos_bn") || !strcmp(function.name, "SetNetUndoing_bn");
    for (const auto& [net, snapshot] : now) {
        if (sets_undo || !history_.count(net)) {
            KeepHistory(net);
        } else if (GetNetUndoGroup_bn(net) == NO_UNDO_GROUP) {
            // A step more, or the net as it is now with the steps that there were.
            std::vector<Snapshot>& history = history_[net];
            history.resize(size_t(NumUndos(net)));
            history.push_back(snapshot);
        }
    }
    if (!strcmp(function.name, "ReadNetFindings2_bn") || !strcmp(function.name, "NewError_vx"))
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    state_ = std::move(now);
}

// ---- Undo ----

void Session::CheckSame(const Snapshot& now, const Snapshot& then, const char* promise)
{
    if (now == then) return;
    fprintf(stderr, "--- then\n%s\n--- now\n%s\n", then.text.c_str(), now.text.c_str());
    Check(false, promise);
}

void Session::CheckUndo()
{
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    may_halt_ = false;  // this has to come to its end
    for (net_bn* net : std::vector<net_bn*>(env_->nets)) {
        for (int k = 0; k < kMostCalls && GetNetUndoGroup_bn(net) != NO_UNDO_GROUP; ++k)
            CloseNetUndoGroup_bn(net);
        const size_t known = history_[net].size();  // what was undone last is not in it any more
        while (RedoNetOper_vx(net, -1)) {
        }
        const Snapshot last = Take(net);
        int steps = 0;
        while (UndoNetLastOper_vx(net, -1)) {
            ++steps;
            const size_t left = size_t(NumUndos(net));
            if (left + 1 < known && !history_[net][left].text.empty())
                CheckSame(Take(net), history_[net][left], "undoing takes everything back");
        }
        CheckSame(Take(net), history_[net][0], "undoing takes everything back");
        while (RedoNetOper_vx(net, -1)) --steps;
        Check(steps == 0, "as many steps are redone as were undone");
        CheckSame(Take(net), last, "redoing does everything again");
    }
    Check(GetError_vx(nullptr, ERROR_SEVERITY, 0, nullptr) == nullptr || was_halted_, "steps can be undone");
}

// ---- Beliefs ----

bool IsPlain(const net_bn* net)
{
    for (const node_bn* node : net->nodes.nodes) {
        if (node->kind != NATURE_NODE || !HasStates(*node)) return false;
        for (const Link& link : node->links)
            if (IsDelayed(link)) return false;
    }
    return !net->nodes.nodes.empty() && !net->most_probable;
}

// The net as the model that the enumeration goes through, and its findings as likelihoods.
std::pair<RandomModel, Findings> ModelOf(const net_bn* net)
{
    RandomModel model;
    Findings findings(int(net->nodes.nodes.size()));
    for (node_bn* node : net->nodes.nodes) {
        ModelGraph::Variable variable;
        variable.num_states = NumStates(*node);
        for (const Link& link : node->links) variable.parents.push_back(link.parent->index);
        model.graph.variables.push_back(variable);
        TableVector<float> scratch;
        const float* const table = EffectiveProbs(*node, scratch);
        const size_t size = table ? size_t(SizeNodeTable_bn(node)) : 0;
        model.tables.emplace_back(table, table + size);
        const float* const weights = GetNodeLikelihood_bn(node);
        findings.likelihood[size_t(node->index)].assign(weights, weights + variable.num_states);
    }
    return {model, findings};
}

void Session::CompareBeliefs(net_bn* net)
{
    const auto [model, findings] = ModelOf(net);
    const auto [total, beliefs] = Enumerate(model, findings);
    const double log_prob = LogFindingsProbability_bn(net);
    const bool failed = GetError_vx(nullptr, ERROR_SEVERITY, 0, nullptr) != nullptr;
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    if (was_halted_ || (total > 0 && total < 1e-20) || total > 1e20) return;
    // Without findings nothing is asked, whatever the tables leave impossible.
    if (std::none_of(net->nodes.nodes.begin(), net->nodes.nodes.end(), HasNodeFinding_bn))
        return Check(failed || log_prob == 0, "no findings have the probability 1");
    if (total == 0) return Check(failed || std::isinf(log_prob), "a contradiction is reported");
    if (std::abs(log_prob - std::log(total)) > 1e-5 * std::max(1.0, std::abs(log_prob))) {
        fprintf(stderr, "log P %.9g, should be %.9g\n", log_prob, std::log(total));
        Check(false, "the probability of findings equals enumeration");
    }
    for (node_bn* node : net->nodes.nodes) {
        const prob_bn* const found = GetNodeBeliefs_bn(node);
        Check(found != nullptr, "there are beliefs");
        for (int s = 0; s < NumStates(*node); ++s)
            Check(std::abs(double(found[s]) - beliefs[size_t(node->index)][size_t(s)]) < 1e-5,
                  "beliefs equal enumeration");
    }
}

void Session::CheckBeliefs()
{
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    for (net_bn* net : std::vector<net_bn*>(env_->nets)) {
        double cells = 1;
        for (const node_bn* node : net->nodes.nodes) cells *= std::max(1, NumStates(*node));
        if (cells > kMostCells || !IsPlain(net)) continue;
        CompileNet_bn(net);
        const bool is_compiled = IsNetCompiled_bn(net);
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
        if (is_compiled) CompareBeliefs(net);
    }
}

}  // namespace

bool MakeRandomCalls(const uint8_t* data, size_t size, const CallsOptions& options)
{
    std::vector<const ApiFunction*> functions;
    for (const ApiFunction& function : ApiFunctions())
        if (!IsLeftOut(function.name) && (!options.is_wanted || options.is_wanted(function.name)))
            functions.push_back(&function);
    Session session(data, size, options);
    return session.Run(functions);
}

}  // namespace talora
