#include <kvcore/frame/DialogTemplate.h>
#include <kvcore/frame/ModuleBase.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include <frame/ModuleRig.h>

namespace
{

/// Dialogs as the platform's tools compile them.
class ModuleDialogs : public testing::Test
{
protected:
    ModuleDialogs() : loaded(FullFolder())
    {
        module.Init(loaded.handle);
        module.Free();
    }

    SharedSettings const settings;
    LoadedModule const loaded;
    RigModule module;
};

/// The bytes in a global block.
std::string BytesOf(HGLOBAL block)
{
    std::string const bytes(static_cast<char const *>(GlobalLock(block)), GlobalSize(block));
    GlobalUnlock(block);
    return bytes;
}

/// A global block of these bytes, which the caller frees.
HGLOBAL BlockOf(std::string const & bytes)
{
    HGLOBAL const block = GlobalAlloc(GMEM_MOVEABLE, bytes.size());
    std::memcpy(GlobalLock(block), bytes.data(), bytes.size());
    GlobalUnlock(block);
    return block;
}

TEST_F(ModuleDialogs, AreCopiedByteForByteAtFirst)
{
    double x = 0;
    double y = 0;
    ModuleBase::GetDialogScalingFactors(x, y);
    EXPECT_EQ(x, 1.0);
    EXPECT_EQ(y, 1.0);
    for (unsigned const id : {1u, 2u, 3u})
    {
        HGLOBAL const dialog = module.LoadDialog(id);
        ASSERT_NE(dialog, nullptr);
        EXPECT_EQ(BytesOf(dialog), module.Bytes(id, dialogType)) << id;
        HGLOBAL const copy = module.ScaleDialog(dialog);
        EXPECT_NE(copy, dialog);
        EXPECT_EQ(BytesOf(copy), BytesOf(dialog));
        GlobalFree(copy);
        GlobalFree(dialog);
    }
}

TEST_F(ModuleDialogs, LeaveTheGivenBlockAsItIs)
{
    ModuleBase::SetDialogScalingFactors(2, 3);
    std::string const bytes = module.Bytes(1, dialogType);
    HGLOBAL const given = BlockOf(bytes);
    HGLOBAL const scaled = module.ScaleDialog(given);
    EXPECT_EQ(BytesOf(given), bytes);
    EXPECT_NE(BytesOf(scaled), bytes);
    EXPECT_EQ(BytesOf(scaled).size(), bytes.size());
    EXPECT_EQ(GlobalFree(scaled), nullptr);
    EXPECT_EQ(GlobalFree(given), nullptr);
    EXPECT_EQ(module.ScaleDialog(nullptr), nullptr);
}

TEST_F(ModuleDialogs, ThatAreMissingAreNull)
{
    EXPECT_EQ(module.LoadDialog(77), nullptr);
    EXPECT_EQ(module.LoadDialog(0), nullptr);
    for (bool const scaled : {false, true})
    {
        DialogTemplate result;
        result.title = TEXT("old");
        result.items.emplace_back();
        EXPECT_FALSE(module.LoadDialogTemplate(77, result, scaled));
        EXPECT_TRUE(result.title.empty());
        EXPECT_TRUE(result.items.empty());
    }
    EXPECT_EQ(module.GetDialogRect(77, false), Rect());
}

TEST_F(ModuleDialogs, WithoutAWholeHeaderAreNotParsed)
{
    for (bool const scaled : {false, true})
    {
        ModuleBase::SetDialogScalingFactors(2, 2);
        DialogTemplate result;
        result.title = TEXT("old");
        EXPECT_FALSE(module.LoadDialogTemplate(3, result, scaled));
        EXPECT_TRUE(result.title.empty());
        EXPECT_EQ(result.style, 0u);
    }
    EXPECT_EQ(module.GetDialogRect(3, false), Rect());
}

TEST_F(ModuleDialogs, AreParsedInTheStandardForm)
{
    DialogTemplate result;
    ASSERT_TRUE(module.LoadDialogTemplate(1, result, false));
    EXPECT_FALSE(result.extended);
    EXPECT_EQ(result.style & 0x40, 0x40u);
    EXPECT_EQ(result.title, TEXT("Standard"));
    EXPECT_EQ(result.pointSize, 8);
    EXPECT_EQ(result.fontName, TEXT("MS Shell Dlg"));
    EXPECT_EQ(Rect(result.rect), Rect(10, 20, 210, 121));
    ASSERT_EQ(result.items.size(), 3u);
    auto item = result.items.begin();
    EXPECT_EQ(item->windowClass, TEXT("#130"));
    EXPECT_EQ(item->title, TEXT("Name:"));
    EXPECT_EQ(item->id, 5);
    EXPECT_EQ(item->x, 5);
    EXPECT_EQ(item->cy, 10);
    ++item;
    EXPECT_EQ(item->windowClass, TEXT("#129"));
    EXPECT_EQ(item->id, 100);
    // This one ends at a multiple of 4, where its size word is taken for the next item's beginning.
    ++item;
    EXPECT_EQ(item->style, 0u);
    EXPECT_EQ(item->exStyle & 0xFFFF, 1u);
}

TEST_F(ModuleDialogs, AreParsedInTheExtendedForm)
{
    DialogTemplate result;
    ASSERT_TRUE(module.LoadDialogTemplate(2, result, false));
    EXPECT_TRUE(result.extended);
    EXPECT_EQ(result.version, 1);
    EXPECT_EQ(result.signature, 0xFFFF);
    EXPECT_EQ(result.helpId, 77u);
    EXPECT_EQ(result.exStyle, 0x100u);
    EXPECT_EQ(result.title, TEXT("Extended"));
    EXPECT_EQ(result.pointSize, 9);
    EXPECT_EQ(result.weight, 400);
    EXPECT_EQ(result.italic, 1);
    EXPECT_EQ(result.charset, 1);
    EXPECT_EQ(result.fontName, TEXT("Tahoma"));
    EXPECT_EQ(Rect(result.rect), Rect(11, 21, 212, 123));
    DialogItem const & first = result.items.front();
    EXPECT_EQ(first.style, 0x50010003u);
    EXPECT_EQ(first.id, 200);
    EXPECT_EQ(first.windowClass, TEXT("")) << "the upper half of the identifier";
    EXPECT_EQ(first.title, TEXT("BUTTON")) << "what is the class";
}

TEST_F(ModuleDialogs, AreParsedAsTheyAreScaled)
{
    ModuleBase::SetDialogScalingFactors(1.5, 2);
    DialogTemplate result;
    ASSERT_TRUE(module.LoadDialogTemplate(1, result, true));
    EXPECT_EQ(Rect(result.rect), Rect(15, 40, 315, 242));
    EXPECT_EQ(result.title, TEXT("Standard"));
    EXPECT_EQ(result.items.front().x, 7);
    EXPECT_EQ(result.items.front().y, 12);
    EXPECT_EQ(result.items.front().cx, 60);
    EXPECT_EQ(result.items.front().cy, 20);
    ASSERT_TRUE(module.LoadDialogTemplate(1, result, false));
    EXPECT_EQ(Rect(result.rect), Rect(10, 20, 210, 121)) << "unless they are asked for as they are";
}

TEST_F(ModuleDialogs, TellWhereTheyStandUnscaled)
{
    ModuleBase::SetDialogScalingFactors(1.5, 2);
    EXPECT_EQ(module.GetDialogRect(1, false), Rect(10, 20, 210, 121));
    EXPECT_EQ(module.GetDialogRect(2, false), Rect(11, 21, 212, 123));
    EXPECT_EQ(module.GetDialogRect(2, true), Rect()) << "there is no window to measure by";
}

TEST_F(ModuleDialogs, AreThoseOfTheLanguage)
{
    RigModule german;
    german.nameFile = [](unsigned short, String & path)
    {
        path = File::MakePath(File::GetDirname(path), TEXT("FrameModule_de.lng"));
        return true;
    };
    german.Init(loaded.handle);
    german.Free();
    EXPECT_EQ(german.GetDialogRect(1, false), Rect(1, 2, 31, 42));
    DialogTemplate result;
    EXPECT_TRUE(german.LoadDialogTemplate(1, result, false));
    EXPECT_EQ(result.title, TEXT("Deutsch"));
    EXPECT_FALSE(german.LoadDialogTemplate(2, result, false)) << "the module's is not asked for";
    german.ignoresLanguage = true;
    EXPECT_TRUE(german.LoadDialogTemplate(2, result, false));
}

} // namespace
