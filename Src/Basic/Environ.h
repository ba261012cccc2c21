// The environment: the settings that govern calls, the handlers of the front end, and the nets.
//
// It owns its nets, node lists, streams and error records; closing it frees them.  Settings that
// hold for the whole process (checking level, memory limit, concurrency) are not here.  Settings are read
// by calls on different nets while another thread sets them, hence atomic.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <mutex>
#include <string>
#include <vector>

#include "Basic/Error.h"
#include "Basic/FloatMode.h"
#include "Basic/Handle.h"
#include "Basic/RandomNum.h"
#include "Basic/Secret.h"
#include "Talora.h"

namespace talora {

constexpr int MAX_NUM_ENVIROS = 64;

enum EnvironState { CREATED_ENV, PARTIAL_ENV, READY_ENV, CLOSED_ENV };

// Whose words messages use.
enum Flavor { INTERFACE_FLAVOR, PROGRAMMING_FLAVOR, AUTOMATION_FLAVOR, MANAGED_FLAVOR };

// A handler of the front end with what is passed to it: set by one thread while others call it.
template <class Function>
class Handler {
public:
    struct Call {
        Function function = nullptr;
        void* data = nullptr;
    };
    void Set(Function function, void* data)
    {
        std::lock_guard guard(mutex_);
        call_ = {function, data};
        is_set_.store(function != nullptr, std::memory_order_relaxed);
    }
    bool IsSet() const { return is_set_.load(std::memory_order_relaxed); }
    Call Get() const
    {
        if (!IsSet()) return {};
        std::lock_guard guard(mutex_);
        return call_;
    }

private:
    mutable std::mutex mutex_;
    Call call_;
    std::atomic<bool> is_set_{false};
};

struct WindowPosition {
    int left = -1, top = -1, width = -1, height = -1;
    const char* status = "Regular";
};

}  // namespace talora

struct environ_vx {
    talora::HandleHeader header;
    std::atomic<talora::EnvironState> state{talora::CREATED_ENV};
    std::atomic<void*> user_data{nullptr};
    int num_pins = 0;                     // see PinEnviron
    bool is_closed = false;               // released but for the pins
    std::atomic<int> report_limit{1000};  // reports shown per thread
    std::mutex
        mutex;  // guards the lists below, which functions on different nets change, and the nets' names
    std::vector<net_bn*> nets;
    std::vector<nodelist_bn*> lists;  // made for callers
    std::vector<stream_vx*> streams;
    std::vector<randgen_vx*> random_gens;  // made for callers
    std::vector<caseset_cs*> casesets;
    std::vector<dbmgr_cs*> dbmgrs;
    std::vector<learner_bn*> learners;

    talora::RandomState random = talora::SeededState(0);  // the default generator, under RandomLock
    // Seeds from the clock become a mere count; files hold no time of writing.
    std::atomic<bool> reproducible{false};

    std::string name;
    bool remote = false;
    std::atomic<talora::Flavor> flavor{talora::PROGRAMMING_FLAVOR};
    std::atomic<bool> check_findings{false};
    std::atomic<bool> inherit_in_first_pass{false};  // of net files, see BnParse.h
    std::atomic<char> case_delimiter{'\t'};          // of case files that are written: comma, blank or tab
    std::atomic<char> missing_char{'*'};             // of case files; 0 for none
    std::atomic<bool> always_try_large{false};       // the user wants large tables tried without a question
    int user_allowed = 4;
    talora::WindowPosition window;
    std::atomic<bool> halt{false};

    talora::Handler<question_handler_vx> question_handler;
    talora::Handler<progress_handler_vx> progress_handler;
    talora::Handler<message_handler_vx> message_handler;
    talora::Handler<password_handler_vx> password_handler;

    std::atomic<char> file_cipher{'G'};  // what encrypted files are written with, see BN/Files/NetCipher.h
    std::atomic<int> max_key_iterations{2000000};  // of files that are read: a file may not ask for more work
};

namespace talora {

// Environments in the order in which they were made; the default is the last one that is open.
environ_vx* NewEnviron();                       // at most MAX_NUM_ENVIROS
void ReleaseEnviron(environ_vx* env) noexcept;  // the record alone
environ_vx* DefaultEnviron();                   // null when none is open
// For calls that hold no lock which closing would wait for: the record of an environment that is open stays
// until the last call has unpinned it, though the environment may be closed meanwhile.  Null if it is not
// open.
environ_vx* PinEnviron(const environ_vx* env) noexcept;
environ_vx* PinDefaultEnviron() noexcept;
void UnpinEnviron(environ_vx* env) noexcept;

int CheckingLevel();  // 1 to 4, whole library
void SetCheckingLevel(int level);

// Calls a handler of the front end, in the floating-point mode of the caller.  An exception that leaves it
// goes no further, as there may be no C++ around the library to catch it: the call under way fails.
template <class Call>
auto RunHandler(const char* kind, Call&& call)
{
    char what[200] = "of a type that is no std::exception";
    try {
        const CallerFloatMode caller;
        return call();
    } catch (const std::exception& exception) {
        CopyText(what, exception.what());
    } catch (...) {
        // There is nothing to read in it.
    }
    Fail<7300>(kind, static_cast<const char*>(what));
}

// Puts a question to the front end; the index of the answer, that of the default without a handler.
int AskQuestion(const char* question, const char* answers, const char* deflt);

// Shows a text in the messages window of the current environment's front end; lost without a handler.
void PrintMessage(const std::string& text);

// Asks the front end for a password; none without a handler, or when the user gives none.
Secret AskPassword(const char* question);

}  // namespace talora
