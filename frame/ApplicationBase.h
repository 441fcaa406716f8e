#pragma once

#include <kvcore/frame/CommandLine.h>
#include <kvcore/frame/ModuleBase.h>
#include <kvcore/platform/export.h>

/// The frame of a program: a module with an exit code, and the reporter of crashes for its process.
///
/// There is one such object in a process. Make it first of all, before the log gets its file, and end it last: a
/// hardware fault that is translated after its end has no reporter to go to.
///
/// One thread: the process's first, before others are there or after they ended.
class KVCORE_API ApplicationBase : public virtual ModuleBase
{
public:
    /// Exit code 0. Makes the crash reporter.
    ApplicationBase();
    /// Ends the crash reporter.
    ~ApplicationBase() override;

    /// Stores the code with which the program is to end, and returns it.
    virtual int SetExitCode(int code);
    /// Gets everything ready, the command line parsed for instance. False ends the program: Main is left out.
    virtual bool InitInstance();
    /// The program's work.
    virtual void Main();

protected:
    /// Hands the process's arguments, all but its own name, to `commandLine`. Options begin with '-' or '/', which they
    /// lose: "--x" is the option "-x".
    void ParseCommandLine(CommandLine & commandLine) const;

    int GetExitCode() const;

private:
    int exitCode;
};
