// A show as a program in C reads and edits it.

#include <gmock/gmock.h>

#include <thread>

#include "tests/c_api/open_player.h"

namespace {

using c_api_test::MadeShow;
using c_api_test::OpenPlayer;
using c_api_test::Say;
using c_api_test::TakeText;
using testing::ElementsAre;
using testing::HasSubstr;

class CShow : public testing::Test {
protected:
    CShow() : show_(Make_()) {}
    ~CShow() override {
        if (handle_ == nullptr) return;
        EXPECT_EQ("ok", Say(tavo_show_close(handle_)));
    }

    void Open_(std::uint32_t access, const char* version = nullptr) {
        tavo_show_options options{};
        options.size = sizeof options;
        options.access = access;
        options.version = version;
        ASSERT_EQ("ok", Say(tavo_show_open(show_.Path().c_str(), &options, &handle_)));
    }
    static std::vector<std::string> Edits_(tavo_show* show, std::uint32_t song) {
        std::vector<std::string> edits;
        std::uint32_t count = 0;
        EXPECT_EQ("ok", Say(tavo_show_list_edits(show, song, &count)));
        for (std::uint32_t i = 0; i < count; ++i) {
            tavo_edit edit{};
            EXPECT_EQ("ok", Say(tavo_show_edit_at(show, i, &edit)));
            edits.push_back(std::to_string(edit.id) + " " + edit.kind + " " + edit.place + " " + edit.value);
        }
        return edits;
    }
    std::string Edit_(const std::string& line) { return Say(tavo_show_do_edit(handle_, line.c_str())); }
    std::string Compare_(const char* from, const char* to) {
        char* lines = nullptr;
        const std::string said = Say(tavo_show_compare(handle_, from, to, &lines));
        return said == "ok" ? TakeText(lines) : said;
    }

