// Memory that can be made to fail: operator new of the whole program over malloc, with a countdown.
//
// Every block knows its size and stands in a list, so that what a test has left behind can be found, and
// freed blocks can be searched for bytes that ought to have been overwritten.  Buffers that the engine takes
// with realloc count as well.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace faults {

enum class Repeat { ONCE, FROM_THEN_ON };

// Lets the n-th allocation from now on fail (n from 1), and those after it if asked for.
void FailAllocation(int64_t n, Repeat repeat);
// Ends that.  @return how many allocations have failed
int64_t EndFailing();

int64_t CountAllocations();  // since the program began, failed ones included
int64_t TotalBytes();        // taken since then, given back or not
int64_t LiveBlocks();
// The newest blocks that have been taken after a mark and not given back, as text; for messages of tests.
uint64_t MarkBlocks();
std::string DescribeBlocksSince(uint64_t mark);

int64_t LiveBytes();
int64_t PeakBytes();  // the most that was live since it was reset
void ResetPeak();

// What the system gives when asked for random bytes: NONE refuses, and the device is not there either.
enum class RandomBytes { REAL, FIXED, NONE };
constexpr unsigned char kFixedRandomByte = 0x42;
void GiveRandomBytes(RandomBytes given);

// While any are watched, every block given back is searched for these bytes; the text outlives that.
void WatchFreed(std::string_view secret);
// @return how many freed blocks held a watched text
int64_t EndWatching();
int64_t BytesSearched();

}  // namespace faults
