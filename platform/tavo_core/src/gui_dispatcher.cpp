#include "tavo_core/gui_dispatcher.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "kit/mutex.h"
#include "kit/thread_exception_log.h"
#include "kit/thread_names.h"
#include "tavo_core/gui_batch.h"
#include "tavo_core/tavo_log_exception.h"

namespace notify {

namespace {

constexpr std::array<const char*, 19> NotificationNames{
    "Playhead",
    "Marker",
    "SongTitle",
    "BarBeat",
    "Meter",
    "StatusClickResolution",
    "Transposition",
    "Key",
    "Tempo",
    "TempoScale",
    "StatusTargetTempo",
    "PageNum",
    "StatusFlowControl",
    "VampOn",
    "VampOff",
    "Caesura",
    "PlaybackStarted",
    "PlaybackStopped",
    "NoNextSong",
};
static_assert(NotificationNames.size() == static_cast<std::size_t>(GuiNotificationType::NoNextSong) + 1);

/// The dispatcher whose thread this is.
thread_local const void* dispatcherOfThisThread = nullptr;

/// This thread's batches, and the dispatcher that is to be woken when the outermost ends.
struct Batches {
    unsigned int depth = 0;
    void* dispatcher = nullptr;
    void (*wake)(void* dispatcher) = nullptr;
};
thread_local Batches batches;

/// Nothing that a host's code throws ends this thread, and with it the process: an exception may say nothing of itself,
/// or leave no memory to say it with.
template <class Operation>
void LogWhatIsThrown(Operation&& operation) noexcept {
    constexpr const char* SourceFile = "platform/tavo_core/src/gui_dispatcher";
    constexpr const char* Unknown = "Unknown exception.";
    try {
        try {
            operation();
        } catch (const std::exception& error) {
            TavoLogException(error.what() != nullptr ? error.what() : Unknown, SourceFile, __LINE__);
        } catch (...) {
            TavoLogException(Unknown, SourceFile, __LINE__);
        }
    } catch (...) {
        kit::AppendToThreadExceptionLog(Unknown);
    }
}

}  // namespace

const char* GuiNotificationName(GuiNotificationType type) {
    const auto index = static_cast<std::size_t>(type);
    return index < NotificationNames.size() ? NotificationNames[index] : "";
}

/// Order of locks: listenersMutex, queueMutex. A handler runs with neither held.
struct GuiDispatcher::Impl {
    struct Queued {
        std::uint64_t number;
        GuiNotification notification;
        bool superseded = false;
    };
    struct Listener {
        const HandlerId id;
        const std::uint64_t firstNumber;
        Handler handler;
        bool removed = false;
        // The lamp as this handler knows it; used by the dispatcher's thread only.
        std::optional<GuiNotificationType> lamp = std::nullopt;
    };
    using Listeners = std::vector<std::shared_ptr<Listener>>;

    // How many handlers there are, 0 once exiting: what a Send looks at first.
    std::atomic<std::size_t> listening{0};

    kit::Mutex queueMutex;
    std::condition_variable somethingQueued;
    std::condition_variable batchDelivered;
    std::vector<Queued> queue KIT_GUARDED_BY(queueMutex);
    std::optional<std::size_t> waitingPlayhead KIT_GUARDED_BY(queueMutex);
    std::uint64_t sent KIT_GUARDED_BY(queueMutex) = 0;
    std::uint64_t delivered KIT_GUARDED_BY(queueMutex) = 0;
    bool asleep KIT_GUARDED_BY(queueMutex) = false;
    bool drainingIsOver KIT_GUARDED_BY(queueMutex) = false;
    bool stopping KIT_GUARDED_BY(queueMutex) = false;

