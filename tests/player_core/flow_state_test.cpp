// Flow control as a value: put back into a fresh one, kept as text, refused where it does not fit.

#include "player_core/flow_state.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "tavo_core/event_codes.h"
#include "tests/player_core/flow_show.h"
#include "tests/support/notification_log.h"

using test_support::FlowShow;
using test_support::NotificationLog;

namespace {

constexpr const char* Edits = "vamp 960..1920; repeat 2880..3840 x3; caesura 7680; fermata 9600..11520";

/// Plays a fresh show with these edits and takes its state.
template <class Play>
FlowState StateAfter(const std::string& edits, Play&& play) {
    FlowShow show(edits);
    play(show);
    return FlowStateFromText(ToText(show.Control().Snapshot()));
}

template <class Operation>
std::string SentenceOf(Operation&& operation) {
    try {
        operation();
    } catch (const std::invalid_argument& refusal) {
        return refusal.what();
    }
    return "";
}

/// A state in which no field has the value it begins with.
FlowState FullState() {
    FlowState state;
    state.song = "3\"a\\\n\xC3\xA9";
    state.tick = 4294967295;
    state.trackerTick = 2;
    state.attacca = true;
    state.loops = {{codes::Repeat, 960, 1920, 3, 2, true}, {codes::Vamp, 0, 2880, 0, 1, false}};
    state.fermata = FlowState::Range{9600, 11520};
    state.fermataCanceledCaesura = true;
    state.spent = {{codes::Cut, 480, 480, -1}, {codes::Fermata, 960, 480, 0}};
    state.caesuras = {{4800, {2880, 3360, 3840, 4320, 4800}, true}, {9600, {}, false}};
    state.atCaesura = state.caesuraPost = true;
    state.caesuraTick = 4800;
    state.caesuraShownTick = 4800;
    state.jump = state.jumpForVampRepeatOrCut = true;
    state.preJumpTick = 5;
    state.jumpTargetTick = 6;
    state.lastSeekTick = 7;
    state.seekIsOwn = true;
    state.ownCutEnd = 8;
    state.result = {true, true, true, true, 9};
    state.tempoScale = 0.9;
    state.transposition = -2;
    state.vampLamp = true;
    state.display = {10, 11, true, true, true, {{12, "Vamp", 2}, {13, "", -1}}, 14, 15, {{16, "Caesura", 0}}};
    return state;
}

}  // namespace

TEST(FlowState, TakenInALoopsSecondPassAndPutBack_GoesOnInIt) {
    const FlowState state = StateAfter(Edits, [](FlowShow& show) {
        show.Seek(2880);
        show.PlayTo(3840);
        show.PlayTo(3000);
    });
    FlowShow show(Edits);
    show.Control().Restore(state);
    EXPECT_EQ("Repeat 2880..3840 2/3", show.Loops());
    EXPECT_EQ(3000U, show.Tick());
    EXPECT_EQ(state, show.Control().Snapshot());
    show.PlayTo(3840);
    EXPECT_EQ("Repeat 2880..3840 3/3", show.Loops());
}

TEST(FlowState, TakenAfterAVampsRelease_RunsOnAtItsEnd) {
    const FlowState state = StateAfter(Edits, [](FlowShow& show) {
        show.PlayTo(1200);
        show.Exit();
    });
    FlowShow show(Edits);
    show.Control().Restore(state);
    show.Log();
    show.PlayTo(2400);
    EXPECT_EQ("", show.Log());
    EXPECT_EQ(2400U, show.Tick());
}

TEST(FlowState, TakenWhileAFermataHolds_IsReleasedToItsEnd) {
    const FlowState state = StateAfter(Edits, [](FlowShow& show) { show.Seek(10000); });
    FlowShow show(Edits);
    show.Control().Restore(state);
    EXPECT_TRUE(show.Control().GetFermata());
    show.Exit();
    EXPECT_EQ(11520U, show.Tick());
}

TEST(FlowState, FermataThatAReloadTookAway_IsStillReleasedToItsEnd) {
    const FlowState state = StateAfter(Edits, [](FlowShow& show) {
        show.Seek(10000);
        show.ChangeEdits("");
    });
    FlowShow show;
    show.Control().Restore(state);
    EXPECT_TRUE(show.Control().GetFermata());
    show.Exit();
    EXPECT_EQ(11520U, show.Tick());
}

