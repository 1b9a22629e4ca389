// Outputs without a device: a thread that takes frames at the pace of the clock, and drops them or writes them to a
// file.

#include <fmt/format.h>

#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "kit/thread_exception_log.h"
#include "kit/thread_names.h"
#include "stage/live/audio_output.h"
#include "stage/live/real_time.h"
#include "stage/offline/audio_file.h"

namespace stage {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

class PacedOutput final : public AudioOutput {
public:
    PacedOutput(const OutputChoice& choice, FrameSource& source)
        : source_(source),
          format_{choice.framesPerSecond, choice.periodFrames, 0},
          path_(choice.path),
          left_(choice.periodFrames),
          right_(choice.periodFrames) {
        if (choice.kind == OutputChoice::Kind::File)
            file_ = std::make_unique<AudioFile>(choice.path, choice.framesPerSecond);
        source_.NoteFormat(format_);
        thread_ = std::thread([this] { Run_(); });
    }
    ~PacedOutput() override {
        {
            const std::lock_guard lock(mutex_);
            isEnding_ = true;
        }
        changed_.notify_all();
        thread_.join();
        try {
            if (file_ != nullptr) file_->Finish();
        } catch (const std::exception& problem) {
            kit::AppendToThreadExceptionLog(problem.what());
        }
    }
    PacedOutput(const PacedOutput&) = delete;
    PacedOutput& operator=(const PacedOutput&) = delete;

    std::string GetName() const override { return path_.empty() ? "null" : "file:" + path_; }
    OutputFormat GetFormat() const override { return format_; }
    // A file that cannot be written any more is no reason to stop: the show plays on without it.
    std::string GetProblem() const override { return ""; }
    std::string TakeRemark() override {
        const std::lock_guard lock(mutex_);
        return std::exchange(remark_, "");
    }

private:
    void Run_() {
        kit::threadNames.SetNameOfCurrentThread("audio device");
        // It stands for a device's callback, which comes before the rendering thread.
        BecomeRealTime(RealTimePriority::Device);
        const auto period = nanoseconds(std::int64_t{1'000'000'000} * format_.periodFrames / format_.framesPerSecond);
        const nanoseconds longestDelay = std::max<nanoseconds>(std::chrono::milliseconds(250), 8 * period);
        nanoseconds start = Now_();
        std::int64_t taken = 0;
        while (WaitUntil_(start + nanoseconds(taken * 1'000'000'000 / format_.framesPerSecond))) {
            // After the machine was asleep the time that has passed is not made up for.
            const nanoseconds due = start + nanoseconds(taken * 1'000'000'000 / format_.framesPerSecond);
            if (Now_() > due + longestDelay) {
                start = Now_();
                taken = 0;
            }
            source_.TakeFrames(left_.data(), right_.data(), format_.periodFrames,
                               start + nanoseconds(taken * 1'000'000'000 / format_.framesPerSecond));
            taken += format_.periodFrames;
            if (file_ != nullptr) WriteToFile_();
        }
    }

    static nanoseconds Now_() { return Clock::now().time_since_epoch(); }

    // False when the output ends.
    bool WaitUntil_(nanoseconds moment) {
        std::unique_lock lock(mutex_);
        return !changed_.wait_until(lock, Clock::time_point(moment), [this] { return isEnding_; });
    }

    void WriteToFile_() {
        try {
            file_->Write(left_.data(), right_.data(), format_.periodFrames);
        } catch (const std::exception& problem) {
            file_.reset();
            const std::lock_guard lock(mutex_);
            remark_ = fmt::format("The show plays on, but its sound is not written any more: {}", problem.what());
        }
    }

    // Constant after construction.
    FrameSource& source_;
    const OutputFormat format_;
    const std::string path_;
    // Used by the thread.
    std::vector<float> left_;
    std::vector<float> right_;
    std::unique_ptr<AudioFile> file_;

    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    bool isEnding_ = false;
    std::string remark_;

    std::thread thread_;
};

}  // namespace

std::unique_ptr<AudioOutput> OpenPacedOutput(const OutputChoice& choice, FrameSource& source) {
    return std::make_unique<PacedOutput>(choice, source);
}

}  // namespace stage
