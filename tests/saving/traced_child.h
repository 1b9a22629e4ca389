#pragma once

#include <functional>
#include <string>

/// A process that is watched at each of its system calls, so that it can be stopped or lied to at any of them.
namespace test_support {

struct Fault {
    enum class Kind {
        None,
        Kill,            ///< the process dies before the call
        Error,           ///< this call alone fails with `error` and does nothing
        ErrorNoCutBack,  ///< this call fails with `error`, and from there on every cutting off of a file
        ErrorsOn,        ///< this call and all later ones that write fail with `error`
        ShortWrite,      ///< a write takes only half of its bytes
    };
    Kind kind = Kind::None;
    /// Which call, counted from 1: all calls for Kill, otherwise those that touch files.
    unsigned int call = 0;
    int error = 0;
    /// Calls are counted once the process has said so much.
    std::size_t afterWords = 0;
};

struct ChildResult {
    /// False where the machine does not let processes be traced.
    bool couldTrace = true;
    /// Whether the fault met a call: after the last one it no longer does.
    bool wasFaulted = false;
    /// The process came to its end by itself.
    bool finished = false;
    /// What it said, one character after the other, until it ended.
    std::string said;
};

/// Runs `body` in a process of its own; what it says through `say` arrives even if it is killed right after.
[[nodiscard]] ChildResult RunTraced(const Fault& fault, const std::function<void(std::function<void(char)> say)>& body);

}  // namespace test_support
