#pragma once

#include <exception>
#include <string>

#include "launchpad/LaunchpadLog.h"
#include "platform/kr/KRError.h"

namespace KR {

/// The errors of an operation that does something to several items, and tries each of them
/// whatever became of the others. Raised once, at the end. Not thread-safe.
class GatheredErrors {
public:
    /// `method` is that of the KRError.
    explicit GatheredErrors(const char* method) : method_(method) {}

    /// Runs a step, and keeps its error. What is no std::exception leaves this.
    template <class Step>
    void run(const Step& step)
    {
        try {
            step();
        } catch (const std::exception& e) {
            add(e.what());
        }
    }

    void add(const std::string& error) { text_ += error + "\n"; }

    /// KRError with all errors, one a line, if there are any.
    void raise() const
    {
        if (!text_.empty())
            throw KRError(kLaunchpadCategory, method_, text_);
    }

private:
    const char* method_;
    std::string text_;
};

}  // namespace KR
