#include <sstream>

#include "life/RuleScheduler.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

std::vector<std::string> namesOf(const std::vector<PendingAction>& actions)
{
    std::vector<std::string> names;
    names.reserve(actions.size());
    for (const PendingAction& each : actions)
        names.push_back(each.action.description);
    return names;
}

/// Plays a line of commands, in which an action is written as its name and what it waits for:
///     a       @1.2  in hit list 1, second in turn       #5  with condition 5, or focus 5
///     ~x  after the active rule x     >b  behind b in its hit list     !y  not while y is active
/// Those that ask are followed by "=" and the answer; "order" is answered with the order of the
/// actions, and each circle in parentheses.
class SchedulerPlay {
public:
    void play(const std::string& line)
    {
        std::istringstream commands(line);
        for (std::string command; std::getline(commands, command, ';');) {
            const std::size_t equals = command.find('=');
            const std::string answer = run(command.substr(0, equals));
            if (equals != std::string::npos) {
                EXPECT_EQ(" " + answer, command.substr(equals + 1)) << "to " << command;
            }
        }
    }

private:
    std::string run(const std::string& command)
    {
        std::istringstream words(command);
        std::string verb;
        words >> verb;
        if (verb == "order")
            return orderOf(words);
        const PendingAction pending = action(words);
        const std::string& rule = pending.action.description;
        const auto answer = [](bool yes) { return yes ? "yes" : "no"; };
        if (verb == "active")
            return answer(scheduler_.isActive(rule));
        if (verb == "wait")
            return answer(scheduler_.wait(pending));
        if (verb == "ready")
            return answer(scheduler_.hasReady());
        if (verb == "take")
            return joined("", namesOf(scheduler_.takeReady()));
        if (verb == "drop")
            return joined("", namesOf(scheduler_.dropWaiting()));
        if (verb == "judge") {
            static const char* const kNames[] = {"run", "skip", "wait"};
            const RuleScheduler::Verdict verdict = scheduler_.judge(pending);
            return joined(kNames[static_cast<int>(verdict.kind)], verdict.because);
        }
        if (verb == "begin")
            scheduler_.begin(pending);
        else if (verb == "end")
            scheduler_.end(pending, pending.action.conditionId);
        else
            scheduler_.focusLost(pending.action.conditionId);
        return "";
    }
    static std::string joined(std::string text, const std::vector<std::string>& names)
    {
        for (const std::string& name : names)
            text += (text.empty() ? "" : " ") + name;
        return text;
    }
    static std::string orderOf(std::istream& words)
    {
        std::vector<PendingAction> actions;
        for (std::string each; std::getline(words, each, ',');) {
            std::istringstream one(each);
            actions.push_back(action(one));
        }
        RuleScheduler::Order order = RuleScheduler::inOrder(std::move(actions));
        std::string result = joined("", namesOf(order.actions));
        for (std::vector<std::string>& cycle : order.cycles) {
            std::sort(cycle.begin(), cycle.end());
            result += " (" + joined("", cycle) + ")";
        }
        return result;
    }
    static PendingAction action(std::istream& words)
    {
        PendingAction result;
        AutonomousAction& action = result.action;
        const std::map<char, std::vector<std::string>*> lists{
            {'~', &action.executeAfterActiveRules},
            {'>', &action.executeAfterIfSimultaneouslyTrue},
            {'!', &action.skipIfRulesActive}};
        for (std::string word; words >> word;) {
            const std::string rest = word.substr(1);
            if (word[0] == '@') {
                result.hitList = std::stoul(rest);
                result.turn = std::stoul(rest.substr(rest.find('.') + 1));
            } else if (word[0] == '#') {
                action.conditionId = static_cast<std::uint32_t>(std::stoul(rest));
            } else if (lists.count(word[0])) {
                lists.at(word[0])->push_back(rest);
            } else {
                action.description = word;
            }
        }
        return result;
    }

    RuleScheduler scheduler_;
};

