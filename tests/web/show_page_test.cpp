// The page of a show that is performed, seen by its clients.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "tests/web/served_show.h"

namespace {

using test_support::Get;
using test_support::Json;
using test_support::Post;
using test_support::ServedShow;
using test_support::Socket;
using testing::HasSubstr;

class Page : public test_support::SmallShow {
protected:
    /// The state of a client once it is connected.
    static Json Enter(Socket& client) {
        EXPECT_EQ("hello", client.Next().value("type", ""));
        const Json state = client.Next();
        EXPECT_EQ("state", state.value("type", ""));
        return state["state"];
    }
    static Json PressAndWait(Socket& client, const std::string& line, int id, const std::string& type = "record") {
        client.Send({{"type", "press"}, {"line", line}, {"id", id}});
        return client.WaitFor(type, {{"id", id}});
    }
};

TEST_F(Page, ClientConnects_GetsHelloThenWholeStateThenNumberedChanges) {
    ServedShow show(Show());
    Socket client(show.GetPort());
    const Json hello = client.Next();
    EXPECT_EQ("hello", hello["type"]);
    EXPECT_EQ(0, hello["seq"]);
    EXPECT_EQ("1.2.3", hello["version"]);
    EXPECT_EQ("edit", hello["role"]);
    EXPECT_EQ("Evening", hello["show"]["title"]);
    ASSERT_EQ(2U, hello["show"]["songs"].size());
    EXPECT_EQ("First", hello["show"]["songs"][0]["title"]);
    EXPECT_EQ(20, hello["show"]["songs"][0]["bars"]);
    const Json state = client.Next();
    EXPECT_EQ("state", state["type"]);
    EXPECT_EQ(1, state["seq"]);
    for (const char* name :
         {"motion", "song", "tempo", "meter", "loops", "volumes", "output", "bar", "tick", "moving", "version"})
        EXPECT_TRUE(state["state"].contains(name)) << name;
    client.Send({{"type", "press"}, {"line", "play"}});
    int last = 1;
    for (int i = 0; i < 40; ++i) {
        const Json message = client.Next();
        ASSERT_FALSE(message.is_null());
        if (!message.contains("seq")) continue;
        EXPECT_EQ(++last, message["seq"]) << message;
    }
}

TEST_F(Page, PressOfClient_ReachesTheDeskAndComesBackWithItsId_OthersSeeItWithout) {
    ServedShow show(Show());
    Socket presser(show.GetPort());
    Socket watcher(show.GetPort());
    Enter(presser);
    Enter(watcher);
    const Json record = PressAndWait(presser, "tempo 90%", 7);
    EXPECT_EQ("taken", record["outcome"]);
    EXPECT_EQ("tempo 90%", record["press"]);
    EXPECT_EQ("page", record["door"]);
    const Json seen = watcher.WaitFor("record", {{"verb", "tempo"}});
    EXPECT_FALSE(seen.contains("id"));
    EXPECT_FALSE(watcher.WaitForBeside("change", {{"state", {{"tempoScale", 0.9}}}}).is_null());
}

TEST_F(Page, PressThatCannotBeRead_IsAnsweredToThePresserAlone) {
    ServedShow show(Show());
    Socket client(show.GetPort());
    Enter(client);
    client.Send({{"type", "press"}, {"line", "temp 90%"}, {"id", "a"}});
    const Json answer = client.WaitFor("answer");
    EXPECT_EQ("a", answer["id"]);
    EXPECT_THAT(answer["sentence"].get<std::string>(), HasSubstr("did you mean tempo?"));
    client.Send({{"type", "press"}, {"line", "seek 999"}, {"id", 2}});
    EXPECT_THAT(client.WaitFor("answer", {{"id", 2}})["sentence"].get<std::string>(), HasSubstr("999"));
}

TEST_F(Page, TwoClientsPressGoAtOnce_OneIsTakenAndTheOtherRefusedWithASentence) {
    ServedShow show(Show());
    Socket one(show.GetPort());
    Socket two(show.GetPort());
    Enter(one);
    Enter(two);
    one.Send({{"type", "press"}, {"line", "go"}, {"id", 1}});
    two.Send({{"type", "press"}, {"line", "go"}, {"id", 1}});
    const Json first = one.WaitFor("record", {{"id", 1}});
    const Json second = two.WaitFor("record", {{"id", 1}});
    const std::multiset<std::string> outcomes{first["outcome"], second["outcome"]};
    EXPECT_EQ((std::multiset<std::string>{"refused", "taken"}), outcomes);
    const std::string sentence = first["outcome"] == "refused" ? first["sentence"] : second["sentence"];
    EXPECT_THAT(sentence, HasSubstr("within 250 ms"));
}

TEST_F(Page, PressByRequest_IsAnsweredWithTheRecordAndItsStatus) {
    ServedShow show(Show());
    const auto taken = Post(show.GetPort(), "/api/tempo", {{"arguments", {"90%"}}});
    EXPECT_EQ(200, taken.status);
    EXPECT_EQ("taken", taken.AsJson()["outcome"]);
    EXPECT_EQ(200, Post(show.GetPort(), "/api/go").status);
    const auto refused = Post(show.GetPort(), "/api/go");
    EXPECT_EQ(409, refused.status);
    EXPECT_EQ("refused", refused.AsJson()["outcome"]);
    EXPECT_EQ(404, Post(show.GetPort(), "/api/dance").status);
    EXPECT_EQ(400, Post(show.GetPort(), "/api/tempo", {{"arguments", {"fast"}}}).status);
    EXPECT_EQ(400, Post(show.GetPort(), "/api/tempo", {{"arguments", {{"a", 1}}}}).status);
    EXPECT_EQ(422, Post(show.GetPort(), "/api/edit", {{"arguments", {"remove 99"}}}).status);
    EXPECT_EQ(200, Post(show.GetPort(), "/api/stop").status);
}

TEST_F(Page, Clock_AnswersAProbeAndTellsWhenThePlayheadIsHeard) {
    ServedShow show(Show());
    Socket client(show.GetPort());
    Enter(client);
    const double before = stage::WebServer::Now();
    client.Send({{"type", "time"}, {"t", 12.5}});
    const Json time = client.WaitFor("time");
    EXPECT_EQ(12.5, time["t"]);
    EXPECT_LE(before, time["now"]);
    EXPECT_GE(stage::WebServer::Now(), time["now"]);
    client.Send({{"type", "press"}, {"line", "play"}});
    const Json first = client.WaitFor("playhead", {{"moving", true}});
    Json later = client.WaitFor("playhead", {{"moving", true}});
    while (!later.is_null() && later["at"].get<double>() - first["at"].get<double>() < 300)
        later = client.WaitFor("playhead", {{"moving", true}});
    ASSERT_FALSE(later.is_null());
    // 480 ticks a quarter note, 120 of them a minute.
    EXPECT_EQ(960, first["ticksPerSecond"]);
    const double seconds = (later["at"].get<double>() - first["at"].get<double>()) / 1000;
    const double predicted = first["tick"].get<double>() + seconds * 960;
    // A machine that is busy is silent for a while; never is the playhead ahead.
    EXPECT_LE(later["tick"].get<double>(), predicted + 12);
}

TEST_F(Page, EditOfClient_IsInTheSongAtOnce_CanBeTakenBackAndIsSavedWhenAsked) {
    ServedShow show(Show());
    Socket client(show.GetPort());
    Enter(client);
    client.Send({{"type", "edit"}, {"line", "add vamp 3 5"}, {"song", "2"}, {"id", 1}});
    EXPECT_EQ("taken", client.WaitFor("record", {{"id", 1}})["outcome"]);
    const Json edits = client.WaitForBeside("edits");
    EXPECT_EQ(Json({"2"}), edits["songs"]);
    EXPECT_EQ(true, edits["unsaved"]);
    const auto song = Get(show.GetPort(), "/api/song/2").AsJson();
    ASSERT_EQ(1U, song["edits"].size());
    EXPECT_EQ("vamp", song["edits"][0]["kind"]);
    EXPECT_EQ("bars 3 to 5", song["edits"][0]["place"]);
    EXPECT_EQ(1, song["edits"][0]["id"]);
    EXPECT_EQ("song 2: vamp bars 3 to 5 added",
              Get(show.GetPort(), "/api/versions/1.0/to/now").AsJson()["changes"][0]["text"]);
    client.Send({{"type", "edit"}, {"line", "add vamp 4 6"}, {"song", "2"}, {"id", 2}});
    const Json refused = client.WaitFor("record", {{"id", 2}});
    EXPECT_EQ("failed", refused["outcome"]);
    EXPECT_NE("", refused["sentence"].get<std::string>());
    PressAndWait(client, "undo", 3);
    EXPECT_TRUE(Get(show.GetPort(), "/api/song/2").AsJson()["edits"].empty());
    PressAndWait(client, "redo", 4);
    EXPECT_EQ("taken", PressAndWait(client, "save", 5)["outcome"]);
    client.WaitForBeside("edits", {{"unsaved", false}});
    EXPECT_EQ("1.1", Get(show.GetPort(), "/api/state").AsJson()["version"]);
    EXPECT_THAT(test_support::ReadAll(Show() + "/show-1.1.logdata"), HasSubstr("\"Vamp\""));
    const Json rolledBack = PressAndWait(client, "rollback 1.0", 6);
    EXPECT_EQ("taken", rolledBack["outcome"]);
    EXPECT_EQ("rollback 1.0", rolledBack["press"]);
    EXPECT_TRUE(Get(show.GetPort(), "/api/song/2").AsJson()["edits"].empty());
    PressAndWait(client, "undo", 7);
    EXPECT_EQ(1U, Get(show.GetPort(), "/api/song/2").AsJson()["edits"].size());
}

TEST_F(Page, EditWithCueThatNobodyWillNotice_IsMadeAndToldOfAsAtTheCommandLine) {
    ServedShow show(Show());
    Socket client(show.GetPort());
    Enter(client);
    client.Send({{"type", "edit"}, {"line", "add sfx 2 --sound door.wav"}, {"song", "2"}, {"id", 1}});
    EXPECT_EQ("taken", client.WaitFor("record", {{"id", 1}})["outcome"]);
    const std::string noSound = "Song 2: the sound \"door.wav\" at 2 is not there.";
    EXPECT_FALSE(client.WaitForBeside("message", {{"sentence", noSound}}).is_null());
    const Json osc = {{"arguments", {"add osc --song 2 --at 3 --address /go --target lights"}}};
    EXPECT_EQ(200, Post(show.GetPort(), "/api/edit", osc).status);
    const std::string noTarget = "Song 2: the OSC target \"lights\" of the message at 3 is not in settings.json.";
    EXPECT_FALSE(client.WaitFor("message", {{"sentence", noTarget}}).is_null());
    EXPECT_EQ(Json({"The sound \"door.wav\" at 2 is not there.",
                    "The OSC target \"lights\" of the message at 3 is not in settings.json."}),
              Get(show.GetPort(), "/api/song/2").AsJson()["warnings"]);
    EXPECT_EQ(Json::array(), Get(show.GetPort(), "/api/song/1").AsJson()["warnings"]);
    show.End();
    EXPECT_THAT(Edit("add sfx --song 2 --at 2 --sound door.wav").err,
                HasSubstr("song 2: the sound \"door.wav\" at 2 is not there"));
}

TEST_F(Page, SetUpByAClient_HoldsAtOnceAndIsKept_WhatCannotBeIsASentence) {
    ServedShow show(Show());
    Socket client(show.GetPort());
    EXPECT_EQ(250, Enter(client)["pressGuardMs"]);
    const auto set = [&](std::vector<std::string> words) {
        return Post(show.GetPort(), "/api/set", {{"arguments", std::move(words)}});
    };
    EXPECT_EQ("taken", PressAndWait(client, "set press-guard 9000", 1, "answer")["outcome"]);
    EXPECT_FALSE(client.WaitForBeside("change", {{"state", {{"pressGuardMs", 9000}}}}).is_null());
    EXPECT_EQ(200, Post(show.GetPort(), "/api/go").status);
    EXPECT_THAT(Post(show.GetPort(), "/api/go").AsJson()["sentence"].get<std::string>(), HasSubstr("within 9000 ms"));
    for (const char* line :
         {"time-code-rate 29.97 drop", "time-code-output The desk", "time-code-jumps runOn", "time-code on"})
        EXPECT_EQ(200, set({line}).status) << line;
    const Json timeCode{{"active", true}, {"frameRate", "29.97 drop"}, {"output", "The desk"}, {"onJump", "runOn"}};
    const Json kept = Json::parse(test_support::ReadAll(Show() + "/midiTimeCodeSettings"));
    const Json told = Get(show.GetPort(), "/api/state").AsJson()["timeCode"];
    for (const auto& [name, value] : timeCode.items()) {
        EXPECT_EQ(value, kept[name]) << name;
        EXPECT_EQ(value, told[name]) << name;
    }
    EXPECT_EQ(9000, Json::parse(test_support::ReadAll(Show() + "/settings.json"))["pressGuardMs"]);

    const std::vector<std::pair<const char*, const char*>> wrong{
        {"press-guard soon", "the press guard must be a whole number of milliseconds, not \"soon\""},
        {"press-guard 10001", "the press guard must be from 0 to 10000 ms, not 10001"},
        {"time-code perhaps", "time code must be on or off, not \"perhaps\""},
        {"time-code-rate 23", "the frame rate must be one of 24, 25, 29.97 drop, 30, not \"23\""},
        {"groups", "groups, line 1: the text is not JSON"},
        {"groups [{\"name\": \"main\"}]", "settings.json: groups[0].name must not be \"main\", which means another"},
        {"outputs [{\"name\": \"main\", \"backend\": \"tape\"}]", "settings.json: outputs[0].backend must be "},
        {"osc-targets [{\"name\": \"desk\", \"port\": 0}]", "settings.json: oscTargets[0].port must be "},
        {"time-code-jumps high", "what time code does at a jump must be locate or runOn, not \"high\""},
        {"lights", "there is no setting \"lights\" that a page may change"}};
    for (const auto& [line, sentence] : wrong) {
        const auto refused = set({line});
        EXPECT_EQ(400, refused.status) << line;
        EXPECT_THAT(refused.Sentence(), testing::StartsWith(sentence));
    }
}

TEST_F(Page, OutputsAndGroupsSetByAClient_AreKeptForTheNextTimeBesideWhatIsThere) {
    test_support::WriteAll(Show() + "/settings.json", Json{{"countIn", 2}, {"osc", {{"passcode", "sesame"}}}}.dump());
    const Json groups = Json::parse(R"([{"name": "wind", "parts": ["Flute", "Oboe"], "output": "own", "reverbDb": -9.5},
                                        {"name": "strings", "channels": [3, 4]}])");
    const Json targets = Json::parse(R"([{"name": "lights", "host": "10.0.0.7", "port": 8000}])");
    {
        ServedShow show(Show());
        const auto set = [&](const std::string& words) {
            return Post(show.GetPort(), "/api/set", {{"arguments", {words}}}).status;
        };
        Json before = Get(show.GetPort(), "/api/settings").AsJson();
        EXPECT_EQ(Json::array(), before["groups"]);
        EXPECT_EQ("auto", before["outputs"][0]["backend"]);
        EXPECT_EQ(200, set("groups " + groups.dump()));
        EXPECT_EQ(200, set("osc-targets " + targets.dump()));
        EXPECT_EQ(200, set(R"(outputs [{"name": "main", "backend": "jack", "device": "desk:in"}])"));
        const auto answer = Get(show.GetPort(), "/api/settings");
        EXPECT_EQ(std::string::npos, answer.body.find("sesame"));
        Json after = answer.AsJson();
        ASSERT_EQ(2U, after["groups"].size()) << after;
        EXPECT_EQ(-9.5, after["groups"][0]["reverbDb"]);
        EXPECT_EQ("jack", after["outputs"][0]["backend"]);
        // What is open plays on as it was opened.
        EXPECT_EQ(Json::array(), Get(show.GetPort(), "/api/state").AsJson()["groups"]);
    }
    Json kept = Json::parse(test_support::ReadAll(Show() + "/settings.json"));
    EXPECT_EQ(2, kept["countIn"]);
    EXPECT_EQ("sesame", kept["osc"]["passcode"]);
    EXPECT_EQ(groups, kept["groups"]);
    EXPECT_EQ(targets, kept["oscTargets"]);
    ServedShow again(Show());
    Json state = Get(again.GetPort(), "/api/state").AsJson();
    ASSERT_EQ(2U, state["groups"].size());
    EXPECT_EQ("wind", state["groups"][0]["name"]);
}

