#pragma once

#include <optional>
#include <string>
#include <utility>

namespace fxsline {

/// A value, or the sentence that tells the user why there is none.
template <class T>
struct outcome {
    std::optional<T> value;
    std::string error;  ///< empty when there is a value

    static outcome failed(std::string why) { return {std::nullopt, std::move(why)}; }
};

}  // namespace fxsline
