#pragma once

#include <memory>
#include <string>

#include "platform/kr/KRModule.h"
#include "robot/Body.h"
#include "robot/Senses.h"

namespace KR {

/// What a scenario, or whoever plays world, does to the simulated robot and around it. Places and
/// persons are World's, the rest is Body's. Thread-safe. Errors are KRError, after which nothing
/// has changed.
class KRWorld : public KRModule {
public:
    static constexpr const char* kName = World::kService;

    KRWorld(const boost::shared_ptr<KRBroker>& broker, std::shared_ptr<Senses> senses,
            std::shared_ptr<Body> body);

    void enter(const std::string& name, double x, double y);
    /// `places` is an array of [x, y].
    void walk(const std::string& name, const KRValue& places, double speed);
    /// `where` is "ahead", "robot" or a place, [x, y].
    void look(const std::string& name, const KRValue& where);
    void wave(const std::string& name, double seconds);
    void leave(const std::string& name);
    void move(double x, double y, double seconds, double size);

    void lift(bool lifted);
    /// "front", "back", "left" or "right".
    void push(const std::string& from);
    /// "front" or "back".
    void fall(const std::string& to);
    void heat(const std::string& chainOrJoint, double celsius);
    void use(const std::string& chainOrJoint, double load);

    /// An array of two numbers as a place; KRError naming `method` for anything else.
    static Place placeFrom(const KRValue& value, const char* method);
    static BodyMotion::Side sideFrom(const std::string& name, const char* method);

private:
    void bindPeople();
    void bindBody();

    // Constant after construction.
    const std::shared_ptr<Senses> senses_;
    const std::shared_ptr<Body> body_;
};

}  // namespace KR
