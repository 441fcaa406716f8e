#ifndef _WIN32 // The system's own calls there are the system's affair.

#    include <cstdarg>

#    include <kvcore/platform/win32.h>
#    include <support/BadPointers.h>

#    include <gtest/gtest.h>

namespace
{

using kv::test::ExpectSurvivesBadPointers;
using kv::test::PointerCall;
using kv::test::Pointers;

void ExpectAllSurvive(std::initializer_list<PointerCall> calls)
{
    for (PointerCall const & call : calls)
    {
        SCOPED_TRACE(call.name);
        ExpectSurvivesBadPointers(call);
    }
}

void * At(WCHAR const * text)
{
    return const_cast<WCHAR *>(text);
}

bool Format(WCHAR * buffer, WCHAR const * format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    int const length = _vsnwprintf(buffer, 100, format, arguments);
    va_end(arguments);
    return length > 0;
}

DWORD FormatMessageWith(void const * source, WCHAR * buffer, ...)
{
    std::va_list arguments;
    va_start(arguments, buffer);
    DWORD const length = FormatMessageW(FORMAT_MESSAGE_FROM_STRING, source, 0, 0, buffer, 100, &arguments);
    va_end(arguments);
    return length;
}

class BadTextPointers : public testing::Test
{
protected:
    WCHAR buffer[1024] = {};
    WCHAR parts[4][256] = {};
    char bytes[1024] = {};
    SYSTEMTIME when = {2024, 5, 5, 17, 12, 30, 15, 0};
    SYSTEMTIME other = {};
    FILETIME ticks = {0, 30000000};
    FILETIME otherTicks = {};
    TIME_ZONE_INFORMATION zone = {};
    LARGE_INTEGER large = {};
    DWORD number = 0;
    int place = 0;
    int sign = 0;
    BOOL flag = FALSE;
    CPINFOEXW page = {};
    OSVERSIONINFOW version = {};
    SYSTEM_INFO system = {};
    TOKEN_PRIVILEGES privileges = {};
    LUID luid = {};
};

TEST_F(BadTextPointers, OfTextFaultAndHoldNothing)
{
    ExpectAllSurvive({
        {"CompareStringW to its end",
         {{At(u"left")}, {At(u"right")}},
         [](Pointers const & p)
         { return CompareStringW(LOCALE_USER_DEFAULT, 0, p[0], -1, p[1], -1) == CSTR_LESS_THAN; }},
        {"CompareStringW",
         {{At(u"l\u00E9ft")}, {At(u"right")}},
         [](Pointers const & p)
         { return CompareStringW(LOCALE_USER_DEFAULT, NORM_IGNORECASE, p[0], 4, p[1], 5) == CSTR_LESS_THAN; }},
        {"LCMapStringW",
         {{At(u"text")}, {buffer}},
         [](Pointers const & p) { return LCMapStringW(LOCALE_INVARIANT, LCMAP_UPPERCASE, p[0], -1, p[1], 100) == 5; }},
        {"LCMapStringW of a length",
         {{At(u"t\u00E9xt")}, {buffer}},
         [](Pointers const & p)
         { return LCMapStringW(LOCALE_USER_DEFAULT, LCMAP_LOWERCASE, p[0], 4, p[1], 100) == 4; }},
        {"GetDateFormatW",
         {{&when}, {At(u"yyyy-MM-dd dddd")}, {buffer}},
         [](Pointers const & p) { return GetDateFormatW(LOCALE_USER_DEFAULT, 0, p[0], p[1], p[2], 100) > 10; }},
        {"GetTimeFormatW",
         {{&when}, {At(u"HH:mm:ss tt")}, {buffer}},
         [](Pointers const & p) { return GetTimeFormatW(LOCALE_USER_DEFAULT, 0, p[0], p[1], p[2], 100) > 8; }},
        {"MultiByteToWideChar",
         {{bytes}, {buffer}},
         [](Pointers const & p) { return MultiByteToWideChar(CP_UTF8, 0, p[0], 4, p[1], 100) == 4; }},
        {"MultiByteToWideChar of a page",
         {{bytes}, {buffer}},
         [](Pointers const & p) { return MultiByteToWideChar(932, 0, p[0], 4, p[1], 100) == 4; }},
        {"MultiByteToWideChar to its end",
         {{bytes}, {buffer}},
         [](Pointers const & p) { return MultiByteToWideChar(1252, 0, p[0], -1, p[1], 100) == 1; }},
        {"MultiByteToWideChar of 7 bits",
         {{bytes}, {buffer}},
         [](Pointers const & p) { return MultiByteToWideChar(CP_UTF7, 0, p[0], 4, p[1], 100) == 4; }},
        {"WideCharToMultiByte",
         {{At(u"text")}, {bytes}},
         [](Pointers const & p) { return WideCharToMultiByte(CP_UTF8, 0, p[0], 4, p[1], 100, nullptr, nullptr) == 4; }},
        {"WideCharToMultiByte of a page",
         {{At(u"te\u3042t")}, {bytes}, {At(u"?")}, {&flag}},
         [](Pointers const & p) { return WideCharToMultiByte(1252, 0, p[0], 4, p[1], 100, p[2], p[3]) == 4; }},
        {"WideCharToMultiByte of 7 bits",
         {{At(u"text")}, {bytes}},
         [](Pointers const & p)
         { return WideCharToMultiByte(CP_UTF7, 0, p[0], -1, p[1], 100, nullptr, nullptr) == 5; }},
        {"GetCPInfoExW", {{&page}}, [](Pointers const & p) { return GetCPInfoExW(1252, 0, p[0]) != FALSE; }},
        {"_vsnwprintf",
         {{buffer}, {At(u"%d of %s")}, {At(u"text")}},
         [](Pointers const & p) { return Format(p[0], p[1], 5, static_cast<WCHAR *>(p[2])); }},
        {"_itow_s", {{buffer}}, [](Pointers const & p) { return _itow_s(5, p[0], 100, 10) == 0; }},
        {"_ultow_s", {{buffer}}, [](Pointers const & p) { return _ultow_s(5, p[0], 100, 10) == 0; }},
        {"_i64tow_s", {{buffer}}, [](Pointers const & p) { return _i64tow_s(5, p[0], 100, 10) == 0; }},
        {"_ui64tow_s", {{buffer}}, [](Pointers const & p) { return _ui64tow_s(5, p[0], 100, 10) == 0; }},
        {"_fcvt_s",
         {{bytes}, {&place}, {&sign}},
         [](Pointers const & p) { return _fcvt_s(p[0], 100, 1.5, 2, p[1], p[2]) == 0; }},
        {"_wsplitpath_s",
         {{At(u"c:\\folder\\name.txt")}, {parts[0]}, {parts[1]}, {parts[2]}, {parts[3]}},
         [](Pointers const & p) { return _wsplitpath_s(p[0], p[1], 256, p[2], 256, p[3], 256, p[4], 256) == 0; }},
    });
    // What the calls above have written is not what they are to read.
    for (char & byte : bytes)
    {
        byte = 0;
    }
}

TEST_F(BadTextPointers, OfMessagesFaultAndHoldNothing)
{
    DWORD_PTR arguments[] = {reinterpret_cast<DWORD_PTR>(u"one")};
    HLOCAL allocated = nullptr;
    ExpectAllSurvive({
        {"FormatMessageW",
         {{At(u"%1 and %2!d!")}, {buffer}, {At(u"one")}},
         [](Pointers const & p) { return FormatMessageWith(p[0], p[1], static_cast<WCHAR *>(p[2]), 2) == 9; }},
        {"FormatMessageW of an array",
         {{At(u"%1")}, {buffer}, {arguments}},
         [](Pointers const & p)
         {
             constexpr DWORD flags = FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY;
             return FormatMessageW(flags, p[0], 0, 0, p[1], 100, p[2]) == 3;
         }},
        {"FormatMessageW that allocates",
         {{At(u"text")}, {&allocated}},
         [](Pointers const & p)
         {
             constexpr DWORD flags = FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ALLOCATE_BUFFER;
             return FormatMessageW(flags, p[0], 0, 0, p[1], 0, nullptr) == 4 && LocalFree(p[1].As<HLOCAL>()) == nullptr;
         }},
        {"FormatMessageW of the system",
         {{buffer}},
         [](Pointers const & p)
         { return FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 2, 0, p[0], 1000, nullptr) > 3; }},
        {"OutputDebugStringW", {{At(u"")}}, [](Pointers const & p) { return OutputDebugStringW(p[0]), true; }},
    });
}

