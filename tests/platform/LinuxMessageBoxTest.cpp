#ifndef _WIN32 // Message boxes without windows are this layer's own matter.

#    include <string>
#    include <vector>

#    include <kvcore/platform/NativePaths.h>
#    include <kvcore/platform/win32.h>

#    include <gtest/gtest.h>

namespace
{

MSGBOXPARAMSW Box(WCHAR const * text, WCHAR const * caption, DWORD style)
{
    MSGBOXPARAMSW box = {};
    box.cbSize = sizeof box;
    box.lpszText = text;
    box.lpszCaption = caption;
    box.dwStyle = style;
    return box;
}

/// What a message box wrote to the standard error stream.
std::string WrittenBy(MSGBOXPARAMSW const & box, int expectedAnswer)
{
    testing::internal::CaptureStderr();
    int const answer = MessageBoxIndirectW(&box);
    std::string const written = testing::internal::GetCapturedStderr();
    EXPECT_EQ(answer, expectedAnswer);
    return written;
}

TEST(LinuxMessageBoxes, AreALineOnTheErrorStream)
{
    EXPECT_EQ(
        WrittenBy(Box(u"The clip is missing.", u"Warning", MB_ICONWARNING), IDOK), "Warning: The clip is missing.\n");
    EXPECT_EQ(WrittenBy(Box(u"\u00E4 \U0001F3AC", u"\u00DF", MB_OK), IDOK), "\u00DF: \u00E4 \U0001F3AC\n");
    EXPECT_EQ(WrittenBy(Box(u"x", nullptr, MB_OK), IDOK), "Error: x\n");
    EXPECT_EQ(WrittenBy(Box(nullptr, u"", MB_OK), IDOK), ": \n");
}

TEST(LinuxMessageBoxes, AnswerWithTheirDefaultButton)
{
    struct
    {
        DWORD style;
        int answer;
    } const cases[] = {
        {MB_OK, IDOK},
        {MB_OKCANCEL, IDOK},
        {MB_OKCANCEL | MB_DEFBUTTON2, IDCANCEL},
        {MB_ABORTRETRYIGNORE, IDABORT},
        {MB_ABORTRETRYIGNORE | MB_DEFBUTTON2, IDRETRY},
        {MB_ABORTRETRYIGNORE | MB_DEFBUTTON3, IDIGNORE},
        {MB_YESNOCANCEL, IDYES},
        {MB_YESNOCANCEL | MB_DEFBUTTON2, IDNO},
        {MB_YESNOCANCEL | MB_DEFBUTTON3, IDCANCEL},
        {MB_YESNO | MB_ICONQUESTION, IDYES},
        {MB_YESNO | MB_DEFBUTTON2 | MB_ICONQUESTION, IDNO},
        {MB_RETRYCANCEL, IDRETRY},
        {MB_RETRYCANCEL | MB_DEFBUTTON2, IDCANCEL},
        {MB_CANCELTRYCONTINUE, IDCANCEL},
        {MB_CANCELTRYCONTINUE | MB_DEFBUTTON2, IDTRYAGAIN},
        {MB_CANCELTRYCONTINUE | MB_DEFBUTTON3, IDCONTINUE},
        {MB_OK | MB_DEFBUTTON3, IDOK}, // there is no third button
        {MB_YESNO | MB_DEFBUTTON3, IDYES},
        {MB_YESNO | MB_DEFMASK, IDYES},
    };
    for (auto const & one : cases)
    {
        EXPECT_EQ(WrittenBy(Box(u"t", u"c", one.style), one.answer), "c: t\n") << one.style;
    }
}

TEST(LinuxMessageBoxes, WithButtonsThatThereAreNotAreRefused)
{
    for (DWORD const buttons : {7u, 15u})
    {
        SetLastError(0);
        EXPECT_EQ(WrittenBy(Box(u"t", u"c", buttons), 0), "");
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_MSGBOX_STYLE});
    }
}

std::vector<WString> shown;

int AnswerNo(MSGBOXPARAMSW const & box)
{
    shown.push_back(box.lpszCaption);
    shown.push_back(box.lpszText);
    return IDNO;
}

TEST(LinuxMessageBoxes, AreShownByTheProgramIfItHasAWayOfItsOwn)
{
    shown.clear();
    kv::platform::MessageBoxHandler const own = AnswerNo;
    EXPECT_EQ(kv::platform::SetMessageBoxHandler(own), nullptr);
    EXPECT_EQ(WrittenBy(Box(u"Save?", u"Question", MB_YESNO), IDNO), "");
    EXPECT_EQ(WrittenBy(Box(nullptr, nullptr, MB_OK), IDNO), "") << "whatever it answers";
    EXPECT_EQ(shown, (std::vector<WString>{u"Question", u"Save?", u"Error", u""}));
    EXPECT_EQ(kv::platform::SetMessageBoxHandler(nullptr), own);
    EXPECT_EQ(WrittenBy(Box(u"t", u"c", MB_OK), IDOK), "c: t\n");
    EXPECT_EQ(shown.size(), 4u);
}

TEST(LinuxMessageBoxes, HaveNoWindowsForOwners)
{
    int something = 0;
    EXPECT_FALSE(IsWindow(nullptr));
    EXPECT_FALSE(IsWindow(reinterpret_cast<HWND>(&something)));
}

} // namespace

#endif
