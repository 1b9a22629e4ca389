// Many clients at once. TAVO_WEB_SECONDS makes it as long as a report wants it, TAVO_WEB_CLIENTS as many.

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "tests/web/served_show.h"

namespace {

using test_support::Json;
using test_support::ServedShow;
using test_support::Socket;

int GetNumber(const char* name, int without) {
    const char* const text = std::getenv(name);
    return text == nullptr ? without : std::stoi(text);
}

/// Seconds of processor that this process's threads of that name have used.
double FindSecondsOf(const std::string& threadName) {
    double seconds = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        if (name != threadName) continue;
        std::string stat = test_support::ReadAll((task.path() / "stat").string());
        std::istringstream fields(stat.substr(stat.rfind(')') + 2));
        std::string skipped;
        for (int i = 0; i < 11; ++i)
            fields >> skipped;
        double user = 0;
        double system = 0;
        fields >> user >> system;
        seconds += (user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
    }
    return seconds;
}

class WebLoad : public test_support::SmallShow {};

TEST_F(WebLoad, ManyClientsWhileItPlays_EachGetsEveryStatus_NobodyWaits) {
    const int clientCount = GetNumber("TAVO_WEB_CLIENTS", 20);
    const int seconds = GetNumber("TAVO_WEB_SECONDS", 1);
    ServedShow show(Show());
    std::vector<Socket> clients;
    for (int i = 0; i < clientCount; ++i) {
        clients.emplace_back(show.GetPort());
        ASSERT_TRUE(clients.back().IsOpen());
        clients.back().WaitFor("state");
    }
    clients.front().Send({{"type", "press"}, {"line", "play"}});
    std::uint64_t lateBefore = 0;
    show.OnHost([&](stage::LiveShow& live, stage::ShowPage&) { lateBefore = live.PeekStatus().latePeriods; });
    const double processorBefore = FindSecondsOf("page");
    const auto begin = std::chrono::steady_clock::now();

    // Ten statuses a second, each with the moment at which it was sent.
    const int statuses = seconds * 10;
    std::vector<std::vector<double>> delays(clients.size());
    std::size_t messages = 0;
    std::thread sender([&] {
        for (int i = 0; i < statuses; ++i) {
            std::this_thread::sleep_until(begin + std::chrono::milliseconds(100) * i);
            notify::guiDispatcher.SendStatusFlowControl("at " + std::to_string(stage::WebServer::Now()), i);
        }
    });
    const int queue = ::epoll_create1(EPOLL_CLOEXEC);
    for (std::size_t i = 0; i < clients.size(); ++i) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = i;
        ::epoll_ctl(queue, EPOLL_CTL_ADD, clients[i].GetConnection().GetSocket(), &event);
    }
    const auto take = [&](Socket& client, std::vector<double>& delay) {
        static_cast<void>(client.GetConnection().ReadMore());
        while (client.HasWholeFrame()) {
            const std::string text = *client.NextText();
            const double now = stage::WebServer::Now();
            ++messages;
            if (text.find("\"type\":\"status\"") == std::string::npos) continue;
            const Json message = Json::parse(text);
            const std::string status = message["status"];
            if (!status.starts_with("at ")) continue;
            EXPECT_EQ(static_cast<int>(delay.size()), message["count"]);
            delay.push_back(now - std::stod(status.substr(3)));
        }
    };
    const auto isDone = [&] {
        return std::ranges::all_of(delays, [&](const auto& each) { return static_cast<int>(each.size()) >= statuses; });
    };
    std::array<epoll_event, 64> events{};
    while (!isDone()) {
        const int count = ::epoll_wait(queue, events.data(), static_cast<int>(events.size()), 20000);
        ASSERT_GT(count, 0) << "statuses are missing";
        for (int i = 0; i < count; ++i) {
            const auto index = events.at(static_cast<std::size_t>(i)).data.u64;
            take(clients[index], delays[index]);
        }
    }
    sender.join();
    ::close(queue);

    std::vector<double> all;
    for (const auto& each : delays)
        all.insert(all.end(), each.begin(), each.end());
    std::ranges::sort(all);
    const double lasted = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    std::uint64_t late = 0;
    show.OnHost([&](stage::LiveShow& live, stage::ShowPage& page) {
        late = live.PeekStatus().latePeriods - lateBefore;
        EXPECT_EQ(0U, page.GetServer().GetCounts().tooSlow);
    });
    std::cout << clientCount << " clients for " << lasted << " s: " << messages
              << " messages; from notification to client " << all[all.size() / 2] << " ms, p99 "
              << all[all.size() * 99 / 100] << " ms, longest " << all.back() << " ms; the server's thread took "
              << (FindSecondsOf("page") - processorBefore) / lasted * 100 << " % of a core; " << late
              << " late periods\n";
}

}  // namespace
