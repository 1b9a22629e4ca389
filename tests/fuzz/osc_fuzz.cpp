// Any bytes as a stream of OSC packets or as one packet: what comes out of it is a press that the desk can check, and a
// message that is written is read as the same; or there is one sentence. The first byte says which.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <stdexcept>
#include <string>

#include "stage/osc/osc_command.h"
#include "stage/osc/osc_message.h"
#include "stage/osc/stream_framing.h"
#include "tests/support/show_builder.h"

namespace {

const tavo_midi::ShowData& GetShow() {
    static test_support::TestShow show;
    static const bool isMade = [] {
        show.Song("1", 8).Song("12a", 4);
        return true;
    }();
    static_cast<void>(isMade);
    return show.GetShowData();
}

void RequireSentence(const std::invalid_argument& problem) {
    const std::string sentence = problem.what();
    if (sentence.empty() || sentence.find('\n') != std::string::npos) std::abort();
}

void Press(const stage::OscMessage& message) {
    try {
        const stage::OscPress press = stage::ReadOscPress(message, GetShow(), "1");
        if (!stage::CheckCommand(press.command, GetShow()).empty()) std::abort();
        // It may come to stand in a take.
        if (AsText(press.command).find('\n') != std::string::npos) std::abort();
    } catch (const std::invalid_argument& problem) {
        RequireSentence(problem);
    }
}

void WriteAndReadAgain(const stage::OscMessage& message) {
    std::vector<char> packet;
    try {
        packet = stage::WriteOscPacket(message);
    } catch (const std::invalid_argument& problem) {
        return RequireSentence(problem);
    }
    const std::vector<stage::OscMessage> again = stage::ReadOscPacket(packet);
    if (again.size() != 1 || again.front().address != message.address ||
        again.front().arguments.size() != message.arguments.size())
        std::abort();
}

void ReadPacket(std::span<const char> packet) {
    try {
        for (const stage::OscMessage& message : stage::ReadOscPacket(packet)) {
            Press(message);
            WriteAndReadAgain(message);
        }
    } catch (const std::invalid_argument& problem) {
        RequireSentence(problem);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::span bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] % 2 == 0) {
        ReadPacket(bytes);
        return 0;
    }
    stage::StreamReader reader;
    try {
        reader.Take(bytes);
    } catch (const std::invalid_argument& problem) {
        RequireSentence(problem);
    }
    while (const auto packet = reader.Next())
        ReadPacket(*packet);
    return 0;
}
