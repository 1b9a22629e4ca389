#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <limits>

#include "tests/properties/flow_rig.h"

namespace {

using namespace properties;

std::uint64_t StepsWanted() {
    const char* text = std::getenv("TAVO_PROPERTY_STEPS");
    return text != nullptr ? std::strtoull(text, nullptr, 10) : 1200000;
}

// Random shows, random operators; the rig checks after every step. RapidCheck prints the seed; RC_PARAMS="seed=..."
// plays the same again, TAVO_PROPERTY_STEPS sets how many steps are made at least.
TEST(FlowProperty, RandomShowsAndOperators_AgreeWithTheRulesAndKeepTheInvariants) {
    const std::uint64_t wanted = StepsWanted();
    std::uint64_t steps = 0;
    std::uint64_t shows = 0;
    bool failed = false;
    const auto property = [&] {
        if (!failed && steps >= wanted) return;
        const ShowSpec show = *RandomShow();
        const auto actions = *rc::gen::resize(160, rc::gen::container<std::vector<Action>>(RandomAction()));
        FlowRig rig(show);
        try {
            for (const Action& action : actions)
                rig.Do(action);
            rig.PlayToTheEnd();
        } catch (...) {
            failed = true;
            throw;
        }
        steps += rig.GetStepCount();
        ++shows;
    };
    rc::detail::TestParams params = rc::detail::configuration().testParams;
    params.maxSuccess = static_cast<int>(std::min<std::uint64_t>(wanted / 20 + 1, std::numeric_limits<int>::max()));
    const auto result = rc::detail::checkTestable(property, rc::detail::TestMetadata(), params);
    rc::detail::printResultMessage(result, std::cerr);
    std::cerr << "\n" << steps << " steps in " << shows << " shows, seed " << params.seed << "\n";
    EXPECT_TRUE(result.is<rc::detail::SuccessResult>());
    EXPECT_GE(steps, wanted);
}

}  // namespace
