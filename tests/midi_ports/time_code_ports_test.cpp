#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

#include "tavo_midi/midi_ports.h"
#include "tavo_midi/midi_time_code_controller.h"
#include "tests/midi_ports/pedal.h"
#include "tests/midi_ports/time_code_receiver.h"
#include "tests/support/temporary_directory.h"

namespace {

using namespace std::chrono_literals;
using test_support::Address;
using test_support::Child;
using test_support::ReadAddress;
using test_support::ReadFullFrame;
using test_support::Receive;
using test_support::Received;
using test_support::TwoFramesOn;

/// A server, time code output and the receiver of it.
class TimeCodePit {
protected:
    void Prepare(const test_support::PortCase& portCase) {
        if (test_support::IsSanitized) GTEST_SKIP() << "Time code in real time needs a build without a sanitizer.";
        const std::string obstacle = test_support::PrepareJackServer(server_, portCase.periodFrames);
        if (!obstacle.empty()) GTEST_SKIP() << obstacle;
        StartReceiver();
        tavo_midi::SetMidiSystemChoice(portCase.system);
        controller_ = std::make_unique<MidiTimeCodeController>(directory_ / "midiTimeCodeSettings");
        controller_->SetOutputPortName("receiver:in");
        controller_->ActivateMidiTimeCode();
        // What the port is opened with: the place where playback would begin.
        ASSERT_EQ(ReadFullFrame(*receiver_), (Address{0, 0, 0, 0, 3}));
    }
    ~TimeCodePit() {
        controller_.reset();
        tavo_midi::SetMidiSystemChoice(tavo_midi::MidiSystemChoice::None);
    }
    void StartReceiver() {
        receiver_ = std::make_unique<Child>(std::vector<std::string>{MIDI_PEER, "receiver"});
        ASSERT_EQ(receiver_->ReadLine(), "ready");
        receiver_->CollectLines();
    }

    test_support::TemporaryDirectory directory_;
    std::unique_ptr<Child> server_;
    std::unique_ptr<Child> receiver_;
    std::unique_ptr<MidiTimeCodeController> controller_;
};

class TimeCodePorts : public TimeCodePit, public testing::TestWithParam<test_support::PortCase> {
protected:
    void SetUp() override { Prepare(GetParam()); }
};

class TimeCodeRates : public TimeCodePit,
                      public testing::TestWithParam<std::tuple<test_support::PortCase, unsigned int>> {
protected:
    void SetUp() override { Prepare(std::get<0>(GetParam())); }
};

/// Seconds a rate is listened to: TAVO_TIME_CODE_SECONDS, or few.
int SecondsToListen() {
    const char* const seconds = std::getenv("TAVO_TIME_CODE_SECONDS");
    return seconds == nullptr ? 2 : std::atoi(seconds);
}

/// How far each quarter frame lies from its even place, ascending; the median of all places is the origin.
std::vector<double> FindJitter(const std::vector<std::uint32_t>& stamps, double framesPerSecond) {
    std::vector<double> deviations;
    for (std::size_t index = 0; index < stamps.size(); ++index) {
        const double due = static_cast<double>(index) * 48000 / (4 * framesPerSecond);
        deviations.push_back(static_cast<double>(stamps[index] - stamps[0]) - due);
    }
    std::vector<double> sorted = deviations;
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2), sorted.end());
    const double origin = sorted[sorted.size() / 2];
    for (double& deviation : deviations)
        deviation = std::abs(deviation - origin);
    std::sort(deviations.begin(), deviations.end());
    return deviations;
}

double AtQuantile(const std::vector<double>& ascending, double quantile) {
    return ascending[static_cast<std::size_t>(quantile * static_cast<double>(ascending.size() - 1))];
}

TEST_P(TimeCodeRates, Rolling_EveryFrameInOrderOnItsSample) {
    const std::array<double, 4> framesPerSecond{24, 25, 30000.0 / 1001, 30};
    const auto& [portCase, rate] = GetParam();
    if (rate != 3) {
        controller_->SetFrameRate(static_cast<FrameRate>(rate));
        EXPECT_EQ(ReadFullFrame(*receiver_), (Address{0, 0, 0, 0, rate}));
    }
    // Close to where drop-frame counting leaves out two addresses.
    controller_->Start(58900ms);
    const auto first = ReadFullFrame(*receiver_);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->seconds, 58U);
    std::vector<std::uint32_t> stamps;
    auto address = ReadAddress(*receiver_, stamps);
    ASSERT_TRUE(address);
    const int pairs = static_cast<int>(SecondsToListen() * framesPerSecond[rate] / 2);
    for (int pair = 1; pair < pairs; ++pair) {
        const auto next = ReadAddress(*receiver_, stamps);
        ASSERT_TRUE(next) << "pair " << pair;
        ASSERT_EQ(*next, TwoFramesOn(*address)) << "pair " << pair;
        address = next;
    }
    const std::vector<double> jitter = FindJitter(stamps, framesPerSecond[rate]);
    std::printf("%d frames in order, jitter in samples: p99 %.2f, p99.9 %.2f, most %.2f\n", 2 * pairs,
                AtQuantile(jitter, 0.99), AtQuantile(jitter, 0.999), jitter.back());
    if (portCase.IsJack()) {
        EXPECT_LT(AtQuantile(jitter, 0.99), 1.0) << "samples";
    }
    controller_->Stop(0s);
    // The quarter frames that came in the meantime, then the full frame of the stop.
    auto received = Receive(*receiver_);
    while (received && received->bytes.size() == 2)
        received = Receive(*receiver_);
    EXPECT_TRUE(received && received->bytes.size() == 10);
}