TEST_F(Page, LockedShow_RefusesEditsAndToEnd_TakesPresses) {
    ServedShow::Words words;
    words.isLocked = true;
    ServedShow show(Show(), words);
    Socket client(show.GetPort());
    EXPECT_EQ(true, client.Next()["locked"]);
    EXPECT_EQ(true, client.Next()["state"]["locked"]);
    client.Send({{"type", "edit"}, {"line", "add vamp 3 5"}, {"id", 1}});
    const Json edit = client.WaitFor("record", {{"id", 1}});
    EXPECT_EQ("failed", edit["outcome"]);
    EXPECT_THAT(edit["sentence"].get<std::string>(), HasSubstr("locked"));
    for (const char* press : {"undo", "redo", "save"})
        EXPECT_EQ("failed", PressAndWait(client, press, 2)["outcome"]) << press;
    client.Send({{"type", "press"}, {"line", "quit"}, {"id", 3}});
    EXPECT_THAT(client.WaitFor("answer", {{"id", 3}})["sentence"].get<std::string>(), HasSubstr("locked"));
    EXPECT_THAT(PressAndWait(client, "set press-guard 0", 4, "answer")["sentence"].get<std::string>(),
                HasSubstr("locked"));
    EXPECT_EQ("taken", PressAndWait(client, "play", 5)["outcome"]);
}

