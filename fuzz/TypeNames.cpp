// The converter from demangled type names to source form, on any text: names come from the compiler, and with a plug-in
// from any compiler.

#include <typeinfo>

#include <kvcore/streams/TypeName.h>

#include "Fuzz.h"

namespace
{

/// The stripping rule word by word: both passes search again from the start after each removal.
std::string ReferenceStrip(std::string name)
{
    for (std::string const word : {"struct ", "class "})
    {
        for (std::size_t at; (at = name.find(word)) != std::string::npos;)
        {
            name.erase(at, word.size());
        }
    }
    return name;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    std::string const text = fuzz::Input(data, size).Rest();
    fuzz::Check(StripTypeName(text) == ReferenceStrip(text), "stripping differs from the rule");

    fuzz::Exact<char> const exact(text.data(), text.size());
    std::string const form = kv::detail::SourceForm(std::string_view(exact.Data(), exact.Size()));
    fuzz::Check(form == kv::detail::SourceForm(text), "the same name has two forms");
    fuzz::Check(form.empty() == text.empty(), "a name is lost");
    // The longest thing that a few letters can stand for is "std::string", written out.
    fuzz::Check(form.size() <= 16 * text.size() + 16, "the form grows out of proportion");
    return 0;
}
