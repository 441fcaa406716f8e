#include <kvcore/files/FileStreams.h>

#include <cstdint>
#include <cstring>

#include <kvcore/platform/win32.h>
#include <kvcore/streams/CopyBytes.h>

namespace
{

DWORD Low(__int64 value)
{
    return static_cast<DWORD>(static_cast<unsigned __int64>(value));
}

DWORD High(__int64 value)
{
    return static_cast<DWORD>(static_cast<unsigned __int64>(value) >> 32);
}

} // namespace

BasicFileStream::Exception::Exception(DWORD systemError)
    : StreamBase::Exception{1, String::FromError(systemError)}, error(systemError)
{
}

BasicFileStream::BasicFileStream() : handle(INVALID_HANDLE_VALUE) {}

BasicFileStream::BasicFileStream(
    String const & newPath, FileAccessMode access, FileShareMode share, FileCreationMode creation,
    FileAttributes attributes)
    : handle(INVALID_HANDLE_VALUE)
{
    BasicFileStream::Open(newPath, access, share, creation, attributes);
}

BasicFileStream::BasicFileStream(BasicFileStream const & other) = default;
BasicFileStream & BasicFileStream::operator=(BasicFileStream const & other) = default;

BasicFileStream::~BasicFileStream() noexcept(false)
{
    BasicFileStream::Close();
}