TEST(FlowState, TakenInACountdown_CountsOnAndStopsOnce) {
    const FlowState state = StateAfter(Edits, [](FlowShow& show) { show.Seek(6720); });
    FlowShow show(Edits);
    show.Control().Restore(state);
    EXPECT_EQ(7680U, show.Control().GetFirstCaesuraStackTickIndex());
    EXPECT_EQ(2, show.Control().GetCaesuraCountdown());
    EXPECT_EQ("caesura", show.Search(7680, 9600));
    EXPECT_TRUE(show.Control().HasPendingCaesura());
}

TEST(FlowState, EditWithoutLengthThatHadItsTurn_HasNoSecondOne) {
    const std::string edits = "cut 960..960; cut 960..960";
    const FlowState state = StateAfter(edits, [](FlowShow& show) { show.Search(960, 1920); });
    FlowShow show(edits);
    show.Control().Restore(state);
    EXPECT_EQ("cut to 960", show.Search(960, 1920));
    EXPECT_EQ("to 1920", show.Search(960, 1920));
}

TEST(FlowState, PutBack_SetsWhatTheOperatorHadTurned) {
    const FlowState state = StateAfter(Edits, [](FlowShow& show) {
        show.GetPlayer().SetTempoScale(0.9);
        show.GetPlayer().SetTransposition(-2);
    });
    FlowShow show(Edits);
    show.Control().Restore(state);
    EXPECT_EQ(0.9, show.GetPlayer().GetUserControls().GetTempoScale());
    EXPECT_EQ(-2, show.GetPlayer().GetUserControls().GetTransposition());
}

TEST(FlowState, PutBack_TellsTheDisplayLampAndStatusAgain) {
    const FlowState state = StateAfter(Edits, [](FlowShow& show) {
        show.PlayTo(1920);
        show.PlayTo(1440);
        show.Statuses();  // the display passes over all of it
    });
    ASSERT_TRUE(state.display.shown);
    FlowShow show(Edits);
    NotificationLog display;
    show.Control().Restore(state);
    EXPECT_EQ((NotificationLog::Lines{"VampOn", "StatusFlowControl '" + state.display.shown->type + "' " +
                                                    std::to_string(state.display.shown->count)}),
              display.Take());
    EXPECT_EQ(state.display, GetGuiUpdate().Snapshot());
}

TEST(FlowState, OfAnotherSong_IsRefusedAndChangesNothing) {
    FlowShow show(Edits);
    FlowState state = show.Control().Snapshot();
    const FlowState before = state;
    state.song = "2";
    state.tick = 960;
    EXPECT_EQ("the flow state is of song \"2\", but song \"1\" is loaded: load the song that it was taken with",
              SentenceOf([&] { show.Control().Restore(state); }));
    EXPECT_EQ(before, show.Control().Snapshot());
}

TEST(FlowState, WithAnEditThatTheLogDoesNotHave_IsRefused) {
    const FlowState inVamp = StateAfter(Edits, [](FlowShow& show) { show.PlayTo(1200); });
    const FlowState inRepeat = StateAfter(Edits, [](FlowShow& show) { show.Seek(3000); });
    const FlowState inCountdown = StateAfter(Edits, [](FlowShow& show) { show.Seek(6720); });
    const FlowState spent = StateAfter("cut 960..960", [](FlowShow& show) { show.Search(960, 1920); });
    FlowShow show("vamp 960..2400; repeat 2880..3840 x2; caesura 7680; click 5760..7680 8; cut 960..960 ");
    show.ChangeEdits("vamp 960..2400; repeat 2880..3840 x2; caesura 7680; click 5760..7680 16");
    const auto sentence = [&show](const FlowState& state) {
        return SentenceOf([&] { show.Control().Restore(state); });
    };
    const std::string end = ", which the edits of song \"1\" do not have: load the change log that it was taken with";
    EXPECT_EQ("the flow state has a vamp from 960 to 1920 with limit 0" + end, sentence(inVamp));
    EXPECT_EQ("the flow state has a repeat from 2880 to 3840 with limit 3" + end, sentence(inRepeat));
    EXPECT_EQ("the flow state has a caesura at 7680 with its countdown" + end, sentence(inCountdown));
    EXPECT_EQ("the flow state has a cut from 960 to 960" + end, sentence(spent));
}

