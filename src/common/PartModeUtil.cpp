#include "PartModeUtil.h"

#include "CommonUtil.h"
#include "ComponentInfoCollection.h"
#include "ConsoleLine.h"
#include "GetBit.h"
#include "OEMGetDefinedPartitionsCommand.h"
#include "OEMGetDynamicPartitioningCommand.h"
#include "OEMGetPartitionInfoCommand.h"
#include "OEMGetTPMEnablesCommand.h"
#include "OEMGetXPARInfoCommand.h"
#include "OEMGetXPARModeCommand.h"
#include "OemProtocol.h"
#include "PException.h"
#include "PartitionInfo.h"
#include "PlatformError.h"
#include "PrimitiveTypeArray.h"
#include "ServerMonitor.h"
#include "SystemStatusSensorMonitor.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <vector>

using OrbLib::ipmiclient::OEMGetDefinedPartitionsCommand;
using OrbLib::ipmiclient::OEMGetDynamicPartitioningCommand;
using OrbLib::ipmiclient::OEMGetPartitionInfoCommand;
using OrbLib::ipmiclient::OEMGetTPMEnablesCommand;
using OrbLib::ipmiclient::OEMGetXPARInfoCommand;
using OrbLib::ipmiclient::OEMGetXPARModeCommand;

namespace {

// Shared console messages are formatted into buffers of this size.
constexpr std::size_t kConsoleBufferSize = 128;

// strtol in base 10 over the whole text: false when no digit was read or
// anything follows the number.
bool parseWhole(const char* text, long& value)
{
    if (text == nullptr) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    value = std::strtol(text, &end, 10);
    return end != text && *end == '\0';
}

std::string printConsole(const char* text)
{
    std::string line = ConsoleLine::format(kConsoleBufferSize, "%s", text != nullptr ? text : "");
    ConsoleLine::printError(line);
    return line;
}

void printConsoleNumber(const char* format, unsigned int partition)
{
    // Printed with %d on purpose: a number stored from a negative text prints negative.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    ConsoleLine::printError(ConsoleLine::format(kConsoleBufferSize, format, static_cast<int>(partition)));
#pragma GCC diagnostic pop
}

[[noreturn]] void outOfRange()
{
    throw PException(1, 0x50, 0x5B00, 1, partmode::error::kDetailCollection, 20019, {std::string("Out of range")});
}

} // namespace

bool PartModeUtil::checkKeyword(const char* word, const char* keyword)
{
    return word != nullptr && keyword != nullptr && std::strcmp(word, keyword) == 0;
}

bool PartModeUtil::getCommandQuietOption(const char* word) { return checkKeyword(word, "quiet"); }

bool PartModeUtil::getPPARNumber(const char* text, unsigned int& number)
{
    long value = 0;
    if (!parseWhole(text, value) || value < INT_MIN || value > INT_MAX ||
        !CommonUtil::isPPAR(static_cast<int>(value))) {
        return false;
    }
    number = static_cast<unsigned int>(value);
    return true;
}

bool PartModeUtil::getPartitionNumber(const char* text, unsigned int& number)
{
    long value = 0;
    if (!parseWhole(text, value) || value >= static_cast<long>(CommonUtil::getAllPartitionNum(true))) {
        return false;
    }
    number = static_cast<unsigned int>(value);
    return true;
}

bool PartModeUtil::checkUnitNumber(char* text, unsigned int unitType, unsigned int& number)
{
    if (unitType == 1) {
        const unsigned int maximum = CommonUtil::getMaxUnitNum(COMMON_UNIT_IO_UNIT);
        long value = 0;
        if (!parseWhole(text, value) || static_cast<unsigned long>(value) >= maximum) {
            return false;
        }
        number = static_cast<unsigned int>(value);
        return true;
    }
    if (unitType == 0) {
        // Asked and not used: only I/O unit numbers are ever accepted.
        static_cast<void>(CommonUtil::getMaxUnitNum(COMMON_UNIT_SYSTEM_BOARD));
    }
    printParameterInvalid();
    return false;
}

bool PartModeUtil::isExecute(const char* prompt)
{
    for (;;) {
        if (prompt == nullptr) {
            std::cout.setstate(std::ios::badbit);
        } else {
            std::cout << prompt << std::flush;
        }
        int count = 0;
        int first = 0;
        for (;;) {
            const int character = std::fgetc(stdin);
            if (character == EOF) {
                return false;
            }
            if (character == '\n') {
                break;
            }
            if (count == 0) {
                first = character;
            }
            ++count;
        }
        if (count != 1) {
            continue;
        }
        if (first == 'N' || first == 'n') {
            return false;
        }
        if (first == 'Y' || first == 'y') {
            return true;
        }
    }
}

