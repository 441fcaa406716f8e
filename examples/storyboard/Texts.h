#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>

#include <kvcore/core/String.h>
#include <kvcore/examples/storyboard/resources/TextIds.h>

class ModuleBase;

namespace Storyboard
{

/// From where the program's texts come: a module that carries them, or whose language file does. It has to live until
/// the next call. Null, as at the start, is the program itself. For one thread, before others ask for texts.
void TakeTextsFrom(ModuleBase const * module);

/// A text of the program in the user's language, with `arguments` (UTF-8) in the places %1 to %9. UTF-8. Any thread.
template <class... Arguments>
std::string Text(unsigned id, Arguments const &... arguments);

/// The same, as it stands in the table.
String PlainText(unsigned id);

namespace detail
{
std::string FormatText(unsigned id, std::initializer_list<std::string> arguments);
}

template <class... Arguments>
std::string Text(unsigned id, Arguments const &... arguments)
{
    if constexpr (sizeof...(arguments) == 0)
    {
        return PlainText(id).Utf8();
    }
    else
    {
        return detail::FormatText(id, {std::string(arguments)...});
    }
}

} // namespace Storyboard
