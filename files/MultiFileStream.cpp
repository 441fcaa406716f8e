#include <kvcore/files/MultiFileStream.h>

#include <exception>

#include <kvcore/files/AsyncFileStream.h>
#include <kvcore/platform/win32.h>

BasicMultiFileStream::BasicMultiFileStream(
    FileAccessMode accessMode, FileShareMode shareMode, FileCreationMode creationMode, FileAttributes fileAttributes,
    bool asynchronous)
    : maxFileSize(0x7FFFFFFFFFFFFFFF),
      position(0),
      access(accessMode),
      share(shareMode),
      creation(creationMode),
      attributes(fileAttributes),
      async(asynchronous)
{
}

BasicMultiFileStream::~BasicMultiFileStream() noexcept(false)
{
    lastWrite.Run([this] { Reset(); });
}

void BasicMultiFileStream::AddFile(String const & path)
{
    Entry entry{};
    if (async)
    {
        entry.stream = std::make_unique<BasicAsyncFileStream>(path, access, share, creation, attributes);
    }
    else
    {
        entry.stream = std::make_unique<BasicFileStream>(path, access, share, creation, attributes);
    }
    entry.size = entry.stream->GetSize();
    entry.start = GetSize();
    files.push_back(std::move(entry));
}

void BasicMultiFileStream::Close()
{
    for (Entry const & entry : files)
    {
        entry.stream->Close();
    }
}

// One by one and by hand: an asynchronous stream may throw what its last flush threw, which no smart pointer lets out.
void BasicMultiFileStream::Reset()
{
    std::exception_ptr failure;
    while (!files.empty())
    {
        BasicFileStream * const last = files.back().stream.release();
        files.pop_back();
        try
        {
            delete last;
        }
        catch (...)
        {
            failure = failure ? failure : std::current_exception();
        }
    }
    if (failure)
    {
        std::rethrow_exception(failure);
    }
}

__int64 BasicMultiFileStream::GetSize() const
{
    return files.empty() ? 0 : files.back().End();
}

void BasicMultiFileStream::SetPosition(__int64 newPosition)
{
    Locate(newPosition);
}

// The file that `target` lies in, or the last one, with its stream at that place.
BasicMultiFileStream::Entry & BasicMultiFileStream::Locate(__int64 target)
{
    if (files.empty())
    {
        SetLastError(ERROR_INVALID_HANDLE);
        throw BasicFileStream::Exception(ERROR_INVALID_HANDLE);
    }
    auto entry = files.begin();
    while (entry->End() <= target && entry + 1 != files.end())
    {
        ++entry;
    }
    entry->stream->SetPosition(target - entry->start, FileSeek_Begin);
    position = target;
    return *entry;
}

DWORD BasicMultiFileStream::Read(void * data, DWORD count)
{
    DWORD total = 0;
    for (;;)
    {
        Entry & entry = Locate(position);
        __int64 const available = entry.End() - position;
        __int64 const rest = count - total;
        if (available <= 0)
        {
            return total;
        }
        DWORD const part = static_cast<DWORD>(available < rest ? available : rest);
        DWORD const read = entry.stream->Read(static_cast<char *>(data) + total, part);
        position += read;
        total += read;
        if (read < part || total == count)
        {
            return total;
        }
    }
}

// How many bytes can go to `entry` at the position. A file in the middle is overwritten and does not grow.
__int64 BasicMultiFileStream::Room(Entry const & entry) const
{
    if (&entry != &files.back())
    {
        return entry.End() - position;
    }
    // The end may lie beyond 64 bits; the position does not.
    __int64 const offset = position - entry.start;
    return maxFileSize - offset;
}

// Goes on in a further file behind a last one that is full. False, without one, if the position would have no room
// there either: it lies too far behind the end, or the limit leaves no room at all.
bool BasicMultiFileStream::AddFurtherFile()
{
    __int64 const start = files.back().End();
    if (position >= start && maxFileSize <= position - start)
    {
        return false;
    }
    AddFile(File::GetTempFilePath(File::GetDirname(files.back().stream->GetFilePath())));
    return true;
}

DWORD BasicMultiFileStream::Write(void const * data, DWORD count)
{
    DWORD total = 0;
    do
    {
        Entry * entry = &Locate(position);
        __int64 room = Room(*entry);
        if (room <= 0 && AddFurtherFile())
        {
            entry = &Locate(position);
            room = Room(*entry);
        }
        DWORD const rest = count - total;
        DWORD const part = room < rest ? static_cast<DWORD>(room < 0 ? 0 : room) : rest;
        char const * const from = static_cast<char const *>(data) + total;
        DWORD written = part;
        if (async)
        {
            static_cast<BasicAsyncFileStream &>(*entry->stream).WriteAsync(from, part);
        }
        else
        {
            written = entry->stream->Write(from, part);
        }
        if (written == 0)
        {
            return total;
        }
        position += written;
        total += written;
        if (position > entry->End())
        {
            entry->size = position - entry->start;
        }
        if (written < part)
        {
            return total;
        }
    } while (total < count);
    return total;
}

void BasicMultiFileStream::GetFiles(WinStringArray<String> & paths) const
{
    for (Entry const & entry : files)
    {
        paths.push_back(entry.stream->GetFilePath());
    }
}
