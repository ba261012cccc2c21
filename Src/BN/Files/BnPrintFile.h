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

// Hands the text over in pieces of about a megabyte.  Fails if an entry of a table is none that a file can
// hold.
// @param all_but_tables  receives the text without the tables of its nodes, if not null
void PrintNet(const Net& net, const std::function<void(std::string_view)>& write,
              std::string* all_but_tables = nullptr);
std::string PrintNet(const Net& net);

// As a binary file where the stream's name says so (BN/Files/NetContainer.h), else as text.  A file is
// replaced as a whole or stays as it was, which it does if what would be written could not be read again.
void WriteNet(const Net& net, Stream& stream);

// What the writers of single values, in the field tables, write to.
struct ValuePrinter {
    std::string out;
    std::string comment;        // to follow the semicolon
    size_t num_dimensions = 0;  // of time, over the net
    const std::function<void(std::string_view)>* write = nullptr;
    std::string* all_but_tables = nullptr;
    bool in_table = false;
    size_t taken = 0;  // of out: up to here it is in all_but_tables, or belongs to a table

    void Flush(size_t keep_below);  // hands over what is there once it is more than so many bytes
    void BeginTable(size_t at);
    void EndTable();
};

}  // namespace talora
