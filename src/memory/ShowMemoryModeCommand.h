#pragma once

#include "MemoryModeCommand.h"

#include <cstddef>

// Base of the three commands that print one memory mode of a partition as its
// current and its registered ("setting") value.
class ShowMemoryModeCommand : public MemoryModeCommand {
public:
    bool parseCommand(int argc, char** argv) override;
    int execute() override;

protected:
    explicit ShowMemoryModeCommand(const char* keyword);

    // Prints the report; runs after the success trace.
    virtual void printMode() = 0;

    // Prints "current" and "setting" with the words of two record bytes. A byte
    // without a word shows "-" and is traced as message 20052 with `unknownLabel`.
    void printCurrentAndSetting(std::size_t currentByte, std::size_t settingByte, const char* (*word)(int),
                                const char* unknownLabel) const;
};
