// A module of no program's: the tests of the frame are its owner.

#ifdef _WIN32 // what a module exports is said in the platform's own way
#    define FRAME_MODULE_EXPORT __declspec(dllexport)
#else
#    define FRAME_MODULE_EXPORT __attribute__((visibility("default")))
#endif

extern "C" FRAME_MODULE_EXPORT int FrameModuleAnswer()
{
    return 42;
}
