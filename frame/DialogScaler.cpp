#include <kvcore/frame/detail/DialogResource.h>

#include <cmath>
#include <cstdint>
#include <cstring>

// Kept: this walks through a dialog in its own way, which is not quite that of the parser. Dialogs whose controls stand
// at fractional places get their size by these rules, and were arranged for them.

namespace kv::detail
{

namespace
{

constexpr std::uint16_t ordinalMark = 0xFFFF;

/// Walks through the bytes of a dialog. Everything stops at their end.
class Walk
{
public:
    Walk(char * bytes, std::size_t byteCount) : data(bytes), size(byteCount) {}

    bool Ended() const
    {
        return position >= size;
    }
    std::uint16_t Word(std::size_t offset) const
    {
        std::uint16_t word = 0;
        if (Has(offset, sizeof word))
        {
            std::memcpy(&word, data + position + offset, sizeof word);
        }
        return word;
    }
    void Step(std::size_t count)
    {
        position = count < size - position ? position + count : size;
    }
    /// Right on even places, the only ones there are: adds 0 or 2.
    void RoundUp()
    {
        Step(position & 3);
    }
    /// To the next zero word.
    void StepToZero()
    {
        while (Has(0, sizeof(std::uint16_t)) && Word(0) != 0)
        {
            Step(2);
        }
    }
    void StepOverText()
    {
        StepToZero();
        Step(2);
    }
    /// A text, or the mark of an ordinal and the ordinal.
    void StepOverField()
    {
        Word(0) == ordinalMark ? Step(4) : StepOverText();
    }

    void ScalePlace(std::size_t offset, double factorX, double factorY);

private:
    bool Has(std::size_t offset, std::size_t count) const
    {
        return offset <= size - position && count <= size - position - offset;
    }

    char * data;
    std::size_t size;
    std::size_t position = 0;
};

/// Cut towards zero, and to the 16 bits of its field.
std::int16_t Cut(long double exact)
{
    constexpr long double most = 9e18L;
    return std::abs(exact) < most ? static_cast<std::int16_t>(static_cast<long long>(exact)) : std::int16_t(0);
}

/// The rectangle at `offset`, if it is there as a whole. A width or height that lost more than its place did gets one
/// unit more. Kept: the comparison takes the width for a right edge.
void Walk::ScalePlace(std::size_t offset, double factorX, double factorY)
{
    std::int16_t place[4];
    if (!Has(offset, sizeof place))
    {
        return;
    }
    std::memcpy(place, data + position + offset, sizeof place);
    long double const exact[4] = {
        static_cast<long double>(place[0]) * factorX, static_cast<long double>(place[1]) * factorY,
        static_cast<long double>(place[2]) * factorX, static_cast<long double>(place[3]) * factorY};
    for (int i = 0; i < 4; ++i)
    {
        place[i] = Cut(exact[i]);
    }
    for (int i = 2; i < 4; ++i)
    {
        if (place[i] - place[i - 2] < exact[i] - exact[i - 2])
        {
            place[i] = static_cast<std::int16_t>(place[i] + 1);
        }
    }
    std::memcpy(data + position + offset, place, sizeof place);
}

void ScaleExtended(Walk & walk, double x, double y)
{
    unsigned const count = walk.Word(16);
    bool const hasFont = (walk.Word(12) & 0x48) != 0;
    walk.ScalePlace(18, x, y);
    walk.Step(26);
    walk.StepOverField(); // menu
    walk.StepOverField(); // class
    walk.StepOverText();  // title
    if (hasFont)
    {
        walk.Step(6);
        walk.StepOverText();
    }
    for (unsigned i = 0; i < count && !walk.Ended(); ++i)
    {
        walk.ScalePlace(12, x, y);
        walk.Step(24);
        walk.StepOverField();
        walk.StepOverField();
        walk.Step(std::size_t{walk.Word(0)} + 2);
        walk.RoundUp();
    }
}

void ScaleStandard(Walk & walk, double x, double y)
{
    unsigned const count = walk.Word(8);
    bool const hasFont = (walk.Word(0) & 0x40) != 0;
    walk.ScalePlace(10, x, y);
    walk.Step(18);
    walk.StepOverField(); // menu
    walk.StepOverField(); // class
    walk.StepOverText();  // title
    if (hasFont)
    {
        walk.Step(2);
        walk.StepOverText();
    }
    walk.RoundUp();
    for (unsigned i = 0; i < count && !walk.Ended(); ++i)
    {
        walk.ScalePlace(8, x, y);
        walk.Step(18);
        walk.StepOverField();
        if (walk.Word(0) == ordinalMark)
        {
            walk.Step(4);
        }
        walk.StepToZero(); // Kept: also behind an ordinal
        std::size_t const data = walk.Word(2);
        walk.Step(data == 0 ? 4 : data + 2);
        walk.RoundUp();
    }
}

} // namespace

void ScaleDialogPlaces(char * bytes, std::size_t size, double x, double y)
{
    Walk walk(bytes, size);
    walk.Word(2) == ordinalMark ? ScaleExtended(walk, x, y) : ScaleStandard(walk, x, y);
}

} // namespace kv::detail
