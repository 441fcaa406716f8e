#include <kvcore/files/FileData.h>

#include <kvcore/files/PathRules.h>

#include <kvcore/platform/win32.h>

#include <algorithm>
#include <cstring>

using kv::detail::dot;
using kv::detail::PathView;

namespace
{

constexpr int recordSize = 592;

// Up to the NUL, or all of it.
template <std::size_t Room>
PathView NameIn(WCHAR const (&field)[Room])
{
    return PathView(field, static_cast<std::size_t>(std::find(field, field + Room, WCHAR(0)) - field));
}

bool IsSameName(PathView left, PathView right)
{
    auto const lower = [](WCHAR c) { return c >= 'A' && c <= 'Z' ? static_cast<WCHAR>(c + 32) : c; };
    return std::equal(
        left.begin(), left.end(), right.begin(), right.end(), [&](WCHAR a, WCHAR b) { return lower(a) == lower(b); });
}

} // namespace

FileData::FileData() : WIN32_FIND_DATAW() {}

void FileData::Clear()
{
    static_cast<WIN32_FIND_DATAW &>(*this) = WIN32_FIND_DATAW();
}

String FileData::GetFileName() const
{
    return String(WString(NameIn(cFileName)));
}

String FileData::GetShortFileName() const
{
    return String(WString(NameIn(cAlternateFileName)));
}

String FileData::GetFileExtension() const
{
    PathView const name = NameIn(cFileName);
    std::size_t const last = name.rfind(dot);
    return last == PathView::npos ? String() : String(WString(name.substr(last)));
}

__int64 FileData::GetFileSize() const
{
    return static_cast<__int64>(static_cast<unsigned __int64>(nFileSizeHigh) << 32 | nFileSizeLow);
}

DateTime FileData::GetCreationTime() const
{
    return ftCreationTime;
}

DateTime FileData::GetLastAccessTime() const
{
    return ftLastAccessTime;
}

DateTime FileData::GetLastWriteTime() const
{
    return ftLastWriteTime;
}

bool FileData::IsDirectory() const
{
    return (dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool FileData::IsReadOnly() const
{
    return (dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
}

bool FileData::IsHidden() const
{
    return (dwFileAttributes & FILE_ATTRIBUTE_HIDDEN) != 0;
}

bool FileData::IsSystem() const
{
    return (dwFileAttributes & FILE_ATTRIBUTE_SYSTEM) != 0;
}

bool FileData::IsArchived() const
{
    return (dwFileAttributes & FILE_ATTRIBUTE_ARCHIVE) != 0;
}

bool FileData::IsCompressed() const
{
    return (dwFileAttributes & FILE_ATTRIBUTE_COMPRESSED) != 0;
}

bool FileData::IsLink() const
{
    // Files and directories that merely lie elsewhere (compressed, in a cloud) have tags, too, but not this bit in
    // them. No tag at all is taken for a link, which is the safe side.
    constexpr DWORD standsForAnother = 0x20000000;
    return (dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
        (dwReserved0 == 0 || (dwReserved0 & standsForAnother) != 0);
}

bool FileData::IsDots() const
{
    if (!IsDirectory() || cFileName[0] != dot)
    {
        return false;
    }
    return cFileName[1] == 0 || (cFileName[1] == dot && cFileName[2] == 0);
}

bool FileData::operator==(FileData const & other) const
{
    return dwFileAttributes == other.dwFileAttributes && IsSameName(NameIn(cFileName), NameIn(other.cFileName)) &&
        IsSameName(NameIn(cAlternateFileName), NameIn(other.cAlternateFileName)) &&
        nFileSizeHigh == other.nFileSizeHigh && nFileSizeLow == other.nFileSizeLow &&
        IsEqualFileTime(ftCreationTime, other.ftCreationTime) &&
        IsEqualFileTime(ftLastWriteTime, other.ftLastWriteTime);
}

bool FileData::operator!=(FileData const & other) const
{
    return !(*this == other);
}

bool FileData::IsEqualFileTime(DateTime const & left, DateTime const & right)
{
    __int64 const distance = (left - right).GetTicks();
    if (distance == 0)
    {
        return true;
    }
    // Kept: 32 bits of the distance, and their magnitude read as a signed number. The one value without a magnitude,
    // -2^31, stays itself, and is small.
    unsigned __int64 const magnitude =
        distance < 0 ? 0 - static_cast<unsigned __int64>(distance) : static_cast<unsigned __int64>(distance);
    constexpr std::uint32_t hour = 0x61C46800;
    std::uint32_t const beyondHour = static_cast<std::uint32_t>(magnitude) - hour;
    bool const isNegative = static_cast<std::int32_t>(beyondHour) < 0;
    return static_cast<std::int32_t>(isNegative ? 0 - beyondHour : beyondHour) < 10'000;
}

FileData::operator WIN32_FIND_DATAW *()
{
    return this;
}

OutputStream & operator<<(OutputStream & stream, FileData const & data)
{
    stream.Write(reinterpret_cast<char const *>(&data), recordSize);
    return stream;
}

InputStream & operator>>(InputStream & stream, FileData const & data)
{
    stream.Read(reinterpret_cast<char *>(const_cast<FileData *>(&data)), recordSize);
    return stream;
}
