#include "Loading.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlIO.h>
#include <libxslt/xsltutils.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/messages.h>
#include <kvcore/platform/include/objbase.h>
#include <kvcore/platform/include/shellapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/paths/NativePath.h>

#include "Objects.h"

namespace kv::platform
{

namespace
{

constexpr HRESULT documentError = E_FAIL;

thread_local LibraryScope * currentScope = nullptr;

xmlExternalEntityLoader outerLoader = nullptr;
xmlGenericErrorFunc outerXsltError = nullptr;
void * outerXsltContext = nullptr;

bool IsLocal(char const * url)
{
    char const * const scheme = url == nullptr ? nullptr : std::strstr(url, "://");
    return url != nullptr && (scheme == nullptr || std::strncmp(url, "file://", 7) == 0);
}

/// libxml2 has one loader for the process. This one minds the threads that are in a scope, and no others.
xmlParserInput * LoadExternal(char const * url, char const * id, xmlParserCtxt * context)
{
    if (currentScope == nullptr)
    {
        return outerLoader(url, id, context);
    }
    return currentScope->MayReadFiles() && IsLocal(url) ? xmlNoNetExternalEntityLoader(url, id, context) : nullptr;
}

/// So is libxslt's place for errors.
[[gnu::format(printf, 2, 3)]] void NoteXsltError(void *, char const * format, ...)
{
    char text[1024];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (currentScope != nullptr)
    {
        currentScope->Note(text);
    }
    else
    {
        outerXsltError(outerXsltContext, "%s", text);
    }
}

void NoteError(void * scope, xmlError * error)
{
    static_cast<LibraryScope *>(scope)->Note(*error);
}

/// Some messages are printed besides the error that is told.
[[gnu::format(printf, 2, 3)]] void Silence(void *, char const *, ...) {}

void TakePart()
{
    static std::once_flag once;
    std::call_once(
        once,
        []
        {
            xmlInitParser();
            outerLoader = xmlGetExternalEntityLoader();
            xmlSetExternalEntityLoader(LoadExternal);
            outerXsltError = xsltGenericError;
            outerXsltContext = xsltGenericErrorContext;
            xsltSetGenericErrorFunc(nullptr, NoteXsltError);
        });
}

/// Whether an error makes a text no document. libxml2 goes on where a prefix has no namespace; XML's users do not.
bool IsFatal(xmlError const & error)
{
    return error.level == XML_ERR_FATAL ||
        (error.domain == XML_FROM_NAMESPACE && error.code >= XML_NS_ERR_XML_NAMESPACE &&
         error.code <= XML_NS_ERR_COLON);
}

} // namespace

LibraryScope::LibraryScope(bool mayReadFiles)
    : files(mayReadFiles),
      outer(currentScope),
      outerHandler((TakePart(), xmlStructuredError)),
      outerContext(xmlStructuredErrorContext),
      outerPrinter(xmlGenericError),
      outerPrinterContext(xmlGenericErrorContext)
{
    currentScope = this;
    xmlSetStructuredErrorFunc(this, NoteError);
    xmlSetGenericErrorFunc(this, Silence);
}

LibraryScope::~LibraryScope()
{
    xmlSetGenericErrorFunc(outerPrinterContext, outerPrinter);
    xmlSetStructuredErrorFunc(outerContext, outerHandler);
    currentScope = outer;
}

void LibraryScope::Note(xmlError const & error) noexcept
{
    if (noted || error.level < XML_ERR_ERROR || (error.domain == XML_FROM_PARSER && !IsFatal(error)) ||
        (error.domain == XML_FROM_NAMESPACE && !IsFatal(error)) || error.domain == XML_FROM_IO)
    {
        return;
    }
    Note(error.message);
    if (!first.reason.empty() && first.reason.back() != '\n')
    {
        first.reason += '\n';
    }
    first.line = error.line;
    first.position = error.domain == XML_FROM_PARSER || error.domain == XML_FROM_NAMESPACE ? error.int2 : 0;
}

// libxslt tells an error in several parts, of which those that end no line belong together.
void LibraryScope::Note(char const * text) noexcept
{
    if (text == nullptr || (noted && !first.reason.empty() && first.reason.back() == '\n'))
    {
        return;
    }
    Guarded(
        [&]
        {
            first.reason += text;
            return S_OK;
        });
    noted = true;
}

Problem LibraryScope::FirstProblem() const
{
    Problem problem = first;
    problem.code = documentError;
    if (problem.reason.empty())
    {
        problem.reason = "The document could not be read.\n";
    }
    return problem;
}

namespace
{

struct ParserDeleter
{
    void operator()(xmlParserCtxt * context) const
    {
        xmlFreeParserCtxt(context);
    }
};
using Parser = std::unique_ptr<xmlParserCtxt, ParserDeleter>;

int OptionsOf(LoadOptions const & options)
{
    // Not XML_PARSE_HUGE: it lifts the bounds on depth, on sizes and on entities that blow up.
    int bits = XML_PARSE_NOENT | XML_PARSE_NONET | XML_PARSE_BIG_LINES;
    if (options.files)
    {
        bits |= XML_PARSE_DTDLOAD | XML_PARSE_DTDATTR;
    }
    if (!options.keepBlanks)
    {
        bits |= XML_PARSE_NOBLANKS;
    }
    if (options.ignoreEncoding)
    {
        bits |= XML_PARSE_IGNORE_ENC;
    }
    return bits;
}

/// Runs `read` with a parser, and takes its document if it is one.
template <typename Read>
SharedTree Load(LoadOptions const & options, Problem & problem, Read read)
{
    LibraryScope scope(options.files);
    Parser const parser(xmlNewParserCtxt());
    if (!parser)
    {
        throw std::bad_alloc();
    }
    xmlDoc * const document = read(parser.get(), OptionsOf(options));
    if (document == nullptr)
    {
        problem = scope.FirstProblem();
        return nullptr;
    }
    SharedTree const tree = std::make_shared<Tree>(document, options.files);
    if (scope.HasProblem())
    {
        problem = scope.FirstProblem();
        return nullptr;
    }
    return tree;
}

std::string SystemReason(DWORD error)
{
    WCHAR text[512];
    DWORD const length = FormatMessageW(
        FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text, 512, nullptr);
    std::string reason = Utf8Of(text, length);
    while (!reason.empty() && (reason.back() == '\n' || reason.back() == '\r'))
    {
        reason.pop_back();
    }
    return reason + '\n';
}

SharedTree FailToOpen(DWORD error, Problem & problem)
{
    problem.code = static_cast<HRESULT>(0x80070000u | error);
    problem.reason = SystemReason(error);
    return nullptr;
}

class File
{
public:
    explicit File(char const * path) : descriptor(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {}
    File(File const &) = delete;
    File & operator=(File const &) = delete;
    ~File()
    {
        if (descriptor >= 0)
        {
            close(descriptor);
        }
    }
    int const descriptor;
};

/// The path that a file: URL stands for, or the path as it is.
std::u16string PathOf(WCHAR const * source)
{
    if (std::u16string_view(source).substr(0, 5) != u"file:")
    {
        return source;
    }
    WCHAR path[2084];
    DWORD capacity = 2084;
    return SUCCEEDED(PathCreateFromUrlW(source, path, &capacity, 0)) ? path : source;
}

} // namespace

SharedTree LoadMemory(char const * data, std::size_t size, LoadOptions const & options, Problem & problem)
{
    if (size > INT_MAX)
    {
        return FailToOpen(ERROR_FILE_TOO_LARGE, problem);
    }
    return Load(
        options, problem,
        [&](xmlParserCtxt * parser, int bits)
        {
            return xmlCtxtReadMemory(
                parser, size == 0 ? "" : data, static_cast<int>(size), nullptr,
                options.ignoreEncoding ? "UTF-8" : nullptr, bits);
        });
}

SharedTree LoadFile(WCHAR const * source, LoadOptions const & options, Problem & problem)
{
    problem.url = source;
    std::u16string const path = PathOf(source);
    if (path.find(u"://") != std::u16string::npos)
    {
        problem.code = documentError;
        problem.reason = "Documents are not read over the network.\n";
        return nullptr;
    }
    NativePath native;
    if (!native.Translate(path.c_str(), Look::Existing))
    {
        return FailToOpen(GetLastError(), problem);
    }
    File const file(native.CStr());
    struct stat status;
    if (file.descriptor < 0 || fstat(file.descriptor, &status) != 0)
    {
        return FailToOpen(ErrorOfErrno(errno), problem);
    }
    if (!S_ISREG(status.st_mode))
    {
        return FailToOpen(ERROR_ACCESS_DENIED, problem); // as every open of a directory fails
    }
    if (status.st_size > INT_MAX)
    {
        return FailToOpen(ERROR_FILE_TOO_LARGE, problem);
    }
    SharedTree tree = Load(
        options, problem,
        [&](xmlParserCtxt * parser, int bits)
        { return xmlCtxtReadFd(parser, file.descriptor, native.CStr(), nullptr, bits); });
    if (!tree)
    {
        problem.url = source;
    }
    return tree;
}

} // namespace kv::platform