TEST(FlowState, WithValuesThatNoFlowControlHas_IsRefused) {
    FlowShow show(Edits);
    show.PlayTo(1200);
    const FlowState good = show.Control().Snapshot();
    const auto sentence = [&](auto&& change) {
        FlowState state = good;
        change(state);
        return SentenceOf([&] { show.Control().Restore(state); });
    };
    EXPECT_EQ("", sentence([](FlowState&) {}));
    EXPECT_NE("", sentence([](FlowState& state) { state.loops[0].pass = 0; }));
    EXPECT_NE("", sentence([](FlowState& state) { state.loops[0].type = codes::Cut; }));
    EXPECT_NE("", sentence([](FlowState& state) { state.loops.push_back(state.loops[0]); }));
    EXPECT_NE("", sentence([](FlowState& state) { state.tempoScale = 2.1; }));
    EXPECT_NE("", sentence([](FlowState& state) { state.tempoScale = std::stod("nan"); }));
    EXPECT_NE("", sentence([](FlowState& state) { state.transposition = 25; }));
    EXPECT_NE("", sentence([](FlowState& state) { state.spent = {{codes::Vamp, 960, 1920, 0}}; }));
    EXPECT_NE("", sentence([](FlowState& state) { state.caesuras = {{0, {0, 1, 2, 3, 4, 5}, false}}; }));
    EXPECT_NE("", sentence([](FlowState& state) { state.display.filed = {{5, "", 0}, {5, "", 0}}; }));
    EXPECT_EQ(good, show.Control().Snapshot());
}

TEST(FlowState, WithoutALoadedSong_CanNeitherBeTakenNorPutBack) {
    const tavo_midi::ShowData showData;
    test_support::TestPlayer player(showData);
    EXPECT_THROW(static_cast<void>(player.GetShowControl().Snapshot()), std::logic_error);
    EXPECT_THROW(player.GetShowControl().Restore(FlowState()), std::logic_error);
}

TEST(FlowStateText, IsOneLineThatReadsAsTheSameState) {
    for (const FlowState& state : {FlowState(), FullState()}) {
        const std::string text = ToText(state);
        EXPECT_EQ(std::string::npos, text.find('\n'));
        EXPECT_EQ(state, FlowStateFromText(text)) << text;
        EXPECT_EQ(text, ToText(FlowStateFromText(text)));
    }
}

TEST(FlowStateText, OfAStateAtTheBeginning_IsThis) {
    FlowState state;
    state.song = "1";
    EXPECT_EQ(
        "{\"flowState\":1,\"song\":\"1\",\"tick\":0,\"trackerTick\":0,\"attacca\":false,\"loops\":[],\"fermata\":null,"
        "\"fermataCanceledCaesura\":false,\"spent\":[],\"caesuras\":[],\"atCaesura\":false,\"caesuraPost\":false,"
        "\"caesuraTick\":0,\"caesuraShownTick\":null,\"jump\":false,\"jumpForVampRepeatOrCut\":false,\"preJumpTick\":0,"
        "\"jumpTargetTick\":0,\"lastSeekTick\":0,\"seekIsOwn\":false,\"ownCutEnd\":null,\"result\":{"
        "\"loopStartsHere\":false,\"stopBeforeEnd\":false,\"caesuraHere\":false,\"cutHere\":false,\"tick\":0},"
        "\"tempoScale\":1,\"transposition\":0,\"vampLamp\":false,\"display\":{\"tick\":0,\"seekFromTick\":0,"
        "\"seekForward\":false,\"seekPending\":false,\"resetDisplay\":false,\"filed\":[],\"sentUntilTick\":0,"
        "\"zeroTick\":null,\"shown\":null}}",
        ToText(state));
}

TEST(FlowStateText, FieldsInAnyOrderAndWithSpace_Read) {
    std::string text = ToText(FullState());
    const std::string version = "\"flowState\":1,";
    text.erase(text.find(version), version.size());
    text.insert(text.size() - 1, " , \"flowState\" : 1\t");
    text.insert(0, "\r\n");
    EXPECT_EQ(FullState(), FlowStateFromText(text));
}

namespace {

/// The text of a state with `what` in place of `of`.
std::string With(const std::string& what, const std::string& of) {
    std::string text = ToText(FullState());
    const std::size_t place = text.find(of);
    EXPECT_NE(std::string::npos, place) << of;
    return text.replace(place, of.size(), what);
}

}  // namespace

