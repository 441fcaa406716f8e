#ifndef _WIN32 // The system's own calls there are the system's affair.

#    include <kvcore/platform/win32.h>
#    include <kvcore/platform/xmldom.h>
#    include <support/BadPointers.h>
#    include <support/ScratchFolder.h>

#    include <gtest/gtest.h>

namespace
{

using kv::test::ExpectSurvivesBadPointers;
using kv::test::Pointer;
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

DWORD WINAPI DoNothing(void *)
{
    return 0;
}

unsigned WINAPI DoNothingEither(void *)
{
    return 0;
}

bool Ended(HANDLE thread)
{
    return thread != nullptr && WaitForSingleObject(thread, INFINITE) == WAIT_OBJECT_0 && CloseHandle(thread);
}

TEST(BadObjectPointers, OfMemoryFaultAndHoldNothing)
{
    void * const block = VirtualAlloc(nullptr, 4096, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    DWORD old = 0;
    MEMORY_BASIC_INFORMATION region = {};
    ExpectAllSurvive({
        {"VirtualProtect",
         {{&old}},
         [block](Pointers const & p) { return VirtualProtect(block, 4096, PAGE_READWRITE, p[0]) != FALSE; }},
        {"VirtualQuery",
         {{&region}},
         [block](Pointers const & p) { return VirtualQuery(block, p[0], sizeof region) == sizeof region; }},
    });
    EXPECT_TRUE(VirtualFree(block, 0, MEM_RELEASE));
}

TEST(BadObjectPointers, OfWaitsFaultAndHoldNothing)
{
    CRITICAL_SECTION section;
    HANDLE const set = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    HANDLE handles[] = {set, set};
    DWORD id = 0;
    unsigned otherId = 0;
    ExpectAllSurvive({
        {"InitializeCriticalSection",
         {{&section}},
         [](Pointers const & p)
         {
             InitializeCriticalSection(p[0]);
             EnterCriticalSection(p[0]);
             LeaveCriticalSection(p[0]);
             DeleteCriticalSection(p[0]);
             return true;
         }},
        {"WaitForMultipleObjects",
         {{handles}},
         [](Pointers const & p) { return WaitForMultipleObjects(2, p[0], TRUE, 1000) == WAIT_OBJECT_0; }},
        {"WaitForMultipleObjectsEx",
         {{handles}},
         [](Pointers const & p) { return WaitForMultipleObjectsEx(2, p[0], FALSE, 1000, TRUE) == WAIT_OBJECT_0; }},
        {"CreateThread",
         {{&id}},
         [](Pointers const & p) { return Ended(CreateThread(nullptr, 0, DoNothing, nullptr, 0, p[0])); }},
        {"_beginthreadex",
         {{&otherId}},
         [](Pointers const & p)
         { return Ended(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, DoNothingEither, nullptr, 0, p[0]))); }},
    });
    for (Pointer const bad : kv::test::BadPointers())
    {
        for (auto const call : {EnterCriticalSection, LeaveCriticalSection})
        {
            PointerCall const one = {
                "a critical section", {bad}, [call](Pointers const & p) { return call(p[0]), true; }};
            EXPECT_EQ(kv::test::MakeInScope(one, one.good), kv::test::Outcome::Faulted);
        }
    }
    CloseHandle(set);
}

BOOL CALLBACK TakeName(HMODULE, LPCWSTR, LPWSTR, LONG_PTR)
{
    return TRUE;
}
BOOL CALLBACK TakeLanguage(HMODULE, LPCWSTR, LPCWSTR, WORD, LONG_PTR)
{
    return TRUE;
}

