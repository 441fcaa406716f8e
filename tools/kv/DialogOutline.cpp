#include <kvcore/tools/kv/DialogOutline.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <kvcore/tools/support/Printable.h>

namespace kv::tools
{

namespace
{

constexpr unsigned int setFont = 0x40;
constexpr int columnUnits = 4;
constexpr int rowUnits = 8;

/// The bytes of a resource, taken from their front. Beyond the end everything is zero, and `ended` is set.
class Reader
{
public:
    Reader(void const * data, std::size_t length) : bytes(static_cast<unsigned char const *>(data)), size(length) {}

    unsigned int Word()
    {
        std::uint16_t word = 0;
        Take(&word, sizeof(word));
        return word;
    }
    int Short()
    {
        return static_cast<std::int16_t>(Word());
    }
    unsigned int DWord()
    {
        unsigned int const low = Word();
        return low | Word() << 16;
    }
    void Skip(std::size_t count)
    {
        ended = ended || count > size - at;
        at += std::min(count, size - at);
    }
    void Align(std::size_t multiple)
    {
        std::size_t const wanted = (at + multiple - 1) / multiple * multiple;
        at = std::min(wanted, size);
    }
    /// Nothing, an ordinal ("#12"), or a text.
    std::string Text()
    {
        WString text;
        for (unsigned int unit = Word(); unit != 0; unit = Word())
        {
            if (text.empty() && unit == 0xFFFF)
            {
                return std::string("#").append(std::to_string(Word()));
            }
            text += static_cast<WCHAR>(unit);
        }
        return String(text).Utf8();
    }
    bool Ended() const
    {
        return ended;
    }

private:
    void Take(void * target, std::size_t count)
    {
        if (count > size - at)
        {
            at = size;
            ended = true;
            return;
        }
        std::memcpy(target, bytes + at, count);
        at += count;
    }

    unsigned char const * bytes;
    std::size_t size;
    std::size_t at = 0;
    bool ended = false;
};

std::string KindOf(std::string const & windowClass)
{
    static constexpr struct
    {
        char const * name;
        char const * word;
    } known[] = {{"#128", "button"},  {"#129", "edit"},      {"#130", "static"},
                 {"#131", "listbox"}, {"#132", "scrollbar"}, {"#133", "combobox"}};
    // By name, the system's classes are meant in any case.
    std::string lower = windowClass;
    std::transform(
        lower.begin(), lower.end(), lower.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; });
    for (auto const & [name, word] : known)
    {
        if (windowClass == name || lower == word)
        {
            return word;
        }
    }
    return windowClass;
}

OutlineItem ReadItem(Reader & reader, bool extended)
{
    OutlineItem item{};
    if (extended)
    {
        reader.Skip(8);
        item.style = reader.DWord();
    }
    else
    {
        item.style = reader.DWord();
        reader.Skip(4);
    }
    item.x = reader.Short();
    item.y = reader.Short();
    item.width = reader.Short();
    item.height = reader.Short();
    item.id = extended ? reader.DWord() : reader.Word();
    item.kind = KindOf(reader.Text());
    item.text = reader.Text();
    // In the older form the size counts itself.
    unsigned int const stated = reader.Word();
    reader.Skip(extended || stated < 2 ? stated : stated - 2);
    reader.Align(4);
    return item;
}

} // namespace

DialogOutline ReadDialog(void const * data, std::size_t size)
{
    Reader reader(data, size);
    DialogOutline dialog;
    unsigned int const first = reader.DWord();
    dialog.extended = first >> 16 == 0xFFFF;
    unsigned int style = first;
    if (dialog.extended)
    {
        reader.Skip(8);
        style = reader.DWord();
    }
    else
    {
        reader.Skip(4);
    }
    unsigned int const count = reader.Word();
    dialog.x = reader.Short();
    dialog.y = reader.Short();
    dialog.width = reader.Short();
    dialog.height = reader.Short();
    static_cast<void>(reader.Text()); // the menu
    static_cast<void>(reader.Text()); // the class
    dialog.title = reader.Text();
    if ((style & setFont) != 0)
    {
        dialog.pointSize = reader.Short();
        reader.Skip(dialog.extended ? 4 : 0);
        dialog.font = reader.Text();
    }
    reader.Align(4);
    for (unsigned int i = 0; i < count && !reader.Ended(); ++i)
    {
        OutlineItem item = ReadItem(reader, dialog.extended);
        if (!reader.Ended())
        {
            dialog.items.push_back(std::move(item));
        }
    }
    dialog.damaged = reader.Ended();
    return dialog;
}

std::string OneLine(std::string const & text)
{
    return Printable(text, Backslashes::Doubled);
}

namespace
{

/// Places for characters, each with the bytes of one.
class Canvas
{
public:
    Canvas(int columns, int rows)
        : width(columns),
          cells(
              static_cast<std::size_t>(rows),
              std::vector<std::string>(static_cast<std::size_t>(columns), std::string(1, ' ')))
    {
    }

