#pragma once

#include <memory>
#include <string>

#include "life/EventStream.h"
#include "platform/kr/KeyCatalogue.h"

namespace KR {

class Host;

/// A robot with all that it can have, brought up on a clock that stands still, to be asked what it
/// knows. It has no rules and no packages, and nothing of it runs.
class KnownRobot {
public:
    /// Throws what keeps the robot from coming up.
    KnownRobot();
    ~KnownRobot();
    KnownRobot(const KnownRobot&) = delete;
    KnownRobot& operator=(const KnownRobot&) = delete;

    const KeyCatalogue& keys() const;
    /// Adds somebody who reads a key; also one that stands for it among others.
    void addReader(const std::string& key, const std::string& reader);

private:
    std::unique_ptr<EventStream> events_;
    std::unique_ptr<Host> host_;
};

}  // namespace KR
