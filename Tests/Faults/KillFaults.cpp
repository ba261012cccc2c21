// Processes that end while they save, and power that fails: the file is the old or the new one, whole.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <sstream>
#include <thread>

#include "FaultTest.h"
#include "FileFaults.h"

namespace faults {
namespace {

namespace fs = std::filesystem;

struct Tally {
    int64_t exits = 0, kills = 0, disks = 0;
    int64_t old_files = 0, new_files = 0, torn_lines = 0, temporaries = 0;
};
Tally tally;

bool IsTemporary(const std::string& name)
{
    return name.starts_with(".target") && name.ends_with(".tmp");
}

// Runs work in a process of its own.  @return its status
template <class Work>
int RunChild(Work&& work)
{
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

class KillFaults : public FaultTest {
protected:
    static void TearDownTestSuite()
    {
        printf(
            "%lld exits, %lld kills, %lld disks after losing power: %lld old and %lld new files, "
            "%lld torn lines, %lld temporaries\n",
            static_cast<long long>(tally.exits), static_cast<long long>(tally.kills),
            static_cast<long long>(tally.disks), static_cast<long long>(tally.old_files),
            static_cast<long long>(tally.new_files), static_cast<long long>(tally.torn_lines),
            static_cast<long long>(tally.temporaries));
    }
    void SetUp() override { OpenWorld(w_, folder_); }
    void TearDown() override
    {
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
        CloseWorld(w_);
    }

    net_bn* Read(const std::string& text)
    {
        stream_vx* stream = NewMemoryStream_vx("a.dne", w_.env, nullptr);
        SetStreamContents_vx(stream, text.data(), static_cast<int64_t>(text.size()));
        net_bn* net = ReadNet_bn(stream, NO_WINDOW);
        DeleteStream_vx(stream);
        return net;
    }
    bool Save(const net_bn* net, const char* name)
    {
        stream_vx* stream = NewFileStream_vx(w_.Path(name).c_str(), w_.env, nullptr);
        WriteNet_bn(net, stream);
        DeleteStream_vx(stream);
        return NoErrors(w_.env);
    }
    std::string Saved(const net_bn* net, const char* name)
    {
        Save(net, name);
        return FileText(w_.Path(name));
    }

    // The file is one of two, there is at most one temporary, and the next save succeeds.
    void CheckFolder(const char* name, const std::string& old_text, const std::string& new_text)
    {
        const std::string text = FileText(w_.Path(name));
        if (text == old_text)
            ++tally.old_files;
        else if (text == new_text)
            ++tally.new_files;
        else
            ADD_FAILURE() << "a file of " << text.size() << " bytes that is neither the old nor the new one";
        int temporaries = 0;
        for (const auto& entry : fs::directory_iterator(folder_)) {
            const std::string found = entry.path().filename();
            if (found == name) continue;
            EXPECT_TRUE(IsTemporary(found)) << found;
            ++temporaries;
        }
        EXPECT_LE(temporaries, 1);
        tally.temporaries += temporaries;
        EXPECT_EQ(Saved(w_.net, name), new_text);
        // What was left went with that save.
        for (const auto& entry : fs::directory_iterator(folder_)) EXPECT_EQ(entry.path().filename(), name);
    }

    World w_;
};

TEST_F(KillFaults, ExitAtEveryOperationOfSaving)
{
    for (const char* name : {"target.dne", "target.tala"}) {
        SCOPED_TRACE(name);
        Empty();
        SetReproducibleRandom_vx(w_.env, true);  // no time of writing in the file
        const std::string new_text = Saved(w_.net, name), old_text = "the old file";
        for (const Trouble trouble : {Trouble::EXIT, Trouble::EXIT_HALFWAY}) {
            int ended = 1;
            for (int64_t n = 1; n < 100 && ended > 0; ++n) {
                SCOPED_TRACE(n);
                PutFile(w_.Path(name), old_text);
                bool passed = false;
                const int status = RunChild([&] {
                    FileFaults faults;
                    faults.Arm(n, trouble, Repeat::ONCE);
                    Save(w_.net, name);
                    _exit(faults.Count() < n ? 7 : 0);  // 7: there is no n-th operation
                });
                ASSERT_TRUE(WIFEXITED(status));
                passed = WEXITSTATUS(status) == 7;
                tally.exits += WEXITSTATUS(status) == 9;
                CheckFolder(name, old_text, new_text);
                if (passed) ended = 0;
            }
        }
    }
}

TEST_F(KillFaults, KilledAtRandomTimesWhileSaving)
{
    SetReproducibleRandom_vx(w_.env, true);
    const struct {
        const char* label;
        int num_nodes, kills, long_kills;
        int longest;  // microseconds after which to kill
    } kSizes[] = {
        {"1 KB", 4, 30, 300, 12000},
        {"1 MB", 5000, 20, 180, 60000},
        {"50 MB", 250000, 0, 20, 1500000},
    };
    std::mt19937 random(7);
    for (const auto& size : kSizes) {
        SCOPED_TRACE(size.label);
        const int kills = IsLong() ? size.long_kills : size.kills;
        if (kills == 0) continue;
        net_bn* const other = w_.net;  // small, so that the files differ
        w_.net = Read(LargeNetText(size.num_nodes));
        ASSERT_NE(w_.net, nullptr);
        const std::string old_text = Saved(other, "target.dne"), new_text = Saved(w_.net, "target.dne");
        for (int i = 0; i < kills; ++i) {
            Save(other, "target.dne");
            const pid_t child = fork();
            if (child == 0) {
                for (;;) {
                    if (!Save(w_.net, "target.dne") || !Save(other, "target.dne")) _exit(1);
                }
            }
            std::this_thread::sleep_for(std::chrono::microseconds(random() % unsigned(size.longest)));
            kill(child, SIGKILL);
            int status = 0;
            waitpid(child, &status, 0);
            EXPECT_TRUE(WIFSIGNALED(status));
            ++tally.kills;
            CheckFolder("target.dne", old_text, new_text);
        }
        DeleteNet_bn(other);
    }
}

// ---- Appended cases ----

class AppendFaults : public KillFaults {
protected:
    void SetUp() override
    {
        KillFaults::SetUp();
        for (const char* name : {"Rain", "Wet", "Shoes"}) EnterFinding_bn(w_.Node(name), 0);
        cases_ = w_.Path("target.cas");
    }
    bool Append(int64_t id)
    {
        stream_vx* stream = NewFileStream_vx(cases_.c_str(), w_.env, nullptr);
        const bool done = WriteNetFindings_bn(w_.All(), stream, id, -1) >= 0;
        DeleteStream_vx(stream);
        return done;
    }
    // Whole cases 1, 2, 3 ... and at most a torn line; the next case stands on its own.  @return how many
    int CheckCases()
    {
        const std::string text = FileText(cases_);
        std::istringstream lines(text);
        std::string line;
        int count = 0;
        bool torn = false;
        std::getline(lines, line);  // version
        std::getline(lines, line);
        std::getline(lines, line);  // names
        while (std::getline(lines, line)) {
            EXPECT_FALSE(torn);
            torn = lines.eof();
            if (torn) break;
            EXPECT_EQ(line, std::to_string(++count) + kCase);
        }
        tally.torn_lines += torn;
        ClearErrors_vx(w_.env, INTERNAL_SEVERITY);
        EXPECT_TRUE(Append(777));
        EXPECT_EQ(GetError_vx(w_.env, WARNING_SEVERITY, 6535, nullptr) != nullptr, torn) << text;
        EXPECT_EQ(FileText(cases_), text + (torn ? "\n" : "") + "777" + kCase + "\n");
        fs::resize_file(cases_, text.size());
        return count;
    }

    std::string cases_;
    const std::string kCase = "\tyes\t*\tyes\t*\t*\tclean";
};

TEST_F(AppendFaults, ExitAtEveryOperation)
{
    for (const Trouble trouble : {Trouble::EXIT, Trouble::EXIT_HALFWAY}) {
        for (int64_t n = 1;; ++n) {
            SCOPED_TRACE(n);
            fs::remove(cases_);
            ASSERT_TRUE(Append(1) && Append(2));
            const int status = RunChild([&] {
                FileFaults faults;
                faults.Arm(n, trouble, Repeat::ONCE);
                Append(3);
                _exit(faults.Count() < n ? 7 : 0);
            });
            tally.exits += WEXITSTATUS(status) == 9;
            EXPECT_GE(CheckCases(), 2);
            if (WEXITSTATUS(status) == 7) break;
        }
    }
}

TEST_F(AppendFaults, KilledAtRandomTimes)
{
    std::mt19937 random(8);
    for (int i = 0; i < (IsLong() ? 100 : 10); ++i) {
        fs::remove(cases_);
        ASSERT_TRUE(Append(1));
        const pid_t child = fork();
        if (child == 0) {
            for (int64_t id = 2;; ++id)
                if (!Append(id)) _exit(1);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 8000));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        ++tally.kills;
        EXPECT_GE(CheckCases(), 1);
    }
}

// ---- Power ----

class PowerFaults : public KillFaults {
protected:
    // All disks that there may be after each operation of a save.
    std::vector<Disk> DisksOfSaving(const char* name, const std::string& old_text, bool loses_syncs = false)
    {
        PutFile(w_.Path(name), old_text);
        FileFaults faults;
        faults.StartLog();
        Save(w_.net, name);
        std::vector<LoggedOperation> log = faults.Log();
        if (loses_syncs)
            std::erase_if(log, [&](const LoggedOperation& done) {
                return done.kind == Operation::SYNC && done.path.ends_with(".tmp");
            });
        Disk before;
        before.files[w_.Path(name)] = old_text;
        std::vector<Disk> all;
        for (size_t length = 0; length <= log.size(); ++length)
            for (Disk& disk : DisksAfter(log, before, length)) all.push_back(std::move(disk));
        // With everything done, the new file is there to stay.
        for (const Disk& disk : DisksAfter(log, before, log.size()))
            EXPECT_TRUE(loses_syncs || disk.files.at(w_.Path(name)) != old_text);
        return all;
    }
};

TEST_F(PowerFaults, FileIsTheOldOrTheNewOne)
{
    SetReproducibleRandom_vx(w_.env, true);
    for (const char* name : {"target.dne", "target.tala"}) {
        SCOPED_TRACE(name);
        const std::string new_text = Saved(w_.net, name), old_text = "the old file";
        for (const Disk& disk : DisksOfSaving(name, old_text)) {
            Empty();
            for (const auto& [path, text] : disk.files) PutFile(path, text);
            ++tally.disks;
            CheckFolder(name, old_text, new_text);
            if (HasFailure()) return;
        }
    }
}

// The check itself: without the sync before the rename there are disks with a file cut or empty.
TEST_F(PowerFaults, WouldShowAMissingSync)
{
    const std::string new_text = Saved(w_.net, "target.dne");
    const std::vector<Disk> disks = DisksOfSaving("target.dne", "the old file", true);
    EXPECT_TRUE(std::any_of(disks.begin(), disks.end(), [&](const Disk& disk) {
        const std::string& text = disk.files.at(w_.Path("target.dne"));
        return text != new_text && text != "the old file";
    }));
}

// Appended cases are not synced: the file may have lost its end, wherever that was cut.
TEST_F(AppendFaults, LostPowerCutsTheEndAtMost)
{
    for (int64_t id = 1; id <= 3; ++id) ASSERT_TRUE(Append(id));
    const std::string whole = FileText(cases_);
    const size_t first = whole.find("\n1\t") + 1;
    int counts[4] = {};
    for (size_t length = first; length <= whole.size(); ++length) {
        PutFile(cases_, whole.substr(0, length));
        ++tally.disks;
        const int count = CheckCases();
        ASSERT_LE(count, 3);
        ++counts[count];
    }
    EXPECT_EQ(counts[3], 1);
}

}  // namespace
}  // namespace faults
