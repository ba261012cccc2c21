// Many threads at once, through the interface, in the three concurrency modes.
//
// Each of the runs below lasts TALORA_THREAD_SECONDS (one second; 100 seconds with TALORA_LONG=1).  The
// thread sanitizer finds races in them; a watchdog ends the program if threads wait for each other.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Support/TestEnviron.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kNumThreads = 8;

Clock::duration RunTime()
{
    const char* const text = getenv("TALORA_THREAD_SECONDS");
    const double seconds = text ? atof(text) : getenv("TALORA_LONG") ? 100 : 1;
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

// Ends the program when the test does not end: there is no other way out of a deadlock.
class Watchdog {
public:
    explicit Watchdog(Clock::duration work = {})
        : thread_([this, limit = work + std::chrono::seconds(60)] {
              std::unique_lock lock(mutex_);
              if (done_.wait_for(lock, limit, [&] { return is_done_; })) return;
              fprintf(stderr, "threads wait for each other\n");
              abort();
          })
    {}
    ~Watchdog()
    {
        {
            std::lock_guard guard(mutex_);
            is_done_ = true;
        }
        done_.notify_all();
        thread_.join();
    }

private:
    std::mutex mutex_;
    std::condition_variable done_;
    bool is_done_ = false;
    std::thread thread_;
};

void InThreads(int count, const std::function<void(int)>& work)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) threads.emplace_back(work, i);
    for (std::thread& thread : threads) thread.join();
}

void InMode(environ_vx* env, const char* mode, const std::function<void()>& work)
{
    ControlConcurrency_vx(env, "mode", mode);
    work();
    ControlConcurrency_vx(env, "mode", "1");
}

// A chain with a second parent here and there.
net_bn* NewChain(environ_vx* env, const std::string& name, int length)
{
    net_bn* net = NewNet_bn(name.c_str(), env);
    std::vector<node_bn*> nodes;
    for (int i = 0; i < length; ++i) {
        node_bn* node = NewNode_bn(("N" + std::to_string(i)).c_str(), 2 + i % 2, net);
        if (i > 0) AddLink_bn(nodes[size_t(i - 1)], node);
        if (i > 3 && i % 3 == 0) AddLink_bn(nodes[size_t(i - 3)], node);
        const int states = GetNodeNumberStates_bn(node);
        std::vector<prob_bn> table(size_t(SizeNodeTable_bn(node)));
        for (size_t at = 0; at < table.size(); ++at) {
            const size_t row = at / size_t(states), state = at % size_t(states);
            const double first = 0.2 + 0.6 * double((row * 7 + size_t(i)) % 10) / 10;
            table[at] = float(state == 0 ? first : (1 - first) / (states - 1));
        }
        SetNodeTable_bn(node, table.data(), int64_t(table.size()));
        nodes.push_back(node);
    }
    return net;
}

// ---- What a thread does with a net ----

struct Worker {
    environ_vx* env;
    net_bn* net;    // to work on
    net_bn* other;  // to copy from and to; may be the same
    int number;
    std::mt19937 random;
    std::string folder;

    int Any(int count) { return int(random() % uint32_t(count)); }
    node_bn* AnyNode() { return GetNodeNamed_bn(("N" + std::to_string(Any(12))).c_str(), net); }
    nodelist_bn* AllNodes() { return DupNodeList_bn(GetNetNodes2_bn(net, nullptr)); }
};

void EnterSomething(Worker& w)
{
    node_bn* node = w.AnyNode();
    const prob_bn likelihood[] = {0.3f, 1.0f, 0.5f};
    switch (w.Any(4)) {
        case 0:
            return EnterFinding_bn(node, w.Any(2));
        case 1:
            return EnterFindingNot_bn(node, w.Any(2));
        case 2:
            return EnterNodeLikelihood_bn(node, likelihood);
        case 3:
            return RetractNodeFindings_bn(node);
    }
}

void RetractAll(Worker& w)
{
    RetractNetFindings_bn(w.net);
}

void AskSomething(Worker& w)
{
    node_bn* node = w.AnyNode();
    GetNodeBeliefs_bn(node);
    FindingsProbability_bn(w.net);
    GetNodeExpectedValue_bn(node, nullptr);
    nodelist_bn* list = NewNodeList2_bn(0, w.net);
    AddNodeToList_bn(w.AnyNode(), list, -1);
    AddNodeToList_bn(node, list, -1);
    QueryBeliefs_bn(list, nullptr);
    DeleteNodeList_bn(list);
}

