#pragma once

#include <kvcore/config/XMLParser.h>

namespace kv::test
{

/// Whether the document component tells reasons and positions, and refuses unbound prefixes and wrong style sheets. The
/// one of this tree does, and a test holds it to that; others that stand in for the system's own may not. COM must
/// be initialised.
inline bool IsStrictComponent()
{
    static bool const strict = []
    {
        try
        {
            XMLParser::ParseData("<a", -1);
        }
        catch (XMLParser::Exception const & failure)
        {
            return failure.message.find(TEXT("Line/Pos: ")) != String::npos;
        }
        return true;
    }();
    return strict;
}

} // namespace kv::test
