#pragma once

#include "platform/kit/src/sanitizers.h"

namespace test_support {

using kit::IsAddressSanitized;
using kit::IsSanitized;

}  // namespace test_support
