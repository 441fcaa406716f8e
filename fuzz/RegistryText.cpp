// Registry files of any bytes: read whole, or refused with a line of the text. What was read is written and read again,
// and must come out equal.

#include <algorithm>
#include <string>
#include <vector>

#include <kvcore/tools/support/RegistryText.h>

#include "Fuzz.h"

namespace
{

using namespace kv::tools;

class Sink : public OutputStream
{
public:
    Sink() : OutputStream(nullptr) {}
    void Write(char const * data, int size) override
    {
        text.append(data, static_cast<std::size_t>(size));
    }
    std::string text;
};

/// Writes what a text sets, key by key, and gives the number of keys.
std::size_t Write(std::vector<RegistryTextKey> const & keys, Sink & sink)
{
    RegistryTextWriter writer(sink);
    std::size_t count = 0;
    for (RegistryTextKey const & key : keys)
    {
        fuzz::Check(RegistryTextWriter::CanHold(key.path.Shown()), "a key was read that cannot be written");
        if (key.isDeleted)
        {
            continue;
        }
        ++count;
        writer.Key(key.path.Shown());
        for (RegistryTextValue const & item : key.values)
        {
            if (!item.isDeleted)
            {
                writer.Value(item.value);
            }
        }
    }
    writer.Finish();
    return count;
}

void CheckSame(RegistryTextKey const & first, RegistryTextKey const & second)
{
    fuzz::Check(first.path.Shown() == second.path.Shown(), "a key has another path");
    std::size_t next = 0;
    for (RegistryTextValue const & item : first.values)
    {
        if (item.isDeleted)
        {
            continue;
        }
        fuzz::Check(next < second.values.size(), "a value is missing");
        RegistryValue const & value = second.values[next++].value;
        fuzz::Check(
            value.name == item.value.name && value.type == item.value.type && value.data == item.value.data,
            "a value is another one");
    }
    fuzz::Check(next == second.values.size(), "there is a value too many");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    std::string const bytes(reinterpret_cast<char const *>(data), size);
    std::vector<RegistryTextKey> keys;
    try
    {
        keys = ParseRegistryText(bytes);
    }
    catch (RegistryTextError const & failure)
    {
        auto const isEnd = [](char c) { return c == '\n' || c == '\r'; };
        auto const ends = static_cast<std::size_t>(std::count_if(bytes.begin(), bytes.end(), isEnd));
        // U+0D0A and its like hold both bytes and are no line end, which only makes the bound weaker.
        fuzz::Check(failure.line >= 1 && failure.line <= ends + 1, "a failure in no line of the text");
        fuzz::Check(failure.what()[0] != '\0', "a failure without a reason");
        return 0;
    }
    Sink sink;
    std::size_t const count = Write(keys, sink);
    std::vector<RegistryTextKey> const again = ParseRegistryText(sink.text);
    fuzz::Check(again.size() == count, "what was written has another number of keys");
    std::size_t next = 0;
    for (RegistryTextKey const & key : keys)
    {
        if (!key.isDeleted)
        {
            CheckSame(key, again[next++]);
        }
    }
    return 0;
}
