#pragma once

#include <kvcore/core/Exceptions.h>
#include <kvcore/core/String.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/unknown.h>

namespace kv::detail
{
class LogLifetime;
}

/// The log as code sees it that knows it by its interface alone.
class KVCORE_API IKVLogFile : public IUnknown
{
public:
    /// Logs a text in the manner of String::FromFormat (%s takes wide strings). S_OK.
    virtual HRESULT AddFormattedLine(WCHAR const * format, ...) = 0;
    /// How many steps of two blanks the calling thread's lines are moved to the right. S_OK.
    virtual HRESULT STDMETHODCALLTYPE SetThreadIndent(ULONG indent) = 0;

protected:
    virtual ~IKVLogFile();
};

/// 0ABBA202-35FF-4511-84A8-63D5676D3C04
extern KVCORE_API GUID const IID_IKVLogFile;

/// The process's one log: lines of text in one file, each with the time and the name of the module that wrote it:
///
///     [09:05:07] editor       Loaded 12 clips
///
/// The file is text in the ANSI code page with CR LF line ends. There are no levels, no categories and no rotation.
/// While no file is open, lines are formed and dropped.
///
/// The module is that of the code which calls AddLine or AddFormattedLine. It is found by the address to which the call
/// returns, so code that logs must not be compiled to leave by its last call: the library's build targets ask for that
/// (-fno-optimize-sibling-calls).
///
/// Logging does not wait for the disk: the bytes go through a ring of 256 slots of 512 bytes to an asynchronous stream.
/// What that fails to write, on a full disk for instance, is lost without a word. Kept: a slot is used again without a
/// look whether its earlier bytes are on the disk, as 256 slots are far ahead of any; a system that takes over the
/// bytes of a write when it is issued loses nothing however fast the lines come.
///
/// Threads: any thread may log at any time. The lines of one call stay together, and each thread's stay in order. One
/// recursive lock covers everything; it is taken before the stream's own and never after.
class KVCORE_API KVLogFile final : public IKVLogFile
{
public:
    /// The log. It can be called as long as there is code to call it, by any thread, also while and after static
    /// objects are destroyed; then lines are dropped. Kept: sets the calling thread's indent to 0. Who wants an indent
    /// keeps the reference.
    static KVLogFile & Object();

    KVLogFile(KVLogFile const &) = delete;
    KVLogFile & operator=(KVLogFile const &) = delete;

    /// IUnknown and IKVLogFile; E_NOINTERFACE and null for all else.
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) override;
    /// The log is not counted: 1.
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT AddFormattedLine(WCHAR const * format, ...) override;
    HRESULT STDMETHODCALLTYPE SetThreadIndent(ULONG indent) override;

    /// Opens the log file, emptying what is there: a process's log replaces that of the run before. Others may read it
    /// meanwhile. False, and no change, if a file is open. Throws BasicFileStream::Exception if it cannot be opened.
    ///
    /// The first name is stored, and the file registered for crash reports, which needs the application object to be
    /// there. Kept: once a name was stored the result is false, although the new file is open; the stored name stays.
    bool SetFilename(WCHAR const * name);
    /// The stored name; empty before the first SetFilename.
    String GetFilename();
    /// Empties the file: closes it and opens the stored name anew. E_UNEXPECTED if no file is open. Kept: otherwise
    /// E_FAIL, although all went well, since SetFilename says false; it must not be read as failure.
    HRESULT Reset();

    /// Logs a text. Line ends separate lines, of which each gets a stamp; empty ones are left out, so that an empty
    /// text writes nothing. There is no limit of length.
    void STDMETHODCALLTYPE AddLine(String const & text);
    /// Logs an exception: its name if it has one, place and text. Line ends within the text are removed.
    void STDMETHODCALLTYPE AddLine(WinException const & exception);

    /// One finished line with its line end, written by the module that holds `location`; "<---MT--->" if that is null.
    /// Only a line end if the text is empty.
    String GetLogText(void * location, String const & text);

private:
    friend class kv::detail::LogLifetime;
    struct Log;

    KVLogFile();
    ~KVLogFile() override;
    void End();

    Log * const log; ///< what the log has, and keeps after its end
};
