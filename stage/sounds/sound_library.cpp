#include "stage/sounds/sound_library.h"

#include <fmt/format.h>
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

#include "kit/path.h"
#include "kit/real_time.h"
#include "kit/thread_names.h"

namespace stage {

namespace {

/// Reading takes long and is in nobody's way: while one of these lives, a thread that runs before ordinary ones, for
/// the sake of the locks that it shares, does not.
class AsOrdinaryThread {
public:
    AsOrdinaryThread() {
        sched_param parameter{};
        int policy = SCHED_OTHER;
        if (pthread_getschedparam(pthread_self(), &policy, &parameter) == 0 && policy == SCHED_FIFO)
            priority_ = parameter.sched_priority;
        if (priority_ > 0) kit::MakeThisThreadOrdinary();
    }
    ~AsOrdinaryThread() {
        if (priority_ > 0) kit::MakeThisThreadRealTime(priority_);
    }
    AsOrdinaryThread(const AsOrdinaryThread&) = delete;
    AsOrdinaryThread& operator=(const AsOrdinaryThread&) = delete;

private:
    int priority_ = 0;
};

}  // namespace

SoundLibrary::SoundLibrary(Options options) : options_(std::move(options)), thread_([this] { Run_(); }) {}

SoundLibrary::~SoundLibrary() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

SoundPointer SoundLibrary::Find(const std::string& name, SoundUse use, bool isUrgent) {
    const std::string path = kit::path::Join(options_.directory, name);
    auto sound = std::make_shared<Sound>();
    std::error_code isMissing;
    sound->name_ = name;
    sound->use_ = use;
    sound->changed_ = std::filesystem::last_write_time(path, isMissing);
    sound->fileBytes_ = std::filesystem::file_size(path, isMissing);
    if (const auto trim = options_.trims.find(name); trim != options_.trims.end())
        sound->trim_ = static_cast<float>(std::pow(10.0, trim->second / 20));
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(sounds_.begin(), sounds_.end(), [&](const auto& one) {
        return one->name_ == name && one->use_ == use && one->changed_ == sound->changed_ &&
               one->fileBytes_ == sound->fileBytes_;
    });
    if (found != sounds_.end()) {
        sound = *found;
        if (const auto waiting = std::find(wanted_.begin(), wanted_.end(), sound);
            isUrgent && waiting != wanted_.end()) {
            wanted_.erase(waiting);
            wanted_.push_front(sound);
        }
        return sound;
    }
    sounds_.push_back(sound);
    isUrgent ? wanted_.push_front(sound) : wanted_.push_back(sound);
    changed_.notify_all();
    return sound;
}

void SoundLibrary::Wait(const Sound& sound) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&sound] { return sound.IsRead(); });
}

void SoundLibrary::Tidy() {
    {
        const std::lock_guard lock(mutex_);
        isToTidy_ = true;
    }
    changed_.notify_all();
}

void SoundLibrary::Run_() {
    kit::threadNames.SetNameOfCurrentThread("sounds");
    // Whoever has started the thread may compute the smallest numbers differently: a sound is always the same.
    std::fesetenv(FE_DFL_ENV);
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return isEnding_ || isToTidy_ || !wanted_.empty(); });
        if (isEnding_) return;
        isToTidy_ = false;
        std::vector<std::shared_ptr<Sound>> unused = TakeUnused_();
        std::shared_ptr<Sound> sound;
        if (!wanted_.empty()) {
            sound = wanted_.front();
            wanted_.pop_front();
            // Nobody has waited for it.
            if (sound.use_count() == 2) {
                std::erase(sounds_, sound);
                continue;
            }
        }
        const std::size_t room = options_.mostBytes - std::min(bytes_, options_.mostBytes);
        lock.unlock();
        {
            const AsOrdinaryThread ordinary;
            unused.clear();
            if (sound != nullptr) Read_(*sound, room);
        }
        lock.lock();
        if (sound == nullptr) continue;
        bytes_ += sound->clip_.CountBytes();
        if (sound->clip_.CountFrames() > 0) sound->ready_.store(&sound->clip_, std::memory_order_release);
        sound->isRead_.store(true, std::memory_order_release);
        changed_.notify_all();
    }
}

void SoundLibrary::Read_(Sound& sound, std::size_t room) const {
    try {
        SoundFile file =
            ReadSoundFile(kit::path::Join(options_.directory, sound.name_), options_.framesPerSecond, sound.use_);
        if (file.clip.CountBytes() > room) {
            sound.problem_ = fmt::format("cannot be played: the sounds of the songs at hand take more than {} MB",
                                         options_.mostBytes >> 20U);
            return;
        }
        sound.clip_ = std::move(file.clip);
        sound.problem_ = std::move(file.remark);
    } catch (const std::bad_alloc&) {
        sound.problem_ = "cannot be played: there is no memory for it";
    } catch (const std::exception& problem) {
        sound.problem_ = problem.what();
    }
}

// What only the library has. Nobody else can get at it meanwhile.
std::vector<std::shared_ptr<Sound>> SoundLibrary::TakeUnused_() {
    std::vector<std::shared_ptr<Sound>> unused;
    for (auto sound = sounds_.begin(); sound != sounds_.end();) {
        if (sound->use_count() > 1) {
            ++sound;
            continue;
        }
        bytes_ -= (*sound)->clip_.CountBytes();
        unused.push_back(std::move(*sound));
        sound = sounds_.erase(sound);
    }
    return unused;
}

}  // namespace stage
