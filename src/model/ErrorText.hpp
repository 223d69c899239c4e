#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace marquetry::model {

/// The sentence a user sees for a failure. Allocation failures, whose own
/// texts name library internals ("std::bad_alloc", "vector::reserve"),
/// become one plain sentence; every other failure keeps its description.
std::string describe(const std::exception& error);

/// `text` with A to Z made a to z; every other byte as it is.
std::string asciiLowercase(std::string_view text);

/// `text` in single quotes, as messages quote what the user typed: 'a.wav'.
std::string quoted(const std::string& text);

/// A byte count as people read it: "512 bytes", "3.4 MB", "1.2 GB".
std::string readableSize(double bytes);

} // namespace marquetry::model
