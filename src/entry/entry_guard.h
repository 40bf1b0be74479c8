// The C boundary: every exported entry runs its body here, so no exception leaves the library.
#pragma once

#include <exception>
#include <iostream>
#include <new>
#include <type_traits>

namespace algofactory
{

// Runs body(); on an exception prints one "[ERROR] " line naming the entry and returns a failed
// value (false, or nothing for entries that return nothing).
template <typename Body> auto guardEntry(const char* entryName, Body&& body) -> decltype(body())
{
    using Result = decltype(body());
    const char* reason = "unexpected failure";
    try
    {
        return body();
    }
    catch (const std::bad_alloc&)
    {
        reason = "out of memory";
    }
    catch (const std::exception& error)
    {
        try
        {
            std::cout << "[ERROR] " << entryName << ": " << error.what() << std::endl;
        }
        catch (...)
        {
        }
        if constexpr (std::is_void_v<Result>)
            return;
        else
            return Result{};
    }
    catch (...)
    {
    }
    try
    {
        std::cout << "[ERROR] " << entryName << ": " << reason << std::endl;
    }
    catch (...)
    {
    }
    if constexpr (!std::is_void_v<Result>)
        return Result{};
}

} // namespace algofactory
