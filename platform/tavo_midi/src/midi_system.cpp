#include "midi_system.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <stdexcept>
#include <utility>

#include "kit/thread_names.h"
#include "kit/words.h"
#include "tavo_core/tavo_log_exception.h"

namespace tavo_midi {

namespace {

/// How often a system that announces nothing is looked at, and how often one that is not there is looked for.
constexpr std::chrono::milliseconds LookInterval{250};

bool Contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

MidiSystem& MidiSystem::Get() {
    // Threads of MIDI systems may call until the very end of the process.
    static MidiSystem& system = *new MidiSystem;
    return system;
}

void MidiSystem::SetOpener(std::shared_ptr<MidiPortsOpener> opener) {
    {
        const std::lock_guard lock(mutex_);
        ClosePorts_();
        opener_ = std::move(opener);
        LookUnlessPortsThrow_();
    }
    Wake();
}

void MidiSystem::SetChoice(MidiSystemChoice choice) {
    {
        const std::lock_guard lock(mutex_);
        choice_ = choice;
        ClosePorts_();
        LookUnlessPortsThrow_();
    }
    Wake();
}

void MidiSystem::SetHostPorts(std::shared_ptr<MidiPorts> ports) {
    {
        const std::lock_guard lock(mutex_);
        hostPorts_ = std::move(ports);
        ClosePorts_();
        LookUnlessPortsThrow_();
    }
    Wake();
}

void MidiSystem::SetListener(std::function<void(const MidiPortReport&)> listener) {
    using Listener = std::function<void(const MidiPortReport&)>;
    listener_.Set(listener ? std::make_shared<Listener>(std::move(listener)) : nullptr);
}

/// What `ask` says of the ports in use, null where there are none.
template <class Ask>
auto MidiSystem::AskPorts_(Ask ask) {
    std::shared_ptr<MidiPorts> ports;
    bool isWatched = false;
    {
        const std::lock_guard lock(shownMutex_);
        ports = shownPorts_;
        isWatched = isWatched_;
    }
    if (ports || isWatched) return ask(ports && ports->GetIsAlive() ? ports.get() : nullptr);
    const std::lock_guard lock(mutex_);
    auto answer = ask(FindPorts_());
    if (users_ == 0) ReleasePorts_();
    return answer;
}

std::string MidiSystem::GetSystemName() {
    return AskPorts_([](MidiPorts* ports) { return ports == nullptr ? std::string() : ports->GetSystemName(); });
}

std::vector<std::string> MidiSystem::GetNames(bool sources) {
    return AskPorts_([sources](MidiPorts* ports) {
        if (ports == nullptr) return std::vector<std::string>();
        return sources ? ports->GetSourceNames() : ports->GetDestinationNames();
    });
}

void MidiSystem::SendOnce(const std::string& destinationName, std::span<const unsigned char> message) {
    std::shared_ptr<MidiPorts> ports;
    {
        const std::lock_guard lock(mutex_);
        if (FindPorts_() != nullptr) ports = ports_;
    }
    // Off the lock, for nobody else is to wait for the device; the ports stay as long as they are used here.
    if (!ports) throw std::runtime_error("there is no MIDI system: neither JACK nor another one is running");
    if (!Contains(ports->GetDestinationNames(), destinationName))
        throw std::runtime_error(fmt::format("there is no MIDI output {}", kit::Quote(destinationName)));
    const auto output = ports->OpenOutput(destinationName);
    if (!output->Send(message))
        throw std::runtime_error(fmt::format("the MIDI output \"{}\" does not take the message", destinationName));
    // A closed port forgets what it has not sent yet.
    if (!output->WaitUntilSent())
        throw std::runtime_error(
            fmt::format("the message to the MIDI output \"{}\" did not leave in time: send it again", destinationName));
}

void MidiSystem::AddUser() {
    const std::lock_guard lock(mutex_);
    ++users_;
}

void MidiSystem::RemoveUser() {
    // Ends the watching thread after the lock, which that thread takes.
    std::jthread watcher;
    const std::lock_guard lock(mutex_);
    if (--users_ > 0) return;
    ReleasePorts_();
    watcher = std::move(watcher_);
}

void MidiSystem::Want(MidiConnection& connection, const std::string& portName) {
    {
        const std::lock_guard lock(mutex_);
        wanted_.push_back({&connection, portName});
        LookUnlessPortsThrow_();
        Show_();
        if (!watcher_.joinable()) watcher_ = std::jthread([this](const std::stop_token& stop) { Watch_(stop); });
    }
    Wake();
}

void MidiSystem::Unwant(MidiConnection& connection) {
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(wanted_.begin(), wanted_.end(),
                                    [&](const Wanted& wanted) { return wanted.connection == &connection; });
    if (found == wanted_.end()) return;
    const bool isOpen = found->isOpen;
    wanted_.erase(found);
    Show_();
    if (isOpen) connection.Close();
}

bool MidiSystem::IsOpen(const MidiConnection& connection) {
    const std::lock_guard lock(shownMutex_);
    return shownPorts_ && shownPorts_->GetIsAlive() &&
           std::find(shownOpen_.begin(), shownOpen_.end(), &connection) != shownOpen_.end();
}

void MidiSystem::Wake() {
    {
        const std::lock_guard lock(wakeMutex_);
        mustLook_ = true;
    }
    wake_.notify_all();
}

/// The system in use; looks for one if there is none. Called under the lock.
MidiPorts* MidiSystem::FindPorts_() {
    if (ports_) return ports_->GetIsAlive() ? ports_.get() : nullptr;
    if (hostPorts_)
        ports_ = hostPorts_;
    else if (opener_ && choice_ != MidiSystemChoice::None)
        ports_ = opener_->Open(choice_, [this] { Wake(); });
    Show_();
    return ports_.get();
}

/// Makes known what is in force. Called under the lock, before a system is waited for.
void MidiSystem::Show_() {
    std::vector<const MidiConnection*> open;
    for (const Wanted& wanted : wanted_) {
        if (wanted.isOpen) open.push_back(wanted.connection);
    }
    // What was shown before is let go off the lock.
    std::shared_ptr<MidiPorts> ports = ports_;
    const std::lock_guard lock(shownMutex_);
    shownPorts_.swap(ports);
    shownOpen_.swap(open);
    isWatched_ = !wanted_.empty();
}

void MidiSystem::ReleasePorts_() {
    const std::shared_ptr<MidiPorts> released = std::exchange(ports_, nullptr);
    Show_();
}

void MidiSystem::ClosePorts_() {
    const std::vector<std::string> none;
    for (Wanted& wanted : wanted_)
        LookAt_(wanted, none);
    ReleasePorts_();
}

/// A better system that has come up, such as a JACK server, takes over from another one that serves nothing.
void MidiSystem::PreferBetter_() {
    const bool isServing = std::any_of(wanted_.begin(), wanted_.end(), [](const Wanted& want) { return want.isOpen; });
    if (choice_ != MidiSystemChoice::Auto || hostPorts_ || isServing || !ports_ || !opener_) return;
    if (opener_->HasBetterThan(*ports_)) ReleasePorts_();
}

void MidiSystem::Look_() {
    if (ports_ && !ports_->GetIsAlive()) ClosePorts_();
    if (wanted_.empty()) return;
    PreferBetter_();
    MidiPorts* const ports = FindPorts_();
    if (ports == nullptr) return;
    const std::vector<std::string> sources = ports->GetSourceNames();
    const std::vector<std::string> destinations = ports->GetDestinationNames();
    for (Wanted& wanted : wanted_)
        LookAt_(wanted, wanted.connection->IsSource() ? sources : destinations);
}

/// A host's ports may throw anything: the next look tries again.
void MidiSystem::LookUnlessPortsThrow_() noexcept {
    const auto log = [this](const char* problem) {
        if (!std::exchange(isLookProblemLogged_, true)) TavoLogException(problem, __FILE__, __LINE__);
    };
    try {
        Look_();
        isLookProblemLogged_ = false;
    } catch (const std::exception& problem) {
        log(problem.what());
    } catch (...) {
        log("Unknown exception.");
    }
}

void MidiSystem::LookAt_(Wanted& wanted, const std::vector<std::string>& names) {
    const bool isThere = Contains(names, wanted.portName);
    if (wanted.isOpen && (!isThere || !wanted.connection->IsConnected())) CloseLost_(wanted);
    if (isThere == wanted.isOpen) return;
    try {
        wanted.connection->Open(*ports_, wanted.portName);
    } catch (...) {
        // It went between the look and the opening, or is not ready yet: the next look tries again.
        return;
    }
    wanted.isOpen = true;
    Show_();
    Report_(wanted, std::exchange(wanted.wasOpen, true) ? "is back" : "is connected");
}

void MidiSystem::CloseLost_(Wanted& wanted) {
    wanted.isOpen = false;
    Show_();
    wanted.connection->Close();
    Report_(wanted, "was lost; it will reconnect when it returns");
}

void MidiSystem::Report_(const Wanted& wanted, const std::string& what) {
    const bool isSource = wanted.connection->IsSource();
    const std::string remark = wanted.isOpen ? wanted.connection->GetRemark() : std::string();
    reports_.push_back({wanted.portName, isSource, wanted.isOpen,
                        fmt::format("The MIDI {} \"{}\" {}.{}{}", isSource ? "input" : "output", wanted.portName, what,
                                    remark.empty() ? "" : " ", remark)});
}

void MidiSystem::Tell_() {
    std::vector<MidiPortReport> reports;
    {
        const std::lock_guard lock(mutex_);
        reports.swap(reports_);
    }
    for (const MidiPortReport& report : reports) {
        try {
            listener_.With([&](const auto* listener) {
                if (listener != nullptr) (*listener)(report);
            });
        } catch (const std::exception& problem) {
            TavoLogException(problem.what(), __FILE__, __LINE__);
        } catch (...) {
            TavoLogException("Unknown exception.", __FILE__, __LINE__);
        }
    }
}

void MidiSystem::Watch_(const std::stop_token& stop) {
    kit::threadNames.SetNameOfCurrentThread("MIDI ports");
    while (!stop.stop_requested()) {
        Tell_();
        {
            std::unique_lock lock(wakeMutex_);
            wake_.wait_for(lock, stop, LookInterval, [this] { return mustLook_; });
            mustLook_ = false;
        }
        const std::lock_guard lock(mutex_);
        LookUnlessPortsThrow_();
    }
}

MidiSystemChoice ConvertStringToMidiSystemChoice(const std::string& text) {
    if (text == "auto") return MidiSystemChoice::Auto;
    if (text == "jack") return MidiSystemChoice::Jack;
    if (text == "rtmidi") return MidiSystemChoice::RtMidi;
    if (text == "none") return MidiSystemChoice::None;
    throw std::out_of_range(
        fmt::format("{} is not a MIDI system: choose auto, jack, rtmidi or none", kit::Quote(text)));
}

void SetMidiPortsOpener(std::shared_ptr<MidiPortsOpener> opener) {
    MidiSystem::Get().SetOpener(std::move(opener));
}

void SetMidiSystemChoice(MidiSystemChoice choice) {
    MidiSystem::Get().SetChoice(choice);
}

void SetMidiPorts(std::shared_ptr<MidiPorts> ports) {
    MidiSystem::Get().SetHostPorts(std::move(ports));
}

void SendMidiMessage(const std::string& destinationName, std::span<const unsigned char> message) {
    MidiSystem& system = MidiSystem::Get();
    system.AddUser();
    try {
        system.SendOnce(destinationName, message);
    } catch (...) {
        system.RemoveUser();
        throw;
    }
    system.RemoveUser();
}

std::string GetMidiSystemName() {
    return MidiSystem::Get().GetSystemName();
}

void SetMidiPortListener(std::function<void(const MidiPortReport&)> listener) {
    MidiSystem::Get().SetListener(std::move(listener));
}

}  // namespace tavo_midi
