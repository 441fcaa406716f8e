#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <new>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>
#include <kvcore/platform/include/memoryapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/files/FileObject.h>
#include <kvcore/platform/linux/files/OpenFiles.h>
#include <kvcore/platform/linux/memory/Allocations.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

using namespace kv::platform;

namespace
{

constexpr std::uint64_t pageSize = 4096;
constexpr std::uint64_t granularity = 65536;

/// The mark on a file's entry that it is mapped: held by the mapping and by each view of it.
class MappedMark
{
public:
    explicit MappedMark(SharedFile * sharedFile) noexcept : shared(sharedFile)
    {
        if (shared != nullptr)
        {
            HoldShared(*shared);
            shared->mappings.fetch_add(1, std::memory_order_relaxed);
        }
    }
    MappedMark(MappedMark && other) noexcept : shared(std::exchange(other.shared, nullptr)) {}
    ~MappedMark()
    {
        if (shared != nullptr)
        {
            shared->mappings.fetch_sub(1, std::memory_order_relaxed);
            DropShared(*shared);
        }
    }
    SharedFile * Get() const noexcept
    {
        return shared;
    }

private:
    SharedFile * shared;
};

/// What a handle of a mapping names: a file, or memory that has a descriptor of its own.
class Mapping final : public KernelObject
{
public:
    static constexpr ObjectKind kind = ObjectKind::Mapping;

    Mapping(Ref<File> mappedFile, int memoryDescriptor, DWORD pageProtection, std::uint64_t bytes) noexcept
        : KernelObject(kind),
          protection(pageProtection),
          size(bytes),
          mark(mappedFile ? mappedFile->shared : nullptr),
          file(std::move(mappedFile)),
          memory(memoryDescriptor)
    {
    }
    int Descriptor() const noexcept
    {
        return file ? file->descriptor : memory;
    }

    DWORD const protection;
    std::uint64_t const size;
    MappedMark const mark;

private:
    ~Mapping() override
    {
        if (memory >= 0)
        {
            close(memory);
        }
    }