    kit::Mutex listenersMutex;
    std::condition_variable handlerReturned;
    // The list is never changed, only replaced.
    std::shared_ptr<const Listeners> listeners KIT_GUARDED_BY(listenersMutex) = std::make_shared<const Listeners>();
    HandlerId lastId KIT_GUARDED_BY(listenersMutex) = 0;
    HandlerId runningId KIT_GUARDED_BY(listenersMutex) = 0;
    bool exiting KIT_GUARDED_BY(listenersMutex) = false;
    // Started under listenersMutex, joined by the destructor.
    std::thread thread;

    [[nodiscard]] bool NobodyListens() const { return listening.load(std::memory_order_relaxed) == 0; }
    [[nodiscard]] bool IsOnOwnThread() const { return dispatcherOfThisThread == this; }

    void Send(GuiNotificationType type, int number = 0, unsigned int tick = 0) {
        if (!NobodyListens()) Enqueue({type, number, tick, {}});
    }
    void Send(GuiNotificationType type, const std::string& text, int number = 0, unsigned int tick = 0) {
        if (!NobodyListens()) Enqueue({type, number, tick, text});
    }
    void Enqueue(GuiNotification notification) KIT_EXCLUDES(queueMutex);
    bool TakeSleeper() KIT_REQUIRES(queueMutex);
    [[nodiscard]] bool LeaveToBatch();
    void AppendOrSupersede(GuiNotification&& notification) KIT_REQUIRES(queueMutex);

