#pragma once

#include "IPMIRequester.h"
#include "OemRequest.h"

#include <array>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace OrbLib::ipmiclient {

// Base of every OEM request object: one request to the firmware over an open
// session, identified by its header byte, network function and command code.
class IPMIClientCommand {
public:
    static constexpr std::size_t kDataAreaSize = 2048;

    IPMIClientCommand(IPMIRequester& requester, std::uint8_t header, std::uint8_t netFn, std::uint8_t command);
    IPMIClientCommand(const IPMIClientCommand&) = delete;
    IPMIClientCommand& operator=(const IPMIClientCommand&) = delete;
    virtual ~IPMIClientCommand() = default;

    [[nodiscard]] virtual unsigned char getRsSlaveAddr() const;
    [[nodiscard]] virtual unsigned char getRsLun() const { return 0; }
    [[nodiscard]] virtual unsigned char getRqLun() const { return 0; }
    // The response data of the last request.
    [[nodiscard]] virtual const unsigned char* getResData() const { return data_.data(); }
    // Returns on completion code 0; otherwise throws PException with the
    // completion code as its action code and detail 0x0700.
    virtual void checkCompletionCode(unsigned short command, unsigned char completionCode, const char* text);

    [[nodiscard]] std::uint8_t header() const { return header_; }
    [[nodiscard]] std::uint8_t netFn() const { return netFn_; }
    [[nodiscard]] std::uint8_t command() const { return command_; }

protected:
    // Sends the request `layout` describes with `parameters`, checks the
    // completion code and returns the response data.
    std::vector<std::uint8_t> send(const partmode::wire::OemRequest& layout,
                                   std::initializer_list<std::uint8_t> parameters);
    // The same for a request whose answer is one byte; an empty answer throws
    // PException.
    std::uint8_t sendForByte(const partmode::wire::OemRequest& layout,
                             std::initializer_list<std::uint8_t> parameters);

private:
    IPMIRequester* requester_;
    std::uint8_t header_;
    std::uint8_t netFn_;
    std::uint8_t command_;
    std::uint32_t responseLength_ = 0;
    std::array<unsigned char, kDataAreaSize> data_{};
};

} // namespace OrbLib::ipmiclient
