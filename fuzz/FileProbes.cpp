// What the example application makes of the first bytes of a file, its name and its size.
//
// What must hold for every input: there is a result, and a project can hold it.

#include <span>
#include <string>

#include <kvcore/examples/storyboard/FormatProbe.h>
#include <kvcore/examples/storyboard/ProjectFile.h>

#include <storyboard/Samples.h>

#include "Fuzz.h"

using namespace Storyboard;

namespace
{

/// Whether a clip with this format comes back as it was written.
bool CanBeStored(ProbeResult const & probed)
{
    Ptr<Media> const media = MakeMedia("a", 1, "00112233445566778899AABBCCDDEEFF", 1);
    Ptr<Clip> const clip = MakeClip("a", media, probed.format.kind);
    clip->format = probed.format;
    clip->range.length = probed.length;
    Ptr<Project> const project = Ptr<Project>::Make();
    project->bins = {MakeBin(Bin::Kind::Folder, ".", {clip})};
    MemoryOutputStream file;
    WriteProject(*project, file);
    MemorySource source(file.GetContent());
    Ptr<Clip> const read = ReadProject(source).project->bins[0]->clips[0];
    return read->format == probed.format && read->range.length == probed.length;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::int64_t const fileSize = static_cast<std::int64_t>(input.DWord()) * input.Word();
    std::string name(input.Byte() % 8, 'x');
    for (char & c : name)
    {
        c = static_cast<char>(input.Byte());
    }
    std::string const rest = input.Rest();
    fuzz::Exact<unsigned char> const head(reinterpret_cast<unsigned char const *>(rest.data()), rest.size());
    ProbeResult const probed = ProbeFormat(std::span(head.Data(), head.Size()), name, fileSize);
    try
    {
        fuzz::Check(CanBeStored(probed), "a format changes when it is stored");
    }
    catch (StreamBase::Exception const &)
    {
        fuzz::Check(false, "a format cannot be stored");
    }
    return 0;
}
