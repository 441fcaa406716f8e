#pragma once

#include <optional>
#include <string>

#include <kvcore/core/String.h>
#include <kvcore/examples/storyboard/Model.h>

// The values of a project as the attributes of a description hold them, and back. Nothing is lost on the way, and each
// text is the only one of its value; reading gives nothing for any other.

namespace Storyboard
{

/// A path or name: bytes, most often UTF-8. A backslash becomes two; a byte that is none of a character that XML may
/// hold becomes `\xHH`.
String SpelledName(std::string const & name);
std::optional<std::string> NameOf(String const & spelled);

/// A text of UTF-16. The same, with `\uHHHH` for a unit that is none of a character that XML may hold.
String SpelledText(String const & text);
std::optional<String> TextOf(String const & spelled);

/// "5", "0.04": seconds. Not for negative lengths.
String SpelledLength(Ticks length);
std::optional<Ticks> LengthOf(String const & spelled);

/// "2022-06-18T04:26:40.0000000Z". Not for times before 1601.
String SpelledMoment(Ticks moment);
std::optional<Ticks> MomentOf(String const & spelled);

/// Decimal digits.
String SpelledNumber(std::int64_t number);
std::optional<std::int64_t> NumberOf(String const & spelled, std::int64_t most);

} // namespace Storyboard
