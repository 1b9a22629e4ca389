// Any text as a message of a client and as the body of a request: it is read, or there is one sentence.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "stage/web/web_messages.h"

namespace {

template <class Read>
void ReadOrRefuse(Read read) {
    try {
        read();
    } catch (const std::invalid_argument& refusal) {
        if (std::string(refusal.what()).find('\n') != std::string::npos) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    ReadOrRefuse([&] {
        const stage::ClientMessage message = stage::ParseClientMessage(text);
        if (message.id.size() > 64 || message.t.size() > 64) std::abort();
        // What is sent back has to be JSON within JSON.
        if (!message.id.empty()) {
            const std::string again = R"({"type":"press","line":"go","id":)" + message.id + "}";
            if (stage::ParseClientMessage(again).id != message.id) std::abort();
        }
    });
    ReadOrRefuse([&] { static_cast<void>(stage::ParseArguments(text)); });
    ReadOrRefuse([&] { static_cast<void>(stage::ParsePasscode(text)); });
    return 0;
}
