#include "platform/vo/LogException.h"

#include <exception>

#include "platform/vo/Log.h"

namespace vo {

void logCurrentException(const char* category, const std::string& label) noexcept
{
    try {
        try {
            throw;
        } catch (const std::exception& error) {
            Logger(category).error(label, error.what());
        } catch (...) {
            Logger(category).error(label, "unknown exception");
        }
    } catch (...) {
        // A logger that fails has nowhere to say so, and its caller has to go on.
    }
}

}  // namespace vo
