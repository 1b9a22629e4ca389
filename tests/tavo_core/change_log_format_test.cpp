#include <gtest/gtest.h>

#include <cstring>

#include "change_log_samples.h"
#include "tavo_core/change_log.h"

using CL::ChangeLog;

namespace {

/// What is compared of two logs: every field of every edit, floats by their bits.
std::string Fingerprint(const ChangeLog& log) {
    std::string text = log.GetShowName() + '|' + log.GetVersion().GetAsString();
    const auto add = [&text](const auto& value) { text.append("|").append(std::to_string(value)); };
    const auto addFloat = [&](float value) {
        std::uint32_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        add(bits);
    };
    for (const auto& [number, song] : log.GetSongLogs()) {
        text += "\n[" + number + ']';
        add(song.GetAttacca());
        song.ForEachSequence([&](const auto& sequence) {
            for (const auto& edit : sequence) {
                text += '\n';
                add(edit.code());
                add(edit.start());
                add(edit.end());
                add(edit.int_value());
                text += edit.value();
                using Edit = std::remove_cvref_t<decltype(edit)>;
                if constexpr (std::is_same_v<Edit, CL::Caesura>) add(edit.VersionTarget());
                if constexpr (std::is_same_v<Edit, CL::TempoScale>) addFloat(edit.float_value());
                if constexpr (std::is_base_of_v<CL::Sfx, Edit>) addFloat(edit.gain_db());
                if constexpr (std::is_same_v<Edit, CL::Osc>) {
                    text += edit.target() + '|' + edit.address();
                    for (const CL::OscArgument& argument : edit.arguments()) {
                        add(argument.index());
                        if (const auto* whole = std::get_if<int>(&argument)) add(*whole);
                        if (const auto* fraction = std::get_if<float>(&argument)) addFloat(*fraction);
                        if (const auto* word = std::get_if<std::string>(&argument)) text += *word;
                    }
                }
            }
        });
    }
    return text;
}

/// A log with one song that has these edits.
std::string WithEdits(const std::string& edits) {
    return "{\"format\":\"logdata\",\"formatVersion\":1,\n\"show\":\"x\",\n\"version\":\"1.0\",\n\"songs\":[\n"
           "{\"number\":\"7\",\"attacca\":0,\"edits\":[\n" +
           edits + "\n]}\n]}\n";
}

std::string WhyRefused(const std::string& text) {
    try {
        static_cast<void>(ChangeLog::Parse(text, "x.logdata"));
        return "";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

}  // namespace

TEST(LogdataText, OneOfEachKind_IsOneEditALineInPanelOrder) {
    EXPECT_EQ(R"({"format":"logdata","formatVersion":1,
"show":"The Lantern",
"version":"1.3",
"songs":[
{"number":"2","attacca":1,"edits":[
 {"kind":"Vamp","start":960,"end":1920,"maxCount":0},
 {"kind":"Repeat","start":1920,"end":3840,"count":2},
 {"kind":"Cut","start":4800,"end":5760},
 {"kind":"Transposition","start":0,"end":960,"semitones":-3},
 {"kind":"Tempo Scale","start":0,"end":960,"scale":0.9},
 {"kind":"Click","start":0,"end":1920,"thirtySecondsPerClick":4},
 {"kind":"Caesura","tick":7680,"text":"breath","versionTarget":0},
 {"kind":"Fermata","start":5760,"end":6240},
 {"kind":"Sfx","start":100,"end":200,"sound":"door.wav","gainDb":-3.5},
 {"kind":"Ambient Sfx","start":0,"end":9600,"sound":"rain.ogg","gainDb":0.0},
 {"kind":"OSC","tick":480,"target":"desk","address":"/cue/go","arguments":[7,0.1,2.0,"blå \"2\""]},
 {"kind":"Marker","tick":960,"text":"Intro"},
 {"kind":"Marker","tick":1920,"text":"Verse"}
]},
{"number":"10","attacca":2,"edits":[]}
]}
)",
              change_log_samples::MakeOneOfEachKind().AsText());
}

