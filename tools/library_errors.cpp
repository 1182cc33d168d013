#include "library_errors.h"

#include <stdio.h>

#include "parvex_distortion_correction.h"
#include "tool_error.h"

namespace parvex_tool {

namespace {

// Codes of inner layers that the engine passes through unchanged.
constexpr uint32_t kHeapExhausted = 0x80000004u;
constexpr uint32_t kWaitTimedOut = 0x80000080u;

std::string hex(uint32_t code) {
    char text[16];
    snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(code));
    return text;
}

}  // namespace

std::string resultName(uint32_t code) {
    switch (code) {
    case PARVEX_OK: return "PARVEX_OK";
    case PARVEX_ERROR_PARAM: return "PARVEX_ERROR_PARAM";
    case PARVEX_ERROR_STATE: return "PARVEX_ERROR_STATE";
    case PARVEX_ERROR_IMAGE_FORMAT: return "PARVEX_ERROR_IMAGE_FORMAT";
    case PARVEX_ERROR_MALLOC: return "PARVEX_ERROR_MALLOC";
    case PARVEX_ERROR_HEAP_EXHAUSTED: return "PARVEX_ERROR_HEAP_EXHAUSTED";
    case PARVEX_ERROR_WAIT_TIMEOUT: return "PARVEX_ERROR_WAIT_TIMEOUT";
    default: return hex(code);
    }
}

std::string resultExplanation(uint32_t code) {
    switch (code) {
    case PARVEX_OK: return "success";
    case PARVEX_ERROR_PARAM: return "a null pointer or a value out of range";
    case PARVEX_ERROR_STATE: return "the call is not allowed in the engine's present state, or an image has the wrong size";
    case PARVEX_ERROR_IMAGE_FORMAT: return "the engine does not accept this image format here";
    case PARVEX_ERROR_MALLOC: return "the work buffer is too small, or its heap failed";
    case kHeapExhausted: return "the engine's work-buffer heap could not supply memory";
    case kWaitTimedOut: return "a timed wait inside the engine expired";
    default: return "an unknown result code";
    }
}

void checkResult(uint32_t code, const char *call, const std::string &hint) {
    if (code == PARVEX_OK) return;
    std::string message = std::string(call) + ": " + resultName(code);
    if (resultName(code) != hex(code)) message += " (" + hex(code) + ")";
    message += ": " + resultExplanation(code);
    if (!hint.empty()) message += " (" + hint + ")";
    throw ToolError(message);
}

}  // namespace parvex_tool