    MadeShow show_;
    tavo_show* handle_ = nullptr;

private:
    static MadeShow Make_() {
        test_support::TestShow show;
        show.Song("1", 4).Edits("vamp 2 3\nmarker 3 Chorus\nattacca").Song("2a", 2);
        return MadeShow(show);
    }
};

TEST_F(CShow, Songs_BarsAndPlaces_AreThoseOfTheMusic) {
    Open_(TAVO_READ);
    const char* title = nullptr;
    EXPECT_EQ(TAVO_OK, tavo_show_title(handle_, &title));
    EXPECT_STREQ("Test", title);
    std::uint32_t count = 0;
    EXPECT_EQ(TAVO_OK, tavo_show_song_count(handle_, &count));
    EXPECT_EQ(2U, count);
    tavo_song song{};
    EXPECT_EQ(TAVO_OK, tavo_show_song(handle_, 0, &song));
    EXPECT_STREQ("1", song.number);
    EXPECT_STREQ("Song 1", song.title);
    EXPECT_EQ(7680U, song.end_tick);
    EXPECT_EQ(480U, song.ticks_per_quarter);
    EXPECT_EQ(4U, song.bar_count);
    EXPECT_DOUBLE_EQ(8.0, song.seconds);
    EXPECT_EQ(1U, song.attacca);
    tavo_bar bar{};
    EXPECT_EQ(TAVO_OK, tavo_show_bar(handle_, 0, 2, &bar));
    EXPECT_STREQ("3", bar.label);
    EXPECT_EQ(3840U, bar.start_tick);
    EXPECT_EQ(5760U, bar.end_tick);
    EXPECT_DOUBLE_EQ(4.0, bar.seconds);
    EXPECT_EQ(4U, bar.meter_numerator);
    EXPECT_EQ(4U, bar.meter_denominator);
    EXPECT_DOUBLE_EQ(120.0, bar.quarters_per_minute);
    std::uint32_t index = 0;
    EXPECT_EQ(TAVO_OK, tavo_show_find_song(handle_, "2a", &index));
    EXPECT_EQ(1U, index);
    std::uint32_t tick = 0;
    EXPECT_EQ(TAVO_OK, tavo_show_find_place(handle_, 0, "2:3", &tick));
    EXPECT_EQ(2880U, tick);
    char* place = nullptr;
    EXPECT_EQ(TAVO_OK, tavo_show_describe_tick(handle_, 0, 2880, &place));
    EXPECT_EQ("2:3", TakeText(place));
    double seconds = 0;
    EXPECT_EQ(TAVO_OK, tavo_show_seconds(handle_, 0, 2880, &seconds));
    EXPECT_DOUBLE_EQ(3.0, seconds);
    EXPECT_THAT(Edits_(handle_, 0), ElementsAre("1 vamp bars 2 to 3 ", "2 marker 3 Chorus"));
}

TEST_F(CShow, WhatIsNotThere_IsNotFound) {
    Open_(TAVO_READ);
    tavo_song song{};
    EXPECT_EQ("not found: the show has 2 songs, counted from 0, and none is 2", Say(tavo_show_song(handle_, 2, &song)));
    tavo_bar bar{};
    EXPECT_EQ("not found: song 1 has 4 bars, counted from 0, and none is 4", Say(tavo_show_bar(handle_, 0, 4, &bar)));
    std::uint32_t number = 0;
    EXPECT_EQ("not found: the show has no song \"9\"", Say(tavo_show_find_song(handle_, "9", &number)));
    EXPECT_THAT(Say(tavo_show_find_place(handle_, 0, "99", &number)), HasSubstr("not found: "));
    EXPECT_THAT(Say(tavo_show_find_place(handle_, 0, "2:", &number)), HasSubstr("bad argument: "));
    tavo_edit edit{};
    EXPECT_EQ("not found: tavo_show_list_edits has listed 0 edits, counted from 0, and none is 0",
              Say(tavo_show_edit_at(handle_, 0, &edit)));
    EXPECT_EQ("bad argument: result is a null pointer", Say(tavo_show_song(handle_, 0, nullptr)));
    tavo_show* other = nullptr;
    tavo_show_options options{};
    options.size = sizeof options;
    options.version = "8.8";
    EXPECT_THAT(Say(tavo_show_open(show_.Path().c_str(), &options, &other)), HasSubstr("not found: "));
    options.version = nullptr;
    options.access = 2;
    EXPECT_EQ("bad argument: the access is neither TAVO_READ nor TAVO_CHANGE",
              Say(tavo_show_open(show_.Path().c_str(), &options, &other)));
    EXPECT_EQ(nullptr, other);
}

TEST_F(CShow, Edits_AreUndoneDoneAgainSavedAndCompared) {
    Open_(TAVO_CHANGE);
    EXPECT_EQ("ok", Edit_("add caesura --song 1 --at 4"));
    EXPECT_EQ("ok", Edit_("remove --song 1 1"));
    EXPECT_THAT(Edits_(handle_, 0), ElementsAre("2 marker 3 Chorus", "3 caesura 4 "));
    char* lines = nullptr;
    EXPECT_EQ("ok", Say(tavo_show_undo(handle_, &lines)));
    EXPECT_THAT(TakeText(lines), HasSubstr("vamp bars 2 to 3"));
    EXPECT_EQ("ok", Say(tavo_show_undo(handle_, nullptr)));
    EXPECT_EQ("", Compare_("1.0", nullptr));
    EXPECT_THAT(Say(tavo_show_undo(handle_, nullptr)), HasSubstr("failed: "));
    EXPECT_EQ("ok", Say(tavo_show_redo(handle_, nullptr)));
    EXPECT_THAT(Compare_("1.0", nullptr), HasSubstr("song 1: caesura 4 added"));
    EXPECT_THAT(Edit_("add caesura --song 1 --at 99"), HasSubstr("failed: "));
    EXPECT_THAT(Edit_("dance"), HasSubstr("failed: "));
    char* version = nullptr;
    EXPECT_EQ("ok", Say(tavo_show_save(handle_, TAVO_MINOR, "the curtain", &version)));
    EXPECT_EQ("1.1", TakeText(version));
    EXPECT_EQ("ok", Edit_("attacca --song 1 normal"));
    EXPECT_EQ("ok", Say(tavo_show_save(handle_, TAVO_MINOR, nullptr, nullptr)));
    EXPECT_EQ("ok", Say(tavo_show_save(handle_, TAVO_MAJOR, nullptr, &version)));
    EXPECT_EQ("2.0", TakeText(version));
    std::uint32_t count = 0;
    EXPECT_EQ("ok", Say(tavo_show_list_versions(handle_, &count)));
    ASSERT_EQ(4U, count);
    tavo_version_info info{};
    EXPECT_EQ("ok", Say(tavo_show_version_at(handle_, 1, &info)));
    EXPECT_STREQ("1.1", info.version);
    EXPECT_STREQ("the curtain", info.comment);
    EXPECT_EQ(3U, info.edit_count);
    EXPECT_EQ(0U, info.is_in_use);
    EXPECT_EQ("song 1: caesura 4 added\n", Compare_("1.0", "1.1"));
    EXPECT_THAT(Compare_("1.0", "5.5"), HasSubstr("not found: "));
    EXPECT_EQ("ok", Say(tavo_show_roll_back(handle_, "1.0")));
    EXPECT_EQ("", Compare_("1.0", nullptr));
}

TEST_F(CShow, ThatIsRead_IsEditedInMemoryOnly) {
    Open_(TAVO_READ);
    EXPECT_EQ("ok", Edit_("add caesura --song 1 --at 4"));
    EXPECT_EQ("failed: the show is open for reading only", Say(tavo_show_save(handle_, TAVO_MINOR, nullptr, nullptr)));
}

TEST_F(CShow, OfAPlayer_IsEditedWhileItPlays_AndSaved) {
    tavo_player_options options{};
    options.editing = TAVO_EDITS_KEPT;
    OpenPlayer player(show_.Path(), options);
    tavo_show* played = nullptr;
    ASSERT_EQ(TAVO_OK, tavo_player_show(player.handle, &played));
    EXPECT_EQ("ok", player.Do("load 1"));
    EXPECT_EQ("ok", player.Do("play"));
    player.Render(48000);
    // The music goes on, and the cut that is new is obeyed. Places of the song that is loaded need no names.
    EXPECT_EQ("ok", Say(tavo_show_do_edit(played, "remove 1")));
    EXPECT_EQ("ok", Say(tavo_show_do_edit(played, "add cut 2 3")));
    player.Render(96000);
    EXPECT_THAT(player.Events({TAVO_EVENT_JUMP}), ElementsAre("jump 1920 -> 5760"));
    EXPECT_EQ("ok", player.Do("undo"));
    EXPECT_EQ("ok", Say(tavo_show_redo(played, nullptr)));
    char* version = nullptr;
    EXPECT_EQ("ok", Say(tavo_show_save(played, TAVO_MINOR, "no verse", &version)));
    EXPECT_EQ("1.1", TakeText(version));
    EXPECT_THAT(Edits_(played, 0), testing::Contains("3 cut bars 2 to 3 "));
    // Whoever else wants to change the show is told.
    std::uint32_t count = 0;
    EXPECT_EQ("ok", Say(tavo_show_list_versions(played, &count)));
    tavo_version_info info{};
    EXPECT_EQ("ok", Say(tavo_show_version_at(played, 1, &info)));
    EXPECT_STREQ("no verse", info.comment);
    EXPECT_EQ(1U, info.is_in_use);
}

TEST_F(CShow, OfAPlayerThatKeepsNoEdits_IsNotSaved) {
    OpenPlayer player(show_.Path());
    tavo_show* played = nullptr;
    ASSERT_EQ(TAVO_OK, tavo_player_show(player.handle, &played));
    EXPECT_EQ("ok", Say(tavo_show_do_edit(played, "add caesura --song 1 --at 4")));
    EXPECT_THAT(Say(tavo_show_save(played, TAVO_MINOR, nullptr, nullptr)), HasSubstr("failed: "));
    EXPECT_EQ("bad argument: the kind is neither TAVO_MINOR nor TAVO_MAJOR",
              Say(tavo_show_save(played, 7, nullptr, nullptr)));
}

TEST_F(CShow, Error_IsTheThreadsOwn) {
    Open_(TAVO_READ);
    std::uint32_t tick = 0;
    EXPECT_EQ(TAVO_NOT_FOUND, tavo_show_find_song(handle_, "9", &tick));
    std::thread([] { EXPECT_STREQ("", tavo_last_error()); }).join();
    // What goes well leaves it.
    EXPECT_EQ(TAVO_OK, tavo_show_song_count(handle_, &tick));
    EXPECT_STREQ("the show has no song \"9\"", tavo_last_error());
}

TEST(CLibrary, Version_IsTheHeaders) {
    EXPECT_EQ(static_cast<std::uint32_t>(TAVO_VERSION_NUMBER), tavo_version_number());
    EXPECT_EQ(std::to_string(TAVO_VERSION_MAJOR) + "." + std::to_string(TAVO_VERSION_MINOR) + "." +
                  std::to_string(TAVO_VERSION_PATCH),
              tavo_version());
    EXPECT_STREQ("busy", tavo_result_name(TAVO_BUSY));
    EXPECT_STREQ("unknown", tavo_result_name(99));
    EXPECT_STREQ("unknown", tavo_event_name(12345));
}

}  // namespace
