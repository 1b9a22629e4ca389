#pragma once

/// What the contracts of all headers of this project mean by their words, and by their silence. This header only
/// defines that.
///
/// thread-safe: may be called on the same object by any number of threads at the same time without a lock of the
/// caller's. It may block for as long as another thread is inside the object. Without the word, the caller sees to it
/// that no two threads are in the object at once, unless all of them call const operations.
///
/// real-time safe: may be called by the audio device's callback. It takes no lock that another thread may hold,
/// allocates and frees nothing, makes no system call, throws nothing, and its time is bounded. Real-time safe does not
/// include thread-safe; a contract that promises both says both.
///
/// blocks: may wait for another thread, a file, a device or the clock. "Blocks on the disk" waits for files only.
///
/// Where neither a function nor its class nor the head of its header says more: it may be called on any thread, with
/// the caller's care for objects as above; a free function that works on its arguments alone is thread-safe. It does
/// not block, except for memory. It throws nothing but std::bad_alloc. It is not real-time safe. A reference or pointer
/// that is handed in is not kept, and one that is returned belongs to the object it came from.
