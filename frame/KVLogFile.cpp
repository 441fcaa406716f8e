#include <kvcore/frame/KVLogFile.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>

#include <kvcore/core/AsciiBytes.h>
#include <kvcore/files/AsyncFileStream.h>
#include <kvcore/files/RecursiveLock.h>
#include <kvcore/frame/ModuleBase.h>
#include <kvcore/frame/detail/CrashReporter.h>
#include <kvcore/frame/detail/LogLifetime.h>
#include <kvcore/frame/detail/LogLine.h>
#include <kvcore/platform/CoarseClock.h>
#include <kvcore/platform/ModulePaths.h>
#include <kvcore/platform/WriteBehind.h>
#include <kvcore/platform/win32.h>

using kv::detail::LogRing;
using kv::detail::LogText;
using kv::detail::LogTime;

GUID const IID_IKVLogFile = {0x0ABBA202, 0x35FF, 0x4511, {0x84, 0xA8, 0x63, 0xD5, 0x67, 0x6D, 0x3C, 0x04}};

IKVLogFile::~IKVLogFile() = default;

namespace
{

/// The log's own storage, outside the lifetime of anything, so that a call after the end finds an object to talk to.
alignas(KVLogFile) unsigned char storage[sizeof(KVLogFile)];

KVLogFile & TheLog()
{
    return *std::launder(reinterpret_cast<KVLogFile *>(storage));
}

std::size_t constexpr pathLength = 260;
std::size_t constexpr nameLength = 256;
constexpr LogText noModule = TEXT("<---MT--->");

/// The path of the module that holds an address. Found outside the log's lock: the system may take its loader's lock,
/// and those who hold that may log.
class ModulePath
{
public:
    explicit ModulePath(void const * location) : kept(kv::platform::KeptModulePath(location).substr(0, pathLength - 1))
    {
        if (kept.empty())
        {
            DWORD const copied = GetModuleFileNameW(ModuleBase::GetHInstance(location), path, pathLength);
            length = std::min<std::size_t>(copied, pathLength - 1);
        }
    }
    LogText Get() const
    {
        return kept.empty() ? LogText(path, length) : kept;
    }
    /// The text's address, if it stays for good and so tells which it is; else null.
    WCHAR const * Identity() const
    {
        return kept.empty() ? nullptr : kept.data();
    }

private:
    LogText kept;
    WCHAR path[pathLength];
    std::size_t length = 0;
};

/// The name, without folder and extension, of a module. Most lines come from the module that the line before came from.
class ModuleName
{
public:
    /// Whether it is another one than before.
    bool Take(ModulePath const & path)
    {
        WCHAR const * const identity = path.Identity();
        if (identity != nullptr && identity == lastIdentity)
        {
            return false;
        }
        bool const isOther = path.Get() != lastPath;
        if (isOther)
        {
            lastPath = path.Get();
            name[0] = 0;
            _wsplitpath_s(lastPath.c_str(), nullptr, 0, nullptr, 0, name, nameLength, nullptr, 0);
        }
        lastIdentity = identity;
        return isOther;
    }
    LogText Get() const
    {
        return name;
    }

private:
    WString lastPath;
    WCHAR const * lastIdentity = nullptr;
    WCHAR name[nameLength] = {};
};

/// Today's time of day here. Asked of the system once a second, since the answer may take a look at the zone's rules;
/// the line is drawn where the coarse clock shows the next second, some milliseconds late.
class WallClock
{
public:
    /// Whether it shows another second than before.
    bool Look()
    {
        std::uint64_t const second = kv::platform::CoarseTicks() / 10'000'000;
        if (second == shownSecond)
        {
            return false;
        }
        SYSTEMTIME local;
        GetLocalTime(&local);
        shown = {local.wHour, local.wMinute, local.wSecond};
        shownSecond = second;
        return true;
    }
    LogTime const & Shown() const
    {
        return shown;
    }

private:
    std::uint64_t shownSecond = 0;
    LogTime shown = {};
};

bool EndsLine(WCHAR unit)
{
    return (unit == '\r') | (unit == '\n');
}

/// Replaces `bytes` by `text` in the ANSI code page, a stretch at a time: the system counts in 32 bits.
void ToAnsi(LogText text, std::string & bytes)
{
    // ASCII is the same in all of them.
    bytes.resize(text.size());
    if (kv::detail::NarrowAscii(text.data(), text.size(), bytes.data()) == text.size())
    {
        return;
    }
    constexpr std::size_t stretch = 65536;
    constexpr std::size_t longestCharacter = 4; // in bytes; an element never gives more
    std::size_t filled = 0;
    while (!text.empty())
    {
        std::size_t count = std::min(text.size(), stretch);
        if (count < text.size() && (text[count - 1] & 0xFC00) == 0xD800)
        {
            --count; // a pair stays together
        }
        bytes.resize(filled + count * longestCharacter);
        int const room = int(bytes.size() - filled);
        filled += std::size_t(
            WideCharToMultiByte(CP_ACP, 0, text.data(), int(count), bytes.data() + filled, room, nullptr, nullptr));
        text.remove_prefix(count);
    }
    bytes.resize(filled);
}

} // namespace

