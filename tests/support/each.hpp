// Several results in one expectation.
#pragma once

#include <string>
#include <type_traits>

/// The numbers one after another, "0 -1 0": a wrong one shows by its place.
std::string each(auto first, auto... more) {
    return (std::to_string(first) + ... + (" " + std::to_string(more)));
}

/// The function's result for zeros and nulls alone; a pointer counts as 1.
template <class Result, class... Arguments>
auto of_nothing(Result (*function)(Arguments...)) {
    const Result result = function(Arguments{}...);
    if constexpr (std::is_pointer_v<Result>)
        return result != nullptr;
    else
        return result;
}
