#pragma once

namespace kit {

/// Blocks the calling thread through the clock in force. Thread-safe.
void Sleep(unsigned int milliseconds);

}  // namespace kit
