#include "FreeIpmiTransport.h"

#include "FreeIpmiLibrary.h"
#include "FreeIpmiOptions.h"
#include "MessageCatalogue.h"
#include "OrbTrace.h"
#include "PException.h"
#include "PasswordFile.h"
#include "PlatformError.h"
#include "RawIpmiFrame.h"
#include "SessionDeadline.h"

#include <freeipmi/freeipmi.h>

#include <array>
#include <optional>
#include <string>

namespace partmode {
namespace {

// Room for the command byte, the completion code and the longest answer.
constexpr std::size_t kResponseBufferSize = 1024;

std::uint8_t actionOf(int errnum)
{
    switch (errnum) {
    case IPMI_ERR_PERMISSION:
    case IPMI_ERR_USERNAME_INVALID:
    case IPMI_ERR_PASSWORD_INVALID:
    case IPMI_ERR_K_G_INVALID:
    case IPMI_ERR_PRIVILEGE_LEVEL_INSUFFICIENT:
    case IPMI_ERR_PRIVILEGE_LEVEL_CANNOT_BE_OBTAINED:
    case IPMI_ERR_AUTHENTICATION_TYPE_UNAVAILABLE:
    case IPMI_ERR_CIPHER_SUITE_ID_UNAVAILABLE:
    case IPMI_ERR_PASSWORD_VERIFICATION_TIMEOUT:
    case IPMI_ERR_IPMI_2_0_UNAVAILABLE:
    case IPMI_ERR_BAD_RMCPPLUS_STATUS_CODE:
        return error::kActionRefused;
    case IPMI_ERR_CONNECTION_TIMEOUT:
    case IPMI_ERR_SESSION_TIMEOUT:
    case IPMI_ERR_MESSAGE_TIMEOUT:
    case IPMI_ERR_DRIVER_TIMEOUT:
        return error::kActionTimeout;
    case IPMI_ERR_HOSTNAME_INVALID:
    case IPMI_ERR_DEVICE_NOT_FOUND:
    case IPMI_ERR_DEVICE_NOT_SUPPORTED:
    case IPMI_ERR_DRIVER_PATH_REQUIRED:
        return error::kActionUnreachable;
    default:
        return error::kActionSessionOther;
    }
}

// "host:port", with an IPv6 address in brackets, as libfreeipmi reads it.
std::string hostAndPort(const FirmwareConfig& config)
{
    const bool bareIpv6 = config.host.find(':') != std::string::npos && config.host.front() != '[';
    return (bareIpv6 ? "[" + config.host + "]" : config.host) + ":" + std::to_string(config.port);
}

// Traces libfreeipmi's reason, then throws it as the platform's exception.
[[noreturn]] void failSession(const std::string& peer, std::uint16_t command, std::uint8_t action,
                              const std::string& reason)
{
    const std::string text = peer + ": " + reason;
    char message[kMessageBufferSize];
    trace::OrbTrace(1, 3, 1024).putLog(0, lmsg_getmsg(kSessionFailureMessage, message, text.c_str()));
    throw PException(1, 0x52, command, action, error::kDetailSession, error::kMessagePlatformFailure, {text});
}

const freeipmi::Library& loadLibrary(const std::string& peer)
{
    std::string reason;
    const freeipmi::Library* library = freeipmi::Library::load(reason);
    if (library == nullptr) {
        failSession(peer, 0, error::kActionSessionOther, reason);
    }
    return *library;
}

} // namespace

struct FreeIpmiTransport::Context {
    explicit Context(std::string peer) : library(loadLibrary(peer)), handle(library.ctxCreate()), peer(std::move(peer))
    {
    }
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
    ~Context()
    {
        if (handle != nullptr) {
            // The close is part of the session's time; past it, the BMC
            // ends the session on its own.
            if (open && (!deadline || !deadline->passed())) {
                const SessionDeadline::Armed armed(bound());
                library.ctxClose(handle);
            }
            library.ctxDestroy(handle);
        }
    }

    // The session's deadline, for an Armed guard around the next call.
    [[nodiscard]] const SessionDeadline* bound() const { return deadline ? &*deadline : nullptr; }

    // Fails when the session's time is up, before another datagram leaves.
    void checkDeadline(std::uint16_t command) const
    {
        if (deadline && deadline->passed()) {
            failTimeout(command);
        }
    }

    [[noreturn]] void failTimeout(std::uint16_t command) const
    {
        fail(command, error::kActionTimeout,
             "session timeout: " + std::to_string(deadline->budget().count()) + " ms passed");
    }

    [[noreturn]] void fail(std::uint16_t command, std::uint8_t action, const std::string& reason) const
    {
        failSession(peer, command, action, reason);
    }

