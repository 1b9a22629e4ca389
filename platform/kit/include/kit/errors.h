#pragma once

#include <stdexcept>

namespace kit {

/// Thrown by an operation that a base class leaves to its derived classes.
class NotImplementedError : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

}  // namespace kit
