#include "platform/tavo_midi_io/src/midi_requests.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "kit/thread_names.h"
#include "tests/support/exception_log.h"

namespace {

using tavo_midi_io::MidiRequests;

TEST(MidiRequests, Asked_AnswersFromAThreadOfItsOwn) {
    EXPECT_EQ(MidiRequests::Get().Ask([] { return kit::threadNames.GetNameOfCurrentThread(); }), "MIDI requests");
}

TEST(MidiRequests, AskedWhatThrows_ThrowsIt) {
    EXPECT_THROW(static_cast<void>(MidiRequests::Get().Ask([]() -> int { throw std::runtime_error("No."); })),
                 std::runtime_error);
    EXPECT_THROW(static_cast<void>(MidiRequests::Get().Ask([]() -> int { throw 7; })), int);
}

TEST(MidiRequests, ClosingThrows_IsLoggedAndTheNextRequestIsMade) {
    const test_support::ExceptionLog log;
    MidiRequests::Get().Close([] { throw std::runtime_error("It is stuck."); });
    MidiRequests::Get().Close([] { throw 7; });
    EXPECT_EQ(MidiRequests::Get().Ask([] { return 5; }), 5);
    const std::string lines = log.Read();
    EXPECT_NE(lines.find("It is stuck."), std::string::npos) << lines;
    EXPECT_NE(lines.find("Unknown exception."), std::string::npos) << lines;
    EXPECT_NE(lines.find("MIDI requests"), std::string::npos) << lines;
}

TEST(MidiRequests, ClosingInsideOfARequestThrows_TheRequestIsAnswered) {
    const test_support::ExceptionLog log;
    EXPECT_EQ(MidiRequests::Get().Ask([] {
        MidiRequests::Get().Close([] { throw std::runtime_error("It is stuck."); });
        return 5;
    }),
              5);
    EXPECT_NE(log.Read().find("It is stuck."), std::string::npos) << log.Read();
}

}  // namespace
