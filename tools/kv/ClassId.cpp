#include <kvcore/tools/kv/ClassId.h>

#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/kv/SumList.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Text.h>

#include <kvcore/streams/ObjectFactory.h>
#include <kvcore/streams/TypeName.h>

#include <cstdio>

namespace kv::tools
{

namespace
{

class ClassIdPrinter
{
public:
    ClassIdPrinter(bool stripNames, Console & printConsole)
        : strip(stripNames), console(printConsole), output("-", printConsole), factory(new ObjectFactory)
    {
    }

    ~ClassIdPrinter()
    {
        factory->Release();
    }

    ClassIdPrinter(ClassIdPrinter const &) = delete;
    ClassIdPrinter & operator=(ClassIdPrinter const &) = delete;

    void Print(std::string const & name)
    {
        std::string const className = strip ? StripTypeName(name) : name;
        int const identifier = factory->GetClassID(className.c_str());
        if (identifier == 0)
        {
            Complain(
                console, "kv classid",
                "\"" + className +
                    "\" has the identifier 0, which announces a command and never a class; no class can be "
                    "stored under this name");
            result = ExitFailed;
            return;
        }
        char numbers[40];
        std::snprintf(numbers, sizeof numbers, "0x%08X  %d  ", static_cast<unsigned>(identifier), identifier);
        PrintLine(output, Presented(console, numbers + className));
    }

    void PrintLinesOf(SourceStream & list)
    {
        LineReader reader(list);
        std::string line;
        while (reader.Next(line))
        {
            if (!line.empty())
            {
                Print(line);
            }
        }
    }

    int Finish()
    {
        output.Finish();
        return result;
    }

private:
    bool strip;
    Console & console;
    NamedOutput output;
    ObjectFactory * factory;
    int result = ExitOk;
};

} // namespace

int PrintClassIds(ClassIdOptions const & options, Console & console)
{
    ClassIdPrinter printer(options.strip, console);
    for (std::string const & name : options.names)
    {
        if (name == "-")
        {
            NamedInput list(name, console);
            printer.PrintLinesOf(list);
            continue;
        }
        printer.Print(name);
    }
    return printer.Finish();
}

} // namespace kv::tools
