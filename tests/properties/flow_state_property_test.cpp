#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <memory>

#include "tests/properties/flow_rig.h"

namespace {

using namespace properties;

std::uint64_t SnapshotStepsWanted() {
    const char* text = std::getenv("TAVO_PROPERTY_STEPS");
    return text != nullptr ? std::strtoull(text, nullptr, 10) : 1000000;
}

void RequireSame(const FlowRig::Transcript& original, const FlowRig::Transcript& restored) {
    Require(original.states.size() == restored.states.size(), "the restored one makes another number of steps");
    for (std::size_t i = 0; i < original.states.size(); ++i) {
        if (original.states[i] == restored.states[i]) continue;
        Require(false, "step " + std::to_string(i) + " leads to\n" + ToText(restored.states[i]) + "\nand led to\n" +
                           ToText(original.states[i]));
    }
    Require(original.posts == restored.posts, "the display is told something else:\n" +
                                                  testing::PrintToString(restored.posts) + "\nand was told\n" +
                                                  testing::PrintToString(original.posts));
}

/// Performs the actions in stretches. Each is performed twice, the second time by fresh objects that were put where the
/// first began; the next stretch begins with those. Answers the number of steps compared.
std::uint64_t PerformTwice(const ShowSpec& show, const std::vector<Action>& actions, std::size_t stretch) {
    std::uint64_t steps = 0;
    auto rig = std::make_unique<FlowRig>(show);
    for (std::size_t from = 0; from < actions.size(); from += stretch) {
        const std::span<const Action> some(actions.data() + from, std::min(stretch, actions.size() - from));
        const FlowRig::Moment moment = rig->TakeMoment();
        const FlowRig::Transcript original = rig->Record(some);
        rig.reset();
        rig = std::make_unique<FlowRig>(show, moment);
        RequireSame(original, rig->Record(some));
        steps += rig->GetStepCount();
    }
    return steps;
}

// As in flow_property_test.cpp; TAVO_PROPERTY_STEPS counts the steps that were compared.
TEST(FlowStateProperty, PutBackIntoFreshObjectsAtRandomMoments_GoesOnExactlyAsWhereItWasTaken) {
    const std::uint64_t wanted = SnapshotStepsWanted();
    std::uint64_t steps = 0;
    std::uint64_t moments = 0;
    bool failed = false;
    const auto property = [&] {
        if (!failed && steps >= wanted) return;
        const ShowSpec show = *RandomShow();
        const auto actions = *rc::gen::resize(160, rc::gen::container<std::vector<Action>>(RandomAction()));
        const auto stretch = *rc::gen::resize(rc::kNominalSize, rc::gen::inRange<std::size_t>(10, 160));
        try {
            steps += PerformTwice(show, actions, stretch);
            moments += (actions.size() + stretch - 1) / stretch;
        } catch (...) {
            failed = true;
            throw;
        }
    };
    rc::detail::TestParams params = rc::detail::configuration().testParams;
    params.maxSuccess = static_cast<int>(std::min<std::uint64_t>(wanted / 20 + 1, std::numeric_limits<int>::max()));
    const auto result = rc::detail::checkTestable(property, rc::detail::TestMetadata(), params);
    rc::detail::printResultMessage(result, std::cerr);
    std::cerr << "\n" << steps << " steps after " << moments << " moments, seed " << params.seed << "\n";
    EXPECT_TRUE(result.is<rc::detail::SuccessResult>());
    EXPECT_GE(steps, wanted);
}

}  // namespace
