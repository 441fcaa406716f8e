#include "ProfileFile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <list>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kvcore/platform/include/directories.h>
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>
#include <kvcore/platform/linux/directories/FileMoves.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/files/FileObject.h>
#include <kvcore/platform/linux/files/Handles.h>
#include <kvcore/platform/linux/paths/NativePath.h>

namespace kv::platform
{

namespace
{

enum class Encoding
{
    Narrow,
    LittleEndian,
    BigEndian,
};

/// A profile in memory with the marks by which its file is known again.
struct KeptProfile
{
    struct stat status;
    /// When the content was last compared with the file's.
    std::time_t compared;
    std::string bytes; ///< The file's, where the text has other units; else empty.
    Encoding encoding;
    ProfileContent content;
};

/// Files that are read by turns are few, and a program's settings are not large.
constexpr std::size_t keptProfiles = 4;
constexpr std::size_t largestKept = 64u << 20;

std::list<KeptProfile> & Kept()
{
    static std::list<KeptProfile> profiles;
    return profiles;
}

/// A file that is open by a handle of the file calls, so that sharing is as theirs.
class OpenProfile
{
public:
    explicit OpenProfile(HANDLE opened) noexcept : handle(opened) {}
    OpenProfile(OpenProfile const &) = delete;
    OpenProfile & operator=(OpenProfile const &) = delete;
    ~OpenProfile()
    {
        if (handle != INVALID_HANDLE_VALUE)
        {
            DWORD const error = GetLastError();
            CloseHandle(handle);
            SetLastError(error);
        }
    }
    explicit operator bool() const noexcept
    {
        return handle != INVALID_HANDLE_VALUE;
    }
    int Descriptor() const
    {
        return LookUp<File>(handle)->descriptor;
    }

private:
    HANDLE handle;
};

class Descriptor
{
public:
    explicit Descriptor(int opened) noexcept : descriptor(opened) {}
    Descriptor(Descriptor const &) = delete;
    Descriptor & operator=(Descriptor const &) = delete;
    ~Descriptor()
    {
        if (descriptor >= 0)
        {
            close(descriptor);
        }
    }
    int Get() const noexcept
    {
        return descriptor;
    }

private:
    int descriptor;
};

WString PathOf(WString const * fileName)
{
    WString name(fileName == nullptr ? TEXT("win.ini") : *fileName);
    return name.find_first_of(TEXT("\\/:")) == name.npos ? TEXT("C:\\Windows\\") + name : name;
}

/// Whether a path names a file, or nothing: opening a pipe would wait for somebody at its other end.
bool IsFile(WCHAR const * path, Look look)
{
    NativePath native;
    if (!native.Translate(path, look))
    {
        return false;
    }
    struct stat status;
    bool const other = native.Exists() && stat(native.CStr(), &status) == 0 && !S_ISREG(status.st_mode);
    return other || native.EndsInSeparator() ? FailWith(ERROR_ACCESS_DENIED) : true;
}

bool ReadAll(int descriptor, std::size_t size, std::string & bytes)
{
    bytes.resize(size);
    std::size_t done = 0;
    while (done < size)
    {
        ssize_t const count = pread(descriptor, bytes.data() + done, size - done, static_cast<off_t>(done));
        if (count < 0 && errno != EINTR)
        {
            return FailErrno();
        }
        if (count == 0)
        {
            break;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    bytes.resize(done);
    return true;
}

bool IsUnchanged(struct stat const & left, struct stat const & right)
{
    auto const same = [](timespec const & a, timespec const & b)
    { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; };
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino && left.st_size == right.st_size &&
        same(left.st_mtim, right.st_mtim) && same(left.st_ctim, right.st_ctim);
}

/// Whether no change after the last comparison can have left the same time stamps: their steps are up to two seconds.
bool IsSettled(KeptProfile const & kept)
{
    return kept.compared > kept.status.st_ctim.tv_sec + 2 && kept.compared > kept.status.st_mtim.tv_sec + 2;
}

std::string_view BytesOf(KeptProfile const & kept)
{
    auto const * const narrow = std::get_if<ProfileText<char>>(&kept.content);
    return narrow != nullptr ? std::string_view(narrow->Whole()) : std::string_view(kept.bytes);
}

std::u16string UnitsOf(std::string_view bytes, Encoding encoding)
{
    std::u16string units((bytes.size() + 1) / 2, u'\0');
    unsigned const low = encoding == Encoding::LittleEndian ? 0 : 1;
    for (std::size_t i = 0; i < bytes.size(); i++)
    {
        unsigned const shift = i % 2 == low ? 0 : 8;
        units[i / 2] = static_cast<char16_t>(units[i / 2] | static_cast<unsigned char>(bytes[i]) << shift);
    }
    return units;
}

std::string BytesOf(std::u16string const & units, Encoding encoding)
{
    std::string bytes(2 * units.size(), '\0');
    unsigned const low = encoding == Encoding::LittleEndian ? 0 : 1;
    for (std::size_t i = 0; i < units.size(); i++)
    {
        bytes[2 * i + low] = static_cast<char>(units[i]);
        bytes[2 * i + 1 - low] = static_cast<char>(units[i] >> 8);
    }
    return bytes;
}

KeptProfile Parse(std::string bytes, struct stat const & status)
{
    std::time_t const now = std::time(nullptr);
    bool const little = bytes.compare(0, 2, "\xFF\xFE") == 0;
    if (little || bytes.compare(0, 2, "\xFE\xFF") == 0)
    {
        Encoding const encoding = little ? Encoding::LittleEndian : Encoding::BigEndian;
        ProfileText<char16_t> text(UnitsOf(bytes, encoding), 1);
        return {status, now, std::move(bytes), encoding, std::move(text)};
    }
    std::size_t const start = bytes.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
    return {status, now, std::string(), Encoding::Narrow, ProfileText<char>(std::move(bytes), start)};
}

/// The profile in an open file, first in the list of those kept. Null with the last error set.
KeptProfile * Load(int descriptor)
{
    struct stat status;
    if (fstat(descriptor, &status) != 0)
    {
        FailErrno();
        return nullptr;
    }
    auto & kept = Kept();
    auto found = kept.begin();
    while (found != kept.end() && (found->status.st_dev != status.st_dev || found->status.st_ino != status.st_ino))
    {
        ++found;
    }
    if (found != kept.end())
    {
        kept.splice(kept.begin(), kept, found);
        if (IsUnchanged(found->status, status) && IsSettled(*found))
        {
            return &*found;
        }
    }
    std::time_t const before = std::time(nullptr);
    std::string bytes;
    if (!ReadAll(descriptor, static_cast<std::size_t>(status.st_size), bytes))
    {
        return nullptr;
    }
    if (found != kept.end() && bytes == BytesOf(*found))
    {
        found->status = status;
        found->compared = before;
        return &*found;
    }
    if (found != kept.end())
    {
        kept.erase(found);
    }
    if (kept.size() >= keptProfiles)
    {
        kept.pop_back();
    }
    kept.push_front(Parse(std::move(bytes), status));
    kept.front().compared = before;
    return &kept.front();
}

/// A profile that has grown beyond what is worth keeping goes with the next one.
void DropLarge()
{
    Kept().remove_if([](KeptProfile const & kept) { return BytesOf(kept).size() > largestKept; });
}

bool WriteAll(int descriptor, std::string_view bytes)
{
    for (std::size_t done = 0; done < bytes.size();)
    {
        ssize_t const count = pwrite(descriptor, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        if (count < 0 && errno != EINTR)
        {
            return FailErrno();
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return true;
}

/// Room first, so that a full disk leaves the old content whole.
bool WriteInPlace(int descriptor, std::string_view bytes)
{
    int const error = bytes.empty() ? 0 : posix_fallocate(descriptor, 0, static_cast<off_t>(bytes.size()));
    if (error != 0 && error != EOPNOTSUPP && error != EINVAL)
    {
        return FailErrno(error);
    }
    return WriteAll(descriptor, bytes) &&
        (ftruncate(descriptor, static_cast<off_t>(bytes.size())) == 0 || FailErrno()) &&
        (fsync(descriptor) == 0 || FailErrno());
}

/// Puts a new file in the place of the old one. `status` becomes that of the new one. The bytes are on the disk before
/// the name is theirs: after a crash the file is the old one or the new one, and whole.
bool Replace(int old, char const * path, std::string_view bytes, struct stat & status)
{
    char aside[PATH_MAX];
    int created = -1;
    if (int const error = CreateBeside(path, aside, created); error != 0)
    {
        bool const closed = error == EACCES || error == EPERM || error == EROFS;
        return closed ? WriteInPlace(old, bytes) && fstat(old, &status) == 0 : FailErrno(error);
    }
    Descriptor const fresh(created);
    bool const owned = fchown(fresh.Get(), status.st_uid, status.st_gid) == 0;
    bool const ready = fchmod(fresh.Get(), status.st_mode & (owned ? 0777u : 0707u)) == 0 || FailErrno();
    if (ready && WriteAll(fresh.Get(), bytes) && (fsync(fresh.Get()) == 0 || FailErrno()))
    {
        if (rename(aside, path) == 0)
        {
            return fstat(fresh.Get(), &status) == 0 || FailErrno();
        }
        FailErrno();
    }
    DWORD const error = GetLastError();
    unlink(aside);
    return FailWith(error);
}

bool Save(KeptProfile & kept, int descriptor, char const * path)
{
    if (auto const * const wide = std::get_if<ProfileText<char16_t>>(&kept.content))
    {
        kept.bytes = BytesOf(wide->Whole(), kept.encoding);
    }
    std::string_view const bytes = BytesOf(kept);
    if (kept.status.st_nlink > 1)
    {
        return WriteInPlace(descriptor, bytes) && (fstat(descriptor, &kept.status) == 0 || FailErrno());
    }
    return Replace(descriptor, path, bytes, kept.status);
}

/// Opens the file and waits until no other process changes it. The file that was waited for may be another's old one by
/// then: null without an error asks for another try.
enum class Hold
{
    Held,
    Again,
    Failed,
};

Hold HoldFile(int descriptor, WCHAR const * path, char (&target)[PATH_MAX])
{
    while (flock(descriptor, LOCK_EX) != 0)
    {
        // A file system without locks has one writer at a time anyway.
        if (errno != EINTR)
        {
            break;
        }
    }
    NativePath native;
    struct stat mine;
    struct stat there;
    if (!native.Translate(path, Look::Existing) || realpath(native.CStr(), target) == nullptr ||
        stat(target, &there) != 0)
    {
        return Hold::Again;
    }
    if (fstat(descriptor, &mine) != 0)
    {
        FailErrno();
        return Hold::Failed;
    }
    return mine.st_dev == there.st_dev && mine.st_ino == there.st_ino ? Hold::Held : Hold::Again;
}

bool ApplyTo(KeptProfile & kept, ProfileChange & change)
{
    return std::visit([&change](auto & text) { return change.Apply(text); }, kept.content);
}

/// A change that is under way. Unless it is kept, a file that was made for it goes again, and what stands in memory but
/// not in the file is forgotten: also where memory runs out in the middle.
class PendingChange
{
public:
    PendingChange(char const * filePath, bool isNew) noexcept : path(filePath), created(isNew) {}
    PendingChange(PendingChange const &) = delete;
    PendingChange & operator=(PendingChange const &) = delete;
    ~PendingChange()
    {
        if (isKept)
        {
            return;
        }
        DWORD const error = GetLastError();
        if (isLoaded)
        {
            Kept().pop_front();
        }
        if (created)
        {
            unlink(path);
        }
        SetLastError(error);
    }
    void NoteLoaded() noexcept
    {
        isLoaded = true;
    }
    void Keep() noexcept
    {
        isKept = true;
    }

private:
    char const * const path;
    bool const created;
    bool isLoaded = false;
    bool isKept = false;
};

/// With the file held: reads, changes, writes. What is kept in memory is what stands in the file, or goes.
bool ChangeHeld(int descriptor, char const * path, bool created, ProfileChange & change)
{
    PendingChange pending(path, created);
    KeptProfile * const kept = Load(descriptor);
    if (kept == nullptr)
    {
        return false;
    }
    pending.NoteLoaded();
    if (ApplyTo(*kept, change) && !Save(*kept, descriptor, path))
    {
        return false;
    }
    pending.Keep();
    return true;
}

} // namespace

std::mutex & ProfileLock() noexcept
{
    static std::mutex lock;
    return lock;
}

ProfileContent const * ReadProfile(WString const * fileName)
{
    WString const path = PathOf(fileName);
    DropLarge();
    if (!IsFile(path.c_str(), Look::Existing))
    {
        return nullptr;
    }
    OpenProfile const file(CreateFileW(
        path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
        FILE_ATTRIBUTE_NORMAL, nullptr));
    KeptProfile * const kept = file ? Load(file.Descriptor()) : nullptr;
    return kept != nullptr ? &kept->content : nullptr;
}

bool ChangeProfile(WString const * fileName, bool create, ProfileChange & change)
{
    // Each further try means that another process has written meanwhile.
    constexpr int mostTries = 10'000;
    WString const path = PathOf(fileName);
    DropLarge();
    for (int i = 0; i < mostTries; i++)
    {
        if (!IsFile(path.c_str(), create ? Look::Creating : Look::Existing))
        {
            return !create && GetLastError() == ERROR_FILE_NOT_FOUND;
        }
        OpenProfile const file(CreateFileW(
            path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
            create ? OPEN_ALWAYS : OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file)
        {
            return !create && GetLastError() == ERROR_FILE_NOT_FOUND;
        }
        bool const created = create && GetLastError() != ERROR_ALREADY_EXISTS;
        char target[PATH_MAX];
        switch (HoldFile(file.Descriptor(), path.c_str(), target))
        {
        case Hold::Held:
            return ChangeHeld(file.Descriptor(), target, created, change);
        case Hold::Failed:
            return false;
        case Hold::Again:
            break;
        }
    }
    return FailWith(ERROR_SHARING_VIOLATION);
}

void ForgetProfiles() noexcept
{
    Kept().clear();
}

} // namespace kv::platform
