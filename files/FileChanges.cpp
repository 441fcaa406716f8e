#include <kvcore/files/File.h>

#include <kvcore/platform/win32.h>

bool File::CopyFileW(String const & from, String const & to, bool failIfExists)
{
    return ::CopyFileW(from.c_str(), to.c_str(), failIfExists) != FALSE;
}

bool File::CreateDirectoryW(String const & path)
{
    DWORD const attributes = ::GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES)
    {
        return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    }
    return ::CreateDirectoryW(path.c_str(), nullptr) != FALSE;
}

bool File::DeleteFileW(String const & path)
{
    return ::DeleteFileW(path.c_str()) != FALSE;
}

bool File::RemoveDirectoryW(String const & path)
{
    return ::RemoveDirectoryW(path.c_str()) != FALSE;
}
