#pragma once

#include "IPMIRequester.h"

#include <string>

// Checks, parsers, the confirmation prompt and the console messages that the
// commands share. All operations are static; the class holds no state.
class PartModeUtil {
public:
    using IPMIRequester = OrbLib::ipmiclient::IPMIRequester;

    // Exact, case-sensitive comparison; false when either word is null.
    static bool checkKeyword(const char* word, const char* keyword);
    static bool getCommandQuietOption(const char* word);

    // Physical partition number; `number` is untouched on failure.
    static bool getPPARNumber(const char* text, unsigned int& number);
    // Any partition below the count of all partitions. The bound is compared
    // signed, so a negative number passes and is stored as its 32-bit pattern.
    static bool getPartitionNumber(const char* text, unsigned int& number);
    // Only unit type 1 (an I/O unit number below the I/O unit count) can
    // succeed; every other type prints the invalid-parameter message.
    static bool checkUnitNumber(char* text, unsigned int unitType, unsigned int& number);

    // Shows `prompt` until the operator answers one character Y/y (true) or
    // N/n (false); end of input is false.
    static bool isExecute(const char* prompt);

    static bool checkDefinedPartition(IPMIRequester& requester, unsigned int partition);
    // True when dynamic reconfiguration is not enabled on the partition.
    static bool checkDPMode(IPMIRequester& requester, unsigned int partition);
    // True when extended partitioning mode is off for the partition.
    static bool checkXparMode(IPMIRequester& requester, unsigned int partition);
    // Replaces `partition` with the parent of the extended partition; false
    // when it has none.
    static bool checkParentPartitionId(IPMIRequester& requester, unsigned int& partition);
    static bool isPowerOnPartition(IPMIRequester& requester, unsigned int partition);
    // True when TPM is not effective (also when the firmware cannot tell).
    static bool checkTPMMode(IPMIRequester& requester, unsigned int partition);
    static bool isDynamicPartitioningSupport(IPMIRequester& requester);
    static unsigned int getCPUSocketNum(IPMIRequester& requester);
    // True when the server monitor's system status of the partition allows a change.
    static bool checkPartSystemInProgress(unsigned int partition);

    static std::string printPartNumInvalid();
    static std::string printParameterInvalid();
    static std::string printNoAuthority();
    static std::string printSystemMirrorDisabled();
    static void printPartitionNotDefined(unsigned int partition);
    static void printTPMEnabled(unsigned int partition);
    static void printDPModeEnabled(unsigned int partition);
    static void printXparModeEnabled(unsigned int partition);
    static void printErrMsgConsole(const char* text);
};
