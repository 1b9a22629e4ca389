#include "kit/json_object.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using kit::JsonLimits;
using kit::JsonObject;
using kit::JsonText;
using kit::JsonValue;

/// The sentence with which `read` refuses the text; "read" where it takes it.
std::string Refusal(const std::string& text, const std::function<void(const JsonValue&)>& read,
                    const JsonLimits& limits = {}) {
    try {
        const JsonText json(text, "f.json", limits);
        read(json.Root());
    } catch (const std::runtime_error& problem) {
        return problem.what();
    }
    return "read";
}

std::string RefusalOfText(const std::string& text, const JsonLimits& limits = {}) {
    return Refusal(
        text, [](const JsonValue&) {}, limits);
}

TEST(JsonText, ValuesOfAllKinds_AreReadExactly) {
    const JsonText json(R"({"n":null,"f":true,"t":"a\u00e9\n","i":-9223372036854775808,"d":2.5,"e":1e2,"l":[1,[],{}]})",
                        "f.json");
    JsonObject object = json.Object();
    EXPECT_TRUE(object.Get("n").IsNull());
    EXPECT_TRUE(object.Get("f").AsFlag());
    EXPECT_EQ("a\xC3\xA9\n", object.Get("t").AsText());
    EXPECT_EQ(INT64_MIN, object.Get("i").AsInteger(INT64_MIN, 0));
    EXPECT_EQ(2.5, object.Get("d").AsNumber());
    EXPECT_EQ(100.0, object.Get("e").AsNumber(0, 100));
    const std::vector<JsonValue> list = object.Get("l").AsList();
    ASSERT_EQ(3U, list.size());
    EXPECT_EQ(1U, list[0].AsUnsigned());
    EXPECT_TRUE(list[1].AsList().empty());
    EXPECT_FALSE(list[2].AsObject().Find("n").has_value());
    object.RefuseOtherKeys();
}

TEST(JsonText, ThatIsNotOne_IsRefusedWithItsLine) {
    const std::pair<std::string, std::string> rows[] = {
        {"", "f.json, line 1: the text is not JSON"},
        {"{\n\n!", "f.json, line 3: the text is not JSON"},
        {"{}\n{}", "f.json, line 2: the text is not JSON"},
        {"{\"a\":01}", "f.json, line 1: the text is not JSON"},
        {"{\"a\":nan}", "f.json, line 1: the text is not JSON"},
        {"[1,]", "f.json, line 1: the text is not JSON"},
        {"// note\n{}", "f.json, line 1: the text is not JSON"},
        {"\"a\nb\"", "f.json, line 1: the text is not JSON"},
        {"\"\\ud800\"", "f.json, line 1: the text is not JSON"},
        {"\n[1e999]", "f.json, line 2: the number 1e999 is too large"},
        {"[\n\"\xC3\"]", "f.json, line 2: the text is not well-formed UTF-8"},
    };
    for (const auto& [text, sentence] : rows)
        EXPECT_EQ(sentence, RefusalOfText(text)) << text;
}

TEST(JsonText, KeyThatIsThereTwice_IsRefusedWithItsPlace) {
    EXPECT_EQ("f.json: a is there twice", RefusalOfText(R"({"a":1,"b":2,"a":1})"));
    EXPECT_EQ("f.json: l[1].x.a is there twice", RefusalOfText(R"({"l":[{"a":1},{"x":{"a":1,"\u0061":1}}]})"));
    EXPECT_EQ("read", RefusalOfText(R"([{"a":1},{"a":1}])"));
}

TEST(JsonText, BeyondTheLimits_IsRefused) {
    const JsonLimits limits{.bytes = 12, .depth = 2, .values = 4};
    EXPECT_EQ("read", RefusalOfText("[[1],[2]]   ", {.bytes = 12, .depth = 2, .values = 5}));
    EXPECT_EQ("f.json: the text is longer than 12 bytes", RefusalOfText("[          ] ", limits));
    EXPECT_EQ("f.json: the text is nested deeper than 2 levels", RefusalOfText("[[[", limits));
    EXPECT_EQ("f.json: the text holds more than 4 values", RefusalOfText("[1,2,3,4]", limits));
    EXPECT_EQ("f.json: the text is nested deeper than 16 levels", RefusalOfText(std::string(1000000, '[')));
}

