// Errors of the parvex tool. A ToolError ends the command with exit code 1
// and its message; a UsageError (a bad command line) with exit code 2.
#pragma once

#include <stdexcept>
#include <string>

namespace parvex_tool {

class ToolError : public std::runtime_error {
public:
    explicit ToolError(const std::string &message) : std::runtime_error(message) {}
};

class UsageError : public ToolError {
public:
    explicit UsageError(const std::string &message) : ToolError(message) {}
};

}  // namespace parvex_tool