TEST_F(Page, ServerBeginsAnewWhileTheShowPlays_ClientThatConnectsAgainIsWhole) {
    ServedShow show(Show());
    std::string run;
    {
        Socket client(show.GetPort());
        run = client.Next()["run"];
        client.Send({{"type", "press"}, {"line", "play"}});
        client.WaitFor("playhead", {{"moving", true}});
        show.ServeAnew();
        EXPECT_EQ(1001, client.WaitForClose());
        EXPECT_EQ("The show has ended.", client.GetCloseReason());
    }
    Socket again(show.GetPort());
    const Json hello = again.Next();
    EXPECT_EQ(0, hello["seq"]);
    EXPECT_NE(run, hello["run"].get<std::string>());
    const Json state = again.Next()["state"];
    EXPECT_EQ("playing", state["motion"]);
    EXPECT_EQ("1", state["song"]);
    EXPECT_FALSE(again.WaitFor("playhead", {{"moving", true}}).is_null());
}

TEST_F(Page, TwentyClients_EachGetsEveryStatusInOrder) {
    ServedShow show(Show());
    std::vector<Socket> clients;
    for (int i = 0; i < 20; ++i)
        clients.emplace_back(show.GetPort());
    for (Socket& client : clients)
        Enter(client);
    constexpr int Statuses = 300;
    for (int i = 1; i <= Statuses; ++i)
        notify::guiDispatcher.SendStatusFlowControl("Test", i);
    for (Socket& client : clients) {
        for (int i = 1; i <= Statuses; ++i)
            ASSERT_EQ(i, client.WaitFor("status", {{"status", "Test"}})["count"]);
    }
}