void Compile(Worker& w)
{
    if (w.Any(2) == 0) UncompileNet_bn(w.net);
    CompileNet_bn(w.net);
    SizeCompiledNet_bn(w.net, 0);
    GetCliqueNodes_bn(w.net, 0);
}

void Edit(Worker& w)
{
    const std::string name = "X" + std::to_string(w.number) + "_" + std::to_string(w.Any(1000));
    node_bn* node = NewNode_bn(name.c_str(), 2, w.net);
    AddLink_bn(w.AnyNode(), node);
    SetNodeTitle_bn(node, "added");
    SetNodeStateNames_bn(node, "yes,no");
    const prob_bn probs[] = {0.25f, 0.75f};
    SetNodeProbs_bn(w.AnyNode(), nullptr, probs);
    SetNetTitle_bn(w.net, name.c_str());
    SetNetName_bn(w.net, name.c_str());
    DeleteNode_bn(node);
}

void Undo(Worker& w)
{
    SetNetNumUndos_bn(w.net, 50, 0, nullptr);
    const int steps = w.Any(6);
    for (int i = 0; i < steps; ++i) UndoNetLastOper_vx(w.net, -1);
    for (int i = 0; i < steps; ++i) RedoNetOper_vx(w.net, -1);
}

void WriteAndRead(Worker& w)
{
    const bool in_file = w.Any(3) == 0;
    const std::string path =
        w.folder + "/net" + std::to_string(getpid()) + "_" + std::to_string(w.number) + ".dne";
    stream_vx* stream = in_file ? NewFileStream_vx(path.c_str(), w.env, nullptr)
                                : NewMemoryStream_vx("net.dne", w.env, nullptr);
    WriteNet_bn(w.net, stream);
    net_bn* read = ReadNet_bn(stream, NO_WINDOW);
    EXPECT_NE(read, nullptr);
    DeleteStream_vx(stream);
    DeleteNet_bn(read);
    if (in_file) remove(path.c_str());
}

void Learn(Worker& w)
{
    stream_vx* stream = NewMemoryStream_vx("cases.cas", w.env, nullptr);
    nodelist_bn* nodes = w.AllNodes();
    WriteRandomCases_bn(nodes, stream, 20, 0, 1000, 10);
    caseset_cs* cases = NewCaseset_cs("cases", w.env);
    AddFileToCaseset_cs(cases, stream, 1, nullptr);
    learner_bn* learner = NewLearner_bn(w.Any(2) == 0 ? 1 : 3, w.env);
    SetLearnerMaxIters_bn(learner, 3);
    LearnCPTs_bn(learner, nodes, cases, 1);
    ReviseCPTsByFindings_bn(nodes, 1);
    tester_bn* tester = NewNetTester_bn(nodes, nodes, -1);
    TestWithCaseset_bn(tester, cases);
    DeleteNetTester_bn(tester);
    DeleteLearner_bn(learner);
    DeleteCaseset_cs(cases);
    DeleteStream_vx(stream);
    DeleteNodeList_bn(nodes);
}

void Measure(Worker& w)
{
    nodelist_bn* nodes = w.AllNodes();
    sensv_bn* sensv = NewSensvToFinding_bn(w.AnyNode(), nodes, ENTROPY_SENSV);
    GetMutualInfo_bn(sensv, w.AnyNode());
    DeleteSensvToFinding_bn(sensv);
    std::vector<state_bn> setting(4096);
    nodelist_bn* list = NewNodeList2_bn(1, w.net);
    SetNthNode_bn(list, 0, w.AnyNode());
    MostProbableSetting_bn(list, setting.data(), 0);
    DeleteNodeList_bn(list);
    DeleteNodeList_bn(nodes);
}

void Copy(Worker& w)
{
    net_bn* copy = CopyNet_bn(w.net, "copy", w.env, nullptr);
    nodelist_bn* one = NewNodeList2_bn(1, w.net);
    SetNthNode_bn(one, 0, w.AnyNode());
    nodelist_bn* made = CopyNodes_bn(one, w.other, "no_links");
    if (made != nullptr) {
        DeleteNode_bn(NthNode_bn(made, 0));
        DeleteNodeList_bn(made);
    }
    std::swap(w.net, w.other);
    DeleteNodeList_bn(one);
    DeleteNet_bn(copy);
}