TEST_F(BadTextPointers, OfTheShellFaultAndHoldNothing)
{
    ExpectAllSurvive({
        {"PathIsRootW", {{At(u"c:\\")}}, [](Pointers const & p) { return PathIsRootW(p[0]) != FALSE; }},
        {"PathIsRelativeW",
         {{At(u"x")}},
         [](Pointers const & p) { return PathIsRelativeW(p[0]) && p[0].As<WCHAR>() != 0; }},
        {"PathFindFileNameW",
         {{At(u"c:\\x")}},
         [](Pointers const & p) { return *static_cast<WCHAR *>(PathFindFileNameW(p[0])) == 'x'; }},
        {"PathFindExtensionW",
         {{At(u"c:\\x.y")}},
         [](Pointers const & p) { return *static_cast<WCHAR *>(PathFindExtensionW(p[0])) == '.'; }},
        {"PathMatchSpecW",
         {{At(u"x.txt")}, {At(u"*.txt")}},
         [](Pointers const & p) { return PathMatchSpecW(p[0], p[1]) != FALSE; }},
        {"PathIsURLW", {{At(u"http://x")}}, [](Pointers const & p) { return PathIsURLW(p[0]) != FALSE; }},
        {"PathCompactPathExW",
         {{buffer}, {At(u"c:\\folder\\name")}},
         [](Pointers const & p) { return PathCompactPathExW(p[0], p[1], 12, 0) != FALSE; }},
        {"UrlCreateFromPathW",
         {{At(u"c:\\x y")}, {buffer}, {&number}},
         [this](Pointers const & p)
         {
             number = 1000;
             return UrlCreateFromPathW(p[0], p[1], p[2], 0) == S_OK;
         }},
        {"PathCreateFromUrlW",
         {{At(u"file:///c:/x")}, {buffer}, {&number}},
         [this](Pointers const & p)
         {
             number = 1000;
             return PathCreateFromUrlW(p[0], p[1], p[2], 0) == S_OK;
         }},
        {"UrlCombineW",
         {{At(u"http://a/b/c")}, {At(u"d")}, {buffer}, {&number}},
         [this](Pointers const & p)
         {
             number = 1000;
             return UrlCombineW(p[0], p[1], p[2], p[3], 0) == S_OK;
         }},
        {"CommandLineToArgvW",
         {{At(u"a b c")}, {&place}},
         [](Pointers const & p)
         {
             LPWSTR * const words = CommandLineToArgvW(p[0], p[1]);
             return words != nullptr && LocalFree(words) == nullptr && p[1].As<int>() == 3;
         }},
    });
    std::u16string path = u"c:\\folder\\name";
    ExpectAllSurvive(
        {{"PathStripToRootW", {{path.data()}}, [](Pointers const & p) { return PathStripToRootW(p[0]) != FALSE; }}});
}