TEST_F(Page, Songs_AreAnsweredWithPicturesAndVersions_UnknownOnesWithASentence) {
    ServedShow show(Show());
    const auto song = Get(show.GetPort(), "/api/song/1");
    EXPECT_EQ(200, song.status);
    EXPECT_EQ(20U, song.AsJson()["bars"].size());
    EXPECT_EQ("Verse", song.AsJson()["markers"][0]["text"]);
    EXPECT_FALSE(song.AsJson().contains("measures"));
    const auto picture = Get(show.GetPort(), "/api/song/1/picture.svg");
    EXPECT_EQ("image/svg+xml", picture.headers.at("content-type"));
    EXPECT_THAT(picture.body, HasSubstr("</svg>"));
    EXPECT_EQ("1.0", Get(show.GetPort(), "/api/versions").AsJson()["versions"][0]["version"]);
    EXPECT_GT(Get(show.GetPort(), "/api/verbs").AsJson()["verbs"].size(), 20U);
    EXPECT_EQ("The show has no song \"9\".", Get(show.GetPort(), "/api/song/9").Sentence());
    EXPECT_EQ(404, Get(show.GetPort(), "/api/song/1/score.musicxml").status);
    EXPECT_EQ(404, Get(show.GetPort(), "/api/versions/7.7/to/now").status);
    EXPECT_EQ(400, Get(show.GetPort(), "/api/versions/x/to/now").status);
    EXPECT_EQ(405, Get(show.GetPort(), "/api/go").status);
    EXPECT_EQ(404, Get(show.GetPort(), "/api/nothing").status);
}

