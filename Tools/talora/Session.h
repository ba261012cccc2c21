// One run of the command: the library's environment, messages to the user, and the result.
//
// main owns the only session.  Commands add fields to the document (shown with --json) and print
// plain text (shown without); whatever fails throws CommandFailed or WrongUsage, and Finish
// turns records, texts and document into output and exit status.
#pragma once

#include <Talora.h>

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

namespace command {

using Json = nlohmann::ordered_json;

// Exit status 1.  Without a text the reason is in the library's error records.
struct CommandFailed : std::runtime_error {
    CommandFailed() : runtime_error("") {}
    explicit CommandFailed(const std::string& text) : runtime_error(text) {}
};

// Exit status 2.
struct WrongUsage : std::runtime_error {
    using runtime_error::runtime_error;
};

enum ExitStatus { kDone = 0, kFailed = 1, kWrongUsage = 2 };

struct CommonOptions {
    bool json = false;
    bool quiet = false;
    std::string password_file;
    std::string seed;
};

class Session {
public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    environ_vx* env = nullptr;
    CommonOptions options;

    // Lets the halt flag and the progress bar work; before this a signal simply ends the program.
    void Begin();

    // Throws CommandFailed when the library has recorded an error since the last AcceptErrors, or
    // when the user has interrupted.
    void Check();
    // Errors so far are reported but do not make the command fail.
    void AcceptErrors();

    // A field of the JSON document.
    Json& Field(const char* name);
    // Plain text, printed at once; nothing with --json.
    void Print(std::string_view text);
    // Bytes for standard output whatever the options are.
    void PrintRaw(std::string_view bytes);

    // Prints the document and every record not yet shown.  failure: the text of an error of the command's own.
    int Finish(ExitStatus status, const std::string& failure);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace command
