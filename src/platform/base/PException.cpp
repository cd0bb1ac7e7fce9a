#include "PException.h"

PException::PException(std::uint8_t severity, std::uint8_t module, std::uint16_t function,
                       std::uint8_t actionCode, std::uint16_t exceptionDetail, int messageId,
                       std::initializer_list<Argument> arguments)
    : severity_(severity), module_(module), function_(function), actionCode_(actionCode),
      exceptionDetail_(exceptionDetail), messageId_(messageId), arguments_(arguments)
{
    // The platform's list always holds eight arguments after the message id.
    arguments_.resize(8, Argument{0L});
    for (const auto& argument : arguments_) {
        if (const auto* text = std::get_if<std::string>(&argument)) {
            if (!text_.empty()) {
                text_ += ": ";
            }
            text_ += *text;
        }
    }
    if (text_.empty()) {
        text_ = "platform exception " + std::to_string(messageId_);
    }
}