TEST_F(Page, SongImportedFromAScore_HasItAsItWas_WithTheMeasureOfEachBar) {
    const std::string scores = std::string(SOURCE_DIR) + "/examples/first-score";
    const std::string shows = directory_ / "scored";
    const auto import = test_support::RunStage({"import", scores, "-o", shows});
    ASSERT_EQ(0, import.exitCode) << import.err;
    std::map<std::string, std::string> sources;
    for (const auto& entry : std::filesystem::directory_iterator(scores))
        sources[entry.path().filename().string().substr(1, 1)] = test_support::ReadAll(entry.path().string());
    ServedShow show(shows);
    ASSERT_EQ("", show.GetProblem());
    const Json songs = Get(show.GetPort(), "/api/show").AsJson()["songs"];
    ASSERT_EQ(2U, songs.size());
    for (const Json& song : songs) {
        const std::string number = song["number"];
        EXPECT_EQ(true, song["score"]) << number;
        const auto score = Get(show.GetPort(), "/api/song/" + number + "/score.musicxml");
        EXPECT_EQ(200, score.status);
        EXPECT_THAT(score.body, HasSubstr("<score-partwise"));
        EXPECT_EQ(sources.at(number), test_support::ReadAll(shows + "/scores/" + number + ".musicxml"));
        const Json measures = Get(show.GetPort(), "/api/song/" + number).AsJson()["measures"];
        ASSERT_EQ(song["bars"], measures.size()) << number;
        EXPECT_EQ(0, measures[0]);
    }
}

