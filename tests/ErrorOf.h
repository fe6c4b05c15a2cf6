#pragma once

#include <exception>
#include <string>

// What a refused call says of itself.
template <typename Function>
std::string errorOf(Function&& function) {
    try {
        function();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no error";
}