TEST(LogdataText, EmptyLog_ReadsBack) {
    const ChangeLog log = ChangeLog::Parse(ChangeLog().AsText(), "x.logdata");
    EXPECT_TRUE(log.GetSongLogs().empty());
    EXPECT_EQ("1.0", log.GetVersion().GetAsString());
    EXPECT_EQ("show", log.GetShowName());
}

TEST(LogdataText, RandomLogs_ReadBackBitForBitAndAreWrittenTheSameAgain) {
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        const ChangeLog log = change_log_samples::MakeRandom(random);
        const std::string text = log.AsText();
        const ChangeLog again = ChangeLog::Parse(text, "x.logdata");
        ASSERT_EQ(Fingerprint(log), Fingerprint(again)) << text;
        ASSERT_EQ(text, again.AsText());
    }
}

TEST(LogdataText, HandWrittenInAnotherOrder_IsReadAndSorted) {
    const ChangeLog log = ChangeLog::Parse(
        R"( { "songs" : [ { "edits" : [ {"text":"b","tick":20,"kind":"Marker"}, {"text":"a","tick":10,"kind":"Marker"},
              {"kind":"Tempo Scale","scale":2,"end":1,"start":0} ], "attacca":0, "number":"1" } ],
              "version":"2.5", "show":"\u00e9t\u00E9", "formatVersion":1, "format":"logdata" } )",
        "x.logdata");
    EXPECT_EQ("été", log.GetShowName());
    EXPECT_EQ("a", log.GetSongLog("1").GetMarkers()[0].value());
    EXPECT_EQ("b", log.GetSongLog("1").GetMarkers()[1].value());
    EXPECT_EQ(2.0F, log.GetSongLog("1").GetTempoScales()[0].float_value());
}

TEST(LogdataText, InvertedRangesAndUnplayableTempoScales_AreReadAsTheyAre) {
    const ChangeLog log = ChangeLog::Parse(WithEdits(R"({"kind":"Vamp","start":1920,"end":960,"maxCount":0},
        {"kind":"Tempo Scale","start":0,"end":1,"scale":0.1})"),
                                           "x.logdata");
    EXPECT_EQ(960U, log.GetSongLog("7").GetVamps()[0].end());
    EXPECT_FALSE(log.GetSongLog("7").GetTempoScales()[0].ValueWithinRange());
}

TEST(LogdataText, UnknownSong_IsNamed) {
    try {
        static_cast<void>(ChangeLog().GetSongLog("12b"));
        FAIL();
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ("the change log has no song \"12b\"", error.what());
    }
}

