#pragma once

#include <exception>
#include <utility>

#include <cxxabi.h>

namespace tp {

/// An exception has left a function of the application. The line is critical; nothing else happens.
void reportException(const char* function, const char* text) noexcept;

/// Calls a function of the application. An exception out of it ends here with a line in the log, so that the
/// thread goes on. The end of the thread itself, which the application may ask for in there, passes.
/// @param function  the name by which the log calls it
template<typename Call>
void callOut(const char* function, Call&& call) {
    try {
        std::forward<Call>(call)();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (const std::exception& exception) {
        reportException(function, exception.what());
    } catch (...) {
        reportException(function, "one that is no std::exception");
    }
}

} // namespace tp