void Settings(Worker& w)
{
    SetCaseFileDelimChar_vx(w.Any(2) == 0 ? ',' : '\t', w.env);
    SetMissingDataChar_vx(w.Any(2) == 0 ? '*' : '?', w.env);
    SetReproducibleRandom_vx(w.env, w.Any(2));
    SetMessageFlavor_vx(w.env, w.Any(2) == 0 ? "programming" : "interface");
    SetFindingChecking_vx(w.env, w.Any(8) == 0);
    SetEnvironUserData_vx(w.env, &w);
    SetReportLimit_vx(w.env, w.Any(100));
    GetNetNamed_bn("none", w.env);
    for (int i = 0; GetNthNet_bn(i, w.env) != nullptr; ++i) continue;
    DrawRandomUniform_vx(nullptr);
}

int ReadingMessageHandler(environ_vx* env, const char*, const report_vx* report, void*)
{
    GetEnvironUserData_vx(env);
    return report ? ErrorDisposition_vx(report) : 0;
}

bool_vx ReadingProgressHandler(environ_vx* env, const char*, double, void*)
{
    return GetReportLimit_vx(env) >= 0;
}

void SetHandlers(Worker& w)
{
    SetMessageHandler_vx(w.env, w.Any(2) == 0 ? nullptr : ReadingMessageHandler, nullptr);
    SetProgressHandler_vx(w.env, w.Any(2) == 0 ? nullptr : ReadingProgressHandler, nullptr);
}

void UseGenerator(Worker& w)
{
    randgen_vx* generator = NewRandomGenerator_vx("7", w.env, nullptr);
    DrawRandomInteger_vx(generator);
    GetRandomGenState_vx(generator);
    DeleteRandomGen_vx(generator);
    ListErrors_vx(w.env, 2, 20);
    GetMemoryUsage_vx(w.env);
}

struct Operation {
    const char* label;
    void (*run)(Worker&);
};
constexpr Operation kOperations[] = {{"enter", EnterSomething},
                                     {"enter", EnterSomething},
                                     {"retract", RetractAll},
                                     {"ask", AskSomething},
                                     {"ask", AskSomething},
                                     {"compile", Compile},
                                     {"edit", Edit},
                                     {"undo", Undo},
                                     {"write, read", WriteAndRead},
                                     {"learn", Learn},
                                     {"measure", Measure},
                                     {"copy", Copy},
                                     {"settings", Settings},
                                     {"handlers", SetHandlers},
                                     {"generators", UseGenerator}};

// Errors that come of what other threads have done to the net meanwhile are expected; an inconsistency of the
// library's own is not, nor is an error of another thread.
void CheckErrors(Worker& w, const char* label)
{
    const int mine = 100000 + w.number;
    NewError_vx(w.env, mine, ERROR_SEVERITY, "this thread's own");
    int own = 0;
    for (const report_vx* error = GetError_vx(w.env, ERROR_SEVERITY, 0, nullptr); error != nullptr;
         error = GetError_vx(w.env, ERROR_SEVERITY, 0, error)) {
        const int number = -ErrorNumber_vx(error);
        own += number == mine;
        EXPECT_TRUE(number == mine || number < 100000) << "an error of thread " << number - 100000;
        EXPECT_LT(ErrorSeverity_vx(error), INTERNAL_SEVERITY) << label << ": " << ErrorMessage_vx(error);
        EXPECT_NE(number, 5681) << label << ": no handler, so nothing to refuse";
    }
    EXPECT_EQ(own, 1) << label;
    ClearErrors_vx(w.env, INTERNAL_SEVERITY);
}

void Work(Worker w, Clock::time_point end)
{
    while (Clock::now() < end) {
        const Operation& operation = kOperations[w.Any(int(std::size(kOperations)))];
        operation.run(w);
        CheckErrors(w, operation.label);
    }
}

// ---- The state afterwards ----