TEST_P(TimeCodePorts, JumpsWhileRolling_TheNextFullFrameIsThere) {
    controller_->Start(0s);
    // Sent at the moment that it is for, or as soon as the machine came to it: for JACK, in its next period.
    const long longest = GetParam().IsJack() ? 1 + GetParam().periodFrames * 30L / 48000 : 3;
    const auto first = ReadFullFrame(*receiver_);
    ASSERT_TRUE(first);
    EXPECT_LE(first->frames, longest);
    unsigned int seed = 1;
    for (int jump = 0; jump < GetParam().GetRounds(200); ++jump) {
        seed = seed * 1103515245U + 12345U;
        const std::chrono::milliseconds target(seed % 3'600'000U);
        controller_->Jump(0s, target);
        std::optional<Received> received;
        do {
            received = Receive(*receiver_);
        } while (received && received->bytes.size() == 2);
        ASSERT_TRUE(received) << "jump " << jump;
        const auto& bytes = received->bytes;
        const long frame = ((bytes[5] & 0x1FU) * 3600L + bytes[6] * 60L + bytes[7]) * 30 + bytes[8];
        const long expected = target.count() * 30 / 1000;
        EXPECT_GE(frame, expected) << "jump " << jump;
        EXPECT_LE(frame, expected + longest) << "jump " << jump;
    }
}

TEST_P(TimeCodePorts, OpenedAgainAndAgain_TheFirstFullFrameIsNeverLost) {
    for (int round = 0; round < GetParam().GetRounds(20); ++round) {
        controller_->CancelMidiTimeCode();
        controller_->Locate(std::chrono::seconds(round));
        controller_->ActivateMidiTimeCode();
        ASSERT_EQ(ReadFullFrame(*receiver_), (Address{0, 0, static_cast<unsigned int>(round), 0, 3}));
    }
}

TEST_P(TimeCodePorts, JumpWithRunOn_TimeCodeRunsOnWithoutABreak) {
    controller_->SetJumpRule(MidiTimeCodeController::JumpRule::RunOn);
    controller_->Start(10s);
    ASSERT_TRUE(ReadFullFrame(*receiver_));
    std::vector<std::uint32_t> stamps;
    auto address = ReadAddress(*receiver_, stamps);
    ASSERT_TRUE(address);
    for (int pair = 0; pair < 20; ++pair) {
        if (pair == 5) controller_->Jump(11s, 2s);
        const auto next = ReadAddress(*receiver_, stamps);
        ASSERT_TRUE(next);
        ASSERT_EQ(*next, TwoFramesOn(*address)) << "pair " << pair;
        address = next;
    }
}

TEST_P(TimeCodePorts, EndedWhileRolling_TheLastMessageIsAFullFrameOfWhereItWas) {
    for (const bool isShutDown : {false, true}) {
        controller_->Start(10s);
        const auto start = std::chrono::steady_clock::now();
        ASSERT_TRUE(ReadFullFrame(*receiver_));
        std::vector<std::uint32_t> stamps;
        ASSERT_TRUE(ReadAddress(*receiver_, stamps));
        isShutDown ? controller_->Shutdown() : controller_->CancelMidiTimeCode();
        const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        auto received = Receive(*receiver_);
        while (received && received->bytes.size() == 2)
            received = Receive(*receiver_);
        ASSERT_TRUE(received && received->bytes.size() == 10) << "no full frame";
        const auto& bytes = received->bytes;
        const double seconds = bytes[7] + bytes[8] / 30.0;
        EXPECT_GT(seconds, 10.0);
        EXPECT_LE(seconds, 10.0 + elapsed);
        tavo_midi::SendMidiMessage("receiver:in", std::array<unsigned char, 1>{0xFA});
        received = Receive(*receiver_);
        ASSERT_TRUE(received);
        EXPECT_EQ(received->bytes, std::vector<unsigned int>{0xFA}) << "something came between";
        if (isShutDown) return;
        controller_->Stop(10s);
        controller_->ActivateMidiTimeCode();
        ASSERT_TRUE(ReadFullFrame(*receiver_));
    }
}

TEST_P(TimeCodePorts, ServerKilledWhileRolling_TimeCodeGoesOnWhereTheMusicIs) {
    controller_->Start(0s);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(ReadFullFrame(*receiver_));
    server_->End(SIGKILL);
    receiver_.reset();
    server_ = test_support::StartJackServer("-S", 48000, GetParam().periodFrames);
    ASSERT_NE(server_, nullptr);
    StartReceiver();
    const auto address = ReadFullFrame(*receiver_);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    ASSERT_TRUE(address);
    const double seconds = address->minutes * 60 + address->seconds + address->frames / 30.0;
    EXPECT_NEAR(seconds, std::chrono::duration<double>(elapsed).count(), 0.5);
}

INSTANTIATE_TEST_SUITE_P(Systems, TimeCodePorts, testing::ValuesIn(test_support::PortCases),
                         test_support::NamePortCase);

constexpr unsigned int DropFrame = 2;

std::string NameRate(const testing::TestParamInfo<TimeCodeRates::ParamType>& info) {
    static constexpr std::array<const char*, 4> Rates{"24", "25", "2997drop", "30"};
    return std::get<0>(info.param).GetName() + "_" + Rates[std::get<1>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Systems, TimeCodeRates,
                         testing::Combine(testing::Values(test_support::PortCases[1], test_support::PortCases[4]),
                                          testing::Range(0U, 4U)),
                         NameRate);
// No period is a whole number of quarter frames at that rate.
INSTANTIATE_TEST_SUITE_P(Periods, TimeCodeRates,
                         testing::Combine(testing::Values(test_support::PortCases[0], test_support::PortCases[2],
                                                          test_support::PortCases[3]),
                                          testing::Values(DropFrame)),
                         NameRate);

}  // namespace
