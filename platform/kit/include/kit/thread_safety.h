#pragma once

/// Two words are used in the contracts of all headers of this project. This header only defines them.
///
/// thread-safe: may be called on the same object by any number of threads at the same time without a lock of the
/// caller's. It may block for as long as another thread is inside the object. Without the word, the caller sees to it
/// that no two threads are in the object at once, unless all of them call const operations.
///
/// real-time safe: may be called by the audio device's callback. It takes no lock that another thread may hold,
/// allocates and frees nothing, makes no system call, throws nothing, and its time is bounded. Real-time safe does not
/// include thread-safe; a contract that promises both says both.
