#include "alsa_subscriptions.h"

#include <alsa/asoundlib.h>
#include <unistd.h>

#include <memory>
#include <mutex>

namespace tavo_midi_io {

namespace {

struct CloseSequencer {
    void operator()(snd_seq_t* sequencer) const { snd_seq_close(sequencer); }
};

/// A client that only asks.
class Asker {
public:
    static Asker& Get() {
        static Asker& asker = *new Asker;
        return asker;
    }

    bool IsSubscribed(const snd_seq_addr_t& address, snd_seq_query_subs_type_t type) {
        const std::lock_guard lock(mutex_);
        if (!Open_()) return true;
        snd_seq_query_subscribe_t* query = nullptr;
        snd_seq_query_subscribe_alloca(&query);
        snd_seq_query_subscribe_set_root(query, &address);
        snd_seq_query_subscribe_set_type(query, type);
        for (int index = 0;; ++index) {
            snd_seq_query_subscribe_set_index(query, index);
            if (snd_seq_query_port_subscribers(sequencer_.get(), query) < 0) return false;
            if (IsOurs_(snd_seq_query_subscribe_get_addr(query)->client)) return true;
        }
    }

private:
    bool Open_() {
        if (sequencer_) return true;
        snd_seq_t* opened = nullptr;
        if (snd_seq_open(&opened, "default", SND_SEQ_OPEN_OUTPUT, SND_SEQ_NONBLOCK) < 0) return false;
        sequencer_.reset(opened);
        snd_seq_set_client_name(opened, "tavo-watch");
        return true;
    }
    bool IsOurs_(int client) {
        snd_seq_client_info_t* info = nullptr;
        snd_seq_client_info_alloca(&info);
        return snd_seq_get_any_client_info(sequencer_.get(), client, info) == 0 &&
               snd_seq_client_info_get_pid(info) == static_cast<int>(::getpid());
    }

    std::mutex mutex_;
    std::unique_ptr<snd_seq_t, CloseSequencer> sequencer_;  ///< guarded by mutex_
};

}  // namespace

bool IsSubscribedTo(const std::string& address, bool isSource) {
    const std::size_t colon = address.find(':');
    if (colon == std::string::npos) return true;
    snd_seq_addr_t asked{};
    asked.client = static_cast<unsigned char>(std::stoul(address.substr(0, colon)));
    asked.port = static_cast<unsigned char>(std::stoul(address.substr(colon + 1)));
    // Who reads from a port is among its readers, who writes to it among its writers.
    return Asker::Get().IsSubscribed(asked, isSource ? SND_SEQ_QUERY_SUBS_READ : SND_SEQ_QUERY_SUBS_WRITE);
}

}  // namespace tavo_midi_io
