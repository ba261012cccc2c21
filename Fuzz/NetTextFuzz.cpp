// Text net files from bytes: an accepted net is valid and is written the same twice; a refused one leaves a
// record, and nothing else.
#include "Fuzz/Harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const fuzz::Input input;
    fuzz::CheckNetBytes({reinterpret_cast<const char*>(data), size}, "x.dne");
    return 0;
}
