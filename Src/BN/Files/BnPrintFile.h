// Writing a net in the text net format.
//
// Statements come in a fixed order and are left out where they hold their default, so that a net which is
// read and written again gives the same bytes.  Numbers of tables are written in the shortest form that
// reads back as the same float.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "BN/Model/Bnet.h"
#include "Basic/Stream.h"

namespace talora {

// Hands the text over in pieces of about a megabyte.
void PrintNet(const Net& net, const std::function<void(std::string_view)>& write);
std::string PrintNet(const Net& net);

// As a binary file where the stream's name says so (BN/Files/NetContainer.h), else as text.  A file is
// replaced as a whole or stays as it was.
void WriteNet(const Net& net, Stream& stream);

// What the writers of single values, in the field tables, write to.
struct ValuePrinter {
    std::string out;
    std::string comment;        // to follow the semicolon
    size_t num_dimensions = 0;  // of time, over the net
    const std::function<void(std::string_view)>* write = nullptr;

    void Flush(size_t keep_below);  // hands over what is there once it is more than so many bytes
};

}  // namespace talora
