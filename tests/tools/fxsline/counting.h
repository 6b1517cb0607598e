#pragma once

#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

namespace fxsline {

/// first, first + 1, ...: samples that tell where they came from.
inline std::vector<std::int16_t> counting(std::size_t count, std::int16_t first = 1) {
    std::vector<std::int16_t> values(count);
    std::iota(values.begin(), values.end(), first);
    return values;
}

}  // namespace fxsline
