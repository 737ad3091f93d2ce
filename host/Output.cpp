#include "host/Output.h"

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <unistd.h>

namespace KR {

void Output::write(const std::string& text)
{
    if (error_ != 0)
        return;
    check(std::fwrite(text.data(), 1, text.size(), stream_) == text.size());
    if (prompt_)
        flush();
}

void Output::flush()
{
    if (error_ == 0)
        check(std::fflush(stream_) == 0);
}

void Output::check(bool ok)
{
    if (ok)
        return;
    error_ = errno != 0 ? errno : EIO;
    stop_.request();
}

bool Output::wantsColours() const
{
    const char* noColour = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return isatty(fileno(stream_)) == 1 && !(noColour && *noColour) &&
           !(terminal && std::string_view(terminal) == "dumb");
}

}  // namespace KR
