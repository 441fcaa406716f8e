#include <kvcore/frame/SysInfo.h>

#include <clocale>
#include <optional>

#include <gtest/gtest.h>

#include <kvcore/frame/detail/ComObjects.h>
#include <support/ChildProgram.h>
#include <support/ComApartment.h>
#include <support/LogOfTest.h>

#include "DiagnosticsOfTest.h"
#include "LogRig.h"

namespace
{

using kv::detail::DetectDirectXVersion;
using kv::test::ComApartment;
using kv::test::Diagnostics;
using kv::test::LogOfTest;
using kv::test::RegisteredDiagnostics;

WCHAR const * const major = TEXT("dwDirectXVersionMajor");
WCHAR const * const minor = TEXT("dwDirectXVersionMinor");
WCHAR const * const letter = TEXT("szDirectXVersionLetter");

Diagnostics::Fact Number(DWORD value)
{
    return {VT_UI4, value, {}};
}

Diagnostics::Fact Text(WCHAR const * value)
{
    return {VT_BSTR, 0, value};
}

class DirectXVersions : public testing::Test
{
protected:
    DirectXVersions()
    {
        diagnostics.facts = {{major, Number(9)}, {minor, Number(0)}, {letter, Text(TEXT("c"))}};
    }
    void SetUp() override
    {
        registered.emplace(diagnostics);
        ASSERT_EQ(registered->result, S_OK);
    }
    void TearDown() override
    {
        registered.reset();
        EXPECT_EQ(diagnostics.alive, 0) << "objects that nobody released";
    }

    ComApartment const apartment;
    Diagnostics diagnostics;
    std::optional<RegisteredDiagnostics> registered;
    LogOfTest log;
};

WCHAR const * const failed = TEXT("Failed to detect detailed DirectX Version\n");

} // namespace

TEST_F(DirectXVersions, AreMajorMinorAndTheLettersPlaceInTheAlphabet)
{
    EXPECT_EQ(DetectDirectXVersion(), 0x00090003u);
    EXPECT_EQ(log.Texts(), TEXT("Detected DirectX Version: 9.0c\n"));
}

TEST_F(DirectXVersions, CountOnlyTheFirstOfSmallLetters)
{
    struct
    {
        DWORD majorNumber, minorNumber;
        WCHAR const * letters;
        DWORD expected;
    } const cases[] = {
        {9, 0, TEXT(""), 0x00090000},  {9, 0, TEXT(" "), 0x00090000},  {9, 0, TEXT("a"), 0x00090001},
        {9, 0, TEXT("z"), 0x0009001A}, {9, 0, TEXT("C"), 0x00090000},  {9, 0, TEXT("`"), 0x00090000},
        {9, 0, TEXT("{"), 0x00090000}, {9, 0, TEXT("cx"), 0x00090003}, {8, 1, TEXT("b"), 0x00080102},
        {12, 2, TEXT(""), 0x000C0200},
    };
    for (auto const & attempt : cases)
    {
        diagnostics.facts[major] = Number(attempt.majorNumber);
        diagnostics.facts[minor] = Number(attempt.minorNumber);
        diagnostics.facts[letter] = Text(attempt.letters);
        EXPECT_EQ(DetectDirectXVersion(), attempt.expected) << String(attempt.letters).Utf8();
    }
}

TEST_F(DirectXVersions, AreAskedOfAProviderThatChecksNoCertificates)
{
    DetectDirectXVersion();
    EXPECT_EQ(diagnostics.created, 1);
    EXPECT_EQ(diagnostics.options.size, sizeof(kv::detail::DiagnosticOptions));
    EXPECT_EQ(diagnostics.options.headerVersion, 0x6Fu);
    EXPECT_FALSE(diagnostics.options.allowCertificateChecks);
    EXPECT_EQ(diagnostics.options.reserved, nullptr);
}

TEST_F(DirectXVersions, FailWhereAFactIsMissingOrOfAnotherKind)
{
    Diagnostics::Fact const signedNumber{VT_I4, 9, {}};
    Diagnostics::Fact const nothing{VT_EMPTY, 9, {}};
    Diagnostics::Fact const nullText{VT_BSTR, 0, {}, true};
    struct
    {
        WCHAR const * name;
        std::optional<Diagnostics::Fact> fact;
        DWORD expected; // what the major number's place holds
    } const cases[] = {
        {major, {}, 0},           {major, signedNumber, 0}, {major, nothing, 0}, {major, Text(TEXT("9")), 0},
        {minor, {}, 9},           {minor, signedNumber, 9}, {letter, {}, 9},     {letter, nullText, 9},
        {letter, Number('c'), 9},
    };
    auto const whole = diagnostics.facts;
    String texts;
    for (auto const & attempt : cases)
    {
        diagnostics.facts = whole;
        diagnostics.facts.erase(attempt.name);
        if (attempt.fact)
        {
            diagnostics.facts[attempt.name] = *attempt.fact;
        }
        EXPECT_EQ(DetectDirectXVersion(), attempt.expected) << "case " << &attempt - cases;
        texts += failed;
    }
    EXPECT_EQ(log.Texts(), texts);
}

