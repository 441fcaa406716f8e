#pragma once

#include <string>

#include <kvcore/config/XMLParser.h>

namespace kv::test
{

/// A failure as text for comparison: the code and the message, or "none".
template <typename Action>
std::string XmlFailureOf(Action action)
{
    try
    {
        action();
    }
    catch (XMLParser::Exception const & failure)
    {
        return std::to_string(failure.code) + ": " + failure.message.Utf8();
    }
    return "none";
}

} // namespace kv::test
