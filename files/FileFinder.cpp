#include <kvcore/files/FileFinder.h>

#include <kvcore/files/File.h>
#include <kvcore/files/FolderSteps.h>

#include <kvcore/platform/win32.h>

FileFinder::IFindCallback::~IFindCallback() = default;

FileFinder::FileFinder() : valid(false), includesDots(false), handle(INVALID_HANDLE_VALUE) {}

FileFinder::FileFinder(String const & pattern, bool includeDots) : FileFinder()
{
    Start(pattern, includeDots);
}

FileFinder::FileFinder(FileFinder const & other) = default;
FileFinder & FileFinder::operator=(FileFinder const & other) = default;

FileFinder::~FileFinder()
{
    Close();
}

void FileFinder::Close()
{
    if (handle != INVALID_HANDLE_VALUE)
    {
        ::FindClose(handle);
        handle = INVALID_HANDLE_VALUE;
    }
}

bool FileFinder::Start(String const & pattern, bool includeDots)
{
    Close();
    searchPath = File::GetDirname(pattern);
    includesDots = includeDots;
    handle = ::FindFirstFileW(pattern.c_str(), *this);
    valid = handle != INVALID_HANDLE_VALUE;
    if (!valid)
    {
        Clear();
        return false;
    }
    return includesDots || !IsDots() || Next();
}

bool FileFinder::Next()
{
    if (handle == INVALID_HANDLE_VALUE)
    {
        return false;
    }
    do
    {
        valid = ::FindNextFileW(handle, *this) != FALSE;
        if (!valid)
        {
            // The reason why there is no next one is the caller's to read.
            DWORD const error = ::GetLastError();
            Clear();
            Close();
            ::SetLastError(error);
            return false;
        }
    } while (!includesDots && IsDots());
    return true;
}

bool FileFinder::IsValid() const
{
    return valid;
}

String FileFinder::GetFilePath() const
{
    return valid ? File::MakePath(searchPath, GetFileName()) : String();
}

String FileFinder::GetFileTitleW() const
{
    return valid ? File::GetFileTitleW(GetFileName()) : String();
}

String FileFinder::GetSearchPath() const
{
    return searchPath;
}

bool FileFinder::FindFilesRecursive(
    String const & dir, String const & mask, IFindCallback & callback, bool includeDirectories)
{
    return kv::detail::WalkFolder(kv::detail::PathFolder{dir}, mask, callback, includeDirectories);
}
