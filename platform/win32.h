#pragma once

// The one header through which the library's sources meet Win32: the system's own headers on Windows, elsewhere those
// of the platform layer, one per area of the interface.

#include <kvcore/platform/types.h>

#ifdef _WIN32
#    ifndef WIN32_LEAN_AND_MEAN
#        define WIN32_LEAN_AND_MEAN
#    endif
#    include <windows.h>

#    include <mmsystem.h>
#    include <objbase.h>
#    include <oleauto.h>
#    include <process.h>
#    include <shellapi.h>
#    include <shlobj.h>
#    include <shlwapi.h>
#    include <stdlib.h>
#    include <tlhelp32.h>
#    include <wchar.h>
#else
#    include <kvcore/platform/include/crt.h>
#    include <kvcore/platform/include/debugapi.h>
#    include <kvcore/platform/include/directories.h>
#    include <kvcore/platform/include/errors.h>
#    include <kvcore/platform/include/faults.h>
#    include <kvcore/platform/include/fileapi.h>
#    include <kvcore/platform/include/libloaderapi.h>
#    include <kvcore/platform/include/memory.h>
#    include <kvcore/platform/include/memoryapi.h>
#    include <kvcore/platform/include/messages.h>
#    include <kvcore/platform/include/mmtimer.h>
#    include <kvcore/platform/include/objbase.h>
#    include <kvcore/platform/include/objidl.h>
#    include <kvcore/platform/include/oleauto.h>
#    include <kvcore/platform/include/overlapped.h>
#    include <kvcore/platform/include/processenv.h>
#    include <kvcore/platform/include/processthreadsapi.h>
#    include <kvcore/platform/include/profileapi.h>
#    include <kvcore/platform/include/session.h>
#    include <kvcore/platform/include/shellapi.h>
#    include <kvcore/platform/include/synchapi.h>
#    include <kvcore/platform/include/sysinfo.h>
#    include <kvcore/platform/include/sysparams.h>
#    include <kvcore/platform/include/threadpool.h>
#    include <kvcore/platform/include/timeapi.h>
#    include <kvcore/platform/include/tlhelp32.h>
#    include <kvcore/platform/include/winnls.h>
#    include <kvcore/platform/include/winreg.h>
#    include <kvcore/platform/include/winuser.h>
#    include <kvcore/platform/include/winver.h>
#endif
