#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/vo/Clock.h"

namespace KR {

/// How warm the joints are. Each goes exponentially, with one time constant τ, to the temperature
/// that its load leads to, in degrees Celsius:
///
///     T(t) = Tend + (T0 - Tend) · exp(-(t - t0) / τ)      Tend = ambient + load · full rise
///
/// Times are uptimes of one clock. Used by one thread at a time.
class JointHeat {
public:
    static constexpr double kAmbient = 25;
    /// Above ambient, when a joint carries its full load for ever.
    static constexpr double kFullLoadRise = 70;
    static constexpr double kTimeConstant = 600;  ///< seconds

    /// All at ambient temperature, without load.
    explicit JointHeat(const std::vector<std::string>& joints);

    /// Makes a joint so warm now. The joint is one of those it was made with; so it is below.
    void heat(const std::string& joint, double celsius, vo::Duration now);
    /// From now on a joint carries this part of its full load, 0 to 1.
    void use(const std::string& joint, double load, vo::Duration now);

    double at(const std::string& joint, vo::Duration now) const;
    /// Whether every joint is as warm as it gets, to a twentieth of a degree.
    bool isSettled(vo::Duration now) const;

private:
    struct Joint {
        double temperature = kAmbient;  ///< at `since`
        vo::Duration since{};
        double end = kAmbient;
    };
    static double temperatureOf(const Joint& joint, vo::Duration now);

    std::map<std::string, Joint> joints_;
};

}  // namespace KR
