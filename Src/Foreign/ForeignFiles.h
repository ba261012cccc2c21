// Reading and writing nets in any format: the engine's own, or one of the table in Formats.h.
#pragma once

#include <string_view>

#include "BN/Files/BnParse.h"
#include "BN/Model/Bnet.h"
#include "Basic/Stream.h"

namespace talora {

// The net that the stream holds, in whatever format, packed with gzip or not; its caller owns it.  The stream
// then says which format it was and what was lost.
Net* ReadNetOfAnyFormat(Stream& stream, const ReadNetOptions& options);

// Writes a net in a format, by its name or extension; "" for the one that the name of the stream shows.  The
// stream then says what was lost.  @param strict  fails, with nothing written, where answers would change
void WriteNetInFormat(const Net& net, Stream& stream, std::string_view format, bool strict);

// The engine's own formats and the others, for lists: false behind the last.
struct FormatEntry {
    const char *name, *extensions, *about;
    bool reads, writes;
};
bool NthFormat(int index, FormatEntry& entry);

}  // namespace talora
