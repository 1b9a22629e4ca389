#include "guard.h"

#include <cstdlib>
#include <cstring>

#include "player_core/interface.h"
#include "stage/show/show_hold.h"

namespace tavo_c {

namespace {

thread_local std::string lastError;
/// Stands for a sentence that there was no memory for.
thread_local const char* lastErrorText = "";

}  // namespace

tavo_result Fail(tavo_result result, const char* sentence) noexcept {
    try {
        lastError = sentence;
        lastErrorText = lastError.c_str();
    } catch (const std::bad_alloc&) {
        lastErrorText = "there is no memory left";
    }
    return result;
}

tavo_result FailWithException() noexcept {
    try {
        throw;
    } catch (const Problem& problem) {
        return Fail(problem.GetResult(), problem.what());
    } catch (const stage::ShowHeldError& problem) {
        return Fail(TAVO_BUSY, problem.what());
    } catch (const InterfaceError& problem) {
        return Fail(TAVO_NOT_FOUND, problem.what());
    } catch (const std::bad_alloc&) {
        return Fail(TAVO_NO_MEMORY, "there is no memory left");
    } catch (const std::exception& problem) {
        return Fail(TAVO_FAILED, problem.what());
    } catch (...) {
        return Fail(TAVO_INTERNAL, "the library made a mistake that it cannot describe");
    }
}

char* CopyText(const std::string& text) {
    // A text of a show may hold a null byte; C would not see what follows it.
    char* const copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) throw std::bad_alloc();
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

}  // namespace tavo_c

using namespace tavo_c;

uint32_t tavo_version_number(void) {
    return TAVO_VERSION_NUMBER;
}

const char* tavo_version(void) {
    return TAVO_C_VERSION;
}

const char* tavo_result_name(tavo_result result) {
    static constexpr const char* Names[] = {"ok",           "end",       "refused", "failed",    "bad handle",
                                            "bad argument", "not found", "busy",    "no memory", "internal"};
    return result >= 0 && result < static_cast<tavo_result>(std::size(Names)) ? Names[result] : "unknown";
}

const char* tavo_last_error(void) {
    return lastErrorText;
}

void tavo_free(char* text) {
    std::free(text);
}
