#pragma once

#include <nlohmann/json.hpp>

namespace stage {

/// A JSON list of what `make` gives for each entry, in their order.
template <class Sequence, class Make>
[[nodiscard]] nlohmann::ordered_json MakeJsonList(const Sequence& sequence, Make make) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const auto& entry : sequence)
        list.push_back(make(entry));
    return list;
}

}  // namespace stage
