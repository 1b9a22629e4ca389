// Any text as a flow state: what is read is written as a text that reads as the same, or there is one sentence.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

#include "player_core/flow_state.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FlowState state;
    try {
        state = FlowStateFromText({reinterpret_cast<const char*>(data), size});
    } catch (const std::invalid_argument& error) {
        if (std::string_view(error.what()).find('\n') != std::string_view::npos) std::abort();
        return 0;
    }
    if (FlowStateFromText(ToText(state)) != state) std::abort();
    return 0;
}
