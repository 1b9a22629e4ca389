// Who may do what, and what comes from clients as text.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "stage/web/web_access.h"
#include "stage/web/web_address.h"
#include "stage/web/web_messages.h"
#include "tests/support/run_program.h"
#include "tests/support/temporary_directory.h"

namespace {

using namespace std::chrono_literals;
using stage::ClientMessage;
using stage::LoginGuard;
using stage::ParseClientMessage;
using stage::ParseWebAddress;
using stage::WebAccess;
using stage::WebPasscodes;
using stage::WebRole;
using testing::HasSubstr;

template <class Call>
std::string SentenceOf(Call call) {
    try {
        call();
    } catch (const std::exception& problem) {
        return problem.what();
    }
    return "";
}

TEST(WebAddress, AddressesWithAPort_AreReadAndWritten) {
    EXPECT_EQ((stage::WebAddress{"127.0.0.1", 7480}), ParseWebAddress("127.0.0.1:7480"));
    EXPECT_EQ((stage::WebAddress{"127.0.0.1", 1}), ParseWebAddress("localhost:1"));
    EXPECT_EQ((stage::WebAddress{"0.0.0.0", 65535}), ParseWebAddress("0.0.0.0:65535"));
    EXPECT_EQ((stage::WebAddress{"::1", 80}), ParseWebAddress("[::1]:80"));
    EXPECT_EQ("[::1]:80", AsText(ParseWebAddress("[::1]:80")));
    EXPECT_EQ("10.0.0.7:80", AsText(ParseWebAddress("10.0.0.7:80")));
    for (const char* wrong : {"", "7480", "127.0.0.1", "127.0.0.1:", ":80", "127.0.0.1:65536", "127.0.0.1:-1", "::1:80",
                              "[127.0.0.1]:80", "example.org:80", "127.0.0.1:80x"})
        EXPECT_THAT(SentenceOf([&] { static_cast<void>(ParseWebAddress(wrong)); }), HasSubstr("is not an address"))
            << wrong;
    EXPECT_TRUE(stage::IsLoopback({"127.0.0.1", 1}));
    EXPECT_TRUE(stage::IsLoopback({"::1", 1}));
    EXPECT_FALSE(stage::IsLoopback({"0.0.0.0", 1}));
    EXPECT_FALSE(stage::IsLoopback({"192.168.1.4", 1}));
}

TEST(WebMessages, MessagesOfClients_AreReadOrRefusedInASentence) {
    EXPECT_EQ((ClientMessage{ClientMessage::Kind::Press, "go", "", "7", ""}),
              ParseClientMessage(R"({"type":"press","line":"go","id":7})"));
    EXPECT_EQ((ClientMessage{ClientMessage::Kind::Edit, "add vamp 3 5", "2", "\"a\"", ""}),
              ParseClientMessage(R"({"type":"edit","line":"add vamp 3 5","song":"2","id":"a"})"));
    EXPECT_EQ((ClientMessage{ClientMessage::Kind::Time, "", "", "", "1.5"}),
              ParseClientMessage(R"({"type":"time","t":1.5})"));
    const std::pair<const char*, const char*> wrong[] = {
        {"", "the message is not JSON"},
        {"[]", "the message is not a JSON object"},
        {"{}", "the type \"\" is not press, edit or time"},
        {R"({"type":7})", "\"type\" is not a text"},
        {R"({"type":"press"})", "\"line\" is missing"},
        {R"({"type":"press","line":7})", "\"line\" is not a text"},
        {R"({"type":"press","line":"go","id":{}})", "\"id\" is neither a number nor a text"},
        {R"({"type":"press","line":"go","id":"0123456789012345678901234567890123456789012345678901234567890123456789"})",
         "\"id\" is too long"},
        {R"({"type":"time","t":1e999})", "the message is not JSON"},
    };
    for (const auto& [text, sentence] : wrong)
        EXPECT_EQ(sentence, SentenceOf([&] { static_cast<void>(ParseClientMessage(text)); })) << text;
}

TEST(WebMessages, ArgumentsTargetsAndCookies_AreReadOrRefused) {
    using Words = std::vector<std::string>;
    EXPECT_EQ(Words(), stage::ParseArguments(""));
    EXPECT_EQ(Words(), stage::ParseArguments(" {} "));
    EXPECT_EQ((Words{"90%", "3"}), stage::ParseArguments(R"({"arguments":["90%",3]})"));
    for (const char* wrong : {"x", "[]", R"({"arguments":"go"})", R"({"arguments":[null]})"})
        EXPECT_NE("", SentenceOf([&] { static_cast<void>(stage::ParseArguments(wrong)); })) << wrong;
    EXPECT_EQ((Words{"api", "song", "12 a"}), stage::ParseTarget("/api/song/12%20a?x=/..").parts);
    EXPECT_EQ(Words(), stage::ParseTarget("/").parts);
    EXPECT_EQ("b", stage::FindCookie("x=1; stage_7480=b ; y=2", "stage_7480").substr(0, 1));
    EXPECT_EQ("", stage::FindCookie("xstage_7480=b", "stage_7480"));
    EXPECT_EQ("t", stage::FindBearer("Bearer t"));
    EXPECT_EQ("", stage::FindBearer("Basic t"));
}

TEST(LoginGuard, WrongPasscodes_AreFreeAtFirstThenWaitTwiceAsLongEachTime) {
    LoginGuard guard;
    const LoginGuard::Moment start{1000s};
    for (int i = 1; i < LoginGuard::FreeFailures; ++i) {
        guard.NoteFailure("a", start);
        EXPECT_EQ(0ms, guard.FindWait("a", start));
    }
    guard.NoteFailure("a", start);
    EXPECT_EQ(1000ms, guard.FindWait("a", start));
    EXPECT_EQ(1ms, guard.FindWait("a", start + 999ms));
    EXPECT_EQ(0ms, guard.FindWait("a", start + 1s));
    guard.NoteFailure("a", start);
    EXPECT_EQ(2000ms, guard.FindWait("a", start));
    for (int i = 0; i < 50; ++i)
        guard.NoteFailure("a", start);
    EXPECT_EQ(LoginGuard::LongestWait, guard.FindWait("a", start));
    EXPECT_EQ(0ms, guard.FindWait("b", start));
    guard.NoteSuccess("a");
    EXPECT_EQ(0ms, guard.FindWait("a", start));
}

TEST(LoginGuard, AddressesWithoutEnd_AreNotAllRemembered) {
    LoginGuard guard;
    const LoginGuard::Moment start{1000s};
    for (int i = 0; i < LoginGuard::FreeFailures; ++i)
        guard.NoteFailure("worst", start + 1h);
    for (std::size_t i = 0; i < 2 * LoginGuard::MostAddresses; ++i)
        guard.NoteFailure("address " + std::to_string(i), start);
    EXPECT_LT(0ms, guard.FindWait("worst", start + 1h));
}

TEST(WebAccess, WithoutPasscodes_ThisComputerMayEverythingAndOthersNothing) {
    const WebAccess access({}, true);
    EXPECT_FALSE(access.AsksForPasscode());
    EXPECT_EQ(WebRole::Edit, access.FindRoleOfToken(""));
    EXPECT_THAT(SentenceOf([] { const WebAccess open({}, false); }), HasSubstr("only with a passcode"));
}

TEST(WebAccess, Tokens_AreWorthNothingWhenForgedOrOfAnotherPasscode) {
    WebPasscodes passcodes;
    stage::SetPasscode(passcodes, WebRole::View, "orchestra");
    WebAccess access(passcodes, true);
    const std::string token = access.LogIn("orchestra", "a").token;
    EXPECT_EQ(WebRole::View, access.FindRoleOfToken(token));
    EXPECT_EQ(WebRole::None, access.FindRoleOfToken(""));
    EXPECT_EQ(WebRole::None, access.FindRoleOfToken("edit" + token.substr(4)));
    EXPECT_EQ(WebRole::None, access.FindRoleOfToken(token + "0"));
    EXPECT_EQ(WebRole::None, access.FindRoleOfToken("view.99999999999999999999." + token.substr(token.rfind('.') + 1)));
    std::string later = token;
    later[token.find('.') + 1] = '9';
    EXPECT_EQ(WebRole::None, access.FindRoleOfToken(later));
    EXPECT_EQ(WebRole::View, WebAccess(passcodes, true).FindRoleOfToken(token));
    stage::SetPasscode(passcodes, WebRole::View, "orchestra");
    EXPECT_EQ(WebRole::None, WebAccess(passcodes, true).FindRoleOfToken(token));
}

TEST(WebPasscodes, FileOfThem_IsItsOwnersAloneAndHoldsNoPasscode) {
    const test_support::TemporaryDirectory directory;
    const std::string path = directory / WebPasscodes::FileName;
    EXPECT_TRUE(stage::ReadPasscodes(path).IsEmpty());
    WebPasscodes passcodes;
    stage::SetPasscode(passcodes, WebRole::Operate, "conductor");
    EXPECT_THAT(SentenceOf([&] { stage::SetPasscode(passcodes, WebRole::Edit, "conductor"); }),
                HasSubstr("of \"operate\" already"));
    EXPECT_THAT(SentenceOf([&] { stage::SetPasscode(passcodes, WebRole::Edit, "short"); }), HasSubstr("6 to 200"));
    stage::WritePasscodes(path, passcodes);
    EXPECT_EQ(std::filesystem::perms::owner_read | std::filesystem::perms::owner_write,
              std::filesystem::status(path).permissions());
    EXPECT_THAT(test_support::ReadAll(path), testing::Not(HasSubstr("conductor")));
    EXPECT_EQ(passcodes.hashes, stage::ReadPasscodes(path).hashes);
    for (const char* wrong : {"{", "{}", R"({"secret":"12"})"}) {
        test_support::WriteAll(path, wrong);
        EXPECT_THAT(SentenceOf([&] { static_cast<void>(stage::ReadPasscodes(path)); }), HasSubstr("webPasscodes"))
            << wrong;
    }
}

}  // namespace
