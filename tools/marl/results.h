// What a command has found out: standard output, and nothing else is written there.
//
// The same calls give text for people and, when JSON was asked for, one object. Results are kept until there
// are 4 KiB of them or flush() is called.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tool::results {

// Moves the standard output aside: from now on what others write there goes to the standard error.
void take_standard_output();

void use_json();
bool is_json();

// For text alone: nothing happens where JSON was asked for.
void print(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Bytes as they are.
void raw(const void* data, size_t size);

// A member of the present object, or a line "name value". Null text is a value that is not known.
void field(const char* name, const char* text);
void field(const char* name, int64_t number);
void flag(const char* name, bool value);

// An object or a list, as member `name` of the object around or, without a name, as element of a list. In text
// the name is a heading and what follows is indented.
void begin(const char* name = nullptr);
void end();
void begin_list(const char* name);
void end_list();

// Only in JSON, for values that the text says in words of its own.
struct JsonOnly {
    JsonOnly();
    ~JsonOnly();
};

// Ends the object, if there is one, and writes all that is kept; what follows is in an object, and on a line, of
// its own. False as flush() is.
bool end_object();

// Writes what is kept. False, with errno set, when that or anything before could not be written; where there is
// nothing to write, nothing fails.
bool flush();

}  // namespace tool::results
