#include <algorithm>
#include <cstring>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/sysparams.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/system/ParameterStore.h>

using namespace kv::platform;

namespace
{

enum class Meaning
{
    Flag,
    Number,
};

/// How the value of a set action travels.
enum class Travels
{
    AsArgument,
    AsPointer,
};

struct Parameter
{
    UINT getAction;
    UINT setAction;
    Travels travels;
    Meaning meaning;
    DWORD initial;
};

constexpr Parameter parameters[] = {
    {SPI_GETBEEP, SPI_SETBEEP, Travels::AsArgument, Meaning::Flag, 1},
    {SPI_GETBORDER, SPI_SETBORDER, Travels::AsArgument, Meaning::Number, 1},
    {SPI_GETKEYBOARDSPEED, SPI_SETKEYBOARDSPEED, Travels::AsArgument, Meaning::Number, 31},
    {SPI_GETSCREENSAVETIMEOUT, SPI_SETSCREENSAVETIMEOUT, Travels::AsArgument, Meaning::Number, 300},
    {SPI_GETSCREENSAVEACTIVE, SPI_SETSCREENSAVEACTIVE, Travels::AsArgument, Meaning::Flag, 1},
    {SPI_GETKEYBOARDDELAY, SPI_SETKEYBOARDDELAY, Travels::AsArgument, Meaning::Number, 1},
    {SPI_GETICONTITLEWRAP, SPI_SETICONTITLEWRAP, Travels::AsArgument, Meaning::Flag, 1},
    {SPI_GETMENUDROPALIGNMENT, SPI_SETMENUDROPALIGNMENT, Travels::AsArgument, Meaning::Flag, 0},
    {SPI_GETDRAGFULLWINDOWS, SPI_SETDRAGFULLWINDOWS, Travels::AsArgument, Meaning::Flag, 0},
    {SPI_GETKEYBOARDPREF, SPI_SETKEYBOARDPREF, Travels::AsArgument, Meaning::Flag, 1},
    {SPI_GETSCREENREADER, SPI_SETSCREENREADER, Travels::AsArgument, Meaning::Flag, 0},
    {SPI_GETFONTSMOOTHING, SPI_SETFONTSMOOTHING, Travels::AsArgument, Meaning::Flag, 1},
    {SPI_GETLOWPOWERTIMEOUT, SPI_SETLOWPOWERTIMEOUT, Travels::AsArgument, Meaning::Number, 0},
    {SPI_GETPOWEROFFTIMEOUT, SPI_SETPOWEROFFTIMEOUT, Travels::AsArgument, Meaning::Number, 0},
    {SPI_GETLOWPOWERACTIVE, SPI_SETLOWPOWERACTIVE, Travels::AsArgument, Meaning::Flag, 0},
    {SPI_GETPOWEROFFACTIVE, SPI_SETPOWEROFFACTIVE, Travels::AsArgument, Meaning::Flag, 0},
    {SPI_GETMOUSETRAILS, SPI_SETMOUSETRAILS, Travels::AsArgument, Meaning::Number, 0},
    {SPI_GETSNAPTODEFBUTTON, SPI_SETSNAPTODEFBUTTON, Travels::AsArgument, Meaning::Flag, 0},
    {SPI_GETMOUSEHOVERWIDTH, SPI_SETMOUSEHOVERWIDTH, Travels::AsArgument, Meaning::Number, 4},
    {SPI_GETMOUSEHOVERHEIGHT, SPI_SETMOUSEHOVERHEIGHT, Travels::AsArgument, Meaning::Number, 4},
    {SPI_GETMOUSEHOVERTIME, SPI_SETMOUSEHOVERTIME, Travels::AsArgument, Meaning::Number, 400},
    {SPI_GETWHEELSCROLLLINES, SPI_SETWHEELSCROLLLINES, Travels::AsArgument, Meaning::Number, 3},
    {SPI_GETMENUSHOWDELAY, SPI_SETMENUSHOWDELAY, Travels::AsArgument, Meaning::Number, 400},
    {SPI_GETWHEELSCROLLCHARS, SPI_SETWHEELSCROLLCHARS, Travels::AsArgument, Meaning::Number, 3},
    {SPI_GETMOUSESPEED, SPI_SETMOUSESPEED, Travels::AsPointer, Meaning::Number, 10},
    {SPI_GETACTIVEWINDOWTRACKING, SPI_SETACTIVEWINDOWTRACKING, Travels::AsPointer, Meaning::Flag, 0},
    {SPI_GETMENUANIMATION, SPI_SETMENUANIMATION, Travels::AsPointer, Meaning::Flag, 0},
    {SPI_GETCOMBOBOXANIMATION, SPI_SETCOMBOBOXANIMATION, Travels::AsPointer, Meaning::Flag, 0},
    {SPI_GETLISTBOXSMOOTHSCROLLING, SPI_SETLISTBOXSMOOTHSCROLLING, Travels::AsPointer, Meaning::Flag, 0},
    {SPI_GETGRADIENTCAPTIONS, SPI_SETGRADIENTCAPTIONS, Travels::AsPointer, Meaning::Flag, 1},
    {SPI_GETKEYBOARDCUES, SPI_SETKEYBOARDCUES, Travels::AsPointer, Meaning::Flag, 1},
    {SPI_GETHOTTRACKING, SPI_SETHOTTRACKING, Travels::AsPointer, Meaning::Flag, 0},
    {SPI_GETMENUFADE, SPI_SETMENUFADE, Travels::AsPointer, Meaning::Flag, 0},
    {SPI_GETTOOLTIPANIMATION, SPI_SETTOOLTIPANIMATION, Travels::AsPointer, Meaning::Flag, 0},
    {SPI_GETCURSORSHADOW, SPI_SETCURSORSHADOW, Travels::AsPointer, Meaning::Flag, 0},
    {SPI_GETFLATMENU, SPI_SETFLATMENU, Travels::AsPointer, Meaning::Flag, 1},
    {SPI_GETDROPSHADOW, SPI_SETDROPSHADOW, Travels::AsPointer, Meaning::Flag, 0},
    {SPI_GETUIEFFECTS, SPI_SETUIEFFECTS, Travels::AsPointer, Meaning::Flag, 1},
    {SPI_GETCLIENTAREAANIMATION, SPI_SETCLIENTAREAANIMATION, Travels::AsPointer, Meaning::Flag, 1},
    {SPI_GETCLEARTYPE, SPI_SETCLEARTYPE, Travels::AsPointer, Meaning::Flag, 1},
    {SPI_GETFOREGROUNDLOCKTIMEOUT, SPI_SETFOREGROUNDLOCKTIMEOUT, Travels::AsPointer, Meaning::Number, 0},
    {SPI_GETFOREGROUNDFLASHCOUNT, SPI_SETFOREGROUNDFLASHCOUNT, Travels::AsPointer, Meaning::Number, 3},
    {SPI_GETCARETWIDTH, SPI_SETCARETWIDTH, Travels::AsPointer, Meaning::Number, 1},
    {SPI_GETFONTSMOOTHINGTYPE, SPI_SETFONTSMOOTHINGTYPE, Travels::AsPointer, Meaning::Number, 1},
    {SPI_GETFONTSMOOTHINGCONTRAST, SPI_SETFONTSMOOTHINGCONTRAST, Travels::AsPointer, Meaning::Number, 1400},
    {SPI_GETFOCUSBORDERWIDTH, SPI_SETFOCUSBORDERWIDTH, Travels::AsPointer, Meaning::Number, 1},
    {SPI_GETFOCUSBORDERHEIGHT, SPI_SETFOCUSBORDERHEIGHT, Travels::AsPointer, Meaning::Number, 1},
};

constexpr DWORD fastestKeyboard = 31;

DWORD ValueToSet(Parameter const & parameter, UINT argument, PVOID pointer)
{
    DWORD value = argument;
    if (parameter.travels == Travels::AsPointer)
    {
        value = static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(pointer));
    }
    if (parameter.setAction == SPI_SETKEYBOARDSPEED)
    {
        value = std::min(value, fastestKeyboard);
    }
    return parameter.meaning == Meaning::Flag ? value != 0 : value;
}

