#include <memory>

#include <kvcore/config/SectionedConfigData.h>
#include <kvcore/files/FileStreams.h>
#include <kvcore/platform/win32.h>

#include "SectionedConfigStore.h"

namespace
{

/// Room for all section names, and for all lines of one section; the profile calls give `cut` for what does not fit.
constexpr DWORD capacity = 0x7FFF;
constexpr DWORD cut = capacity - 2;

[[noreturn]] void ThrowLastError(int kind)
{
    throw SectionedConfigData::Exception{kind, String::FromError(GetLastError())};
}

void CheckHeader(String const & path, std::string const & header)
{
    std::string found;
    try
    {
        BasicFileStream file(path, FileAccess_Read, FileShare_Read, FileCreation_OpenExisting, FileAttributes_Normal);
        file.Read(found, static_cast<DWORD>(header.size()));
    }
    catch (StreamBase::Exception const & exception)
    {
        throw SectionedConfigData::Exception{0, exception.text};
    }
    if (found != header)
    {
        throw SectionedConfigData::Exception{1, String()};
    }
}

void WriteHeader(String const & path, std::string const & header)
{
    try
    {
        BasicFileStream file(path, FileAccess_Write, FileShare_None, FileCreation_CreateAlways, FileAttributes_Normal);
        if (file.Write(header) != header.size())
        {
            throw SectionedConfigData::Exception{0, String::FromError(ERROR_DISK_FULL)};
        }
    }
    catch (StreamBase::Exception const & exception)
    {
        throw SectionedConfigData::Exception{0, exception.text};
    }
}

std::vector<String> ReadSectionNames(String const & path, WCHAR * buffer)
{
    buffer[0] = 0; // some systems leave it alone when the file is in no folder
    SetLastError(ERROR_SUCCESS);
    if (GetPrivateProfileSectionNamesW(buffer, capacity, path.c_str()) == cut)
    {
        ThrowLastError(0);
    }
    std::vector<String> names;
    for (WCHAR const * name = buffer; *name != 0; name += names.back().size() + 1)
    {
        names.emplace_back(name);
    }
    return names;
}

/// The keys in a section's lines, which the platform has trimmed as it likes. Lines that are no keys are passed over.
kv::detail::ConfigKeys KeysIn(WCHAR const * lines)
{
    kv::detail::ConfigKeys keys;
    for (WString line = lines; !line.empty(); line = lines)
    {
        lines += line.size() + 1;
        std::size_t const sign = line.find(TEXT('='));
        if (line[0] != ';' && sign != WString::npos)
        {
            keys.insert_or_assign(line.substr(0, sign), line.substr(sign + 1));
        }
    }
    return keys;
}

/// A section as the profile calls take it. The line end behind the last value makes the empty line between sections.
WString LinesOf(kv::detail::ConfigKeys const & keys)
{
    WString lines;
    auto const entries = kv::detail::InOrder(keys);
    for (auto const * const entry : entries)
    {
        lines += entry->first;
        lines += TEXT('=');
        lines += entry->second;
        if (entry == entries.back())
        {
            lines += TEXT("\r\n");
        }
        lines += WCHAR(0);
    }
    return lines += WCHAR(0);
}

} // namespace

void SectionedConfigData::ReadWindowsProfile(String const & path)
{
    if (!implementation->header.empty())
    {
        CheckHeader(path, implementation->header.Multibyte(CP_ACP));
    }
    auto const buffer = std::make_unique_for_overwrite<WCHAR[]>(capacity);
    for (String const & name : ReadSectionNames(path, buffer.get()))
    {
        ClearSection(name);
        buffer[0] = 0;
        SetLastError(ERROR_SUCCESS);
        if (GetPrivateProfileSectionW(name.c_str(), buffer.get(), capacity, path.c_str()) == cut)
        {
            ThrowLastError(1);
        }
        if (buffer[0] == 0)
        {
            throw Exception{1, String()};
        }
        implementation->sections.insert_or_assign(name, KeysIn(buffer.get()));
    }
}

void SectionedConfigData::WriteWindowsProfile(String const & path) const
{
    if (!implementation->header.empty())
    {
        WriteHeader(path, implementation->header.Multibyte(CP_ACP));
    }
    for (auto const * const section : kv::detail::InOrder(implementation->sections))
    {
        WString const lines = LinesOf(section->second);
        SetLastError(ERROR_SUCCESS);
        if (!WritePrivateProfileSectionW(section->first.c_str(), lines.c_str(), path.c_str()))
        {
            ThrowLastError(0);
        }
    }
}
