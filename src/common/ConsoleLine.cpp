#include "ConsoleLine.h"

#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <vector>

std::string ConsoleLine::format(std::size_t bufferSize, const char* pattern, ...)
{
    std::vector<char> buffer(bufferSize == 0 ? 1 : bufferSize, '\0');
    va_list arguments;
    va_start(arguments, pattern);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::vsnprintf(buffer.data(), buffer.size(), pattern, arguments);
#pragma GCC diagnostic pop
    va_end(arguments);
    return buffer.data();
}

std::string ConsoleLine::failure(std::size_t bufferSize, const std::string& command)
{
    return format(bufferSize, "Failed to execute %s command.", command.c_str());
}

void ConsoleLine::printError(const std::string& text) { std::cerr << text << std::endl; }