std::vector<prob_bn> AllBeliefs(net_bn* net)
{
    std::vector<prob_bn> all;
    const nodelist_bn* nodes = GetNetNodes2_bn(net, nullptr);
    for (int i = 0; i < LengthNodeList_bn(nodes); ++i) {
        node_bn* node = NthNode_bn(nodes, i);
        const prob_bn* beliefs = GetNodeBeliefs_bn(node);
        if (beliefs) all.insert(all.end(), beliefs, beliefs + GetNodeNumberStates_bn(node));
    }
    return all;
}

void ExpectSound(environ_vx* env, net_bn* net)
{
    ArgumentChecking_vx(CHECK_OBJECTS, env);
    SetFindingChecking_vx(env, 0);
    RetractNetFindings_bn(net);
    if (!IsNetCompiled_bn(net)) CompileNet_bn(net);
    const std::vector<prob_bn> before = AllBeliefs(net);
    UncompileNet_bn(net);
    CompileNet_bn(net);
    const std::vector<prob_bn> after = AllBeliefs(net);
    ASSERT_EQ(before.size(), after.size());
    EXPECT_GE(before.size(), 24u);
    for (size_t i = 0; i < after.size(); ++i) EXPECT_NEAR(before[i], after[i], 1e-5) << i;
    ArgumentChecking_vx(CHECK_VALUES, env);
}

class ConcurrencyTest : public testing::Test {
protected:
    ~ConcurrencyTest() override
    {
        SetMessageHandler_vx(env_, nullptr, nullptr);
        SetProgressHandler_vx(env_, nullptr, nullptr);
        ControlConcurrency_vx(env_, "mode", "1");
    }

    Worker NewWorker(int number, net_bn* net, net_bn* other)
    {
        return {env_, net, other, number, std::mt19937(uint32_t(number)), testing::TempDir()};
    }

    // A fresh thread gets at every object, so no lock was left behind.
    void ExpectSoundInOtherThread(const std::vector<net_bn*>& nets)
    {
        Watchdog watchdog;
        InThreads(1, [&](int) {
            for (net_bn* net : nets) ExpectSound(env_, net);
        });
    }

    TestEnviron env_;
};

TEST_F(ConcurrencyTest, OwnNetsWithSharedSettings)
{
    for (const char* mode : {"0", "1", "2"}) {
        SCOPED_TRACE(mode);
        InMode(env_, mode, [&] {
            Watchdog watchdog(RunTime());
            const auto end = Clock::now() + RunTime();
            std::vector<net_bn*> nets;
            for (int i = 0; i < kNumThreads; ++i)
                nets.push_back(NewChain(env_, "own" + std::to_string(i), 12));
            InThreads(kNumThreads, [&](int i) { Work(NewWorker(i, nets[size_t(i)], nets[size_t(i)]), end); });
            ExpectSoundInOtherThread(nets);
            for (net_bn* net : nets) DeleteNet_bn(net);
        });
    }
}

TEST_F(ConcurrencyTest, SharedNetsCopiedBothWays)
{
    for (const char* mode : {"1", "2"}) {
        SCOPED_TRACE(mode);
        InMode(env_, mode, [&] {
            Watchdog watchdog(RunTime());
            const auto end = Clock::now() + RunTime();
            net_bn *a = NewChain(env_, "a", 12), *b = NewChain(env_, "b", 12);
            InThreads(kNumThreads, [&](int i) { Work(NewWorker(i, i % 2 ? a : b, i % 2 ? b : a), end); });
            ExpectSoundInOtherThread({a, b});
            // All at once.  One of them does it, the others fail, as the net is gone.
            std::atomic<int> told{0};
            InThreads(kNumThreads, [&](int) {
                DeleteNet_bn(a);
                told += GetError_vx(env_, ERROR_SEVERITY, 5143, nullptr) != nullptr;
                ClearErrors_vx(env_, INTERNAL_SEVERITY);
            });
            EXPECT_EQ(told, kNumThreads - 1);
            DeleteNet_bn(b);
        });
    }
}

TEST_F(ConcurrencyTest, ModeChangesUnderLoad)
{
    Watchdog watchdog(RunTime());
    const auto end = Clock::now() + RunTime();
    net_bn *a = NewChain(env_, "a", 12), *b = NewChain(env_, "b", 12);
    InThreads(kNumThreads, [&](int i) {
        if (i > 0) return Work(NewWorker(i, i % 2 ? a : b, i % 2 ? b : a), end);
        for (int turn = 0; Clock::now() < end; ++turn) {
            EXPECT_GE(ControlConcurrency_vx(env_, "mode", turn % 2 ? "1" : "2"), 1);
            std::this_thread::yield();
        }
    });
    ExpectSoundInOtherThread({a, b});
}

