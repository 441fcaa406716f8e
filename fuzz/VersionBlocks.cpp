// Version blocks out of a file, asked for what programs ask for and for names of the input's own.

#include <cwctype>

#include "ResourceFile.h"

namespace
{

WCHAR const * const knownNames[] = {
    TEXT("\\"),
    TEXT("\\VarFileInfo\\Translation"),
    TEXT("\\StringFileInfo\\040904B0\\CompanyName"),
    TEXT("\\StringFileInfo"),
    TEXT(""),
};

struct Value
{
    bool found;
    void * place;
    UINT length;
};

Value Ask(void const * block, WString const & name)
{
    Value value{false, nullptr, 77};
    value.found = VerQueryValueW(block, name.c_str(), &value.place, &value.length) != FALSE;
    return value;
}

void CheckAnswer(fuzz::Exact<char> const & block, WString const & name)
{
    Value const value = Ask(block.Data(), name);
    if (!value.found)
    {
        fuzz::Check(value.length == 0, "what is not there has a length");
        return;
    }
    auto const * const place = static_cast<char const *>(value.place);
    fuzz::Check(place >= block.Data() && place <= block.Data() + block.Size(), "a value that lies elsewhere");
    // Texts count in units of two bytes, all else in bytes.
    fuzz::Check(value.length <= std::size_t(block.Data() + block.Size() - place), "a value that ends elsewhere");
    unsigned sum = 0;
    for (UINT i = 0; i < value.length; ++i)
    {
        sum += static_cast<unsigned char>(place[i]);
    }
    WString other = name;
    for (WCHAR & unit : other)
    {
        unit = unit >= 'a' && unit <= 'z' ? WCHAR(unit - 0x20) : unit >= 'A' && unit <= 'Z' ? WCHAR(unit + 0x20) : unit;
    }
    Value const again = Ask(block.Data(), other + TEXT("\\"));
    fuzz::Check(
        again.found && again.place == value.place && again.length == value.length && sum < 0x7FFFFFFF,
        "a name in the other case is another name");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::size_t const less = input.Byte();
    WString name;
    for (unsigned left = input.Byte() % 32; left != 0; --left)
    {
        WCHAR const unit = input.Word();
        name.push_back(unit != 0 ? unit : WCHAR('\\'));
    }
    std::string const bytes = input.Rest();
    fuzz::ResourceFile const file(fuzz::ElfOfRecords(fuzz::ResourceRecord(16, 1, 0, bytes)));
    DWORD zero = 1;
    DWORD const stored = GetFileVersionInfoSizeW(file.Path(), &zero);
    fuzz::Check(zero == 0 && stored == (bytes.size() < 8 ? 0 : bytes.size()), "a block of another size");
    // A caller may have less room than there is to copy.
    DWORD const capacity = less < stored ? DWORD(stored - less) : stored;
    if (capacity < 2)
    {
        return 0;
    }
    fuzz::Exact<char> const block(capacity);
    fuzz::Check(GetFileVersionInfoW(file.Path(), 0, capacity, block.Data()) != FALSE, "a block cannot be read");
    for (WCHAR const * const known : knownNames)
    {
        CheckAnswer(block, known);
    }
    CheckAnswer(block, name);
    return 0;
}
