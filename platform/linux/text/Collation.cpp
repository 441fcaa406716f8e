#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include <unicode/ucol.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/winnls.h>

#include "Locales.h"

namespace
{

struct CollatorCloser
{
    void operator()(UCollator * collator) const
    {
        ucol_close(collator);
    }
};

using Collator = std::unique_ptr<UCollator, CollatorCloser>;

Collator OpenCollator(std::string const & locale, DWORD flags)
{
    UErrorCode error = U_ZERO_ERROR;
    Collator collator(ucol_open(locale.c_str(), &error));
    if (U_FAILURE(error))
        return nullptr;
    bool const ignoreCase = (flags & NORM_IGNORECASE) != 0;
    bool const ignoreMarks = (flags & NORM_IGNORENONSPACE) != 0;
    ucol_setStrength(collator.get(), ignoreMarks ? UCOL_PRIMARY : ignoreCase ? UCOL_SECONDARY : UCOL_TERTIARY);
    ucol_setAttribute(collator.get(), UCOL_CASE_LEVEL, ignoreMarks && !ignoreCase ? UCOL_ON : UCOL_OFF, &error);
    ucol_setAttribute(collator.get(), UCOL_NORMALIZATION_MODE, UCOL_ON, &error);
    return collator;
}

/// The collator of a locale and flags, opened at first use and kept to the end of the process. Comparing does not
/// change it, so that all threads share it.
UCollator const * FindCollator(LCID locale, DWORD flags)
{
    static std::mutex mutex;
    static auto & collators = *new std::unordered_map<std::uint64_t, Collator>;
    std::lock_guard const lock(mutex);
    std::uint64_t const key = std::uint64_t(locale) << 32 | flags;
    auto const found = collators.find(key);
    if (found != collators.end())
        return found->second.get();
    std::optional<std::string> const name = kv::platform::IcuLocale(locale, "LC_COLLATE");
    if (!name)
        return nullptr;
    return collators.emplace(key, OpenCollator(*name, flags)).first->second.get();
}

} // namespace

int WINAPI CompareStringW(LCID locale, DWORD flags, LPCWCH left, int leftLength, LPCWCH right, int rightLength)
{
    if (left == nullptr || right == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    UCollator const * const collator = FindCollator(locale, flags);
    if (collator == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    auto const length = [](LPCWCH text, int given)
    { return given >= 0 ? given : static_cast<int>(std::char_traits<WCHAR>::length(text)); };
    UCollationResult const order =
        ucol_strcoll(collator, left, length(left, leftLength), right, length(right, rightLength));
    return order == UCOL_LESS ? CSTR_LESS_THAN : order == UCOL_EQUAL ? CSTR_EQUAL : CSTR_GREATER_THAN;
}
