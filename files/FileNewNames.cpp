// Names for files that do not exist yet.

#include <kvcore/files/File.h>

#include <kvcore/files/PathRules.h>
#include <kvcore/platform/ShellNames.h>

#include <kvcore/platform/win32.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <ctime>

using kv::detail::dot;
using kv::detail::PathView;

void File::CleanFilename(String & path, WCHAR replacement)
{
    if (IsDriveRoot(path))
    {
        return;
    }
    String directory = GetDirname(path);
    String name = GetBasename(path, String());
    if (directory.size() == 1 && directory[0] == dot)
    {
        directory.clear();
        name = path;
    }
    WCHAR buffer[MAX_PATH];
    std::size_t const length = std::min<std::size_t>(name.size(), MAX_PATH - 1);
    std::copy_n(name.data(), length, buffer);
    buffer[length] = 0;

    unsigned int const done = kv::platform::CleanupSpec(directory.empty() ? nullptr : directory.c_str(), buffer);
    if (done & (kv::platform::cleanupTruncated | kv::platform::cleanupPathTooLong))
    {
        // Kept: the whole path goes, the directory too.
        path.assign(1, replacement);
    }
    else if (done & (kv::platform::cleanupReplaced | kv::platform::cleanupRemoved))
    {
        path = directory.empty() ? String(buffer) : MakePath(directory, buffer);
    }
}

namespace
{

enum class Vacancy
{
    Free,
    Taken,
    Unknown // the directory is not there, or cannot be asked
};

// Whether a new file may have this name. Nothing may come between the calls: the last error tells.
Vacancy VacancyOf(String const & path)
{
    ::SetLastError(ERROR_SUCCESS);
    DWORD const attributes = ::GetFileAttributesW(path.c_str());
    DWORD const error = ::GetLastError();
    if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND && error != ERROR_ACCESS_DENIED)
    {
        return Vacancy::Unknown;
    }
    return attributes == INVALID_FILE_ATTRIBUTES && error != ERROR_ACCESS_DENIED ? Vacancy::Free : Vacancy::Taken;
}

// Tries what `nextName` gives, in `dir`, until a name is free. Empty if nobody can tell.
template <typename NextName>
String FirstFree(String const & dir, NextName nextName)
{
    for (;;)
    {
        String name = nextName();
        File::CleanFilename(name, '_');
        String const path = File::MakePath(dir, name);
        Vacancy const vacancy = VacancyOf(path);
        if (vacancy == Vacancy::Free)
        {
            return path;
        }
        if (vacancy == Vacancy::Unknown)
        {
            return String();
        }
    }
}

// What the digits at the beginning of a text stand for; at most the largest int, and 0 for no digits.
unsigned int LeadingNumber(PathView text)
{
    unsigned int number = 0;
    for (WCHAR const c : text)
    {
        if (c < '0' || c > '9')
        {
            break;
        }
        unsigned int const digit = static_cast<unsigned int>(c - '0');
        if (number > (INT_MAX - digit) / 10)
        {
            return INT_MAX;
        }
        number = number * 10 + digit;
    }
    return number;
}

// A name as numbered names are made of it: what stands before the number, and the number to start at.
struct NumberedName
{
    explicit NumberedName(String const & name)
    {
        PathView const view = name;
        std::size_t digits = view.size();
        while (digits > 0 && kv::platform::IsDigit(view[digits - 1]))
        {
            --digits;
        }
        if (digits == 0 || view[digits - 1] == dot)
        {
            base = WString(view.substr(0, digits));
            start = LeadingNumber(view.substr(digits));
        }
        else
        {
            // Kept: digits that no dot precedes belong to the name, "take12" is no take number 12.
            base.reserve(view.size() + 1);
            base = name;
            base.push_back(dot);
            start = 1;
        }
    }

    String base;
    unsigned int start;
};

} // namespace

String File::GetNextFilePath(
    String const & dir, String const & name, String const & extension, unsigned int * counter, WCHAR const * format)
{
    NumberedName const numbered(name);
    unsigned int number = counter ? *counter : std::max(numbered.start, 1u);
    String const path = FirstFree(
        dir,
        [&]
        {
            String next = numbered.base;
            next += String::FromFormat(format ? format : TEXT("%04d"), number++);
            next += extension;
            return next;
        });
    if (counter && !path.empty())
    {
        *counter = number;
    }
    return path;
}

String File::GetRandomFilePath(String const & dir, String const & name, String const & extension)
{
    std::srand(static_cast<unsigned int>(std::time(nullptr)));
    // Kept: a name of digits alone is no number to be replaced.
    std::size_t const lastOther = name.find_last_not_of(TEXT("0123456789"));
    String const base = lastOther == String::npos ? name : name.Left(static_cast<unsigned int>(lastOther + 1));
    return FirstFree(
        dir,
        [&]
        {
            // The product may wrap, and the number be negative.
            unsigned int const first = static_cast<unsigned int>(std::rand());
            int const number = static_cast<int>(first * static_cast<unsigned int>(std::rand()));
            return String::FromFormat(TEXT("%s%010d%s"), base.c_str(), number, extension.c_str());
        });
}
