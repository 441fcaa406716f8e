#include "LibraryScope.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlIO.h>
#include <libxslt/documents.h>
#include <libxslt/xsltutils.h>

#include "Loading.h"
#include "Objects.h"
#include "WorkLimits.h"

namespace kv::platform
{

namespace
{

constexpr HRESULT documentError = E_FAIL;

thread_local LibraryScope * currentScope = nullptr;

xmlExternalEntityLoader outerLoader = nullptr;
xmlGenericErrorFunc outerXsltError = nullptr;
void * outerXsltContext = nullptr;
xsltDocLoaderFunc outerXsltLoader = nullptr;

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

/// The documents that style sheets name are read as all others are.
xmlDoc * LoadForStyleSheet(xmlChar const * url, xmlDict * names, int options, void * context, xsltLoadType type)
{
    if (currentScope == nullptr)
    {
        return outerXsltLoader(url, names, options, context, type);
    }
    xmlDoc * document = nullptr;
    Guarded(
        [&]
        {
            Problem problem;
            bool const allowed = currentScope->MayReadFiles() && IsLocal(reinterpret_cast<char const *>(url));
            SharedTree const tree =
                allowed ? LoadNamed(reinterpret_cast<char const *>(url), {true, true, false}, problem) : nullptr;
            document = tree ? CopyDocument(*tree->document) : nullptr;
            return S_OK;
        });
    return document;
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

void InstallHandlers()
{
    static std::once_flag once;
    std::call_once(
        once,
        []
        {
            InstallAllocator();
            xmlInitParser();
            outerLoader = xmlGetExternalEntityLoader();
            xmlSetExternalEntityLoader(LoadExternal);
            outerXsltError = xsltGenericError;
            outerXsltContext = xsltGenericErrorContext;
            xsltSetGenericErrorFunc(nullptr, NoteXsltError);
            outerXsltLoader = xsltDocDefaultLoader;
            xsltSetLoaderFunc(LoadForStyleSheet);
        });
}

/// Whether an error makes a text no document. libxml2 goes on where a prefix has no namespace; XML's users do not.
bool IsFatal(xmlError const & error)
{
    return error.level == XML_ERR_FATAL ||
        (error.domain == XML_FROM_NAMESPACE && error.code >= XML_NS_ERR_XML_NAMESPACE &&
         error.code <= XML_NS_ERR_COLON);
}

/// Where the element begins that does not follow a schema.
int ColumnOf(xmlError const & error)
{
    auto const * node = static_cast<xmlNode const *>(error.node);
    node = node != nullptr && node->type == XML_ATTRIBUTE_NODE ? node->parent : node;
    return node == nullptr ? 0 : static_cast<int>(NodeMark::Of(node).column);
}

} // namespace

LibraryScope::LibraryScope(bool mayReadFiles)
    : files(mayReadFiles),
      outer(currentScope),
      outerHandler((InstallHandlers(), xmlStructuredError)),
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
    first.position = error.domain == XML_FROM_PARSER || error.domain == XML_FROM_NAMESPACE ? error.int2
        : error.domain == XML_FROM_SCHEMASV                                                ? ColumnOf(error)
                                                                                           : 0;
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

} // namespace kv::platform
