#pragma once

#include <exception>
#include <string>

namespace marquetry::model {

/// The sentence a user sees for a failure. Allocation failures, whose own
/// texts name library internals ("std::bad_alloc", "vector::reserve"),
/// become one plain sentence; every other failure keeps its description.
std::string describe(const std::exception& error);

/// A byte count as people read it: "512 bytes", "3.4 MB", "1.2 GB".
std::string readableSize(double bytes);

} // namespace marquetry::model
