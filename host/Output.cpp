#include "host/Output.h"

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string_view>
#include <sys/ioctl.h>
#include <system_error>
#include <unistd.h>

#include "timeline/Text.h"

namespace KR {

namespace {

/// Written at the end of a line, before the stream's buffer is full: what goes to standard error
/// meanwhile, which may be the same file, then stands between lines and not within one.
constexpr std::size_t kFlushedBytes = 2048;

}  // namespace

void Output::write(const std::string& text)
{
    if (error_ != 0)
        return;
    check(std::fwrite(text.data(), 1, text.size(), stream_) == text.size());
    buffered_ += text.size();
    if (prompt_ || buffered_ >= kFlushedBytes)
        flush();
}

void Output::flush()
{
    buffered_ = 0;
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

std::size_t outputWidth()
{
    constexpr std::size_t kPipedWidth = 100;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): as above
    const char* const columns = std::getenv("COLUMNS");
    const std::string_view wished = columns ? columns : "";
    std::size_t width = 0;
    const auto [end, error] = std::from_chars(wished.begin(), wished.end(), width);
    if (error == std::errc() && end == wished.end() && width > 0)
        return width;
    winsize terminal{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &terminal) == 0 && terminal.ws_col > 0)
        return terminal.ws_col;
    return kPipedWidth;
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
