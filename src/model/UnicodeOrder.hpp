#pragma once

#include <string>
#include <vector>

namespace marquetry::model {

/// Sorts file paths by their file names, lowercased, comparing Unicode code
/// points after canonical normalization. Stable: names equal after
/// lowercasing keep their given order.
void sortByFileNameIgnoringCase(std::vector<std::string>& paths);

/// Sorts paths by their whole text, comparing Unicode code points after
/// canonical normalization, case-sensitively (so "B" comes before "a").
void sortByPath(std::vector<std::string>& paths);

} // namespace marquetry::model
