// Dialog resources, parsed and scaled.

#include <kvcore/frame/detail/DialogResource.h>

#include "Fuzz.h"

namespace
{

bool IsExtended(std::string const & bytes)
{
    return bytes.size() >= 4 && bytes[2] == '\xFF' && bytes[3] == '\xFF';
}

/// A factor from 1/16 to 16, sometimes none that makes sense.
double Factor(std::uint8_t choice)
{
    return choice == 0 ? 1e300 : choice == 1 ? -1.0 : double(choice) / 16;
}

void CheckParsed(std::string const & bytes)
{
    fuzz::Exact<char> const exact(bytes.data(), bytes.size());
    std::string_view const view(exact.Data(), exact.Size());
    DialogTemplate dialog;
    dialog.title = TEXT("old");
    bool const isParsed = kv::detail::ParseDialog(view, dialog);
    std::size_t const header = IsExtended(bytes) ? 26 : 18;
    fuzz::Check(isParsed == (bytes.size() >= header), "a dialog is parsed, or not, against its header");
    RECT const place = kv::detail::DialogPlace(view);
    fuzz::Check(
        place.left == dialog.rect.left && place.top == dialog.rect.top && place.right == dialog.rect.right &&
            place.bottom == dialog.rect.bottom,
        "two places for one dialog");
    std::size_t units = dialog.menu.size() + dialog.windowClass.size() + dialog.title.size() + dialog.fontName.size();
    for (DialogItem const & item : dialog.items)
    {
        units += item.windowClass.size() + item.title.size() + item.creationData.size();
    }
    // "#65535" out of four bytes is the most that a text can grow by; data may be counted again as the next item.
    fuzz::Check(dialog.items.size() * 18 <= bytes.size(), "more items than bytes");
    fuzz::Check(units <= 2 * bytes.size() + 24, "more text than bytes");
}

void CheckScaled(std::string const & bytes, double x, double y)
{
    fuzz::Exact<char> const exact(bytes.data(), bytes.size());
    kv::detail::ScaleDialogPlaces(exact.Data(), exact.Size(), x, y);
    // What comes before the dialog's own place stays as it is, and so does the form.
    std::size_t const untouched = std::min<std::size_t>(bytes.size(), IsExtended(bytes) ? 18 : 10);
    fuzz::Check(std::equal(bytes.begin(), bytes.begin() + untouched, exact.Data()), "a header is scaled");

    fuzz::Exact<char> const same(bytes.data(), bytes.size());
    kv::detail::ScaleDialogPlaces(same.Data(), same.Size(), 1, 1);
    fuzz::Check(std::equal(bytes.begin(), bytes.end(), same.Data()), "a factor of 1 changes a dialog");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    double const x = Factor(input.Byte());
    double const y = Factor(input.Byte());
    std::string const bytes = input.Rest();
    CheckParsed(bytes);
    CheckScaled(bytes, x, y);
    return 0;
}