bool PartModeUtil::checkDefinedPartition(IPMIRequester& requester, unsigned int partition)
{
    std::vector<unsigned char> defined;
    OEMGetDefinedPartitionsCommand command(requester);
    command.getDefinedPartitions(defined);
    for (const unsigned char number : defined) {
        if (static_cast<unsigned int>(number) == partition) {
            return true;
        }
    }
    return false;
}

bool PartModeUtil::checkDPMode(IPMIRequester& requester, unsigned int partition)
{
    std::vector<unsigned char> enables;
    OEMGetDynamicPartitioningCommand command(requester);
    command.getDynamicPartitioningEnables(partition, enables);
    return enables.empty() || enables[0] != 1;
}

bool PartModeUtil::checkXparMode(IPMIRequester& requester, unsigned int partition)
{
    OEMGetXPARModeCommand command(requester);
    return !command.isXPARMode(static_cast<unsigned char>(partition & 0xFFU));
}

bool PartModeUtil::checkParentPartitionId(IPMIRequester& requester, unsigned int& partition)
{
    OEMGetXPARInfoCommand command(requester);
    const int parent = command.getXPARInfo(static_cast<int>(partition));
    if (parent == partmode::wire::kNoParentPartition) {
        return false;
    }
    partition = static_cast<unsigned int>(parent);
    return true;
}

bool PartModeUtil::isPowerOnPartition(IPMIRequester& requester, unsigned int partition)
{
    OrbLib::IpmiData::PartitionInfo info;
    OEMGetPartitionInfoCommand command(requester);
    command.getPartitionInfo(static_cast<int>(partition), info);
    return get_bit<unsigned char>(info.data()[0], 1, 1) != 0;
}

bool PartModeUtil::checkTPMMode(IPMIRequester& requester, unsigned int partition)
{
    std::vector<unsigned char> enables;
    try {
        OEMGetTPMEnablesCommand command(requester);
        command.getTPMEnables(partition, enables);
    } catch (const PException&) {
        return true;
    }
    return enables.size() < 2 || enables[0] != 1;
}

bool PartModeUtil::isDynamicPartitioningSupport(IPMIRequester& /*requester*/) { return true; }

unsigned int PartModeUtil::getCPUSocketNum(IPMIRequester& /*requester*/)
{
    return CommonUtil::getMaxUnitNum(COMMON_UNIT_CPU) * CommonUtil::getMaxUnitNum(COMMON_UNIT_SYSTEM_BOARD);
}

bool PartModeUtil::checkPartSystemInProgress(unsigned int partition)
{
    using Record = OrbLib::OrbUi::PrimitiveTypeArray<long>;
    OrbLib::OrbUi::SystemStatusSensorMonitor request(0);
    OrbLib::OrbUi::ComponentInfoCollection<Record> collection;
    OrbLib::OrbUi::ServerMonitor::execute(&request, &collection);
    if (collection.size() == 0) {
        return false;
    }
    const Record* found = nullptr;
    // The collection counts its records in 16 bits.
    for (std::size_t index = 0; index < collection.size(); ++index) {
        const Record* record = collection.getCompInfo(static_cast<unsigned short>(index));
        if (record->size() == 0) {
            outOfRange();
        }
        if (record->get(0) == static_cast<long>(partition)) {
            found = record;
            break;
        }
    }
    if (found == nullptr) {
        return false;
    }
    if (found->size() < 2) {
        outOfRange();
    }
    return get_bit<long>(found->get(1), 0, 1) != 0;
}

std::string PartModeUtil::printPartNumInvalid() { return printConsole("The specified partition number is invalid."); }

std::string PartModeUtil::printParameterInvalid() { return printConsole("The specified parameter is invalid."); }

std::string PartModeUtil::printNoAuthority()
{
    if (CommonUtil::getMaxPartitionNum() != 1) {
        return printConsole("Unable to execute this command because you have not authority to operate this partition.");
    }
    return printConsole("Unable to execute this command because you have not authority to operate this system.");
}

std::string PartModeUtil::printSystemMirrorDisabled()
{
    return printConsole("Unable to execute this command because System Mirror Mode is set to disabled (Non-mirror).");
}

void PartModeUtil::printPartitionNotDefined(unsigned int partition)
{
    if (CommonUtil::getMaxPartitionNum() != 1) {
        printConsoleNumber("Partition#%d is not defined.", partition);
    } else {
        printConsole("System Configuration Failed.");
    }
}

void PartModeUtil::printTPMEnabled(unsigned int partition)
{
    printConsoleNumber("Unable to execute this command because TPM of the Partition#%d is effective.", partition);
}

void PartModeUtil::printDPModeEnabled(unsigned int partition)
{
    printConsoleNumber("Unable to execute this command because DR mode of the Partition#%d is Enabled.", partition);
}

void PartModeUtil::printXparModeEnabled(unsigned int partition)
{
    printConsoleNumber(
        "Unable to execute this command because Extended Partitioning mode of the Partition#%d is Enabled.", partition);
}

void PartModeUtil::printErrMsgConsole(const char* text) { printConsole(text); }
