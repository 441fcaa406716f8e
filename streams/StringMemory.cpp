// The members of String that take memory arrays. They stand here because core knows nothing of this room.

#include <kvcore/core/String.h>
#include <kvcore/streams/MemoryBlock.h>

String::String(MemoryArray<WCHAR> const & array)
{
    *this = array;
}

String const & String::operator=(MemoryArray<WCHAR> const & array)
{
    // An empty array has no memory to point to. An odd last byte is no element.
    std::size_t const count = static_cast<std::size_t>(array.size()) / sizeof(WCHAR);
    if (count == 0)
    {
        clear();
    }
    else
    {
        assign(static_cast<WCHAR const *>(array), count);
    }
    return *this;
}
