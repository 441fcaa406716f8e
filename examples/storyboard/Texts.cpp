#include <kvcore/examples/storyboard/Texts.h>

#include <array>

#include <kvcore/frame/ModuleBase.h>
#include <kvcore/platform/win32.h>

namespace Storyboard
{

namespace
{

ModuleBase const * texts;

constexpr std::size_t maxArguments = 9;

} // namespace

void TakeTextsFrom(ModuleBase const * module)
{
    texts = module;
}

String PlainText(unsigned id)
{
    return texts != nullptr ? texts->LoadStringW(id) : ModuleBase::LoadStringW(GetModuleHandleW(nullptr), id);
}

// The system's own formatter, which knows arguments by their numbers: other languages put them in another order.
std::string detail::FormatText(unsigned id, std::initializer_list<std::string> arguments)
{
    std::array<String, maxArguments> wide;
    std::array<WCHAR const *, maxArguments> a;
    std::size_t count = 0;
    for (std::string const & argument : arguments)
    {
        wide.at(count++) = String::FromUtf8(argument);
    }
    for (std::size_t i = 0; i < maxArguments; ++i)
    {
        a[i] = wide[i].c_str();
    }
    return String::FromFormatMessage(PlainText(id), a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8]).Utf8();
}

} // namespace Storyboard
