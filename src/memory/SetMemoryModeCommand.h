#pragma once

#include "MemoryModeCommand.h"

#include <cstdint>
#include <optional>

// Base of the three commands that register a memory mode for the next
// power-on: they share the argument grammar, the checks, the confirmations,
// the Reserved SB retry and the explanation of a refused change.
class SetMemoryModeCommand : public MemoryModeCommand {
public:
    // Result of checkException for a refusal that the operator may override by
    // accepting the Reserved SB.
    static constexpr int kReservedSb = 72;

    bool parseCommand(int argc, char** argv) override;
    int execute() override;

    // Explains a failed change on standard error and in the trace. Returns
    // kReservedSb (nothing printed) for the Reserved SB refusal, else 2.
    int checkException(unsigned short detail, unsigned char actionCode);

protected:
    explicit SetMemoryModeCommand(const char* keyword);

    // Takes the mode word into mode_; false when it is none of the words.
    virtual bool parseModeWord(const char* word) = 0;
    // Reads the record, confirms and registers the mode; 0 or the exit status.
    virtual int setModeInfo(IPMIRequester& requester) = 0;

    // Stores a parsed mode; false when the word gave none.
    bool takeMode(std::optional<int> mode);
    // Reads a record whole enough to be sent back.
    void readRecordForChange(IPMIRequester& requester, const char* label);
    // Asks for the power off/on confirmation unless quiet or the partition
    // already runs with the mode; false when the operator declines.
    [[nodiscard]] bool confirmChange(int currentMode) const;
    // Sends the next-boot values; on a Reserved SB refusal asks (unless quiet)
    // and sends them again accepting the Reserved SB. 0 or the exit status.
    int registerMode(std::uint8_t modeEnable, std::uint8_t operationMode, std::uint8_t mirrorRasMode);

    int changeMode(IPMIRequester& requester) override;
    int handleSetException(const PException& exception) override;
    [[nodiscard]] bool auditsSystemOnSinglePartition() const override { return true; }

    int mode_ = 0;
    bool quiet_ = false;

private:
    void sendMode(std::uint8_t modeEnable, std::uint8_t operationMode, std::uint8_t mirrorRasMode,
                  std::uint8_t acceptReservedSb) const;
};