TEST(JsonValue, OfTheWrongTypeOrRange_IsRefusedWithFilePlaceAndValue) {
    struct Row {
        std::string text;
        std::function<void(const JsonValue&)> read;
        std::string sentence;
    };
    const auto guard = [](const JsonValue& value) {
        static_cast<void>(value.AsObject().Get("guardMs").AsInteger(0, 5000));
    };
    const auto factor = [](const JsonValue& value) {
        static_cast<void>(value.AsObject().Get("factor").AsNumber(0, 1));
    };
    const std::string wanted = "f.json: guardMs must be a whole number from 0 to 5000, not ";
    const Row rows[] = {
        {R"({"guardMs":5000})", guard, "read"},
        {R"({"guardMs":-0})", guard, "read"},
        {R"({"guardMs":"x"})", guard, wanted + "\"x\""},
        {R"({"guardMs":5001})", guard, wanted + "5001"},
        {R"({"guardMs":-1})", guard, wanted + "-1"},
        {R"({"guardMs":1.5})", guard, wanted + "1.5"},
        {R"({"guardMs":1.0})", guard, wanted + "1.0"},
        {R"({"guardMs":1e3})", guard, wanted + "1e3"},
        {R"({"guardMs":18446744073709551615})", guard, wanted + "18446744073709551615"},
        {R"({"guardMs":99999999999999999999})", guard, wanted + "99999999999999999999"},
        {R"({"guardMs":null})", guard, wanted + "null"},
        {R"({"guardMs":true})", guard, wanted + "true"},
        {R"({"guardMs":[1]})", guard, wanted + "a list"},
        {R"({"guardMs":{}})", guard, wanted + "an object"},
        {"{}", guard, "f.json: guardMs is missing"},
        {"[]", guard, "f.json: the outermost value must be an object, not a list"},
        {R"({"factor":1})", factor, "read"},
        {R"({"factor":1e-999})", factor, "read"},
        {R"({"factor":1.01})", factor, "f.json: factor must be a number from 0 to 1, not 1.01"},
        {R"({"factor":-0.5})", factor, "f.json: factor must be a number from 0 to 1, not -0.5"},
        {R"({"factor":"1"})", factor, "f.json: factor must be a number from 0 to 1, not \"1\""},
        {"1", [](const JsonValue& value) { static_cast<void>(value.AsFlag()); },
         "f.json: the outermost value must be true or false, not 1"},
        {"1", [](const JsonValue& value) { static_cast<void>(value.AsText()); },
         "f.json: the outermost value must be text, not 1"},
        {R"([""])", [](const JsonValue& value) { static_cast<void>(value.AsList()[0].AsFilledText()); },
         "f.json: [0] must not be empty"},
        {R"(["abc"])", [](const JsonValue& value) { static_cast<void>(value.AsList()[0].AsText(2)); },
         "f.json: [0] must not be longer than 2 bytes"},
        {R"({"l":[[1,2,3]]})",
         [](const JsonValue& value) { static_cast<void>(value.AsObject().Get("l").AsList()[0].AsList(2)); },
         "f.json: l[0] must not have more than 2 elements"},
        {R"({"a":{"l":[{},{}]}})",
         [](const JsonValue& value) {
             static_cast<void>(value.AsObject().Get("a").AsObject().Get("l").AsList()[1].AsObject().Get("port"));
         },
         "f.json: a.l[1].port is missing"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.sentence, Refusal(row.text, row.read)) << row.text;
}

TEST(JsonValue, OutOfAListOfWords_IsItsMeaning) {
    constexpr std::array<std::pair<const char*, int>, 2> Words{{{"udp", 1}, {"tcp", 2}}};
    const JsonText json(R"(["tcp"])", "f.json");
    EXPECT_EQ(2, json.Root().AsList()[0].AsOneOf(Words));
    const auto read = [&](const JsonValue& value) { static_cast<void>(value.AsOneOf(Words)); };
    EXPECT_EQ("f.json: the outermost value must be one of \"udp\", \"tcp\", not \"ip\"", Refusal("\"ip\"", read));
    EXPECT_EQ("f.json: the outermost value must be one of \"udp\", \"tcp\", not 7", Refusal("7", read));
}

TEST(JsonObject, KeysThatNobodyAskedFor_AreNamed) {
    const JsonText json(R"({"a":1,"b":{"d":2,"\n c":3},"e":4})", "f.json");
    JsonObject object = json.Object();
    EXPECT_TRUE(object.Find("a").has_value());
    JsonObject inner = object.Get("b").AsObject();
    EXPECT_TRUE(inner.Find("d").has_value());
    std::vector<std::string> warnings;
    object.WarnOfOtherKeys(warnings);
    inner.WarnOfOtherKeys(warnings);
    EXPECT_EQ((std::vector<std::string>{"f.json: e is not a known key and is ignored",
                                        "f.json: b.\"\\n c\" is not a known key and is ignored"}),
              warnings);
    EXPECT_EQ("f.json: b is not a known key", Refusal(R"({"a":1,"b":2,"c":3})", [](const JsonValue& value) {
                  JsonObject asked = value.AsObject();
                  static_cast<void>(asked.Find("a"));
                  asked.RefuseOtherKeys();
              }));
}

TEST(JsonObject, WithHundredsOfUnknownKeys_WarnsOfTen) {
    std::string text = "{";
    for (int i = 0; i < 300; ++i)
        text += "\"k" + std::to_string(i) + "\":1,";
    const JsonText json(text + "\"z\":1}", "f.json");
    std::vector<std::string> warnings;
    json.Object().WarnOfOtherKeys(warnings);
    EXPECT_EQ(10U, warnings.size());
}

TEST(QuoteForSentence, LongOrOddTexts_StayOnOneShortLine) {
    EXPECT_EQ("\"a\\\"\\\\\\n\\u0001\\u007f\"", kit::QuoteForSentence("a\"\\\n\x01\x7F"));
    EXPECT_EQ("\"" + std::string(40, 'x') + "...\"", kit::QuoteForSentence(std::string(41, 'x')));
    EXPECT_EQ("\"" + std::string(39, 'x') + "...\"", kit::QuoteForSentence(std::string(39, 'x') + "\xC3\xA9"));
}

}  // namespace
