#pragma once

#include <exception>
#include <gmock/gmock.h>
#include <string>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

/// The message of the exception of that type that a call ends with; "none" when it ends well.
template <class Error = std::exception, class Call>
std::string errorOf(const Call& call)
{
    try {
        call();
    } catch (const Error& error) {
        return error.what();
    }
    return "none";
}
