#include "platform/vo/Convert.h"

namespace vo {

const char* Value::kindName(Kind kind)
{
    static constexpr const char* kNames[] = {"nothing", "bool", "int", "float",     "text",
                                             "bytes",   "list", "map", "structure", "object"};
    return kNames[static_cast<std::size_t>(kind)];
}

namespace detail {

namespace {

std::string describeStructure(std::size_t fields)
{
    return "structure of " + std::to_string(fields) + (fields == 1 ? " field" : " fields");
}

}  // namespace

ConversionError unexpected(const std::string& what, const Value& value)
{
    return ConversionError("expected " + what + ", got " + Value::kindName(value.kind()));
}

ConversionError outOfRange(std::int64_t lowest, std::uint64_t highest, std::int64_t value)
{
    return ConversionError("expected int from " + std::to_string(lowest) + " to " +
                           std::to_string(highest) + ", got " + std::to_string(value));
}

ConversionError inside(const std::string& place, const ConversionError& error)
{
    return ConversionError("in " + place + ": " + error.what());
}

const std::vector<Value>& fieldsOf(const Value& value, std::size_t count)
{
    const auto* tuple = value.get<Value::Tuple>();
    if (!tuple)
        throw unexpected(describeStructure(count), value);
    if (tuple->fields.size() != count)
        throw ConversionError("expected " + describeStructure(count) + ", got " +
                              describeStructure(tuple->fields.size()));
    return tuple->fields;
}

}  // namespace detail

}  // namespace vo