TEST_F(ConcurrencyTest, EnvironmentIsClosedWhileOthersWorkInIt)
{
    Watchdog watchdog(RunTime());
    const auto end = Clock::now() + RunTime();
    for (int turn = 0; turn == 0 || Clock::now() < end; ++turn) {
        environ_vx* second = NewTaloraEnviron_vx("second", nullptr);
        InitTalora2_bn(second, nullptr);
        net_bn* net = NewChain(second, "doomed", 12);
        std::barrier start(kNumThreads);
        InThreads(kNumThreads, [&](int i) {
            start.arrive_and_wait();
            if (i == 0) {
                EXPECT_EQ(CloseTalora_bn(second, nullptr), 0);
                return;
            }
            for (int call = 0; call < 20; ++call) {
                node_bn* node = GetNodeNamed_bn("N3", net);
                EnterFinding_bn(node, 0);
                GetNodeBeliefs_bn(node);
                CompileNet_bn(net);
            }
            ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
        });
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    }
}

// ---- Errors ----

TEST_F(ConcurrencyTest, ThreadsEndWithErrorsOnRecord)
{
    environ_vx* second = NewTaloraEnviron_vx("second", nullptr);
    InitTalora2_bn(second, nullptr);
    for (int round = 0; round < 20; ++round)
        InThreads(kNumThreads, [&](int i) {
            for (int count = 0; count < 30; ++count) {
                NewError_vx(i % 2 ? second : env_, 70000 + i, ERROR_SEVERITY, "left behind");
                DeleteNode_bn(nullptr);
            }
        });
    EXPECT_EQ(GetError_vx(env_, NULL_SEVERITY, 0, nullptr), nullptr);
    // An environment takes its records along, whoever's they are.
    std::barrier step(2);
    InThreads(2, [&](int i) {
        if (i == 0) NewError_vx(second, 70000, ERROR_SEVERITY, "goes with its environment");
        step.arrive_and_wait();
        if (i == 1) {
            EXPECT_EQ(CloseTalora_bn(second, nullptr), 0);
        }
        step.arrive_and_wait();
        EXPECT_EQ(GetError_vx(env_, NULL_SEVERITY, 0, nullptr), nullptr);
    });
}

// ---- The halt flag ----

// A job that takes hours unless it is halted.
void LongJob(environ_vx* env, std::atomic<bool>& has_begun)
{
    net_bn* net = NewChain(env, "long", 40);
    stream_vx* stream = NewMemoryStream_vx("cases.cas", env, nullptr);
    constexpr double kMany = 1e12;
    has_begun = true;
    EXPECT_LT(WriteRandomCases_bn(GetNetNodes2_bn(net, nullptr), stream, kMany, FORWARD_SAMPLING, 1, 0),
              kMany);
    DeleteStream_vx(stream);
    DeleteNet_bn(net);
}

TEST_F(ConcurrencyTest, HaltedFromAnotherThread)
{
    Watchdog watchdog;
    std::atomic<bool> has_begun{false};
    std::thread worker([&] {
        LongJob(env_, has_begun);
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
    });
    while (!has_begun) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    SetHaltFlag_vx(env_, 1);
    worker.join();
    SetHaltFlag_vx(env_, 0);
}

TEST_F(ConcurrencyTest, HaltedFromASignalHandler)
{
    Watchdog watchdog;
    struct sigaction action = {}, before = {};
    action.sa_handler = [](int) { SetHaltFlag_vx(nullptr, 1); };
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    std::atomic<bool> has_begun{false};
    std::thread worker([&] {
        LongJob(env_, has_begun);
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
    });
    while (!has_begun) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pthread_kill(worker.native_handle(), SIGUSR1);  // in the middle of the library
    worker.join();
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_TRUE(GetHaltFlag_vx(env_));
    SetHaltFlag_vx(env_, 0);
}

// ---- Handlers that call back ----

// What the message handler does in this thread.
thread_local std::function<void()> in_handler;

