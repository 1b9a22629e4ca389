// `stage play --web` and `stage passcode` as programs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "stage/sounds/sound_clip.h"
#include "tests/live/live_program.h"
#include "tests/stage/small_show.h"
#include "tests/web/web_client.h"

namespace {

using test_support::Get;
using test_support::LiveProgram;
using test_support::RunStage;
using testing::HasSubstr;

class PlayWeb : public test_support::SmallShow {
protected:
    static std::uint16_t FindPort(LiveProgram& play) {
        const std::string sentence = play.WaitFor("message")["sentence"];
        EXPECT_THAT(sentence, HasSubstr("The page is at http://127.0.0.1:"));
        return static_cast<std::uint16_t>(std::stoi(sentence.substr(sentence.rfind(':') + 1)));
    }
};

TEST_F(PlayWeb, PageOfAPerformance_IsServedUntilItEnds) {
    LiveProgram play({Show(), "--output", "null", "--no-take", "--web", "127.0.0.1:0"});
    const std::uint16_t port = FindPort(play);
    EXPECT_EQ(200, Get(port, "/").status);
    test_support::Socket client(port);
    EXPECT_EQ("Evening", client.Next()["show"]["title"]);
    EXPECT_EQ(200, test_support::Post(port, "/api/play").status);
    EXPECT_EQ("page", play.WaitFor("press", {{"press", "play"}})["door"]);
    client.Send({{"type", "press"}, {"line", "quit"}});
    EXPECT_EQ("The show has ended.", play.WaitFor("end")["sentence"].get<std::string>());
    EXPECT_EQ(1001, client.WaitForClose());
}

TEST_F(PlayWeb, PortIsTaken_IsAnErrorWhereAskedForAndASentenceWhereNot) {
    LiveProgram play({Show(), "--output", "null", "--no-take", "--web", "127.0.0.1:0"});
    const std::string address = "127.0.0.1:" + std::to_string(FindPort(play));
    const auto asked = RunStage({"play", Show(), "--output", "null", "--no-take", "--headless", "--web", address});
    EXPECT_EQ(1, asked.exitCode);
    EXPECT_THAT(asked.err, HasSubstr(address + " is used by another program"));
    play.Quit();
    // One of two is told so; the first is where a performance that is not ours has the port.
    std::vector<std::unique_ptr<LiveProgram>> performances;
    std::string told;
    do {
        performances.push_back(std::make_unique<LiveProgram>(
            std::vector<std::string>{Show(), "--output", "null", "--no-take", "--locked"}));
        told = performances.back()->WaitFor("message")["sentence"];
    } while (told == "The page is at http://127.0.0.1:7480." && performances.size() < 2);
    EXPECT_THAT(told, HasSubstr("The page is not served: 127.0.0.1:7480"));
    performances.back()->Press("play");
    performances.back()->WaitFor("started");
    for (const auto& performance : performances)
        performance->Quit();
}

TEST_F(PlayWeb, TestToneFromThePage_IsHeardLeftThenRight_AndNotWhileTheMusicPlays) {
    const std::string path = directory_ / "tone.wav";
    LiveProgram play({Show(), "--output", "file:" + path, "--no-take", "--lead", "4096", "--web", "127.0.0.1:0"});
    const std::uint16_t port = FindPort(play);
    const auto playTone = [&] { return test_support::Post(port, "/api/set", {{"arguments", {"test-tone"}}}); };
    EXPECT_EQ(200, playTone().status);
    // What is paced by a clock tells of no tone.
    std::this_thread::sleep_for(std::chrono::seconds(3));
    EXPECT_EQ(200, test_support::Post(port, "/api/play").status);
    play.WaitFor("started");
    EXPECT_EQ("the tone is played while the music stands", playTone().Sentence());
    play.Quit();

    const stage::SoundClip sound = stage::ReadSoundFile(path, 48000, stage::SoundUse::Once).clip;
    const auto findLevel = [](const std::vector<float>& samples, std::size_t from) {
        double sum = 0;
        for (std::size_t i = from; i < from + 45000; ++i)
            sum += static_cast<double>(samples.at(i)) * samples[i];
        return std::sqrt(sum / 45000);
    };
    const auto begin = static_cast<std::size_t>(
        std::ranges::find_if(sound.left, [](float sample) { return std::abs(sample) > 0.001F; }) - sound.left.begin());
    EXPECT_NEAR(0.0707, findLevel(sound.left, begin + 1000), 0.001);
    EXPECT_LT(findLevel(sound.right, begin + 1000), 1e-4);
    EXPECT_LT(findLevel(sound.left, begin + 49000), 1e-4);
    EXPECT_NEAR(0.0707, findLevel(sound.right, begin + 49000), 0.001);
}

TEST_F(PlayWeb, PageIsOff_NothingIsServedOrSaid) {
    LiveProgram play({Show(), "--output", "null", "--no-take", "--web", "off"});
    const auto first = play.WaitFor("ready");
    EXPECT_FALSE(first.is_null());
    play.Quit();
}

TEST_F(PlayWeb, OtherAddresses_NeedAPasscode) {
    const auto without =
        RunStage({"play", Show(), "--output", "null", "--no-take", "--headless", "--web", "0.0.0.0:0"});
    EXPECT_EQ(1, without.exitCode);
    EXPECT_THAT(without.err, HasSubstr("only with a passcode"));
    const auto wrong =
        RunStage({"play", Show(), "--output", "null", "--no-take", "--headless", "--web", "stage.local"});
    EXPECT_EQ(1, wrong.exitCode);
    EXPECT_THAT(wrong.err, HasSubstr("\"stage.local\" is not an address with a port"));

    test_support::WriteAll(directory_ / "passcode", "conductor\n");
    const auto set = test_support::RunProgram(
        {"/bin/sh", "-c",
         std::string(STAGE_BINARY) + " passcode " + Show() + " operate <" + (directory_ / "passcode")});
    EXPECT_EQ(0, set.exitCode) << set.err;
    EXPECT_THAT(RunStage({"passcode", Show()}).out, HasSubstr("operate  has a passcode\n"));
    LiveProgram play({Show(), "--output", "null", "--no-take", "--web", "0.0.0.0:0"});
    const std::string sentence = play.WaitFor("message")["sentence"];
    const auto port = static_cast<std::uint16_t>(std::stoi(sentence.substr(sentence.rfind(':') + 1)));
    EXPECT_EQ(401, Get(port, "/api/state").status);
    const auto logIn = test_support::Post(port, "/api/login", {{"passcode", "conductor"}});
    EXPECT_EQ("operate", logIn.AsJson()["role"]);
    play.Quit();
    EXPECT_EQ(0, RunStage({"passcode", Show(), "operate", "--remove"}).exitCode);
    EXPECT_EQ(1, RunStage({"passcode", Show(), "operate", "--remove"}).exitCode);
}

TEST_F(PlayWeb, PagesOfTheScore_AreServedWithTheirPassphraseOnly) {
    const std::string image =
        R"(<svg xmlns="http://www.w3.org/2000/svg" width="21" height="30"><text>One</text></svg>)";
    test_support::WriteAll(directory_ / "page-1.svg", image);
    test_support::WriteAll(directory_ / "right", "harbour\n");
    test_support::WriteAll(directory_ / "wrong", "market\n");
    const auto play = [&](const std::string& passphrase) {
        std::vector<std::string> words{Show(), "--output", "null", "--no-take", "--web", "127.0.0.1:0"};
        if (!passphrase.empty()) words.insert(words.end(), {"--passphrase-file", directory_ / passphrase});
        return words;
    };
    const auto sentence = [](LiveProgram& program) {
        return program.WaitFor("message")["sentence"].get<std::string>();
    };
    {
        LiveProgram without(play("right"));
        FindPort(without);
        EXPECT_EQ("The show has no .score file whose pages could be shown.", sentence(without));
        without.Quit();
    }
    const auto packed =
        RunStage({"score", "pack", Show(), directory_ / "page-1.svg", "--passphrase-file", directory_ / "right"});
    ASSERT_EQ(0, packed.exitCode) << packed.err;
    {
        LiveProgram unasked(play(""));
        FindPort(unasked);
        EXPECT_THAT(sentence(unasked), testing::EndsWith("give --passphrase-file FILE or set TAVO_SCORE_PASSPHRASE."));
        unasked.Quit();
    }
    {
        LiveProgram wrong(play("wrong"));
        const std::uint16_t port = FindPort(wrong);
        EXPECT_THAT(sentence(wrong), testing::MatchesRegex("The pages of .* are not shown: .*passphrase.*"));
        EXPECT_EQ(0U, Get(port, "/api/show").AsJson()["pageImages"].size());
        EXPECT_EQ(404, Get(port, "/api/page/1").status);
        wrong.Quit();
    }
    LiveProgram right(play("right"));
    const std::uint16_t port = FindPort(right);
    EXPECT_EQ(test_support::Json({1}), Get(port, "/api/show").AsJson()["pageImages"]);
    const auto page = Get(port, "/api/page/1");
    EXPECT_EQ(200, page.status);
    EXPECT_EQ("image/svg+xml", page.headers.at("content-type"));
    EXPECT_EQ(image, page.body);
    EXPECT_EQ(404, Get(port, "/api/page/2").status);
    EXPECT_EQ("\"one\" is not the number of a page.", Get(port, "/api/page/one").Sentence());
    EXPECT_EQ(400, Get(port, "/api/page/4294967296").status);
    right.Quit();
}

}  // namespace
