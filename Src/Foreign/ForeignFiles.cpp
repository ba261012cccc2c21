// Reading and writing nets in any format.
#include "Foreign/ForeignFiles.h"

#include <algorithm>

#include "BN/Files/BnPrintFile.h"
#include "BN/Files/GzipMember.h"
#include "Basic/FileType.h"
#include "Basic/Names.h"
#include "Foreign/ForeignCheck.h"
#include "Foreign/ForeignConvert.h"
#include "Foreign/Formats.h"

namespace talora {

namespace {

constexpr std::string_view kGzip = "\x1F\x8B";
constexpr char kTextFormat[] = "DNE", kBinaryFormat[] = "TALA";

constexpr FormatEntry kOwnFormats[] = {
    {kTextFormat, "dne", "text net file of this system", true, true},
    {kBinaryFormat, "tala", "binary net file of this system, compressed, encrypted on request", true, true},
};

// The text of a gzip file; its last four bytes state the size.
GzipText Unzip(std::string_view bytes, const FilePlace& place)
{
    constexpr size_t kSmallest = 18;
    uint64_t size = 0;
    if (bytes.size() >= kSmallest)
        for (size_t i = 0; i < 4; ++i)
            size |= uint64_t(static_cast<unsigned char>(bytes[bytes.size() - 4 + i])) << (8 * i);
    CheckStatedSize(bytes.size(), size, place);
    return ReadGzipMember(bytes, size, place, [](std::string_view) {});
}

// Whether the engine's own reader is to say what the file is, or what is wrong with it.
bool IsOwn(std::string_view bytes, const std::string& name)
{
    if (bytes.starts_with(kFileMark) || bytes.starts_with("\xFF\xFE//") ||
        FileTypeByName(name) != kNoFileType)
        return true;
    return bytes.starts_with(std::string_view("\xFF\xFE/\0", 4));
}

std::string OwnFormat(std::string_view bytes)
{
    if (FileTypeByContents(bytes) == "TALA") return kBinaryFormat;
    return std::string(kTextFormat) + " " + std::to_string(std::max(NetFileVersion(bytes), 0));
}

Net* ReadForeign(Stream& stream, std::string_view bytes, const ReadNetOptions& options)
{
    std::string changed;
    const std::string_view text = ToUtf8(bytes, stream.name.c_str(), changed);
    const ForeignSource source{text, stream.name.c_str()};
    const FileFormat* const format = FormatByContents(text, stream.name);
    // No text holds zero bytes, and texts of the engine end with one.
    if (format == nullptr || text.find('\0') != std::string_view::npos)
        FailAt<7000>(source.PlaceAt(0), Shown(stream.name).c_str());
    if (format->read == nullptr) FailAt<7001>(source.PlaceAt(0), format->name);
    ForeignNet foreign;
    format->read(source, foreign);
    if (foreign.nodes.empty()) FailAt<7000>(source.PlaceAt(0), Shown(stream.name).c_str());
    CheckForeignNet(source, foreign);
    stream.format = foreign.format;
    Net* const net = ToNet(foreign, *stream.env, options.keep_visual);
    stream.losses = std::move(foreign.losses);
    return net;
}

}  // namespace

Net* ReadNetOfAnyFormat(Stream& stream, const ReadNetOptions& options)
{
    stream.format.clear();
    stream.losses.clear();
    const StreamBytes bytes(stream, true);
    std::string_view text = bytes.View();
    GzipText unzipped;
    if (text.starts_with(kGzip)) {
        unzipped = Unzip(text, {.file = stream.name.c_str()});
        text = unzipped.text.View();
    } else if (IsOwn(text, stream.name)) {
        const std::string start(text.substr(0, 64));
        Net* const net = ReadNet(text, stream, options);
        stream.format = OwnFormat(start);
        return net;
    }
    return ReadForeign(stream, text, options);
}

void WriteNetInFormat(const Net& net, Stream& stream, std::string_view format_name, bool strict)
{
    stream.format.clear();
    stream.losses.clear();
    const FileFormat* const format =
        format_name.empty() ? FormatByName(stream.name) : FindFormat(format_name);
    const std::string lower = LowerText(format_name);
    if (format == nullptr && !lower.empty() && lower != "dne" && lower != "tala")
        Fail<7037>(Shown(format_name).c_str());
    if (format == nullptr) {
        WriteNet(net, stream);
        stream.format = FileTypeByName(stream.name) == "TALA" ? kBinaryFormat : kTextFormat;
        return;
    }
    std::string out;
    ForeignNet foreign = FromNet(net, *format);
    format->write(foreign, out);
    std::stable_sort(foreign.losses.begin(), foreign.losses.end(),
                     [](const Loss& a, const Loss& b) { return a.severity > b.severity; });
    stream.losses = std::move(foreign.losses);
    stream.format = format->name;
    if (strict && !stream.losses.empty() && stream.losses[0].severity == LossSeverity::ANSWERS)
        Fail<7039>(format->name, stream.losses[0].what.c_str());
    ByteSink sink(stream);
    sink.Write(out);
    sink.Commit();
}

bool NthFormat(int index, FormatEntry& entry)
{
    if (index < 0) return false;
    const size_t own = std::size(kOwnFormats), i = size_t(index);
    if (i >= own + Formats().size()) return false;
    if (i < own) {
        entry = kOwnFormats[i];
    } else {
        const FileFormat& format = Formats()[i - own];
        entry = {format.name, format.extensions, format.about, format.read != nullptr,
                 format.write != nullptr};
    }
    return true;
}

}  // namespace talora