struct KVLogFile::Log
{
    Log();
    Log(Log const &) = delete;
    Log & operator=(Log const &) = delete;

    void End();
    ULONG IndentOfThread() const;
    void Add(void const * location, LogText text);
    void LookAtClock();
    void TakeName(ModulePath const & path);
    void FormLine(LogText name, ULONG indent, LogText text);
    bool WriteAsciiLine(LogText text);
    void WriteLine(LogText text);
    void WriteAsAnsi(LogText text);
    void WriteBlanks(std::uint64_t count);
    void WritePiece(char const * piece, std::size_t size);

    std::atomic<bool> hasEnded{false}; // set without the lock: busy threads leave it to who ends the log
    std::map<DWORD, ULONG> indents;    // one more for each thread that ever asked for the log
    std::size_t indented = 0;          // how many of them are not 0
    String filename;
    kv::detail::RecursiveLock lock; // guards everything in here
    BasicAsyncFileStream stream;
    char * ringMemory;
    LogRing ring;

    // Kept between lines, to save their memory.
    WallClock clock;
    ModuleName moduleName;
    kv::detail::AsciiLogLine asciiLine; // of that time and name
    WString line;
    std::string bytes;
};

KVLogFile::Log::Log()
    : stream(lock), // which is held whenever something is written
      ringMemory(static_cast<char *>(VirtualAlloc(nullptr, LogRing::size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE))),
      ring(ringMemory)
{
    if (ringMemory == nullptr)
    {
        throw std::bad_alloc();
    }
}

/// Closes the file and frees the ring. All else stays, with the lock above all: other threads may be waiting for it.
void KVLogFile::Log::End()
{
    hasEnded.store(true, std::memory_order_relaxed);
    std::lock_guard const guard(lock);
    if (ringMemory == nullptr)
    {
        return;
    }
    try
    {
        stream.Close();
    }
    catch (StreamBase::Exception const &)
    {
        // Nobody is left who could be told.
    }
    VirtualFree(ringMemory, LogRing::size, MEM_DECOMMIT);
    VirtualFree(ringMemory, 0, MEM_RELEASE);
    ringMemory = nullptr;
}

ULONG KVLogFile::Log::IndentOfThread() const
{
    if (indented == 0)
    {
        return 0; // as nearly always
    }
    auto const found = indents.find(GetCurrentThreadId());
    return found != indents.end() ? found->second : 0;
}

void KVLogFile::Log::LookAtClock()
{
    if (clock.Look())
    {
        asciiLine.SetTime(clock.Shown());
    }
}

void KVLogFile::Log::TakeName(ModulePath const & path)
{
    if (moduleName.Take(path))
    {
        asciiLine.SetName(moduleName.Get());
    }
}

/// Forms the line in `line`.
void KVLogFile::Log::FormLine(LogText name, ULONG indent, LogText text)
{
    line.clear();
    AppendLogLine(line, clock.Shown(), name, indent, text);
}