int RunInHandler(environ_vx*, const char*, const report_vx*, void*)
{
    std::function<void()> work;
    std::swap(work, in_handler);  // once: what it does may raise errors of its own
    if (work) work();
    return 0;
}

// A call on the net that raises an error, with the net locked, and so calls the handler.
void CallWithHandler(net_bn* net, std::function<void()> work)
{
    in_handler = std::move(work);
    SetNetName_bn(net, "not a name");
    EXPECT_FALSE(in_handler) << "the handler was not called";
}

TEST_F(ConcurrencyTest, HandlersThatWantEachOthersNets)
{
    SetMessageHandler_vx(env_, RunInHandler, nullptr);
    net_bn* nets[] = {NewChain(env_, "a", 4), NewChain(env_, "b", 4), NewChain(env_, "c", 4)};
    for (const char* mode : {"0", "1"})
        for (int num_threads : {2, 3}) {
            SCOPED_TRACE(std::string(mode) + ", threads " + std::to_string(num_threads));
            InMode(env_, mode, [&] {
                Watchdog watchdog;
                std::barrier all_inside(num_threads);
                std::atomic<int> refused{0}, served{0};
                InThreads(num_threads, [&](int i) {
                    CallWithHandler(nets[i], [&] {
                        all_inside.arrive_and_wait();
                        const char* name = GetNetName_bn(nets[(i + 1) % num_threads]);
                        ++(name == nullptr ? refused : served);
                        EXPECT_EQ(name == nullptr,
                                  GetError_vx(env_, ERROR_SEVERITY, 5681, nullptr) != nullptr);
                    });
                    ClearErrors_vx(env_, INTERNAL_SEVERITY);
                });
                EXPECT_EQ(refused, *mode == '1' ? 1 : 0) << "the one that closes the circle";
                EXPECT_EQ(served, num_threads - refused);
            });
        }
}

TEST_F(ConcurrencyTest, HandlersDontMakeOrdinaryCallsFail)
{
    // One thread's handler wants the process-wide lock and the stream, with a net held; the other reads and
    // writes, which takes both.
    SetMessageHandler_vx(env_, RunInHandler, nullptr);
    net_bn* net = NewChain(env_, "a", 6);
    stream_vx* stream = NewMemoryStream_vx("a.dne", env_, nullptr);
    Watchdog watchdog;
    InThreads(2, [&](int i) {
        for (int turn = 0; turn < 300; ++turn) {
            if (i == 0) {
                CallWithHandler(net, [&] {
                    EXPECT_NE(GetStreamName_vx(stream), nullptr);
                    EXPECT_GE(GetReportLimit_vx(env_), 0);
                });
                EXPECT_EQ(GetError_vx(env_, ERROR_SEVERITY, 5681, nullptr), nullptr);
                ClearErrors_vx(env_, INTERNAL_SEVERITY);
            } else {
                WriteNet_bn(net, stream);
                DeleteNet_bn(ReadNet_bn(stream, NO_WINDOW));
                EXPECT_EQ(GetError_vx(env_, ERROR_SEVERITY, 0, nullptr), nullptr);
            }
        }
    });
}

TEST_F(ConcurrencyTest, HandlersMayReadButNotChangeWhatIsBeingWorkedOn)
{
    SetMessageHandler_vx(env_, RunInHandler, nullptr);
    net_bn *net = NewChain(env_, "a", 4), *other = NewChain(env_, "b", 4);
    node_bn* node = GetNodeNamed_bn("N1", net);
    nodelist_bn* list = DupNodeList_bn(GetNetNodes2_bn(net, nullptr));
    const struct {
        const char* label;
        std::function<void()> work;
        bool is_refused;
    } kRows[] = {
        {"read the net", [&] { EXPECT_STREQ(GetNetName_bn(net), "a"); }, false},
        {"read a node", [&] { EXPECT_STREQ(GetNodeName_bn(node), "N1"); }, false},
        {"read a list", [&] { EXPECT_EQ(LengthNodeList_bn(list), 4); }, false},
        {"change another net", [&] { SetNetTitle_bn(other, "changed"); }, false},
        {"copy the net", [&] { DeleteNet_bn(CopyNet_bn(net, "copy", env_, nullptr)); }, false},
        {"change the net", [&] { SetNetTitle_bn(net, "changed"); }, true},
        {"change a node", [&] { SetNodeTitle_bn(node, "changed"); }, true},
        {"delete the net", [&] { DeleteNet_bn(net); }, true},
        {"delete a node", [&] { DeleteNode_bn(node); }, true},
        {"learn", [&] { ReviseCPTsByFindings_bn(list, 1); }, true},
        {"copy into the net", [&] { CopyNodes_bn(GetNetNodes2_bn(other, nullptr), net, nullptr); }, true},
        {"update", [&] { UpdateNetBeliefs_bn(net); }, true},
    };
    for (const char* mode : {"0", "1", "2"})
        InMode(env_, mode, [&] {
            for (const auto& row : kRows) {
                CallWithHandler(net, row.work);
                EXPECT_EQ(GetError_vx(env_, ERROR_SEVERITY, 5682, nullptr) != nullptr, row.is_refused)
                    << row.label << " in mode " << mode;
                ClearErrors_vx(env_, INTERNAL_SEVERITY);
            }
        });
    EXPECT_STREQ(GetNetTitle_bn(net), "");
    EXPECT_STREQ(GetNetTitle_bn(other), "changed");
}

