// Binary net files from bytes: a net or a record comes of each, within the memory limit.
//
// The first byte chooses what the others are: a whole file; a gzip member behind a head that fits; the same
// encrypted, so that what lies behind the tag is reached too; or a text, which comes back from being packed.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "BN/BnParse.h"
#include "BN/NetContainer.h"
#include "Basic/LittleEndian.h"
#include "Basic/Memory.h"
#include "Talora.h"

namespace {

using namespace talora;

environ_vx* Environ()
{
    static environ_vx* env = [] {
        environ_vx* made = NewTaloraEnviron_vx(nullptr, nullptr);
        InitTalora2_bn(made, nullptr);
        made->max_key_iterations = 100;
        LimitMemoryUsage_vx(64e6, made);
        return made;
    }();
    return env;
}

void Check(bool condition)
{
    if (!condition) abort();
}

std::string Head(char letter, uint64_t text_size)
{
    const std::string readable = std::string("// encrypt = ") + letter + "\r\n";
    std::string head = "// ~->[TALA=1]->~ " + std::to_string(readable.size()) + " " +
                       std::to_string(text_size) + "\r\n" + readable;
    AppendLittleEndian(head, 10, 8);
    for (const uint64_t field : {uint64_t{0x70EACA50}, uint64_t{96}, text_size})
        AppendLittleEndian(head, field, 8);
    return head + std::string(64, '\0');
}

std::string Sealed(char letter, uint64_t text_size, const std::string& member)
{
    const CipherDef& cipher = *FindCipher(letter);
    FileKeys keys;
    const CipherBlock block = NewCipherBlock(cipher, "p", 1, keys);
    std::string front = Head(letter, text_size);
    AppendCipherBlock(front, block);
    return front + std::string(Seal(cipher, keys, block, front, member).View());
}

// What was packed by the library is unpacked to the same.
void CheckRoundTrip(const std::string& text, const std::string& password)
{
    Net* const net = NewNet(*Environ(), "Net");
    Stream* const stream = NewMemoryStream(*Environ(), "x.tala");
    const Secret secret = password.empty() ? Secret() : Secret(password);
    stream->password = secret;
    {
        ByteSink sink(*stream);
        NetPacker packer(*net, secret, 1);
        packer.Add(text);
        packer.WriteTo(sink);
        sink.Commit();
    }
    Check(UnpackNet(stream->contents, *stream).text.View() == text);
    DeleteStream(stream);
    DeleteNet(net);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 5) return 0;
    const uint8_t kind = data[0] % 5;
    const uint64_t text_size = data[1] | data[2] << 8 | data[3] << 16;
    std::string bytes(reinterpret_cast<const char*>(data) + 4, size - 4);
    environ_vx* const env = Environ();
    if (kind == 1) bytes = Head('N', text_size) + bytes;
    if (kind == 2) bytes = Sealed(data[1] % 2 ? 'G' : 'B', text_size, bytes);
    if (kind == 3) CheckRoundTrip(bytes, data[1] % 2 ? "p" : "");
    stream_vx* stream = NewMemoryStream_vx(kind == 4 ? "x" : "x.tala", env, nullptr);
    SetStreamContents_vx(stream, bytes.data(), static_cast<int64_t>(bytes.size()));
    SetStreamPassword_vx(stream, "p");
    const int64_t before = MemoryInUse();
    net_bn* net = ReadNet_bn(stream, NO_WINDOW);
    Check(net != nullptr || GetError_vx(env, ERROR_SEVERITY, 0, nullptr) != nullptr);
    if (net) DeleteNet_bn(net);
    Check(MemoryInUse() == before);
    DeleteStream_vx(stream);
    ClearErrors_vx(env, INTERNAL_SEVERITY);
    return 0;
}
