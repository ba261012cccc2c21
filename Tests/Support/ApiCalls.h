// Every interface function, called with arguments that a test makes: from the list of interface functions,
// for all tests that go through it.  The kind of an argument follows from its type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace talora {

// What the entries of an array are, which a function reads or which it writes to.
enum class ArrayOf { BYTES, TEXTS, PROBS, STATES, REALS, REAL_TO_WRITE, OTHERS_TO_WRITE };

// Makes the arguments of one call, in their order.  `place` counts them from 0.
class ArgumentMaker {
public:
    virtual ~ArgumentMaker() = default;
    virtual void* Handle(char letter, size_t place) = 0;  // the letter as in the list of functions
    virtual const char* Text() = 0;
    virtual void* Array(ArrayOf entries) = 0;
    virtual double Real() = 0;
    virtual int64_t Integer(size_t place, size_t num_bytes) = 0;
    virtual void Ready() {}  // between the arguments and the call
};

struct Returned {
    char letter = 0;  // of the handle, if it is one
    const void* pointer = nullptr;
    double number = 0;
};

struct ApiFunction {
    const char* name;
    const char* arguments;  // a letter each, as the list has them
    std::string types;      // the same from the declaration in the header
    Returned (*call)(ArgumentMaker& maker);
};

const std::vector<ApiFunction>& ApiFunctions();

}  // namespace talora