TEST(BadObjectPointers, OfModulesFaultAndHoldNothing)
{
    HMODULE const module = LoadLibraryW(u"TestModule");
    ASSERT_NE(module, nullptr);
    WCHAR path[1024] = {};
    GetModuleFileNameW(module, path, 1024);
    HMODULE found = nullptr;
    WCHAR buffer[1024] = {};
    DWORD zero = 0;
    std::vector<char> block(GetFileVersionInfoSizeW(path, &zero));
    ASSERT_FALSE(block.empty());
    ASSERT_TRUE(GetFileVersionInfoW(path, 0, DWORD(block.size()), block.data()));
    void * value = nullptr;
    UINT length = 0;
    ACCEL keys[8] = {};
    HANDLE const snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, 0);
    MODULEENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    HACCEL const table = LoadAcceleratorsW(module, MAKEINTRESOURCEW(1));
    ExpectAllSurvive({
        {"LoadLibraryW",
         {{path}},
         [](Pointers const & p)
         {
             HMODULE const loaded = LoadLibraryW(p[0]);
             return loaded != nullptr && FreeLibrary(loaded);
         }},
        {"LoadLibraryExW of data",
         {{path}},
         [](Pointers const & p)
         {
             HMODULE const loaded = LoadLibraryExW(p[0], nullptr, LOAD_LIBRARY_AS_DATAFILE);
             return loaded != nullptr && FreeLibrary(loaded);
         }},
        {"GetProcAddress",
         {{const_cast<char *>("TestModuleAnswer")}},
         [module](Pointers const & p) { return GetProcAddress(module, p[0]) != nullptr; }},
        {"GetModuleHandleW", {{path}}, [](Pointers const & p) { return GetModuleHandleW(p[0]) != nullptr; }},
        {"GetModuleHandleExW",
         {{path}, {&found}},
         [](Pointers const & p) { return GetModuleHandleExW(0, p[0], p[1]) && FreeLibrary(p[1].As<HMODULE>()); }},
        {"GetModuleFileNameW",
         {{buffer}},
         [module](Pointers const & p) { return GetModuleFileNameW(module, p[0], 1024) != 0; }},
        {"FindResourceW",
         {{At(u"#1")}, {At(u"#16")}},
         [module](Pointers const & p) { return FindResourceW(module, p[0], p[1]) != nullptr; }},
        {"FindResourceExW",
         {{At(u"#16")}, {At(u"#1")}},
         [module](Pointers const & p) { return FindResourceExW(module, p[0], p[1], 0) != nullptr; }},
        {"EnumResourceNamesW",
         {{At(u"#16")}},
         [module](Pointers const & p) { return EnumResourceNamesW(module, p[0], TakeName, 0) != FALSE; }},
        {"EnumResourceLanguagesW",
         {{At(u"#16")}, {At(u"#1")}},
         [module](Pointers const & p) { return EnumResourceLanguagesW(module, p[0], p[1], TakeLanguage, 0) != FALSE; }},
        {"LoadStringW", {{buffer}}, [module](Pointers const & p) { return LoadStringW(module, 1, p[0], 100) == 3; }},
        {"GetFileVersionInfoSizeW",
         {{path}, {&zero}},
         [](Pointers const & p) { return GetFileVersionInfoSizeW(p[0], p[1]) != 0; }},
        {"GetFileVersionInfoW",
         {{path}, {block.data()}},
         [&block](Pointers const & p) { return GetFileVersionInfoW(p[0], 0, DWORD(block.size()), p[1]) != FALSE; }},
        {"VerQueryValueW",
         {{block.data()}, {At(u"\\")}, {&value}, {&length}},
         [](Pointers const & p) { return VerQueryValueW(p[0], p[1], p[2], p[3]) != FALSE; }},
        {"Module32FirstW",
         {{&entry}},
         [snapshot](Pointers const & p) { return Module32FirstW(snapshot, p[0]) != FALSE; }},
    });
    if (table != nullptr)
    {
        ExpectAllSurvive({{"CopyAcceleratorTableW", {{keys}}, [table](Pointers const & p) {
                               return CopyAcceleratorTableW(table, p[0], 8) != 0;
                           }}});
        DestroyAcceleratorTable(table);
    }
    CloseHandle(snapshot);
    FreeLibrary(module);
}

/// COM on whatever thread a call is made.
struct Apartment
{
    Apartment()
    {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    }
    ~Apartment()
    {
        CoUninitialize();
    }
};

