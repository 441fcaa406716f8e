#include <kvcore/platform/win32.h>

#include <cstring>

namespace
{

VARIANT VariantOf(VARTYPE type)
{
    VARIANT value;
    std::memset(&value, 0, sizeof value);
    value.vt = type;
    return value;
}

/// Counts the references to it.
class CountedUnknown : public IUnknown
{
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void ** object) override
    {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override
    {
        return ++count;
    }
    ULONG STDMETHODCALLTYPE Release() override
    {
        return --count;
    }

    ULONG count = 1;
};

} // namespace

TEST(Variants, AreEmptyOnceCleared)
{
    for (int const type :
         {int{VT_EMPTY}, int{VT_NULL}, int{VT_I2}, 7, int{VT_BSTR}, int{VT_DISPATCH}, int{VT_BOOL}, int{VT_UNKNOWN}, 14,
          16, int{VT_UI4}, 23})
    {
        VARIANT value = VariantOf(static_cast<VARTYPE>(type));
        EXPECT_EQ(VariantClear(&value), S_OK) << type;
        EXPECT_EQ(int{value.vt}, int{VT_EMPTY}) << type;
    }
}

TEST(Variants, OfTypesThatNoValueHasStayAsTheyAre)
{
    for (int const type : {15,     24,     25,     30,     31,     35,     37,     64,     71,     73,     0x0FFF,
                           0x1000, 0x1003, 0x2000, 0x2001, 0x4000, 0x4001, 0x4018, 0x8000, 0x8003, 0x5003, 0xFFFF})
    {
        VARIANT value = VariantOf(static_cast<VARTYPE>(type));
        EXPECT_EQ(VariantClear(&value), DISP_E_BADVARTYPE) << type;
        EXPECT_EQ(int{value.vt}, type);
    }
}

TEST(Variants, ReleaseWhatTheyHoldAndNothingThatTheyReferTo)
{
    CountedUnknown object;
    VARIANT holder = VariantOf(VT_UNKNOWN);
    holder.punkVal = &object;
    EXPECT_EQ(VariantClear(&holder), S_OK);
    EXPECT_EQ(object.count, 0u);

    BSTR text = SysAllocString(TEXT("borrowed"));
    VARIANT reference = VariantOf(0x4000 | VT_BSTR);
    std::memcpy(&reference.bstrVal, &text, sizeof text);
    EXPECT_EQ(VariantClear(&reference), S_OK);
    EXPECT_EQ(int{reference.vt}, int{VT_EMPTY});
    EXPECT_EQ(SysStringLen(text), 8u);
    SysFreeString(text);
}

TEST(ErrorReports, AreForTheReservedNumberZeroAlone)
{
    EXPECT_EQ(SetErrorInfo(0, nullptr), S_OK);
    EXPECT_EQ(SetErrorInfo(1, nullptr), E_INVALIDARG);
    EXPECT_EQ(SetErrorInfo(0xFFFFFFFF, nullptr), E_INVALIDARG);
    IErrorInfo * report = nullptr;
    IErrorInfo * const given = reinterpret_cast<IErrorInfo *>(&report);
    report = given;
    EXPECT_EQ(GetErrorInfo(1, &report), E_INVALIDARG);
    EXPECT_EQ(report, given);
    EXPECT_EQ(GetErrorInfo(0, nullptr), E_INVALIDARG);
    EXPECT_EQ(GetErrorInfo(0, &report), S_FALSE);
    EXPECT_EQ(report, nullptr);
}
