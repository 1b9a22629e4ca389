#pragma once

#include <type_traits>

#include "tavo_core/log_change.h"
#include "tavo_core/song_log.h"

namespace CL {

/// The sequence of `songLog`, const or not, that holds edits of this class.
template <class Edit, class Log>
auto& SequenceOf(Log& songLog) {
    using Sequence = std::conditional_t<std::is_const_v<Log>, const ChangeLogSequence<Edit>, ChangeLogSequence<Edit>>;
    Sequence* found = nullptr;
    songLog.ForEachSequence([&found](auto& sequence) {
        using Element = typename std::remove_cvref_t<decltype(sequence)>::value_type;
        if constexpr (std::is_same_v<Element, Edit>) found = &sequence;
    });
    return *found;
}

}  // namespace CL
