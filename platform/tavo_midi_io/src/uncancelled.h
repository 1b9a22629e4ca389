#pragma once

#include <pthread.h>

namespace tavo_midi_io {

/// Does the work of a JACK callback. JACK ends its threads with pthread_cancel wherever they are; in the middle of C++
/// that ends the program, or leaves a lock taken. No destructor runs after the last line, where the end may come.
template <class Work>
void DoUncancelled(Work work) {
    int before = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    work();
    pthread_setcancelstate(before, nullptr);
}

}  // namespace tavo_midi_io
