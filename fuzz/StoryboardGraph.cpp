// Projects of the example application: files of any bytes, graphs of any bytes in good blocks, and mangled projects.
//
// What must hold for every input: reading ends in a project or in one of the documented failures, no object outlives
// what was read, and a project that was read is written to bytes that read back and are written as the same again.

#include <string>

#include <kvcore/examples/storyboard/ProjectFile.h>
#include <kvcore/streams/CRC.h>
#include <kvcore/streams/Compressing.h>
#include <kvcore/streams/MemoryStreams.h>

#include <storyboard/Samples.h>
#include <storyboard/WatchingFactory.h>

#include "Fuzz.h"

using namespace Storyboard;

namespace
{

enum Form : unsigned
{
    File,
    Graph,
    Mangled,
    Forms
};

/// The bytes of a graph as they lie in a file.
std::string FileOf(std::string const & graph)
{
    MemoryOutputStream file;
    {
        CRCOutputStream blocks(file);
        CompressingStream compressed(blocks, -1);
        compressed.Write(graph.data(), static_cast<int>(graph.size()));
    }
    return file.GetContent();
}

std::string SampleGraph()
{
    MemoryOutputStream graph;
    SerializingOutputStream objects(ProjectFactory(), graph);
    objects.Write(*SampleProject());
    return graph.GetContent();
}

std::string BytesOf(fuzz::Input & input)
{
    switch (input.Byte() % Forms)
    {
    case File:
        return input.Rest();
    case Graph:
        return FileOf(input.Rest());
    default:
        break;
    }
    static std::string const sample = SampleGraph();
    std::string graph = sample;
    while (!input.AtEnd())
    {
        std::size_t const place = input.Word() % graph.size();
        graph[place] = static_cast<char>(graph[place] ^ input.Byte());
    }
    return FileOf(graph);
}

/// The project of these bytes as the program writes it; empty if they are none.
std::string Rewritten(std::string const & bytes)
{
    WatchingFactory factory;
    std::string written;
    try
    {
        MemorySource source(bytes);
        LoadedProject const loaded = ReadProject(source, factory);
        fuzz::Check(loaded.sizes.file == static_cast<std::int64_t>(bytes.size()), "bytes are left over");
        Count(*loaded.project);
        MemoryOutputStream file;
        WriteProject(*loaded.project, file);
        written = file.GetContent();
    }
    catch (StreamBase::Exception const & failure)
    {
        fuzz::Check(failure.code >= 2 && failure.code <= 6, "an undocumented code");
        fuzz::Check(!failure.text.empty(), "a failure without a text");
    }
    fuzz::Check(factory.ReleaseAll() == 0, "objects are left over");
    return written;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::string const written = Rewritten(BytesOf(input));
    if (!written.empty())
    {
        fuzz::Check(Rewritten(written) == written, "a project is not written as it was read");
    }
    return 0;
}