BOOL Get(Parameter const & parameter, PVOID value)
{
    if (value == nullptr)
    {
        return FailWith(ERROR_NOACCESS);
    }
    DWORD const found = ReadParameter(parameter.getAction).value_or(parameter.initial);
    std::memcpy(value, &found, sizeof(found));
    return TRUE;
}

BOOL Set(Parameter const & parameter, UINT argument, PVOID pointer, bool lasting)
{
    Lifetime const lifetime = lasting ? Lifetime::Lasting : Lifetime::UntilRestart;
    DWORD const code = WriteParameter(parameter.getAction, ValueToSet(parameter, argument, pointer), lifetime);
    return code == ERROR_SUCCESS || FailWith(code);
}

struct Metric
{
    int number;
    int value;
};

constexpr Metric metrics[] = {
    {SM_CXSCREEN, 1024},
    {SM_CYSCREEN, 768},
    {SM_CXVSCROLL, 17},
    {SM_CYHSCROLL, 17},
    {SM_CYCAPTION, 19},
    {SM_CXBORDER, 1},
    {SM_CYBORDER, 1},
    {SM_CXFIXEDFRAME, 3},
    {SM_CYFIXEDFRAME, 3},
    {SM_CYVTHUMB, 17},
    {SM_CXHTHUMB, 17},
    {SM_CXICON, 32},
    {SM_CYICON, 32},
    {SM_CXCURSOR, 32},
    {SM_CYCURSOR, 32},
    {SM_CYMENU, 19},
    {SM_MOUSEPRESENT, 1},
    {SM_CYVSCROLL, 17},
    {SM_CXHSCROLL, 17},
    {SM_SWAPBUTTON, 0},
    {SM_CXMIN, 116},
    {SM_CYMIN, 27},
    {SM_CXSIZE, 18},
    {SM_CYSIZE, 18},
    {SM_CXSIZEFRAME, 4},
    {SM_CYSIZEFRAME, 4},
    {SM_CXDOUBLECLK, 4},
    {SM_CYDOUBLECLK, 4},
    {SM_DBCSENABLED, 0},
    {SM_CMOUSEBUTTONS, 3},
    {SM_CXEDGE, 2},
    {SM_CYEDGE, 2},
    {SM_CXSMICON, 16},
    {SM_CYSMICON, 16},
    {SM_CYSMCAPTION, 16},
    {SM_CXSMSIZE, 15},
    {SM_CYSMSIZE, 15},
    {SM_CXMENUSIZE, 18},
    {SM_CYMENUSIZE, 18},
    {SM_CXDRAG, 4},
    {SM_CYDRAG, 4},
    {SM_CXMENUCHECK, 13},
    {SM_CYMENUCHECK, 13},
    {SM_MOUSEWHEELPRESENT, 1},
    {SM_XVIRTUALSCREEN, 0},
    {SM_YVIRTUALSCREEN, 0},
    {SM_CXVIRTUALSCREEN, 1024},
    {SM_CYVIRTUALSCREEN, 768},
    {SM_CMONITORS, 1},
    {SM_SAMEDISPLAYFORMAT, 1},
    {SM_CXFOCUSBORDER, 1},
    {SM_CYFOCUSBORDER, 1},
    {SM_TABLETPC, 0},
    {SM_MEDIACENTER, 0},
    {SM_STARTER, 0},
    {SM_SERVERR2, 0},
    {SM_REMOTESESSION, 0},
};

} // namespace

BOOL WINAPI SystemParametersInfoW(UINT action, UINT argument, PVOID value, UINT flags)
{
    for (Parameter const & parameter : parameters)
    {
        if (parameter.getAction == action)
        {
            return Get(parameter, value);
        }
        if (parameter.setAction == action)
        {
            return Set(parameter, argument, value, (flags & SPIF_UPDATEINIFILE) != 0);
        }
    }
    return FailWith(ERROR_INVALID_SPI_VALUE);
}

int WINAPI GetSystemMetrics(int number)
{
    for (Metric const & metric : metrics)
    {
        if (metric.number == number)
        {
            return metric.value;
        }
    }
    return 0;
}