bool Released(void * object)
{
    return object != nullptr && (static_cast<IUnknown *>(object)->Release(), true);
}

TEST(BadObjectPointers, OfClassesFaultAndHoldNothing)
{
    Apartment const own;
    CLSID id = CLSID_DOMDocument40;
    IID iid = IID_IXMLDOMDocument2;
    IID factoryId = IID_IClassFactory;
    void * object = nullptr;
    GUID read = {};
    WCHAR buffer[64] = {};
    LPOLESTR text = nullptr;
    ExpectAllSurvive({
        {"CoCreateInstance",
         {{&id}, {&iid}, {&object}},
         [](Pointers const & p)
         {
             Apartment const apartment;
             return CoCreateInstance(p[0].As<CLSID>(), nullptr, CLSCTX_INPROC_SERVER, p[1].As<IID>(), p[2]) == S_OK &&
                 Released(p[2].As<void *>());
         }},
        {"CoGetClassObject",
         {{&id}, {&factoryId}, {&object}},
         [](Pointers const & p)
         {
             Apartment const apartment;
             return CoGetClassObject(p[0].As<CLSID>(), CLSCTX_INPROC_SERVER, nullptr, p[1].As<IID>(), p[2]) == S_OK &&
                 Released(p[2].As<void *>());
         }},
        {"CLSIDFromString",
         {{At(u"{2F1D6C90-7B3E-4C55-8E10-3A5D9247610D}")}, {&read}},
         [](Pointers const & p) { return CLSIDFromString(p[0], p[1]) == S_OK; }},
        {"IIDFromString",
         {{At(u"{2F1D6C90-7B3E-4C55-8E10-3A5D9247610D}")}, {&read}},
         [](Pointers const & p) { return IIDFromString(p[0], p[1]) == S_OK; }},
        {"StringFromGUID2",
         {{&id}, {buffer}},
         [](Pointers const & p) { return StringFromGUID2(p[0].As<GUID>(), p[1], 64) == 39; }},
        {"StringFromCLSID",
         {{&id}, {&text}},
         [](Pointers const & p)
         { return StringFromCLSID(p[0].As<GUID>(), p[1]) == S_OK && (CoTaskMemFree(p[1].As<LPOLESTR>()), true); }},
        {"SysAllocString",
         {{At(u"text")}},
         [](Pointers const & p)
         {
             BSTR const made = SysAllocString(p[0]);
             bool const whole = made != nullptr && SysStringLen(made) == 4;
             SysFreeString(made);
             return whole;
         }},
        {"SysAllocStringLen",
         {{At(u"text")}},
         [](Pointers const & p)
         {
             BSTR const made = SysAllocStringLen(p[0], 4);
             bool const whole = made != nullptr && made[0] == 't';
             SysFreeString(made);
             return whole;
         }},
        {"GetErrorInfo", {{&object}}, [](Pointers const & p) { return GetErrorInfo(0, p[0]) == S_FALSE; }},
    });
}

class BadXmlPointers : public testing::Test
{
protected:
    BadXmlPointers()
    {
        static_cast<void>(CoCreateInstance(
            CLSID_DOMDocument40, nullptr, CLSCTX_INPROC_SERVER, IID_IXMLDOMDocument2,
            reinterpret_cast<void **>(&document)));
        VARIANT_BOOL loaded = VARIANT_FALSE;
        document->loadXML(xml, &loaded);
        EXPECT_EQ(loaded, VARIANT_TRUE);
        document->get_documentElement(&element);
    }
    ~BadXmlPointers() override
    {
        element->Release();
        document->Release();
        for (BSTR const text : {xml, path, name})
        {
            SysFreeString(text);
        }
    }
    static bool Freed(BSTR text)
    {
        SysFreeString(text);
        return true;
    }

    Apartment const apartment;
    BSTR const xml = SysAllocString(u"<a b='c'><d>text</d><d/></a>");
    BSTR const path = SysAllocString(u"//d");
    BSTR const name = SysAllocString(u"b");
    IXMLDOMDocument2 * document = nullptr;
    IXMLDOMElement * element = nullptr;
    void * object = nullptr;
    BSTR given = nullptr;
    VARIANT_BOOL flag = VARIANT_FALSE;
    VARIANT value = {};
    LONG number = 0;
};

