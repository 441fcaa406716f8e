#include <kvcore/tools/kv/NamedStreams.h>

#include <cerrno>

#include <kvcore/tools/support/Paths.h>

namespace kv::tools
{

namespace
{

bool IsStandard(std::string const & path)
{
    return path.empty() || path == "-";
}

template <class Opened, class Failure, class Path>
std::unique_ptr<Opened> Open(Path const & path, std::string const & what)
{
    try
    {
        return std::make_unique<Opened>(path);
    }
    catch (IoException const & failure)
    {
        throw Failure(failure, "cannot open " + what);
    }
}

} // namespace

NamedInput::NamedInput(std::string const & path, Console & console)
    : name(IsStandard(path) ? "standard input" : path), source(&console.input)
{
    if (!IsStandard(path))
    {
        file = Open<StdioInputStream, IoFailure>(NativeBytes(TypedNativePath(path)), path);
        source = file.get();
    }
}

int NamedInput::ReadSome(char * data, int capacity)
{
    try
    {
        return source->ReadSome(data, capacity);
    }
    catch (IoException const & failure)
    {
        throw IoFailure(failure, "cannot read " + name);
    }
    catch (StreamBase::Exception const & failure)
    {
        throw IoFailure(failure, "cannot read " + name);
    }
}

NamedOutput::NamedOutput(std::string const & path, Console & console)
    : OutputStream(nullptr), name(IsStandard(path) ? "standard output" : path), target(&console.output)
{
    if (!IsStandard(path))
    {
        file = Open<SafeFile, OutputFailure>(TypedNativePath(path), path + " for writing");
        target = &file->Stream();
    }
}

template <class Action>
void NamedOutput::Guarded(Action action)
{
    if (failed)
    {
        return;
    }
    try
    {
        action();
    }
    catch (IoException const & failure)
    {
        failed = true;
        if (failure.error == EPIPE)
        {
            throw ClosedPipe{failure};
        }
        throw OutputFailure(failure, "cannot write " + name);
    }
    catch (StreamBase::Exception const & failure)
    {
        failed = true;
        throw OutputFailure(failure, "cannot write " + name);
    }
}

void NamedOutput::Write(char const * data, int size)
{
    Guarded([&] { target->Write(data, size); });
    count += size > 0 && !failed ? static_cast<std::uint64_t>(size) : 0;
}

void NamedOutput::Finish()
{
    Guarded(
        [&]
        {
            if (file)
            {
                file->Commit();
                return;
            }
            target->Flush();
        });
}

} // namespace kv::tools
