#include "tavo_core/tavo_log_exception.h"

#include "kit/thread_exception_log.h"

void TavoLogException(const std::string& message, const std::string& sourceFile, int line) noexcept {
    try {
        kit::AppendToThreadExceptionLog(message + " (" + sourceFile + ", line " + std::to_string(line) + ")");
    } catch (...) {
        kit::AppendToThreadExceptionLog(message);
    }
}
