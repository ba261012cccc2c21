// The history of a net: a ring of steps, its limits, groups of steps, undoing and redoing.
#include "Basic/Undo.h"

#include <algorithm>
#include <atomic>
#include <cmath>

#include "Basic/Error.h"

namespace talora {

namespace {

constexpr size_t kFirstCapacity = 16;
constexpr size_t kKeptRecords = 16;  // room that stays for the records of the next call when undo is off

// Of all threads together: a group may be filled by several of them in turn.
std::atomic<uint64_t> last_sequence{0};

// Lists in which the running calls of this thread have recorded something, the innermost call's first.
thread_local UndoList* first_open = nullptr;

}  // namespace

// ---- Steps ----

size_t UndoStep::CountBytes() const noexcept
{
    size_t total = sizeof(UndoStep) + text.capacity() + records.capacity() * sizeof(records[0]);
    for (const auto& record : records) total += record->Bytes();
    return total;
}

// Backwards, as each record restores what was there before it was done.
void UndoStep::Undo() noexcept
{
    for (auto record = records.rbegin(); record != records.rend(); ++record) (*record)->Undo();
}

void UndoStep::Redo() noexcept
{
    for (const auto& record : records) record->Redo();
}

// ---- The ring ----

// Doubles the slots, in order from the oldest. Their number is a power of two, so that indices wrap by a
// mask.
void UndoRing::Reserve()
{
    if (size_ < slots_.size()) return;
    std::vector<UndoStep> larger(std::max(kFirstCapacity, 2 * slots_.size()));
    for (size_t i = 0; i < size_; ++i) larger[i] = std::move((*this)[i]);
    slots_ = std::move(larger);
    oldest_ = 0;
}

void UndoRing::PushNewest(UndoStep&& step) noexcept
{
    (*this)[size_++] = std::move(step);
}

void UndoRing::PopNewest() noexcept
{
    (*this)[--size_] = UndoStep();
}

void UndoRing::PopOldest() noexcept
{
    slots_[oldest_] = UndoStep();
    oldest_ = (oldest_ + 1) & (slots_.size() - 1);
    --size_;
}

// ---- Limits ----

UndoList::~UndoList()
{
    Delist();
}

void UndoList::CheckIdle() const
{
    if ((has_open_ && group_ == NO_UNDO_GROUP) || is_undoing_) Fail<6306>();
}

// Both 0 turns recording off; else it is on, and lower limits take effect at once.
void UndoList::SetLimits(int count, double memory)
{
    CheckIdle();
    TALORA_CHECK(memory == std::floor(memory));
    const bool is_lower =
        count < count_limit_ || (memory > 0 && (memory < memory_limit_ || memory_limit_ == 0));
    count_limit_ = count;
    memory_limit_ = memory;
    if (count == 0 && memory == 0) return TurnOff();
    TurnOn();
    if (is_lower) Trim(0, 0);
}

void UndoList::TurnOn()
{
    if (count_limit_ == 0 && memory_limit_ == 0) Fail<3595>();
    is_on_ = true;
}

void UndoList::TurnOff() noexcept
{
    Delist();
    is_on_ = false;
    has_open_ = false;
    open_ = UndoStep();
    ring_ = UndoRing();
    redo_position_ = memory_ = 0;
    group_ = NO_UNDO_GROUP;
    group_depth_ = 0;
}

// What can be undone goes first, oldest first; what can be redone goes from the newest end, as a step is of
// no use without those before it.
void UndoList::Trim(size_t added_bytes, size_t added_steps) noexcept
{
    const double excess = memory_limit_ == 0 ? 0 : double(memory_) + double(added_bytes) - memory_limit_;
    const size_t keep = size_t(std::max(count_limit_, 1)) - added_steps;
    double freed = 0;
    uint64_t cut = 0;
    for (size_t i = 0; i < redo_position_; ++i) {
        if (freed >= excess && ring_.size() - i <= keep) break;
        freed += double(ring_[i].bytes);
        cut = ring_[i].stamp;
    }
    while (redo_position_ > 0 && ring_[0].stamp <= cut) DiscardOldest();
    while (redo_position_ < ring_.size() &&
           (ring_.size() > keep || (memory_limit_ > 0 && double(memory_) > memory_limit_)))
        DiscardNewest();
}

void UndoList::DiscardOldest() noexcept
{
    memory_ -= ring_[0].bytes;
    ring_.PopOldest();
    --redo_position_;
}

void UndoList::DiscardNewest() noexcept
{
    memory_ -= ring_[ring_.size() - 1].bytes;
    ring_.PopNewest();
}

// ---- Recording ----

// Takes the room for the step now, so that ending it cannot fail.
void UndoList::Open()
{
    if (has_open_) return;
    if (is_on_) ring_.Reserve();
    has_open_ = true;
    committed_ = 0;
}

// The entry frame finds the list and ends the step when the call returns.
void UndoList::Enlist() noexcept
{
    if (is_listed_) return;
    is_listed_ = true;
    next_open_ = first_open;
    first_open = this;
}

void UndoList::Delist() noexcept
{
    if (!is_listed_) return;
    UndoList** link = &first_open;
    while (*link != nullptr && *link != this) link = &(*link)->next_open_;
    if (*link != nullptr) *link = next_open_;
    is_listed_ = false;
}

void UndoList::SkipCall() noexcept
{
    skips_call_ = this_thread.depth > 0;
    if (skips_call_) Enlist();
}

void UndoList::SetText(std::string text)
{
    Open();
    Enlist();
    if (open_.text.empty()) open_.text = std::move(text);
}

// Every change comes through here: recorded first, done afterwards, so that memory runs out before anything
// changes.
void UndoList::Do(std::unique_ptr<UndoRecord> record, std::string text)
{
    record->sequence = ++last_sequence;
    if (derives_ && open_.records.empty()) return DoDerived(std::move(record));
    Open();
    open_.records.push_back(std::move(record));
    if (open_.text.empty()) open_.text = std::move(text);
    Enlist();
    open_.records.back()->Redo();
}

// Before the first step there is nothing to undo the change with: it stays, as the state to begin with.
void UndoList::DoDerived(std::unique_ptr<UndoRecord> record)
{
    if (redo_position_ == 0) return record->Redo();
    UndoStep& last = ring_[redo_position_ - 1];
    last.records.push_back(std::move(record));
    last.records.back()->Redo();
    memory_ -= last.bytes;
    last.bytes = last.CountBytes();
    memory_ += last.bytes;
}

void UndoList::Commit() noexcept
{
    if (has_open_) committed_ = last_sequence;
}

// Takes back what was recorded after a mark, but never what was committed.
void UndoList::RollBack(uint64_t mark) noexcept
{
    mark = std::max(mark, committed_);
    is_undoing_ = true;
    while (!open_.records.empty() && open_.records.back()->sequence > mark) {
        open_.records.back()->Undo();
        open_.records.pop_back();
    }
    is_undoing_ = false;
}

// An open group goes on with the next call.  With undo off there is nothing to keep: deleted objects that the
// records own go now.
void UndoList::EndStep() noexcept
{
    skips_call_ = false;
    if (!has_open_ || group_ != NO_UNDO_GROUP) return;
    has_open_ = false;
    if (!is_on_) {
        open_.records.clear();
        if (open_.records.capacity() > kKeptRecords) open_ = UndoStep();
        return;
    }
    UndoStep step = std::move(open_);
    open_ = UndoStep();
    if (!step.records.empty()) Keep(std::move(step));
}

// A new step discards those that could be redone, then makes room for itself within the limits.
void UndoList::Keep(UndoStep&& step) noexcept
{
    while (redo_position_ < ring_.size()) DiscardNewest();
    step.stamp = next_stamp_++;
    step.bytes = step.CountBytes();
    Trim(step.bytes, 1);
    memory_ += step.bytes;
    ring_.PushNewest(std::move(step));
    ++redo_position_;
}

// ---- Groups ----

void UndoList::OpenGroup(std::string text)
{
    if (group_depth_ == 0) {
        if (has_open_) Fail<6301>();
        Open();
        open_.text = std::move(text);
        group_ = OPEN_UNDO_GROUP;
    }
    ++group_depth_;
}

// Of an aborted group only what was still done after aborting is left to be taken back.
void UndoList::CloseGroup()
{
    if (group_depth_ == 0) Fail<6302>();
    if (--group_depth_ > 0) return;
    if (group_ == ABORTED_UNDO_GROUP) {
        committed_ = 0;
        RollBack(0);
    }
    group_ = NO_UNDO_GROUP;
    EndStep();
}

void UndoList::AbortGroup()
{
    if (group_depth_ == 0) Fail<6303>();
    group_ = ABORTED_UNDO_GROUP;
    committed_ = 0;
    RollBack(0);
}

// ---- Walking ----

// Undoing and redoing wait for open groups, and refuse a step with a record that no code stands for.
void UndoList::CheckCanWalk(const UndoStep* step) const
{
    if (group_ == OPEN_UNDO_GROUP) Fail<6304>();
    if (group_ == ABORTED_UNDO_GROUP) Fail<6305>();
    CheckIdle();
    if (step == nullptr) return;
    for (const auto& record : step->records)
        if (record->Code() <= 0 || record->Code() >= kNumUndoCodes) Fail<6307>(record->Code());
}

// The records may grow or shrink when they exchange values, so the step's bytes are counted anew.
bool UndoList::Undo()
{
    UndoStep* step = redo_position_ > 0 ? &ring_[redo_position_ - 1] : nullptr;
    CheckCanWalk(step);
    if (step == nullptr) return false;
    is_undoing_ = true;
    step->Undo();
    is_undoing_ = false;
    memory_ -= step->bytes;
    step->bytes = step->CountBytes();
    memory_ += step->bytes;
    --redo_position_;
    return true;
}

bool UndoList::Redo()
{
    UndoStep* step = redo_position_ < ring_.size() ? &ring_[redo_position_] : nullptr;
    CheckCanWalk(step);
    if (step == nullptr) return false;
    is_undoing_ = true;
    step->Redo();
    is_undoing_ = false;
    memory_ -= step->bytes;
    step->bytes = step->CountBytes();
    memory_ += step->bytes;
    ++redo_position_;
    return true;
}

const std::string* UndoList::UndoText(int index) const
{
    return index < NumUndos() ? &ring_[redo_position_ - 1 - index].text : nullptr;
}

const std::string* UndoList::RedoText(int index) const
{
    return index < NumRedos() ? &ring_[redo_position_ + index].text : nullptr;
}

// ---- For the entry frame ----

uint64_t CallMark() noexcept
{
    return last_sequence.load(std::memory_order_relaxed);
}

// A call that fails takes back what it has done, in all nets that it changed.
void RollBackCall(uint64_t mark) noexcept
{
    for (UndoList* list = first_open; list != nullptr; list = list->next_open_) list->RollBack(mark);
}

const UndoList* OpenedByCalls() noexcept
{
    return first_open;
}

void EndCalls(const UndoList* opened_before) noexcept
{
    while (first_open != nullptr && first_open != opened_before) {
        UndoList& list = *first_open;
        first_open = list.next_open_;
        list.is_listed_ = false;
        list.EndStep();
    }
}

}  // namespace talora