TEST_F(BadXmlPointers, FaultAndHoldNothing)
{
    IXMLDOMDocument2 * const doc = document;
    IXMLDOMElement * const root = element;
    IXMLDOMNodeList * list = nullptr;
    ASSERT_EQ(doc->selectNodes(path, &list), S_OK);
    ExpectAllSurvive({
        {"loadXML",
         {{xml}, {&flag}},
         [doc](Pointers const & p)
         { return doc->loadXML(p[0], p[1]) == S_OK && p[1].As<VARIANT_BOOL>() == VARIANT_TRUE; }},
        {"get_documentElement",
         {{&object}},
         [doc](Pointers const & p) { return doc->get_documentElement(p[0]) == S_OK && Released(p[0].As<void *>()); }},
        {"get_parseError",
         {{&object}},
         [doc](Pointers const & p) { return doc->get_parseError(p[0]) == S_OK && Released(p[0].As<void *>()); }},
        {"selectNodes",
         {{path}, {&object}},
         [doc](Pointers const & p) { return doc->selectNodes(p[0], p[1]) == S_OK && Released(p[1].As<void *>()); }},
        {"selectSingleNode",
         {{path}, {&object}},
         [doc](Pointers const & p)
         { return doc->selectSingleNode(p[0], p[1]) == S_OK && Released(p[1].As<void *>()); }},
        {"get_xml",
         {{&given}},
         [doc](Pointers const & p) { return doc->get_xml(p[0]) == S_OK && Freed(p[0].As<BSTR>()); }},
        {"get_text",
         {{&given}},
         [root](Pointers const & p) { return root->get_text(p[0]) == S_OK && Freed(p[0].As<BSTR>()); }},
        {"get_tagName",
         {{&given}},
         [root](Pointers const & p) { return root->get_tagName(p[0]) == S_OK && Freed(p[0].As<BSTR>()); }},
        {"getAttribute",
         {{name}, {&value}},
         [root](Pointers const & p) { return root->getAttribute(p[0], p[1]) == S_OK && VariantClear(p[1]) == S_OK; }},
        {"get_firstChild",
         {{&object}},
         [root](Pointers const & p) { return root->get_firstChild(p[0]) == S_OK && Released(p[0].As<void *>()); }},
        {"get_ownerDocument",
         {{&object}},
         [root](Pointers const & p) { return root->get_ownerDocument(p[0]) == S_OK && Released(p[0].As<void *>()); }},
        {"get_childNodes",
         {{&object}},
         [root](Pointers const & p) { return root->get_childNodes(p[0]) == S_OK && Released(p[0].As<void *>()); }},
        {"hasChildNodes", {{&flag}}, [root](Pointers const & p) { return root->hasChildNodes(p[0]) == S_OK; }},
        {"get_nodeTypeString",
         {{&given}},
         [root](Pointers const & p) { return root->get_nodeTypeString(p[0]) == S_OK && Freed(p[0].As<BSTR>()); }},
        {"get_length", {{&number}}, [list](Pointers const & p) { return list->get_length(p[0]) == S_OK; }},
        {"get_item",
         {{&object}},
         [list](Pointers const & p) { return list->get_item(0, p[0]) == S_OK && Released(p[0].As<void *>()); }},
        {"get_schemas",
         {{&value}},
         [doc](Pointers const & p) { return doc->get_schemas(p[0]) >= 0 && VariantClear(p[0]) == S_OK; }},
        {"validate",
         {{&object}},
         [doc](Pointers const & p) { return doc->validate(p[0]) >= 0 && Released(p[0].As<void *>()); }},
        {"get_async", {{&flag}}, [doc](Pointers const & p) { return doc->get_async(p[0]) == S_OK; }},
        {"get_readyState", {{&number}}, [doc](Pointers const & p) { return doc->get_readyState(p[0]) == S_OK; }},
    });
    list->Release();
}

} // namespace

#endif
