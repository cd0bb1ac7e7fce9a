#pragma once

#include <cstdint>
#include <exception>
#include <initializer_list>
#include <string>
#include <variant>
#include <vector>

// The platform's exception. Its constructor takes the platform's fixed argument
// list: five codes, a message id and eight further arguments, each of which is
// either a number or a text.
class PException : public std::exception {
public:
    using Argument = std::variant<long, std::string>;

    PException(std::uint8_t severity, std::uint8_t module, std::uint16_t function,
               std::uint8_t actionCode, std::uint16_t exceptionDetail, int messageId,
               std::initializer_list<Argument> arguments = {});

    [[nodiscard]] std::uint8_t getActionCode() const { return actionCode_; }
    [[nodiscard]] std::uint16_t getExceptionDetail() const { return exceptionDetail_; }
    [[nodiscard]] std::uint8_t getSeverity() const { return severity_; }
    [[nodiscard]] std::uint8_t getModule() const { return module_; }
    [[nodiscard]] std::uint16_t getFunction() const { return function_; }
    [[nodiscard]] int getMessageId() const { return messageId_; }
    [[nodiscard]] const std::vector<Argument>& getArguments() const { return arguments_; }

    // The text arguments joined by ": ", for diagnostics.
    [[nodiscard]] const char* what() const noexcept override { return text_.c_str(); }

private:
    std::uint8_t severity_;
    std::uint8_t module_;
    std::uint16_t function_;
    std::uint8_t actionCode_;
    std::uint16_t exceptionDetail_;
    int messageId_;
    std::vector<Argument> arguments_;
    std::string text_;
};
