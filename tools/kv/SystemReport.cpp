#include <kvcore/tools/kv/SystemReport.h>

#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Printable.h>
#include <kvcore/tools/support/Text.h>

#include <kvcore/frame/SysInfo.h>

#include <cstdio>

namespace kv::tools
{

namespace
{

std::string Hexadecimal(unsigned int number)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", number);
    return text;
}

/// A JSON string. Texts from outside are UTF-8 by the library's conversion, so only what JSON itself forbids is
/// escaped.
std::string Quoted(std::string const & text)
{
    std::string quoted = "\"";
    for (char const c : text)
    {
        if (c == '"' || c == '\\')
        {
            quoted += '\\';
            quoted += c;
        }
        else if (static_cast<unsigned char>(c) < 0x20)
        {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(c)));
            quoted += escape;
        }
        else
        {
            quoted += c;
        }
    }
    return quoted + "\"";
}

struct Facts
{
    unsigned int system;
    std::string systemName;
    std::string processor;
    SYSTEM_INFO machine;
    std::map<unsigned int, String> codePages;
};

Facts Collect(SystemReportOptions const & options)
{
    Facts facts = {};
    facts.system = static_cast<unsigned int>(SysInfo::GetSystem());
    facts.systemName = SysInfo::GetOSName().Utf8();
    String processor;
    SysInfo::GetSystemInfo(facts.machine, processor);
    facts.processor = processor.Utf8();
    if (options.withCodePages)
    {
        SysInfo::EnumInstalledCodepages(facts.codePages);
    }
    return facts;
}

std::string ValueOf(std::string const & variable)
{
    return SysInfo::GetEnvironmentVariableW(String::FromUtf8(variable)).Utf8();
}

void PrintText(Facts const & facts, SystemReportOptions const & options, NamedOutput & output)
{
    PrintLine(output, std::string("System       ") + facts.systemName + "  (" + Hexadecimal(facts.system) + ")");
    PrintLine(
        output,
        std::string("Processors   ") + std::to_string(facts.machine.dwNumberOfProcessors) + ", " + facts.processor +
            "  (level " + std::to_string(facts.machine.wProcessorLevel) + ", revision " +
            Hexadecimal(facts.machine.wProcessorRevision) + ")");
    PrintLine(
        output,
        std::string("Memory       pages of ") + std::to_string(facts.machine.dwPageSize) +
            " bytes, views at multiples of " + std::to_string(facts.machine.dwAllocationGranularity));
    for (std::string const & variable : options.variables)
    {
        PrintLine(output, std::string("Variable     ") + Printable(variable + "=" + ValueOf(variable)));
    }
    for (auto const & [number, name] : facts.codePages)
    {
        char text[32];
        std::snprintf(text, sizeof text, "Code page    %5u  ", number);
        PrintLine(output, text + name.Utf8());
    }
}

void PrintJson(Facts const & facts, SystemReportOptions const & options, NamedOutput & output)
{
    std::string json = "{\"system\":";
    json += std::to_string(facts.system) + ",\"name\":" + Quoted(facts.systemName);
    json += std::string(",\"processor\":") + Quoted(facts.processor);
    json += std::string(",\"architecture\":") + std::to_string(facts.machine.wProcessorArchitecture);
    json += std::string(",\"processors\":") + std::to_string(facts.machine.dwNumberOfProcessors);
    json += std::string(",\"pageSize\":") + std::to_string(facts.machine.dwPageSize);
    json += std::string(",\"granularity\":") + std::to_string(facts.machine.dwAllocationGranularity);
    json += ",\"variables\":{";
    char const * separator = "";
    for (std::string const & variable : options.variables)
    {
        json += std::string(separator) + Quoted(variable) + ":" + Quoted(ValueOf(variable));
        separator = ",";
    }
    json += "}";
    if (options.withCodePages)
    {
        json += ",\"codePages\":{";
        separator = "";
        for (auto const & [number, name] : facts.codePages)
        {
            json += std::string(separator) + Quoted(std::to_string(number)) + ":" + Quoted(name.Utf8());
            separator = ",";
        }
        json += "}";
    }
    PrintLine(output, json + "}");
}

} // namespace

int PrintSystemReport(SystemReportOptions const & options, Console & console)
{
    Facts const facts = Collect(options);
    NamedOutput output("-", console);
    options.asJson ? PrintJson(facts, options, output) : PrintText(facts, options, output);
    output.Finish();
    return ExitOk;
}

} // namespace kv::tools