TEST(LogdataText, BadEdit_IsRefusedWithItsPlaceAndReason) {
    struct Row {
        const char* edit;
        const char* reason;
    };
    const Row rows[] = {
        {R"({"start":0,"end":1})", "the edit lacks \"kind\""},
        {R"({"kind":"Dance","start":0,"end":1})", "\"Dance\" is not a kind of edit"},
        {R"({"kind":"vamp","start":0,"end":1,"maxCount":0})", "\"vamp\" is not a kind of edit"},
        {R"({"kind":3})", "the value of \"kind\" has the wrong type"},
        {R"({"kind":"Cut","end":1})", "the kind \"Cut\" needs \"start\""},
        {R"({"kind":"Vamp","start":0,"end":1})", "the kind \"Vamp\" needs \"maxCount\""},
        {R"({"kind":"Cut","start":0,"end":1,"count":2})", "the kind \"Cut\" has no \"count\""},
        {R"({"kind":"Cut","start":0,"end":1,"arguments":[]})", "the kind \"Cut\" has no \"arguments\""},
        {R"({"kind":"Cut","start":0,"end":1,"colour":2})", "an edit has no \"colour\""},
        {R"({"kind":"Cut","start":0,"start":0,"end":1})", "\"start\" is there twice"},
        {R"({"kind":"Cut","kind":"Cut","start":0,"end":1})", "\"kind\" is there twice"},
        {R"({"kind":"Cut","start":-1,"end":1})", "\"start\" must be a whole number from 0 to 4294967295"},
        {R"({"kind":"Cut","start":4294967296,"end":1})", "\"start\" must be a whole number from 0 to 4294967295"},
        {R"({"kind":"Cut","start":18446744073709551615,"end":1})", "\"start\" must be a whole number"},
        {R"({"kind":"Cut","start":99999999999999999999,"end":1})", "\"start\" must be a whole number"},
        {R"({"kind":"Cut","start":1.0,"end":1})", "\"start\" must be a whole number"},
        {R"({"kind":"Cut","start":"1","end":1})", "\"start\" must be a whole number"},
        {R"({"kind":"Cut","start":null,"end":1})", "\"start\" must be a whole number"},
        {R"({"kind":"Cut","start":true,"end":1})", "\"start\" must be a whole number"},
        {R"({"kind":"Cut","start":[1],"end":1})", "the value of \"start\" has the wrong type"},
        {R"({"kind":"Cut","start":{},"end":1})", "the value of \"start\" has the wrong type"},
        {R"({"kind":"Vamp","start":0,"end":1,"maxCount":10000})", "\"maxCount\" must be a whole number from 0 to 9999"},
        {R"({"kind":"Repeat","start":0,"end":1,"count":-1})", "\"count\" must be a whole number from 0 to 9999"},
        {R"({"kind":"Transposition","start":0,"end":1,"semitones":25})",
         "\"semitones\" must be a whole number from -24"},
        {R"({"kind":"Transposition","start":0,"end":1,"semitones":-25})", "\"semitones\" must be a whole number"},
        {R"({"kind":"Tempo Scale","start":0,"end":1,"scale":0})", "\"scale\" must be above 0"},
        {R"({"kind":"Tempo Scale","start":0,"end":1,"scale":1e-60})", "\"scale\" must be above 0"},
        {R"({"kind":"Tempo Scale","start":0,"end":1,"scale":-0.5})", "\"scale\" must be a number from 0 to 100"},
        {R"({"kind":"Tempo Scale","start":0,"end":1,"scale":100.01})", "\"scale\" must be a number from 0 to 100"},
        {R"({"kind":"Tempo Scale","start":0,"end":1,"scale":1e300})", "\"scale\" must be a number from 0 to 100"},
        {R"({"kind":"Tempo Scale","start":0,"end":1,"scale":1e999})", "a number is too large"},
        {R"({"kind":"Tempo Scale","start":0,"end":1,"scale":NaN})", "the text is not valid JSON"},
        {R"({"kind":"Click","start":0,"end":1,"thirtySecondsPerClick":0})", "must be a whole number from 1 to 128"},
        {R"({"kind":"Click","start":0,"end":1,"thirtySecondsPerClick":129})", "must be a whole number from 1 to 128"},
        {R"({"kind":"Sfx","start":0,"end":1,"sound":"a","gainDb":12.5})", "\"gainDb\" must be a number from -60 to 12"},
        {R"({"kind":"Sfx","start":0,"end":1,"sound":"a","gainDb":-61})", "\"gainDb\" must be a number from -60 to 12"},
        {R"({"kind":"Sfx","start":0,"end":1,"sound":5,"gainDb":0})", "\"sound\" must be text"},
        {R"({"kind":"Marker","tick":0,"text":null})", "\"text\" must be text"},
        {R"({"kind":"Caesura","tick":0,"text":"","versionTarget":-1})", "\"versionTarget\" must be a whole number"},
        {R"({"kind":"OSC","tick":0,"target":"","address":"go","arguments":[]})",
         "an OSC \"address\" must begin with '/'"},
        {R"({"kind":"OSC","tick":0,"target":"","address":"","arguments":[]})",
         "an OSC \"address\" must begin with '/'"},
        {R"({"kind":"OSC","tick":0,"target":"","address":"/a"})", "the kind \"OSC\" needs \"arguments\""},
        {R"({"kind":"OSC","tick":0,"target":"","address":"/a","arguments":1})", "\"arguments\" has the wrong type"},
        {R"({"kind":"OSC","tick":0,"target":"","address":"/a","arguments":[[1]]})", "an OSC argument must be"},
        {R"({"kind":"OSC","tick":0,"target":"","address":"/a","arguments":[null]})", "an OSC argument must be"},
        {R"({"kind":"OSC","tick":0,"target":"","address":"/a","arguments":[2147483648]})", "an OSC argument must be"},
        {R"({"kind":"OSC","tick":0,"target":"","address":"/a","arguments":[1e200]})", "an OSC argument must be"},
        {"[]", "an edit must be an object"},
        {"1", "an edit must be an object"},
        {"{\"kind\":\"Marker\",\"tick\":0,\"text\":\"\\ud800\"}", "the text is not valid JSON"},
    };
    const std::string before = R"({"kind":"Cut","start":0,"end":1},)";
    for (const Row& row : rows) {
        const std::string why = WhyRefused(WithEdits(before + "\n" + row.edit));
        EXPECT_TRUE(why.starts_with("x.logdata, line 7, song \"7\"")) << row.edit << "\n" << why;
        EXPECT_NE(std::string::npos, why.find(row.reason)) << row.edit << "\n" << why;
        EXPECT_TRUE(!why.ends_with('.') && why.find('\n') == std::string::npos) << why;
    }
}

