// A plug-in, loaded by the tests of modules.

#ifdef _WIN32 // A module without a library of the tree has no macro for this.
#    define EXPORTED __declspec(dllexport)
#else
#    define EXPORTED __attribute__((visibility("default")))
#endif

extern "C" EXPORTED int TestModuleAnswer()
{
    return 42;
}
