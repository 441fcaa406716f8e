#include <cerrno>
#include <cstdio>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kvcore/platform/include/directories.h>
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/files/FileObject.h>
#include <kvcore/platform/linux/files/OpenFiles.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/NativePath.h>

using namespace kv::platform;

namespace
{

constexpr DWORD readRights = FILE_READ_DATA | FILE_EXECUTE;
constexpr DWORD writeRights = FILE_WRITE_DATA | FILE_APPEND_DATA;
constexpr DWORD shareRights = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// Closes unless the descriptor is taken.
class Descriptor
{
public:
    explicit Descriptor(int openDescriptor = -1) noexcept : descriptor(openDescriptor) {}
    Descriptor(Descriptor && other) noexcept : descriptor(other.Take()) {}
    Descriptor & operator=(Descriptor && other) noexcept
    {
        std::swap(descriptor, other.descriptor);
        return *this;
    }
    ~Descriptor()
    {
        if (descriptor >= 0)
        {
            int const error = errno;
            close(descriptor);
            errno = error;
        }
    }
    int Get() const noexcept
    {
        return descriptor;
    }
    int Take() noexcept
    {
        return std::exchange(descriptor, -1);
    }
    explicit operator bool() const noexcept
    {
        return descriptor >= 0;
    }

private:
    int descriptor;
};

/// What a call of CreateFileW asks for.
struct Request
{
    DWORD access;
    DWORD share;
    DWORD disposition;
    DWORD flags;

    bool Wants(DWORD rights) const
    {
        return (access & rights) != 0;
    }
    bool Has(DWORD flag) const
    {
        return (flags & flag) != 0;
    }
    bool MayCreate() const
    {
        return disposition == CREATE_NEW || disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS;
    }
    bool Empties() const
    {
        return disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING;
    }
};

DWORD SpecificRights(DWORD access)
{
    DWORD rights = access & FILE_ALL_ACCESS;
    rights |= (access & GENERIC_READ) != 0 ? FILE_GENERIC_READ : 0;
    rights |= (access & GENERIC_WRITE) != 0 ? FILE_GENERIC_WRITE : 0;
    rights |= (access & GENERIC_EXECUTE) != 0 ? FILE_GENERIC_EXECUTE : 0;
    rights |= (access & (GENERIC_ALL | MAXIMUM_ALLOWED)) != 0 ? FILE_ALL_ACCESS : 0;
    return rights | SYNCHRONIZE | FILE_READ_ATTRIBUTES;
}

bool IsValid(DWORD access, DWORD share, DWORD disposition)
{
    return disposition >= CREATE_NEW && disposition <= TRUNCATE_EXISTING && (share & ~shareRights) == 0 &&
        (disposition != TRUNCATE_EXISTING || (SpecificRights(access) & FILE_WRITE_DATA) != 0);
}

/// Opens without a wait for somebody at the other end of a pipe or a line: names are opened because a folder lists
/// them.
int OpenAtOnce(char const * path, int flags)
{
    int const descriptor = open(path, flags | O_NONBLOCK);
    // A file that another program has to give way for first is waited for.
    return descriptor < 0 && errno == EWOULDBLOCK ? open(path, flags) : descriptor;
}

/// Transfers wait, as always. To a file on a disk the flag means nothing.
void LetTransfersWait(int descriptor, struct stat const & status)
{
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))
    {
        fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
    }
}