TEST(LogdataText, BadFile_IsRefusedWithItsLineAndReason) {
    const std::string head = R"("format":"logdata","formatVersion":1,"show":"x","version":"1.0")";
    const std::string song = R"({"number":"1","attacca":0,"edits":[]})";
    struct Row {
        std::string text;
        const char* reason;
    };
    const Row rows[] = {
        {"", "line 1: the text is not valid JSON"},
        {"\n\n{", "the text is not valid JSON"},
        {"[]", "a change log must be a JSON object"},
        {"3", "a change log must be a JSON object"},
        {"{}", "the change log lacks \"format\""},
        {"{" + head + "}", "the change log lacks \"songs\""},
        {"{" + head + ",\"songs\":[]} x", "the text is not valid JSON"},
        {"{" + head + ",\"songs\":[],}", "the text is not valid JSON"},
        {"{" + head + ",\"songs\":{}}", "the value of \"songs\" has the wrong type"},
        {"{" + head + ",\"songs\":null}", "the value of \"songs\" has the wrong type"},
        {"{" + head + ",\"songs\":[3]}", "a song must be an object"},
        {"{" + head + ",\"songs\":[[]]}", "a song must be an object"},
        {"{" + head + ",\"songs\":[" + song + ",\n" + song + "]}", "line 2, song \"1\": the song is there twice"},
        {"{" + head + ",\"songs\":[{\"number\":\"\",\"attacca\":0,\"edits\":[]}]}", "the song's number is empty"},
        {"{" + head + ",\"songs\":[{\"number\":1,\"attacca\":0,\"edits\":[]}]}", "\"number\" has the wrong type"},
        {"{" + head + ",\"songs\":[{\"attacca\":3}]}", "song entry 1: \"attacca\" is 3, not 0, 1 or 2"},
        {"{" + head + ",\"songs\":[{\"attacca\":0,\"edits\":[]}]}", "song entry 1: the song lacks \"number\""},
        {"{" + head + ",\"songs\":[{\"number\":\"1\",\"edits\":[]}]}", "the song lacks \"attacca\""},
        {"{" + head + ",\"songs\":[{\"number\":\"1\",\"attacca\":0}]}", "the song lacks \"edits\""},
        {"{" + head + ",\"songs\":[{\"title\":\"1\"}]}", "a song has no \"title\""},
        {"{" + head + ",\"show\":\"y\"}", "\"show\" is there twice"},
        {"{\"author\":1}", "a change log has no \"author\""},
        {"{\"format\":\"other\"}", "\"format\" is \"other\", not \"logdata\""},
        {"{\"formatVersion\":2}", "the format version is 2, and only 1 can be read"},
        {"{\"formatVersion\":\"1\"}", "the value of \"formatVersion\" has the wrong type"},
        {"{\"version\":\"1\"}", "\"1\" is not a version"},
        {"{\"show\":\"" + std::string(4097, 'a') + "\"}", "a text is longer than 4096 bytes"},
        {"{\"show\":\"a\n\"}", "the text is not valid JSON"},
        {"{\n\"show\":\"\xFF\"}", "line 2: the text is not well-formed UTF-8"},
        {"{\"show\":\"\xC0\x80\"}", "the text is not well-formed UTF-8"},
        {"{\"show\":\"\xED\xA0\x80\"}", "the text is not well-formed UTF-8"},
        {"{\"show\":\"\xF4\x90\x80\x80\"}", "the text is not well-formed UTF-8"},
        {"{\"show\":\"\xE2\x82\"}", "the text is not well-formed UTF-8"},
        {std::string(100000, '['), "a change log must be a JSON object"},
        {"{" + head + ",\"songs\":" + std::string(100000, '['), "a song must be an object"},
    };
    for (const Row& row : rows) {
        const std::string why = WhyRefused(row.text);
        EXPECT_TRUE(why.starts_with("x.logdata, line ")) << row.text.substr(0, 200) << "\n" << why;
        EXPECT_NE(std::string::npos, why.find(row.reason)) << row.text.substr(0, 200) << "\n" << why;
    }
}

