// The entry frame: what every interface function runs around its work, and the argument checks.
//
//   int LengthNodeList_bn(const nodelist_bn* list)
//   {
//       return CallApi(__func__, list, -1, [&] { return Length(*list); });
//   }
//
// CallApi takes the lock of the concurrency mode, makes the function current for the thread, checks
// the handle to the current level, runs the body with denormals off and turns every failure into an
// error record and the preset failure value.  Nothing leaves it as an exception.  Handles beyond the
// first, names and options are checked inside the body with the functions below.
//
// Functions without a handle, or with an environment that may be NULL, use CallEnviron; functions
// with two handles use CallApi2.  What else a function uses is said with the first handle, so that all of it
// is locked from the start:
//
//   CallApi(__func__, With(nodes, EntriesOf(nodes)), [&] { ReviseByFindings(nodes->nodes, degree); });
//
// A handler may call the interface again, also with the objects that are being worked on, but only to
// read them: where the handle's type is not const, the call is refused.
#pragma once

#include <string>
#include <tuple>
#include <type_traits>

#include "Basic/Environ.h"
#include "Basic/Error.h"
#include "Basic/FloatMode.h"
#include "Basic/MultiThread.h"
#include "Basic/Undo.h"
#include "Talora.h"

namespace talora {

// ---- Handles.  HandleKinds.inc has a row for each kind. ----

template <class H>
struct HandleTraits {
    static constexpr HandleKind kKind = DELETED_TYPE;
    static constexpr char kLetter = 0;  // as in ApiFunctions.inc; 0 for what is no handle
    static constexpr bool kIsOfNet = false;
};

// CheckHandle     fails with a message of the row from checking level 2 on; a list may hold NULL entries
// ValidateHandle  full consistency of the object's net, run at level 4
// EnvironOf       the environment an object belongs to; null if the handle is null, deleted or damaged
#define TALORA_HANDLE(type, kind, letter, of_a_net, alive, null, deleted, damaged, remote, environment, net) \
    void CheckHandle(const type* object);                                                                    \
    void ValidateHandle(const type* object);                                                                 \
    environ_vx* EnvironOf(const type* object);                                                               \
    template <>                                                                                              \
    struct HandleTraits<type> {                                                                              \
        static constexpr HandleKind kKind = kind;                                                            \
        static constexpr char kLetter = letter;                                                              \
        static constexpr bool kIsOfNet = of_a_net;                                                           \
    };
#include "Talora/HandleKinds.inc"
#undef TALORA_HANDLE

// An environment passed, or the default one.  Checked at every level, as there is no working without.
void CheckEnviron(const environ_vx* env);
void CheckLocal(const environ_vx& env);  // fails if its objects live elsewhere
bool WasClosed(const environ_vx* env);   // a handle of an environment that has been closed

// Every entry of a list is a live node, as functions need that work on the nodes; or, where that is allowed,
// NULL.  The frame does this for each list of which a function says EntriesOf.
void CheckListEntries(const nodelist_bn* list, bool allows_null);
// The one net that the nodes of a list, which is not empty, are of; fails if they are of several (6881).
net_bn& NetOfAll(const nodelist_bn* list);

// Whether the call is made in a handler of one that works on the net, which is then not to be changed.
bool IsAtWork(const net_bn& net);
[[noreturn]] void FailAtWork();

// The lock kept with a handle's object or net; null for bad handles, environments, reports and callers'
// lists, each of which is for one thread at a time.
template <class H>
RecursiveLock* LockOf(const H* handle)
{
    if (!IsLive(handle, HandleTraits<std::remove_const_t<H>>::kKind)) return nullptr;
    return reinterpret_cast<const HandleHeader*>(handle)->Lock();
}

// Among what a call uses: what has no lock of its own, like another environment.
struct ProcessWide {
    bool is_used;
};
// The nodes of a list that was passed, which may be NULL: their nets are locked, to be changed, and each is
// checked before the body runs.
struct EntriesOf {
    explicit EntriesOf(const nodelist_bn* nodes, bool may_hold_null = false)
        : list(nodes), allows_null(may_hold_null)
    {}
    const nodelist_bn* list;
    bool allows_null;
};

// A handle that is only read, though its type would allow more.
template <class H>
const H* Read(H* handle)
{
    return handle;
}

// A handle with what else the function uses: handles, which are not checked, and the above.
template <class H, class... Used>
struct With {
    explicit With(H* first, const Used&... more) : handle(first), used(more...) {}
    H* handle;
    std::tuple<Used...> used;
};

template <class H>
H* HandleIn(H* handle)
{
    return handle;
}
template <class H, class... Used>
H* HandleIn(const With<H, Used...>& with)
{
    return with.handle;
}

template <class H>
void CheckEntries(H*)
{}
template <class Used>
void CheckEntriesUsed(const Used&)
{}
void CheckEntriesUsed(const EntriesOf& entries);
template <class H, class... Used>
void CheckEntries(const With<H, Used...>& with)
{
    std::apply([](const Used&... used) { (CheckEntriesUsed(used), ...); }, with.used);
}

// Whether functions on the handle do without the process-wide lock.
template <class Pointer>
constexpr bool kHasNet = HandleTraits<std::remove_cv_t<std::remove_pointer_t<Pointer>>>::kIsOfNet;

// ---- Other arguments ----

// A name passed: NULL 5114, empty 5142; from level 3 on illegal 5118.  @return it as narrow text
std::string NameArgument(const char* name, const char* argument, bool allow_star = false);
// A text passed: NULL gives "", wide is converted.
std::string TextArgument(const char* text);
// 'options' must be empty or NULL.
void CheckNoOptions(const char* options);
// Splits an options string; a word that is not among those allowed fails "in argument 'options',".
// @return one bit per allowed word present
uint32_t OptionsArgument(const char* options, std::initializer_list<const char*> allowed);

// ---- The frame ----

class EntryFrame {
public:
    // What the call uses is locked, see CallLocks.
    template <class... Used>
    EntryFrame(const char* function, bool takes_process_lock, const Used&... used) noexcept
    {
        if (takes_process_lock) locks_.Add(&ProcessLock());
        (Use(used), ...);
        Enter(function);
    }
    ~EntryFrame();
    EntryFrame(const EntryFrame&) = delete;
    EntryFrame& operator=(const EntryFrame&) = delete;

