#include "ShowMemoryModeCommand.h"

#include "PartModeUtil.h"

#include <iostream>
#include <sstream>

ShowMemoryModeCommand::ShowMemoryModeCommand(const char* keyword) : MemoryModeCommand("show", keyword) {}

bool ShowMemoryModeCommand::parseCommand(int argc, char** argv)
{
    appendArguments(argc, argv);
    // A single-partition system takes no partition number: it is partition 0.
    const int required = isSinglePartitionSystem() ? 0 : 1;
    if (argc < required) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    if (required == 1 && !PartModeUtil::getPartitionNumber(argv[0], partitionNumber_)) {
        PartModeUtil::printPartNumInvalid();
        return false;
    }
    if (argc > required) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    return true;
}

int ShowMemoryModeCommand::execute()
{
    const int result = executeShowFrame();
    if (result == 0) {
        printMode();
    }
    return result;
}

void ShowMemoryModeCommand::printCurrentAndSetting(std::size_t currentByte, std::size_t settingByte,
                                                   const char* (*word)(int), const char* unknownLabel) const
{
    std::ostringstream report;
    for (const auto& [label, index] : {std::pair{"current", currentByte}, std::pair{"setting", settingByte}}) {
        const char* text = word(recordByte(index));
        if (text == nullptr) {
            text = "-";
            traceMessage(20052, unknownLabel);
        }
        report << label << ": " << text << '\n';
    }
    std::cout << report.str() << std::flush;
}