TEST(LogdataText, LongestTexts_AreRead) {
    ChangeLog log;
    log.SetShowName(std::string(4096, 's'));
    EXPECT_EQ(log.GetShowName(), ChangeLog::Parse(log.AsText(), "x").GetShowName());
}

TEST(LogdataText, TooManySongsOrArguments_AreRefused) {
    ChangeLog log;
    for (int i = 0; i < 10001; ++i)
        log.GetSongLogs()[std::to_string(i)];
    EXPECT_NE(std::string::npos, WhyRefused(log.AsText()).find("there are more than 10000 songs"));
    std::string arguments = "0";
    for (int i = 0; i < 256; ++i)
        arguments += ",0";
    EXPECT_NE(
        std::string::npos,
        WhyRefused(WithEdits(R"({"kind":"OSC","tick":0,"target":"","address":"/a","arguments":[)" + arguments + "]}"))
            .find("there are more than 256 arguments"));
}

TEST(LogdataText, CutOffAnywhere_IsRefusedAndNeverCrashes) {
    const std::string text = change_log_samples::MakeOneOfEachKind().AsText();
    for (std::size_t length = 0; length + 1 < text.size(); ++length)
        ASSERT_NE("", WhyRefused(text.substr(0, length)));
}

TEST(LogdataText, AnyByteChanged_IsReadOrRefusedAndNeverCrashes) {
    std::string text = change_log_samples::MakeOneOfEachKind().AsText();
    std::mt19937 random(11);
    int refused = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string changed = text;
        for (int i = 0; i < 2; ++i)
            changed[random() % changed.size()] = static_cast<char>(random() % 256);
        if (!WhyRefused(changed).empty()) ++refused;
    }
    EXPECT_GT(refused, 1500);
}

TEST(LogdataText, EditsInDescendingOrder_AreNotSlowToRead) {
    std::string edits;
    for (int tick = 50000; tick > 0; --tick)
        edits += "{\"kind\":\"Marker\",\"tick\":" + std::to_string(tick) + ",\"text\":\"\"},";
    edits.pop_back();
    const ChangeLog log = ChangeLog::Parse(WithEdits(edits), "x.logdata");
    EXPECT_EQ(50000U, log.GetSongLog("7").GetMarkers().size());
    EXPECT_EQ(1U, log.GetSongLog("7").GetMarkers()[0].abs_time());
}