TEST_F(ConcurrencyTest, EditsInAHandlerAreStepsOfTheirOwn)
{
    SetMessageHandler_vx(env_, RunInHandler, nullptr);
    net_bn *net = NewChain(env_, "a", 4), *other = NewChain(env_, "b", 4);
    SetNetNumUndos_bn(other, 10, 0, nullptr);
    CallWithHandler(net, [&] {
        SetNetTitle_bn(other, "one");
        SetNetTitle_bn(other, "two");
    });
    env_.Taken();
    EXPECT_TRUE(UndoNetLastOper_vx(other, -1));
    EXPECT_STREQ(GetNetTitle_bn(other), "one");  // and the failure around them took nothing back
    EXPECT_TRUE(UndoNetLastOper_vx(other, -1));
    EXPECT_STREQ(GetNetTitle_bn(other), "");
}

// ---- Deep nets ----

// Runs with as little stack as programs give their threads.
void WithLittleStack(std::function<void()> work)
{
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
    pthread_t thread;
    const auto run = [](void* function) -> void* {
        (*static_cast<std::function<void()>*>(function))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

std::string LongChain(int length)
{
    std::string text = "// ~->[DNET-1]->~\nbnet chain {\n";
    for (int i = 0; i < length; ++i) {
        text += "node N" + std::to_string(i) +
                " {\n kind = NATURE; discrete = TRUE; states = (a, b);\n parents = (";
        text += i > 0 ? "N" + std::to_string(i - 1) + "); probs = ((0.75, 0.25), (0.5, 0.5)); };\n"
                      : "); probs = (0.5, 0.5); };\n";
    }
    return text + "};\n";
}

TEST_F(ConcurrencyTest, LongChainsNeedLittleStack)
{
    constexpr int kLength = 100000;
    const std::string text = LongChain(kLength);
    WithLittleStack([&] {
        stream_vx* stream = NewStreamOf(env_, "chain.dne", text);
        net_bn* net = ReadNet_bn(stream, NO_WINDOW);
        ASSERT_NE(net, nullptr);
        CompileNet_bn(net);
        node_bn* first = GetNodeNamed_bn("N0", net);
        node_bn* last = GetNodeNamed_bn(("N" + std::to_string(kLength - 1)).c_str(), net);
        const prob_bn* beliefs = GetNodeBeliefs_bn(last);
        ASSERT_NE(beliefs, nullptr);
        EXPECT_NEAR(beliefs[0], 2.0 / 3, 1e-4);
        EnterFinding_bn(last, 0);
        EnterFinding_bn(first, 1);
        EXPECT_NEAR(FindingsProbability_bn(net), 0.5 * 2 / 3, 1e-4);
        EXPECT_TRUE(IsNodeAncestor_bn(first, last));
        WriteNet_bn(net, stream);
        DeleteNet_bn(CopyNet_bn(net, "copy", env_, nullptr));
        DeleteNode_bn(GetNodeNamed_bn("N50000", net));
        DeleteNet_bn(net);
        DeleteStream_vx(stream);
        EXPECT_EQ(GetError_vx(env_, ERROR_SEVERITY, 0, nullptr), nullptr);
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
    });
}

}  // namespace