/// Failures of the stream are dropped: nobody can be told.
void KVLogFile::Log::WritePiece(char const * piece, std::size_t size)
{
    try
    {
        stream.WriteAsync(piece, DWORD(size));
    }
    catch (StreamBase::Exception const &)
    {
    }
}

/// Writes a text that is one line of ASCII, of the module that was taken last, formed where it goes out: nearly every
/// text is one. False, and nothing done, if it is none.
bool KVLogFile::Log::WriteAsciiLine(LogText text)
{
    std::size_t const length = asciiLine.Put(ring.Next(), LogRing::slotSize, IndentOfThread(), text);
    if (length != 0)
    {
        WritePiece(ring.Take(), length);
    }
    return length != 0;
}

void KVLogFile::Log::WriteAsAnsi(LogText text)
{
    ToAnsi(text, bytes);
    ring.Put(bytes, [this](char const * piece, std::size_t size) { WritePiece(piece, size); });
}

void KVLogFile::Log::WriteBlanks(std::uint64_t count)
{
    bytes.assign(std::size_t(std::min<std::uint64_t>(count, LogRing::slotSize)), ' ');
    for (; count != 0; count -= std::min<std::uint64_t>(count, bytes.size()))
    {
        std::string_view const piece(bytes.data(), std::size_t(std::min<std::uint64_t>(count, bytes.size())));
        ring.Put(piece, [this](char const * data, std::size_t size) { WritePiece(data, size); });
    }
}

/// Writes any line. The memory for it is that of its text, however far it is indented.
void KVLogFile::Log::WriteLine(LogText text)
{
    constexpr ULONG mostFormed = 4096;
    constexpr std::size_t headLength = kv::detail::logTimeLength + kv::detail::logNameLength + 1;
    ULONG const indent = IndentOfThread();
    FormLine(moduleName.Get(), indent <= mostFormed ? indent : 0, text);
    kv::platform::WriteGroup const isOneLine;
    if (indent <= mostFormed)
    {
        WriteAsAnsi(line);
        return;
    }
    WriteAsAnsi(LogText(line).substr(0, headLength));
    WriteBlanks(std::uint64_t{2} * indent);
    WriteAsAnsi(LogText(line).substr(headLength));
}

/// Logs each line of a text; nothing while no file is open.
void KVLogFile::Log::Add(void const * location, LogText text)
{
    if (hasEnded.load(std::memory_order_relaxed))
    {
        return;
    }
    ModulePath const path(location);
    std::lock_guard const guard(lock);
    if (!stream.IsOpen())
    {
        return;
    }
    TakeName(path);
    LookAtClock();
    if (WriteAsciiLine(text))
    {
        return;
    }
    for (auto begin = std::find_if_not(text.begin(), text.end(), EndsLine); begin != text.end();)
    {
        auto const end = std::find_if(begin, text.end(), EndsLine);
        LogText const piece(begin, end);
        if (!WriteAsciiLine(piece))
        {
            WriteLine(piece);
        }
        begin = std::find_if_not(end, text.end(), EndsLine);
    }
}

KVLogFile::KVLogFile() : log(new Log) {}

KVLogFile::~KVLogFile()
{
    End();
    delete log;
}

/// Other threads may log at this moment and later: what they use stays, and they find no open file.
void KVLogFile::End()
{
    log->End();
}

kv::detail::LogLifetime::LogLifetime()
{
    new (storage) KVLogFile;
}

kv::detail::LogLifetime::~LogLifetime()
{
    End(TheLog());
}

KVLogFile * kv::detail::LogLifetime::Make()
{
    return new KVLogFile;
}

void kv::detail::LogLifetime::End(KVLogFile & log)
{
    log.End();
}

void kv::detail::LogLifetime::Delete(KVLogFile * log)
{
    delete log;
}

KVLogFile & KVLogFile::Object()
{
    KVLogFile & object = TheLog();
    object.KVLogFile::SetThreadIndent(0);
    return object;
}

HRESULT STDMETHODCALLTYPE KVLogFile::QueryInterface(REFIID iid, void ** object)
{
    *object = nullptr;
    if (iid != IID_IUnknown && iid != IID_IKVLogFile)
    {
        return E_NOINTERFACE;
    }
    *object = static_cast<IKVLogFile *>(this);
    AddRef();
    return S_OK;
}

