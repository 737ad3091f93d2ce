#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

#include "host/StopRequest.h"

namespace KR {

/// Standard output, or another open stream, that may go away: a reader like `head` takes what it
/// wants and leaves. After a failed write the rest is dropped and the program asked to stop.
/// Expects SIGPIPE to be ignored. Used by one thread at a time.
class Output {
public:
    /// With `prompt`, everything written can be seen at once.
    Output(std::FILE* stream, bool prompt, StopRequest& stop)
        : stream_(stream), prompt_(prompt), stop_(stop)
    {
    }

    void write(const std::string& text);
    /// Writes what is still buffered.
    void flush();

    /// The errno of the write that failed; 0 when none has.
    int error() const { return error_; }
    /// Whether a person looks at it, and wants colours (see no-color.org).
    bool wantsColours() const;

private:
    void check(bool ok);

    std::FILE* const stream_;
    const bool prompt_;
    StopRequest& stop_;
    std::size_t buffered_ = 0;
    int error_ = 0;
};

/// Characters that a line of standard output holds: what COLUMNS says, or else its terminal; 100
/// where it is none.
std::size_t outputWidth();

/// Writes what a command has to say to standard output, at once. std::system_error when it cannot;
/// a reader who has gone is no error.
void printOutput(const std::string& text);

/// Writes an error to standard error, fit for a terminal, its further lines indented.
void printError(const std::string& text);

}  // namespace KR