TEST_F(BadTextPointers, OfTimeFaultAndHoldNothing)
{
    GetTimeZoneInformation(&zone);
    ExpectAllSurvive({
        {"GetSystemTimeAsFileTime", {{&ticks}}, [](Pointers const & p) { return GetSystemTimeAsFileTime(p[0]), true; }},
        {"GetSystemTimePreciseAsFileTime",
         {{&ticks}},
         [](Pointers const & p) { return GetSystemTimePreciseAsFileTime(p[0]), true; }},
        {"GetSystemTime", {{&other}}, [](Pointers const & p) { return GetSystemTime(p[0]), true; }},
        {"GetLocalTime", {{&other}}, [](Pointers const & p) { return GetLocalTime(p[0]), true; }},
        {"QueryPerformanceCounter",
         {{&large}},
         [](Pointers const & p) { return QueryPerformanceCounter(p[0]) != FALSE; }},
        {"QueryPerformanceFrequency",
         {{&large}},
         [](Pointers const & p) { return QueryPerformanceFrequency(p[0]) != FALSE; }},
        {"SystemTimeToFileTime",
         {{&when}, {&ticks}},
         [](Pointers const & p) { return SystemTimeToFileTime(p[0], p[1]) != FALSE; }},
        {"FileTimeToSystemTime",
         {{&ticks}, {&other}},
         [](Pointers const & p) { return FileTimeToSystemTime(p[0], p[1]) != FALSE; }},
        {"CompareFileTime", {{&ticks}, {&ticks}}, [](Pointers const & p) { return CompareFileTime(p[0], p[1]) == 0; }},
        {"FileTimeToLocalFileTime",
         {{&ticks}, {&otherTicks}},
         [](Pointers const & p) { return FileTimeToLocalFileTime(p[0], p[1]) != FALSE; }},
        {"LocalFileTimeToFileTime",
         {{&ticks}, {&otherTicks}},
         [](Pointers const & p) { return LocalFileTimeToFileTime(p[0], p[1]) != FALSE; }},
        {"SystemTimeToTzSpecificLocalTime",
         {{&zone}, {&when}, {&other}},
         [](Pointers const & p) { return SystemTimeToTzSpecificLocalTime(p[0], p[1], p[2]) != FALSE; }},
        {"TzSpecificLocalTimeToSystemTime",
         {{&zone}, {&when}, {&other}},
         [](Pointers const & p) { return TzSpecificLocalTimeToSystemTime(p[0], p[1], p[2]) != FALSE; }},
        {"GetTimeZoneInformation",
         {{&zone}},
         [](Pointers const & p) { return GetTimeZoneInformation(p[0]) != TIME_ZONE_ID_INVALID; }},
    });
}