ULONG STDMETHODCALLTYPE KVLogFile::AddRef()
{
    return 1;
}

ULONG STDMETHODCALLTYPE KVLogFile::Release()
{
    return 1;
}

HRESULT STDMETHODCALLTYPE KVLogFile::SetThreadIndent(ULONG indent)
{
    if (log->hasEnded.load(std::memory_order_relaxed))
    {
        return S_OK;
    }
    std::lock_guard const guard(log->lock);
    ULONG & ofThread = log->indents[GetCurrentThreadId()];
    log->indented = log->indented - (ofThread != 0 ? 1 : 0) + (indent != 0 ? 1 : 0);
    ofThread = indent;
    return S_OK;
}

bool KVLogFile::SetFilename(WCHAR const * name)
{
    std::lock_guard const guard(log->lock);
    if (log->hasEnded || log->stream.IsOpen())
    {
        return false;
    }
    String const path(name);
    log->stream.Open(path, FileAccess_Write, FileShare_Read, FileCreation_CreateAlways, FileAttributes_Normal);
    if (!log->filename.empty())
    {
        return false;
    }
    log->filename = path;
    if (kv::detail::CrashReporter * const reporter = kv::detail::CrashReporter::Current())
    {
        reporter->RegisterFile(path.c_str());
    }
    return true;
}

String KVLogFile::GetFilename()
{
    std::lock_guard const guard(log->lock);
    return log->hasEnded ? String() : log->filename;
}

HRESULT KVLogFile::Reset()
{
    std::lock_guard const guard(log->lock);
    if (!log->stream.IsOpen())
    {
        return E_UNEXPECTED;
    }
    log->stream.Close();
    return SetFilename(log->filename.c_str()) ? S_OK : E_FAIL;
}

// The entries of the log. Each takes the address of its caller first of all, and none may be inlined into that.

[[gnu::noinline]] HRESULT KVLogFile::AddFormattedLine(WCHAR const * format, ...)
{
    void const * const caller = __builtin_return_address(0);
    std::va_list arguments;
    va_start(arguments, format);
    String const text = String::FromFormatV(format, arguments);
    va_end(arguments);
    log->Add(caller, text);
    return S_OK;
}

[[gnu::noinline]] void STDMETHODCALLTYPE KVLogFile::AddLine(String const & text)
{
    void const * const caller = __builtin_return_address(0);
    log->Add(caller, text);
}

namespace
{

/// "EXCEPTION "Foo" (a.cpp, line 12: text)", or without the name.
String ExceptionText(WinException const & exception)
{
    WCHAR name[nameLength] = {};
    WCHAR extension[nameLength] = {};
    _wsplitpath_s(exception.GetFile().c_str(), nullptr, 0, nullptr, 0, name, nameLength, extension, nameLength);
    String text = exception.GetText();
    text.Remove('\r');
    text.Remove('\n');
    if (exception.GetName() != nullptr)
    {
        return String::FromFormat(
            TEXT("EXCEPTION \"%s\" (%s%s, line %i: %s)"), exception.GetName(), name, extension, exception.GetLine(),
            text.c_str());
    }
    return String::FromFormat(
        TEXT("EXCEPTION (%s%s, line %i: %s)"), name, extension, exception.GetLine(), text.c_str());
}

} // namespace

[[gnu::noinline]] void STDMETHODCALLTYPE KVLogFile::AddLine(WinException const & exception)
{
    void const * const caller = __builtin_return_address(0);
    log->Add(caller, ExceptionText(exception));
}

String KVLogFile::GetLogText(void * location, String const & text)
{
    ModulePath const path(location);
    std::lock_guard const guard(log->lock);
    if (log->hasEnded)
    {
        return String();
    }
    log->LookAtClock();
    log->TakeName(path);
    log->FormLine(
        location != nullptr ? log->moduleName.Get() : noModule, text.empty() ? 0 : log->IndentOfThread(), text);
    return String(log->line);
}
