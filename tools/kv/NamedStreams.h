#pragma once

#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/support/Program.h>
#include <kvcore/tools/support/SafeFile.h>
#include <kvcore/tools/support/StdioStreams.h>

#include <cstdint>
#include <memory>
#include <string>

namespace kv::tools
{

/// What a command reads: a file, or the console's input under the name "-" or no name. Failures are `IoFailure` and
/// tell the name.
class NamedInput : public SourceStream
{
public:
    NamedInput(std::string const & path, Console & console);

    int ReadSome(char * data, int capacity) override;

    /// For messages: the path, or "standard input".
    [[nodiscard]] std::string const & Name() const
    {
        return name;
    }

private:
    std::string name;
    std::unique_ptr<StdioInputStream> file;
    SourceStream * source;
};

/// What a command writes: a file, or the console's output under the name "-" or no name. Failures are `OutputFailure`
/// and tell the name, or `ClosedPipe`.
///
/// A file comes to be whole or not at all (see SafeFile): without Finish, what stood under the name stays.
///
/// After the first failure it takes everything and drops it: the filters above it still write what they hold when they
/// are destroyed, and none of that may land behind a gap.
class NamedOutput : public OutputStream
{
public:
    NamedOutput(std::string const & path, Console & console);

    void Write(char const * data, int size) override;

    /// Makes sure that all has arrived; a file takes its name. At most once for a file.
    void Finish();

    /// Whether the bytes are dropped without Finish.
    [[nodiscard]] bool IsWholeOrNothing() const
    {
        return file && file->Replaces();
    }

    /// The bytes written so far.
    [[nodiscard]] std::uint64_t Count() const
    {
        return count;
    }

private:
    template <class Action>
    void Guarded(Action action);

    std::string name;
    std::unique_ptr<SafeFile> file;
    OutputStream * target;
    std::uint64_t count = 0;
    bool failed = false;
};

} // namespace kv::tools