TEST(FlowStateText, ThatIsNotOne_IsRefusedInOneSentence) {
    const std::string good = ToText(FullState());
    const std::vector<std::pair<std::string, std::string>> rows{
        {"", "'{' is expected"},
        {"[]", "'{' is expected"},
        {std::string(100000, '['), "'{' is expected"},
        {"{}", "the field \"flowState\" is missing"},
        {good + "x", "something follows the end"},
        {good.substr(0, good.size() - 1), "',' is expected"},
        {With("\"flowState\":2", "\"flowState\":1"), "version 2 is not known here"},
        {With("\"jumps\":true", "\"jump\":true"), "there is no field \"jumps\""},
        {With("\"\\u000a\":true", "\"jump\":true"), "there is no field with a name that is too long or not plain"},
        {With("\"jump\":true,\"jump\":true", "\"jump\":true"), "the field \"jump\" comes twice"},
        {With("\"jump\":1", "\"jump\":true"), "true or false is expected"},
        {With("\"tick\":-1", "\"tick\":4294967295"), "a whole number from 0 to 4294967295 is expected"},
        {With("\"tick\":4294967296", "\"tick\":4294967295"), "a whole number from 0 to 4294967295 is expected"},
        {With("\"tick\":1e3", "\"tick\":4294967295"), "a whole number from 0 to 4294967295 is expected"},
        {With("\"tick\":01", "\"tick\":4294967295"), "a number is expected"},
        {With("\"tick\":\"1\"", "\"tick\":4294967295"), "a number is expected"},
        {With("99999999999999999999", "4294967295"), "a whole number from 0 to 4294967295 is expected"},
        {With("\"tempoScale\":1e999", "\"tempoScale\":0.9"), "the number is too large or too small"},
        {With("\"tempoScale\":nan", "\"tempoScale\":0.9"), "a number is expected"},
        {With("\"type\":\"click\"", "\"type\":\"repeat\""), "vamp, repeat, cut or fermata is expected"},
        {With("\"song\":\"\\x", "\"song\":\""), "JSON has no such escape"},
        {With("\"song\":\"\\ud800", "\"song\":\""), "half of a surrogate pair stands alone"},
        {With("\"song\":\"\\udfff", "\"song\":\""), "half of a surrogate pair stands alone"},
        {With("\"song\":\"\\u12", "\"song\":\""), "four hexadecimal digits are expected"},
        {With("\"song\":\"\n", "\"song\":\""), "a control character stands in the text"},
        {"{\"song", "the text has no closing quotation mark"},
    };
    for (const auto& [text, reason] : rows) {
        const std::string_view given = text;
        const std::string sentence = SentenceOf([given] { static_cast<void>(FlowStateFromText(given)); });
        EXPECT_TRUE(sentence.starts_with("the flow state cannot be read at character ")) << text << "\n" << sentence;
        EXPECT_TRUE(sentence.ends_with(": " + reason)) << text << "\n" << sentence;
        EXPECT_EQ(std::string::npos, sentence.find('\n'));
    }
}

TEST(FlowStateText, EscapedCharacters_ReadAsThemselves) {
    const FlowState state = FlowStateFromText(With("\"song\":\"\\u00e9\\ud834\\udd1e\\ue000\\/\\t", "\"song\":\""));
    EXPECT_TRUE(state.song.starts_with("\xC3\xA9\xF0\x9D\x84\x9E\xEE\x80\x80/\t")) << state.song;
}

TEST(FlowStateText, WithValuesThatNoFlowControlHas_IsRefused) {
    EXPECT_EQ("the flow state has a loop in pass 0: passes count from 1",
              SentenceOf([] { static_cast<void>(FlowStateFromText(With("\"pass\":0", "\"pass\":2"))); }));
    EXPECT_EQ("the flow state has a tempo scale outside 0.5 to 2",
              SentenceOf([] { static_cast<void>(FlowStateFromText(With(":2.5", ":0.9"))); }));
}

TEST(FlowStateText, LongerThanAnyState_IsRefusedUnread) {
    EXPECT_EQ("the flow state cannot be read: it is longer than 16 MiB",
              SentenceOf([] { static_cast<void>(FlowStateFromText(std::string((std::size_t{16} << 20U) + 1, ' '))); }));
}
