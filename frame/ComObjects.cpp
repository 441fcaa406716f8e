#include <kvcore/frame/detail/ComObjects.h>

#include <kvcore/core/String.h>
#include <kvcore/frame/KVLogFile.h>
#include <kvcore/platform/win32.h>

namespace kv::detail
{

HRESULT CreateInstanceLogged(
    WCHAR const * className, CLSID const & classId, IUnknown * outer, DWORD context, WCHAR const * interfaceName,
    IID const & interfaceId, void ** result)
{
    HRESULT const error = CoCreateInstance(classId, outer, context, interfaceId, result);
    if (FAILED(error))
    {
        // Shows as three lines: the log breaks texts at their line feeds.
        KVLogFile::Object().AddFormattedLine(
            TEXT("ERROR creating COM object %s:%s - Error: 0x%08x (%s)\n  %s=%s\n  %s=%s"), className, interfaceName,
            static_cast<unsigned int>(error), String::FromError(static_cast<DWORD>(error)).c_str(), className,
            String::FromGUID(classId).c_str(), interfaceName, String::FromGUID(interfaceId).c_str());
    }
    return error;
}

} // namespace kv::detail
