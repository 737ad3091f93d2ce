#include "host/Output.h"

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string_view>
#include <system_error>
#include <unistd.h>

#include "host/Text.h"

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
    // NOLINTBEGIN(concurrency-mt-unsafe): nobody writes these
    const char* noColour = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    // NOLINTEND(concurrency-mt-unsafe)
    return isatty(fileno(stream_)) == 1 && !(noColour && *noColour) &&
           !(terminal && std::string_view(terminal) == "dumb");
}

void printOutput(const std::string& text)
{
    StopRequest stop;
    Output output(stdout, true, stop);
    output.write(text);
    if (output.error() != 0 && output.error() != EPIPE)
        throw std::system_error(output.error(), std::generic_category(), "cannot write the output");
}

void printError(const std::string& text)
{
    std::istringstream lines(text);
    std::string line;
    for (bool first = true; std::getline(lines, line); first = false)
        std::cerr << (first ? "nimbra: " : "  ") << printable(line) << "\n";
}

}  // namespace KR
