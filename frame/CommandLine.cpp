#include <kvcore/frame/CommandLine.h>

CommandLine::CommandLine()
{
    SetDefaults();
}

CommandLine::CommandLine(CommandLine const & other) = default;

CommandLine & CommandLine::operator=(CommandLine const & other) = default;

CommandLine::~CommandLine() = default;

bool CommandLine::IsRegistering() const
{
    return registering;
}

bool CommandLine::IsUnregistering() const
{
    return unregistering;
}

void CommandLine::BeginParse()
{
    SetDefaults();
}

void CommandLine::EndParse() {}

void CommandLine::Parse(String const & text, bool isOption, bool)
{
    isOption ? ParseOption(text) : ParseNonOption(text);
}

String const & CommandLine::GetDocPath() const
{
    return docPath;
}

void CommandLine::ParseOption(String const & option)
{
    if (option.CompareNoCase(TEXT("regserver")) == 0)
    {
        registering = true;
    }
    else if (option.CompareNoCase(TEXT("unregserver")) == 0)
    {
        unregistering = true;
    }
}

void CommandLine::ParseNonOption(String const & text)
{
    if (docPath.empty())
    {
        docPath = text;
    }
}

void CommandLine::SetDefaults()
{
    docPath.clear();
    registering = unregistering = false;
}
