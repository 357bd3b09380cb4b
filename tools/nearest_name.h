// "did you mean": the name that a misspelt one is closest to.
#ifndef TOOLS_NEAREST_NAME_H
#define TOOLS_NEAREST_NAME_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// "; did you mean "X"?" for the candidate with the fewest changed letters, letter case ignored;
// "" when none is near: more than a third of the letters are others. Swapped neighbours are one
// change. The first of several equally near. Nothing with more than `most` changes is near.
std::string nearest_name_hint(std::string_view name,
                              const std::vector<std::string_view>& candidates,
                              size_t most = SIZE_MAX);

#endif
