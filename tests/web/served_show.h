#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "stage/live/live_show.h"
#include "stage/web/show_page.h"
#include "tests/stage/small_show.h"
#include "tests/web/web_client.h"

namespace test_support {

/// A show that is performed over no device, with its page; a thread of its own is the host's, as in `stage play`.
class ServedShow {
public:
    struct Words {
        bool isLocked = false;
        stage::WebPasscodes passcodes;
        stage::WebServer::Limits limits = MakeLimits();
        std::string takePath;

        static stage::WebServer::Limits MakeLimits() {
            stage::WebServer::Limits limits;
            // A test that has seen enough answers no good-bye.
            limits.leaving = std::chrono::milliseconds(100);
            return limits;
        }
    };

    ServedShow(const std::string& showPath, const Words& words) : words_(words) {
        host_ = std::thread([this, showPath] { Run_(showPath); });
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return isReady_ || !problem_.empty(); });
    }
    explicit ServedShow(const std::string& showPath) : ServedShow(showPath, Words()) {}
    ~ServedShow() { End(); }
    ServedShow(const ServedShow&) = delete;
    ServedShow& operator=(const ServedShow&) = delete;

    [[nodiscard]] std::uint16_t GetPort() const { return port_; }
    [[nodiscard]] const std::string& GetProblem() const { return problem_; }
    /// Runs it on the host's thread and waits for it.
    void OnHost(const std::function<void(stage::LiveShow&, stage::ShowPage&)>& work) {
        std::unique_lock lock(mutex_);
        work_ = work;
        changed_.wait(lock, [this] { return !work_; });
    }
    /// The page's server ends, and another one begins at the same port.
    void ServeAnew() {
        std::unique_lock lock(mutex_);
        isToServeAnew_ = true;
        changed_.wait(lock, [this] { return !isToServeAnew_; });
    }
    void End() {
        isEnding_ = true;
        if (host_.joinable()) host_.join();
    }

private:
    class Deaf final : public stage::LiveListener {
        void OnLiveEvent(const stage::LiveEvent&) override {}
        void OnRecord(const stage::CommandRecord&) override {}
        void OnNotification(const notify::GuiNotification&) override {}
        void OnMessage(const std::string&) override {}
    };

    [[nodiscard]] std::unique_ptr<stage::ShowPage> Serve_(stage::LiveShow& show) {
        stage::ShowPage::Options options;
        options.server.address.port = port_;
        options.server.limits = words_.limits;
        options.passcodes = words_.passcodes;
        options.version = "1.2.3";
        return std::make_unique<stage::ShowPage>(show, options);
    }

    void Run_(const std::string& showPath) {
        try {
            stage::LiveShow::Options options;
            options.output.kind = stage::OutputChoice::Kind::Null;
            options.isLocked = words_.isLocked;
            options.takePath = words_.takePath;
            stage::LiveShow show(showPath, options);
            std::unique_ptr<stage::ShowPage> page = Serve_(show);
            show.Press(show.Read("load 1", {stage::Door::Script, ""}));
            Note_([&] {
                port_ = page->GetServer().GetAddress().port;
                isReady_ = true;
            });
            Deaf listener;
            while (!isEnding_ && show.Deliver(listener)) {
                Note_([&] {
                    if (work_) std::exchange(work_, {})(show, *page);
                    if (std::exchange(isToServeAnew_, false)) {
                        page.reset();
                        page = Serve_(show);
                    }
                });
                pollfd wakeUp{show.GetWakeUp().GetDescriptor(), POLLIN, 0};
                ::poll(&wakeUp, 1, 4);
            }
        } catch (const std::exception& problem) {
            Note_([&] { problem_ = problem.what(); });
        }
    }
    void Note_(const std::function<void()>& change) {
        {
            const std::lock_guard lock(mutex_);
            change();
        }
        changed_.notify_all();
    }

    const Words words_;
    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    bool isReady_ = false;
    bool isToServeAnew_ = false;
    std::function<void(stage::LiveShow&, stage::ShowPage&)> work_;

    std::uint16_t port_ = 0;
    std::string problem_;
    std::atomic<bool> isEnding_{false};
    std::thread host_;
};

}  // namespace test_support
