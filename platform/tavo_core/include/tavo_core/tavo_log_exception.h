#pragma once

#include <string>

/// Records an exception that ended a worker thread: one line in the thread exception log of kit. Thread-safe; never
/// throws; blocks on the disk.
void TavoLogException(const std::string& message, const std::string& sourceFile, int line) noexcept;