    // Found under the lock, as another thread may be deleting the object.  Errors about a dead object go to
    // the default environment, which another thread may be closing.
    template <class H>
    void UseEnviron(const H* handle) noexcept
    {
        environ_vx* env = is_refused_ ? nullptr : EnvironOf(handle);
        if (env == nullptr) env = pinned_env_ = PinDefaultEnviron();
        ThisThread().env = env;
    }
    void UseEnviron(const environ_vx* env) noexcept { ThisThread().env = EnvironOf(env); }
    // Without the process-wide lock.
    void UseUnlockedEnviron(const environ_vx* env) noexcept
    {
        ThisThread().env = pinned_env_ = PinEnviron(env);
    }
    void CheckLocks() const;       // they could be had, and what is to be changed is not at work in a caller
    void CheckReady();             // environment initialised, enough memory to start
    bool Failed() const noexcept;  // an error was raised since the frame was entered
    // Turns the exception being handled into a record, and takes back what the call has changed so far
    // in nets whose edits are recorded.
    void RecordException() noexcept;

private:
    template <class H>
    void Use(H* const& handle) noexcept
    {
        UseLock(LockOf(handle), !std::is_const_v<H>);
    }
    template <class H, class... Used>
    void Use(const With<H, Used...>& with) noexcept
    {
        Use(with.handle);
        std::apply([&](const Used&... used) { (Use(used), ...); }, with.used);
    }
    void Use(const ProcessWide& objects) noexcept { locks_.Add(objects.is_used ? &ProcessLock() : nullptr); }
    void Use(const EntriesOf& entries) noexcept;
    void UseLock(RecursiveLock* lock, bool changes) noexcept;
    void Enter(const char* function) noexcept;