void BasicFileStream::Open(
    String const & newPath, FileAccessMode access, FileShareMode share, FileCreationMode creation,
    FileAttributes attributes)
{
    if (handle != INVALID_HANDLE_VALUE)
    {
        SetLastError(ERROR_BUSY);
        ThrowException();
    }
    path = newPath;
    handle = CreateFileW(path.c_str(), access, share, nullptr, creation, attributes, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
    {
        ThrowException();
    }
}

void BasicFileStream::Close()
{
    if (handle != INVALID_HANDLE_VALUE)
    {
        CloseHandle(handle);
        handle = INVALID_HANDLE_VALUE;
    }
}

__int64 BasicFileStream::SetPosition(__int64 distance, FileSeekMode mode)
{
    return _SetFilePointer(distance, mode);
}

DWORD BasicFileStream::Read(void * data, DWORD count)
{
    if (count == 0)
    {
        return 0;
    }
    DWORD read = 0;
    if (!ReadFile(handle, data, count, &read, nullptr))
    {
        ThrowException();
    }
    return read;
}

DWORD BasicFileStream::Write(void const * data, DWORD count)
{
    if (count == 0)
    {
        return 0;
    }
    DWORD written = 0;
    if (!WriteFile(handle, data, count, &written, nullptr))
    {
        ThrowException();
    }
    return written;
}

void BasicFileStream::Flush()
{
    if (handle == INVALID_HANDLE_VALUE)
    {
        SetLastError(ERROR_INVALID_HANDLE);
        ThrowException();
    }
    if (!FlushFileBuffers(handle))
    {
        ThrowException();
    }
}

bool BasicFileStream::IsOpen() const
{
    return handle != INVALID_HANDLE_VALUE;
}

DWORD BasicFileStream::Read(std::string & data, DWORD count)
{
    data.resize(count);
    DWORD const read = Read(static_cast<void *>(data.data()), count);
    data.resize(read);
    return read;
}

DWORD BasicFileStream::Write(std::string const & data)
{
    if (data.size() > 0xFFFFFFFFu)
    {
        SetLastError(ERROR_INVALID_PARAMETER); // its size cut to 32 bits would write a part and call it all
        ThrowException();
    }
    return Write(static_cast<void const *>(data.data()), static_cast<DWORD>(data.size()));
}

__int64 BasicFileStream::GetSize() const
{
    SetLastError(NO_ERROR); // or an earlier error would be taken for one of a file of 0xFFFFFFFF bytes
    DWORD high = 0;
    DWORD const low = ::GetFileSize(handle, &high);
    if (low == INVALID_FILE_SIZE && GetLastError() != NO_ERROR)
    {
        ThrowException();
    }
    return static_cast<__int64>(static_cast<unsigned __int64>(high) << 32 | low);
}

__int64 BasicFileStream::GetPosition() const
{
    return _SetFilePointer(0, FILE_CURRENT);
}

void BasicFileStream::Lock(__int64 position, __int64 length)
{
    if (!LockFile(handle, Low(position), High(position), Low(length), High(length)))
    {
        ThrowException();
    }
}

void BasicFileStream::Unlock(__int64 position, __int64 length)
{
    if (!UnlockFile(handle, Low(position), High(position), Low(length), High(length)))
    {
        ThrowException();
    }
}

void BasicFileStream::Lock()
{
    Lock(0, GetSize());
}

void BasicFileStream::Unlock()
{
    Unlock(0, GetSize());
}

void BasicFileStream::GetTimes(DateTime * creation, DateTime * access, DateTime * write) const
{
    FILETIME times[3];
    if (!GetFileTime(
            handle, creation != nullptr ? &times[0] : nullptr, access != nullptr ? &times[1] : nullptr,
            write != nullptr ? &times[2] : nullptr))
    {
        ThrowException();
    }
    DateTime * const targets[] = {creation, access, write};
    for (int i = 0; i < 3; ++i)
    {
        if (targets[i] != nullptr)
        {
            targets[i]->SetFileTime(times[i]);
        }
    }
}

void BasicFileStream::SetTimes(DateTime const * creation, DateTime const * access, DateTime const * write)
{
    FILETIME times[3];
    FILETIME const * given[3] = {};
    DateTime const * const sources[] = {creation, access, write};
    for (int i = 0; i < 3; ++i)
    {
        if (sources[i] != nullptr)
        {
            sources[i]->GetAsFileTime(times[i]);
            given[i] = &times[i];
        }
    }
    if (!SetFileTime(handle, given[0], given[1], given[2]))
    {
        ThrowException();
    }
}

HANDLE BasicFileStream::GetHandle() const
{
    return handle;
}

void BasicFileStream::ThrowException() const
{
    throw Exception(GetLastError());
}

__int64 BasicFileStream::_SetFilePointer(__int64 distance, DWORD mode) const
{
    LARGE_INTEGER from;
    LARGE_INTEGER to;
    from.QuadPart = distance;
    if (!SetFilePointerEx(handle, from, &to, mode))
    {
        ThrowException();
    }
    return to.QuadPart;
}

namespace
{

constexpr DWORD bufferSize = 4096;

/// As CopyBytes, and quick for the pieces of a record, too: a size from 32 to 64 is copied as its first and its last
/// half, which may overlap.
void CopyPiece(char * target, char const * source, DWORD size)
{
    using Quarter = std::uint64_t __attribute__((vector_size(16)));
    constexpr DWORD half = 2 * sizeof(Quarter);
    if (size < half || size > 2 * half)
    {
        kv::detail::CopyBytes(target, source, size);
        return;
    }
    Quarter quarters[4];
    std::memcpy(&quarters[0], source, sizeof(Quarter));
    std::memcpy(&quarters[1], source + sizeof(Quarter), sizeof(Quarter));
    std::memcpy(&quarters[2], source + size - half, sizeof(Quarter));
    std::memcpy(&quarters[3], source + size - sizeof(Quarter), sizeof(Quarter));
    std::memcpy(target, &quarters[0], sizeof(Quarter));
    std::memcpy(target + sizeof(Quarter), &quarters[1], sizeof(Quarter));
    std::memcpy(target + size - half, &quarters[2], sizeof(Quarter));
    std::memcpy(target + size - sizeof(Quarter), &quarters[3], sizeof(Quarter));
}

[[noreturn, gnu::cold]] void ThrowEndOfFile()
{
    throw StreamBase::Exception{5, TEXT("Unexpected end of file")};
}

} // namespace

BufferedFileStream::BufferedFileStream(
    String const & newPath, FileAccessMode access, FileShareMode share, FileCreationMode creation,
    FileAttributes attributes)
    : BasicFileStream(newPath, access, share, creation, attributes),
      buffer(new char[bufferSize]),
      position(0),
      limit(bufferSize)
{
}

BufferedFileStream::BufferedFileStream(BufferedFileStream const & other) = default;
BufferedFileStream & BufferedFileStream::operator=(BufferedFileStream const & other) = default;

BufferedFileStream::~BufferedFileStream() noexcept(false)
{
    delete[] buffer;
}

DWORD BufferedFileStream::Read(void * data, DWORD count)
{
    // Most reads lie within the buffer and leave something in it.
    if (position != 0 && position < limit && count < limit - position)
    {
        char const * const source = buffer + position;
        position += count;
        CopyPiece(static_cast<char *>(data), source, count);
        return count;
    }
    return ReadOn(static_cast<char *>(data), count);
}

// Apart, so that what nearly every read does needs no registers saved.
[[gnu::noinline]] DWORD BufferedFileStream::ReadOn(char * data, DWORD count)
{
    if (count == 0)
    {
        return 0;
    }
    DWORD copied;
    if (position == 0 && (count == bufferSize || count >= 2 * bufferSize))
    {
        // A whole buffer would be filled and handed out at once, and what is left then read past it: one call does
        // both. Not for sizes in between, of which the rest leaves bytes in the buffer.
        copied = BasicFileStream::Read(data, count);
        if (copied == 0 || (copied >= bufferSize && copied < count))
        {
            ThrowEndOfFile();
        }
        limit = copied < bufferSize ? copied : bufferSize;
    }
    else
    {
        if (position == 0)
        {
            limit = BasicFileStream::Read(buffer, bufferSize);
        }
        if (limit <= position)
        {
            ThrowEndOfFile();
        }
        copied = limit - position < count ? limit - position : count;
        kv::detail::CopyBytes(data, buffer + position, copied);
        position = (position + copied) % limit; // a buffer that is used up is refilled from its beginning
    }
    DWORD const rest = count - copied;
    if (rest == 0)
    {
        return count;
    }
    if (rest < limit)
    {
        return copied + Read(static_cast<void *>(data + copied), rest);
    }
    if (BasicFileStream::Read(data + copied, rest) < rest)
    {
        ThrowEndOfFile();
    }
    return count;
}

DWORD BufferedFileStream::Write(void const * data, DWORD count)
{
    if (count <= bufferSize - position)
    {
        char * const target = buffer + position;
        position += count; // Kept: the buffer may be full now, and waits for the next byte
        CopyPiece(target, static_cast<char const *>(data), count);
        return count;
    }
    return WriteOn(static_cast<char const *>(data), count);
}

// For more bytes than the buffer has room for; apart for the same reason.
[[gnu::noinline]] DWORD BufferedFileStream::WriteOn(char const * data, DWORD count)
{
    DWORD const copied = bufferSize - position;
    kv::detail::CopyBytes(buffer + position, data, copied);
    position = bufferSize;
    // Kept: the count that the file took is not looked at, here and below.
    BasicFileStream::Write(buffer, bufferSize);
    position = 0;
    DWORD const rest = count - copied;
    if (rest < bufferSize)
    {
        kv::detail::CopyBytes(buffer, data + copied, rest);
        position = rest;
    }
    else
    {
        BasicFileStream::Write(data + copied, rest);
    }
    return count;
}

void BufferedFileStream::Flush()
{
    BasicFileStream::Write(buffer, position);
    position = 0;
    BasicFileStream::Flush();
}

FileOutputStream::FileOutputStream(String const & newPath, bool append)
    : OutputStream(nullptr),
      BufferedFileStream(
          newPath, FileAccess_Write, FileShare_None, append ? FileCreation_OpenAlways : FileCreation_CreateAlways,
          FileAttributes_SequentialScan)
{
    if (append)
    {
        SetPosition(0, FileSeek_End);
    }
}

FileOutputStream::FileOutputStream(FileOutputStream const & other) : OutputStream(other), BufferedFileStream(other) {}

FileOutputStream & FileOutputStream::operator=(FileOutputStream const & other)
{
    upstream = other.upstream;
    downstream = other.downstream;
    BufferedFileStream::operator=(other);
    return *this;
}

FileOutputStream::~FileOutputStream() noexcept(false)
{
    lastWrite.Run([this] { FlushSelf(); });
}

void FileOutputStream::Write(char const * data, int size)
{
    if (size > 0)
    {
        BufferedFileStream::Write(data, static_cast<DWORD>(size));
    }
}

void FileOutputStream::Flush()
{
    OutputStream::Flush();
}

void FileOutputStream::FlushSelf()
{
    BufferedFileStream::Flush();
}

FileInputStream::FileInputStream(String const & newPath, FileAccessMode extra)
    : InputStream(nullptr),
      BufferedFileStream(
          newPath, FileAccess_Read | extra, FileShare_Read, FileCreation_OpenExisting, FileAttributes_SequentialScan)
{
}

FileInputStream::FileInputStream(FileInputStream const & other) : InputStream(other), BufferedFileStream(other) {}

FileInputStream & FileInputStream::operator=(FileInputStream const & other)
{
    source = other.source;
    BufferedFileStream::operator=(other);
    return *this;
}

FileInputStream::~FileInputStream() noexcept(false) {}

void FileInputStream::Read(char * data, int size)
{
    if (size > 0)
    {
        BufferedFileStream::Read(data, static_cast<DWORD>(size));
    }
}