    void Run();
    bool WaitForBatch(std::vector<Queued>& batch, std::uint64_t& lastNumber);
    void Deliver(const Queued& queued);
    bool Begin(Listener& listener, const Queued& queued);
    void Call(Listener& listener, const GuiNotification& notification);
    void ReplaceListeners(Listeners changed) KIT_REQUIRES(listenersMutex);
};

void GuiDispatcher::Impl::Enqueue(GuiNotification notification) {
    bool wake = false;
    {
        const kit::MutexLock lock(queueMutex);
        AppendOrSupersede(std::move(notification));
        wake = asleep && !LeaveToBatch() && TakeSleeper();
    }
    if (wake) somethingQueued.notify_one();
}

/// Whether the thread is asleep; then the caller is the one to wake it.
bool GuiDispatcher::Impl::TakeSleeper() {
    return std::exchange(asleep, false);
}

/// Whether a batch of this thread will wake the dispatcher's thread. A batch remembers one dispatcher: the process's.
bool GuiDispatcher::Impl::LeaveToBatch() {
    if (batches.depth == 0 || (batches.dispatcher != nullptr && batches.dispatcher != this)) return false;
    batches.dispatcher = this;
    batches.wake = [](void* dispatcher) {
        Impl& impl = *static_cast<Impl*>(dispatcher);
        bool wake = false;
        {
            const kit::MutexLock lock(impl.queueMutex);
            wake = impl.TakeSleeper();
        }
        if (wake) impl.somethingQueued.notify_one();
    };
    return true;
}

void GuiDispatcher::Impl::AppendOrSupersede(GuiNotification&& notification) {
    ++sent;
    if (notification.type == GuiNotificationType::Playhead) {
        if (waitingPlayhead && *waitingPlayhead + 1 == queue.size()) {
            queue.back() = {sent, std::move(notification)};
            return;
        }
        if (waitingPlayhead) queue[*waitingPlayhead].superseded = true;
        waitingPlayhead = queue.size();
    }
    queue.push_back({sent, std::move(notification)});
}

void GuiDispatcher::Impl::Run() {
    dispatcherOfThisThread = this;
    LogWhatIsThrown([] { kit::threadNames.SetNameOfCurrentThread("GuiDispatcher"); });
    std::vector<Queued> batch;
    std::uint64_t lastNumber = 0;
    while (WaitForBatch(batch, lastNumber)) {
        for (const Queued& queued : batch) {
            if (!queued.superseded) LogWhatIsThrown([&] { Deliver(queued); });
        }
        batch.clear();
        const kit::MutexLock lock(queueMutex);
        delivered = lastNumber;
        batchDelivered.notify_all();
    }
}

/// Takes all that is queued, with the number of the last one; false when the thread is to end.
bool GuiDispatcher::Impl::WaitForBatch(std::vector<Queued>& batch, std::uint64_t& lastNumber) {
    kit::MutexLock lock(queueMutex);
    while (queue.empty() && !stopping) {
        asleep = true;
        lock.Wait(somethingQueued);
    }
    asleep = false;
    batch.swap(queue);
    waitingPlayhead.reset();
    lastNumber = sent;
    return !stopping;
}

void GuiDispatcher::Impl::Deliver(const Queued& queued) {
    std::shared_ptr<const Listeners> present;
    {
        const kit::MutexLock lock(listenersMutex);
        present = listeners;
    }
    for (const auto& listener : *present) {
        if (Begin(*listener, queued)) Call(*listener, queued.notification);
    }
}

/// Whether the listener is to hear this; if so it counts as running.
bool GuiDispatcher::Impl::Begin(Listener& listener, const Queued& queued) {
    const kit::MutexLock lock(listenersMutex);
    if (exiting || listener.removed || queued.number < listener.firstNumber) return false;
    const GuiNotificationType type = queued.notification.type;
    if (type == GuiNotificationType::VampOn || type == GuiNotificationType::VampOff) {
        if (listener.lamp == type) return false;
        listener.lamp = type;
    }
    runningId = listener.id;
    return true;
}

void GuiDispatcher::Impl::Call(Listener& listener, const GuiNotification& notification) {
    LogWhatIsThrown([&] { listener.handler(notification); });
    const kit::MutexLock lock(listenersMutex);
    runningId = 0;
    handlerReturned.notify_all();
}

void GuiDispatcher::Impl::ReplaceListeners(Listeners changed) {
    listeners = std::make_shared<const Listeners>(std::move(changed));
    listening = exiting ? 0 : listeners->size();
}

GuiDispatcher::GuiDispatcher() : impl_(std::make_unique<Impl>()) {}

GuiDispatcher::~GuiDispatcher() {
    PrepareForExit();
    {
        const kit::MutexLock lock(impl_->queueMutex);
        impl_->stopping = true;
        impl_->somethingQueued.notify_all();
    }
    if (impl_->thread.joinable()) impl_->thread.join();
}

GuiDispatcher::HandlerId GuiDispatcher::AddHandler(Handler handler) {
    const kit::MutexLock lock(impl_->listenersMutex);
    if (!impl_->thread.joinable()) impl_->thread = std::thread([impl = impl_.get()] { impl->Run(); });
    std::uint64_t firstNumber = 0;
    {
        const kit::MutexLock queueLock(impl_->queueMutex);
        firstNumber = impl_->sent + 1;
    }
    const HandlerId id = ++impl_->lastId;
    Impl::Listeners grown = *impl_->listeners;
    grown.push_back(std::make_shared<Impl::Listener>(Impl::Listener{id, firstNumber, std::move(handler)}));
    impl_->ReplaceListeners(std::move(grown));
    return id;
}

void GuiDispatcher::RemoveHandler(HandlerId id) {
    // What the handler owns is destroyed after the lock, for that may call in here again.
    Handler doomed;
    kit::MutexLock lock(impl_->listenersMutex);
    Impl::Listeners kept = *impl_->listeners;
    const auto found =
        std::find_if(kept.begin(), kept.end(), [id](const auto& listener) { return listener->id == id; });
    std::shared_ptr<Impl::Listener> listener;
    if (found != kept.end()) {
        listener = *found;
        listener->removed = true;
        kept.erase(found);
        impl_->ReplaceListeners(std::move(kept));
    }
    while (!impl_->IsOnOwnThread() && impl_->runningId == id)
        lock.Wait(impl_->handlerReturned);
    if (listener && impl_->runningId != id) doomed.swap(listener->handler);
}

void GuiDispatcher::Drain() {
    if (impl_->IsOnOwnThread()) return;
    kit::MutexLock lock(impl_->queueMutex);
    const std::uint64_t last = impl_->sent;
    // A batch of this very thread may have left it asleep.
    if (impl_->TakeSleeper()) impl_->somethingQueued.notify_one();
    while (impl_->delivered < last && !impl_->drainingIsOver)
        lock.Wait(impl_->batchDelivered);
}

void GuiDispatcher::PrepareForExit() {
    {
        kit::MutexLock lock(impl_->listenersMutex);
        impl_->exiting = true;
        impl_->listening = 0;
        while (!impl_->IsOnOwnThread() && impl_->runningId != 0)
            lock.Wait(impl_->handlerReturned);
    }
    const kit::MutexLock lock(impl_->queueMutex);
    impl_->drainingIsOver = true;
    impl_->batchDelivered.notify_all();
}

void GuiDispatcher::SendPlayhead(int tickIndex) {
    impl_->Send(GuiNotificationType::Playhead, tickIndex);
}
void GuiDispatcher::SendMarker(unsigned int tickIndex, const std::string& text) {
    impl_->Send(GuiNotificationType::Marker, text, 0, tickIndex);
}
void GuiDispatcher::SendSongTitle(const std::string& title) {
    impl_->Send(GuiNotificationType::SongTitle, title);
}
void GuiDispatcher::SendBarBeat(const std::string& text) {
    impl_->Send(GuiNotificationType::BarBeat, text);
}
void GuiDispatcher::SendMeter(const std::string& text) {
    impl_->Send(GuiNotificationType::Meter, text);
}
void GuiDispatcher::SendStatusClickResolution(int thirtySecondsPerClick) {
    impl_->Send(GuiNotificationType::StatusClickResolution, thirtySecondsPerClick);
}
void GuiDispatcher::SendTransposition(int semitones) {
    impl_->Send(GuiNotificationType::Transposition, semitones);
}
void GuiDispatcher::SendKey(const std::string& text) {
    impl_->Send(GuiNotificationType::Key, text);
}
void GuiDispatcher::SendTempo(const std::string& text) {
    impl_->Send(GuiNotificationType::Tempo, text);
}
void GuiDispatcher::SendTempoScale(const std::string& text) {
    impl_->Send(GuiNotificationType::TempoScale, text);
}
void GuiDispatcher::SendStatusTargetTempo(int clicksPerMinute) {
    impl_->Send(GuiNotificationType::StatusTargetTempo, clicksPerMinute);
}
void GuiDispatcher::SendPageNum(int page) {
    impl_->Send(GuiNotificationType::PageNum, page);
}
void GuiDispatcher::SendStatusFlowControl(const std::string& type, int count) {
    impl_->Send(GuiNotificationType::StatusFlowControl, type, count);
}
void GuiDispatcher::SendVampOn() {
    impl_->Send(GuiNotificationType::VampOn);
}
void GuiDispatcher::SendVampOff() {
    impl_->Send(GuiNotificationType::VampOff);
}
void GuiDispatcher::SendCaesura(unsigned int tickIndex) {
    impl_->Send(GuiNotificationType::Caesura, 0, tickIndex);
}
void GuiDispatcher::SendPlaybackStarted() {
    impl_->Send(GuiNotificationType::PlaybackStarted);
}
void GuiDispatcher::SendPlaybackStopped() {
    impl_->Send(GuiNotificationType::PlaybackStopped);
}
void GuiDispatcher::SendNoNextSong() {
    impl_->Send(GuiNotificationType::NoNextSong);
}

GuiBatch::GuiBatch() {
    ++batches.depth;
}

GuiBatch::~GuiBatch() {
    if (--batches.depth > 0) return;
    if (void* const dispatcher = std::exchange(batches.dispatcher, nullptr)) batches.wake(dispatcher);
}

GuiDispatcher& guiDispatcher = *new GuiDispatcher;

void GuiDispatcherPrepareForExit() {
    guiDispatcher.PrepareForExit();
}

}  // namespace notify
