#pragma once

#include <libxml/xmlerror.h>

#include "Problem.h"

namespace kv::platform
{

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

} // namespace kv::platform