TEST(RuleSchedulerTest, OrdersRunsSkipsAndHoldsBack)
{
    const std::pair<const char*, const char*> rows[] = {
        {"hits stay as they are where nothing is named", "order c, a, b = c a b"},
        {"behind a later one, the rest stays", "order a >c, b, c, d = b c a d"},
        {"a chain", "order a >b, b >c, c = c b a"},
        {"several named, one not hit", "order a >b >absent >c, b, c = b c a"},
        {"itself named", "order a >a, b = a b"},
        {"behind both hits of one rule", "order b, a >b, b = b b a"},
        {"only the circle is broken, not what is behind it",
         "order d >c, a >b, b >c, c >a = a c d b (a b c)"},
        {"two circles", "order a >b, b >a, x >y, y >x = a b x y (a b) (x y)"},
        {"active until its steps have ended", "begin a;active a = yes;end a;active a = no"},
        {"active until the focus that it took is lost, and as often as it runs",
         "begin a;end a #2;lost #1;active a = yes;begin a;end a;active a = yes;lost #2;active a = "
         "no"},
        {"focus lost before its steps have ended",
         "begin a;lost #3;active a = yes;end a #3;active a = no"},
        {"a lost focus takes all before it along, and no later one",
         "begin a;end a #2;begin b;end b #3;begin c;end c #4;begin d;end d #3;lost #3;"
         "active a = no;active b = no;active d = no;active c = yes;"
         "lost #1;begin a;end a #3;active a = no;lost #4;active c = no"},
        {"skip beats wait, and the rules are named; a rule may name itself",
         "judge a !x !a ~y ~z = run;begin z;judge a !x !a ~y ~z = wait z;"
         "begin y;judge a !x !a ~y ~z = wait y z;begin a;judge a !x !a ~y ~z = skip a;"
         "begin x;judge a !x !a ~y ~z = skip x a"},
        {"waits for all of its rules, once",
         "begin x;begin y;wait a ~x ~y = yes;wait a ~x ~y = no;ready = no;end x;ready = no;take = ;"
         "end y;ready = yes;ready = yes;take = a;ready = no;take = ;begin x;wait a ~x = yes"},
        {"what one has waited for is still awaited by others",
         "begin x;begin y;wait a ~x;wait b ~x ~y;end x;take = a;begin x;end y;ready = no;"
         "end x;ready = yes;take = b"},
        {"the rule ends between verdict and waiting",
         "begin x;judge a ~x = wait x;end x;wait a ~x;ready = yes;take = a"},
        {"a lost focus wakes",
         "begin x;end x #1;wait a ~x;ready = no;lost #1;ready = yes;take = a"},
        {"the rest stays in its order",
         "begin x;begin y;wait a ~x;wait b ~y;wait c ~x;end y;ready = yes;take = b;end x;take = a "
         "c"},
        {"the same rule with another condition is another action",
         "begin x;wait a #1 @1.1 ~x = yes;wait a #2 @1.2 ~x = yes;wait a #2 @2.1 ~x = no;end "
         "x;take = a a"},
        {"behind a waiting one that comes before it in its hit list",
         "begin x;wait a @1.1 ~x;judge b @1.2 >a = wait a;judge b @1.2 >a ~x = wait x a;"
         "judge b @2.3 >a = run;judge b @1.0 >a = run;wait b @1.2 >a;ready = no;take = ;"
         "end x;take = a b;judge b @1.2 >a = run"},
        {"behind one that has steps to carry out in its hit list, however often it waits for it",
         "begin a @1.1;judge b @1.2 >a = wait a;judge b @2.3 >a = run;judge c @1.0 >a = run;"
         "wait b @1.2 >a;begin a @2.3;end a @2.3;ready = no;end a @1.1 #9;ready = yes;take = b;"
         "active a = yes;begin b @1.2;judge c @1.3 >b = wait b"},
        {"behind both actions of a rule",
         "begin x;begin y;wait a #1 @1.1 ~x;wait a #2 @1.2 ~y;wait b @1.3 >a;end x;take = a;"
         "judge b @1.3 >a = wait a;end y;take = a b"},
        {"one that names itself, and a circle in which one waits, do not wait forever",
         "begin x;wait a @1.1 >a >b ~x;wait b @1.2 >a;end x;take = a b"},
        {"dropped ones are forgotten altogether",
         "begin x;wait a @1.1 ~x;wait b @1.2 >a;drop = a b;ready = no;judge b @1.2 >a = run;"
         "wait a ~x = yes;ready = no;end x;ready = yes;take = a;drop = "},
    };
    for (const auto& [description, line] : rows) {
        SCOPED_TRACE(description);
        SchedulerPlay().play(line);
    }
}

}  // namespace
}  // namespace KR
