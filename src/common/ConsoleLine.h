#pragma once

#include <cstddef>
#include <string>

// Console lines are formatted with snprintf into buffers of fixed sizes, so a
// text longer than a buffer keeps its first (size - 1) bytes. The front end
// and the commands cut their lines here, each with the size of the last buffer
// the line passes through on its way to the console. (The last-resort handler
// of main formats on the stack instead, so that it does not allocate.)
class ConsoleLine {
public:
    // The text that snprintf leaves in a buffer of `bufferSize` bytes (at
    // least 1).
    [[gnu::format(printf, 2, 3)]] static std::string format(std::size_t bufferSize, const char* pattern, ...);
    // "Failed to execute <command> command." in a buffer of `bufferSize` bytes.
    static std::string failure(std::size_t bufferSize, const std::string& command);
    // `text` and a line end on standard error, flushed.
    static void printError(const std::string& text);
};
