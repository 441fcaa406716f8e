#pragma once

#include <kvcore/frame/ApplicationBase.h>
#include <kvcore/platform/export.h>

/// A program on a console. Derive from it, override InitInstance and Main, and start it from `main`:
/// ~~~cpp
/// int main()
/// {
///     MyProgram program;
///     return KVRunConsoleApplication(program);
/// }
/// ~~~
class KVCORE_API ConsoleApplication : public ApplicationBase
{
private:
    friend KVCORE_API int KVRunConsoleApplication(ConsoleApplication & application);

    int Run(HINSTANCE program);
};

/// Runs a program and gives its exit code: the module is initialised, then comes InitInstance, and Main if that said
/// true; then the module is freed. Exceptions pass through.
KVCORE_API int KVRunConsoleApplication(ConsoleApplication & application);
