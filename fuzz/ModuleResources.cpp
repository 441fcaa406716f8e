// Whole files of modules, of this system's form and of Windows': every resource that is found lies in the file, and is
// found again by its type, name and language.

#include <set>
#include <tuple>

#include <kvcore/platform/linux/resources/ResourceDirectory.h>

#include "ResourceFile.h"

namespace
{

using kv::platform::CompareIds;
using kv::platform::ResourceData;
using kv::platform::ResourceDirectory;
using kv::platform::ResourceId;

bool IsBefore(ResourceDirectory::Resource const & left, ResourceDirectory::Resource const & right)
{
    int const order = CompareIds(left.type, right.type);
    return order != 0 ? order < 0 : CompareIds(left.name, right.name) < 0;
}

/// Reads all of the data, for the sanitizer's sake.
unsigned Sum(ResourceData const & data)
{
    unsigned sum = 0;
    for (DWORD i = 0; i < data.size; ++i)
    {
        sum += data.data[i];
    }
    return sum;
}

void CheckFound(ResourceDirectory const & directory, ResourceDirectory::Resource const & resource)
{
    fuzz::Check(!resource.languages.empty() && resource.preferred < resource.languages.size(), "no language");
    DWORD error = 0;
    fuzz::Check(directory.FindAll(resource.type, &resource.name, error) == &resource, "a resource that is not found");
    auto const & preferred = resource.languages[resource.preferred];
    fuzz::Check(directory.Find(resource.type, resource.name, 0).data == &preferred, "another language");
    if (resource.type.IsNumber() && resource.name.IsNumber())
    {
        fuzz::Check(directory.FindNumbers(resource.type.number, resource.name.number) == &preferred, "by numbers");
    }
    for (std::size_t i = 0; i < resource.languages.size(); ++i)
    {
        ResourceData const & data = resource.languages[i];
        fuzz::Check(i == 0 || resource.languages[i - 1].language < data.language, "languages in another order");
        // A neutral language of a known kind stands for whatever is preferred.
        fuzz::Check(
            (data.language & 0x3FF) == 0 || directory.Find(resource.type, resource.name, data.language).data == &data,
            "a language that is not found");
    }
}

/// What is there, by the directory alone. A file of a few KiB backs no more than its bytes can name.
std::size_t CheckDirectory(ResourceDirectory const & directory, fuzz::Exact<unsigned char> const & file)
{
    auto const & all = directory.All();
    std::size_t count = 0;
    for (std::size_t i = 0; i < all.size(); ++i)
    {
        fuzz::Check(i == 0 || IsBefore(all[i - 1], all[i]), "resources in another order");
        CheckFound(directory, all[i]);
        for (ResourceData const & data : all[i].languages)
        {
            auto const * const end = file.Data() + file.Size();
            fuzz::Check(data.data >= file.Data() && data.data <= end, "data elsewhere");
            fuzz::Check(data.size <= std::size_t(end - data.data), "data that ends elsewhere");
            fuzz::Check(Sum(data) <= 255u * data.size, "a sum");
            ++count;
        }
    }
    fuzz::Check(count <= file.Size() / 8, "more resources than entries");
    return count;
}

/// A text that those who look it up take for a number. Only a damaged file has one.
bool LooksLikeNumber(WCHAR const * id)
{
    return !IS_INTRESOURCE(id) && *id == '#';
}

BOOL CALLBACK CountLanguage(HMODULE module, WCHAR const * type, WCHAR const * name, WORD language, LONG_PTR argument)
{
    ++*reinterpret_cast<std::size_t *>(argument);
    HRSRC const found = FindResourceExW(module, type, name, language);
    fuzz::Check(found != nullptr, "a resource that is listed and not there");
    void const * const data = LockResource(LoadResource(module, found));
    std::string const copy(static_cast<char const *>(data), SizeofResource(module, found));
    fuzz::Check(copy.size() == SizeofResource(module, found), "a copy");
    return TRUE;
}

BOOL CALLBACK VisitName(HMODULE module, WCHAR const * type, WCHAR * name, LONG_PTR argument)
{
    if (!LooksLikeNumber(name))
    {
        EnumResourceLanguagesW(module, type, name, CountLanguage, argument);
    }
    if (IS_INTRESOURCE(type) && reinterpret_cast<ULONG_PTR>(type) == 9)
    {
        DestroyAcceleratorTable(LoadAcceleratorsW(module, name));
    }
    return TRUE;
}

BOOL CALLBACK VisitType(HMODULE module, WCHAR * type, LONG_PTR argument)
{
    if (!LooksLikeNumber(type))
    {
        EnumResourceNamesW(module, type, VisitName, argument);
    }
    return TRUE;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Exact<unsigned char> const file(data, size);
    std::span<unsigned char const> const bytes(file.Data(), file.Size());
    ResourceDirectory directory;
    bool const isModule = directory.ReadPe(bytes) || directory.ReadElf(bytes);
    std::size_t count = 0;
    if (isModule)
    {
        directory.Finish();
        count = CheckDirectory(directory, file);
    }

    fuzz::ResourceFile const onDisk(std::string(reinterpret_cast<char const *>(data), size));
    fuzz::DataModule const module(onDisk.Path());
    // Nothing shorter than a header is a module.
    fuzz::Check((module.Get() != nullptr) == (isModule && size >= 64), "loaded, or not, against what the file is");
    if (module.Get() != nullptr)
    {
        std::size_t listed = 0;
        EnumResourceTypesW(module.Get(), VisitType, reinterpret_cast<LONG_PTR>(&listed));
        fuzz::Check(listed <= count, "more is listed than there is");
        WCHAR text[16];
        for (UINT id = 0; id < 0x10000; id += 0x0FF1)
        {
            LoadStringW(module.Get(), id, text, 16);
        }
    }
    return 0;
}
