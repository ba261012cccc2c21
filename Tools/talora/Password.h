// Passwords of encrypted files: from the file that --password-file names, or from the user at the terminal.
#pragma once

#include "talora/Session.h"

namespace command {

// Gives a stream the password of --password-file, if that option is there.  Throws CommandFailed.
void SetPassword(Session& session, stream_vx* stream);

// The library's password handler: asks on the terminal, without showing what is typed.  Gives none where
// there is no terminal.
bool_vx AskPassword(environ_vx* env, const char* question, char* password, int size, void* data);

}  // namespace command
