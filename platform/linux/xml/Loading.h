#pragma once

// Documents read by libxml2, under this layer's rules for what a document may reach and how large it may grow.

#include <memory>
#include <string>

#include <libxml/tree.h>
#include <libxml/xmlerror.h>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// A document of libxml2. All objects that point into it share it.
struct Tree
{
    Tree(xmlDoc * newDocument, bool mayReadFiles) : document(newDocument), files(mayReadFiles) {}
    Tree(Tree const &) = delete;
    Tree & operator=(Tree const &) = delete;
    ~Tree()
    {
        xmlFreeDoc(document);
    }

    xmlDoc * const document;
    bool const files; ///< It may name files to be read.
};
using SharedTree = std::shared_ptr<Tree>;

/// What is wrong with a document. `reason` ends in a line break; `line` and `position` are from 1 on, or 0 for none.
struct Problem
{
    HRESULT code = 0;
    std::string reason;
    std::u16string url;
    int line = 0;
    int position = 0;
};

/// While it lives, what libxml2 and libxslt do on this thread follows this layer's rules: no network, files if `files`
/// says so, and errors are kept here and not printed. The rest of the process that uses them is not touched.
class LibraryScope
{
public:
    explicit LibraryScope(bool mayReadFiles);
    LibraryScope(LibraryScope const &) = delete;
    LibraryScope & operator=(LibraryScope const &) = delete;
    ~LibraryScope();

    bool MayReadFiles() const noexcept
    {
        return files;
    }
    /// Keeps the first error.
    void Note(xmlError const & error) noexcept;
    void Note(char const * text) noexcept;

    bool HasProblem() const noexcept
    {
        return noted;
    }
    /// The first error, or a general one if none was told.
    Problem FirstProblem() const;

private:
    bool const files;
    bool noted = false;
    Problem first;
    LibraryScope * const outer;
    xmlStructuredErrorFunc const outerHandler;
    void * const outerContext;
    xmlGenericErrorFunc const outerPrinter;
    void * const outerPrinterContext;
};

struct LoadOptions
{
    bool files = false;
    bool keepBlanks = false;
    bool ignoreEncoding = false; ///< The text is UTF-8, whatever it declares.
};

/// The document, or null with `problem`.
SharedTree LoadMemory(char const * data, std::size_t size, LoadOptions const & options, Problem & problem);
/// The same of a file by its path or file: URL.
SharedTree LoadFile(WCHAR const * path, LoadOptions const & options, Problem & problem);

} // namespace kv::platform
