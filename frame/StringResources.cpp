#include <kvcore/core/String.h>

#include <kvcore/frame/ModuleBase.h>

// The members of String whose templates come from a module.

String String::FromFormatV(ModuleBase * module, unsigned int id, std::va_list arguments)
{
    return FromFormatV(module->LoadStringW(id), arguments);
}

String String::FromFormat(ModuleBase * module, unsigned int id, ...)
{
    std::va_list arguments;
    va_start(arguments, id);
    String const text = FromFormatV(module, id, arguments);
    va_end(arguments);
    return text;
}

String String::FromFormatMessageV(ModuleBase * module, unsigned int id, std::va_list arguments)
{
    return FromFormatMessageV(module->LoadStringW(id), arguments);
}

String String::FromFormatMessage(ModuleBase * module, unsigned int id, ...)
{
    std::va_list arguments;
    va_start(arguments, id);
    String const text = FromFormatMessageV(module, id, arguments);
    va_end(arguments);
    return text;
}

void String::FormatMessageW(ModuleBase * module, unsigned int id, ...)
{
    std::va_list arguments;
    va_start(arguments, id);
    *this = FromFormatMessageV(module, id, arguments);
    va_end(arguments);
}

void String::AddMessage(ModuleBase * module, unsigned int id, ...)
{
    std::va_list arguments;
    va_start(arguments, id);
    String const text = FromFormatMessageV(module, id, arguments);
    va_end(arguments);
    AddLine(text, true, true);
}

void String::LoadStringW(unsigned int id, ModuleBase * module)
{
    *this = module->LoadStringW(id);
}