TEST_F(Page, Passcodes_AreAskedForAndDecideWhatAClientMayDo) {
    ServedShow::Words words;
    stage::SetPasscode(words.passcodes, stage::WebRole::View, "orchestra");
    stage::SetPasscode(words.passcodes, stage::WebRole::Operate, "conductor");
    stage::SetPasscode(words.passcodes, stage::WebRole::Edit, "arranger");
    ServedShow show(Show(), words);
    const std::uint16_t port = show.GetPort();

    EXPECT_EQ(200, Get(port, "/").status);
    EXPECT_EQ(Json({{"role", "none"}, {"login", true}}), Get(port, "/api/session").AsJson());
    EXPECT_EQ(401, Get(port, "/api/show").status);
    EXPECT_EQ(401, Post(port, "/api/go").status);
    EXPECT_EQ(401, Socket(port).GetResponse().status);

    const auto logIn = [port](const std::string& passcode) {
        return Post(port, "/api/login", {{"passcode", passcode}});
    };
    const auto viewer = logIn("orchestra");
    EXPECT_EQ(200, viewer.status);
    const std::string cookie = viewer.headers.at("set-cookie");
    EXPECT_THAT(cookie, testing::AllOf(HasSubstr("HttpOnly"), HasSubstr("SameSite=Strict")));
    Socket watching(port, {{"Cookie", cookie.substr(0, cookie.find(';'))}});
    ASSERT_TRUE(watching.IsOpen());
    EXPECT_EQ("view", watching.Next()["role"]);
    watching.Send({{"type", "press"}, {"line", "go"}, {"id", 1}});
    EXPECT_THAT(watching.WaitFor("answer", {{"id", 1}})["sentence"].get<std::string>(), HasSubstr("only views"));

    const auto as = [&logIn](const std::string& passcode) {
        return test_support::Headers{
            {"Authorization", "Bearer " + logIn(passcode).AsJson()["token"].get<std::string>()}};
    };
    const test_support::Headers conductor = as("conductor");
    EXPECT_EQ(200, Post(port, "/api/tempo", {{"arguments", {"95%"}}}, conductor).status);
    EXPECT_EQ(403, Post(port, "/api/edit", {{"arguments", {"add vamp 3 5"}}}, conductor).status);
    EXPECT_EQ(403, Post(port, "/api/save", Json::object(), conductor).status);
    EXPECT_EQ(403, Post(port, "/api/rollback", {{"arguments", {"1.0"}}}, conductor).status);
    const test_support::Headers arranger = as("arranger");
    EXPECT_EQ(200, Post(port, "/api/edit", {{"arguments", {"add vamp 3 5"}}}, arranger).status);
    // It outlasts the server, so that nobody has to log in anew in the middle of a show.
    show.ServeAnew();
    EXPECT_EQ(200, Get(port, "/api/show", arranger).status);
}

TEST_F(Page, ManyWrongPasscodes_AreAnsweredMoreAndMoreSlowly) {
    ServedShow::Words words;
    stage::SetPasscode(words.passcodes, stage::WebRole::Operate, "conductor");
    ServedShow show(Show(), words);
    const auto logIn = [&show](const std::string& passcode) {
        return Post(show.GetPort(), "/api/login", {{"passcode", passcode}});
    };
    for (int i = 1; i < stage::LoginGuard::FreeFailures; ++i)
        EXPECT_EQ(403, logIn("guess" + std::to_string(i)).status);
    const auto slowed = logIn("guess");
    EXPECT_EQ(429, slowed.status);
    EXPECT_NE("", slowed.headers.at("retry-after"));
    // Also the right one has to wait, or its wait would tell which it is.
    EXPECT_EQ(429, logIn("conductor").status);
}

}  // namespace
