#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>

namespace tavo_midi_io {

/// Makes the requests to a MIDI system, one after the other on a thread of its own: a JACK server that hangs
/// never responds, and a thread that asks it would hang too. Thread-safe; a request may make others.
class MidiRequests {
public:
    /// Longer than any answer takes on a busy machine.
    static constexpr std::chrono::seconds Patience{2};

    /// Never destroyed.
    static MidiRequests& Get();

    /// The request's answer, or nothing if there is none in time. It may then still be carried out at any later time,
    /// and its answer is destroyed: what it uses belongs to it. Throws what it throws.
    template <class Request>
    [[nodiscard]] auto Ask(Request request) -> std::optional<std::invoke_result_t<Request&>> {
        using Answer = std::invoke_result_t<Request&>;
        struct Outcome {
            std::optional<Answer> answer;
            std::exception_ptr problem;
        };
        const auto outcome = std::make_shared<Outcome>();
        const bool isAnswered = Make_(
            [request = std::move(request), outcome]() mutable {
                try {
                    outcome->answer = request();
                } catch (...) {
                    outcome->problem = std::current_exception();
                }
            },
            false);
        if (!isAnswered) return std::nullopt;
        if (outcome->problem) std::rethrow_exception(outcome->problem);
        return std::move(outcome->answer);
    }

    /// Has something closed, which is done in any case, if need be when the system goes on. What it throws is logged.
    void Close(std::function<void()> request) { static_cast<void>(Make_(std::move(request), true)); }

private:
    struct Job {
        std::function<void()> request;
        bool isDone = false;
    };

    MidiRequests() = default;
    /// False if it was not done in time; one that must not be left out is done then, too, but later.
    bool Make_(std::function<void()> request, bool isNeverLeftOut);
    static void Carry_(Job& job);
    void Work_();

    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_:
    std::deque<std::shared_ptr<Job>> jobs_;  ///< the first one is being done
    std::chrono::steady_clock::time_point begunAt_;
    bool hasThread_ = false;
};

}  // namespace tavo_midi_io
