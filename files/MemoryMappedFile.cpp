#include <kvcore/files/MemoryMappedFile.h>

#include <atomic>

#include <kvcore/platform/win32.h>

MemoryMappedFileBase::MemoryMappedFileBase(String const & path, bool writable)
    : forWrite(writable),
      fileHandle(INVALID_HANDLE_VALUE),
      mappingHandle(nullptr),
      viewBase(nullptr),
      memAdr(nullptr),
      memSize(0),
      fileSize(0)
{
    SECURITY_ATTRIBUTES security = {sizeof security, nullptr, FALSE};
    DWORD const access = forWrite ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
    fileHandle = CreateFileW(path.c_str(), access, 0, &security, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (fileHandle == INVALID_HANDLE_VALUE)
    {
        return;
    }
    SetLastError(NO_ERROR); // or an earlier error would be taken for one of a file of 0xFFFFFFFF bytes
    DWORD high = 0;
    DWORD const low = GetFileSize(fileHandle, &high);
    if (low == INVALID_FILE_SIZE && GetLastError() != NO_ERROR)
    {
        unmap(true);
        return;
    }
    fileSize = static_cast<__int64>(static_cast<unsigned __int64>(high) << 32 | low);
    mappingHandle = CreateFileMappingW(fileHandle, &security, forWrite ? PAGE_READWRITE : PAGE_READONLY, 0, 0, nullptr);
    if (mappingHandle == nullptr)
    {
        unmap(true);
    }
}

MemoryMappedFileBase::~MemoryMappedFileBase()
{
    unmap(true);
}

int MemoryMappedFileBase::map(__int64 offset, int size)
{
    unmap(false);
    if (offset < 0 || offset >= fileSize)
    {
        return size != 0 ? -1 : 0;
    }
    __int64 const rest = fileSize - offset;
    __int64 const length = size < 0 || size > rest ? rest : size;
    if (length > 0x7FFFFFFF - 10 * static_cast<__int64>(pageSize())) // room for the arithmetic of addresses
    {
        return -1;
    }
    if (length == 0)
    {
        return 0;
    }
    __int64 const delta = offset % pageSize();
    unsigned __int64 const start = static_cast<unsigned __int64>(offset - delta);
    viewBase = MapViewOfFile(
        mappingHandle, forWrite ? FILE_MAP_WRITE : FILE_MAP_READ, static_cast<DWORD>(start >> 32),
        static_cast<DWORD>(start), static_cast<SIZE_T>(length + delta));
    if (viewBase == nullptr)
    {
        unmap(false);
        return -1;
    }
    memAdr = static_cast<char *>(viewBase) + delta;
    memSize = static_cast<int>(length);
    return memSize;
}

int MemoryMappedFileBase::pageSize()
{
    static std::atomic<int> kept{-1}; // two threads that come first store the same
    int size = kept.load(std::memory_order_relaxed);
    if (size < 0)
    {
        SYSTEM_INFO info;
        GetSystemInfo(&info);
        size = static_cast<int>(info.dwAllocationGranularity);
        kept.store(size, std::memory_order_relaxed);
    }
    return size;
}

void MemoryMappedFileBase::unmap(bool closeFile)
{
    if (viewBase != nullptr)
    {
        UnmapViewOfFile(viewBase);
    }
    viewBase = nullptr;
    memAdr = nullptr;
    memSize = 0;
    if (!closeFile)
    {
        return;
    }
    if (mappingHandle != nullptr)
    {
        CloseHandle(mappingHandle);
        mappingHandle = nullptr;
    }
    if (fileHandle != INVALID_HANDLE_VALUE)
    {
        CloseHandle(fileHandle);
        fileHandle = INVALID_HANDLE_VALUE;
    }
    fileSize = 0;
}

MemoryMappedFileForRead::MemoryMappedFileForRead(String const & path) : MemoryMappedFileBase(path, false) {}
MemoryMappedFileForRead::~MemoryMappedFileForRead() = default;

MemoryMappedFileForWrite::MemoryMappedFileForWrite(String const & path) : MemoryMappedFileBase(path, true) {}
MemoryMappedFileForWrite::~MemoryMappedFileForWrite() = default;