TEST_F(BadTextPointers, OfTheSystemFaultAndHoldNothing)
{
    HANDLE token = nullptr;
    int value = 0;
    MSGBOXPARAMSW box = {};
    box.cbSize = sizeof box;
    box.lpszText = u"text";
    box.lpszCaption = u"caption";
    auto const before = kv::platform::SetMessageBoxHandler([](MSGBOXPARAMSW const &) { return 1; });
    ExpectAllSurvive({
        {"GetEnvironmentVariableW",
         {{At(u"PATH")}, {buffer}},
         [](Pointers const & p) { return GetEnvironmentVariableW(p[0], p[1], 1024) != 0; }},
        {"SetEnvironmentVariableW",
         {{At(u"KVCORE_TEST_POINTER")}, {At(u"value")}},
         [](Pointers const & p) { return SetEnvironmentVariableW(p[0], p[1]) != FALSE; }},
        {"ExpandEnvironmentStringsW",
         {{At(u"%HOME%")}, {buffer}},
         [](Pointers const & p) { return ExpandEnvironmentStringsW(p[0], p[1], 1024) > 1; }},
        {"GetVersionExW",
         {{&version}},
         [this](Pointers const & p)
         {
             version.dwOSVersionInfoSize = sizeof version;
             return GetVersionExW(p[0]) != FALSE;
         }},
        {"GetProductInfo", {{&number}}, [](Pointers const & p) { return GetProductInfo(10, 0, 0, 0, p[0]) != FALSE; }},
        {"IsWow64Process",
         {{&flag}},
         [](Pointers const & p) { return IsWow64Process(GetCurrentProcess(), p[0]) != FALSE; }},
        {"GetNativeSystemInfo", {{&system}}, [](Pointers const & p) { return GetNativeSystemInfo(p[0]), true; }},
        {"GetSystemInfo", {{&system}}, [](Pointers const & p) { return GetSystemInfo(p[0]), true; }},
        {"SystemParametersInfoW",
         {{&value}},
         [](Pointers const & p) { return SystemParametersInfoW(SPI_GETBORDER, 0, p[0], 0) != FALSE; }},
        {"OpenProcessToken",
         {{&token}},
         [](Pointers const & p)
         { return OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, p[0]) && CloseHandle(p[0].As<HANDLE>()); }},
        {"LookupPrivilegeValueW",
         {{At(u"SeShutdownPrivilege")}, {&luid}},
         [](Pointers const & p) { return LookupPrivilegeValueW(nullptr, p[0], p[1]) != FALSE; }},
        {"MessageBoxIndirectW", {{&box}}, [](Pointers const & p) { return MessageBoxIndirectW(p[0]) != 0; }},
        {"GetExitCodeThread",
         {{&number}},
         [](Pointers const & p) { return GetExitCodeThread(GetCurrentThread(), p[0]) != FALSE; }},
    });
    kv::platform::SetMessageBoxHandler(before);
}

} // namespace

#endif
