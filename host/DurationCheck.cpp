#include "host/DurationCheck.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "platform/conditions/Comparison.h"

namespace KR {

namespace {

using Kind = Expression::Kind;

constexpr vo::Duration kUnbounded = vo::Duration::max();

std::string durationText(vo::Duration duration)
{
    return textOf(Expression{Kind::duration, {}, {}, {}, duration});
}

/// What a part of a condition is for each value of the one key that it reads, which steps through
/// them. Of literals alone there is no key and one value.
struct Course {
    std::string key;
    vo::Duration step{};
    std::vector<KRValue> values;

    const KRValue& at(std::size_t i) const { return values[i % values.size()]; }

    /// The longest time for which it stays true, or false; the circle has no end.
    vo::Duration longest(bool truth) const
    {
        std::size_t run = 0;
        std::size_t longest = 0;
        for (std::size_t i = 0; i < 2 * values.size(); ++i) {
            run = at(i).isTrue() == truth ? run + 1 : 0;
            longest = std::max(longest, run);
        }
        return longest >= values.size() ? kUnbounded : step * static_cast<std::int64_t>(longest);
    }
};

/// Nothing where the two read different keys.
template <class Operation>
std::optional<Course> combined(const Course& a, const Course& b, const Operation& operation)
{
    if (!a.key.empty() && !b.key.empty() && a.key != b.key)
        return std::nullopt;
    Course both{a.key + (a.key == b.key ? "" : b.key), std::max(a.step, b.step), {}};
    for (std::size_t i = 0; i < std::max(a.values.size(), b.values.size()); ++i)
        both.values.emplace_back(operation(a.at(i), b.at(i)));
    return both;
}

/// The ages of a key of which some comparisons are true.
struct AgeWindow {
    vo::Duration least{};
    vo::Duration most = kUnbounded;
    std::string text;  ///< the comparisons

    void narrow(const Expression& comparison)
    {
        const vo::Duration age = comparison.operands[1].duration;
        const Kind kind = comparison.kind;
        if (kind == Kind::equal || kind == Kind::greaterEqual)
            least = std::max(least, age);
        if (kind == Kind::greater)
            least = std::max(least, age + vo::Duration(1));
        if (kind == Kind::equal || kind == Kind::lessEqual)
            most = std::min(most, age);
        if (kind == Kind::less)
            most = std::min(most, age - vo::Duration(1));
        text += (text.empty() ? "" : " && ") + textOf(comparison);
    }
    bool isEmpty() const { return least > most; }
    /// From no age on, each write makes it longer.
    vo::Duration longest() const
    {
        if (isEmpty())
            return vo::Duration::zero();
        const bool isRenewed = least == vo::Duration::zero();
        return isRenewed || most == kUnbounded ? kUnbounded : most - least + vo::Duration(1);
    }
};

bool comparesAge(const Expression& expression)
{
    return expression.kind >= Kind::equal && expression.operands[0].kind == Kind::age;
}

/// How long a part of a condition can be true, and false, at a stretch.
struct Stretch {
    vo::Duration whenTrue = kUnbounded;
    vo::Duration whenFalse = kUnbounded;
    std::optional<Course> course = std::nullopt;  ///< where it has one

    Stretch() = default;
    explicit Stretch(Course all)
        : whenTrue(all.longest(true)), whenFalse(all.longest(false)), course(std::move(all))
    {
    }
};

class DurationDoubts {
public:
    explicit DurationDoubts(const KeyCatalogue& keys) : keys_(keys) {}

    Stretch inspect(const Expression& expression)
    {
        switch (expression.kind) {
            case Kind::literal:
                return Stretch(Course{"", {}, {expression.value}});
            case Kind::key:
                return ofKey(expression.key);
            case Kind::negation:
                return ofNegation(expression);
            case Kind::hold:
                return ofHold(expression);
            case Kind::conjunction:
            case Kind::disjunction:
                return ofSeveral(expression);
            default:
                return ofOthers(expression);
        }
    }

    std::vector<KeyDoubt> take() { return std::move(doubts_); }

private:
    Stretch ofKey(const std::string& key)
    {
        auto known = courses_.find(key);
        if (known == courses_.end())
            known = courses_.emplace(key, courseOf(key)).first;
        return known->second.values.empty() ? Stretch() : Stretch(known->second);
    }

