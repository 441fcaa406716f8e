#include <kvcore/frame/detail/DialogResource.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace kv::detail
{

namespace
{

constexpr std::uint16_t ordinalMark = 0xFFFF;
constexpr std::size_t standardHeader = 18;
constexpr std::size_t extendedHeader = 26;
constexpr std::size_t standardItem = 18;
constexpr std::size_t extendedItem = 22; // Kept: without the upper half of the identifier
constexpr DWORD setFont = 0x40;
constexpr DWORD shellFont = 0x48;

/// Reads bytes in order. Behind their end there are zeros, and Ended tells that they were asked for.
class Cursor
{
public:
    explicit Cursor(std::string_view bytes) : data(bytes) {}

    template <class Number>
    Number At(std::size_t offset) const
    {
        Number number = 0;
        std::size_t const place = position + offset;
        if (place <= data.size() && data.size() - place >= sizeof number)
        {
            std::memcpy(&number, data.data() + place, sizeof number);
        }
        return number;
    }
    template <class Number>
    Number Next()
    {
        Number const number = At<Number>(0);
        Step(sizeof number);
        return number;
    }
    void Step(std::size_t size)
    {
        ended = ended || size > data.size() - position;
        position += std::min(size, data.size() - position);
    }
    void AlignTo(std::size_t multiple)
    {
        // The last bytes of a resource may be left off where they only fill up.
        std::size_t const aligned = (position + multiple - 1) / multiple * multiple;
        position = std::min(aligned, data.size());
    }
    bool HasRoomFor(std::size_t size) const
    {
        return data.size() - position >= size;
    }
    bool Ended() const
    {
        return ended;
    }

    /// A text up to its NUL.
    String Text()
    {
        String text;
        while (std::uint16_t const unit = Next<std::uint16_t>())
        {
            text.push_back(WCHAR(unit));
        }
        AlignTo(2);
        return text;
    }
    /// A text, or the ordinal in its place as "#128".
    String TextField()
    {
        if (At<std::uint16_t>(0) != ordinalMark)
        {
            return Text();
        }
        Step(2);
        return String::FromFormat(TEXT("#%i"), int(Next<std::uint16_t>()));
    }
    std::string Bytes(std::size_t size)
    {
        std::string const bytes(data.substr(position, size));
        Step(size);
        return bytes;
    }

private:
    std::string_view data;
    std::size_t position = 0;
    bool ended = false;
};

bool IsExtended(std::string_view bytes)
{
    return Cursor(bytes).At<std::uint16_t>(2) == ordinalMark;
}

bool HasHeader(std::string_view bytes)
{
    return bytes.size() >= (IsExtended(bytes) ? extendedHeader : standardHeader);
}

RECT PlaceAt(Cursor const & cursor, std::size_t offset)
{
    LONG const x = cursor.At<std::int16_t>(offset);
    LONG const y = cursor.At<std::int16_t>(offset + 2);
    return {x, y, x + cursor.At<std::int16_t>(offset + 4), y + cursor.At<std::int16_t>(offset + 6)};
}

/// The header up to the texts. Gives the number of items.
unsigned ReadHeader(Cursor & cursor, DialogTemplate & result)
{
    unsigned count;
    if (result.extended)
    {
        result.version = cursor.At<std::uint16_t>(0);
        result.signature = cursor.At<std::uint16_t>(2);
        result.helpId = cursor.At<std::uint32_t>(4);
        result.exStyle = cursor.At<std::uint32_t>(8);
        result.style = cursor.At<std::uint32_t>(12);
        count = cursor.At<std::uint16_t>(16);
        result.rect = PlaceAt(cursor, 18);
        cursor.Step(extendedHeader);
    }
    else
    {
        result.style = cursor.At<std::uint32_t>(0);
        result.exStyle = cursor.At<std::uint32_t>(4);
        count = cursor.At<std::uint16_t>(8);
        result.rect = PlaceAt(cursor, 10);
        cursor.Step(standardHeader);
    }
    return count;
}

void ReadFont(Cursor & cursor, DialogTemplate & result)
{
    if ((result.style & (result.extended ? shellFont : setFont)) == 0)
    {
        return;
    }
    result.pointSize = cursor.Next<std::uint16_t>();
    if (result.extended)
    {
        result.weight = cursor.Next<std::uint16_t>();
        result.italic = cursor.Next<std::uint8_t>();
        result.charset = cursor.Next<std::uint8_t>();
    }
    cursor.AlignTo(2);
    result.fontName = cursor.Text();
}

void ReadItemHeader(Cursor & cursor, bool extended, DialogItem & item)
{
    std::size_t place = 8;
    if (extended)
    {
        item.helpId = cursor.At<std::uint32_t>(0);
        item.exStyle = cursor.At<std::uint32_t>(4);
        item.style = cursor.At<std::uint32_t>(8);
        place = 12;
    }
    else
    {
        item.style = cursor.At<std::uint32_t>(0);
        item.exStyle = cursor.At<std::uint32_t>(4);
    }
    item.x = cursor.At<std::int16_t>(place);
    item.y = cursor.At<std::int16_t>(place + 2);
    item.cx = cursor.At<std::int16_t>(place + 4);
    item.cy = cursor.At<std::int16_t>(place + 6);
    item.id = cursor.At<std::uint16_t>(place + 8);
    cursor.Step(extended ? extendedItem : standardItem);
    cursor.AlignTo(2);
}

DialogItem ReadItem(Cursor & cursor, bool extended)
{
    DialogItem item;
    ReadItemHeader(cursor, extended, item);
    item.windowClass = cursor.TextField();
    item.title = cursor.TextField();
    std::size_t const size = cursor.At<std::uint16_t>(0);
    if (extended)
    {
        cursor.Step(2);
        cursor.AlignTo(2);
    }
    // Kept: in the standard form the data begin at their size.
    item.creationData = cursor.Bytes(size);
    cursor.AlignTo(2);
    cursor.AlignTo(4);
    return item;
}

} // namespace

bool ParseDialog(std::string_view bytes, DialogTemplate & result)
{
    result = DialogTemplate();
    if (!HasHeader(bytes))
    {
        return false;
    }
    Cursor cursor(bytes);
    result.extended = IsExtended(bytes);
    unsigned const count = ReadHeader(cursor, result);
    result.menu = cursor.TextField();
    result.windowClass = cursor.TextField();
    result.title = cursor.TextField();
    ReadFont(cursor, result);
    cursor.AlignTo(4);
    std::size_t const itemHeader = result.extended ? extendedItem : standardItem;
    for (unsigned i = 0; i < count && !cursor.Ended() && cursor.HasRoomFor(itemHeader); ++i)
    {
        result.items.push_back(ReadItem(cursor, result.extended));
    }
    return true;
}

RECT DialogPlace(std::string_view bytes)
{
    return HasHeader(bytes) ? PlaceAt(Cursor(bytes), IsExtended(bytes) ? 18 : 10) : RECT{};
}

} // namespace kv::detail
