#include "BN/Files/NetContainer.h"

#include <gtest/gtest.h>
#include <string.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "BN/Files/BnParse.h"
#include "BN/Files/BnPrintFile.h"
#include "BN/Files/NetCipher.h"
#include "Basic/LittleEndian.h"
#include "Support/Golden.h"
#include "Support/TestEnviron.h"

namespace talora {
namespace {

constexpr size_t kBlockAt = 96;  // bytes of the block header, which stands before the payload

const std::string kNetText = R"(// ~->[DNET-1]->~

bnet Tiny {
	autoupdate = FALSE;
	comment = "two lines\nand \"quotes\"";

	node A {
		discrete = TRUE;
		states = (yes, no);
		kind = NATURE;
		probs = 
			(0.25, 0.75);
	};
};
)";

class NetContainerTest : public testing::Test {
protected:
    // Reads a net from bytes; what came of it is in number_ and message_ (0 and "" without a record).
    net_bn* Read(const std::string& bytes, const char* password = nullptr, const char* name = "x.tala")
    {
        stream_vx* stream = NewStreamOf(env_, name, bytes);
        if (password) SetStreamPassword_vx(stream, password);
        net_bn* net = ReadNet_bn(stream, NO_WINDOW);
        number_ = env_.Taken(WARNING_SEVERITY);
        message_ = env_.Message();
        DeleteStream_vx(stream);
        return net;
    }
    std::string Write(const net_bn* net, const char* name = "x.tala", const char* password = nullptr)
    {
        stream_vx* stream = NewMemoryStream_vx(name, env_, nullptr);
        if (password) SetStreamPassword_vx(stream, password);
        WriteNet_bn(net, stream);
        const std::string bytes = ContentsOf(stream);
        DeleteStream_vx(stream);
        return bytes;
    }
    std::string Packed(const std::string& text, const char* password = nullptr)
    {
        net_bn* net = Read(text, nullptr, "x.dne");
        const std::string bytes = Write(net, "x.tala", password);
        DeleteNet_bn(net);
        return bytes;
    }
    // Whether bytes read as the net with this text; deletes it.
    bool ReadsAs(const std::string& bytes, const std::string& text, const char* password = nullptr)
    {
        net_bn* net = Read(bytes, password);
        const bool same = net != nullptr && Write(net, "x.dne") == text;
        env_.Taken(WARNING_SEVERITY);  // of a password that the text does not use
        if (net) DeleteNet_bn(net);
        return same;
    }

    TestEnviron env_;
    int number_ = 0;
    std::string message_;
};

// A member as zlib would write it, with its own header.
std::string Gzipped(const std::string& text, int level = 6)
{
    z_stream zlib = {};
    deflateInit2(&zlib, level, Z_DEFLATED, MAX_WBITS + 16, 8, Z_DEFAULT_STRATEGY);
    std::string out(deflateBound(&zlib, text.size()) + 64, '\0');
    zlib.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    zlib.avail_in = static_cast<uInt>(text.size());
    zlib.next_out = reinterpret_cast<Bytef*>(out.data());
    zlib.avail_out = static_cast<uInt>(out.size());
    deflate(&zlib, Z_FINISH);
    out.resize(zlib.total_out);
    deflateEnd(&zlib);
    return out;
}

// A file put together by hand.
struct Parts {
    std::string line = "// ~->[TALA=1]->~ ";
    std::string numbers;  // "" for those that fit
    std::string line_end = "\r\n";
    std::string readable = "// encrypt = N\r\n";
    uint64_t version = 10, magic = 0x70EACA50, header_length = 96;
    uint64_t size = 0;  // 0 for the one that fits
    uint64_t check1 = 0, check2 = 0;
    std::string member;

