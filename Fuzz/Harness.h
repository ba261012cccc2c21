// What the fuzz targets share: an environment with a small memory limit in which long operations are
// halted, the checks after each input, and the greatest amount of memory that was in use.
//
// A broken promise ends the process with one line on stderr that says which, so that a fuzzer and the
// replay both see it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Support/Bytes.h"
#include "Talora.h"

namespace fuzz {

constexpr int64_t kMemoryLimit = 64 << 20;     // of the library
constexpr int64_t kMemoryAllowance = 4 << 20;  // for what the limit does not count: names, records
constexpr int kHaltMilliseconds = 250;

// Time that the process has computed.  Halts count it, so that a busy machine stops nothing early.
struct ComputingClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<ComputingClock>;
    static constexpr bool is_steady = true;
    static time_point now() noexcept;
};

// Says what was promised and ends the process, if the condition does not hold.
void Check(bool condition, const char* promise);

// The environment of the process: made with the first call and never closed.  Its random generator has a
// fixed seed, files do not hold when they were written, and everything is validated (checking level 4).
environ_vx* Environ();

// Around the work on one input: clears the records of the one before, lets operations run until they are
// halted, and at its end checks that no internal error was recorded, that memory stayed within the limit, and
// that what the input made is gone again.
class Input {
public:
    Input();
    ~Input();
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    // Whether an operation on this input was stopped for taking long: what came of it says little.
    static bool WasHalted();
    static void RestartClock();
};

// Number of the newest record of at least this severity, 0 for none; all are then cleared.
int TakenError(errseverity_vx severity = ERROR_SEVERITY);
// The message that went with it.
const std::string& TakenMessage();

// Bytes on the heap now, and the most since the last call of ResetPeak.
int64_t HeapInUse();
int64_t HeapPeak();
void ResetPeak();

// Bytes as a stream in memory; the caller deletes it.
stream_vx* NewStreamOf(std::string_view bytes, const char* name, const char* password = nullptr);
net_bn* ReadNetOf(std::string_view bytes, const char* name, const char* password = nullptr);
// "" if it cannot be written.
std::string WriteNetTo(const net_bn* net, const char* name, const char* password = nullptr);

// Reads bytes that may be a net.  An accepted one is valid, and is the same bytes when it is written, read
// and written again; a refused one left a record.  @return whether it was accepted
bool CheckNetBytes(std::string_view bytes, const char* name, const char* password = nullptr);

using talora::Bytes;

}  // namespace fuzz
