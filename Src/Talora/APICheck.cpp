// The entry frame of interface functions: locks, handles, names and options, and failures as error records.
#include "Talora/APICheck.h"

#include <algorithm>
#include <cstring>
#include <exception>

#include "BN/Learning/Learner.h"
#include "BN/Model/Bnet.h"
#include "BN/Sensitivity/BnSensitivity.h"
#include "BN/Testing/BnTestNet.h"
#include "Basic/Markup.h"
#include "Basic/Memory.h"
#include "Basic/Names.h"
#include "Basic/Stream.h"
#include "Basic/Text.h"
#include "VarVal/Caseset.h"
#include "VarVal/DbManager.h"

namespace talora {

namespace {

// With less than this left, only functions that free or read something are begun.
constexpr double kLeastMemory = 4096;

bool Checks()
{
    return CheckingLevel() >= CHECK_HANDLES;
}

// Fails with the message if the environment's objects live elsewhere; 0: kinds that work remotely too.
template <int message>
void CheckNotRemote([[maybe_unused]] const environ_vx* env)
{
    if constexpr (message != 0) {
        if (env != nullptr && env->remote) Fail<message>();
    }
}

// Validation mends counts that are kept beside the net, hence the cast.
void ValidateNetOf(const net_bn* net)
{
    if (net != nullptr) ValidateNet(const_cast<net_bn&>(*net));
}

// A deleted object whose slot has not been used again.
template <class T>
bool WasDeleted(const T* object, HandleKind kind)
{
    if (object == nullptr || reinterpret_cast<uintptr_t>(object) % alignof(T) != 0) return false;
    return (object->header.Tag() & (kKindMask | kDeletedFlag)) == (kind | kDeletedFlag);
}

// Whether the call under way has the lock kept with an object, or a call in whose handlers it is made.
bool IsLocked(const RecursiveLock* lock)
{
    const CallLocks* call = ThisThread().locks;
    return lock == nullptr || call == nullptr || CallLocks::IsUsed(call, lock);
}

// An object that lives although the call does not have its lock was dead when the call looked for its locks;
// another thread has brought it back since, or put another one in its place.  It counts as dead.
template <class T>
bool IsUsable(const T* object, HandleKind kind)
{
    return IsLive(object, kind) && IsLocked(LockOf(object));
}

// By the beginning of its name: what frees, reads or sets something is begun with no memory left too.
bool NeedsMemory(const char* function)
{
    static constexpr const char* kFrees[] = {"Delete",    "Close", "Clear", "Limit", "Retract",
                                             "Uncompile", "Get",   "Error", "Set"};
    return std::none_of(std::begin(kFrees), std::end(kFrees),
                        [&](const char* start) { return strncmp(function, start, strlen(start)) == 0; });
}

}  // namespace

// ---- Handles ----

#define TALORA_HANDLE(type, kind, letter, of_a_net, alive, null, deleted, damaged, remote, environment, net) \
    void CheckHandle(const type* object)                                                                     \
    {                                                                                                        \
        if (!Checks()) return;                                                                               \
        if (object == nullptr) Fail<null>();                                                                 \
        if (deleted != damaged && WasDeleted(object, kind)) Fail<deleted>();                                 \
        if (!alive(object, kind)) Fail<damaged>();                                                           \
        CheckNotRemote<remote>(environment);                                                                 \
    }                                                                                                        \
    void ValidateHandle([[maybe_unused]] const type* object)                                                 \
    {                                                                                                        \
        ValidateNetOf(net);                                                                                  \
    }                                                                                                        \
    environ_vx* EnvironOf(const type* object)                                                                \
    {                                                                                                        \
        return alive(object, kind) ? const_cast<environ_vx*>(environment) : nullptr;                         \
    }
#include "Talora/HandleKinds.inc"
#undef TALORA_HANDLE

// Without an environment nothing can be done, so this is checked at every level.
void CheckEnviron(const environ_vx* env)
{
    if (env == nullptr) Fail<5626>();
    if (!IsLive(env, ENVIRON_TYPE)) Fail<5146>();
}

void CheckLocal(const environ_vx& env)
{
    if (env.remote) Fail<5155>();
}

bool WasClosed(const environ_vx* env)
{
    return WasDeleted(env, ENVIRON_TYPE);
}

void CheckListEntries(const nodelist_bn* list, bool allows_null)
{
    const RecursiveLock* first = nullptr;
    bool of_several_nets = false;  // which no function works on, and which are not all locked
    for (size_t i = 0; i < list->nodes.size(); ++i) {
        const node_bn* node = list->nodes[i];
        if (node == nullptr && allows_null) continue;
        if (node == nullptr) Fail<5150>(int(i));
        const RecursiveLock* lock = LockOf(node);
        if (first == nullptr) first = lock;
        if (lock != nullptr && (IsLocked(lock) || of_several_nets)) {
            of_several_nets |= lock != first;
            continue;
        }
        if (WasDeleted(node, NODE_TYPE)) Fail<5152>(Ordinal(int64_t(i) + 1).c_str());
        Fail<5151>(Ordinal(int64_t(i) + 1).c_str());
    }
}

void CheckEntriesUsed(const EntriesOf& entries)
{
    if (entries.list == nullptr) return;
    CheckHandle(entries.list);
    if (IsLive(entries.list, NODELIST_TYPE)) CheckListEntries(entries.list, entries.allows_null);
}

// Looks at the calls around the present one only, as that one has just locked the net itself.
bool IsAtWork(const net_bn& net)
{
    const CallLocks* call = ThisThread().locks;
    return call != nullptr && CallLocks::IsUsed(call->callers, net.header.Lock());
}

void FailAtWork()
{
    Fail<5682>();
}

net_bn& NetOfAll(const nodelist_bn* list)
{
    const node_bn* first = list->nodes[0];
    for (const node_bn* node : list->nodes)
        if (node->net != first->net) Fail<6881>(first->name.c_str(), node->name.c_str());
    return *first->net;
}

// ---- Other arguments ----

// The message names the argument where wide text makes the place of a character hard to see.
std::string NameArgument(const char* name, const char* argument, bool allow_star)
{
    if (name == nullptr) Fail<5114>();
    const std::string where = IsWide(name) ? "in argument '" + std::string(argument) + "', " : "";
    std::string text = NarrowText(name);
    if (text.empty()) Fail<5142>();
    std::string reason;
    if (CheckingLevel() >= CHECK_VALUES && CheckName(name, allow_star, &reason) != 0)
        Fail<5118>(where.c_str(), reason.c_str());
    return text;
}

std::string TextArgument(const char* text)
{
    return NarrowText(text);
}

void CheckNoOptions(const char* options)
{
    if (TextLength(options) == 0) return;
    Fail<5627>(NarrowText(options).c_str());
}

// Words are separated by blanks, tabs or commas; the message for an unknown one lists those allowed.
uint32_t OptionsArgument(const char* options, std::initializer_list<const char*> allowed)
{
    const std::string text = NarrowText(options);
    uint32_t given = 0;
    for (size_t at = 0; at < text.size();) {
        const size_t start = text.find_first_not_of(" ,\t", at);
        if (start == std::string::npos) break;
        const size_t end = std::min(text.find_first_of(" ,\t", start), text.size());
        const std::string word = text.substr(start, end - start);
        const auto found = std::find(allowed.begin(), allowed.end(), word);
        if (found == allowed.end()) {
            std::string words;
            for (const char* option : allowed) words += (words.empty() ? "" : ", ") + std::string(option);
            Fail<5628>(word.c_str(), words.c_str());
        }
        given |= 1u << (found - allowed.begin());
        at = end;
    }
    return given;
}

// ---- The frame ----

// What a call around this one works on may be read, not changed.
void EntryFrame::UseLock(RecursiveLock* lock, bool changes) noexcept
{
    locks_.Add(lock);
    if (!changes || lock == nullptr) return;
    is_at_work_ |= CallLocks::IsUsed(ThisThread().locks, lock);
}

// Of more than two different nets, two will do: no function works on them, and the error names two nodes.
void EntryFrame::Use(const EntriesOf& entries) noexcept
{
    if (!IsLive(entries.list, NODELIST_TYPE)) return;
    const RecursiveLock* first = nullptr;
    for (const node_bn* node : entries.list->nodes) {
        RecursiveLock* lock = LockOf(node);
        if (lock == nullptr || lock == first) continue;
        UseLock(lock, true);
        if (first != nullptr) return;
        first = lock;
    }
}

// 1. What a call in a handler replaces is put back when it ends.
void EntryFrame::Enter(const char* function) noexcept
{
    ThreadState& thread = ThisThread();
    callers_function_ = thread.function;
    callers_env_ = thread.env;
    callers_failed_ = thread.failed;
    // 2. The outermost call waits for a change of the concurrency mode, and begins counting warnings.
    if (thread.depth++ == 0) {
        EnterLibrary();
        thread.aborted = false;
        ForgetWarningCounts();
    }
    // 3. Locks: all or none. A refusal is reported from inside the frame, by CheckLocks.
    is_refused_ = !locks_.Enter();
    locks_.callers = thread.locks;
    thread.locks = &locks_;
    // 4. From here on, changes belong to this call.
    open_undo_ = OpenedByCalls();
    undo_mark_ = CallMark();
    thread.function = function;
    thread.env = nullptr;
    thread.failed = false;
}

EntryFrame::~EntryFrame()
{
    ThreadState& thread = ThisThread();
    // What a call in a handler has edited is of nets that the calls around it do not use.
    EndCalls(open_undo_);
    thread.locks = const_cast<CallLocks*>(locks_.callers);
    locks_.Leave();
    if (pinned_env_ != nullptr) UnpinEnviron(pinned_env_);
    if (--thread.depth == 0) LeaveLibrary();
    // A function whose name begins so stays the current one, unless another call is around it.
    const bool stays = thread.function && strncmp(thread.function, "Callback", 8) == 0;
    if (!stays || callers_function_) thread.function = callers_function_;
    thread.env = callers_env_;
    thread.failed = callers_failed_;
}

void EntryFrame::CheckLocks() const
{
    if (is_refused_) Fail<5681>();
    if (is_at_work_) FailAtWork();
}

void EntryFrame::CheckReady()
{
    const ThreadState& thread = ThisThread();
    if (thread.env && thread.env->state != READY_ENV) {
        if (thread.env->state == CLOSED_ENV) Fail<5626>();
        Fail<5625>();
    }
    if (MemoryAvailable() < kLeastMemory && NeedsMemory(thread.function))
        FailOutOfMemory("left to even start function >-%s",
                        FunctionNameIn(CurrentFlavor(), thread.function).c_str());
}

bool EntryFrame::Failed() const noexcept
{
    return ThisThread().failed;
}

// Every way to fail ends here as one record, with the changes of the call taken back.
void EntryFrame::RecordException() noexcept
{
    try {
        throw;
    } catch (const Unwind&) {
        // Its record is in the list already.
    } catch (const OutOfMemory& out) {
        ReportOutOfMemory(out.message);
    } catch (const std::bad_alloc&) {
        ReportOutOfMemory("not enough memory for this operation (see LimitMemoryUsage_vx)");
    } catch (...) {
        Raise<5621>();
    }
    RollBackCall(undo_mark_);
    ThisThread().failed = true;
}

}  // namespace talora
