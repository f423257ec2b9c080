#pragma once

#include <stdexcept>

namespace quillkit {

/// The command was used wrongly; `main` prints the reason on one line and exits with 2.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The command could not do its work; `main` prints the reason on one line and exits with 1.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace quillkit
