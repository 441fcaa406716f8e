// Blocks of sixteen counted strings, through the platform's look-up and through the frame's.

#include <kvcore/frame/ModuleBase.h>

#include "ResourceFile.h"

namespace
{

constexpr WORD blockNumber = 3;
constexpr UINT firstString = (blockNumber - 1) * 16;

/// String number `index` in the plainest way; empty if it is not all there.
WString Expected(std::string const & block, unsigned index)
{
    auto const wordAt = [&block](std::size_t at)
    { return std::size_t(std::uint8_t(block[at])) | std::size_t(std::uint8_t(block[at + 1])) << 8; };
    std::size_t at = 0;
    for (;; --index)
    {
        if (at + 2 > block.size())
        {
            return {};
        }
        std::size_t const length = wordAt(at);
        at += 2;
        if (index == 0)
        {
            if (length * 2 > block.size() - at)
            {
                return {};
            }
            WString text;
            for (std::size_t unit = 0; unit < length; ++unit)
            {
                text.push_back(WCHAR(wordAt(at + unit * 2)));
            }
            return text;
        }
        if (length * 2 > block.size() - at)
        {
            return {};
        }
        at += length * 2;
    }
}

void CheckCut(HMODULE module, UINT id, WString const & expected, int capacity)
{
    fuzz::Exact<WCHAR> const buffer(static_cast<std::size_t>(capacity));
    int const length = LoadStringW(module, id, buffer.Data(), capacity);
    WString const cut = expected.substr(0, std::size_t(capacity) - 1);
    fuzz::Check(length == static_cast<int>(cut.size()), "a string of another length");
    fuzz::Check(std::equal(cut.begin(), cut.end(), buffer.Data()), "another string");
    fuzz::Check(buffer.Data()[cut.size()] == 0, "a string without an end");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    int const capacity = input.Byte() + 1;
    bool const isOdd = input.Byte() % 2 != 0;
    std::string const block = input.Rest();
    // Nothing says that data lies at an even place of its file.
    std::string file = fuzz::ElfOfRecords(fuzz::ResourceRecord(6, blockNumber, 0, block));
    if (isOdd)
    {
        std::size_t const header = sizeof(Elf64_Ehdr) + sizeof(Elf64_Phdr);
        Elf64_Phdr part;
        std::memcpy(&part, file.data() + sizeof(Elf64_Ehdr), sizeof(part));
        ++part.p_offset;
        std::memcpy(file.data() + sizeof(Elf64_Ehdr), &part, sizeof(part));
        file.insert(header, 1, '\0');
    }
    fuzz::ResourceFile const onDisk(file);
    fuzz::DataModule const module(onDisk.Path());
    fuzz::Check(module.Get() != nullptr, "a file with strings cannot be loaded");
    for (unsigned index = 0; index < 16; ++index)
    {
        WString const expected = Expected(block, index);
        fuzz::Check(
            WString(ModuleBase::LoadStringW(module.Get(), firstString + index)) == expected, "the frame's string");
        CheckCut(module.Get(), firstString + index, expected, capacity);
        WCHAR const * lent = nullptr;
        int const length = LoadStringW(module.Get(), firstString + index, reinterpret_cast<WCHAR *>(&lent), 0);
        fuzz::Check(length == static_cast<int>(expected.size()), "a lent string of another length");
        fuzz::Check(std::memcmp(lent, expected.data(), expected.size() * 2) == 0, "another lent string");
    }
    fuzz::Check(ModuleBase::LoadStringW(module.Get(), firstString + 16).empty(), "a string of no block");
    return 0;
}