/// Opens a name that is there. A descriptor that can be read, too, is better even for who only writes: locks for open
/// files need it.
Descriptor OpenThere(char const * path, Request const & request)
{
    int common = O_CLOEXEC | O_NOCTTY | (request.Has(FILE_FLAG_WRITE_THROUGH) ? O_DSYNC : 0);
    if (!request.Wants(writeRights))
    {
        // Who only asks for attributes needs no right to read.
        bool const attributesOnly = !request.Wants(readRights);
        Descriptor file(OpenAtOnce(path, O_RDONLY | common));
        if (!file && attributesOnly && (errno == EACCES || errno == EPERM || errno == ENXIO))
        {
            file = Descriptor(open(path, O_PATH | O_CLOEXEC));
        }
        return file;
    }
    common |= request.Wants(FILE_WRITE_DATA) ? 0 : O_APPEND;
    Descriptor file(OpenAtOnce(path, O_RDWR | common));
    if (!file && (errno == EACCES || errno == EPERM) && !request.Wants(readRights))
    {
        file = Descriptor(OpenAtOnce(path, O_WRONLY | common));
    }
    if (!file && errno == EISDIR && request.Has(FILE_FLAG_BACKUP_SEMANTICS))
    {
        file = Descriptor(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    return file;
}

Descriptor OpenNew(char const * path, Request const & request, bool exclusive)
{
    int const flags = O_CREAT | O_CLOEXEC | O_NOCTTY | (exclusive ? O_EXCL : 0) |
        (request.Wants(writeRights) ? O_RDWR : O_RDONLY) |
        (request.Wants(FILE_APPEND_DATA) && !request.Wants(FILE_WRITE_DATA) ? O_APPEND : 0) |
        (request.Has(FILE_FLAG_WRITE_THROUGH) ? O_DSYNC : 0);
    // What is temporary is nobody else's to read.
    mode_t const mode = request.Has(FILE_ATTRIBUTE_TEMPORARY) ? 0600 : 0666;
    return Descriptor(open(path, flags, request.Has(FILE_ATTRIBUTE_READONLY) ? mode & 0444u : mode));
}

/// Opens or creates by the disposition. Sets `created`; without a result, the last error.
Descriptor OpenByDisposition(NativePath & path, Request const & request, bool & created)
{
    created = false;
    if (request.disposition != CREATE_NEW)
    {
        Descriptor file = OpenThere(path.CStr(), request);
        if (file || (errno != ENOENT && errno != ENOTDIR))
        {
            file ? void() : void(FailErrno());
            return file;
        }
    }
    // It is not there as it is spelled, or not at all.
    if (!path.Resolve(request.MayCreate() ? Look::Creating : Look::Existing))
    {
        return Descriptor();
    }
    if (request.disposition != CREATE_NEW && path.Exists())
    {
        Descriptor file = OpenThere(path.CStr(), request);
        if (file || !request.MayCreate() || errno != ENOENT)
        {
            file ? void() : void(FailErrno());
            return file;
        }
    }
    if (request.disposition == CREATE_NEW && path.Exists())
    {
        FailWith(ERROR_FILE_EXISTS);
        return Descriptor();
    }
    if (path.EndsInSeparator())
    {
        FailWith(ERROR_INVALID_NAME);
        return Descriptor();
    }
    created = true;
    Descriptor file = OpenNew(path.CStr(), request, true);
    if (!file && errno == EEXIST && request.disposition != CREATE_NEW)
    {
        // Somebody was faster, or the name is a link to what is not there yet.
        created = false;
        file = OpenThere(path.CStr(), request);
        if (!file && errno == ENOENT)
        {
            created = true;
            file = OpenNew(path.CStr(), request, false);
        }
    }
    if (!file)
    {
        errno == ENOENT ? FailWith(ERROR_PATH_NOT_FOUND) : FailErrno();
    }
    return file;
}

FileType TypeOf(struct stat const & status)
{
    switch (status.st_mode & S_IFMT)
    {
    case S_IFREG:
    case S_IFBLK:
        return FileType::Disk;
    case S_IFDIR:
        return FileType::Directory;
    case S_IFIFO:
    case S_IFSOCK:
        return FileType::Pipe;
    default:
        return FileType::Character;
    }
}

/// What speaks against opening this, before anything is changed. ERROR_SUCCESS if nothing does.
DWORD CheckKind(NativePath const & path, Request const & request, struct stat const & status)
{
    if (S_ISDIR(status.st_mode))
    {
        if (!request.Has(FILE_FLAG_BACKUP_SEMANTICS) || request.disposition == TRUNCATE_EXISTING)
        {
            return ERROR_ACCESS_DENIED;
        }
        return request.disposition == CREATE_ALWAYS ? ERROR_FILE_EXISTS : ERROR_SUCCESS;
    }
    if (path.EndsInSeparator())
    {
        return ERROR_INVALID_NAME;
    }
    // The superuser is refused like everybody: the attribute is not a matter of rights.
    bool const readOnly = S_ISREG(status.st_mode) && (status.st_mode & 0222) == 0;
    bool const changes = request.Wants(writeRights) || request.Empties() || request.Has(FILE_FLAG_DELETE_ON_CLOSE);
    return readOnly && changes ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

/// A pipe that is only written to must not have its reader in the writer.
Descriptor AsWriterOnly(Descriptor file, Request const & request, struct stat const & status)
{
    if (!S_ISFIFO(status.st_mode) || !request.Wants(writeRights) || request.Wants(readRights))
    {
        return file;
    }
    char link[40];
    std::snprintf(link, sizeof(link), "/proc/self/fd/%d", file.Get());
    Descriptor writer(open(link, O_WRONLY | O_CLOEXEC));
    return writer ? std::move(writer) : std::move(file);
}

/// Empties an existing file and gives it the attributes of a new one, as its disposition says.
DWORD Empty(File const & file, Request const & request, struct stat const & status)
{
    if (!S_ISREG(status.st_mode))
    {
        return ERROR_SUCCESS;
    }
    if (file.shared != nullptr && file.shared->mappings.load(std::memory_order_relaxed) != 0)
    {
        return ERROR_USER_MAPPED_FILE;
    }
    int result = 0;
    if (status.st_size != 0)
    {
        // A handle that may only read has a descriptor that cannot cut.
        char link[40];
        std::snprintf(link, sizeof(link), "/proc/self/fd/%d", file.descriptor);
        result = request.Wants(writeRights) ? ftruncate(file.descriptor, 0) : truncate(link, 0);
    }
    if (result == 0 && request.disposition == CREATE_ALWAYS && request.Has(FILE_ATTRIBUTE_READONLY))
    {
        result = fchmod(file.descriptor, status.st_mode & 07555);
    }
    return result == 0 ? ERROR_SUCCESS : ErrorOfErrno(errno);
}

/// Makes the kernel object of an open descriptor, or sets the last error.
HANDLE MakeHandle(Descriptor descriptor, Request const & request, struct stat const & status, bool created)
{
    FileType const type = TypeOf(status);
    int const number = descriptor.Get();
    auto const file =
        Ref<File>::Adopt(new (std::nothrow) File(number, type, request.access, request.share, request.flags));
    if (!file)
    {
        FailWith(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    descriptor.Take();
    DWORD error = ERROR_SUCCESS;
    if (type == FileType::Disk || type == FileType::Directory)
    {
        error = EnterOpenFile(*file, status);
    }
    if (error == ERROR_SUCCESS && !created && request.Empties())
    {
        error = Empty(*file, request, status);
    }
    if (error != ERROR_SUCCESS)
    {
        file->AbandonDeletion();
        FailWith(error);
        return nullptr;
    }
    HANDLE const handle = HandleTable::Create(*file, request.access);
    if (handle == nullptr)
    {
        file->AbandonDeletion();
    }
    return handle;
}

} // namespace

HANDLE WINAPI CreateFileW(
    LPCWSTR name, DWORD access, DWORD shareMode, LPSECURITY_ATTRIBUTES, DWORD disposition, DWORD flagsAndAttributes,
    HANDLE)
{
    CheckText(name);
    NativePath path;
    if (name == nullptr || name[0] == 0)
    {
        FailWith(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    if (!IsValid(access, shareMode, disposition))
    {
        FailWith(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    Request request = {SpecificRights(access), shareMode, disposition, flagsAndAttributes};
    if (request.Has(FILE_FLAG_DELETE_ON_CLOSE))
    {
        request.access |= DELETE;
    }
    if (!path.Spell(name))
    {
        return INVALID_HANDLE_VALUE;
    }
    bool created = false;
    Descriptor descriptor = OpenByDisposition(path, request, created);
    if (!descriptor && (access & MAXIMUM_ALLOWED) != 0 && GetLastError() == ERROR_ACCESS_DENIED)
    {
        request.access &= ~writeRights;
        descriptor = OpenByDisposition(path, request, created);
    }
    struct stat status;
    if (!descriptor)
    {
        return INVALID_HANDLE_VALUE;
    }
    if (fstat(descriptor.Get(), &status) != 0)
    {
        FailErrno();
        return INVALID_HANDLE_VALUE;
    }
    LetTransfersWait(descriptor.Get(), status);
    DWORD const error = created ? ERROR_SUCCESS : CheckKind(path, request, status);
    if (error != ERROR_SUCCESS)
    {
        FailWith(error);
        return INVALID_HANDLE_VALUE;
    }
    descriptor = AsWriterOnly(std::move(descriptor), request, status);
    HANDLE const handle = MakeHandle(std::move(descriptor), request, status, created);
    if (handle == nullptr)
    {
        return INVALID_HANDLE_VALUE;
    }
    bool const tellsExisting = disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS;
    SetLastError(!created && tellsExisting ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return handle;
}