    [[noreturn]] void failFromLibrary(std::uint16_t command) const
    {
        if (handle == nullptr) {
            fail(command, error::kActionSessionOther, "cannot create an IPMI context");
        }
        // An interrupted wait at the deadline is the session timing out.
        if (deadline && deadline->passed() && actionOf(library.ctxErrnum(handle)) != error::kActionTimeout) {
            failTimeout(command);
        }
        fail(command, actionOf(library.ctxErrnum(handle)), library.ctxErrormsg(handle));
    }

    const freeipmi::Library& library;
    ipmi_ctx_t handle;
    std::string peer;
    bool open = false;
    std::optional<SessionDeadline> deadline;
};

FreeIpmiTransport::FreeIpmiTransport(std::unique_ptr<Context> context, std::uint32_t iana)
    : context_(std::move(context)), iana_(iana)
{
}

FreeIpmiTransport::~FreeIpmiTransport() = default;

std::unique_ptr<FreeIpmiTransport> FreeIpmiTransport::openLan(const FirmwareConfig& config)
{
    // The password and key files are checked before any packet leaves. The
    // key K_g is kept and checked like the password: at most 20 bytes, in a
    // file only its owner may access.
    const std::string password = PasswordFile::read(config.passwordFile);
    const std::string key = config.kgFile.empty() ? std::string() : PasswordFile::read(config.kgFile);
    unsigned int workarounds = 0;
    for (const auto& name : config.workarounds) {
        workarounds |= freeipmi::outOfBandWorkaround(name).value_or(0);
    }
    auto context = std::make_unique<Context>("BMC " + hostAndPort(config));
    if (context->handle == nullptr) {
        context->failFromLibrary(0);
    }
    context->deadline.emplace(std::chrono::milliseconds(config.sessionTimeoutMs));
    const SessionDeadline::Armed armed(context->bound());
    if (context->library.ctxOpenOutofband20(
            context->handle, hostAndPort(config).c_str(), config.username.c_str(), password.c_str(),
            key.empty() ? nullptr : reinterpret_cast<const unsigned char*>(key.data()),
            static_cast<unsigned int>(key.size()),
            freeipmi::privilegeLevel(config.privilege).value_or(IPMI_PRIVILEGE_LEVEL_ADMIN),
            static_cast<std::uint8_t>(config.cipherSuite), config.sessionTimeoutMs, config.retransmissionTimeoutMs,
            workarounds, IPMI_FLAGS_DEFAULT) < 0) {
        context->failFromLibrary(0);
    }
    context->open = true;
    return std::unique_ptr<FreeIpmiTransport>(new FreeIpmiTransport(std::move(context), config.iana));
}

std::unique_ptr<FreeIpmiTransport> FreeIpmiTransport::openInband(const FirmwareConfig& config)
{
    auto context = std::make_unique<Context>(config.device.empty() ? std::string("in-band IPMI")
                                                                   : "in-band device " + config.device.string());
    if (context->handle == nullptr) {
        context->failFromLibrary(0);
    }
    const auto driver = static_cast<ipmi_driver_type_t>(freeipmi::inbandDriver(config.driver).value_or(0));
    const char* device = config.device.empty() ? nullptr : config.device.c_str();
    if (driver == IPMI_DEVICE_UNKNOWN) {
        const int found =
            context->library.ctxFindInband(context->handle, nullptr, 0, 0, 0, device, 0, IPMI_FLAGS_DEFAULT);
        if (found < 0) {
            context->failFromLibrary(0);
        }
        if (found == 0) {
            context->fail(0, error::kActionUnreachable, "no in-band IPMI device found");
        }
    } else if (context->library.ctxOpenInband(context->handle, driver, 0, 0, 0, device, 0, IPMI_FLAGS_DEFAULT) < 0) {
        context->failFromLibrary(0);
    }
    context->open = true;
    return std::unique_ptr<FreeIpmiTransport>(new FreeIpmiTransport(std::move(context), config.iana));
}

RawResponse FreeIpmiTransport::request(std::uint8_t netFn, std::uint8_t command, std::span<const std::uint8_t> data)
{
    const RawIpmiFrame frame(netFn, command, iana_);
    const auto packet = frame.request(data);
    std::array<std::uint8_t, kResponseBufferSize> answer{};
    context_->checkDeadline(command);
    const SessionDeadline::Armed armed(context_->bound());
    const int length = context_->library.cmdRaw(context_->handle, IPMI_BMC_IPMB_LUN_BMC, netFn, packet.data(),
                                                static_cast<unsigned int>(packet.size()), answer.data(),
                                                static_cast<unsigned int>(answer.size()));
    if (length < 0) {
        context_->failFromLibrary(command);
    }
    std::string fault;
    auto response = frame.answer(std::span<const std::uint8_t>(answer.data(), static_cast<std::size_t>(length)), fault);
    if (!response) {
        context_->fail(command, error::kActionMalformed, fault);
    }
    return std::move(*response);
}

} // namespace partmode
