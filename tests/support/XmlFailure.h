#pragma once

#include <string>

#include <kvcore/config/XMLParser.h>
#include <support/FailureText.h>

namespace kv::test
{

/// The failure of a call as text, or "none".
template <typename Action>
std::string XmlFailureOf(Action action)
{
    return FailureText(action, &XMLParser::Exception::message);
}

} // namespace kv::test
