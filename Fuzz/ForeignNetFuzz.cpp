// Net files of other programs from bytes: an accepted net is valid, and can be written in every format; a
// refused one leaves a record, and nothing else.
#include "Fuzz/Harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const fuzz::Input input;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    if (!fuzz::CheckNetBytes(bytes, "x.net")) return 0;
    net_bn* const net = fuzz::ReadNetOf(bytes, "x.net");
    if (net == nullptr) return 0;
    const char* name = nullptr;
    bool_vx can_read = 0, can_write = 0;
    for (int i = 2; GetNthFileFormat_vx(i, &name, nullptr, nullptr, &can_read, &can_write); ++i) {
        if (!can_write || fuzz::Input::WasHalted()) continue;
        stream_vx* const stream = fuzz::NewStreamOf("", "written");
        WriteNetAs_bn(net, stream, name, nullptr);
        fuzz::Check(GetStreamFormat_vx(stream) != nullptr, "an accepted net can be written in every format");
        net_bn* const again = can_read ? ReadNet_bn(stream, NO_WINDOW) : nullptr;
        fuzz::Check(!can_read || again != nullptr || fuzz::TakenError() != 0,
                    "what is written is read or refused");
        DeleteNet_bn(again);
        DeleteStream_vx(stream);
    }
    fuzz::TakenError();
    DeleteNet_bn(net);
    return 0;
}
