// The history of an object: steps that can be undone and redone, and what a failing call takes back.
//
// A step is what one call of the interface did, or one group that a caller opened; it consists of
// records, each of which can take back and do again one elementary change.  A record is made, and
// given to the list, before its change is applied; so a change that cannot be recorded does not
// happen.  The list owns the records.  It knows nothing of what they change.
//
// The kept steps stand in a ring, oldest first: those below the redo position can be undone, the
// others redone.  The open step collects the records of the running call, whether undo is on or off.
// When the call fails it is taken back record by record.  When the outermost call of the thread ends it
// is kept, and only then displaces what could be redone; with undo off it is dropped instead.  So one
// mechanism holds for all: after an error the object is what it was.  While an undo or redo runs nothing
// is recorded; nor is what happens outside all calls when undo is off, as no one could take it back.
//
// One thread works on a list at a time: the one that holds the lock of the object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Basic/MultiThread.h"
#include "Talora.h"

namespace talora {

class UndoRecord {
public:
    UndoRecord() = default;
    UndoRecord(const UndoRecord&) = delete;
    UndoRecord& operator=(const UndoRecord&) = delete;
    virtual ~UndoRecord() = default;
    // All that it holds now, itself included.
    virtual size_t Bytes() const noexcept = 0;
    // Which kind of change; above 0 and below kNumUndoCodes.
    virtual int Code() const noexcept = 0;
    virtual void Undo() noexcept = 0;
    virtual void Redo() noexcept = 0;

    uint64_t sequence = 0;  // given by the list; grows within a thread
};
constexpr int kNumUndoCodes = 32;

struct UndoStep {
    uint64_t stamp = 0;  // grows with each step
    std::string text;    // for the user, "add link Smoking -> Cancer"
    std::vector<std::unique_ptr<UndoRecord>> records;
    size_t bytes = 0;

    size_t CountBytes() const noexcept;
    void Undo() noexcept;
    void Redo() noexcept;
};

// The kept steps: a ring buffer that grows by doubling.
class UndoRing {
public:
    size_t size() const { return size_; }
    UndoStep& operator[](size_t index) { return slots_[(oldest_ + index) & (slots_.size() - 1)]; }
    const UndoStep& operator[](size_t index) const { return slots_[(oldest_ + index) & (slots_.size() - 1)]; }
    void Reserve();  // room for one more
    void PushNewest(UndoStep&& step) noexcept;
    void PopNewest() noexcept;
    void PopOldest() noexcept;

private:
    std::vector<UndoStep> slots_;  // a power of two of them
    size_t oldest_ = 0;
    size_t size_ = 0;
};

class UndoList {
public:
    UndoList() = default;
    ~UndoList();
    UndoList(const UndoList&) = delete;
    UndoList& operator=(const UndoList&) = delete;

    // ---- Limits.  A memory limit of 0 beside a count limit does not limit memory. ----
    void SetLimits(int count, double memory);  // both 0 or more; turns on or off, and trims
    int CountLimit() const { return count_limit_; }
    double MemoryLimit() const { return memory_limit_; }
    void TurnOn();  // fails with 3595 when both limits are 0
    void TurnOff() noexcept;
    bool IsOn() const { return is_on_; }
    // Fails while an operation is recording, as in a callback from it.
    void CheckIdle() const;

    // ---- Recording ----
    bool IsRecording() const { return !is_undoing_ && (is_on_ || (this_thread.depth > 0 && !skips_call_)); }
    // Adds a record to the open step and lets it make its change.  The first text given to a step stays.
    void Do(std::unique_ptr<UndoRecord> record, std::string text);
    // Whether the open step has yet to be named; never when undo is off.
    bool NeedsText() const { return is_on_ && !(has_open_ && !open_.text.empty()); }
    // For an object made by the running call, which deletes it if it fails: with undo off, nothing is
    // recorded until that call ends.
    void SkipCall() noexcept;
    void SetText(std::string text);  // opens a step if none is open
    // From here on until Derive(false), records belong to the last step without being a change of their own
    // (results of that step worked out later), and nothing that can be redone is lost.
    void Derive(bool derives) { derives_ = derives; }
    // What the open step has done so far stays, even if the call fails.
    void Commit() noexcept;

    // ---- Groups, nested as the caller likes; the outermost one makes a step ----
    void OpenGroup(std::string text);
    void CloseGroup();
    // Takes back what was done since the outermost group was opened; so is what may still be done until
    // that group is closed.
    void AbortGroup();
    undogroup_vx GroupStatus() const { return group_; }

    // ---- Walking.  False when there is nothing; fails when a group is open. ----
    bool Undo();
    bool Redo();
    int NumUndos() const { return int(redo_position_); }
    int NumRedos() const { return int(ring_.size() - redo_position_); }
    // 0 is the next; null beyond the last.
    const std::string* UndoText(int index) const;
    const std::string* RedoText(int index) const;
    double Memory() const { return double(memory_); }

private:
    friend void RollBackCall(uint64_t mark) noexcept;
    friend void EndCalls(const UndoList* opened_before) noexcept;

    void Open();
    void Enlist() noexcept;
    void Delist() noexcept;
    void RollBack(uint64_t mark) noexcept;
    void EndStep() noexcept;  // of the outermost call
    void Keep(UndoStep&& step) noexcept;
    void DoDerived(std::unique_ptr<UndoRecord> record);
    void DiscardOldest() noexcept;
    void DiscardNewest() noexcept;
    void Trim(size_t added_bytes, size_t added_steps) noexcept;
    void CheckCanWalk(const UndoStep* step) const;

    UndoRing ring_;
    size_t redo_position_ = 0;
    size_t memory_ = 0;  // of the kept steps
    int count_limit_ = 0;
    double memory_limit_ = 0;
    bool is_on_ = false;
    bool is_undoing_ = false;
    bool derives_ = false;
    bool skips_call_ = false;
    bool has_open_ = false;
    UndoStep open_;
    uint64_t committed_ = 0;  // sequence up to which a failure takes nothing back
    uint64_t next_stamp_ = 1;
    undogroup_vx group_ = NO_UNDO_GROUP;
    int group_depth_ = 0;
    UndoList* next_open_ = nullptr;  // lists with an open step of this thread's calls
    bool is_listed_ = false;
};

// ---- For the entry frame ----

// The mark to roll back to if a call fails that begins now.
uint64_t CallMark() noexcept;
void RollBackCall(uint64_t mark) noexcept;
// A call ends: the steps opened in it are kept.  Those of the calls around it, in one of whose handlers it
// was made, stay open.
const UndoList* OpenedByCalls() noexcept;
void EndCalls(const UndoList* opened_before = nullptr) noexcept;

}  // namespace talora