    std::string Bytes(uint64_t text_size) const
    {
        const uint64_t stated = size ? size : text_size;
        std::string out = line;
        out += numbers.empty() ? std::to_string(readable.size()) + " " + std::to_string(text_size) : numbers;
        out += line_end + readable;
        AppendLittleEndian(out, version, 4);
        AppendLittleEndian(out, 0, 4);
        for (const uint64_t field : {magic, header_length, stated, check1, check2})
            AppendLittleEndian(out, field, 8);
        return out + std::string(48, '\0') + member;
    }
};

TEST_F(NetContainerTest, LayoutIsTheDocumentedOne)
{
    SetReproducibleRandom_vx(env_, 1);
    const std::string file = Packed(kNetText);
    const size_t readable = file.find("\r\n") + 2, block = file.find("// encrypt = N\r\n") + 16;
    const size_t payload = block + kBlockAt;
    EXPECT_EQ(file.substr(0, readable), "// ~->[TALA=1]->~ " + std::to_string(block - readable) + " " +
                                            std::to_string(kNetText.size()) + "\r\n");
    for (
        const char* line :
        {"// This is a Talora Bayes net file in the binary .tala format (for a readable text file, save in .dne file format instead).\r\n",
         "// File created\r\n", "// stamp = \"00000000-",
         "// comment = \"two lines\\nand \\\"quotes\\\"\";\r\n"})
        EXPECT_NE(file.find(line), std::string::npos) << line;
    const auto number = [&](size_t at, size_t width) {
        return LittleEndian(std::string_view(file).substr(block + at, width));
    };
    EXPECT_EQ(number(0, 4), 10u);
    EXPECT_EQ(number(8, 8), 0x70EACA50u);
    EXPECT_EQ(number(16, 8), 96u);
    EXPECT_EQ(number(24, 8), kNetText.size());
    const auto* const text = reinterpret_cast<const Bytef*>(kNetText.data());
    EXPECT_EQ(number(32, 8), crc32(0, text, static_cast<uInt>(kNetText.size())));
    EXPECT_EQ(number(40, 8), file.size() - payload);
    EXPECT_EQ(file.substr(block + 48, 48), std::string(48, '\0'));
    EXPECT_EQ(file.substr(payload, 19),
              std::string("\x1F\x8B\x08\x09\0\0\0\0\0\x0B", 10) + "internal" + '\0');
    EXPECT_EQ(Packed(kNetText), file);  // no times in it
    EXPECT_TRUE(ReadsAs(file, kNetText));
    EXPECT_EQ(number_, 0) << message_;
    SetReproducibleRandom_vx(env_, 0);
    EXPECT_NE(Packed(kNetText).find("// File created 20"), std::string::npos);
}

TEST_F(NetContainerTest, FaultsHaveTheirMessages)
{
    const std::string member = Gzipped(kNetText);
    const auto with = [&](auto change) {
        Parts parts;
        parts.member = member;
        change(parts);
        return parts.Bytes(kNetText.size());
    };
    const auto changed = [&](size_t at, char byte) {
        return with([&](Parts& p) { p.member[at < p.member.size() ? at : p.member.size() + at] = byte; });
    };
    const std::string unknown = "file is corrupted or of unrecognized format ";
    const std::string size = std::to_string(kNetText.size());
    const struct {
        const char* label;
        std::string bytes;
        int number;
        std::string message;  // what it begins with
        bool is_read;
    } rows[] = {
        {"by another program", with([](Parts&) {}), 0, "", true},
        {"line ends with LF", with([](Parts& p) { p.line_end = "\n"; }), 0, "", true},
        {"no line for the cipher", with([](Parts& p) { p.readable = "// hello\n"; }), 0, "", true},
        {"nothing readable", with([](Parts& p) { p.readable = ""; }), 0, "", true},
        {"later format", with([](Parts& p) { p.line[12] = '2'; }), 2912, "this net was stored using a new",
         true},
        {"no mark", with([](Parts& p) { p.line[0] = '#'; }), 6840, unknown + "(-4)", false},
        {"empty", "", 6840, unknown + "(-4)", false},
        {"no equals sign", with([](Parts& p) { p.line[11] = '-'; }), 6840, unknown + "(-5)", false},
        {"no version", with([](Parts& p) { p.line[12] = 'x'; }), 6840, unknown + "(-5)", false},
        {"no arrow", with([](Parts& p) { p.line[17] = '_'; }), 6840, unknown + "(-6)", false},
        {"another kind", with([](Parts& p) { p.line.replace(7, 4, "CASE"); }), 4109,
         "'x.tala' is not a TALA file", false},
        {"no numbers", with([](Parts& p) { p.numbers = "x"; }), 6840, unknown + "(-7)", false},
        {"one number", with([](Parts& p) { p.numbers = "16"; }), 6840, unknown + "(-7)", false},
        {"number of 65 bits", with([](Parts& p) { p.numbers = "18446744073709551616 1"; }), 6840,
         unknown + "(-7)", false},
        {"no line end", with([](Parts& p) { p.line_end = " "; }), 6840, unknown + "(-8)", false},
        {"readable section beyond the end", with([](Parts& p) { p.numbers = "18446744073709551615 1"; }),
         6840, unknown + "(-11)", false},
        {"error code for a version", with([](Parts& p) { p.version = 1000; }), 6840, unknown + "(-11)",
         false},
        {"no magic", with([](Parts& p) { p.magic = 0x50CAEA70; }), 6840, unknown + "(-11)", false},
        {"long header", with([](Parts& p) { p.header_length = 97; }), 6841,
         "file is corrupted or of wrong format (has incorrect header)", false},
        {"line states another size", with([](Parts& p) { p.numbers = "16 1"; }), 2627,
         "DANGER: file appears to have been tampered with (ascii field doesn't match binary one)", true},
        {"another text's check field", with([](Parts& p) { p.check1 = 1; }), 6852,
         "the block header does not belong", true},
        {"bytes behind the member", with([](Parts& p) {
             p.check2 = p.member.size();
             p.member += "!";
         }),
         6852, "the block header does not belong", true},
        {"unknown cipher", with([](Parts& p) { p.readable = "// encrypt = Q\r\n"; }), 6853,
         "the file encryption (Q) is not one readable by this version of Talora, so can't read encrypted file 'x.tala'",
         false},
        {"no gzip", changed(0, 'P'), 6842,
         "does not appear to be a gzip format (starts with 0x50 8b instead of 0x1f 8b)", false},
        {"no payload", with([](Parts& p) { p.member = ""; }), 6842,
         "does not appear to be a gzip format (starts with 0x00 00", false},
        {"not deflated", changed(2, 7), 6843, "unknown gzip compression type 0x07", false},
        {"unknown flags", changed(3, char(0x40)), 6844,
         "file is using unknown features of gzip; may read incorrectly", true},
        {"damaged data", changed(10, char(0xFF)), 6847, "error during file uncompressing (code -3)", false},
        {"damaged checksum", changed(size_t(-8), 0), 6851, "crc of uncompressed file (", false},
        {"damaged size", changed(size_t(-1), 1), 6850, "number of bytes after uncompressing (>" + size + "d)",
         false},
        {"states too little", with([](Parts& p) {
             p.size = 100;
             p.numbers = "16 100";
         }),
         6846, "buffer to decompress gzip '' is too small (is 100 but " + size + " needed)", false},
        {"states too much", with([](Parts& p) {
             p.size = 1000;
             p.numbers = "16 1000";
         }),
         6850,
         "number of bytes after uncompressing (>" + size +
             "d) does not match stated original uncompressed size (1000d)",
         false},
        {"states more than can be", with([](Parts& p) {
             p.size = 1 << 28;
             p.numbers = "16 268435456";
         }),
         6841, "file is corrupted or of wrong format (has incorrect header)", false},
        {"states 2^63", with([](Parts& p) {
             p.size = 1ull << 63;
             p.numbers = "16 9223372036854775808";
         }),
         6845, "file is too large for this version (expands to 9223372036854775807)", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        net_bn* net = Read(row.bytes);
        EXPECT_EQ(number_, row.number) << message_;
        EXPECT_EQ(message_.substr(0, row.message.size()), row.message);
        EXPECT_EQ(net != nullptr, row.is_read);
        if (net) DeleteNet_bn(net);
    }
}

// A size is believed up to what deflating can do; beyond, and from 1 TB on, it is refused by itself.
TEST_F(NetContainerTest, StatedSizeHasItsLimits)
{
    Parts parts;
    parts.member = Gzipped(kNetText);
    const uint64_t most = 1032 * parts.member.size() + 64 * 1024;
    const struct {
        const char* label;
        uint64_t size;
        int number;
    } rows[] = {
        {"most", most, 6850},  // it turns out to be wrong when all is inflated
        {"most and one", most + 1, 6841},
        {"a byte below 1 TB", (uint64_t{1} << 40) - 1, 6841},
        {"1 TB", uint64_t{1} << 40, 6845},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        parts.size = row.size;
        parts.numbers = "16 " + std::to_string(row.size);
        EXPECT_EQ(Read(parts.Bytes(kNetText.size())), nullptr);
        EXPECT_EQ(number_, row.number) << message_;
    }
}

TEST_F(NetContainerTest, OptionalFieldsOfGzipAreSkipped)
{
    const std::string plain = Gzipped(kNetText);
    Parts parts;
    parts.member = std::string("\x1F\x8B\x08\x1F\0\0\0\0\0\x0B", 10) + std::string("\x03\0abc", 5) +
                   std::string("name\0comment\0XY", 15) + plain.substr(10);
    EXPECT_TRUE(ReadsAs(parts.Bytes(kNetText.size()), kNetText)) << message_;
    EXPECT_EQ(number_, 0) << message_;
}

TEST_F(NetContainerTest, NameAndContentsDecideTheKind)
{
    const std::string file = Packed(kNetText);
    const struct {
        const char* name;
        const std::string& bytes;
        int number;
    } rows[] = {
        {"x.tala", file, 0},   {"x", file, 0},          {"X.TALA", file, 0},
        {"x.dne", file, 4109}, {"x.tala", kNetText, 0}, {nullptr, file, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name ? row.name : "no name");
        net_bn* net = Read(row.bytes, nullptr, row.name);
        EXPECT_EQ(number_, row.number) << message_;
        EXPECT_EQ(net != nullptr, row.number == 0);
        if (net) DeleteNet_bn(net);
    }
    net_bn* net = Read(kNetText, nullptr, "x.dne");
    EXPECT_EQ(Write(net, "x"), kNetText);
    EXPECT_EQ(Write(net, "x.TALA").substr(0, 18), "// ~->[TALA=1]->~ ");
}

TEST_F(NetContainerTest, DamageIsFoundOrHarmless)
{
    const std::string file = Packed(kNetText);
    const size_t payload = file.find("\x1F\x8B");
    for (size_t at = 0; at < file.size(); ++at) {
        for (const int mask : {0x01, 0x80, 0xFF}) {
            SCOPED_TRACE("byte " + std::to_string(at));
            std::string damaged = file;
            damaged[at] = static_cast<char>(damaged[at] ^ mask);
            net_bn* net = Read(damaged);
            EXPECT_TRUE(net != nullptr || number_ != 0);
            // The text is guarded by its checksum.  Comments, unread fields and bits that fill up a byte
            // may change.
            if (net == nullptr) continue;
            EXPECT_EQ(Write(net, "x.dne"), kNetText);
            DeleteNet_bn(net);
        }
    }
    for (size_t length = 0; length < file.size(); ++length) {
        SCOPED_TRACE("length " + std::to_string(length));
        EXPECT_EQ(Read(file.substr(0, length)), nullptr);
        const bool in_member = length >= payload + 2;
        EXPECT_EQ(number_ == 6850 || number_ == 6851, in_member) << message_;
    }
}

TEST_F(NetContainerTest, BombsStayWithinTheLimit)
{
    const double before = LimitMemoryUsage_vx(64e6, env_);
    Parts bomb;
    bomb.member = Gzipped(std::string(100'000'000, '\0'), 1);
    EXPECT_EQ(Read(bomb.Bytes(100'000'000)), nullptr);
    EXPECT_NE(message_.find("for uncompressing file"), std::string::npos) << message_;
    bomb.size = 1000;
    EXPECT_EQ(Read(bomb.Bytes(1000)), nullptr);
    EXPECT_EQ(message_.substr(0, 70),
              "buffer to decompress gzip '' is too small (is 1000 but 100000000 neede");
    // Where there is memory for it, what is no net at all is not inflated to its end.
    LimitMemoryUsage_vx(1e9, env_);
    bomb.size = 0;
    EXPECT_EQ(Read(bomb.Bytes(100'000'000)), nullptr);
    EXPECT_EQ(number_, 4109) << message_;
    LimitMemoryUsage_vx(before, env_);
}

// ---- Encrypted files ----

// The text of the small net as a file encrypted with few iterations, so that trying many is quick.
std::string Sealed(environ_vx* env, char letter, const char* password, const std::string& text = kNetText,
                   uint32_t iterations = 2)
{
    Stream* from = NewMemoryStream(*env, "x.dne");
    SetContents(*from, text);
    Net* net = ReadNet(*from, {});
    env->file_cipher = letter;
    Stream* to = NewMemoryStream(*env, "x.tala");
    {
        const Secret secret(password);
        ByteSink sink(*to);
        NetPacker packer(*net, secret, iterations);
        PrintNet(*net, [&](std::string_view piece) { packer.Add(piece); });
        packer.WriteTo(sink);
        sink.Commit();
    }
    const std::string bytes = to->contents;
    DeleteStream(from);
    DeleteStream(to);
    DeleteNet(net);
    return bytes;
}

size_t CipherBlockAt(const std::string& file)
{
    const size_t encrypt = file.find("// encrypt = ");
    return file.find("\r\n", encrypt) + 2 + kBlockAt;
}

TEST_F(NetContainerTest, PasswordOpensEncryptedFiles)
{
    const std::string wrong = "password is wrong or file is corrupted, in file 'x.tala'";
    const std::string none = "no password entered, so can't read encrypted file 'x.tala'";
    const std::string long_password(300, 'x');
    const struct {
        char cipher;
        const char* password;
        const char* line;
    } rows[] = {
        {'G', "secret", "// encrypt = G\r\n"},
        {'B', "ge\xC3\xA9heim", "// encrypt = B\r\n"},
        {'G', long_password.c_str(), "// encrypt = G\r\n"},
        {'B', "simple", "// encrypt = S\r\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const bool is_secret = std::string_view(row.password) != "simple";
        const std::string file = Sealed(env_, row.cipher, row.password);
        EXPECT_NE(file.find(row.line), std::string::npos);
        EXPECT_EQ(file.find("\x1F\x8B\x08"), std::string::npos);
        EXPECT_TRUE(ReadsAs(file, kNetText, row.password)) << message_;
        EXPECT_EQ(number_, 0) << message_;
        EXPECT_EQ(ReadsAs(file, kNetText, "Secret"), !is_secret);
        if (is_secret)
            EXPECT_EQ(message_, wrong);
        else
            EXPECT_EQ(number_, 7255);
        EXPECT_EQ(ReadsAs(file, kNetText), !is_secret);
        EXPECT_EQ(message_, is_secret ? none : "");
    }
}

TEST_F(NetContainerTest, NetKeepsThePasswordOfItsFile)
{
    net_bn* net = Read(Sealed(env_, 'G', "secret"), "secret");
    ASSERT_NE(net, nullptr);
    EXPECT_TRUE(HasNetPassword_bn(net));
    net_bn* copy = CopyNet_bn(net, "Tiny", env_, "");
    const std::string again = Write(copy);
    EXPECT_NE(again.find("// encrypt = G"), std::string::npos);
    EXPECT_EQ(LittleEndian(std::string_view(again).substr(CipherBlockAt(again) + 4, 4)), 600000u);
    EXPECT_TRUE(ReadsAs(again, kNetText, "secret")) << message_;
    const size_t salt = CipherBlockAt(again) + 8;
    EXPECT_NE(Write(net).substr(salt, 28), again.substr(salt, 28));  // with the nonce, new each time
    EXPECT_EQ(Write(net, "x.dne"), kNetText);
    EXPECT_EQ(env_.Taken(WARNING_SEVERITY), 6854);
    SetNetPassword_bn(net, nullptr);
    EXPECT_FALSE(HasNetPassword_bn(net));
    EXPECT_NE(Write(net).find("// encrypt = N"), std::string::npos);
    SetNetPassword_bn(net, "");
    EXPECT_EQ(env_.Taken(), 5172);
}

// Whoever opens an unprotected file with a password gets one that is protected with it.
TEST_F(NetContainerTest, PasswordReplacesTheFixedOne)
{
    net_bn* net = Read(Sealed(env_, 'G', "simple"), "secret");
    ASSERT_NE(net, nullptr);
    EXPECT_EQ(number_, 7255);
    const std::string again = Write(net);
    EXPECT_NE(again.find("// encrypt = G"), std::string::npos);
    EXPECT_FALSE(ReadsAs(again, kNetText, "simple"));
    net_bn* simple = Read(Sealed(env_, 'G', "simple"), "simple");
    EXPECT_EQ(number_, 0);
    EXPECT_NE(Write(simple).find("// encrypt = S"), std::string::npos);
    EXPECT_NE(Write(simple, "x.tala", "secret").find("// encrypt = G"), std::string::npos);
}

// A text that deflate makes a thousand times smaller is stored in part, so that small files with a large text
// are none of ours.
TEST_F(NetContainerTest, SmallFilesHoldNoLargeTexts)
{
    net_bn* net = Read(kNetText, nullptr, "x.dne");
    const std::string long_text(15 << 20, 'x');
    SetNetTitle_bn(net, long_text.c_str());
    SetNetAuthor_bn(net, long_text.c_str());
    const std::string file = Write(net);
    EXPECT_LT(file.size(), size_t{2} << 20);
    net_bn* read = Read(file);
    ASSERT_NE(read, nullptr) << message_;
    EXPECT_EQ(GetNetAuthor_bn(read), long_text);
    Parts parts;
    const std::string text = "// ~->[DNET-1]->~\nbnet N {" + std::string(20 << 20, ' ') + "};";
    parts.member = Gzipped(text);
    EXPECT_EQ(Read(parts.Bytes(text.size())), nullptr);
    EXPECT_EQ(number_, 7256);
    SetQuestionHandler_vx(
        env_, [](environ_vx*, const char*, const char*, const char*, void*) { return 0; }, nullptr);
    EXPECT_NE(Read(parts.Bytes(text.size())), nullptr) << message_;
    SetQuestionHandler_vx(env_, nullptr, nullptr);
}

TEST_F(NetContainerTest, UserIsAskedForThePassword)
{
    const std::string file = Sealed(env_, 'B', "secret");
    const password_handler_vx answer = [](environ_vx*, const char* question, char* password, int size,
                                          void* data) {
        EXPECT_STREQ(question, "This file is encrypted.  Enter password:");
        EXPECT_GT(size, 1000);
        if (data == nullptr) return bool_vx{0};
        strcpy(password, static_cast<const char*>(data));
        return bool_vx{1};
    };
    char right[] = "secret", wrong[] = "guess", empty[] = "";
    const struct {
        char* answer;
        int number;
    } rows[] = {{right, 0}, {wrong, 6859}, {empty, 6858}, {nullptr, 6858}};
    for (const auto& row : rows) {
        SetPasswordHandler_vx(env_, answer, row.answer);
        void* data = nullptr;
        EXPECT_EQ(GetPasswordHandler_vx(env_, &data), answer);
        EXPECT_EQ(data, row.answer);
        EXPECT_EQ(ReadsAs(file, kNetText), row.number == 0);
        EXPECT_EQ(number_, row.number) << message_;
    }
    SetPasswordHandler_vx(env_, nullptr, nullptr);
    EXPECT_EQ(GetPasswordHandler_vx(env_, nullptr), nullptr);
}

TEST_F(NetContainerTest, NoChangedEncryptedFileOpens)
{
    static_cast<environ_vx*>(env_)->max_key_iterations = 1000;
    for (const char letter : {'G', 'B'}) {
        const std::string file = Sealed(env_, letter, "secret");
        ASSERT_TRUE(ReadsAs(file, kNetText, "secret")) << message_;
        for (size_t at = 0; at < file.size(); ++at) {
            for (const int mask : {0x01, 0x80}) {
                std::string damaged = file;
                damaged[at] = static_cast<char>(damaged[at] ^ mask);
                EXPECT_EQ(Read(damaged, "secret"), nullptr) << letter << " byte " << at;
                EXPECT_NE(number_, 0);
            }
        }
        for (size_t length = 0; length < file.size(); ++length)
            EXPECT_EQ(Read(file.substr(0, length), "secret"), nullptr) << letter << " length " << length;
        EXPECT_EQ(Read(file + "!", "secret"), nullptr);
        // What is in front of one file does not go with what is in another.
        const std::string other = Sealed(env_, letter, "secret");
        const size_t front = CipherBlockAt(file) + kCipherBlockSize;
        EXPECT_EQ(Read(file.substr(0, front) + other.substr(front), "secret"), nullptr);
        EXPECT_EQ(message_.substr(0, 37), "password is wrong or file is corrupte");
    }
}

TEST_F(NetContainerTest, KeyDerivationHasItsLimit)
{
    EXPECT_EQ(GetMaxKeyIterations_vx(env_), 2000000);
    const std::string file = Sealed(env_, 'G', "secret");
    SetHaltFlag_vx(env_, 1);  // what is accepted is worked on, until it is halted
    const struct {
        uint64_t iterations;
        int number;
    } rows[] = {{0, 6841}, {2000000, 6862}, {2000001, 6860}, {4000000000, 6860}};
    for (const auto& row : rows) {
        std::string field, changed = file;
        AppendLittleEndian(field, row.iterations, 4);
        changed.replace(CipherBlockAt(file) + 4, 4, field);
        EXPECT_EQ(Read(changed, "secret"), nullptr);
        EXPECT_EQ(number_, row.number) << message_;
    }
    SetHaltFlag_vx(env_, 0);
    SetMaxKeyIterations_vx(env_, 599999);
    EXPECT_EQ(env_.Taken(), 6856);
    SetMaxKeyIterations_vx(env_, 600000);
    EXPECT_EQ(GetMaxKeyIterations_vx(env_), 600000);
    const std::string slow = Sealed(env_, 'G', "secret", kNetText, 600001);
    EXPECT_EQ(Read(slow, "secret"), nullptr);
    EXPECT_EQ(number_, 6860);
    SetMaxKeyIterations_vx(env_, 600001);
    EXPECT_TRUE(ReadsAs(slow, kNetText, "secret")) << message_;
    SetHaltFlag_vx(env_, 1);
    EXPECT_EQ(Read(slow, "secret"), nullptr);
    EXPECT_EQ(number_, 6862) << message_;
    SetHaltFlag_vx(env_, 0);
    SetFileCipher_vx(env_, "ROT13");
    EXPECT_EQ(env_.Taken(), 6855);
    EXPECT_STREQ(GetFileCipher_vx(env_), "AES");
}

TEST_F(NetContainerTest, DamageBeforeSealingIsFoundToo)
{
    const CipherDef& cipher = *FindCipher('G');
    Parts parts;
    parts.readable = "// encrypt = G\r\n";
    const auto seal = [&](const std::string& member) {
        FileKeys keys;
        const CipherBlock block = NewCipherBlock(cipher, "secret", 1, keys);
        parts.member.clear();
        std::string front = parts.Bytes(kNetText.size());
        AppendCipherBlock(front, block);
        return front + std::string(Seal(cipher, keys, block, front, member).View());
    };
    const std::string member = Gzipped(kNetText);
    EXPECT_TRUE(ReadsAs(seal(member), kNetText, "secret")) << message_;
    EXPECT_FALSE(ReadsAs(seal(member.substr(0, member.size() / 2)), kNetText, "secret"));
    EXPECT_EQ(number_, 6850) << message_;
    EXPECT_FALSE(ReadsAs(seal(""), kNetText, "secret"));
    EXPECT_EQ(number_, 6842) << message_;
}

TEST_F(NetContainerTest, MemoryThatIsNotToBeHadIsNamed)
{
    std::string comment;  // that hardly gets smaller
    for (uint32_t random = 1; comment.size() < 2'000'000; random = random * 1664525 + 1013904223)
        comment += static_cast<char>('A' + (random >> 24) % 50);
    net_bn* net = Read(kNetText, nullptr, "x.dne");
    SetNetComment_bn(net, comment.c_str());
    const std::string plain = Write(net);
    const double before = MemoryLimit();
    stream_vx *packed = NewMemoryStream_vx("x.tala", env_, nullptr),
              *stream = NewMemoryStream_vx("x.tala", env_, nullptr);
    SetStreamContents_vx(packed, plain.data(), static_cast<int64_t>(plain.size()));
    SetMemoryLimit(static_cast<double>(MemoryInUse()) + 1e6);
    EXPECT_EQ(ReadNet_bn(packed, NO_WINDOW), nullptr);
    env_.Taken();
    EXPECT_EQ(env_.Message().substr(0, 42), "not enough memory for uncompressing file");
    WriteNet_bn(net, stream);
    env_.Taken();
    EXPECT_EQ(env_.Message().substr(0, 56), "not enough memory for output buffer to save net 'Tiny'");
    SetMemoryLimit(before);
    int64_t length = -1;
    GetStreamContents_vx(stream, &length);
    EXPECT_EQ(length, 0);
    WriteNet_bn(net, stream);
    GetStreamContents_vx(stream, &length);
    EXPECT_EQ(length, static_cast<int64_t>(plain.size()));
}

// Files of earlier versions, which stay readable: never written anew.
TEST_F(NetContainerTest, FilesOfAllVersionsAreRead)
{
    for (const char* name : {"tiny-plain.tala", "tiny-aes.tala", "tiny-blowfish.tala", "tiny-simple.tala"}) {
        SCOPED_TRACE(name);
        std::stringstream contents;
        contents << std::ifstream(GoldenFile(name), std::ios::binary).rdbuf();
        EXPECT_TRUE(ReadsAs(contents.str(), kNetText, "golden")) << message_;
        EXPECT_EQ(number_, std::string_view(name) == "tiny-simple.tala" ? 7255 : 0) << message_;
    }
}

TEST_F(NetContainerTest, EncryptedFilesAreTheOwners)
{
    namespace fs = std::filesystem;
    const fs::path folder = fs::temp_directory_path() / ("talora-container-" + std::to_string(::getpid()));
    fs::create_directories(folder);
    net_bn* net = Read(kNetText, nullptr, "x.dne");
    for (const char* password : {static_cast<const char*>(nullptr), "simple"}) {
        const fs::path path = folder / "x.tala";
        stream_vx* stream = NewFileStream_vx(path.c_str(), env_, nullptr);
        SetStreamPassword_vx(stream, password);
        WriteNet_bn(net, stream);
        const auto others = fs::perms::group_all | fs::perms::others_all;
        EXPECT_EQ((fs::status(path).permissions() & others) == fs::perms::none, password != nullptr);
        net_bn* read = ReadNet_bn(stream, NO_WINDOW);
        ASSERT_NE(read, nullptr);
        SetNetPassword_bn(read, nullptr);
        EXPECT_EQ(Write(read, "x.dne"), kNetText);
        DeleteStream_vx(stream);
    }
    fs::remove_all(folder);
}

TEST_F(NetContainerTest, CorpusComesBackTheSame)
{
    const char* corpus = std::getenv("TALORA_CORPUS");
    if (corpus == nullptr) GTEST_SKIP() << "TALORA_CORPUS is not set: corpus files not read";
    int files = 0;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(std::filesystem::path(corpus) / "nets")) {
        if (entry.path().extension() != ".dne") continue;
        SCOPED_TRACE(entry.path().filename());
        std::stringstream contents;
        contents << std::ifstream(entry.path(), std::ios::binary).rdbuf();
        net_bn* net = Read(contents.str(), nullptr, "x.dne");
        ASSERT_NE(net, nullptr);
        EXPECT_TRUE(ReadsAs(Write(net), Write(net, "x.dne"))) << message_;
        DeleteNet_bn(net);
        ++files;
    }
    EXPECT_GE(files, 17);
}

}  // namespace
}  // namespace talora
