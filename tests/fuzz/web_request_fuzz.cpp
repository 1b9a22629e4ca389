// Any text as the parts of a request that are read here: its target, its cookies, its authorization, its host and
// origin.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "stage/web/web_access.h"
#include "stage/web/web_address.h"
#include "stage/web/web_messages.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const stage::WebAccess access({}, true);
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        for (const std::string& part : stage::ParseTarget(text).parts) {
            const bool leadsElsewhere = part.empty() || part == "." || part == ".." ||
                                        part.find_first_of(std::string("/\\\0", 3)) != std::string::npos;
            if (leadsElsewhere) std::abort();
        }
    } catch (const std::invalid_argument& refusal) {
        if (std::string(refusal.what()).find('\n') != std::string::npos) std::abort();
    }
    try {
        const stage::WebAddress address = stage::ParseWebAddress(text);
        if (stage::ParseWebAddress(AsText(address)) != address) std::abort();
    } catch (const std::invalid_argument& refusal) {
        if (std::string(refusal.what()).find('\n') != std::string::npos) std::abort();
    }
    const std::string_view cookie = stage::FindCookie(text, "stage_7480");
    if (cookie.find(';') != std::string_view::npos) std::abort();
    static_cast<void>(access.FindRoleOfToken(stage::FindBearer(text)));
    // Nobody else's page gets in by what it calls itself.
    const std::size_t half = text.size() / 2;
    if (access.FindProblem("127.0.0.1:7480", text).empty() && !text.empty() && text.size() != 21) std::abort();
    static_cast<void>(access.FindProblem(text.substr(0, half), text.substr(half)));
    return 0;
}
