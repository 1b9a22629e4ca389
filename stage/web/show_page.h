#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "stage/live/live_json.h"
#include "stage/live/live_show.h"
#include "stage/web/page_files.h"
#include "stage/web/show_answers.h"
#include "stage/web/web_access.h"
#include "stage/web/web_server.h"
#include "tavo_midi/tempo_map.h"

namespace stage {

/// A show's page: tells every client what happens, in the words of docs/web.md, and presses what they press. Made,
/// used and destroyed by the host's thread, which delivers to it; the network is the business of threads of its own.
class ShowPage final : public LiveListener, private WebSite {
public:
    struct Options {
        WebServer::Options server;
        WebPasscodes passcodes;
        /// Of the program, as it is told to clients.
        std::string version;
        /// Where the page's files are read from, in place of those in the program; empty for these.
        std::string pageDirectory;
        /// Where the engraver of scores is installed; where it is not, the page does without.
        std::string engraverDirectory;
        /// How often the state and a playhead that moves are looked at.
        std::chrono::milliseconds interval{50};
        /// How long a MIDI message is waited for that is to be learned.
        std::chrono::milliseconds longestLearning{30000};
    };

    /// Serves. `show` outlives the object. `pageImages` are those of the score, null where none are shown. Throws as
    /// WebServer and WebAccess do.
    ShowPage(LiveShow& show, const Options& options, std::unique_ptr<PagePackage> pageImages = nullptr);
    ~ShowPage();
    ShowPage(const ShowPage&) = delete;
    ShowPage& operator=(const ShowPage&) = delete;

    [[nodiscard]] const WebServer& GetServer() const { return server_; }

    // LiveListener.
    void OnLiveEvent(const LiveEvent& event) override;
    void OnRecord(const CommandRecord& record) override;
    void OnNotification(const notify::GuiNotification& notification) override;
    void OnMessage(const std::string& sentence) override;
    void OnDelivered() override;

private:
    using Json = nlohmann::ordered_json;
    struct Join {
        std::uint64_t client = 0;
        WebRole role = WebRole::None;
    };

    // WebSite.
    void OnJoin(std::uint64_t client, WebRole role, const std::string& address) override;
    void OnPress(const WebPress& press) override;
    WebPress ReadPress(const std::string& word, const std::vector<std::string>& arguments) override;
    WebAnswer Answer(const WebRequest& request) override { return answers_.Answer(request); }

    void Do_(const WebPress& press);
    void Set_(const WebPress& press);
    void PlayTestTone_();
    [[nodiscard]] Command MakeCommand_(const WebPress& press);
    [[nodiscard]] Command MakeRollBack_(const std::string& version);
    [[nodiscard]] std::string FindRefusal_(const WebPress& press) const;
    void Fail_(const WebPress& press, unsigned int status, const std::string& sentence);
    void Welcome_(const Join& join);
    void Publish_(WebEntry::Kind kind, const Json& message);
    [[nodiscard]] std::optional<Json> FollowEdits_();
    void EndForgottenLearning_(const LiveStatus& status);
    void LookAtState_();
    [[nodiscard]] bool FollowPlayhead_(const LiveStatus& status);
    [[nodiscard]] Json MakeState_(const LiveStatus& status) const;
    [[nodiscard]] Json MakeWholeState_() const;
    [[nodiscard]] double FindRemaining_(const LiveStatus& status);
    [[nodiscard]] double FindMoment_(std::int64_t frame) const;

    // Constant after construction.
    LiveShow& show_;
    const Options options_;
    PageFiles files_;
    const bool hasEngraver_;
    const std::string run_;

    // Used by the host's thread.
    LiveJson json_;
    Json state_;  // as the clients know it
    Json playhead_;
    bool isChanged_ = true;
    bool isPlayheadDue_ = true;
    std::chrono::steady_clock::time_point lookedAt_;
    std::chrono::steady_clock::time_point toldPlayhead_;
    std::optional<std::chrono::steady_clock::time_point> learnsUntil_;
    std::shared_ptr<const CL::ChangeLog> log_;
    std::string logName_;
    bool isUnsaved_ = false;
    std::map<std::uint64_t, std::string> lines_;  // of presses that are being decided, by tag
    std::string remainingOf_;
    std::optional<tavo_midi::TempoMap> tempos_;

    ShowAnswers answers_;

    std::mutex mutex_;
    // Guarded by mutex_.
    std::vector<Join> joins_;
    std::vector<WebPress> presses_;

    WebAccess access_;
    WebServer server_;
};

}  // namespace stage