TEST_F(DirectXVersions, AreNoneWithAProviderThatFails)
{
    for (char const * const step : {"Initialize", "GetRootContainer", "GetChildContainer"})
    {
        diagnostics.failing = step;
        EXPECT_EQ(DetectDirectXVersion(), 0u) << step;
        EXPECT_EQ(diagnostics.alive, 1) << step << ": the factory alone stays";
    }
    EXPECT_EQ(log.Texts(), String(failed) + failed + failed);
}

TEST_F(DirectXVersions, KeepTheProgramsLocale)
{
    std::string const before = std::setlocale(LC_ALL, nullptr);
    std::string const other = before == "C" ? "" : "C";
    diagnostics.locale = other.c_str();
    DetectDirectXVersion();
    EXPECT_EQ(std::setlocale(LC_ALL, nullptr), before);

    diagnostics.failing = "GetRootContainer";
    DetectDirectXVersion();
    EXPECT_EQ(std::setlocale(LC_ALL, nullptr), before);
}

TEST_F(DirectXVersions, OfAtLeastNineAreToldByAClassAlone)
{
    RegisteredDiagnostics const version9(diagnostics, kv::detail::version9Class);
    ASSERT_EQ(version9.result, S_OK);
    EXPECT_EQ(SysInfo::FastGetDirectXVersion(), 0x90000u);
    EXPECT_EQ(log.Texts(), TEXT("Detected DirectX Version 9 or higher\n"));
}

TEST_F(DirectXVersions, LogTheCreationThatFails)
{
    diagnostics.failing = "create";
    EXPECT_EQ(DetectDirectXVersion(), 0u);
    EXPECT_EQ(
        log.Texts(),
        TEXT("ERROR creating COM object clsid:riid - Error: 0x80004005 (") + String::FromError(DWORD(E_FAIL)) +
            TEXT(")\n  clsid={A65B8071-3BFE-4213-9A5B-491DA4461CA7}\n  riid={9C6B4CB0-23F8-49CC-A3ED-45A55000A6D2}\n") +
            failed);
}

TEST_F(DirectXVersions, AreDetectedOncePerProcess)
{
    // In a process of its own: nothing takes back what was detected.
    ScratchFolder const scratch;
    EXPECT_EQ(RunChildProgram("frame_child", {"directx-once", (scratch / "log.txt").string()}), 0);
    std::vector<std::string> const texts = TextsOf(scratch.Read("log.txt"));
    EXPECT_EQ(texts, std::vector<std::string>{"Failed to detect detailed DirectX Version"});
}

TEST(CreatedObjects, ThatAreMadeAreNotLogged)
{
    ComApartment const apartment;
    Diagnostics diagnostics;
    RegisteredDiagnostics const registered(diagnostics);
    ASSERT_EQ(registered.result, S_OK);
    LogOfTest log;
    IUnknown * object = nullptr;
    HRESULT const result = kv::detail::CreateInstanceLogged(
        TEXT("Provider"), kv::detail::diagnosticProviderClass, nullptr, CLSCTX_INPROC_SERVER, TEXT("IUnknown"),
        IID_IUnknown, reinterpret_cast<void **>(&object));
    EXPECT_EQ(result, S_OK);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_EQ(log.Texts(), String());
}

TEST(CreatedObjects, OfUnknownClassesAreNamedInTheLog)
{
    ComApartment const apartment;
    LogOfTest log;
    GUID const unknown = {0x6C1B3A52, 0x4D7E, 0x4F10, {0x9A, 0x21, 0x55, 0x0E, 0x7C, 0x31, 0x8B, 0x47}};
    void * object = &object;
    HRESULT const result = kv::detail::CreateInstanceLogged(
        TEXT("Player"), unknown, nullptr, CLSCTX_INPROC_SERVER, TEXT("IPlayer"), IID_IUnknown, &object);
    EXPECT_EQ(result, REGDB_E_CLASSNOTREG);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(
        log.Texts(),
        TEXT("ERROR creating COM object Player:IPlayer - Error: 0x80040154 (") +
            String::FromError(DWORD(REGDB_E_CLASSNOTREG)) +
            TEXT(")\n  Player={6C1B3A52-4D7E-4F10-9A21-550E7C318B47}\n"
                 "  IPlayer={00000000-0000-0000-C000-000000000046}\n"));
}