    /// Without values, if the key does not step through them.
    Course courseOf(const std::string& key) const
    {
        const auto entry = keys_.find(key);
        if (!entry || !entry->description.step)
            return {};
        const KeyDescription& description = entry->description;
        Course course{key, *description.step, description.values};
        if (course.values.empty() && description.min && description.max)
            for (auto i = std::int64_t(*description.min); i <= std::int64_t(*description.max); ++i)
                course.values.emplace_back(i);
        return course;
    }

    Stretch ofNegation(const Expression& negation)
    {
        Stretch stretch = inspect(negation.operands[0]);
        std::swap(stretch.whenTrue, stretch.whenFalse);
        if (stretch.course)
            for (KRValue& value : stretch.course->values)
                value = !value.isTrue();
        return stretch;
    }

    Stretch ofHold(const Expression& hold)
    {
        const Expression& operand = hold.operands[0];
        const std::vector<std::string> read = keysOf(operand);
        Stretch held;
        held.whenTrue = inspect(operand).whenTrue;
        if (held.whenTrue == kUnbounded || read.empty())
            return {};
        // What ends at the instant at which the hold is due ends it before that.
        if (held.whenTrue > hold.duration) {
            held.whenTrue -= hold.duration;
            return held;
        }
        add(read.front(), "'for " + durationText(hold.duration) +
                              "' is never reached: " + textOf(operand) +
                              (held.whenTrue == vo::Duration::zero()
                                   ? " is never true"
                                   : " is true for at most " + durationText(held.whenTrue)));
        return {};  // what is around it is not to be doubted for the same reason
    }

    /// What reads one key is looked at together: more is known of it than of each by itself.
    Stretch ofSeveral(const Expression& expression)
    {
        const bool all = expression.kind == Kind::conjunction;
        std::map<std::string, Course> courses;
        std::map<std::string, AgeWindow> ages;
        bool hasOthers = false;
        Stretch whole;
        vo::Duration& longest = all ? whole.whenTrue : whole.whenFalse;
        for (const Expression& operand : expression.operands) {
            Stretch stretch = inspect(operand);
            longest = std::min(longest, all ? stretch.whenTrue : stretch.whenFalse);
            if (all && comparesAge(operand))
                ages[operand.operands[0].key].narrow(operand);
            hasOthers = hasOthers || !stretch.course;
            if (!stretch.course)
                continue;
            const auto [known, isNew] = courses.emplace(stretch.course->key, *stretch.course);
            if (!isNew)
                known->second =
                    *combined(known->second, *stretch.course, [all](const auto& a, const auto& b) {
                        return all ? a.isTrue() && b.isTrue() : a.isTrue() || b.isTrue();
                    });
        }
        if (!hasOthers && courses.size() == 1)
            return Stretch(std::move(courses.begin()->second));
        for (const auto& [key, course] : courses)
            longest = std::min(longest, course.longest(all));
        for (const auto& [key, window] : ages) {
            longest = std::min(longest, window.longest());
            if (window.isEmpty())
                add(key, window.text + " is never true");
        }
        return whole;
    }

    /// Comparisons, and what can be true for any time.
    Stretch ofOthers(const Expression& expression)
    {
        Stretch whole;
        if (comparesAge(expression)) {
            AgeWindow window;
            window.narrow(expression);
            whole.whenTrue = window.longest();
            return whole;
        }
        std::vector<Stretch> operands;
        for (const Expression& operand : expression.operands)
            operands.push_back(inspect(operand));
        if (expression.kind < Kind::equal || !operands[0].course || !operands[1].course)
            return whole;
        const auto course = combined(
            *operands[0].course, *operands[1].course,
            [kind = expression.kind](const auto& a, const auto& b) { return holds(kind, a, b); });
        return course ? Stretch(*course) : whole;
    }

    void add(const std::string& key, const std::string& text)
    {
        if (texts_.insert(text).second)
            doubts_.push_back({key, text});
    }

    const KeyCatalogue& keys_;
    std::map<std::string, Course> courses_;  ///< of keys
    std::set<std::string> texts_;
    std::vector<KeyDoubt> doubts_;
};

}  // namespace

std::vector<KeyDoubt> durationDoubts(const Expression& condition, const KeyCatalogue& keys)
{
    if (!isTimed(condition))
        return {};
    DurationDoubts doubts(keys);
    doubts.inspect(condition);
    return doubts.take();
}

}  // namespace KR
