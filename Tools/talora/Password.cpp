// Passwords from a file or from the terminal, without echo.
#include "talora/Password.h"

#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "talora/Text.h"

namespace command {

namespace {

constexpr size_t kLongestPassword = 4096;

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

// The terminal with its echo off, until it goes out of scope.
class SilentTerminal {
public:
    SilentTerminal() : file_(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        if (file_ < 0) return;
        is_silent_ = tcgetattr(file_, &before_) == 0;
        struct termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        is_silent_ = is_silent_ && tcsetattr(file_, TCSAFLUSH, &silent) == 0;
    }
    ~SilentTerminal()
    {
        if (is_silent_) tcsetattr(file_, TCSAFLUSH, &before_);
        if (file_ >= 0) close(file_);
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

    bool IsThere() const { return is_silent_; }
    void Say(const char* text) const
    {
        if (write(file_, text, strlen(text)) < 0) return;  // then it is not seen
    }
    // One line, without its end.  False when the user interrupts or ends the input.
    bool ReadLine(environ_vx* env, char* line, size_t size) const
    {
        size_t length = 0;
        char c = 0;
        while (WaitForInput(env) && read(file_, &c, 1) == 1) {
            if (c == '\n') {
                line[length] = '\0';
                return true;
            }
            if (length + 1 < size) line[length++] = c;
        }
        explicit_bzero(line, size);
        return false;
    }

private:
    // False once the user has interrupted.  An interrupt just before the wait does not end it, so the flag
    // is looked at now and then.
    bool WaitForInput(environ_vx* env) const
    {
        constexpr int kMilliseconds = 100;
        struct pollfd input = {file_, POLLIN, 0};
        while (!GetHaltFlag_vx(env))
            if (poll(&input, 1, kMilliseconds) > 0) return true;
        return false;
    }

    int file_;
    bool is_silent_ = false;
    struct termios before_ = {};
};

}  // namespace

void SetPassword(Session& session, stream_vx* stream)
{
    const std::string& path = session.options.password_file;
    if (path.empty()) return;
    const File file(fopen(path.c_str(), "rb"));
    if (!file) throw CommandFailed("could not open password file '" + path + "': " + SystemReason());
    setvbuf(file.get(), nullptr, _IONBF, 0);
    char password[kLongestPassword + 1];
    const bool read = fgets(password, sizeof password, file.get()) != nullptr;
    if (read) password[strcspn(password, "\r\n")] = '\0';
    if (read && *password) SetStreamPassword_vx(stream, password);
    const bool is_empty = !read || !*password;
    explicit_bzero(password, sizeof password);
    if (is_empty) throw CommandFailed("there is no password in file '" + path + "'");
    session.Check();
}

bool_vx AskPassword(environ_vx* env, const char* question, char* password, int size, void*)
{
    const SilentTerminal terminal;
    if (!terminal.IsThere()) return 0;
    terminal.Say(question);
    terminal.Say(" ");
    const bool given = terminal.ReadLine(env, password, static_cast<size_t>(size));
    terminal.Say("\n");
    return given;
}

}  // namespace command