    Ref<File> const file;
    int const memory;
};

struct View
{
    std::uint64_t length;
    MappedMark mark;
};

struct Views
{
    std::mutex mutex;
    std::map<std::uintptr_t, View> byAddress;
};

/// Never destroyed: views are ended by the destructors of other statics, too.
Views & TheViews()
{
    static Views & views = *new Views;
    return views;
}

bool IsProtection(DWORD protection)
{
    DWORD const page = protection & ~SEC_COMMIT;
    return page == PAGE_READONLY || page == PAGE_READWRITE || page == PAGE_WRITECOPY;
}

/// Makes the file as long as the mapping is to be, with the room really there: a view must not find out later.
DWORD Grow(int descriptor, std::uint64_t from, std::uint64_t to)
{
    int result = 0;
    do
    {
        result = fallocate(descriptor, 0, static_cast<off_t>(from), static_cast<off_t>(to - from));
    } while (result != 0 && errno == EINTR);
    if (result != 0 && errno == EOPNOTSUPP)
    {
        result = ftruncate(descriptor, static_cast<off_t>(to));
    }
    if (result == 0)
    {
        return ERROR_SUCCESS;
    }
    return errno == EFBIG ? ERROR_DISK_FULL : ErrorOfErrno(errno);
}

/// The size of a mapping of an open file, or an error.
DWORD MeasureFile(File const & file, DWORD protection, std::uint64_t & size)
{
    struct stat status;
    if (fstat(file.descriptor, &status) != 0)
    {
        return ErrorOfErrno(errno);
    }
    std::uint64_t const there = static_cast<std::uint64_t>(status.st_size);
    if (size == 0)
    {
        size = there;
        return size == 0 ? ERROR_FILE_INVALID : ERROR_SUCCESS;
    }
    if (size <= there)
    {
        return ERROR_SUCCESS;
    }
    if (size >> 63 != 0)
    {
        return (protection & PAGE_READWRITE) != 0 ? ERROR_INVALID_PARAMETER : ERROR_NOT_ENOUGH_MEMORY;
    }
    return (protection & PAGE_READWRITE) != 0 ? Grow(file.descriptor, there, size) : ERROR_NOT_ENOUGH_MEMORY;
}

HANDLE FailHandle(DWORD error)
{
    SetLastError(error);
    return nullptr;
}

HANDLE MakeMapping(Ref<File> file, int memory, DWORD protection, std::uint64_t size)
{
    auto const mapping =
        Ref<Mapping>::Adopt(new (std::nothrow) Mapping(std::move(file), memory, protection & ~SEC_COMMIT, size));
    if (!mapping)
    {
        if (memory >= 0)
        {
            close(memory);
        }
        return FailHandle(ERROR_NOT_ENOUGH_MEMORY);
    }
    HANDLE const handle = HandleTable::Create(*mapping, FILE_MAP_ALL_ACCESS);
    if (handle != nullptr)
    {
        SetLastError(ERROR_SUCCESS);
    }
    return handle;
}

HANDLE MapMemory(DWORD protection, std::uint64_t size)
{
    if (size == 0 || size >> 63 != 0)
    {
        return FailHandle(ERROR_INVALID_PARAMETER);
    }
    int const memory = memfd_create("mapping", MFD_CLOEXEC);
    if (memory < 0 || ftruncate(memory, static_cast<off_t>(size)) != 0)
    {
        DWORD const error = errno == EFBIG ? ERROR_NOT_ENOUGH_MEMORY : ErrorOfErrno(errno);
        if (memory >= 0)
        {
            close(memory);
        }
        return FailHandle(error);
    }
    return MakeMapping({}, memory, protection, size);
}

/// The protection of a view that is asked for. Copying counts where nothing else is asked for.
DWORD ProtectionOfView(DWORD access)
{
    if ((access & FILE_MAP_WRITE) != 0)
    {
        return PAGE_READWRITE;
    }
    if ((access & FILE_MAP_READ) != 0)
    {
        return PAGE_READONLY;
    }
    return (access & FILE_MAP_COPY) != 0 ? PAGE_WRITECOPY : PAGE_NOACCESS;
}

/// Whether a mapping allows such a view. None is one of code.
bool AllowsView(DWORD mapping, DWORD view, DWORD access)
{
    bool const executes = (access & FILE_MAP_EXECUTE) != 0 && view != PAGE_NOACCESS;
    return !executes && (view != PAGE_READWRITE || mapping == PAGE_READWRITE);
}

/// Makes a view known as an allocation of its own.
void TellAllocation(std::uintptr_t begin, std::uintptr_t end, DWORD protection)
{
    Allocations & allocations = TheAllocations();
    std::lock_guard const guard(allocations.mutex);
    allocations.byBase.insert_or_assign(begin, Allocation{end, protection, MEM_MAPPED, {{begin, end}}});
}

/// Maps at an address that is a multiple of the granularity, as programs expect of a view. MAP_FAILED with errno.
void * MapAligned(std::uint64_t length, int pages, int flags, int descriptor, std::uint64_t offset)
{
    std::uint64_t const whole = (length + pageSize - 1) / pageSize * pageSize;
    std::uint64_t const room = whole + granularity;
    void * const reserved = mmap(nullptr, room, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (reserved == MAP_FAILED)
    {
        return MAP_FAILED;
    }
    std::uintptr_t const begin = reinterpret_cast<std::uintptr_t>(reserved);
    std::uintptr_t const aligned = (begin + granularity - 1) / granularity * granularity;
    void * const view = mmap(
        reinterpret_cast<void *>(aligned), length, pages, flags | MAP_FIXED, descriptor, static_cast<off_t>(offset));
    int const error = errno;
    if (view == MAP_FAILED)
    {
        munmap(reserved, room);
        errno = error;
        return MAP_FAILED;
    }
    if (aligned > begin)
    {
        munmap(reserved, aligned - begin);
    }
    munmap(reinterpret_cast<void *>(aligned + whole), begin + room - aligned - whole);
    return view;
}

} // namespace

HANDLE WINAPI
CreateFileMappingW(HANDLE file, LPSECURITY_ATTRIBUTES, DWORD protection, DWORD sizeHigh, DWORD sizeLow, LPCWSTR name)
{
    CheckText(name);
    std::uint64_t size = std::uint64_t{sizeHigh} << 32 | sizeLow;
    if (!IsProtection(protection))
    {
        return FailHandle(ERROR_INVALID_PARAMETER);
    }
    if (name != nullptr)
    {
        return FailHandle(ERROR_NOT_SUPPORTED);
    }
    if (file == INVALID_HANDLE_VALUE)
    {
        return MapMemory(protection, size);
    }
    auto const object = LookUp<File>(file);
    if (!object)
    {
        return nullptr;
    }
    if (object->type != FileType::Disk)
    {
        return FailHandle(ERROR_INVALID_HANDLE);
    }
    DWORD const needed = FILE_READ_DATA | ((protection & PAGE_READWRITE) != 0 ? FILE_WRITE_DATA : 0);
    if ((object.Access() & needed) != needed)
    {
        return FailHandle(ERROR_ACCESS_DENIED);
    }
    DWORD const error = MeasureFile(*object, protection, size);
    if (error != ERROR_SUCCESS)
    {
        return FailHandle(error);
    }
    return MakeMapping(Ref<File>(object.Get()), -1, protection, size);
}

LPVOID WINAPI MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, SIZE_T count)
try
{
    auto const object = LookUp<Mapping>(mapping);
    if (!object)
    {
        return nullptr;
    }
    std::uint64_t const offset = std::uint64_t{offsetHigh} << 32 | offsetLow;
    if (offset % granularity != 0)
    {
        return FailHandle(ERROR_MAPPED_ALIGNMENT);
    }
    if (offset >= object->size)
    {
        return FailHandle(ERROR_INVALID_PARAMETER);
    }
    DWORD const protection = ProtectionOfView(access);
    if (count > object->size - offset || !AllowsView(object->protection, protection, access))
    {
        return FailHandle(ERROR_ACCESS_DENIED);
    }
    std::uint64_t const length = count != 0 ? count : object->size - offset;
    Views & views = TheViews();
    std::lock_guard const guard(views.mutex);
    void * const address = MapAligned(
        length, NativeProtection(protection), protection == PAGE_WRITECOPY ? MAP_PRIVATE : MAP_SHARED,
        object->Descriptor(), offset);
    if (address == MAP_FAILED)
    {
        FailErrno();
        return nullptr;
    }
    std::uintptr_t const begin = reinterpret_cast<std::uintptr_t>(address);
    try
    {
        views.byAddress.emplace(begin, View{length, MappedMark(object->mark.Get())});
        TellAllocation(begin, PageCeiling(begin + length), protection);
    }
    catch (std::bad_alloc const &)
    {
        views.byAddress.erase(begin);
        munmap(address, length);
        throw;
    }
    addressSpaceChanges.fetch_add(1, std::memory_order_release);
    return address;
}
catch (std::bad_alloc const &)
{
    return FailHandle(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL WINAPI UnmapViewOfFile(LPCVOID address)
{
    Views & views = TheViews();
    std::lock_guard const guard(views.mutex);
    auto const view = views.byAddress.find(reinterpret_cast<std::uintptr_t>(address));
    if (view == views.byAddress.end())
    {
        return FailWith(ERROR_INVALID_ADDRESS);
    }
    Allocations & allocations = TheAllocations();
    {
        std::lock_guard const allocationsGuard(allocations.mutex);
        allocations.byBase.erase(view->first);
        munmap(const_cast<void *>(address), view->second.length);
    }
    views.byAddress.erase(view);
    addressSpaceChanges.fetch_add(1, std::memory_order_release);
    return TRUE;
}

BOOL WINAPI FlushViewOfFile(LPCVOID address, SIZE_T count)
{
    std::uintptr_t const place = reinterpret_cast<std::uintptr_t>(address);
    Views & views = TheViews();
    std::lock_guard const guard(views.mutex);
    auto view = views.byAddress.upper_bound(place);
    if (view == views.byAddress.begin())
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    --view;
    std::uint64_t const before = place - view->first;
    std::uint64_t const wholePages = (view->second.length + pageSize - 1) / pageSize * pageSize;
    if (before >= wholePages || count > wholePages - before)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    std::uint64_t const start = before / pageSize * pageSize;
    std::uint64_t const length = (count != 0 ? before + count : wholePages) - start;
    return msync(reinterpret_cast<void *>(view->first + start), length, MS_SYNC) == 0 ? TRUE : FailErrno();
}
