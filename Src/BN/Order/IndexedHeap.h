// Priority queue over the items 0 .. n-1 whose keys change: a 4-ary heap that knows where each
// item stands, so that an update costs O(log n) and no stale entries pile up.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace talora {

// Key needs operator<; the smallest comes out first.
template <typename Key>
class IndexedHeap {
public:
    explicit IndexedHeap(int num_items) : place_(num_items, kAbsent) { entries_.reserve(num_items); }

    bool IsEmpty() const { return entries_.empty(); }
    bool Contains(int item) const { return place_[item] != kAbsent; }
    int Smallest() const { return entries_.front().item; }
    const Key& SmallestKey() const { return entries_.front().key; }

    // Adds the item, or gives it another key.
    void Set(int item, const Key& key)
    {
        if (!Contains(item)) {
            entries_.push_back({key, item});
            Raise(entries_.size() - 1, {key, item});
            return;
        }
        size_t at = place_[item];
        if (key < entries_[at].key)
            Raise(at, {key, item});
        else
            Sink(at, {key, item});
    }

    void Remove(int item)
    {
        size_t at = place_[item];
        place_[item] = kAbsent;
        Entry last = entries_.back();
        entries_.pop_back();
        if (at == entries_.size()) return;
        if (last.key < entries_[at].key)
            Raise(at, last);
        else
            Sink(at, last);
    }

private:
    struct Entry {
        Key key;
        int item;
    };
    static constexpr int kAbsent = -1;
    static constexpr size_t kArity = 4;

    void Raise(size_t at, Entry entry)
    {
        while (at > 0) {
            size_t parent = (at - 1) / kArity;
            if (!(entry.key < entries_[parent].key)) break;
            Put(at, entries_[parent]);
            at = parent;
        }
        Put(at, entry);
    }

    void Sink(size_t at, Entry entry)
    {
        for (;;) {
            size_t first = at * kArity + 1;
            if (first >= entries_.size()) break;
            size_t end = std::min(first + kArity, entries_.size());
            size_t least = first;
            for (size_t child = first + 1; child < end; ++child)
                if (entries_[child].key < entries_[least].key) least = child;
            if (!(entries_[least].key < entry.key)) break;
            Put(at, entries_[least]);
            at = least;
        }
        Put(at, entry);
    }

    void Put(size_t at, const Entry& entry)
    {
        entries_[at] = entry;
        place_[entry.item] = static_cast<int>(at);
    }

    std::vector<Entry> entries_;
    std::vector<int> place_;  // by item: index in entries_, or kAbsent
};

}  // namespace talora
