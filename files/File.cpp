#include <kvcore/files/File.h>

#include <kvcore/platform/win32.h>

File::File() = default;
File::File(File const & other) = default;
File & File::operator=(File const & other) = default;
File::~File() = default;

String File::GetFilePath() const
{
    return path;
}

String File::GetBasename() const
{
    return GetBasename(path, String());
}

String File::GetDirname() const
{
    return GetDirname(path);
}

String File::GetFileExtension() const
{
    return GetFileExtension(path);
}

String File::GetFileTitleW() const
{
    return GetFileTitleW(path);
}

String File::GetFilePathWithoutExtension() const
{
    return GetFilePathWithoutExtension(path);
}

String File::GetShortPath() const
{
    return GetShortPath(path);
}

bool File::FileExists(String const & path)
{
    return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool File::IsDirectory(String const & path)
{
    DWORD const attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

namespace
{

bool GetFileData(String const & path, WIN32_FILE_ATTRIBUTE_DATA & data)
{
    return ::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) &&
        (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

} // namespace

__int64 File::GetFileSize(String const & path)
{
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileData(path, data))
    {
        return 0;
    }
    return static_cast<__int64>(static_cast<unsigned __int64>(data.nFileSizeHigh) << 32 | data.nFileSizeLow);
}

bool File::GetLastWriteTime(String const & path, FILETIME & time)
{
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileData(path, data))
    {
        return false;
    }
    time = data.ftLastWriteTime;
    return true;
}
