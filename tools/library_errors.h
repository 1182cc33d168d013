// Names and one-line explanations of the library's result codes.
#pragma once

#include <stdint.h>

#include <string>

namespace parvex_tool {

// "PARVEX_ERROR_PARAM" etc.; a code without a public name as "0x80000004".
std::string resultName(uint32_t code);
std::string resultExplanation(uint32_t code);

// Throws a ToolError "<call>: <name> (0x...): <explanation>[ (<hint>)]"
// unless `code` is PARVEX_OK.
void checkResult(uint32_t code, const char *call, const std::string &hint = std::string());

}  // namespace parvex_tool