    void Put(int column, int row, std::string const & character)
    {
        if (column >= 0 && column < width && row >= 0 && row < static_cast<int>(cells.size()))
        {
            cells[static_cast<std::size_t>(row)][static_cast<std::size_t>(column)] = character;
        }
    }
    /// UTF-8, at most `room` characters of it.
    void Write(int column, int row, std::string const & text, int room)
    {
        for (std::size_t at = 0; at < text.size() && room > 0; --room)
        {
            std::size_t next = at + 1;
            while (next < text.size() && (text[next] & 0xC0) == 0x80)
            {
                ++next;
            }
            Put(column++, row, text.substr(at, next - at));
            at = next;
        }
    }
    void Frame(int left, int top, int right, int bottom)
    {
        right = std::min(right, width);
        for (int column = std::max(left, 0); column <= right; ++column)
        {
            char const * const line = column == left || column == right ? "+" : "-";
            Put(column, top, line);
            Put(column, bottom, line);
        }
        for (int row = std::max(top + 1, 0); row < std::min(bottom, static_cast<int>(cells.size())); ++row)
        {
            Put(left, row, "|");
            Put(right, row, "|");
        }
    }
    std::string Text() const
    {
        std::string text;
        for (std::vector<std::string> const & row : cells)
        {
            std::string line = "  ";
            for (std::string const & cell : row)
            {
                line += cell;
            }
            text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
        }
        return text;
    }

private:
    int width;
    std::vector<std::vector<std::string>> cells;
};

/// The text with something before and behind it; nothing for an empty one.
std::string Between(char const * before, std::string const & text, char const * behind)
{
    std::string whole;
    if (!text.empty())
    {
        whole.append(before).append(OneLine(text)).append(behind);
    }
    return whole;
}

/// How a control looks in its place: what stands before its text and behind it.
struct Look
{
    char const * before;
    char const * after;
    char filler;
};

Look LookOf(OutlineItem const & item)
{
    constexpr unsigned int typeMask = 0xF;
    unsigned int const type = item.style & typeMask;
    if (item.kind == "button")
    {
        return type <= 1 ? Look{"[", "]", ' '} : type == 4 || type == 9 ? Look{"( ) ", "", ' '} : Look{"[ ] ", "", ' '};
    }
    if (item.kind == "static")
    {
        return {"", "", ' '};
    }
    return item.kind == "edit"    ? Look{"[", "]", '_'}
        : item.kind == "combobox" ? Look{"[", "v]", ' '}
                                  : Look{"<", ">", ' '};
}

/// A column or row of a place in units, within reason.
int Cell(int units, int perCell)
{
    return std::clamp(units / perCell, -1000, 1000);
}

void DrawItem(Canvas & canvas, OutlineItem const & item)
{
    constexpr unsigned int groupBox = 7;
    int const left = Cell(item.x, columnUnits) + 1;
    int const top = Cell(item.y, rowUnits) + 1;
    int const columns = std::max(Cell(item.width, columnUnits), 1);
    int const rows = std::max(Cell(item.height, rowUnits), 1);
    bool const isGroup = item.kind == "button" && (item.style & 0xF) == groupBox;
    if (isGroup || (rows >= 3 && item.kind != "static" && item.kind != "combobox"))
    {
        canvas.Frame(left, top, left + columns - 1, top + rows - 1);
        canvas.Write(left + 2, isGroup ? top : top + 1, Between(" ", item.text, " "), columns - 4);
        return;
    }
    Look const look = LookOf(item);
    int const before = static_cast<int>(std::strlen(look.before));
    int const after = static_cast<int>(std::strlen(look.after));
    int const room = std::max(columns - before - after, 0);
    canvas.Write(left, top, look.before, columns);
    canvas.Write(left + before, top, std::string(static_cast<std::size_t>(room), look.filler), room);
    canvas.Write(left + before, top, OneLine(item.text), room);
    canvas.Write(left + before + room, top, look.after, after);
}

} // namespace

std::string DrawDialog(DialogOutline const & dialog)
{
    constexpr int mostColumns = 120;
    constexpr int mostRows = 60;
    int const columns = std::clamp((dialog.width + columnUnits - 1) / columnUnits + 2, 4, mostColumns);
    int const rows = std::clamp((dialog.height + rowUnits - 1) / rowUnits + 2, 3, mostRows);
    Canvas canvas(columns, rows);
    canvas.Frame(0, 0, columns - 1, rows - 1);
    canvas.Write(2, 0, Between(" ", dialog.title, " "), columns - 4);
    // What frames others first, so that they stand in it.
    for (bool const large : {true, false})
    {
        for (OutlineItem const & item : dialog.items)
        {
            if ((item.height >= 3 * rowUnits) == large)
            {
                DrawItem(canvas, item);
            }
        }
    }
    std::string text = canvas.Text();
    for (OutlineItem const & item : dialog.items)
    {
        char place[96];
        std::snprintf(
            place, sizeof(place), "  %-10u %4d,%-4d %4d x %-4d  ", item.id, item.x, item.y, item.width, item.height);
        text += place + OneLine(item.kind) + Between(" \"", item.text, "\"") + "\n";
    }
    return text + (dialog.damaged ? "  (the resource ends here, before all its controls)\n" : "");
}

} // namespace kv::tools
