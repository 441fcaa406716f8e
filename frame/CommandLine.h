#pragma once

#include <kvcore/core/String.h>
#include <kvcore/platform/export.h>

/// What a program was started with: a document, and the switches with which a module is asked to register itself. For
/// deriving, to add options. Hand it to ApplicationBase::ParseCommandLine.
///
/// One thread at a time.
class KVCORE_API CommandLine
{
public:
    /// No document, no switches.
    CommandLine();
    CommandLine(CommandLine const & other);
    CommandLine & operator=(CommandLine const & other);
    virtual ~CommandLine();

    /// Whether "regserver" or "unregserver" was given; both may be.
    virtual bool IsRegistering() const;
    virtual bool IsUnregistering() const;

    /// Come before the first and behind the last argument. BeginParse forgets an earlier command line.
    virtual void BeginParse();
    virtual void EndParse();

    /// Takes one argument. An option comes without its prefix. `isLast` tells of the last argument; for derived
    /// classes.
    void Parse(String const & text, bool isOption, bool isLast);

    /// The first argument that is no option and not empty; empty if there is none.
    String const & GetDocPath() const;

protected:
    /// Takes an option: "regserver" and "unregserver" in any case. Others are ignored, silently.
    virtual void ParseOption(String const & option);
    /// Takes any other argument.
    virtual void ParseNonOption(String const & text);

    void SetDefaults();

private:
    String docPath;
    bool registering;
    bool unregistering;
};
