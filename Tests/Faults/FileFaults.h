// File operations that can be made to fail, to end the process, or be written down.
//
// While a FileFaults lives it stands in the engine's table of file operations; the operations count from 1.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Basic/SafeFile.h"
#include "CountedMemory.h"

namespace faults {

enum class Operation { OPEN, READ, WRITE, SYNC, CLOSE, RENAME, UNLINK, TRUNCATE };

// What happens at an operation.
enum class Trouble {
    NONE,
    IO_ERROR,     // EIO
    NO_SPACE,     // ENOSPC; a write takes half before
    NO_ACCESS,    // opening and renaming: EACCES
    INTERRUPTED,  // EINTR, before anything is done (closing: afterwards)
    SHORT,        // reads and writes move one byte
    EXIT,         // the process ends instead
    EXIT_HALFWAY  // a write takes half, then the process ends
};

struct LoggedOperation {
    Operation kind;
    std::string path;   // what was opened, written, synced, renamed, removed
    std::string other;  // new name
    std::string bytes;  // of a write
    bool creates = false;
};

class FileFaults {
public:
    FileFaults();
    ~FileFaults();
    FileFaults(const FileFaults&) = delete;
    FileFaults& operator=(const FileFaults&) = delete;

    void Arm(int64_t n, Trouble trouble, Repeat repeat);
    void Disarm();
    int64_t Count() const { return count_; }    // operations since it was armed
    int64_t Failed() const { return failed_; }  // where there was trouble
    // Besides, the memory of the operation's report runs out: from the trouble on this many allocations are
    // left.  -1 for no such fault.
    void RunOutOfMemoryAfter(int64_t allocations) { allocations_left_ = allocations; }

    const std::vector<LoggedOperation>& Log() const { return log_; }
    void StartLog();

    // For the functions that stand in the table.
    Trouble Next(Operation kind);
    bool Logs() const { return logs_; }
    void Note(LoggedOperation operation);
    std::map<int, std::string> paths;  // of open files, while operations are logged
    talora::FileOps real;

private:
    int64_t n_ = 0, count_ = 0, failed_ = 0;
    int64_t allocations_left_ = -1;
    Trouble trouble_ = Trouble::NONE;
    Repeat repeat_ = Repeat::ONCE;
    bool logs_ = false;
    std::vector<LoggedOperation> log_;
};

// What the disk may hold after a loss of power within a logged run: what was not synced is there, is cut or
// is not; names that changed since their folder was synced are the new or the old ones.
struct Disk {
    std::map<std::string, std::string> files;  // contents by path
};
// @param before  what there was before the run
// @param length  so many operations were done
std::vector<Disk> DisksAfter(const std::vector<LoggedOperation>& log, const Disk& before, size_t length);

}  // namespace faults
