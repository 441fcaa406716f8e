#include <kvcore/frame/DataObject.h>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

namespace
{

class Watched : public DataObject
{
public:
    explicit Watched(bool & destroyedFlag) : destroyed(destroyedFlag) {}
    ~Watched() override
    {
        destroyed = true;
    }

private:
    bool & destroyed;
};

TEST(DataObjects, AreDestroyedByTheirFirstReleaseIfNobodyElseHoldsThem)
{
    bool destroyed = false;
    DataObject * const object = new Watched(destroyed);
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_TRUE(destroyed);
}

TEST(DataObjects, BelongToTheirCreator)
{
    bool destroyed = false;
    DataObject * const object = new Watched(destroyed);
    EXPECT_EQ(object->AddRef(), 2u);
    EXPECT_EQ(object->Release(), 1u);
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_TRUE(destroyed);
}

TEST(DataObjects, AnswerForTheirInterfaces)
{
    bool destroyed = false;
    DataObject * const object = new Watched(destroyed);
    for (IID const * iid : {&IID_IUnknown, &IID_IDataObject})
    {
        void * found = nullptr;
        EXPECT_EQ(object->QueryInterface(*iid, &found), S_OK);
        EXPECT_EQ(found, static_cast<IDataObject *>(object));
    }
    EXPECT_EQ(object->Release(), 2u);
    EXPECT_EQ(object->Release(), 1u);
    void * found = object;
    GUID other = IID_DataObject;
    ++other.Data1;
    EXPECT_EQ(object->QueryInterface(other, &found), static_cast<HRESULT>(0x80004002));
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(object->Release(), 0u);
}

TEST(DataObjects, AreFoundAgainByTheirOwnIdentifier)
{
    bool destroyed = false;
    DataObject * const object = new Watched(destroyed);
    IDataObject * const data = object;
    void * found = nullptr;
    EXPECT_EQ(data->QueryInterface(IID_DataObject, &found), S_OK);
    EXPECT_EQ(found, object);
    EXPECT_EQ(object->Release(), 1u) << "it counts as a reference";
    object->Release();
}

TEST(DataObjects, RefuseEverythingInTheirWay)
{
    bool destroyed = false;
    DataObject * const object = new Watched(destroyed);
    FORMATETC format = {};
    STGMEDIUM medium = {};
    constexpr HRESULT invalid = static_cast<HRESULT>(0x80070057);
    constexpr HRESULT notThere = static_cast<HRESULT>(0x80004001);
    constexpr HRESULT noAdvise = static_cast<HRESULT>(0x80040003);
    EXPECT_EQ(object->GetData(&format, &medium), invalid);
    EXPECT_EQ(object->GetDataHere(&format, &medium), invalid);
    EXPECT_EQ(object->QueryGetData(&format), invalid);
    EXPECT_EQ(object->GetCanonicalFormatEtc(&format, &format), invalid);
    EXPECT_EQ(object->SetData(&format, &medium, TRUE), notThere);
    auto * formats = reinterpret_cast<IEnumFORMATETC *>(object);
    EXPECT_EQ(object->EnumFormatEtc(1, &formats), notThere);
    EXPECT_EQ(formats, nullptr);
    DWORD connection = 0;
    EXPECT_EQ(object->DAdvise(&format, 0, nullptr, &connection), notThere);
    EXPECT_EQ(object->DUnadvise(1), noAdvise);
    auto * connections = reinterpret_cast<IEnumSTATDATA *>(object);
    EXPECT_EQ(object->EnumDAdvise(&connections), noAdvise);
    EXPECT_EQ(connections, nullptr);
    object->Release();
}

} // namespace
