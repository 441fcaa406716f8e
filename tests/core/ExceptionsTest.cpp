#include <type_traits>

#include <gtest/gtest.h>

#include <kvcore/core/Exceptions.h>

namespace
{

/// What a client derives: its own texts, a context, and the place of the throw by a default argument.
class DeviceException : public WinException
{
public:
    explicit DeviceException(
        LONG code, String const & ownText = String(), String const & where = String(),
        ThrowSite const & site = ThrowSite())
        : WinException(TEXT("DeviceException"), code, site), text(ownText)
    {
        context = where;
    }

protected:
    String GetErrorString() const override
    {
        return text;
    }

private:
    String text;
};

/// A client that sets each field by hand.
class PlainException : public WinException
{
public:
    PlainException(String const & newContext, String const & newFile, int newLine, LONG newError)
    {
        context = newContext;
        file = newFile;
        line = newLine;
        error = newError;
    }
};

constexpr LONG unknownCode = 0x12345678;

} // namespace

TEST(WinException, NewOneIsEmpty)
{
    WinException const exception;
    EXPECT_EQ(exception.GetName(), nullptr);
    EXPECT_EQ(exception.GetContext(), TEXT(""));
    EXPECT_EQ(exception.GetFile(), TEXT(""));
    EXPECT_EQ(exception.GetLine(), 0);
    EXPECT_EQ(LONG(exception), 0);
}

TEST(WinException, NameIsBorrowedAndSharedByCopies)
{
    WCHAR const name[] = TEXT("Name");
    WinException const exception(name);
    EXPECT_EQ(exception.GetName(), name);
    WinException const copy(exception);
    EXPECT_EQ(copy.GetName(), name);
    WinException assigned;
    assigned = exception;
    EXPECT_EQ(assigned.GetName(), name);
}

TEST(WinException, CopiesTakeAllFields)
{
    PlainException const exception(TEXT("context"), TEXT("C:\\a.cpp"), 12, 5);
    auto const expectSame = [](WinException const & copy)
    {
        EXPECT_EQ(copy.GetContext(), TEXT("context"));
        EXPECT_EQ(copy.GetFile(), TEXT("C:\\a.cpp"));
        EXPECT_EQ(copy.GetLine(), 12);
        EXPECT_EQ(LONG(copy), 5);
    };
    expectSame(WinException(exception));
    WinException assigned(TEXT("other"));
    assigned = exception;
    expectSame(assigned);
    EXPECT_EQ(assigned.GetName(), nullptr);
}

TEST(WinException, TextIsTheErrorsTextAndItsCode)
{
    EXPECT_EQ(DeviceException(5, TEXT("Own text")).GetText(), TEXT("Own text (0x00000005)"));
    EXPECT_EQ(DeviceException(LONG(0x8007000E), TEXT("x")).GetText(), TEXT("x (0x8007000e)"));
    PlainException const plain(String(), String(), 0, 2);
    EXPECT_EQ(plain.GetText(), String::FromError(2) + TEXT(" (0x00000002)"));
}

TEST(WinException, EmptyErrorTextIsUnknown)
{
    EXPECT_EQ(DeviceException(0).GetText(), TEXT("Unknown error (0x00000000)"));
    EXPECT_EQ(PlainException(String(), String(), 0, unknownCode).GetText(), TEXT("Unknown error (0x12345678)"));
}

TEST(WinException, TextMayHoldPercentSigns)
{
    EXPECT_EQ(DeviceException(1, TEXT("100%s %n")).GetText(), TEXT("100%s %n (0x00000001)"));
}

TEST(WinException, ThrowSiteIsTheLineOfTheThrow)
{
    int const line = __LINE__ + 3;
    try
    {
        throw DeviceException(unknownCode, String(), TEXT("opening the device"));
    }
    catch (WinException const & exception)
    {
        EXPECT_EQ(exception.GetLine(), line);
        EXPECT_TRUE(exception.GetFile().EndsWith(TEXT("ExceptionsTest.cpp"))) << exception.GetFile().Utf8();
        EXPECT_EQ(WString(exception.GetName()), TEXT("DeviceException"));
        EXPECT_EQ(exception.GetContext(), TEXT("opening the device"));
        EXPECT_EQ(exception.GetText(), TEXT("Unknown error (0x12345678)"));
        EXPECT_EQ(LONG(exception), unknownCode);
    }
}

TEST(WinException, IsARootOfItsOwn)
{
    EXPECT_FALSE((std::is_base_of_v<std::exception, WinException>));
    EXPECT_TRUE(std::has_virtual_destructor_v<WinException>);
    EXPECT_TRUE((std::is_convertible_v<WinException, LONG>));
    EXPECT_TRUE(std::is_copy_constructible_v<WinException>);
    EXPECT_TRUE(std::is_copy_assignable_v<WinException>);
}

TEST(NotCopyable, ForbidsCopyingAndAddsNothing)
{
    class Resource : NotCopyable
    {
    public:
        int value = 0;
    };
    EXPECT_FALSE(std::is_copy_constructible_v<Resource>);
    EXPECT_FALSE(std::is_copy_assignable_v<Resource>);
    EXPECT_FALSE(std::is_move_constructible_v<Resource>);
    EXPECT_TRUE(std::is_default_constructible_v<Resource>);
    EXPECT_EQ(sizeof(Resource), sizeof(int));
    EXPECT_FALSE(std::is_default_constructible_v<NotCopyable>);
    EXPECT_FALSE(std::is_destructible_v<NotCopyable>);
    EXPECT_FALSE(std::is_polymorphic_v<NotCopyable>);
}