    DenormalsOff float_mode_;
    const char* callers_function_;
    environ_vx* callers_env_;
    environ_vx* pinned_env_ = nullptr;
    bool callers_failed_;
    bool is_refused_ = false;  // the locks could not be had
    bool is_at_work_ = false;  // an object that is to be changed is used by a call of whose handlers this is
    CallLocks locks_;
    const UndoList* open_undo_;  // of the calls around this one
    uint64_t undo_mark_;
};

template <class R, class Body>
R RunFramed(EntryFrame& frame, R failure, Body&& body) noexcept
{
    try {
        frame.CheckLocks();
        frame.CheckReady();
        R result = body();
        return frame.Failed() ? failure : result;
    } catch (...) {
        frame.RecordException();
        return failure;
    }
}

struct NoResult {};

// The body of a function that reads or clears error records: works without an environment too, and adds
// no record of its own about that.
template <class R, class Body>
R CallReports(const char* function, environ_vx* env, R failure, Body&& body) noexcept
{
    EntryFrame frame(function, false);
    frame.UseUnlockedEnviron(env);
    try {
        return body();
    } catch (...) {
        frame.RecordException();
        return failure;
    }
}

// The body of a function on one handle; R is the type of the failure value.
template <class First, class R, class Body>
R CallApi(const char* function, First first, R failure, Body&& body) noexcept
{
    const auto handle = HandleIn(first);
    EntryFrame frame(function, !kHasNet<decltype(handle)>, first);
    frame.UseEnviron(handle);
    return RunFramed(frame, failure, [&]() -> R {
        // Without checking, a NULL handle is not reported; but neither is it followed.
        if (handle == nullptr && CheckingLevel() < CHECK_HANDLES) return failure;
        CheckHandle(handle);
        CheckEntries(first);
        if (CheckingLevel() >= CHECK_OBJECTS) ValidateHandle(handle);
        return static_cast<R>(body());
    });
}

// The same for functions that return nothing.
template <class First, class Body>
void CallApi(const char* function, First first, Body&& body) noexcept
{
    CallApi(function, first, NoResult{}, [&] {
        body();
        return NoResult{};
    });
}

// Two handles, possibly of different nets: both are checked, both nets locked.
template <class First, class H2, class R, class Body>
R CallApi2(const char* function, First first_used, H2* second, R failure, Body&& body) noexcept
{
    const auto first = HandleIn(first_used);
    EntryFrame frame(function, !kHasNet<decltype(first)> && !kHasNet<H2*>, first_used, second);
    frame.UseEnviron(first);
    return RunFramed(frame, failure, [&]() -> R {
        if ((first == nullptr || second == nullptr) && CheckingLevel() < CHECK_HANDLES) return failure;
        CheckHandle(first);
        CheckHandle(second);
        CheckEntries(first_used);
        if (CheckingLevel() >= CHECK_OBJECTS) {
            ValidateHandle(first);
            ValidateHandle(second);
        }
        return static_cast<R>(body());
    });
}

template <class First, class H2, class Body>
void CallApi2(const char* function, First first, H2* second, Body&& body) noexcept
{
    CallApi2(function, first, second, NoResult{}, [&] {
        body();
        return NoResult{};
    });
}

// A function that takes an environment, NULL meaning the default one; the body gets it.
template <class R, class Body>
R CallEnviron(const char* function, environ_vx* env, R failure, Body&& body) noexcept
{
    EntryFrame frame(function, true);
    if (env == nullptr) env = DefaultEnviron();
    frame.UseEnviron(env);
    return RunFramed(frame, failure, [&]() -> R {
        CheckEnviron(env);
        return static_cast<R>(body(*env));
    });
}

template <class Body>
void CallEnviron(const char* function, environ_vx* env, Body&& body) noexcept
{
    CallEnviron(function, env, NoResult{}, [&](environ_vx& checked) {
        body(checked);
        return NoResult{};
    });
}

}  // namespace talora
