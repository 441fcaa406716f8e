#pragma once

// Message boxes, and what little there is of windows on a system without them.

#include <kvcore/platform/include/basetypes.h>

#define MB_OK 0x00000000u
#define MB_OKCANCEL 0x00000001u
#define MB_ABORTRETRYIGNORE 0x00000002u
#define MB_YESNOCANCEL 0x00000003u
#define MB_YESNO 0x00000004u
#define MB_RETRYCANCEL 0x00000005u
#define MB_CANCELTRYCONTINUE 0x00000006u
#define MB_TYPEMASK 0x0000000Fu
#define MB_ICONERROR 0x00000010u
#define MB_ICONQUESTION 0x00000020u
#define MB_ICONWARNING 0x00000030u
#define MB_ICONINFORMATION 0x00000040u
#define MB_DEFBUTTON1 0x00000000u
#define MB_DEFBUTTON2 0x00000100u
#define MB_DEFBUTTON3 0x00000200u
#define MB_DEFMASK 0x00000F00u

#define IDOK 1
#define IDCANCEL 2
#define IDABORT 3
#define IDRETRY 4
#define IDIGNORE 5
#define IDYES 6
#define IDNO 7
#define IDTRYAGAIN 10
#define IDCONTINUE 11

struct HELPINFO;
typedef void(CALLBACK * MSGBOXCALLBACK)(HELPINFO * help);

/// What a message box shows.
struct MSGBOXPARAMSW
{
    UINT cbSize;
    HWND hwndOwner;
    HINSTANCE hInstance;
    LPCWSTR lpszText;
    LPCWSTR lpszCaption; ///< null: "Error"
    DWORD dwStyle;
    LPCWSTR lpszIcon;
    DWORD_PTR dwContextHelpId;
    MSGBOXCALLBACK lpfnMsgBoxCallback;
    DWORD dwLanguageId;
};
static_assert(sizeof(MSGBOXPARAMSW) == 80);

extern "C"
{
    /// Whether a handle is a window's: never.
    KVCORE_API BOOL WINAPI IsWindow(HWND window);

    /// Shows a message and gives the number of the button that ended it (IDOK...). What shows it is the handler that
    /// SetMessageBoxHandler has installed. Without one the message goes to the standard error stream, as "caption:
    /// text", and the answer is the default button's. 0 with ERROR_INVALID_MSGBOX_STYLE for buttons that there are
    /// not. Any thread.
    KVCORE_API int WINAPI MessageBoxIndirectW(MSGBOXPARAMSW const * parameters);
}

namespace kv::platform
{

/// Shows a message in the program's own way and gives the number of the button. Called on the thread that has the
/// message; its texts are none of them null.
using MessageBoxHandler = int (*)(MSGBOXPARAMSW const & parameters);

/// Installs a handler for the process, or none with null. The one that was there before. Any thread.
KVCORE_API MessageBoxHandler SetMessageBoxHandler(MessageBoxHandler handler) noexcept;

} // namespace kv::platform
