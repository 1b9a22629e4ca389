// Any text as settings.json: what is read is written as a text that reads as the same, or there is one sentence.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "stage/show/settings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string written;
    try {
        written = stage::AsText(stage::ParseSettings(text, "fuzz.json"));
    } catch (const std::runtime_error& error) {
        if (std::string(error.what()).find('\n') != std::string::npos) std::abort();
        return 0;
    }
    if (stage::AsText(stage::ParseSettings(written, "written.json")) != written) std::abort();
    return 0;
}
